#include "FakeClock.h"

#include "AllocationPause.h"
#include "CPortable.h"
#include "ClockWaits.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <list>
#include <thread>
#include <utility>

namespace {
/// Real time that only a hanging test reaches.
constexpr std::chrono::seconds cHangLimit(30);

constexpr unsigned long long cFileTimePerMs = 10'000ULL;

/// A thread that waits. Lives on its stack; leaves the list the moment its wait is over, before it runs again.
struct CWaiter
{
    const void* pEvent;
    unsigned long ulMs;
    unsigned long long ullDeadline;
    bool bEnded = false;
    bool bReleased = false;
    std::condition_variable cvEnded{};
};

struct CClockState
{
    std::mutex mtx;
    std::condition_variable cvWaiters;
    std::list<CWaiter*> lstWaiters;
    unsigned long long ullTicks = CFakeClock::cInitialTicks;
    unsigned long long ullFileTime = CFakeClock::cInitialFileTime;
    unsigned long long ullTickStep = 0;
    unsigned long long ullFileTimeStep = 0;
    std::deque<unsigned long long> deqTickReads;
    std::deque<unsigned long long> deqFileTimeReads;
    std::size_t uTickReads = 0;
    std::size_t uShortTickReads = 0;
    std::size_t uFileTimeReads = 0;
    std::size_t uSystemTimeReads = 0;
    bool bSleepAdvances = false;
    std::vector<unsigned long> vecSleeps;
    void (*pfnMoved)() = nullptr;
};

/// Never destroyed: threads of a test may outlive the statics.
CClockState& state()
{
    CAllocationPause pause;
    static CClockState* const pState = new CClockState;
    return *pState;
}

std::list<CWaiter*>::iterator end(CClockState& clock, std::list<CWaiter*>::iterator it, bool bReleased)
{
    CWaiter& waiter = **it;
    waiter.bEnded = true;
    waiter.bReleased = bReleased;
    waiter.cvEnded.notify_one(); // the waiter cannot leave before the caller gives up the mutex
    return clock.lstWaiters.erase(it);
}

void moveTicks(CClockState& clock, unsigned long long ullTicks)
{
    clock.ullTicks = ullTicks;
    for (auto it = clock.lstWaiters.begin(); it != clock.lstWaiters.end();)
        it = (*it)->ullDeadline <= ullTicks ? end(clock, it, false) : std::next(it);
}

unsigned long long takeScripted(std::deque<unsigned long long>& deqValues)
{
    const unsigned long long ullValue = deqValues.front();
    deqValues.pop_front();
    return ullValue;
}

template <typename Action> auto locked(Action action)
{
    CAllocationPause pause;
    CClockState& clock = state();
    const std::lock_guard lock(clock.mtx);
    return action(clock);
}

void tellMoved()
{
    if (const auto pfnMoved = locked([](CClockState& clock) { return clock.pfnMoved; }))
        pfnMoved();
}
} // namespace

std::mutex& CClockWaits::mutex()
{
    return state().mtx;
}

bool CClockWaits::wait(std::unique_lock<std::mutex>& lock, const void* pEvent, unsigned long ulMs)
{
    if (ulMs == 0)
        return false;
    CAllocationPause pause;
    CClockState& clock = state();
    CWaiter waiter{.pEvent = pEvent, .ulMs = ulMs, .ullDeadline = clock.ullTicks + ulMs};
    clock.lstWaiters.push_back(&waiter);
    clock.cvWaiters.notify_all();
    waiter.cvEnded.wait(lock, [&waiter] { return waiter.bEnded; });
    return waiter.bReleased;
}

bool CClockWaits::release(const void* pEvent)
{
    CClockState& clock = state();
    const auto it = std::find_if(clock.lstWaiters.begin(), clock.lstWaiters.end(),
                                 [pEvent](const CWaiter* pWaiter) { return pWaiter->pEvent == pEvent; });
    if (it == clock.lstWaiters.end())
        return false;
    end(clock, it, true);
    return true;
}

void CClockWaits::afterMove(void (*pfnMoved)())
{
    locked([pfnMoved](CClockState& clock) { clock.pfnMoved = pfnMoved; });
}

void CFakeClock::advance(unsigned long long ullMs)
{
    locked([ullMs](CClockState& clock) {
        clock.ullFileTime += ullMs * cFileTimePerMs;
        moveTicks(clock, clock.ullTicks + ullMs);
    });
    tellMoved();
}

void CFakeClock::setTicks(unsigned long long ullTicks)
{
    locked([ullTicks](CClockState& clock) { moveTicks(clock, ullTicks); });
    tellMoved();
}

void CFakeClock::advanceTicks(unsigned long long ullMs)
{
    locked([ullMs](CClockState& clock) { moveTicks(clock, clock.ullTicks + ullMs); });
    tellMoved();
}

void CFakeClock::setFileTime(unsigned long long ullFileTime)
{
    locked([ullFileTime](CClockState& clock) { clock.ullFileTime = ullFileTime; });
}

unsigned long long CFakeClock::ticks()
{
    return locked([](CClockState& clock) { return clock.ullTicks; });
}

unsigned long long CFakeClock::fileTime()
{
    return locked([](CClockState& clock) { return clock.ullFileTime; });
}

void CFakeClock::stepTicksPerRead(unsigned long long ullMs)
{
    locked([ullMs](CClockState& clock) { clock.ullTickStep = ullMs; });
}

void CFakeClock::stepFileTimePerRead(unsigned long long ullStep)
{
    locked([ullStep](CClockState& clock) { clock.ullFileTimeStep = ullStep; });
}

void CFakeClock::scriptTickReads(std::vector<unsigned long long> vecTicks)
{
    locked([&vecTicks](CClockState& clock) { clock.deqTickReads.assign(vecTicks.begin(), vecTicks.end()); });
}

void CFakeClock::scriptFileTimeReads(std::vector<unsigned long long> vecFileTimes)
{
    locked([&vecFileTimes](CClockState& clock) {
        clock.deqFileTimeReads.assign(vecFileTimes.begin(), vecFileTimes.end());
    });
}

std::size_t CFakeClock::tickReads()
{
    return locked([](CClockState& clock) { return clock.uTickReads; });
}

std::size_t CFakeClock::shortTickReads()
{
    return locked([](CClockState& clock) { return clock.uShortTickReads; });
}

std::size_t CFakeClock::fileTimeReads()
{
    return locked([](CClockState& clock) { return clock.uFileTimeReads; });
}

std::size_t CFakeClock::systemTimeReads()
{
    return locked([](CClockState& clock) { return clock.uSystemTimeReads; });
}

bool CFakeClock::awaitWaiters(std::size_t uThreads, unsigned long ulMs)
{
    CClockState& clock = state();
    std::unique_lock lock(clock.mtx);
    const auto fnEnough = [&] {
        const auto nWaiting =
            std::count_if(clock.lstWaiters.begin(), clock.lstWaiters.end(),
                          [ulMs](const CWaiter* pWaiter) { return ulMs == 0 || pWaiter->ulMs == ulMs; });
        return static_cast<std::size_t>(nWaiting) >= uThreads;
    };
    return clock.cvWaiters.wait_for(lock, cHangLimit, fnEnough);
}

std::size_t CFakeClock::waiters()
{
    return locked([](CClockState& clock) { return clock.lstWaiters.size(); });
}

void CFakeClock::setSleepAdvances(bool bAdvances)
{
    locked([bAdvances](CClockState& clock) { clock.bSleepAdvances = bAdvances; });
}

std::vector<unsigned long> CFakeClock::sleeps()
{
    return locked([](CClockState& clock) { return clock.vecSleeps; });
}

void CFakeClock::reset()
{
    locked([](CClockState& clock) {
        for (auto it = clock.lstWaiters.begin(); it != clock.lstWaiters.end();)
            it = (*it)->pEvent == nullptr ? end(clock, it, false) : std::next(it);
        clock.ullTicks = cInitialTicks;
        clock.ullFileTime = cInitialFileTime;
        clock.ullTickStep = clock.ullFileTimeStep = 0;
        clock.deqTickReads.clear();
        clock.deqFileTimeReads.clear();
        clock.uTickReads = clock.uShortTickReads = clock.uFileTimeReads = clock.uSystemTimeReads = 0;
        clock.bSleepAdvances = false;
        clock.vecSleeps.clear();
    });
}

void CPortable::GetCurrentULLFileTimeUTC(unsigned long long* pullFileTime) noexcept
{
    *pullFileTime = locked([](CClockState& clock) {
        ++clock.uFileTimeReads;
        if (!clock.deqFileTimeReads.empty())
            return takeScripted(clock.deqFileTimeReads);
        return std::exchange(clock.ullFileTime, clock.ullFileTime + clock.ullFileTimeStep);
    });
}

void CPortable::GetSystemTime(CPSystemTime* pstTime) noexcept
{
    const unsigned long long ullFileTime = locked([](CClockState& clock) {
        ++clock.uSystemTimeReads;
        return clock.ullFileTime;
    });
    FileTimeToSystemTime(ullFileTime, pstTime);
}

unsigned long CPortable::GetTickCount() noexcept
{
    return locked([](CClockState& clock) {
        ++clock.uShortTickReads;
        return static_cast<unsigned long>(clock.ullTicks & 0xFFFFFFFFULL);
    });
}

unsigned long long CPortable::GetTickCountULL() noexcept
{
    return locked([](CClockState& clock) {
        ++clock.uTickReads;
        if (!clock.deqTickReads.empty())
            return takeScripted(clock.deqTickReads);
        const unsigned long long ullTicks = clock.ullTicks;
        if (clock.ullTickStep != 0)
            moveTicks(clock, ullTicks + clock.ullTickStep);
        return ullTicks;
    });
}

void CPortable::Sleep(unsigned long ulMs) noexcept
{
    CAllocationPause pause;
    CClockState& clock = state();
    std::unique_lock lock(clock.mtx);
    clock.vecSleeps.push_back(ulMs);
    if (clock.bSleepAdvances)
    {
        clock.ullFileTime += ulMs * cFileTimePerMs;
        moveTicks(clock, clock.ullTicks + ulMs);
        lock.unlock();
        tellMoved();
        std::this_thread::yield(); // somebody may be polling
        return;
    }
    (void)CClockWaits::wait(lock, nullptr, ulMs); // nobody releases a sleep
}
