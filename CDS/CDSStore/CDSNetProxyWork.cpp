// The proxy: work items, their table and their queue, and what an item sends.

#include "CDSNetProxyWork.h"

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSParams.h"
#include "CDSParamsText.h"
#include "CDSTraceText.h"

#include <map>
#include <new>

namespace {

/// Makes the library send and answer without waiting.
constexpr unsigned long cSendFlags = 0x40000000UL;
constexpr unsigned long cExchangeSeconds = 30;
constexpr int cAttempts = 5;
constexpr unsigned long cRetryMs = 200;
/// What an item counts beside its buffers. More than it costs: at most about 1000 wait in the one queue that all peers
/// share, so that one peer's flood is not a long wait for what the others send. The rest waits in the channel, which
/// serves the peers by turns.
constexpr std::uint64_t cItemBytes = 65'536;

std::string callIDOf(const CCallbackMsg& msg)
{
    std::string sCallID;
    if (const auto* const pRecord = dynamic_cast<const CCallData*>(msg.getCallbackData()); pRecord != nullptr)
        (void)pRecord->getCallID(&sCallID); // empty when it fails, here and below
    else if (const auto* const pNotice = dynamic_cast<const CRegistrationData*>(msg.getCallbackData());
             pNotice != nullptr)
        (void)pNotice->getCallID(&sCallID);
    return sCallID;
}

const char* reasonText(CDSCALLBACKREASON eReason)
{
    return eReason == ccbr_calldata      ? "ccbr_calldata"
           : eReason == ccbr_cdrcalldata ? "ccbr_cdrcalldata"
                                         : "ccbr_registration";
}

} // namespace

CSharedMessage cdsHoldMessage(CCallbackMsg* pMsg)
{
    return CSharedMessage(pMsg, CMessageDeleter());
}

void CMessageDeleter::operator()(CCallbackMsg* pMsg) const noexcept
{
    if (pMsg != nullptr)
        delete pMsg->getCallbackData();
    delete pMsg;
}

CCDSWork::CCDSWork(CCDSNetProxy* pProxy) : m_pProxy(pProxy), m_bSilentEnd(true)
{
    m_lstQueueEntry.emplace_back();
}

CCDSWork::~CCDSWork()
{
    if (!m_bSilentEnd)
        CCDSLogging::logWarning("CCDSWork::~CCDSWork() - 0x%08X, id - 0x%08X, kind %d", cdsIdentity(this), m_dwID,
                                static_cast<int>(m_eKind));
    if (m_ullCharge != 0)
        m_pProxy->receiveBudget().give(m_ullCharge);
}

long CCDSWork::clientReqSendCallbackMsg(unsigned long ulServer)
{
    return cdsGuarded([&] {
        if (m_pProxy->serverStates().findOrAdd(static_cast<std::uint32_t>(ulServer)) == 0)
            return E_CDS_SERVERUNREACHABLE;
        m_dwServer = static_cast<std::uint32_t>(ulServer);
        CCDSLogging::logWarning("CCDSWork::clientReqSendCallbackMsg, svr=0x%08X, regid=%s, callid=%s, reason=%s",
                                m_dwServer, m_pMsg->getRegID().c_str(), callIDOf(*m_pMsg).c_str(),
                                reasonText(m_pMsg->getCallbackReason()));
        const long lResult = buildRequest();
        if (lResult < 0)
            return lResult;
        if (!m_pProxy->sendsInWorkerThread() && !m_bByWorker)
            return m_pProxy->sendRequest(this);
        return m_pProxy->queueSend(this);
    });
}

/// The request's text: the message's name, and the message.
long CCDSWork::buildRequest()
{
    std::string sMessage;
    const long lResult = m_pMsg->serialize(&sMessage);
    if (lResult < 0)
        return lResult;
    CParamsX list(static_cast<long>(sMessage.size()) + 96); // with the name's element
    cdsAddText(list, g_pszCallbackMsgRequest);
    // A message that just fits into a text of its own may still be too long for an element.
    if (const long lAdded = list.addParam(sMessage, 3.14F); lAdded < 0)
        return lAdded;
    m_sRequest = std::move(list).paramList();
    return lResult;
}

long CCDSWork::serverRspSendStatus(long /*lStatus*/)
{
    return cdsGuarded([&] {
        CParamsX list(32L);
        cdsAddText(list, g_pszStatusResponse);
        cdsAddLong(list, 0); // whatever came of the request: the peer looks at nothing but the exchange itself
        m_sAnswer = std::move(list).paramList();
        const long lResult = m_pProxy->sendResponse(this);
        CCDSLogging::logHRESULT(lResult, "CCDSWork::serverRspSendStatus, sendResponse - 0x%08X", m_dwPeer);
        return lResult;
    });
}

CWorkHold::~CWorkHold()
{
    if (m_pWork != nullptr)
        m_pWork->m_pProxy->endWork(m_pWork);
}

void CReceiveBudget::take(std::uint64_t ullBytes)
{
    const std::lock_guard lock(m_mtx);
    m_ullTaken += ullBytes;
}

void CReceiveBudget::give(std::uint64_t ullBytes)
{
    {
        const std::lock_guard lock(m_mtx);
        m_ullTaken -= ullBytes;
        if (m_ullTaken > cEnough)
            return;
    }
    m_cvRoom.notify_one();
}

void CReceiveBudget::awaitRoom()
{
    std::unique_lock lock(m_mtx);
    if (m_ullTaken > cMost) // once it waits, for a while: a wake for each item would cost more than the item
        m_cvRoom.wait(lock, [this] { return m_ullTaken <= cEnough || !m_bOpen; });
}

void CReceiveBudget::open(bool bOpen)
{
    {
        const std::lock_guard lock(m_mtx);
        m_bOpen = bOpen;
    }
    m_cvRoom.notify_all();
}

std::shared_ptr<CCDSWork> CCDSNetProxy::newWork() noexcept
{
    try
    {
        auto pWork = std::make_shared<CCDSWork>(this);
        (void)addCWork(pWork); // the item knows it
        return pWork;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

unsigned long CCDSNetProxy::addCWork(const std::shared_ptr<CCDSWork>& pWork)
{
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        const std::uint32_t dwID = m_dwNextWorkID;
        pWork->m_dwID = dwID; // before anybody can find it
        m_mapWork.try_emplace(dwID, pWork);
        pWork->m_bSilentEnd = false;
        m_dwNextWorkID = dwID == 0xFFFFFFFFU ? 1 : dwID + 1; // 0 is no ID
    }
    CCDSLogging::logWarning("CCDSWork::CCDSWork() - 0x%08X, id - 0x%08X", cdsIdentity(pWork.get()), pWork->m_dwID);
    return pWork->m_dwID;
}

CCDSWork* CCDSNetProxy::getCCDSWork(unsigned long ulID)
{
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    const auto it = m_mapWork.find(static_cast<std::uint32_t>(ulID));
    return it != m_mapWork.end() ? it->second.get() : nullptr;
}

void CCDSNetProxy::removeCCDSWork(unsigned long ulID)
{
    std::shared_ptr<CCDSWork> pHeld; // goes outside the lock
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    const auto it = m_mapWork.find(static_cast<std::uint32_t>(ulID));
    if (it == m_mapWork.end())
        return;
    pHeld = std::move(it->second);
    m_mapWork.erase(it);
}

void CCDSNetProxy::enqueueCCDSWork(const std::shared_ptr<CCDSWork>& pWork, EWorkOp eOp)
{
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        appendToQueue(*pWork, eOp);
    }
    m_evWork.set();
}

void CCDSNetProxy::appendToQueue(CCDSWork& work, EWorkOp eOp)
{
    if (work.m_lstQueueEntry.empty())
        work.m_lstQueueEntry.emplace_back();
    work.m_nOp = eOp;
    work.m_lstQueueEntry.front() = {work.m_dwID, 0};
    m_lstWorkQueue.splice(m_lstWorkQueue.end(), work.m_lstQueueEntry, work.m_lstQueueEntry.begin());
}

CCDSNetProxy::SQueued CCDSNetProxy::nextWork()
{
    SQueued queued;
    CCDSWork::CQueue lstEntry; // a node that nobody takes back goes outside the lock
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    if (m_lstWorkQueue.empty())
        return queued;
    lstEntry.splice(lstEntry.begin(), m_lstWorkQueue, m_lstWorkQueue.begin());
    queued.dwID = lstEntry.front().first;
    const auto it = m_mapWork.find(queued.dwID);
    if (it == m_mapWork.end())
        return queued;
    queued.pWork = it->second;
    queued.nOp = queued.pWork->m_nOp;
    queued.response = std::exchange(queued.pWork->m_response, {});
    if (queued.pWork->m_lstQueueEntry.empty())
        queued.pWork->m_lstQueueEntry.swap(lstEntry);
    return queued;
}

bool CCDSNetProxy::isAwaited(unsigned long ulRequestID)
{
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    const auto it = m_mapWork.find(static_cast<std::uint32_t>(ulRequestID));
    return it != m_mapWork.end() && it->second->m_bHandedToChannel;
}

/// Hands an exchange's end to the worker. An older response that the worker has not seen yet is replaced.
void CCDSNetProxy::postResponse(unsigned long ulRequestID, EWorkOp eOp, SWorkResponse response)
{
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        const auto it = m_mapWork.find(static_cast<std::uint32_t>(ulRequestID));
        if (it == m_mapWork.end() || !it->second->m_bHandedToChannel)
            return;
        appendToQueue(*it->second, eOp);
        std::swap(it->second->m_response, response); // the older one goes outside the lock
    }
    m_evWork.set();
}

/// Has what came in on connections that are gone end without being handled: a registration would outlive its peer, and
/// every request has failed for its sender.
void CCDSNetProxy::dropLeftOvers()
{
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    for (const auto& [dwID, dwUnused] : m_lstWorkQueue)
    {
        const auto it = m_mapWork.find(dwID);
        if (it != m_mapWork.end() && it->second->m_nOp >= WT_OP_SERVER_CLIENTCONNECTED &&
            it->second->m_nOp <= WT_OP_CLIENT_SERVERCONNECTED)
            it->second->m_nOp = WT_OP_NONE;
    }
}

/// Ends the exchanges whose responses will not come any more, since the channel that they were sent on is gone.
void CCDSNetProxy::failUnanswered()
{
    const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
    std::map<std::uint32_t, CCDSWork*> mapUnanswered; // ID -> item: in the order they were made
    for (const auto& [dwID, pWork] : m_mapWork)
        if (pWork->m_bHandedToChannel && !pWork->m_lstQueueEntry.empty())
            mapUnanswered.emplace(dwID, pWork.get());
    for (const auto& [dwID, pWork] : mapUnanswered)
    {
        pWork->m_response = {nullptr, 0, E_CDS_NOCHANNEL};
        appendToQueue(*pWork, WT_OP_CLIENT_RECEIVERESPONSE);
    }
}

void CCDSNetProxy::endWork(const std::shared_ptr<CCDSWork>& pWork)
{
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        const auto it = m_mapWork.find(pWork->m_dwID);
        if (it == m_mapWork.end() || it->second != pWork)
            return;
        m_mapWork.erase(it); // the caller's reference is left
    }
    if (pWork->m_eKind == WORK_KIND_SEND_CLIENT_UNREGISTER && pWork->m_pMsg != nullptr)
        dropUnusedClientCall(*pWork->m_pMsg);
}

long CCDSNetProxy::queueSend(CCDSWork* pWork)
{
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        appendToQueue(*pWork, WT_OP_CLIENT_SENDREQUEST);
    }
    m_evWork.set();
    return 0;
}

long CCDSNetProxy::sendRequest(CCDSWork* pWork)
{
    CCDSLogging::logWarning("CCDSNetProxy::sendRequest, ipaddr 0x%08X", pWork->m_dwServer);
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        pWork->m_bHandedToChannel = true;
    }
    noteAsked(*pWork, true);
    const std::uint64_t ullEpoch = m_serverStates.epoch(pWork->m_dwServer);
    const auto pChannel = clientChannel();
    long lResult = E_CDS_NOCHANNEL;
    for (int nAttempt = 0; pChannel != nullptr && nAttempt < cAttempts; ++nAttempt)
    {
        lResult = cdsResult(static_cast<unsigned long>(pChannel->sendRequest(
            pWork->m_dwID, pWork->m_dwServer, 0, pWork->m_sRequest.c_str(),
            static_cast<unsigned long>(pWork->m_sRequest.size()) + 1, cSendFlags, cExchangeSeconds)));
        if (lResult >= 0)
            return lResult; // whoever gets the response may have ended the item already
        const auto dwCode = static_cast<std::uint32_t>(lResult);
        if (dwCode != CMLIB_TRANSIENT_FAILURE && dwCode != CMLIB_NOTHING)
            break;
        CPortable::Sleep(cRetryMs); // after the last attempt too
    }
    noteAsked(*pWork, false);
    if (cdsFailedByMessage(lResult)) // no event would make the peer reachable again
        CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::sendRequest, %s bytes, ipaddr 0x%08X",
                                std::to_string(pWork->m_sRequest.size() + 1).c_str(), pWork->m_dwServer);
    else
        m_serverStates.setUnreachable(pWork->m_dwServer, ullEpoch);
    return lResult;
}

long CCDSNetProxy::sendResponse(CCDSWork* pWork)
{
    CCDSLogging::logWarning("CCDSNetProxy::sendResponse, ipaddr 0x%08X", pWork->m_dwPeer);
    const auto pChannel = serverChannel();
    if (pChannel == nullptr)
        return E_CDS_NOCHANNEL;
    return cdsResult(static_cast<unsigned long>(
        pChannel->sendResponse(pWork->m_dwPeer, pWork->m_ulContext1, pWork->m_ulContext2, pWork->m_sAnswer.c_str(),
                               static_cast<unsigned long>(pWork->m_sAnswer.size()) + 1, cSendFlags)));
}

void CCDSNetProxy::queueServerEvent(EWorkOp eOp, unsigned long ulPeer)
{
    const auto pWork = newWork();
    if (pWork == nullptr)
        return;
    pWork->m_dwPeer = static_cast<std::uint32_t>(ulPeer);
    pWork->m_ullCharge = cItemBytes;
    m_receiveBudget.take(pWork->m_ullCharge);
    enqueueCCDSWork(pWork, eOp);
}

void CCDSNetProxy::queueClientConnected(unsigned long ulPeer, bool bLost)
{
    const auto pWork = newWork();
    if (pWork == nullptr)
        return;
    pWork->m_dwServer = static_cast<std::uint32_t>(ulPeer);
    pWork->m_bLost = bLost;
    enqueueCCDSWork(pWork, WT_OP_CLIENT_SERVERCONNECTED);
}

void CCDSNetProxy::queueRequest(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2,
                                CMessageBytes pBuffer, unsigned long ulSize)
{
    const auto pWork = newWork();
    if (pWork == nullptr)
        return; // the buffer goes, and the peer's exchange times out
    pWork->m_dwPeer = static_cast<std::uint32_t>(ulPeer);
    pWork->m_ulContext1 = ulContext1;
    pWork->m_ulContext2 = ulContext2;
    pWork->m_pInBuf = std::move(pBuffer);
    pWork->m_dwInLen = static_cast<std::uint32_t>(ulSize);
    pWork->m_ullCharge = cItemBytes + ulSize;
    m_receiveBudget.take(pWork->m_ullCharge);
    enqueueCCDSWork(pWork, WT_OP_SERVER_RECEIVEREQUEST);
}
