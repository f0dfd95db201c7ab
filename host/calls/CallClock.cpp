// Time between messages.
#include "calls/CallClock.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

std::int64_t CCallClock::take(std::int64_t llStamp)
{
    if (m_llStamp == 0)
        m_llStamp = m_llNow = llStamp;
    if (const auto llDoubted = std::exchange(m_llDoubted, std::nullopt))
    {
        const bool bForward = *llDoubted > m_llStamp;
        if (bForward ? llStamp >= *llDoubted - cMaxStep : llStamp < m_llStamp - cMaxStep)
            step(*llDoubted);
    }
    const std::int64_t llStep = llStamp - m_llStamp;
    if (std::llabs(llStep) > cMaxStep)
    {
        m_llDoubted = llStamp;
        return m_llNow + timeOfStep(llStep);
    }
    if (llStep > 0) // a little back is disorder among those who report
    {
        m_llStamp += llStep;
        m_llNow += llStep;
    }
    return m_llNow;
}

/// How much time a large step takes.
std::int64_t CCallClock::timeOfStep(std::int64_t llStep) const noexcept
{
    return undoes(llStep) ? std::max<std::int64_t>(llStep - m_llBehind, 0) : std::max<std::int64_t>(llStep, 0);
}

/// Whether a step leads back to where the clock stood before it was set back.
bool CCallClock::undoes(std::int64_t llStep) const noexcept
{
    return m_llBehind > 0 && llStep >= m_llBehind - cMaxStep;
}

void CCallClock::step(std::int64_t llStamp)
{
    const std::int64_t llStep = llStamp - m_llStamp;
    m_llNow += timeOfStep(llStep);
    if (undoes(llStep))
        m_llBehind = 0;
    else if (llStep < 0)
        m_llBehind -= llStep;
    m_llStamp = llStamp;
}
