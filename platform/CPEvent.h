#pragma once

#include "CPExport.h"

#include <memory>

/// What CPEvent::wait returns when the time ran out.
constexpr unsigned long CP_WAIT_TIMEOUT = 0xE0000000UL;

/// An event that threads wait for.
///
/// It resets itself: one wait ends for a set, and sets that nobody waited for in between count as one.
///
/// Threads    set, reset and wait may be called from any thread; destroyed only when nobody waits.
/// Errors     the constructor throws KRException when the system has no event to give.
/// Units      milliseconds.
class CP_API CPEvent
{
public:
    /// @param nAutoReset  1: a wait that ends takes the set with it, the only kind there is
    /// @param pszName     "" for an event without a name, the only kind there is
    /// @param nClear      1: not set at first
    CPEvent(int nAutoReset, const char* pszName, int nClear);
    ~CPEvent();
    CPEvent(const CPEvent&) = delete;
    CPEvent& operator=(const CPEvent&) = delete;

    /// Ends one wait, the present one or the next.
    void set() noexcept;

    /// Takes back a set that no wait has taken yet.
    void reset() noexcept;

    /// Waits until the event is set, ulMs milliseconds at the most.
    ///
    /// @param pReserved  null
    /// @return 0 when it was set, CP_WAIT_TIMEOUT when the time ran out
    unsigned long wait(unsigned long ulMs, void* pReserved) noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};
