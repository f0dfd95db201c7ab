// The store object: its life, and the small services.

#include "CDSStore.h"

#include "CDSEventLog.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyCallback.h"
#include "CPEvent.h"
#include "CPThread.h"
#include "KRException.h"

CCDSAPI::CCDSAPI() : m_pTables(std::make_unique<CTables>())
{
    try
    {
        m_pNetProxy.reset(new (std::nothrow) CCDSNetProxy);
        g_pCDSNetProxy = m_pNetProxy.get();
        if (m_pNetProxy == nullptr)
            throw KRException(E_CDS_OUTOFMEMORY, "CDS/CDSStore/CDSStore", 52);
        m_pcritsec = std::make_unique<CPCritSec>("CCDSAPI::m_pcritsec", 1);
        m_pTimingEvent = std::make_unique<CPEvent>(1, "", 1);
        m_pEventLog =
            std::make_unique<CEventLogHelp>("Veltrane", CEventLogHelp::EFacility(279), CEventLogHelp::ESeverity(-2));
    }
    catch (const KRException& refusal)
    {
        // What could not be made is null, and every operation looks.
        CCDSLogging::logHRESULT(refusal.code(), "Catch KRException. CCDSAPI::CCDSAPI(), new CPEvent. loc:%s",
                                refusal.location());
    }
    catch (...)
    {
        g_pCDSNetProxy = nullptr; // its object goes with the members
        throw;
    }
}

CCDSAPI::~CCDSAPI()
{
    stop(); // nothing to do after a Finalize
    m_pEventLog.reset();
    m_pcritsec.reset();
    m_pTimingThread.reset();
    m_pTimingEvent.reset();
    const bool bOwnProxy = g_pCDSNetProxy == m_pNetProxy.get();
    m_pNetProxy.reset();
    if (bOwnProxy)
        g_pCDSNetProxy = nullptr;
    m_pTables->freeCallData(); // what came after a Finalize; records trace their end, so they end before the log
    finalizeLogger();
}

bool CCDSAPI::isWhole() const noexcept
{
    return m_pcritsec != nullptr && m_pTimingEvent != nullptr; // the proxy was made before them
}

void CCDSAPI::stop()
{
    if (!m_bRunning)
        return;
    m_bRunning = false;
    m_pTimingThread.reset();       // sets the event and waits
    (void)m_pNetProxy->Finalize(); // always 0
}

long CCDSAPI::Initialize(const std::string& sServerIP, unsigned long ulNumber)
{
    CCDSLogging::logInfo("CCDSAPI::Initialize: %s. %d", sServerIP.c_str(), cdsInt(ulNumber));
    stop();
    const long lResult = cdsGuarded([&] {
        if (!isWhole())
            return E_CDS_OUTOFMEMORY;
        m_sServerIP = sServerIP;
        m_bRunning = true;
        m_pTimingEvent->reset();
        const long lThread = cdsGuarded([&] {
            m_pTimingThread =
                std::make_unique<CPThread>("CCDSAPI::Initialize", timingThread, this, m_pTimingEvent.get());
            return 0L;
        });
        (void)m_pNetProxy->Initialize(m_sServerIP, this); // without peers the store still serves this host
        return lThread < 0 ? E_FAIL : 0L;
    });
    CCDSLogging::logHRESULT(lResult, "CCDSAPI::Initialize:");
    return lResult;
}

long CCDSAPI::Finalize()
{
    CCDSLogging::logInfo("CCDSAPI::Finalize:");
    if (!isWhole())
        return 0;
    {
        const CCritSecLock lock(*m_pcritsec, 168, 194);
        m_pTables->freeCallData();
    }
    m_bRunning = false;
    m_pTimingThread.reset();
    return m_pNetProxy->Finalize();
}

void CCDSAPI::initLogger()
{
    const CSlowWarning slow("initLogger");
    CCDSLogging::initLogger();
    CCDSNetProxy::SetDbgOutHook(CCDSLogging::CDSDbgOutX);
}

void CCDSAPI::finalizeLogger()
{
    CCDSLogging::finalizeLogger();
}

std::string CCDSAPI::createGUID()
{
    return CPortable::newPUUID();
}

void CCDSAPI::Dump(int nFull)
{
    if (g_pCDSNetProxy != nullptr)
        g_pCDSNetProxy->Dump(nFull);
}

void CCDSAPI::SetNetProxyCallback(CDSNetProxyCallback* pCallback)
{
    m_pNetProxyCallback = pCallback;
}

/// Takes a callback back, unless the host has set another one since.
void CCDSAPI::resetNetProxyCallback(CDSNetProxyCallback* pCallback) noexcept
{
    (void)m_pNetProxyCallback.compare_exchange_strong(pCallback, nullptr); // another one stays
}

unsigned long long CCDSAPI::GetServerTimestamp(unsigned long ulServer)
{
    const CSlowWarning slow("GetServerTimestamp");
    unsigned long long ullTimestamp = 0;
    if (CDSNetProxyCallback* const pCallback = m_pNetProxyCallback; pCallback != nullptr)
        (void)pCallback->getServerTimestamp(ulServer, 1, &ullTimestamp); // what it wrote counts, here and below
    else
        CPortable::GetCurrentULLFileTimeUTC(&ullTimestamp);
    return ullTimestamp;
}

unsigned long CCDSAPI::GetServerTickCount(unsigned long ulServer)
{
    const CSlowWarning slow("GetServerTickCount");
    unsigned long ulTickCount = 0;
    if (CDSNetProxyCallback* const pCallback = m_pNetProxyCallback; pCallback != nullptr)
        (void)pCallback->getServerTickCount(ulServer, 1, &ulTickCount);
    else
        ulTickCount = CPortable::GetTickCount();
    return ulTickCount & 0xFFFFFFFFUL;
}

unsigned long long CCDSAPI::GetCallIDTimestamp(const std::string& sCallID)
{
    const CSlowWarning slow("GetCallIDTimestamp");
    unsigned long long ullTimestamp = 0;
    if (CDSNetProxyCallback* const pCallback = m_pNetProxyCallback; pCallback != nullptr)
        (void)pCallback->getCallIDTimestamp(sCallID, 1, &ullTimestamp);
    else
        CPortable::GetCurrentULLFileTimeUTC(&ullTimestamp);
    return ullTimestamp;
}

long CCDSAPI::GetCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp)
{
    const CSlowWarning slow("GetCallIDCDSTimestamp");
    if (CDSNetProxyCallback* const pCallback = m_pNetProxyCallback; pCallback != nullptr)
        (void)pCallback->getCallIDCDSTimestamp(sCallID, ptsStamp);
    else
        CCDSTimestamp::getCurrent(ptsStamp);
    return 0;
}
