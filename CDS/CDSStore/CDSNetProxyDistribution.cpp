// The proxy: who gets which call's changes, and what each of them has already.

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSTraceText.h"

namespace {

/// Trace ID of the registrations that the proxy makes for peers.
constexpr unsigned long cPeerTraceID = 0xFFFFFFFEUL;

} // namespace

long CCDSNetProxy::addCallDataDistribution(bool bClient, const std::string& sCallID, const std::string& sRegID,
                                           unsigned long ulIPAddr)
{
    CCDSLogging::logWarning("CCDSNetProxy::addCallDataDistribution, call %s, ipaddr 0x%08X", sCallID.c_str(),
                            cdsCode(ulIPAddr));
    return cdsGuarded([&] {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        const auto pFound = m_distributions.find(sCallID, static_cast<std::uint32_t>(ulIPAddr));
        if (pFound == nullptr)
        {
            m_distributions.add(std::make_shared<CCalldataDistribution>(this, bClient, ulIPAddr, sCallID, sRegID));
            return 0L;
        }
        if (pFound->m_sRegID == sRegID)
            CCDSLogging::logWarning("CCDSNetProxy::addCallDataDistribution, found the IPADDR with the same ReqID");
        else
        {
            CCDSLogging::logWarning("CCDSNetProxy::addCallDataDistribution, found the IPADDR but not the same ReqID");
            pFound->m_sRegID = sRegID;
        }
        return E_CDS_EXISTS;
    });
}

bool CCDSNetProxy::reserveDistribution(bool bClient, const std::string& sCallID, const std::string& sRegID,
                                       unsigned long ulIPAddr)
{
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    if (m_distributions.find(sCallID, static_cast<std::uint32_t>(ulIPAddr)) != nullptr)
        return false;
    m_distributions.add(std::make_shared<CCalldataDistribution>(this, bClient, ulIPAddr, sCallID, sRegID));
    return true;
}

/// The entry of a peer that is registered here for a call; null when it is not.
CDistributionTable::CEntry CCDSNetProxy::peerEntry(const std::string& sCallID, std::uint32_t dwPeer)
{
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    auto pFound = m_distributions.find(sCallID, dwPeer);
    return pFound != nullptr && !pFound->m_bClient ? pFound : nullptr;
}

bool CCDSNetProxy::forgetPeerData(const std::string& sCallID, unsigned long ulIPAddr)
{
    CDistributionTable::CEntry pEntry;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        pEntry = m_distributions.find(sCallID, static_cast<std::uint32_t>(ulIPAddr));
    }
    if (pEntry != nullptr)
        pEntry->m_pLastData.reset();
    return pEntry != nullptr;
}

long CCDSNetProxy::remCallDataDistribution(bool bClient, const std::string& sCallID, unsigned long ulIPAddr)
{
    CCDSLogging::logWarning("CCDSNetProxy::remCallDataDistribution.2, call %s, ipaddr 0x%08X", sCallID.c_str(),
                            cdsCode(ulIPAddr));
    CDistributionTable::CEntry pEntry; // its data goes outside the lock
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    pEntry = m_distributions.remove(bClient, sCallID, static_cast<std::uint32_t>(ulIPAddr));
    if (pEntry != nullptr)
        CCDSLogging::logWarning("CCDSNetProxy::remCallDataDistribution.22, ipaddr 0x%08X, ReqID:%s", pEntry->m_dwPeer,
                                pEntry->m_sRegID.c_str());
    return 0;
}

long CCDSNetProxy::remCallDataDistribution(bool bClient, unsigned long ulIPAddr)
{
    CCDSLogging::logWarning("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x%08X", cdsCode(ulIPAddr));
    CDistributionTable::CEntries removed; // many records, which go outside the lock
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    m_distributions.removeOfPeer(bClient, static_cast<std::uint32_t>(ulIPAddr), &removed);
    return 0;
}

long CCDSNetProxy::updateCallDataDistribution(const std::string& sCallID, unsigned long ulIPAddr, CCallData* pCallData)
{
    CCDSLogging::logWarning("CCDSNetProxy::updateCallDataDistribution, call = %s, ipaddr 0x%08X", sCallID.c_str(),
                            cdsCode(ulIPAddr));
    CDistributionTable::CEntry pEntry;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        pEntry = m_distributions.find(sCallID, static_cast<std::uint32_t>(ulIPAddr));
    }
    if (pEntry == nullptr)
        return E_CDS_DISTNOTFOUND;
    // Call data is the worker's: the entry is held, not locked.
    if (pCallData != nullptr)
        return bringUpToDate(*pEntry, *pCallData);
    pEntry->m_pLastData.reset();
    return 0;
}

/// Adds data to what an entry's peer has.
long CCDSNetProxy::bringUpToDate(CCalldataDistribution& entry, CCallData& data)
{
    if (entry.m_pLastData != nullptr)
    {
        bool bChanged = false;
        return entry.m_pLastData->merge(&data, &bChanged);
    }
    entry.m_pLastData.reset(data.clone());
    return entry.m_pLastData != nullptr ? 0 : E_CDS_OUTOFMEMORY;
}

long CCDSNetProxy::sendCallDataDistribution(CCallbackMsg* pMsg)
{
    auto* const pData = dynamic_cast<CCallData*>(pMsg->getCallbackData());
    if (pData == nullptr)
        return E_CDS_NULLDATA;
    std::string sCallID;
    (void)pData->getCallID(&sCallID); // empty when it fails
    CCDSLogging::logWarning("CCDSNetProxy::sendCallDataDistribution, call = %s", sCallID.c_str());
    // The entries are held, not locked, while they are served: a send may take its time.
    std::vector<CDistributionTable::CEntry> vecEntries;
    std::vector<std::string> vecRegIDs;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        vecEntries = m_distributions.ofCall(sCallID);
        for (const auto& pEntry : vecEntries)
            vecRegIDs.push_back(pEntry->m_sRegID);
    }
    long lResult = 0;
    long lNotSent = 0;
    std::size_t uServed = 0;
    for (; uServed < vecEntries.size(); ++uServed)
    {
        lResult = cdsGuarded([&] { return distributeTo(*vecEntries[uServed], vecRegIDs[uServed], *pMsg, *pData); });
        if (lResult >= 0)
            continue;
        const CCalldataDistribution& entry = *vecEntries[uServed];
        // What is too much for this one may be little for the others, who lack less.
        if (cdsIsTooLong(lResult))
            lNotSent = lResult; // and stays so: it is not tried again with every exchange that succeeds
        else if (cdsFailedByMessage(lResult))
        {
            m_resync.notReached(sCallID, entry.m_dwPeer);
            lNotSent = lResult;
        }
        else if (entry.m_bClient || !m_resync.dropLeftBehind(entry.m_dwPeer))
            break;
        lResult = 0; // for this one there is nothing more to do
    }
    // One that cannot be served keeps the change from all behind it, which must not lose it for good.
    for (; uServed < vecEntries.size(); ++uServed)
        m_resync.notReached(sCallID, vecEntries[uServed]->m_dwPeer);
    return lResult < 0 || lNotSent == 0 ? lResult : lNotSent;
}

/// Sends one peer what it lacks of a call, then notes that it has it.
long CCDSNetProxy::distributeTo(CCalldataDistribution& entry, const std::string& sRegID, CCallbackMsg& msg,
                                CCallData& data)
{
    const bool bTrace = CCDSLogging::checkTraceLevel(CCDSLogging::level_info);
    if (bTrace)
    {
        if (entry.m_pLastData != nullptr)
            entry.m_pLastData->trace("sendCDDist, org");
        else
            CCDSLogging::logInfo("sendCDDist, org=NULL");
        data.trace("sendCDDist, new");
    }
    CCallData* pFound = nullptr;
    const long lFiltered = data.filter(entry.m_pLastData.get(), &pFound);
    const std::unique_ptr<CCallData> pDifference(pFound);
    if (lFiltered < 0)
        return lFiltered;
    if (pDifference == nullptr)
        CCDSLogging::logInfo("sendCDDist, no diff");
    else if (const long lSent = sendDifference(entry, sRegID, msg, *pDifference); lSent < 0)
        return lSent;
    else if (entry.m_bClient)
        m_resync.sentToOwner(entry.m_sCallID, entry.m_dwPeer, true);
    const long lResult = bringUpToDate(entry, data);
    if (bTrace && entry.m_pLastData != nullptr)
        entry.m_pLastData->trace("sendCDDist, after merge");
    return lResult;
}

long CCDSNetProxy::sendDifference(const CCalldataDistribution& entry, const std::string& sRegID, CCallbackMsg& msg,
                                  CCallData& difference)
{
    CWorkHold hold(newWork());
    if (!hold)
        return E_CDS_OUTOFMEMORY;
    hold->m_eKind = WORK_KIND_SEND_CLIENT_CALLDATA;
    hold->m_pMsg = cdsHoldMessage(msg.clone(&difference));
    if (hold->m_pMsg == nullptr)
        return E_CDS_OUTOFMEMORY;
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
        difference.trace("sendCDDist, send");
    (void)hold->m_pMsg->setRegID(sRegID); // always 0
    const long lResult = hold->clientReqSendCallbackMsg(entry.m_dwPeer);
    if (lResult >= 0)
        hold.letGo();
    return lResult;
}

long CCDSNetProxy::registerClient(const std::string& sRegID, const std::string& sCallID)
{
    return m_pCDSAPI->Register(reinterpret_cast<unsigned long>(this), sRegID, m_sIPAddr, sCallID, "", nullptr,
                               cPeerTraceID);
}

long CCDSNetProxy::unregisterClient(const std::string& sRegID)
{
    try
    {
        return m_pCDSAPI->Unregister(sRegID);
    }
    catch (...) // by a registrant that hears of it; the registration is gone all the same
    {
        return E_FAIL;
    }
}

long CCDSNetProxy::unregisterClients(unsigned long ulIPAddr)
{
    std::vector<CDistributionTable::CEntry> vecEntries;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        vecEntries = m_distributions.ofPeer(false, static_cast<std::uint32_t>(ulIPAddr));
    }
    long lResult = 0;
    for (const auto& pEntry : vecEntries) // the store calls back, so no lock is held
    {
        if (pEntry->m_sStoreRegID.empty())
            continue;
        lResult = unregisterClient(pEntry->m_sStoreRegID);
        if (lResult != E_CDS_OUTOFMEMORY) // then it still stands
            pEntry->m_sStoreRegID.clear();
    }
    return lResult;
}

long CCDSNetProxy::giveToStore(CCallData* pData)
{
    return m_pCDSAPI->Update(m_sRegID, pData, true);
}

long CCDSNetProxy::requestCallData(const std::string& sCallID)
{
    return m_pCDSAPI->GetCallData(m_sRegID, sCallID);
}
