// The proxy: calls that other servers own and local registrants wait for.

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSTraceText.h"

namespace {

void setRegID(CCallbackMsg& msg, const std::string& sRegID)
{
    (void)msg.setRegID(sRegID); // always 0, here and below
    (void)dynamic_cast<CRegistrationData*>(msg.getCallbackData())->setRegID(sRegID);
}

/// A registration or unregistration that this server makes by itself.
CSharedMessage makeRegistration(const std::string& sRegID, const std::string& sServer, const std::string& sCallID,
                                bool bRegister)
{
    auto pRegistration = std::make_unique<CRegistrationData>(sRegID, sServer, sCallID, bRegister, CCDSTimestamp(0, 0));
    auto pMsg = std::make_unique<CCallbackMsg>(0UL, sRegID, ccbr_registration, pRegistration.get(), 0UL);
    (void)pRegistration.release(); // goes with the message from here on
    return cdsHoldMessage(pMsg.release());
}

} // namespace

std::shared_ptr<CClientCall> CCDSNetProxy::getClientCall(const std::string& sCallID)
{
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    return m_clientCalls.find(sCallID);
}

bool CCDSNetProxy::isAskedFor(const std::string& sCallID)
{
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    const auto pCall = m_clientCalls.find(sCallID);
    return pCall != nullptr && pCall->m_bAsked;
}

/// A registration is about to be sent, or could not be.
void CCDSNetProxy::noteAsked(const CCDSWork& work, bool bAsked)
{
    if (work.m_eKind != WORK_KIND_SEND_CLIENT_REGISTER && work.m_eKind != WORK_KIND_SEND_CLIENT_REREGISTER)
        return;
    std::string sCallID;
    (void)dynamic_cast<const CRegistrationData*>(work.m_pMsg->getCallbackData())->getCallID(&sCallID); // always 0
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    if (const auto pCall = m_clientCalls.find(sCallID); pCall != nullptr)
        pCall->m_bAsked = bAsked;
}

long CCDSNetProxy::addClientCall(const CSharedMessage& pMsg)
{
    CCDSLogging::logWarning("CCDSNetProxy::addClientCall");
    return cdsGuarded([&] {
        const auto* const pRegistration = dynamic_cast<const CRegistrationData*>(pMsg->getCallbackData());
        const auto pChannel = clientChannel();
        if (pChannel == nullptr)
            return E_CDS_NOCHANNEL;
        std::string sCallID;
        std::string sCDSIPAddr;
        (void)pRegistration->getCallID(&sCallID); // always 0, here and below
        (void)pRegistration->getCDSIPAddr(&sCDSIPAddr);
        std::shared_ptr<CClientCall> pCall;
        std::shared_ptr<CCDSWork> pWork;
        const long lCounted = countRegistration(
            sCallID, static_cast<std::uint32_t>(pChannel->stringToIpAddr(sCDSIPAddr)), &pCall, &pWork);
        CWorkHold hold(std::move(pWork));
        if (pCall == nullptr)
            return lCounted;
        queryTimes(*pCall);
        if (lCounted < 0)
            return lCounted;
        return sendRegistrationOf(*pCall, hold, pMsg);
    });
}

/// Counts a local registration.
///
/// @param ppCall  out: the call's record, made when there was none; null without memory for it
/// @param ppWork  out: what sends the registration to the owner; null when the owner knows of one already
long CCDSNetProxy::countRegistration(const std::string& sCallID, std::uint32_t dwServer,
                                     std::shared_ptr<CClientCall>* ppCall, std::shared_ptr<CCDSWork>* ppWork)
{
    const std::lock_guard order(m_mtxSendOrder);
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    *ppCall = m_clientCalls.find(sCallID);
    if (*ppCall != nullptr)
    {
        if (++(*ppCall)->m_lCount != 1)
            return 0;
        *ppWork = newWork();
        if (*ppWork == nullptr)
            return E_CDS_OUTOFMEMORY;
        (*ppWork)->m_bByWorker = m_sLeaving == sCallID;
        return 0;
    }
    *ppWork = newWork();
    if (*ppWork == nullptr)
        return E_CDS_OUTOFMEMORY;
    (*ppWork)->m_bByWorker = m_sLeaving == sCallID;
    const long lResult = cdsGuarded([&] {
        auto pCall = std::make_shared<CClientCall>(this, dwServer, sCallID);
        pCall->m_lCount = 1;
        const CCritSecLock again(m_csCalls, __LINE__, __LINE__); // held: the analysis does not see it from here
        m_clientCalls.add(pCall);
        *ppCall = std::move(pCall);
        return 0L;
    });
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::addClientCall");
    return lResult;
}

/// Asks the owner for the call's times, which sets the marks that later answers do not fall behind.
void CCDSNetProxy::queryTimes(CClientCall& call)
{
    // No lock of the proxy's is held: a server that does not answer must not keep others from their calls. The store's
    // is, so that a server that does not answer is asked once. The answers are already noted in the record when they
    // come.
    unsigned long long ullTimestamp = 0;
    bool bAnswered = false;
    (void)m_callback.getCallTime(call.m_sCallID, 0, &ullTimestamp, &bAnswered); // without an answer the marks stay
    if (!bAnswered)
        return;
    CCDSTimestamp tsStamp(0, 0);
    (void)m_callback.getCallIDCDSTimestamp(call.m_sCallID, &tsStamp);
}

/// Sends a registration to the owner, and has the call's data distributed there.
long CCDSNetProxy::sendRegistrationOf(const CClientCall& call, CWorkHold& hold, const CSharedMessage& pMsg)
{
    // The owner's data may come in before the send returns, and is dropped without an entry.
    bool bReserved = false;
    if (hold)
    {
        setRegID(*pMsg, call.m_sRegID);
        hold->m_eKind = WORK_KIND_SEND_CLIENT_REGISTER;
        hold->m_pMsg = pMsg;
        const std::uint64_t ullEpoch = m_serverStates.epoch(call.m_dwServer);
        bReserved = reserveDistribution(true, call.m_sCallID, call.m_sRegID, call.m_dwServer);
        const long lSent = hold->clientReqSendCallbackMsg(call.m_dwServer);
        if (lSent < 0)
        {
            const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
            // A server that was said to be reachable meanwhile has had the registration sent again, and needs it.
            if (bReserved && m_serverStates.epoch(call.m_dwServer) == ullEpoch)
                (void)m_distributions.remove(true, call.m_sCallID, call.m_dwServer);
            return lSent;
        }
        hold.letGo();
    }
    if (bReserved)
        CCDSLogging::logWarning("CCDSNetProxy::addCallDataDistribution, call %s, ipaddr 0x%08X", call.m_sCallID.c_str(),
                                call.m_dwServer);
    else
        (void)addCallDataDistribution(true, call.m_sCallID, call.m_sRegID, call.m_dwServer); // one there is as good
    CCDSLogging::logHRESULT(0, "CCDSNetProxy::addClientCall, addCallDataDistribution");
    return 0;
}

long CCDSNetProxy::remClientCall(const CSharedMessage& pMsg)
{
    CCDSLogging::logWarning("CCDSNetProxy::remClientCall");
    std::string sCallID;
    (void)dynamic_cast<const CRegistrationData*>(pMsg->getCallbackData())->getCallID(&sCallID); // always 0
    std::uint32_t dwDropped = 0;
    std::uint32_t dwKept = 0;
    const long lResult = cdsGuarded([&] { return countUnregistration(sCallID, pMsg, &dwDropped, &dwKept); });
    if (dwDropped != 0)
        m_resync.ownerEntryRemoved(sCallID, dwDropped, true);
    else if (dwKept != 0)
        m_resync.somebodyRegistered(sCallID, dwKept);
    return lResult;
}

/// Counts a local unregistration; the last one of a call is sent to the owner.
///
/// @param pdwDropped  out: the owner, when it could not be told, and has no entry any more; else untouched
/// @param pdwKept     out: the owner, when others are registered, still or again; else untouched
long CCDSNetProxy::countUnregistration(const std::string& sCallID, const CSharedMessage& pMsg,
                                       std::uint32_t* pdwDropped, std::uint32_t* pdwKept)
{
    std::unique_lock order(m_mtxSendOrder);
    std::shared_ptr<CClientCall> pCall;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        pCall = m_clientCalls.find(sCallID);
        if (pCall != nullptr && --pCall->m_lCount != 0)
        {
            *pdwKept = pCall->m_dwServer;
            return 0;
        }
        if (pCall != nullptr)
            pCall->m_bAsked = false; // what is sent from here on comes behind the unregistration
    }
    if (pCall == nullptr)
    {
        CCDSLogging::logHRESULT(E_CDS_NOTFOUND, "CCDSNetProxy::remClientCall");
        return E_CDS_NOTFOUND;
    }
    CWorkHold hold(newWork());
    if (!hold)
        return E_CDS_OUTOFMEMORY;
    setRegID(*pMsg, pCall->m_sRegID);
    hold->m_eKind = WORK_KIND_SEND_CLIENT_UNREGISTER;
    hold->m_pMsg = pMsg;
    const long lResult = sendInOrder(order, *hold.shared(), sCallID, pCall->m_dwServer);
    if (lResult >= 0)
    {
        hold.letGo();
        return lResult;
    }
    // No exchange will end, and with it the entry: when nobody waits for the call here it goes now.
    CDistributionTable::CEntry pEntry; // its data goes outside the lock
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    if (pCall->m_lCount > 0)
        return lResult;
    pEntry = m_distributions.remove(true, sCallID, pCall->m_dwServer);
    *pdwDropped = pCall->m_dwServer;
    return lResult;
}

/// Has a server forget a registration that it knows although nobody waits for the call here any more.
void CCDSNetProxy::withdrawRegistration(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer)
{
    std::unique_lock order(m_mtxSendOrder); // a registration that comes now is sent later
    const auto pChannel = clientChannel();
    if (pChannel == nullptr || getClientCall(sCallID) != nullptr)
        return;
    CWorkHold hold(newWork());
    if (!hold)
        return;
    hold->m_eKind = WORK_KIND_SEND_CLIENT_UNREGISTER;
    hold->m_pMsg = makeRegistration(sRegID, pChannel->ipAddrToString(dwServer), sCallID, false);
    if (sendInOrder(order, *hold.shared(), sCallID, dwServer) >= 0)
        hold.letGo();
}

/// Sends an unregistration. A registration of the same call is sent after it, whenever it comes.
///
/// @param order  of m_mtxSendOrder; let go while the request leaves on this thread, which may take a while. Others do
///               not wait for it: a registration of this call is left to the worker, who is busy with this.
long CCDSNetProxy::sendInOrder(std::unique_lock<std::mutex>& order, CCDSWork& work, const std::string& sCallID,
                               std::uint32_t dwServer)
{
    if (sendsInWorkerThread())
        return work.clientReqSendCallbackMsg(dwServer); // only queued
    m_sLeaving = sCallID;
    order.unlock();
    const long lResult = work.clientReqSendCallbackMsg(dwServer);
    order.lock();
    m_sLeaving.clear();
    return lResult;
}

/// Takes the client call of an ended unregistration out of the table, unless it counts registrations again.
void CCDSNetProxy::dropUnusedClientCall(const CCallbackMsg& msg)
{
    std::string sCallID;
    (void)dynamic_cast<const CRegistrationData*>(msg.getCallbackData())->getCallID(&sCallID); // always 0
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    const auto pCall = m_clientCalls.find(sCallID);
    if (pCall != nullptr && pCall->m_lCount <= 0)
        m_clientCalls.remove(sCallID);
}

long CCDSNetProxy::reregisterClientCalls(unsigned long ulIPAddr)
{
    CCDSLogging::logWarning("CCDSNetProxy::reregisterClientCalls: ipaddr 0x%08X", cdsCode(ulIPAddr));
    std::vector<CClientCallTable::CEntry> vecCalls;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        vecCalls = m_clientCalls.ofServer(static_cast<std::uint32_t>(ulIPAddr));
    }
    const auto pChannel = clientChannel();
    if (vecCalls.empty() || pChannel == nullptr)
        return 0;
    const std::string sServer = pChannel->ipAddrToString(ulIPAddr);
    long lResult = 0;
    for (const auto& pCall : vecCalls)
        if (const long lSent = cdsGuarded([&] { return reregister(*pCall, sServer); }); lSent < 0)
            lResult = lSent;
    return lResult;
}

long CCDSNetProxy::reregister(const CClientCall& call, const std::string& sServer)
{
    CSharedMessage pMsg = makeRegistration(call.m_sRegID, sServer, call.m_sCallID, true);
    CWorkHold hold(newWork());
    if (!hold)
        return E_CDS_OUTOFMEMORY;
    hold->m_eKind = WORK_KIND_SEND_CLIENT_REREGISTER;
    hold->m_pMsg = std::move(pMsg);
    m_resync.beforeReregistration(call.m_sCallID, call.m_sRegID, call.m_dwServer);
    const long lResult = hold->clientReqSendCallbackMsg(call.m_dwServer);
    if (lResult >= 0)
        hold.letGo();
    return lResult;
}
