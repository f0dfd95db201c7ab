#include "FakeThreads.h"

#include "AllocationPause.h"
#include "CPEvent.h"
#include "CPThread.h"
#include "CPortable.h"
#include "FakeConstruction.h"
#include "FakeLives.h"
#include "KRException.h"

#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace {
struct CThreadRecords
{
    std::mutex mtx;
    std::vector<CFakeThreads::CStart> vecStarts;
    std::vector<std::string> vecNamesSet;
    std::size_t uAlive = 0;
    CFakeConstruction construction;
    CFakeConstruction createThread;
    bool bCreateThreadRefused = false;
};

CThreadRecords& records()
{
    CAllocationPause pause;
    static CThreadRecords* const pRecords = new CThreadRecords;
    return *pRecords;
}

void noteStart(CFakeThreads::CStart start)
{
    const std::lock_guard lock(records().mtx);
    records().vecStarts.push_back(std::move(start));
    ++records().uAlive;
}

void noteEnd()
{
    const std::lock_guard lock(records().mtx);
    --records().uAlive;
}
} // namespace

struct CPThread::CState
{
    CPEvent* pStopEvent;
    std::string sName;
    std::thread thread;
};

CPThread::CPThread(const char* pszName, void (*pfnEntry)(void*), void* pArg, CPEvent* pStopEvent)
{
    CAllocationPause pause;
    records().construction.enter();
    noteStart({pszName, pArg, pStopEvent, false});
    try
    {
        m_pState = std::make_unique<CState>(CState{pStopEvent, pszName, std::thread(pfnEntry, pArg)});
        CFakeLives::note(std::string("CPThread ") + pszName);
    }
    catch (const std::system_error&)
    {
        noteEnd();
        throw KRException(-1, "tests/fakes/FakeThreads", __LINE__);
    }
}

CPThread::~CPThread()
{
    m_pState->pStopEvent->set();
    m_pState->thread.join();
    noteEnd();
    CAllocationPause pause;
    CFakeLives::note("~CPThread " + m_pState->sName);
}

void CPortable::SetCurrentThreadName(const char* pszName) noexcept
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    records().vecNamesSet.emplace_back(pszName);
}

CPThreadHandle CPortable::CreateThread(void (*pfnEntry)(void*), void* pArg, const char* pszName) noexcept
{
    CAllocationPause pause;
    try
    {
        records().createThread.enter();
    }
    catch (const KRException&)
    {
        return 0;
    }
    {
        const std::lock_guard lock(records().mtx);
        if (records().bCreateThreadRefused)
            return 0;
    }
    noteStart({pszName, pArg, nullptr, true});
    return reinterpret_cast<CPThreadHandle>(new std::thread(pfnEntry, pArg));
}

void CPortable::JoinThread(CPThreadHandle hThread) noexcept
{
    if (hThread == 0)
        return;
    const std::unique_ptr<std::thread> pThread(reinterpret_cast<std::thread*>(hThread));
    pThread->join();
    noteEnd();
}

std::vector<CFakeThreads::CStart> CFakeThreads::starts()
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    return records().vecStarts;
}

std::vector<std::string> CFakeThreads::namesSet()
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    return records().vecNamesSet;
}

std::size_t CFakeThreads::alive()
{
    const std::lock_guard lock(records().mtx);
    return records().uAlive;
}

void CFakeThreads::failNextThread(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    records().construction.failNext(lCode, uSkip, pszSource, nLine);
}

void CFakeThreads::failNextCreateThread(std::size_t uSkip)
{
    CAllocationPause pause;
    records().createThread.failNext(-1, uSkip, "", 0);
}

void CFakeThreads::setCreateThreadRefused(bool bRefused)
{
    const std::lock_guard lock(records().mtx);
    records().bCreateThreadRefused = bRefused;
}

void CFakeThreads::reset()
{
    records().construction.reset();
    records().createThread.reset();
    const std::lock_guard lock(records().mtx);
    records().bCreateThreadRefused = false;
    records().vecStarts.clear();
    records().vecNamesSet.clear();
}
