#pragma once

#include "capture/IntakeCounts.h"

#include <cstdint>

/// Decides which time stamps of a capture are believed.
///
/// A capture's packets are near each other in time. A stamp before the year 2000 or after 2100, with a second of more
/// than a million microseconds, or more than 30 days away from the packet believed last, is the mark of a broken clock.
/// The message itself still counts: it gets the time believed last, so that it is numbered behind its predecessor
/// within the same microsecond. When three packets in a row agree with each other against the capture so far, the clock
/// was set right (or captures were joined) and they are believed again.
///
/// Threads  one thread.
/// Units    microseconds since 1970.
class CCaptureClock
{
public:
    static constexpr std::int64_t cEarliest = 946'684'800; ///< 2000-01-01, seconds
    static constexpr std::int64_t cLatest = 4'102'444'800; ///< 2100-01-01, seconds
    static constexpr std::int64_t cMaxJumpMicros = std::int64_t{30} * 86'400 * 1'000'000;
    static constexpr int cAgreeing = 3;

    explicit CCaptureClock(CIntakeCounts& counts) : m_counts(counts) {}

    /// @return the time to use for a packet that is stamped so; never 0
    std::int64_t believe(std::int64_t llSeconds, std::int64_t llMicros);

    /// The next packet is the first of another capture.
    void restart() noexcept { m_llBelieved = 0; }

private:
    std::int64_t doubt(const char* pszWhy);

    CIntakeCounts& m_counts;
    std::int64_t m_llBelieved = 0; // 0 before the first packet
    std::int64_t m_llSuspect = 0;  // the latest stamp that jumped
    int m_nAgreeing = 0;           // suspects in a row that are near each other
};
