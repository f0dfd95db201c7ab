#pragma once

#include <mutex>

/// How the fake events wait on the fake clock, and the fake network follows it. For the fakes only.
///
/// One mutex guards the clock and all events, so that "set", "time is up" and "who waits" have one order.
class CClockWaits
{
public:
    static std::mutex& mutex();

    /// Waits on the clock; the lock on mutex() is released meanwhile.
    ///
    /// @param pEvent  whom release() names, or null for a sleep
    /// @return true when released, false when the time ran out
    static bool wait(std::unique_lock<std::mutex>& lock, const void* pEvent, unsigned long ulMs);

    /// Ends the oldest wait for the event. The caller holds mutex().
    ///
    /// @return false when nobody waits for it
    static bool release(const void* pEvent);

    /// Has this called whenever the test or a sleep has moved the ticks, without mutex() being held.
    static void afterMove(void (*pfnMoved)());
};
