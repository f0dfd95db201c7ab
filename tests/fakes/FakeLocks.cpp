#include "FakeLocks.h"

#include "AllocationPause.h"
#include "CPCritSec.h"
#include "FakeConstruction.h"
#include "FakeLives.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <map>
#include <utility>

namespace {
struct CLockRecords
{
    std::mutex mtx;
    std::vector<CFakeLocks::CCreation> vecCreations;
    std::vector<CFakeLocks::CEntry> vecEntries;
    long lAlive = 0;
    CFakeConstruction construction;
};

/// Whether anything at all is to be done beyond locking: recording, or a creation that is to fail.
constinit std::atomic<bool> s_bRecording{false};
constinit std::atomic<bool> s_bFailing{false};

CLockRecords& records()
{
    CAllocationPause pause;
    static CLockRecords* const pRecords = new CLockRecords;
    return *pRecords;
}

bool recording()
{
    return s_bRecording.load(std::memory_order_relaxed);
}

void note(bool bEnter, const CPCritSec* pLock, long lPlace)
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    records().vecEntries.push_back({bEnter, pLock->name(), pLock, lPlace, std::this_thread::get_id()});
}
} // namespace

CPCritSec::CPCritSec(const char* pszName, int nFlag) : m_pszName(pszName)
{
    CAllocationPause pause;
    if (s_bFailing.load(std::memory_order_relaxed))
        records().construction.enter();
    if (!recording())
        return;
    const std::lock_guard lock(records().mtx);
    records().vecCreations.push_back({pszName, nFlag, this});
    ++records().lAlive;
    CFakeLives::note(std::string("CPCritSec ") + pszName);
}

CPCritSec::~CPCritSec()
{
    if (!recording())
        return;
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    --records().lAlive;
    CFakeLives::note(std::string("~CPCritSec ") + m_pszName);
}

// The analysis cannot know that m_mutex is what the class as a whole stands for.
CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) void CPCritSec::enter(long lPlace)
{
    m_mutex.lock();
    if (recording())
        note(true, this, lPlace);
}

CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) void CPCritSec::leave(long lPlace)
{
    if (recording())
        note(false, this, lPlace);
    m_mutex.unlock();
}

void CFakeLocks::record(bool bOn)
{
    s_bRecording.store(bOn);
}

std::vector<CFakeLocks::CCreation> CFakeLocks::creations()
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    return records().vecCreations;
}

std::vector<CFakeLocks::CEntry> CFakeLocks::entries()
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    return records().vecEntries;
}

std::vector<CFakeLocks::CEntry> CFakeLocks::entries(const std::string& sName)
{
    CAllocationPause pause;
    std::vector<CEntry> vecEntries = entries();
    std::erase_if(vecEntries, [&sName](const CEntry& entry) { return entry.sName != sName; });
    return vecEntries;
}

long CFakeLocks::alive()
{
    const std::lock_guard lock(records().mtx);
    return records().lAlive;
}

std::vector<std::string> CFakeLocks::heldByThisThread()
{
    CAllocationPause pause;
    std::vector<CEntry> vecHeld;
    for (const CEntry& entry : entries())
    {
        if (entry.idThread != std::this_thread::get_id())
            continue;
        if (entry.bEnter)
        {
            vecHeld.push_back(entry);
            continue;
        }
        const auto it = std::find_if(vecHeld.rbegin(), vecHeld.rend(),
                                     [&entry](const CEntry& held) { return held.pLock == entry.pLock; });
        if (it != vecHeld.rend())
            vecHeld.erase(std::next(it).base());
    }
    std::vector<std::string> vecNames;
    for (const CEntry& entry : vecHeld)
        vecNames.push_back(entry.sName);
    return vecNames;
}

bool CFakeLocks::balanced()
{
    CAllocationPause pause;
    std::map<std::pair<const void*, std::thread::id>, long> mapDepth;
    for (const CEntry& entry : entries())
    {
        long& lDepth = mapDepth[{entry.pLock, entry.idThread}];
        lDepth += entry.bEnter ? 1 : -1;
        if (lDepth < 0)
            return false;
    }
    return std::all_of(mapDepth.begin(), mapDepth.end(), [](const auto& depth) { return depth.second == 0; });
}

void CFakeLocks::failNextCreation(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    records().construction.failNext(lCode, uSkip, pszSource, nLine);
    s_bFailing.store(true);
}

void CFakeLocks::reset()
{
    s_bRecording.store(false);
    s_bFailing.store(false);
    records().construction.reset();
    const std::lock_guard lock(records().mtx);
    records().vecCreations.clear();
    records().vecEntries.clear();
    records().lAlive = 0;
}
