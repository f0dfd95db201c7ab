#include "FakeEvents.h"

#include "AllocationPause.h"
#include "CPEvent.h"
#include "ClockWaits.h"
#include "FakeConstruction.h"
#include "FakeLives.h"

namespace {
struct CEventRecords
{
    std::mutex mtx;
    std::vector<CFakeEvents::CCreation> vecCreations;
    std::size_t uAlive = 0;
    CFakeConstruction construction;
};

CEventRecords& records()
{
    CAllocationPause pause;
    static CEventRecords* const pRecords = new CEventRecords;
    return *pRecords;
}
} // namespace

struct CPEvent::CState
{
    bool bSet = false; // guarded by CClockWaits::mutex()
};

CPEvent::CPEvent(int nAutoReset, const char* pszName, int nClear)
{
    CAllocationPause pause;
    records().construction.enter();
    m_pState = std::make_unique<CState>();
    m_pState->bSet = nClear == 0;
    const std::lock_guard lock(records().mtx);
    records().vecCreations.push_back({nAutoReset, pszName, nClear});
    ++records().uAlive;
    CFakeLives::note("CPEvent");
}

CPEvent::~CPEvent()
{
    const std::lock_guard lock(records().mtx);
    --records().uAlive;
    CFakeLives::note("~CPEvent");
}

void CPEvent::set() noexcept
{
    const std::lock_guard lock(CClockWaits::mutex());
    if (!CClockWaits::release(this))
        m_pState->bSet = true;
}

void CPEvent::reset() noexcept
{
    const std::lock_guard lock(CClockWaits::mutex());
    m_pState->bSet = false;
}

unsigned long CPEvent::wait(unsigned long ulMs, void* /*pReserved*/) noexcept
{
    std::unique_lock lock(CClockWaits::mutex());
    if (m_pState->bSet)
    {
        m_pState->bSet = false;
        return 0;
    }
    return CClockWaits::wait(lock, this, ulMs) ? 0 : CP_WAIT_TIMEOUT;
}

std::vector<CFakeEvents::CCreation> CFakeEvents::creations()
{
    CAllocationPause pause;
    const std::lock_guard lock(records().mtx);
    return records().vecCreations;
}

std::size_t CFakeEvents::alive()
{
    const std::lock_guard lock(records().mtx);
    return records().uAlive;
}

void CFakeEvents::failNextCreation(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    records().construction.failNext(lCode, uSkip, pszSource, nLine);
}

void CFakeEvents::reset()
{
    records().construction.reset();
    const std::lock_guard lock(records().mtx);
    records().vecCreations.clear();
}
