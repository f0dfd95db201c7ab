// The proxy: what peers ask of this server. Everything here was written by somebody else's program.

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSParams.h"
#include "CDSTraceText.h"

void CCDSNetProxy::onPeerDisconnected(CCDSWork& work)
{
    CCDSLogging::logWarning("WT_OP_SERVER_CLIENTDISCONNECTED - 0x%08X, ipaddr 0x%08X", cdsIdentity(&work),
                            work.m_dwPeer);
    removeCDRCallDataIfExpired(work.m_dwPeer);
    const long lResult = unregisterClients(work.m_dwPeer);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, unregisterClients");
    if (lResult >= 0)
        CCDSLogging::logHRESULT(remCallDataDistribution(false, work.m_dwPeer),
                                "CCDSNetProxy::workerThread, remCallDataDistribution");
    m_resync.peerLeft(work.m_dwPeer, lResult < 0);
}

/// Handles a request and answers it, whatever came of it.
void CCDSNetProxy::onReceivedRequest(CCDSWork& work)
{
    CCDSLogging::logWarning("WT_OP_SERVER_RECEIVEREQUEST - 0x%08X, ipaddr 0x%08X", cdsIdentity(&work), work.m_dwPeer);
    struct SAnswer
    {
        CCDSWork& work;
        long lResult = 0;
        ~SAnswer() { (void)work.serverRspSendStatus(lResult); } // logged; the peer's exchange times out
    } answer{work};
    const CParamsX list(cdsReceivedText(work.m_pInBuf.get(), work.m_dwInLen));
    const std::string sName = list.getStringParamAt(0);
    CCDSLogging::logWarning("-- request \"%s\"", sName.c_str());
    if (sName == g_pszCallbackMsgRequest)
        answer.lResult = dispatchRequest(work, list.getStringParamAt(1));
}

long CCDSNetProxy::dispatchRequest(CCDSWork& work, const std::string& sMsg)
{
    CReceivedMessage pMsg(new CCallbackMsg(0UL, sMsg));
    pMsg->traceInfo("NetProxy, remote");
    switch (pMsg->getCallbackReason())
    {
    case ccbr_calldata: return onPeerCallData(work, *pMsg);
    case ccbr_cdrcalldata: return onPeerCdrData(work, pMsg);
    case ccbr_registration: return onPeerRegistration(work, *pMsg);
    default: return 0;
    }
}

long CCDSNetProxy::onPeerCallData(CCDSWork& work, CCallbackMsg& msg)
{
    auto* const pData = dynamic_cast<CCallData*>(msg.getCallbackData());
    std::string sCallID;
    (void)pData->getCallID(&sCallID); // empty when it fails
    CCDSLogging::logWarning("CCDSNetProxy::workerThread, ipaddr=0x%08X, regid=%s, callid=%s, reason=ccbr_calldata",
                            work.m_dwPeer, msg.getRegID().c_str(), sCallID.c_str());
    // The peer has it before the store reports it back as news.
    long lResult = updateCallDataDistribution(sCallID, work.m_dwPeer, pData);
    if (lResult == E_CDS_DISTNOTFOUND)
        return lResult; // nobody here waits for it any more
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread (server), updateCallDataDistribution, work - 0x%08X",
                            cdsIdentity(&work));
    if (lResult < 0)
        return lResult;
    lResult = giveToStore(pData);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, m_pCDSAPI->Update, work - 0x%08X",
                            cdsIdentity(&work));
    if (lResult == E_CDS_NOTFOUND && getClientCall(sCallID) != nullptr)
        m_resync.dataRefused(sCallID, *pData);
    return lResult;
}

/// Hands a peer's CDR to the host, which keeps it if it took it.
long CCDSNetProxy::onPeerCdrData(CCDSWork& work, CReceivedMessage& pMsg)
{
    std::string sCallID;
    (void)dynamic_cast<CCallData*>(pMsg->getCallbackData())->getCallID(&sCallID); // empty when it fails
    CCDSLogging::logWarning("CCDSNetProxy::workerThread, ipaddr=0x%08X, callid=%s, reason=ccbr_cdrcalldata",
                            work.m_dwPeer, sCallID.c_str());
    if (const auto pChannel = serverChannel(); pChannel != nullptr)
        (void)pMsg->setCDSIPAddr(pChannel->ipAddrToString(work.m_dwPeer)); // always 0
    bool bCalled = false;
    const long lResult = m_pCDSAPI->deliverCDR(pMsg.get(), &bCalled);
    if (bCalled && lResult >= 0)
        (void)pMsg.release(); // the host's
    return lResult;
}

long CCDSNetProxy::onPeerRegistration(CCDSWork& work, CCallbackMsg& msg)
{
    const auto* const pRegistration = dynamic_cast<const CRegistrationData*>(msg.getCallbackData());
    std::string sRegID;
    std::string sCallID;
    bool bRegister = false;
    (void)pRegistration->getRegID(&sRegID); // always 0, here and below
    (void)pRegistration->getCallID(&sCallID);
    (void)pRegistration->getRegister(&bRegister);
    if (sRegID.size() > cPeerIDBytes || sCallID.size() > cPeerIDBytes)
    {
        m_refusals.note(work.m_dwPeer, "an ID is too long"); // and too long for the log
        return E_FAIL;
    }
    if (bRegister && !mayRegister(work.m_dwPeer, sCallID))
    {
        m_refusals.note(work.m_dwPeer, "it has too many");
        return E_FAIL;
    }
    CCDSLogging::logWarning(
        "CCDSNetProxy::workerThread, ipaddr=0x%08X, regid=%s, callid=%s, reason=ccbr_registration=%d", work.m_dwPeer,
        sRegID.c_str(), sCallID.c_str(), bRegister ? 1 : 0);
    return bRegister ? registerPeer(work, sRegID, sCallID) : unregisterPeer(work, sRegID, sCallID);
}

/// Whether a registration of a peer needs no entry beyond those that it may have.
bool CCDSNetProxy::mayRegister(std::uint32_t dwPeer, const std::string& sCallID)
{
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    return m_distributions.countOfPeer(false, dwPeer) < cPeerEntries ||
           m_distributions.find(sCallID, dwPeer) != nullptr;
}

long CCDSNetProxy::registerPeer(CCDSWork& work, const std::string& sRegID, const std::string& sCallID)
{
    const unsigned int uWork = cdsIdentity(&work);
    CCDSLogging::logWarning("-- request ccbr_registration - register");
    std::string sStoreRegID = sRegID; // here, so that a registration that is made can be noted
    long lResult = addCallDataDistribution(false, sCallID, sRegID, work.m_dwPeer);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, addCallDataDistribution, work - 0x%08X", uWork);
    if (lResult < 0)
        return lResult;
    const auto pEntry = peerEntry(sCallID, work.m_dwPeer);
    try
    {
        lResult = registerClient(sRegID, sCallID);
    }
    catch (...) // by a registrant that hears of it; the registration stands all the same
    {
        pEntry->m_sStoreRegID.swap(sStoreRegID);
        (void)requestCallData(sCallID); // as after any other; what was thrown is told
        throw;
    }
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, registerClient, work - 0x%08X", uWork);
    if (lResult >= 0)
    {
        pEntry->m_sStoreRegID.swap(sStoreRegID);
        return requestCallData(sCallID);
    }
    if (lResult != E_CDS_EXISTS) // it may have been made before the memory ran out
        (void)unregisterClient(sRegID);
    return lResult;
}

long CCDSNetProxy::unregisterPeer(CCDSWork& work, const std::string& sRegID, const std::string& sCallID)
{
    const unsigned int uWork = cdsIdentity(&work);
    CCDSLogging::logWarning("-- request ccbr_registration - unregister");
    const auto pEntry = peerEntry(sCallID, work.m_dwPeer);
    long lResult = remCallDataDistribution(false, sCallID, work.m_dwPeer);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, remCallDataDistribution, work - 0x%08X", uWork);
    // Local registrants have their IDs in the same table: a peer speaks for its own alone. That goes with the entry,
    // whatever the peer calls it.
    const bool bRegistered = pEntry != nullptr && !pEntry->m_sStoreRegID.empty();
    const long lGone = bRegistered ? unregisterClient(pEntry->m_sStoreRegID) : E_CDS_NOTFOUND;
    const bool bNamed = bRegistered && (pEntry->m_sRegID == sRegID || pEntry->m_sStoreRegID == sRegID);
    lResult = bNamed ? lGone : E_CDS_NOTFOUND;
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, unregisterClient, work - 0x%08X", uWork);
    (void)m_resync.entryRemoved(sCallID, work.m_dwPeer); // stale or not
    return lResult;
}
