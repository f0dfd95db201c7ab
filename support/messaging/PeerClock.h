#pragma once

#include "Frame.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace Messaging {

/// What a peer's clocks show, as the answers to pings told.
///
/// Threads    one at a time: guarded by the peer that owns it.
/// Units      file time (100 ns since 1601) and milliseconds.
class CPeerClock
{
public:
    using CTimePoint = std::chrono::steady_clock::time_point;

    struct CReading
    {
        std::uint64_t ullFileTime = 0;
        std::uint64_t ullTicks = 0;
    };

    /// Forgets everything: the connection is another one.
    void reset();

    /// A ping goes out. @return its stamp
    std::uint64_t ping(CTimePoint tpNow);
    /// The time of the ping that waits for its answer.
    std::optional<CTimePoint> pinged() const { return m_optPinged; }
    /// An answer came; one that is not the last ping's, or took too long to say anything, is no measurement.
    void pong(const CPong& pong, CTimePoint tpNow);

    /// What the clocks show now, when a measurement is no older than that.
    std::optional<CReading> read(CTimePoint tpNow, std::chrono::milliseconds oldest) const;
    /// Of the last measurement.
    std::chrono::microseconds roundTrip() const { return m_roundTrip; }

private:
    std::uint64_t m_ullStamp = 0; // of the last ping
    std::optional<CTimePoint> m_optPinged;
    std::optional<CTimePoint> m_optMeasured; // the moment that the readings belong to
    CReading m_reading;
    std::chrono::microseconds m_roundTrip{0};
};

} // namespace Messaging
