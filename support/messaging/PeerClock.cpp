#include "PeerClock.h"

namespace Messaging {
namespace {
/// The peer's clock was read somewhere within the round trip: a longer one says too little.
constexpr std::chrono::milliseconds cLongestRoundTrip{500};
} // namespace

void CPeerClock::reset()
{
    m_optPinged.reset();
    m_optMeasured.reset();
    m_roundTrip = {};
}

std::uint64_t CPeerClock::ping(CTimePoint tpNow)
{
    m_optPinged = tpNow;
    return ++m_ullStamp;
}

void CPeerClock::pong(const CPong& pong, CTimePoint tpNow)
{
    if (!m_optPinged || pong.ullStamp != m_ullStamp)
        return;
    const auto roundTrip = tpNow - *m_optPinged;
    const CTimePoint tpMiddle = *m_optPinged + roundTrip / 2;
    m_optPinged.reset();
    if (roundTrip > cLongestRoundTrip)
        return;
    m_roundTrip = std::chrono::duration_cast<std::chrono::microseconds>(roundTrip);
    m_reading = {pong.ullFileTime, pong.ullTicks};
    m_optMeasured = tpMiddle;
}

std::optional<CPeerClock::CReading> CPeerClock::read(CTimePoint tpNow, std::chrono::milliseconds oldest) const
{
    if (!m_optMeasured || tpNow - *m_optMeasured > oldest)
        return std::nullopt;
    const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(tpNow - *m_optMeasured).count();
    const auto ullPassed = static_cast<std::uint64_t>(nanoseconds > 0 ? nanoseconds : 0);
    return CReading{m_reading.ullFileTime + ullPassed / 100, m_reading.ullTicks + ullPassed / 1'000'000};
}

} // namespace Messaging
