#pragma once

#include <cstdint>
#include <optional>

/// How much time passes between a capture's messages, for what ends by time alone.
///
/// One stamp that is off must not end every call there is, so a step of more than cMaxStep counts only when the next
/// message bears it out: it goes on from there, and not from where time stood before. A real silence does not get lost
/// that way, it is noticed a message later. No time passes when a clock is set back, nor when it is set forward again
/// to where it was: so the reports of two processes whose clocks differ do not age the calls.
///
/// Threads  one thread.
/// Units    microseconds. Time here begins with the first stamp and never runs backward.
class CCallClock
{
public:
    static constexpr std::int64_t cMaxStep = 10'000'000;

    /// Takes the next message's stamp.
    ///
    /// @return the message's time; it lies ahead of now() while a step is not borne out
    std::int64_t take(std::int64_t llStamp);

    std::int64_t now() const noexcept { return m_llNow; }
    /// What the capture's clock showed at a time.
    std::int64_t stampOf(std::int64_t llTime) const noexcept { return m_llStamp + (llTime - m_llNow); }

private:
    std::int64_t timeOfStep(std::int64_t llStep) const noexcept;
    bool undoes(std::int64_t llStep) const noexcept;
    void step(std::int64_t llStamp);

    std::int64_t m_llStamp = 0; // the one that belongs to now; 0 before the first
    std::int64_t m_llNow = 0;
    std::int64_t m_llBehind = 0;             // how far the clock was set back
    std::optional<std::int64_t> m_llDoubted; // the stamp of a step that is not borne out
};
