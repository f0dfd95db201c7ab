// The timing thread: expiry of the data of calls without registrants.

#include "CDSStore.h"

#include "CPEvent.h"

namespace {
constexpr unsigned long cPassMs = 10000;
constexpr std::uint64_t cKeptMs = 30000;
} // namespace

void CCDSAPI::timingThread(void* pStore)
{
    static_cast<CCDSAPI*>(pStore)->timingThreadFunc();
}

void CCDSAPI::timingThreadFunc()
{
    CPortable::SetCurrentThreadName("CDSTimingThr");
    // At the error level, so that start and stop always reach the log.
    CCDSLogging::logError("CCDSAPI::timingThread - starting");
    while (m_pTimingEvent->wait(cPassMs, nullptr) == CP_WAIT_TIMEOUT)
    {
        try
        {
            expireUnregData();
        }
        catch (...) // a registrant's callback, or no memory: what is left waits for the next pass
        {
            CCDSLogging::logError("CCDSAPI::timingThread - pass ended by an exception");
        }
    }
    CCDSLogging::logError("CCDSAPI::timingThread - stopping");
}

void CCDSAPI::expireUnregData()
{
    const CCritSecLock lock(*m_pcritsec, 1162, 1193);
    const std::uint64_t ullNow = CPortable::GetTickCountULL();
    for (const std::string& sCallID : m_pTables->expiredCallIDs(ullNow, cKeptMs))
    {
        // Out of the table first: a callback that throws must not get the same call at every pass.
        const std::unique_ptr<CUnregData> pKept = m_pTables->removeUnregData(sCallID);
        if (pKept != nullptr && pKept->m_sServerIP == m_sServerIP)
            (void)sendCallData(pKept->m_sCallID, "EOC", pKept->m_pCallData.get()); // nobody is left to tell
    }
}
