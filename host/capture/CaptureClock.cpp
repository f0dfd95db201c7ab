// Time stamps of a capture, and which of them to believe.
#include "capture/CaptureClock.h"

#include <cstdlib>

std::int64_t CCaptureClock::believe(std::int64_t llSeconds, std::int64_t llMicros)
{
    if (llSeconds < cEarliest || llSeconds >= cLatest || llMicros < 0 || llMicros >= 1'000'000)
        return doubt("time stamp absurd: not believed");
    const std::int64_t llStamp = llSeconds * 1'000'000 + llMicros;
    if (m_llBelieved == 0 || std::llabs(llStamp - m_llBelieved) <= cMaxJumpMicros)
    {
        m_nAgreeing = 0;
        return m_llBelieved = llStamp;
    }
    m_nAgreeing = m_nAgreeing > 0 && std::llabs(llStamp - m_llSuspect) <= cMaxJumpMicros ? m_nAgreeing + 1 : 1;
    m_llSuspect = llStamp;
    if (m_nAgreeing < cAgreeing)
        return doubt("time stamp far from its neighbours: not believed");
    m_counts.warn("capture clock was set: believed from here on");
    m_nAgreeing = 0;
    return m_llBelieved = llStamp;
}

std::int64_t CCaptureClock::doubt(const char* pszWhy)
{
    m_counts.warn(pszWhy);
    // A capture that begins with nonsense has nothing to hold on to yet: the first believable year will do.
    return m_llBelieved != 0 ? m_llBelieved : cEarliest * 1'000'000;
}
