// The store: CDRs on their way out and in.

#include "CDSEventLog.h"
#include "CDSNetProxy.h"
#include "CDSStore.h"

namespace {

/// The event that tells operators of a CDR that never arrived: its call ID, and nothing more.
constexpr long cExpiredEvent = static_cast<std::int32_t>(0x81170A31U);

} // namespace

long CCDSAPI::SendCDRDataToHQ(const std::string& sDestination, const std::string& sCallID, CCallData* pData)
{
    const CSlowWarning slow("SendCDRDataToHQ");
    CCDSLogging::logInfo("SendCDRDataToHQ: \"%s\", Dest=\"%s\", 0x%08X", sCallID.c_str(), sDestination.c_str(),
                         cdsIdentity(pData));
    if (!isWhole())
        return E_CDS_OUTOFMEMORY;
    if (pData == nullptr)
        return E_CDS_NULLDATA;
    const CCritSecLock lock(*m_pcritsec, 220, 246);
    return cdsGuarded([&] {
        CCallbackMsg msg(reinterpret_cast<unsigned long>(g_pCDSNetProxy), "", ccbr_cdrcalldata, pData, 0);
        (void)msg.setCDSIPAddr(sDestination);   // always 0
        return CCDSNetProxy::CDSCallback(&msg); // it copies what it keeps
    });
}

void CCDSAPI::SetCDRDataCallBack(long (*pfnCallback)(CCallbackMsg*))
{
    m_pfnCDRDataCallback = pfnCallback;
}

long CCDSAPI::SendRcvdCDRDataToOVN(CCallbackMsg* pMsg)
{
    bool bCalled = false; // only the proxy has to know
    return deliverCDR(pMsg, &bCalled);
}

/// @param pbCalled  out: whether there is a callback; false when it threw
long CCDSAPI::deliverCDR(CCallbackMsg* pMsg, bool* pbCalled)
{
    const CSlowWarning slow("SendRcvdCDRDataToOVN");
    const auto pfnCallback = m_pfnCDRDataCallback.load();
    const long lResult = pfnCallback != nullptr ? cdsResult(static_cast<unsigned long>(pfnCallback(pMsg))) : 0;
    *pbCalled = pfnCallback != nullptr;
    return lResult;
}

void CCDSAPI::SetCDRDataCacheSize(unsigned long ulBytes)
{
    const CSlowWarning slow("SetCDRDataCacheSize");
    CCDSLogging::logInfo("SetCDRDataCacheSize: CDRDataCacheSize=%d", cdsInt(ulBytes));
    if (g_pCDSNetProxy != nullptr)
        g_pCDSNetProxy->SetCDRDataCacheSize(ulBytes);
}

void CCDSAPI::SetCDRDataExpiration(unsigned long ulMinutes)
{
    const CSlowWarning slow("SetCDRDataExpiration");
    CCDSLogging::logInfo("SetCDRDataExpiration: ExpirationDuration=%d", cdsInt(ulMinutes));
    if (g_pCDSNetProxy != nullptr)
        g_pCDSNetProxy->SetCDRDataExpiration(ulMinutes);
}

unsigned long CCDSAPI::GetCDRDataCacheCount() const
{
    return g_pCDSNetProxy != nullptr ? g_pCDSNetProxy->waitingCDRs() : 0;
}

void CCDSAPI::GetTickCountFromOtherServers(std::string& sText)
{
    const CSlowWarning slow("GetTickCountFromOtherServers");
    if (g_pCDSNetProxy != nullptr)
        g_pCDSNetProxy->GetTickCountsFromOtherServers(sText);
}

/// What the log makes of it has no consequence here.
void CCDSAPI::reportExpiredCDR(const std::string& sCallID)
{
    if (m_pEventLog != nullptr)
        (void)m_pEventLog->LogEventVA(cExpiredEvent, 2, sCallID.c_str(), "");
}
