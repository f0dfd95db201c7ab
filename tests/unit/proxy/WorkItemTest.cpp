// Work items: their table, their queue, and how they are sent.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned long cPeer = 0x0A000002UL;

/// A message that registers for a call.
CSharedMessage someMessage()
{
    return cdsHoldMessage(
        new CCallbackMsg(0UL, "an id", ccbr_registration,
                         new CRegistrationData("an id", "10.0.0.2", "sip:1", true, CCDSTimestamp(0, 0)), 0xFFFFFFFFUL));
}

class WorkItemTest : public testing::Test
{
protected:
    CCDSNetProxy& proxy() { return m_server.proxy(); }
    void startsSendingDirectly()
    {
        CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
        m_server.starts();
    }
    /// A new item that is about to be sent.
    std::shared_ptr<CCDSWork> itemToSend()
    {
        auto pWork = proxy().newWork();
        pWork->m_pMsg = someMessage();
        return pWork;
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(WorkItemTest, ANewItemIsEmpty)
{
    const auto pWork = proxy().newWork();
    EXPECT_EQ(pWork->m_pProxy, &proxy());
    EXPECT_EQ(pWork->m_eKind, WORK_KIND_NONE);
    EXPECT_EQ(pWork->m_pMsg, nullptr);
    EXPECT_EQ(pWork->m_dwServer, 0U);
    EXPECT_EQ(pWork->m_dwPeer, 0U);
    EXPECT_EQ(pWork->m_sRequest, "");
    EXPECT_EQ(pWork->m_pInBuf, nullptr);
    EXPECT_EQ(pWork->m_dwInLen, 0U);
    EXPECT_EQ(pWork->m_sAnswer, "");
}

TEST_F(WorkItemTest, IDsCountFromOne)
{
    EXPECT_EQ(proxy().newWork()->m_dwID, 1U);
    EXPECT_EQ(proxy().newWork()->m_dwID, 2U);
    EXPECT_EQ(proxy().newWork()->m_dwID, 3U);
}

TEST_F(WorkItemTest, AnItemIsFoundUntilItIsTakenOut)
{
    const auto pWork = proxy().newWork();
    EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), pWork.get());
    EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), pWork.get());
    proxy().removeCCDSWork(pWork->m_dwID);
    EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), nullptr);
    EXPECT_FALSE(CFakeLog::contains("CCDSWork::~CCDSWork()")); // it lives while it is held
}

TEST_F(WorkItemTest, UnknownIDsAreHarmless)
{
    EXPECT_EQ(proxy().getCCDSWork(4711), nullptr);
    proxy().removeCCDSWork(4711);
}

TEST_F(WorkItemTest, BeginAndEndAreTraced)
{
    auto pWork = proxy().newWork();
    const std::string sAddress = identity(pWork.get());
    EXPECT_EQ(CFakeLog::countExactly("CCDSWork::CCDSWork() - " + sAddress + ", id - 0x00000001"), 1U);
    pWork->m_eKind = WORK_KIND_SEND_CLIENT_CALLDATA;
    proxy().endWork(pWork);
    pWork.reset();
    EXPECT_EQ(CFakeLog::countExactly("CCDSWork::~CCDSWork() - " + sAddress + ", id - 0x00000001, kind 1"), 1U);
}

TEST_F(WorkItemTest, AnEndedItemIsOutOfTheTable)
{
    const auto pWork = proxy().newWork();
    proxy().endWork(pWork);
    EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), nullptr);
    proxy().endWork(pWork); // twice does no harm
}

TEST_F(WorkItemTest, AnItemFreesItsMessageWithItsPayload)
{
    CFakeLog::clear();
    auto pWork = proxy().newWork();
    CNews news("sip:1");
    CCallbackMsg original(0UL, "id", ccbr_calldata, news.data(), 0);
    pWork->m_pMsg = cdsHoldMessage(original.clone());
    proxy().endWork(pWork);
    pWork.reset();
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc: 0x"), CFakeLog::countContaining("CCallData Free: 0x") + 1);
}

TEST_F(WorkItemTest, AMessageThatSomebodyElseKeepsStays)
{
    const CSharedMessage pMsg = someMessage();
    auto pWork = proxy().newWork();
    pWork->m_eKind = WORK_KIND_SEND_CLIENT_CDRDATA;
    pWork->m_pMsg = pMsg;
    proxy().endWork(pWork);
    pWork.reset();
    EXPECT_EQ(pMsg->getRegID(), "an id");
}

TEST_F(WorkItemTest, ItemsAreHandledInTheOrderTheyAreQueued)
{
    m_server.starts();
    CFakeLog::clear();
    std::vector<std::string> vecExpected;
    for (int nItem = 0; nItem < 20; ++nItem)
    {
        const auto pWork = proxy().newWork();
        pWork->m_dwPeer = static_cast<std::uint32_t>(nItem);
        vecExpected.push_back("WT_OP_SERVER_CLIENTCONNECTED - " + identity(pWork.get()) + ", ipaddr " +
                              identity(reinterpret_cast<const void*>(static_cast<std::uintptr_t>(nItem))));
        proxy().enqueueCCDSWork(pWork, WT_OP_SERVER_CLIENTCONNECTED);
    }
    CProxyWorld::settle();
    auto vecTexts = CFakeLog::texts();
    std::erase_if(vecTexts, [](const std::string& sText) { return sText.find("WT_OP_") == std::string::npos; });
    EXPECT_EQ(vecTexts, vecExpected);
}

TEST_F(WorkItemTest, AQueuedIDWithoutItemIsToldOnce)
{
    m_server.starts();
    const auto pWork = proxy().newWork();
    proxy().removeCCDSWork(pWork->m_dwID);
    CFakeLog::clear();
    proxy().enqueueCCDSWork(pWork, WT_OP_DUMP);
    CProxyWorld::settle();
    EXPECT_THAT(CFakeLog::texts(),
                ElementsAre("CCDSNetProxy::workerThread - pwork is NULL, id - " + std::to_string(pWork->m_dwID)));
}

TEST_F(WorkItemTest, UnknownOperationsEndTheItem)
{
    m_server.starts();
    for (const int nOp : {0, 6, 11, 12, 4711})
    {
        const auto pWork = proxy().newWork();
        proxy().enqueueCCDSWork(pWork, static_cast<EWorkOp>(nOp));
        CProxyWorld::settle();
        EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), nullptr) << nOp;
    }
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_SERVERDISCONNECTED - 0x"), 1U);
}

TEST_F(WorkItemTest, TheWorkerSaysThatItStartsAndStops)
{
    m_server.starts();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::workerThread - starting"), 1U);
    m_server.stops();
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::workerThread - stopping"), 1U);
}

// Requests.

TEST_F(WorkItemTest, ARequestIsTheMessageInAListWithItsTerminator)
{
    m_server.starts();
    const auto pWork = itemToSend();
    EXPECT_GE(pWork->clientReqSendCallbackMsg(cPeer), 0);
    CProxyWorld::settle();
    std::string sMessage;
    ASSERT_EQ(someMessage()->serialize(&sMessage), 0);
    const auto vecSent = CFakeChannels::sent();
    ASSERT_EQ(vecSent.size(), 1U);
    EXPECT_EQ(vecSent[0].sBytes, "26;NETREQ_CLIENT_CCALLBACKMSG;" + std::to_string(sMessage.size()) + ";" + sMessage +
                                     std::string(1, '\0'));
}

TEST_F(WorkItemTest, TheChannelGetsTheItemsID)
{
    m_server.starts();
    const auto pWork = itemToSend();
    EXPECT_GE(pWork->clientReqSendCallbackMsg(cPeer), 0);
    CProxyWorld::settle();
    const auto vecSent = CFakeChannels::sent();
    ASSERT_EQ(vecSent.size(), 1U);
    EXPECT_EQ(vecSent[0].ulRequestID, pWork->m_dwID);
    EXPECT_EQ(vecSent[0].ulPeer, cPeer);
    EXPECT_EQ(vecSent[0].ulReserved, 0U);
    EXPECT_EQ(vecSent[0].ulFlags, 0x40000000U);
    EXPECT_EQ(vecSent[0].ulTimeout, 30U);
}

TEST_F(WorkItemTest, ARequestIsTracedWithItsReason)
{
    m_server.starts();
    const auto pWork = itemToSend();
    (void)pWork->clientReqSendCallbackMsg(cPeer);
    EXPECT_EQ(CFakeLog::countExactly("CCDSWork::clientReqSendCallbackMsg, svr=0x0A000002, regid=an id, callid=sip:1, "
                                     "reason=ccbr_registration"),
              1U);
    const auto pData = proxy().newWork();
    CNews news("sip:2");
    CCallbackMsg original(0UL, "data id", ccbr_calldata, news.data(), 0);
    pData->m_pMsg = cdsHoldMessage(original.clone());
    (void)pData->clientReqSendCallbackMsg(cPeer);
    EXPECT_EQ(CFakeLog::countExactly("CCDSWork::clientReqSendCallbackMsg, svr=0x0A000002, regid=data id, callid=sip:2, "
                                     "reason=ccbr_calldata"),
              1U);
    const auto pCdr = proxy().newWork();
    CCallbackMsg cdr(0UL, "", ccbr_cdrcalldata, news.data(), 0);
    pCdr->m_pMsg = cdsHoldMessage(cdr.clone());
    (void)pCdr->clientReqSendCallbackMsg(cPeer);
    EXPECT_EQ(CFakeLog::countExactly(
                  "CCDSWork::clientReqSendCallbackMsg, svr=0x0A000002, regid=, callid=sip:2, reason=ccbr_cdrcalldata"),
              1U);
    CProxyWorld::settle();
}

TEST_F(WorkItemTest, TheWorkerSends)
{
    m_server.starts();
    std::thread::id idSender;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent&) { idSender = std::this_thread::get_id(); });
    EXPECT_GE(itemToSend()->clientReqSendCallbackMsg(cPeer), 0);
    CProxyWorld::settle();
    EXPECT_NE(idSender, std::this_thread::get_id());
    EXPECT_NE(idSender, std::thread::id());
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_SENDREQUEST - 0x"), 1U);
}

TEST_F(WorkItemTest, TheCallerSendsWhenSoConfigured)
{
    startsSendingDirectly();
    std::thread::id idSender;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent&) { idSender = std::this_thread::get_id(); });
    EXPECT_EQ(itemToSend()->clientReqSendCallbackMsg(cPeer), 0);
    EXPECT_EQ(idSender, std::this_thread::get_id());
    EXPECT_FALSE(CFakeLog::contains("WT_OP_CLIENT_SENDREQUEST"));
}

TEST_F(WorkItemTest, ADirectSendGivesTheChannelsResult)
{
    startsSendingDirectly();
    CFakeChannels::scriptSends({7, 0xC1200D55U});
    EXPECT_EQ(itemToSend()->clientReqSendCallbackMsg(cPeer), 7);
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(cdsResult(0xC1200D55UL)));
}

TEST_F(WorkItemTest, ASentItemWaitsForItsResponse)
{
    m_server.starts();
    const auto pWork = itemToSend();
    (void)pWork->clientReqSendCallbackMsg(cPeer);
    CProxyWorld::settle();
    EXPECT_NE(proxy().getCCDSWork(pWork->m_dwID), nullptr);
}

TEST_F(WorkItemTest, AnUnsentItemEndsWithTheSendsResult)
{
    m_server.starts();
    CFakeChannels::setSendResult(0xC1200D55U);
    const auto pWork = itemToSend();
    (void)pWork->clientReqSendCallbackMsg(cPeer);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly(
                  "(Error) CCDSNetProxy::workerThread (client), WT_OP_CLIENT_SENDREQUEST failed: 0xC1200D55"),
              1U);
    EXPECT_EQ(CFakeLog::countContaining("WT_OP_CLIENT_RECEIVERESPONSE - 0x"), 1U);
    EXPECT_EQ(proxy().getCCDSWork(pWork->m_dwID), nullptr);
}

TEST_F(WorkItemTest, TransientFailuresAreTriedAgain)
{
    startsSendingDirectly();
    CFakeChannels::scriptSends({CMLIB_TRANSIENT_FAILURE, CMLIB_NOTHING, 0});
    EXPECT_EQ(itemToSend()->clientReqSendCallbackMsg(cPeer), 0);
    EXPECT_EQ(CFakeChannels::sent().size(), 3U);
    EXPECT_THAT(CFakeClock::sleeps(), ElementsAre(200UL, 200UL));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::sendRequest, ipaddr 0x0A000002"), 1U);
    EXPECT_THAT(proxy().serverStates().all(), ElementsAre(std::pair(static_cast<std::uint32_t>(cPeer), 1)));
}

TEST_F(WorkItemTest, FiveTransientFailuresAreOneFailure)
{
    startsSendingDirectly();
    CFakeChannels::setSendResult(CMLIB_TRANSIENT_FAILURE);
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(cdsResult(CMLIB_TRANSIENT_FAILURE)));
    EXPECT_EQ(CFakeChannels::sent().size(), 5U);
    EXPECT_THAT(CFakeClock::sleeps(), ElementsAre(200UL, 200UL, 200UL, 200UL, 200UL));
    EXPECT_THAT(proxy().serverStates().all(), ElementsAre(std::pair(static_cast<std::uint32_t>(cPeer), 0)));
}

TEST_F(WorkItemTest, AFullQueueIsTriedAgainAsOften)
{
    startsSendingDirectly();
    CFakeChannels::setSendResult(CMLIB_NOTHING);
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(cdsResult(CMLIB_NOTHING)));
    EXPECT_EQ(CFakeClock::sleeps().size(), 5U);
}

TEST_F(WorkItemTest, AnyOtherFailureIsFinal)
{
    startsSendingDirectly();
    CFakeChannels::setSendResult(0xC1200D55U);
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(cdsResult(0xC1200D55UL)));
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    EXPECT_THAT(CFakeClock::sleeps(), IsEmpty());
    EXPECT_THAT(proxy().serverStates().all(), ElementsAre(std::pair(static_cast<std::uint32_t>(cPeer), 0)));
}

TEST_F(WorkItemTest, AMessageThatCannotBeSentSaysNothingOfItsPeer)
{
    startsSendingDirectly();
    for (const std::uint32_t dwResult : {CMLIB_TOO_LARGE, CMLIB_NO_MEMORY})
    {
        CFakeLog::clear();
        CFakeChannels::scriptSends({dwResult});
        EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(cdsResult(dwResult)));
        EXPECT_EQ(CFakeLog::countContaining("(Error) CCDSNetProxy::sendRequest, "), 1U);
        EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), IsOk());
    }
    EXPECT_EQ(CFakeChannels::sent().size(), 4U);
}

TEST_F(WorkItemTest, AnUnreachableServerIsNotTried)
{
    m_server.starts();
    proxy().serverStates().set(static_cast<std::uint32_t>(cPeer), 0);
    CFakeLog::clear();
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(E_CDS_SERVERUNREACHABLE));
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    EXPECT_FALSE(CFakeLog::contains("clientReqSendCallbackMsg"));
}

TEST_F(WorkItemTest, AConnectionEventMakesAServerReachableAgain)
{
    m_server.starts();
    proxy().serverStates().set(static_cast<std::uint32_t>(cPeer), 0);
    CFakeChannels::clientReceives(CMLIB_CLIENT_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_GE(itemToSend()->clientReqSendCallbackMsg(cPeer), 0);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
}

TEST_F(WorkItemTest, AMessageTooLongForAnElementIsNotSent)
{
    m_server.starts();
    const auto pWork = proxy().newWork();
    pWork->m_pMsg = cdsHoldMessage(new CCallbackMsg(
        0UL, "id", ccbr_registration,
        new CRegistrationData("id", "10.0.0.2", std::string(999996, 'x'), true, CCDSTimestamp(0, 0)), 0));
    EXPECT_EQ(pWork->clientReqSendCallbackMsg(cPeer), 0); // the element is refused and left out, the message is small
    const auto pLong = proxy().newWork();
    pLong->m_pMsg = cdsHoldMessage(new CCallbackMsg(
        0UL, std::string(600000, 'r'), ccbr_registration,
        new CRegistrationData(std::string(600000, 'r'), "10.0.0.2", "sip:1", true, CCDSTimestamp(0, 0)), 0));
    EXPECT_THAT(pLong->clientReqSendCallbackMsg(cPeer), FailsWith(E_FAIL));
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
}

TEST_F(WorkItemTest, WithoutAChannelNothingIsSent)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.starts();
    m_server.stops();
    EXPECT_THAT(itemToSend()->clientReqSendCallbackMsg(cPeer), FailsWith(E_CDS_NOCHANNEL));
    EXPECT_THAT(proxy().newWork()->serverRspSendStatus(0), FailsWith(E_CDS_NOCHANNEL));
}

TEST_F(WorkItemTest, AResponseThatComesWhileTheRequestIsBeingSentEndsTheItemOnce)
{
    for (const unsigned long ulSetting : {0UL, 1UL})
    {
        SCOPED_TRACE(ulSetting);
        CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", ulSetting);
        m_server.starts();
        CFakeChannels::whileSending([&](const CFakeChannels::CSent& sent) {
            CFakeChannels::confirm(sent.ulRequestID);
            EXPECT_TRUE(CFakeChannels::awaitReceivers());
            if (ulSetting == 0)
                CProxyWorld::settle(); // the worker has ended the item already
        });
        auto pWork = itemToSend();
        const std::uint32_t dwID = pWork->m_dwID;
        EXPECT_GE(pWork->clientReqSendCallbackMsg(cPeer), 0);
        pWork.reset();
        CProxyWorld::settle();
        EXPECT_EQ(proxy().getCCDSWork(dwID), nullptr);
        m_server.stops();
    }
    EXPECT_EQ(CFakeLog::countContaining("CCDSWork::CCDSWork() - 0x"),
              CFakeLog::countContaining("CCDSWork::~CCDSWork() - 0x"));
}

// Answers.

TEST_F(WorkItemTest, TheStatusIsAlwaysZero)
{
    m_server.starts();
    for (const long lStatus : {0L, 5L, E_FAIL})
    {
        const auto pWork = proxy().newWork();
        pWork->m_dwPeer = static_cast<std::uint32_t>(cPeer);
        pWork->m_ulContext1 = 11;
        pWork->m_ulContext2 = 12;
        EXPECT_THAT(pWork->serverRspSendStatus(lStatus), IsOk());
    }
    const auto vecAnswers = CFakeChannels::answers();
    ASSERT_EQ(vecAnswers.size(), 3U);
    for (const auto& answer : vecAnswers)
    {
        EXPECT_EQ(answer.sBytes, std::string("20;NETRSP_CLIENT_STATUS;1;0\0", 28));
        EXPECT_EQ(answer.ulPeer, cPeer);
        EXPECT_EQ(answer.ulContext1, 11U);
        EXPECT_EQ(answer.ulContext2, 12U);
        EXPECT_EQ(answer.ulFlags, 0x40000000U);
    }
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::sendResponse, ipaddr 0x0A000002"), 3U);
}

TEST_F(WorkItemTest, AnAnswerThatFailsIsTold)
{
    m_server.starts();
    CFakeChannels::setAnswerResult(0xC1200D66U);
    const auto pWork = proxy().newWork();
    pWork->m_dwPeer = static_cast<std::uint32_t>(cPeer);
    EXPECT_THAT(pWork->serverRspSendStatus(0), FailsWith(cdsResult(0xC1200D66UL)));
    EXPECT_EQ(
        CFakeLog::countExactly("(Error) CCDSWork::serverRspSendStatus, sendResponse - 0x0A000002 failed: 0xC1200D66"),
        1U);
}

TEST_F(WorkItemTest, TheLockOfTheWorkTableIsALeaf)
{
    CFakeLocks::record(true);
    m_server.beginsAgain();
    const void* const pWorkLock = CFakeLocks::creations().at(2).pLock; // made third
    m_server.starts();
    m_server.registers("ann", "sip:1", "10.0.0.2");
    CFakeChannels::request("10.0.0.2", registrationRequest("id", "10.0.0.1", "sip:2"));
    CProxyWorld::settle();
    m_server.stops();
    std::map<std::thread::id, bool> mapHeld;
    for (const auto& entry : CFakeLocks::entries())
    {
        EXPECT_FALSE(mapHeld[entry.idThread] && entry.bEnter) << entry.sName;
        if (entry.pLock == pWorkLock)
            mapHeld[entry.idThread] = entry.bEnter;
    }
    CFakeLocks::record(false);
}

} // namespace
