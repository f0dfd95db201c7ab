#include "CPEvent.h"

#include "KRException.h"
#include "SupportResults.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

struct CPEvent::CState
{
    std::mutex mtx;
    std::condition_variable cv;
    bool bSet = false; // guarded by mtx
};

CPEvent::CPEvent(int /*nAutoReset*/, const char* /*pszName*/, int nClear) : m_pState(new (std::nothrow) CState)
{
    if (!m_pState)
        throw KRException(E_SUPPORT_MEMORY, "support/portable/CPEvent", __LINE__);
    m_pState->bSet = nClear == 0;
}

CPEvent::~CPEvent() = default;

void CPEvent::set() noexcept
{
    // Told under the lock: the waiter may destroy the event as soon as its wait has ended.
    const std::lock_guard lock(m_pState->mtx);
    m_pState->bSet = true;
    m_pState->cv.notify_one();
}

void CPEvent::reset() noexcept
{
    const std::lock_guard lock(m_pState->mtx);
    m_pState->bSet = false;
}

unsigned long CPEvent::wait(unsigned long ulMs, void* /*pReserved*/) noexcept
{
    const auto tpEnd = std::chrono::steady_clock::now() + std::chrono::milliseconds(ulMs);
    std::unique_lock lock(m_pState->mtx);
    if (!m_pState->cv.wait_until(lock, tpEnd, [this] { return m_pState->bSet; }))
        return CP_WAIT_TIMEOUT;
    m_pState->bSet = false;
    return 0;
}
