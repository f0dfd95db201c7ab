// CDRs on their way: how they are sent, what keeps them, what ends them.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr const char* cQuarters = "10.0.0.9";
constexpr unsigned long cQuartersAddress = 0x0A000009UL;
constexpr std::uint32_t cExpired = 0x81170A31U;

class CdrCacheTest : public testing::Test
{
protected:
    CCDSNetProxy& proxy() { return m_server.proxy(); }
    /// A record of this many bytes.
    static CNews ofSize(const std::string& sCallID, std::size_t uBytes)
    {
        return std::move(CNews(sCallID).sets("CALLERID", std::string(uBytes, 'x')));
    }
    /// Hands a CDR over, and has the worker deal with it.
    void hands(const CNews& news, const std::string& sDestination = cQuarters)
    {
        ASSERT_THAT(queues(news, sDestination), IsOk());
        CProxyWorld::settle();
    }
    long queues(const CNews& news, const std::string& sDestination = cQuarters)
    {
        std::string sCallID;
        EXPECT_GE(news.data()->getCallID(&sCallID), 0);
        return m_server.store().SendCDRDataToHQ(sDestination, sCallID, news.data());
    }
    bool isWaiting(const std::string& sCallID) { return proxy().findCDRCallDataByCallID(sCallID); }
    static unsigned long requestOf(std::size_t uSent) { return CFakeChannels::sent().at(uSent).ulRequestID; }
    /// The exchange of the n-th request ends.
    static void acknowledges(std::size_t uSent)
    {
        CFakeChannels::confirm(requestOf(uSent));
        CProxyWorld::settle();
    }
    static void fails(std::size_t uSent)
    {
        CFakeChannels::response(requestOf(uSent), CFakeChannels::cConnectionLost, nullptr, cQuarters);
        CProxyWorld::settle();
    }
    static void clientConnects(const char* pszPeer = cQuarters, std::uint32_t dwEvent = CMLIB_CLIENT_CONNECTED)
    {
        CFakeChannels::clientReceives(dwEvent, pszPeer);
        CProxyWorld::settle();
    }
    /// The calls that operators were told of.
    static std::vector<std::string> expired()
    {
        std::vector<std::string> vecCalls;
        for (const auto& event : CFakeLog::events())
        {
            EXPECT_EQ(event.dwEventID, cExpired);
            EXPECT_EQ(event.vecStrings.size(), 2U);
            EXPECT_EQ(event.vecStrings.at(1), "");
            vecCalls.push_back(event.vecStrings.at(0));
        }
        return vecCalls;
    }
    /// Lines of one operation, addresses left out.
    static std::vector<std::string> linesOf(const std::string& sOperation)
    {
        std::vector<std::string> vecLines;
        for (std::string sText : CFakeLog::texts())
        {
            if (sText.rfind(sOperation + ":", 0) != 0)
                continue;
            for (auto uAt = sText.find("=0x"); uAt != std::string::npos; uAt = sText.find("=0x", uAt + 1))
                sText.erase(uAt + 3, 8);
            vecLines.push_back(sText);
        }
        return vecLines;
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(CdrCacheTest, ACdrIsSentToItsDestination)
{
    m_server.starts();
    hands(CNews("sip:1").sets("CALLERID", "alice").appends("CONNECT_ENTRY", "yes"));
    ASSERT_THAT(sentInShort(), ElementsAre("10.0.0.9 : sip:1 CALLERID=alice CONNECT_ENTRY+yes"));
    const CRequest request = takenApart(CFakeChannels::sent().at(0).sBytes.c_str());
    EXPECT_EQ(request.sTraceID, "0");
    EXPECT_EQ(request.sRegID, "");
    EXPECT_EQ(request.sReason, "3");
    EXPECT_TRUE(isWaiting("sip:1"));
}

TEST_F(CdrCacheTest, WhatTheCallerDoesLaterIsNotSent)
{
    m_server.starts();
    CNews news("sip:1");
    news.sets("CALLERID", "alice");
    ASSERT_THAT(queues(news), IsOk());
    news.sets("CALLERID", "bob");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.9 : sip:1 CALLERID=alice"));
    EXPECT_EQ(describe(*news.data()), "sip:1 CALLERID=bob"); // still the caller's
}

TEST_F(CdrCacheTest, EveryStepIsTraced)
{
    m_server.starts();
    CFakeLog::clear();
    hands(CNews("sip:1").sets("CALLERID", "abc").sets("CALLEDID", "defgh"));
    EXPECT_THAT(linesOf("addCDRCallData"), ElementsAre("addCDRCallData: pcallbackmsg=0x,pcalldata=0x",
                                                       "addCDRCallData: Adding call data sip:1 of size 8 bytes to CDS.",
                                                       "addCDRCallData: Total CDR cache size = 8 bytes.",
                                                       "addCDRCallData: Total number of CDR in cache = 1 .",
                                                       "addCDRCallData: pCDRCallData=0x,pcallBackMsg=0x,pCallData=0x"));
    EXPECT_LT(placeInLog("addCDRCallData: pCDRCallData="), placeInLog("CCDSWork::clientReqSendCallbackMsg, svr="));
    EXPECT_FALSE(CFakeLog::contains("addCDRCallData failed")); // nor "addCDRCallData, work - ... failed"
}

TEST_F(CdrCacheTest, AnAcknowledgedCdrGoes)
{
    m_server.starts();
    hands(ofSize("sip:1", 5));
    hands(ofSize("sip:2", 7));
    CFakeLog::clear();
    acknowledges(0);
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
    EXPECT_EQ(CFakeLog::countContaining("WORK_KIND_SEND_CLIENT_CDRDATA - 0x"), 1U);
    EXPECT_THAT(linesOf("removeSentCDRCallData"),
                ElementsAre("removeSentCDRCallData: "
                            "pCDRCallData=0x,pcallBackMsg=0x,pCallData=0x,CallID=\"sip:1\" sent to 10.0.0.9",
                            "removeSentCDRCallData: Removing call data sip:1 of size 5 bytes to CDS.",
                            "removeSentCDRCallData: Total CDR cache size = 7 bytes."));
    EXPECT_THAT(expired(), IsEmpty());
}

TEST_F(CdrCacheTest, TheSecondCdrOfACallIsRefusedWhileTheFirstWaits)
{
    m_server.starts();
    hands(ofSize("sip:1", 5));
    CFakeLog::clear();
    hands(ofSize("sip:1", 500));
    EXPECT_THAT(CFakeLog::find("addCDRCallData, work - "),
                MatchesRegex(".*CCDSNetProxy::workerThread, addCDRCallData, work - 0x[0-9A-F]{8} failed: 0x80004005"));
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    EXPECT_FALSE(CFakeLog::contains("Adding call data"));
    // The message, its payload and their copies: nothing made here is left.
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc: 0x"), CFakeLog::countContaining("CCallData Free: 0x"));
    acknowledges(0);
    hands(ofSize("sip:1", 6));
    EXPECT_EQ(CFakeChannels::sent().size(), 2U);
}

TEST_F(CdrCacheTest, ARefusedSecondCdrEvictsNothing)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(100);
    hands(ofSize("sip:1", 50));
    hands(ofSize("sip:2", 50));
    hands(ofSize("sip:1", 50));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, CallsAreToldApartByCase)
{
    m_server.starts();
    hands(ofSize("sip:a", 5));
    hands(ofSize("sip:A", 5));
    EXPECT_EQ(CFakeChannels::sent().size(), 2U);
}

TEST_F(CdrCacheTest, TheOneThatCameLastIsEvicted)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(1000);
    hands(ofSize("sip:1", 400));
    hands(ofSize("sip:2", 400));
    CFakeLog::clear();
    hands(ofSize("sip:3", 400));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_FALSE(isWaiting("sip:2"));
    EXPECT_TRUE(isWaiting("sip:3"));
    EXPECT_THAT(
        linesOf("removeOldestCDRCallData"),
        ElementsAre("removeOldestCDRCallData: pCDRCallData=0x,pcallBackMsg=0x,CallID=\"sip:2\" sent to 10.0.0.9",
                    "removeOldestCDRCallData: Removing call data sip:2 of size 400 bytes to CDS.",
                    "removeOldestCDRCallData: Total CDR cache size = 400 bytes."));
    EXPECT_EQ(CFakeLog::countExactly("addCDRCallData: Total CDR cache size = 800 bytes."), 1U);
}

TEST_F(CdrCacheTest, AsManyAreEvictedAsItTakes)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(1000);
    for (const char* const pszCall : {"sip:1", "sip:2", "sip:3", "sip:4"})
        hands(ofSize(pszCall, 250));
    hands(ofSize("sip:5", 600));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_FALSE(isWaiting("sip:2"));
    EXPECT_FALSE(isWaiting("sip:3"));
    EXPECT_FALSE(isWaiting("sip:4"));
    EXPECT_TRUE(isWaiting("sip:5"));
}

TEST_F(CdrCacheTest, ACacheThatIsExactlyFullEvictsNothing)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(1000);
    hands(ofSize("sip:1", 400));
    hands(ofSize("sip:2", 600));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
    hands(ofSize("sip:3", 1));
    EXPECT_FALSE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, ASmallerLimitEvictsWithTheNextCdr)
{
    m_server.starts();
    hands(ofSize("sip:1", 400));
    hands(ofSize("sip:2", 400));
    CFakeLog::clear();
    m_server.store().SetCDRDataCacheSize(500);
    EXPECT_TRUE(isWaiting("sip:2"));
    EXPECT_LT(placeInLog("SetCDRDataCacheSize: CDRDataCacheSize=500"),
              placeInLog("SetCDRDataCacheSize: Max CDR cache size= 500 bytes."));
    hands(ofSize("sip:3", 1));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_FALSE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, ALimitOfAllOnesOrMoreIsNone)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(10);
    m_server.store().SetCDRDataCacheSize(~0UL);
    hands(ofSize("sip:1", 4000));
    hands(ofSize("sip:2", 4000));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, OneThatNeverFitsHoldsTheWorkerUntilTheLimitIsRaised)
{
    m_server.starts();
    hands(ofSize("sip:1", 40));
    m_server.store().SetCDRDataCacheSize(100);
    ASSERT_THAT(queues(ofSize("sip:2", 101)), IsOk());
    ASSERT_THAT(queues(ofSize("sip:3", 5)), IsOk());
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 200));
    EXPECT_EQ(CFakeLog::countContaining("Removing call data sip:1 of"), 1U); // everything has made room
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    CFakeClock::advance(200);
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 200)); // still there
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    m_server.store().SetCDRDataCacheSize(1000);
    CProxyWorld::settle();
    EXPECT_TRUE(isWaiting("sip:2"));
    EXPECT_TRUE(isWaiting("sip:3")); // what was queued meanwhile is not forgotten
}

TEST_F(CdrCacheTest, OneThatNeverFitsDoesNotKeepTheServerFromStopping)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(100);
    CFakeLog::clear();
    ASSERT_THAT(queues(ofSize("sip:2", 101)), IsOk());
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 200));
    EXPECT_THAT(m_server.stops(), IsOk());
    EXPECT_FALSE(isWaiting("sip:2"));
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc: 0x"), CFakeLog::countContaining("CCallData Free: 0x"));
}

TEST_F(CdrCacheTest, WhatHasRoomAfterAnEvictionIsKeptAlsoDuringAStop)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(100);
    std::promise<void> sending;
    std::promise<void> goOn;
    CFakeChannels::whileSending([&, bFirst = true](const CFakeChannels::CSent&) mutable {
        if (std::exchange(bFirst, false))
        {
            sending.set_value();
            goOn.get_future().wait();
        }
    });
    ASSERT_THAT(queues(ofSize("sip:1", 60)), IsOk());
    sending.get_future().wait();
    ASSERT_THAT(queues(ofSize("sip:2", 60)), IsOk());
    std::jthread stopping([&] { (void)m_server.stops(); }); // always 0
    while (!CFakeLog::contains("CCDSNetProxy::Finalize"))
        std::this_thread::yield();
    goOn.set_value();
    stopping.join();
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, WhatCannotBeSentWaits)
{
    m_server.starts();
    proxy().serverStates().set(cQuartersAddress, 0);
    hands(ofSize("sip:1", 5));
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::addCDRCallData failed: 0xC1170A29"), 1U);
    EXPECT_EQ(CFakeLog::countContaining("(Error) CCDSNetProxy::workerThread, addCDRCallData, work - 0x"), 1U);
    clientConnects();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.9 : sip:1 CALLERID=xxxxx"));
}

TEST_F(CdrCacheTest, AConnectionEventHasEverythingSentAgainInOrder)
{
    for (const std::uint32_t dwEvent : {CMLIB_CLIENT_CONNECTED, CMLIB_CLIENT_DISCONNECTED})
    {
        m_server.starts();
        for (const char* const pszCall : {"sip:9", "sip:1", "sip:5"})
            hands(ofSize(pszCall, 1));
        hands(ofSize("sip:2", 1), "10.0.0.8");
        CFakeChannels::forgetTraffic();
        CFakeLog::clear();
        clientConnects(cQuarters, dwEvent);
        EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.9 : sip:9 CALLERID=x", "10.0.0.9 : sip:1 CALLERID=x",
                                               "10.0.0.9 : sip:5 CALLERID=x"));
        EXPECT_EQ(CFakeLog::countExactly("sendPendingCDRCallData: ipaddr 0x0A000009"), 1U);
        EXPECT_EQ(CFakeLog::countContaining("sendPendingCDRCallData: sending pCDRCallData=0x"), 3U);
        CFakeChannels::forgetTraffic();
        m_server.beginsAgain();
    }
}

TEST_F(CdrCacheTest, SendingAgainStopsAtTheFirstThatFails)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.starts();
    for (const char* const pszCall : {"sip:1", "sip:2", "sip:3"})
        hands(ofSize(pszCall, 1));
    CFakeChannels::forgetTraffic();
    CFakeChannels::scriptSends({0, CFakeChannels::cPeerDown});
    clientConnects();
    EXPECT_EQ(CFakeChannels::sent().size(), 2U);
    EXPECT_TRUE(isWaiting("sip:3"));
    EXPECT_EQ(static_cast<std::uint32_t>(proxy().sendPendingCDRCallData(cQuartersAddress)), 0xC1170A29U);
    proxy().serverStates().set(cQuartersAddress, 1);
    EXPECT_EQ(proxy().sendPendingCDRCallData(cQuartersAddress), 0);
    EXPECT_EQ(proxy().sendPendingCDRCallData(0x0A000008UL), 0); // nothing waits for it
}

TEST_F(CdrCacheTest, OneThatIsTooLongForAMessageKeepsNoneBehindItBack)
{
    m_server.starts();
    hands(ofSize("sip:1", 1));
    hands(CNews("sip:2").sets("CALLERID", std::string(400'000, 'x')).sets("CALLEDID", std::string(400'000, 'x')));
    hands(ofSize("sip:3", 1));
    EXPECT_EQ(CFakeChannels::sent().size(), 2U);
    CFakeChannels::forgetTraffic();
    clientConnects();
    EXPECT_THAT(sentInShort(), ElementsAre(HasSubstr("sip:1"), HasSubstr("sip:3")));
    EXPECT_TRUE(isWaiting("sip:2"));
    EXPECT_THAT(proxy().sendPendingCDRCallData(cQuartersAddress), FailsWith(E_FAIL));
}

TEST_F(CdrCacheTest, TheFirstOfTwoAnswersRemovesTheEntry)
{
    m_server.starts();
    hands(ofSize("sip:1", 1));
    clientConnects();
    ASSERT_EQ(CFakeChannels::sent().size(), 2U);
    acknowledges(0);
    EXPECT_FALSE(isWaiting("sip:1"));
    CFakeLog::clear();
    acknowledges(1);
    EXPECT_THAT(linesOf("removeSentCDRCallData"),
                ElementsAre("removeSentCDRCallData: Unable to find pCDRCallData for pcallBackMsg=0x"));
}

TEST_F(CdrCacheTest, AnAnswerForAnEvictedCdrTouchesNoOther)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(100);
    hands(ofSize("sip:1", 100));
    // Its message's address may be used again as soon as it goes, so a few more come and go.
    for (int nCall = 2; nCall < 20; ++nCall)
        hands(ofSize("sip:" + std::to_string(nCall), 100));
    CFakeLog::clear();
    acknowledges(0);
    EXPECT_EQ(CFakeLog::countContaining("removeSentCDRCallData: Unable to find pCDRCallData for pcallBackMsg=0x"), 1U);
    EXPECT_TRUE(isWaiting("sip:19"));
}

TEST_F(CdrCacheTest, AnAnswerThatIsNoneLeavesTheCdrWaiting)
{
    m_server.starts();
    hands(ofSize("sip:1", 1));
    const std::string sBytes = "nonsense";
    CFakeChannels::response(requestOf(0), 0, &sBytes, cQuarters);
    CProxyWorld::settle();
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_EQ(proxy().getCCDSWork(requestOf(0)), nullptr);
}

TEST_F(CdrCacheTest, AFailedExchangeGivesUpWhatIsTooOld)
{
    m_server.starts();
    m_server.store().SetCDRDataExpiration(1);
    hands(ofSize("sip:1", 3));
    hands(ofSize("sip:2", 3), "10.0.0.8");
    CFakeClock::advanceTicks(1);
    hands(ofSize("sip:3", 3));
    CFakeClock::advanceTicks(59'999);
    fails(0);
    EXPECT_TRUE(isWaiting("sip:1")); // 60,000 ms old
    CFakeClock::advanceTicks(1);
    CFakeLog::clear();
    fails(2);
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2")); // of another server
    EXPECT_TRUE(isWaiting("sip:3")); // 60,000 ms old
    EXPECT_THAT(expired(), ElementsAre("sip:1"));
    EXPECT_THAT(linesOf("removeCDRCallDataIfExpired"),
                ElementsAre("removeCDRCallDataIfExpired: pCDRCallData=0x,pcallBackMsg=0x,pCallData=0x,CallID=\"sip:1\"",
                            "removeCDRCallDataIfExpired: Removing call data sip:1 of size 3 bytes to CDS.",
                            "removeCDRCallDataIfExpired: Total CDR cache size = 6 bytes."));
}

TEST_F(CdrCacheTest, WithoutExpirationOneMillisecondIsTooOld)
{
    m_server.starts();
    hands(ofSize("sip:1", 3));
    fails(0);
    EXPECT_TRUE(isWaiting("sip:1"));
    CFakeClock::advanceTicks(1);
    clientConnects();
    fails(1);
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_THAT(expired(), ElementsAre("sip:1"));
}

TEST_F(CdrCacheTest, ASendThatFailsGivesUpWhatIsTooOld)
{
    m_server.starts();
    hands(ofSize("sip:1", 3));
    CFakeClock::advanceTicks(1);
    CFakeChannels::scriptSends({CFakeChannels::cPeerDown});
    hands(ofSize("sip:2", 3));
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, APeerThatDisconnectsHasWhatIsTooOldGivenUp)
{
    m_server.starts();
    hands(ofSize("sip:1", 3));
    hands(ofSize("sip:2", 3), "10.0.0.8");
    CFakeClock::advanceTicks(1);
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, cQuarters);
    CProxyWorld::settle();
    EXPECT_THAT(expired(), ElementsAre("sip:1"));
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_TRUE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, TheEventComesBeforeTheEntryGoes)
{
    m_server.starts();
    hands(ofSize("sip:1", 3));
    CFakeClock::advanceTicks(1);
    CFakeLog::setReportResult(-1); // what becomes of the event changes nothing
    fails(0);
    EXPECT_FALSE(isWaiting("sip:1"));
    EXPECT_THAT(expired(), ElementsAre("sip:1"));
}

TEST_F(CdrCacheTest, TheExpirationIsA32BitProduct)
{
    m_server.starts();
    // The first that wraps: 71583 minutes are 12,704 ms.
    m_server.store().SetCDRDataExpiration(71583);
    EXPECT_TRUE(CFakeLog::contains("SetCDRDataExpiration: ExpirationDuration=71583"));
    hands(ofSize("sip:1", 3));
    CFakeClock::advanceTicks(12'704);
    fails(0);
    EXPECT_TRUE(isWaiting("sip:1"));
    CFakeClock::advanceTicks(1);
    clientConnects();
    fails(1);
    EXPECT_FALSE(isWaiting("sip:1"));
    // The last that does not.
    m_server.store().SetCDRDataExpiration(71582);
    hands(ofSize("sip:2", 3));
    CFakeClock::advanceTicks(4'294'920'000ULL);
    fails(2);
    EXPECT_TRUE(isWaiting("sip:2"));
    CFakeClock::advanceTicks(1);
    clientConnects();
    fails(3);
    EXPECT_FALSE(isWaiting("sip:2"));
}

TEST_F(CdrCacheTest, OneEntryIsGivenUpByItsMessage)
{
    const auto handsDirectly = [&](const CNews& news) {
        CCallbackMsg msg(0UL, "", ccbr_cdrcalldata, news.data(), 0);
        (void)msg.setCDSIPAddr(cQuarters); // always 0
        const CSharedMessage pMsg = cdsHoldMessage(msg.clone());
        EXPECT_GE(proxy().addCDRCallData(pMsg), 0);
        return pMsg;
    };
    m_server.starts();
    const auto pOne = handsDirectly(ofSize("sip:1", 1));
    const auto pTwo = handsDirectly(ofSize("sip:2", 1));
    CProxyWorld::settle();
    proxy().removeCDRCallDataIfExpired(pTwo.get());
    EXPECT_TRUE(isWaiting("sip:2"));
    CFakeClock::advanceTicks(1);
    proxy().removeCDRCallDataIfExpired(pTwo.get());
    EXPECT_TRUE(isWaiting("sip:1"));
    EXPECT_FALSE(isWaiting("sip:2"));
    CFakeLog::clear();
    proxy().removeCDRCallDataIfExpired(pTwo.get());
    EXPECT_THAT(linesOf("removeCDRCallDataIfExpired"),
                ElementsAre("removeCDRCallDataIfExpired: Unable to find pCDRCallData for pcallBackMsg=0x"));
    EXPECT_THAT(expired(), IsEmpty());
}

TEST_F(CdrCacheTest, EntriesAreNumberedAndShown)
{
    CCDRCallData::s_dwCurObjectID = 1;
    m_server.starts();
    hands(ofSize("sip:b", 1));
    hands(ofSize("sip:a", 1), "10.0.0.8");
    CFakeLog::clear();
    proxy().Dump(0);
    CProxyWorld::settle();
    const auto vecTexts = CFakeLog::texts();
    const auto it = std::find(vecTexts.begin(), vecTexts.end(), "-- CDR.");
    ASSERT_GT(vecTexts.end() - it, 2);
    EXPECT_EQ(it[1], "   objid 1, callid sip:b, regid , server 10.0.0.9");
    EXPECT_EQ(it[2], "   objid 2, callid sip:a, regid , server 10.0.0.8");
}

TEST_F(CdrCacheTest, AnObjectIDThatIsTakenIsPassedOver)
{
    CCDRCallData::s_dwCurObjectID = 0xFFFFFFFFU;
    m_server.starts();
    hands(ofSize("sip:1", 1));
    hands(ofSize("sip:2", 1));
    CCDRCallData::s_dwCurObjectID = 0xFFFFFFFFU; // four thousand million CDRs later
    hands(ofSize("sip:3", 1));
    for (const char* const pszCall : {"sip:1", "sip:2", "sip:3"})
        EXPECT_TRUE(isWaiting(pszCall));
    m_server.proxy().Dump(0);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("   objid 1, callid sip:3, regid , server 10.0.0.9"), 1U);
}

TEST_F(CdrCacheTest, ACdrForAStoreThatHasNotStartedIsSentWhenItStarts)
{
    ASSERT_THAT(queues(ofSize("sip:1", 1)), IsOk());
    m_server.starts();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.9 : sip:1 CALLERID=x"));
}

TEST_F(CdrCacheTest, ACdrAfterTheStopIsHarmless)
{
    m_server.starts();
    ASSERT_THAT(m_server.stops(), IsOk());
    CFakeLog::clear();
    EXPECT_THAT(queues(ofSize("sip:1", 1)), IsOk());
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
}

TEST_F(CdrCacheTest, WhatWaitsIsCounted)
{
    const auto waiting = [this] { return m_server.store().GetCDRDataCacheCount(); };
    EXPECT_EQ(waiting(), 0U);
    ASSERT_THAT(queues(ofSize("sip:1", 5)), IsOk());
    EXPECT_EQ(waiting(), 1U); // queued
    m_server.starts();
    CProxyWorld::settle();
    EXPECT_EQ(waiting(), 1U); // sent
    hands(ofSize("sip:2", 5));
    hands(ofSize("sip:2", 5)); // refused
    EXPECT_EQ(waiting(), 2U);
    acknowledges(0);
    EXPECT_EQ(waiting(), 1U);
    CFakeClock::advanceTicks(1);
    fails(1); // too old
    EXPECT_EQ(waiting(), 0U);
    m_server.store().SetCDRDataCacheSize(100);
    hands(ofSize("sip:3", 60));
    hands(ofSize("sip:4", 60)); // evicts it
    EXPECT_EQ(waiting(), 1U);
    hands(CNews("sip:5"), "no address");
    EXPECT_EQ(waiting(), 2U); // one that cannot be sent waits
}

TEST_F(CdrCacheTest, OneThatNeverFitsIsStillCounted)
{
    m_server.starts();
    m_server.store().SetCDRDataCacheSize(100);
    ASSERT_THAT(queues(ofSize("sip:1", 101)), IsOk());
    ASSERT_TRUE(CFakeClock::awaitWaiters(1, 200));
    EXPECT_EQ(m_server.store().GetCDRDataCacheCount(), 1U);
    EXPECT_THAT(m_server.stops(), IsOk());
    EXPECT_EQ(m_server.store().GetCDRDataCacheCount(), 0U);
}

TEST_F(CdrCacheTest, WithoutARecordNothingIsHandedOn)
{
    m_server.starts();
    EXPECT_THAT(m_server.store().SendCDRDataToHQ(cQuarters, "sip:1", nullptr), FailsWith(E_CDS_NULLDATA));
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
}

TEST_F(CdrCacheTest, TheStoreIsLockedWhileACdrIsQueued)
{
    m_server.starts();
    CFakeLog::clear();
    CFakeLocks::record(true);
    CNews news("sip:1");
    ASSERT_THAT(m_server.store().SendCDRDataToHQ(cQuarters, "the call", news.data()), IsOk());
    CProxyWorld::settle();
    CFakeLocks::record(false);
    const auto vecEntries = CFakeLocks::entries("CCDSAPI::m_pcritsec");
    ASSERT_EQ(vecEntries.size(), 2U);
    EXPECT_TRUE(vecEntries[0].bEnter);
    EXPECT_EQ(vecEntries[0].lPlace, 220);
    EXPECT_EQ(vecEntries[1].lPlace, 246);
    EXPECT_EQ(CFakeLog::countExactly("SendCDRDataToHQ: \"the call\", Dest=\"10.0.0.9\", " + identity(news.data())), 1U);
}

} // namespace
