// The proxy: the worker thread, what the store tells the proxy, and how our own exchanges end.

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSTraceText.h"
#include "KRException.h"

#include <exception>

namespace {

constexpr unsigned long cNoTimeLimit = 0xFFFFFFFFUL;

/// The payload of a registration notice, or null.
CRegistrationData* registrationOf(const CCallbackMsg& msg)
{
    return dynamic_cast<CRegistrationData*>(msg.getCallbackData());
}

/// Counts something until it goes; may be without anything to count.
class CCount
{
public:
    CCount(std::atomic<unsigned long>* pulCount, unsigned long ulMore) : m_pulCount(pulCount)
    {
        if (m_pulCount != nullptr)
            *m_pulCount += ulMore;
    }
    ~CCount()
    {
        if (m_pulCount != nullptr)
            --*m_pulCount;
    }
    CCount(const CCount&) = delete;
    CCount& operator=(const CCount&) = delete;

    void letGo() noexcept { m_pulCount = nullptr; }

private:
    std::atomic<unsigned long>* m_pulCount;
};

/// The call whose data a request of ours carries; "" when it carries none.
std::string callIDOfRequest(const CCDSWork& work)
{
    std::string sCallID;
    const auto* const pRecord = work.m_eKind == WORK_KIND_SEND_CLIENT_CALLDATA && work.m_pMsg != nullptr
                                    ? dynamic_cast<const CCallData*>(work.m_pMsg->getCallbackData())
                                    : nullptr;
    if (pRecord != nullptr)
        (void)pRecord->getCallID(&sCallID); // empty when it fails
    return sCallID;
}

/// Runs a step of the worker. What it throws ends the step, never the thread.
template <class TStep> void guardedStep(const CCDSWork& work, TStep step)
{
    try
    {
        step();
    }
    catch (unsigned long ulCode) // a text that is none
    {
        CCDSLogging::logHRESULT(cdsResult(ulCode), "CCDSNetProxy::workerThread, work - 0x%08X", cdsIdentity(&work));
    }
    catch (const KRException& refusal)
    {
        CCDSLogging::logHRESULT(refusal.code(), "CCDSNetProxy::workerThread, work - 0x%08X", cdsIdentity(&work));
    }
    catch (const std::exception& failure)
    {
        CCDSLogging::logError("CCDSNetProxy::workerThread - %s, work - 0x%08X", failure.what(), cdsIdentity(&work));
    }
    catch (...) // a registrant's callback may throw anything
    {
        CCDSLogging::logError("CCDSNetProxy::workerThread - exception, work - 0x%08X", cdsIdentity(&work));
    }
}

} // namespace

long CCDSNetProxy::CDSCallback(CCallbackMsg* pMsg)
{
    auto* const pProxy = reinterpret_cast<CCDSNetProxy*>(pMsg->getReqHandle());
    return pProxy != nullptr ? cdsGuarded([&] { return pProxy->CDSCallbackImpl(pMsg); }) : 0;
}

/// Whether a registration is of a local registrant for another server's call: neither the proxy's own nor one that it
/// made for a peer, which both name this server.
bool CCDSNetProxy::isForeign(const CRegistrationData& registration) const
{
    std::string sRegID;
    std::string sCDSIPAddr;
    (void)registration.getRegID(&sRegID); // always 0, here and below
    (void)registration.getCDSIPAddr(&sCDSIPAddr);
    return sRegID != m_sRegID && sCDSIPAddr != m_sIPAddr;
}

long CCDSNetProxy::CDSCallbackImpl(CCallbackMsg* pMsg)
{
    const CRegistrationData* const pRegistration =
        pMsg->getCallbackReason() == ccbr_registration ? registrationOf(*pMsg) : nullptr;
    bool bRegister = false;
    if (pRegistration != nullptr)
        (void)pRegistration->getRegister(&bRegister); // always 0
    if (bRegister)
    {
        if (!isForeign(*pRegistration))
            return 0;
        const CSharedMessage pCopy = cdsHoldMessage(pMsg->clone());
        const long lResult = pCopy != nullptr ? addClientCall(pCopy) : E_CDS_OUTOFMEMORY;
        // The text names the worker, although this is the registrant's thread.
        CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, addClientCall");
        return lResult;
    }
    CWorkHold hold(newWork());
    if (!hold)
        return E_CDS_OUTOFMEMORY;
    hold->m_pMsg = cdsHoldMessage(pMsg->clone());
    if (hold->m_pMsg == nullptr)
        return E_CDS_OUTOFMEMORY;
    CCount counted(pMsg->getCallbackReason() == ccbr_cdrcalldata ? &m_ulCDRsQueued : nullptr, 1);
    enqueueCCDSWork(hold.shared(), WT_OP_CDS_CALLBACK);
    counted.letGo(); // the worker counts it off
    hold.letGo();
    return 0;
}

void CCDSNetProxy::workerThread(void* pProxy)
{
    static_cast<CCDSNetProxy*>(pProxy)->workerThreadFunc();
}

void CCDSNetProxy::workerThreadFunc()
{
    m_bWorkerRunning = 1;
    CPortable::SetCurrentThreadName("CDSNPWker");
    CCDSLogging::logAlways("CCDSNetProxy::workerThread - starting");
    while (m_bStop == 0)
    {
        (void)m_evWork.wait(cNoTimeLimit, nullptr); // whatever ended it, the queue tells
        if (m_bStop == 0 && m_bReady)
            drainQueue();
    }
    CCDSLogging::logAlways("CCDSNetProxy::workerThread - stopping");
    m_bWorkerRunning = 0;
}

void CCDSNetProxy::drainQueue()
{
    for (SQueued queued = nextWork(); queued.dwID != 0; queued = nextWork())
    {
        if (queued.pWork != nullptr)
            handleGuarded(queued);
        else
            CCDSLogging::logError("CCDSNetProxy::workerThread - pwork is NULL, id - %s",
                                  std::to_string(queued.dwID).c_str());
    }
}

void CCDSNetProxy::handleGuarded(SQueued& queued)
{
    bool bEnds = true;
    guardedStep(*queued.pWork, [&] { bEnds = handle(queued); });
    if (bEnds)
        guardedStep(*queued.pWork, [&] { endWork(queued.pWork); });
}

/// @return whether the item has ended
bool CCDSNetProxy::handle(SQueued& queued)
{
    CCDSWork& work = *queued.pWork;
    const unsigned int uWork = cdsIdentity(&work);
    switch (queued.nOp)
    {
    case WT_OP_CDS_CALLBACK: onCallback(queued.pWork); break;
    case WT_OP_SERVER_CLIENTCONNECTED:
        CCDSLogging::logWarning("WT_OP_SERVER_CLIENTCONNECTED - 0x%08X, ipaddr 0x%08X", uWork, work.m_dwPeer);
        m_resync.peerConnected(work.m_dwPeer);
        break;
    case WT_OP_SERVER_CLIENTDISCONNECTED: onPeerDisconnected(work); break;
    case WT_OP_SERVER_RECEIVEREQUEST: onReceivedRequest(work); break;
    case WT_OP_CLIENT_SERVERCONNECTED: onServerConnected(work); break;
    case WT_OP_CLIENT_SERVERDISCONNECTED:
        CCDSLogging::logWarning("WT_OP_CLIENT_SERVERDISCONNECTED - 0x%08X, ipaddr 0x%08X", uWork, work.m_dwServer);
        break;
    case WT_OP_CLIENT_SENDREQUEST: return !onSendRequest(work);
    case WT_OP_CLIENT_RECEIVERESPONSE: onResponse(work, queued.response); break;
    case WT_OP_DUMP: dump(0); break;
    case WT_OP_DUMP_FULL: dump(1); break;
    case WT_OP_DISCARD: onFailedCallData(work); break; // a response that is none: nobody knows what the peer has
    default: break;
    }
    return true;
}

void CCDSNetProxy::onCallback(const std::shared_ptr<CCDSWork>& pWork)
{
    // Counted off when it is in the cache or refused, whatever is thrown until then.
    const CCount counted(pWork->m_pMsg->getCallbackReason() == ccbr_cdrcalldata ? &m_ulCDRsQueued : nullptr, 0);
    const unsigned int uWork = cdsIdentity(pWork.get());
    CCDSLogging::logWarning("WT_OP_CDS_CALLBACK - 0x%08X", uWork);
    pWork->m_pMsg->traceInfo("NetProxy, local");
    switch (pWork->m_pMsg->getCallbackReason())
    {
    case ccbr_registration: onLocalRegistration(*pWork); break;
    case ccbr_cdrcalldata:
    {
        const CSharedMessage pMsg = std::move(pWork->m_pMsg);
        CCDSLogging::logHRESULT(addCDRCallData(pMsg), "CCDSNetProxy::workerThread, addCDRCallData, work - 0x%08X",
                                uWork);
        break;
    }
    case ccbr_calldata:
    {
        const long lResult = sendCallDataDistribution(pWork->m_pMsg.get());
        if (lResult != E_CDS_SERVERUNREACHABLE)
            CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread, sendCalldataDistribution, work - 0x%08X",
                                    uWork);
        break;
    }
    default: break;
    }
}

void CCDSNetProxy::onLocalRegistration(CCDSWork& work)
{
    const CSharedMessage pMsg = std::move(work.m_pMsg);
    const CRegistrationData* const pRegistration = registrationOf(*pMsg);
    if (pRegistration == nullptr || !isForeign(*pRegistration))
        return;
    bool bRegister = false;
    (void)pRegistration->getRegister(&bRegister); // always 0
    if (bRegister)
        CCDSLogging::logHRESULT(addClientCall(pMsg), "CCDSNetProxy::workerThread, addClientCall, work - 0x%08X",
                                cdsIdentity(&work));
    else
        CCDSLogging::logHRESULT(remClientCall(pMsg), "CCDSNetProxy::workerThread, remClientCall, work - 0x%08X",
                                cdsIdentity(&work));
}

void CCDSNetProxy::onServerConnected(CCDSWork& work)
{
    CCDSLogging::logWarning("WT_OP_CLIENT_SERVERCONNECTED - 0x%08X, ipaddr 0x%08X", cdsIdentity(&work),
                            work.m_dwServer);
    if (work.m_bLost)
        m_resync.connectionLost(work.m_dwServer);
    m_serverStates.set(work.m_dwServer, 1);
    (void)reregisterClientCalls(work.m_dwServer);  // each failure is told where it happens, and ends with an item
    (void)sendPendingCDRCallData(work.m_dwServer); // what was not sent waits for the next event
    m_resync.connectionChanged(work.m_dwServer);
}

/// @return whether the item waits for its response now
bool CCDSNetProxy::onSendRequest(CCDSWork& work)
{
    CCDSLogging::logWarning("WT_OP_CLIENT_SENDREQUEST - 0x%08X, ipaddr 0x%08X", cdsIdentity(&work), work.m_dwServer);
    const long lResult = sendRequest(&work);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::workerThread (client), WT_OP_CLIENT_SENDREQUEST");
    if (lResult < 0)
        postResponse(work.m_dwID, WT_OP_CLIENT_RECEIVERESPONSE, {nullptr, 0, lResult});
    return true;
}

/// The end of one of our exchanges. What the peer says of its status is not looked at.
void CCDSNetProxy::onResponse(CCDSWork& work, const SWorkResponse& response)
{
    CCDSLogging::logWarning("WT_OP_CLIENT_RECEIVERESPONSE - 0x%08X, ipaddr 0x%08X", cdsIdentity(&work),
                            work.m_dwServer);
    const bool bFailed = response.hrResult < 0;
    if (!bFailed)
    {
        CCDSLogging::logWarning("-- response string \"%s\"",
                                cdsReceivedText(response.pBuffer.get(), response.dwSize).c_str());
        CCDSLogging::logHRESULT(response.hrResult, "CCDSNetProxy::workerThread (client), recvAsyncFinish");
    }
    switch (work.m_eKind)
    {
    case WORK_KIND_SEND_CLIENT_UNREGISTER: onUnregistered(work, bFailed); break;
    case WORK_KIND_SEND_CLIENT_REGISTER:
        if (!bFailed)
            onRegistered(work);
        break;
    case WORK_KIND_SEND_CLIENT_REREGISTER:
        if (!bFailed)
            onReregistered(work);
        break;
    case WORK_KIND_SEND_CLIENT_CALLDATA:
        if (bFailed)
            onFailedCallData(work);
        else if (m_resync.isAnythingStale())
            m_resync.exchangeSucceeded(callIDOfRequest(work), work.m_dwServer);
        break;
    case WORK_KIND_SEND_CLIENT_CDRDATA:
        if (bFailed)
            removeCDRCallDataIfExpired(work.m_dwServer);
        else
        {
            CCDSLogging::logWarning("WORK_KIND_SEND_CLIENT_CDRDATA - 0x%08X", cdsIdentity(&work));
            removeSentCDRCallData(work.m_pMsg.get());
        }
        break;
    default: break;
    }
}

void CCDSNetProxy::onFailedCallData(CCDSWork& work)
{
    if (const std::string sCallID = callIDOfRequest(work); !sCallID.empty())
        m_resync.exchangeFailed(sCallID, work.m_dwServer);
}

/// The owner knows of a registration: what could not be exchanged before can be now.
void CCDSNetProxy::onRegistered(CCDSWork& work)
{
    std::string sCallID;
    (void)registrationOf(*work.m_pMsg)->getCallID(&sCallID); // always 0
    m_resync.somebodyRegistered(sCallID, work.m_dwServer);
}

void CCDSNetProxy::onUnregistered(CCDSWork& work, bool bFailed)
{
    CCDSLogging::logWarning("WORK_KIND_SEND_CLIENT_UNREGISTER - 0x%08X", cdsIdentity(&work));
    std::string sCallID;
    (void)registrationOf(*work.m_pMsg)->getCallID(&sCallID);       // always 0
    (void)remCallDataDistribution(true, sCallID, work.m_dwServer); // always 0
    m_resync.unregistrationEnded(sCallID, work.m_dwServer, bFailed);
}

/// A server knows a registration again: it has none of our data, and it sends its own whole.
void CCDSNetProxy::onReregistered(CCDSWork& work)
{
    std::string sCallID;
    std::string sRegID;
    const CRegistrationData* const pRegistration = registrationOf(*work.m_pMsg);
    (void)pRegistration->getCallID(&sCallID); // always 0, here and below
    (void)pRegistration->getRegID(&sRegID);
    CCDSLogging::logWarning("----- WORK_KIND_SEND_CLIENT_REREGISTER - regid=%s", sRegID.c_str());
    if (getClientCall(sCallID) == nullptr)
    {
        CCDSLogging::logError("----- WORK_KIND_SEND_CLIENT_REREGISTER - no longer registered");
        m_resync.reregisteredInVain(sCallID, sRegID, work.m_dwServer);
        return;
    }
    if (const long lUpdated = updateCallDataDistribution(sCallID, work.m_dwServer, nullptr); lUpdated < 0)
    {
        CCDSLogging::logHRESULT(lUpdated, "CCDSNetProxy::workerThread (client), updateCallDataDistribution");
        const long lAdded = addCallDataDistribution(true, sCallID, sRegID, work.m_dwServer);
        CCDSLogging::logHRESULT(lAdded, "CCDSNetProxy::workerThread (client), addCallDataDistribution");
        if (lAdded < 0)
            return;
    }
    const long lRequested = requestCallData(sCallID);
    CCDSLogging::logHRESULT(lRequested, "CCDSNetProxy::workerThread, m_pCDSAPI->GetCallData");
    m_resync.sentToOwner(sCallID, work.m_dwServer, lRequested >= 0);
}
