// Threads: those of CPThread and those of CPortable::CreateThread.
#include "CPThread.h"

#include "BackgroundThread.h"
#include "CPEvent.h"
#include "CPortable.h"
#include "KRException.h"
#include "SupportResults.h"

#include <array>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include <pthread.h>

namespace {
/// What the system keeps of a thread's name, the terminator included.
using CThreadName = std::array<char, 16>;

CThreadName shortName(const char* pszName) noexcept
{
    CThreadName szName{};
    std::strncpy(szName.data(), pszName ? pszName : "", szName.size() - 1);
    return szName;
}

std::thread startThread(void (*pfnEntry)(void*), void* pArg, const char* pszName)
{
    return std::thread([pfnEntry, pArg, szName = shortName(pszName)] {
        CPortable::SetCurrentThreadName(szName.data());
        serveInBackground();
        pfnEntry(pArg);
    });
}
} // namespace

struct CPThread::CState
{
    CPEvent* pStopEvent;
    std::thread thread;
};

CPThread::CPThread(const char* pszName, void (*pfnEntry)(void*), void* pArg, CPEvent* pStopEvent)
    : m_pState(new (std::nothrow) CState{pStopEvent, {}})
{
    if (!m_pState)
        throw KRException(E_SUPPORT_MEMORY, "support/portable/CPThread", __LINE__);
    try
    {
        m_pState->thread = startThread(pfnEntry, pArg, pszName);
    }
    catch (const std::exception&) // no thread, or no memory to start one with
    {
        throw KRException(E_SUPPORT_SYSTEM, "support/portable/CPThread", __LINE__);
    }
}

CPThread::~CPThread()
{
    m_pState->pStopEvent->set();
    m_pState->thread.join();
}

void CPortable::SetCurrentThreadName(const char* pszName) noexcept
{
    (void)pthread_setname_np(pthread_self(), shortName(pszName).data()); // a name is a convenience
}

CPThreadHandle CPortable::CreateThread(void (*pfnEntry)(void*), void* pArg, const char* pszName) noexcept
{
    try
    {
        std::unique_ptr<std::thread> pThread = std::make_unique<std::thread>();
        *pThread = startThread(pfnEntry, pArg, pszName);
        return reinterpret_cast<CPThreadHandle>(pThread.release());
    }
    catch (const std::exception&)
    {
        return 0;
    }
}

void CPortable::JoinThread(CPThreadHandle hThread) noexcept
{
    if (hThread == 0)
        return;
    const std::unique_ptr<std::thread> pThread(reinterpret_cast<std::thread*>(hThread));
    pThread->join();
}
