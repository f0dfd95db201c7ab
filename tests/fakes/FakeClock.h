#pragma once

#include <cstddef>
#include <vector>

/// The clock of a test: it stands still until the test moves it.
///
/// Two values make it up: ticks (GetTickCountULL, GetTickCount) and file time (GetCurrentULLFileTimeUTC,
/// GetSystemTime). CPEvent::wait and CPortable::Sleep run on the ticks: they end when the test has moved these far
/// enough, whatever a real clock says. A wait also ends, at once, when its event is set.
///
/// Threads    every operation may be called from any thread.
/// Units      ticks are milliseconds, file time 100-nanosecond intervals since 1601.
class CFakeClock
{
public:
    static constexpr unsigned long long cInitialTicks = 1'000'000ULL;
    static constexpr unsigned long long cInitialFileTime = 133'000'000'000'000'000ULL; ///< 2022-06-18, about noon

    /// Lets time pass: ticks and file time move together, waits that are over end.
    static void advance(unsigned long long ullMs);

    /// Moves one of the two only, in either direction.
    static void setTicks(unsigned long long ullTicks);
    static void advanceTicks(unsigned long long ullMs);
    static void setFileTime(unsigned long long ullFileTime);

    /// The values at present; not counted as reads.
    static unsigned long long ticks();
    static unsigned long long fileTime();

    /// From now on every GetTickCountULL read gives the present value and then moves the ticks on; 0 ends that.
    static void stepTicksPerRead(unsigned long long ullMs);
    /// The same for GetCurrentULLFileTimeUTC.
    static void stepFileTimePerRead(unsigned long long ullStep);

    /// The next reads of GetTickCountULL give these values, one each; afterwards the clock's own again. Waits do not
    /// notice them.
    static void scriptTickReads(std::vector<unsigned long long> vecTicks);
    /// The same for GetCurrentULLFileTimeUTC.
    static void scriptFileTimeReads(std::vector<unsigned long long> vecFileTimes);

    /// Reads by the code under test so far.
    static std::size_t tickReads();       ///< GetTickCountULL
    static std::size_t shortTickReads();  ///< GetTickCount
    static std::size_t fileTimeReads();   ///< GetCurrentULLFileTimeUTC
    static std::size_t systemTimeReads(); ///< GetSystemTime

    /// Blocks until at least uThreads threads are in a timed wait or a sleep that is not over yet.
    ///
    /// A thread whose wait has just ended, by the clock or by its event, does not count although it may not have run
    /// yet: "advance, then await" is sure to see the next wait.
    ///
    /// @param ulMs  counts waits asked for with this duration alone; 0: every wait
    /// @return false when a generous real time has passed in vain
    [[nodiscard]] static bool awaitWaiters(std::size_t uThreads, unsigned long ulMs = 0);

    /// Threads in a timed wait or a sleep at present.
    static std::size_t waiters();

    /// Whether CPortable::Sleep moves the clock on by itself and returns, for code that sleeps on the test's own
    /// thread. Off at first.
    static void setSleepAdvances(bool bAdvances);

    /// The durations that CPortable::Sleep was called with, in order.
    static std::vector<unsigned long> sleeps();

    /// Everything as at first. Sleeps that have not ended end.
    static void reset();
};
