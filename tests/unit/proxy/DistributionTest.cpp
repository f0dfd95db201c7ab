// Who gets which call's changes, and what each is sent.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned long cTwo = 0x0A000002UL;
constexpr unsigned long cThree = 0x0A000003UL;
constexpr unsigned long cFour = 0x0A000004UL;

class DistributionTest : public testing::Test
{
protected:
    DistributionTest()
    {
        m_server.starts();
        m_server.registers("ann", "sip:1", m_server.address(), "none");
        CFakeLog::clear();
    }

    CCDSNetProxy& proxy() { return m_server.proxy(); }
    void adds(unsigned long ulPeer, const std::string& sRegID, bool bClient = false)
    {
        EXPECT_EQ(proxy().addCallDataDistribution(bClient, "sip:1", sRegID, ulPeer), 0);
    }
    void updates(const CNews& news)
    {
        EXPECT_EQ(m_server.updates("ann", news), 0);
        CProxyWorld::settle();
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(DistributionTest, ANewEntryIsAdded)
{
    adds(cTwo, "id");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("CCDSNetProxy::addCallDataDistribution, call sip:1, ipaddr 0x0A000002"));
}

TEST_F(DistributionTest, TheSameEntryIsRefused)
{
    adds(cTwo, "id");
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:1", "id", cTwo), FailsWith(E_CDS_EXISTS));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::addCallDataDistribution, found the IPADDR with the same ReqID"),
              1U);
}

TEST_F(DistributionTest, AnEntryForThePeerGetsTheNewID)
{
    adds(cTwo, "id");
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:1", "other", cTwo), FailsWith(E_CDS_EXISTS));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::addCallDataDistribution, found the IPADDR but not the same ReqID"),
              1U);
    (void)proxy().remCallDataDistribution(false, "sip:1", cTwo);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.22, ipaddr 0x0A000002, ReqID:other"), 1U);
}

TEST_F(DistributionTest, TheSideIsNotComparedWhenLookingForAnEntry)
{
    adds(cTwo, "id", true);
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:1", "id", cTwo), FailsWith(E_CDS_EXISTS));
}

TEST_F(DistributionTest, TheSideIsComparedWhenRemovingOne)
{
    adds(cTwo, "id", true);
    EXPECT_THAT(proxy().remCallDataDistribution(false, "sip:1", cTwo), IsOk());
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.2, call sip:1, ipaddr 0x0A000002"), 1U);
    EXPECT_FALSE(CFakeLog::contains("remCallDataDistribution.22"));
    EXPECT_THAT(proxy().remCallDataDistribution(true, "sip:1", cTwo), IsOk());
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.22, ipaddr 0x0A000002, ReqID:id"), 1U);
}

TEST_F(DistributionTest, APeersEntriesOfOneSideAreRemovedTogether)
{
    adds(cTwo, "id");
    adds(cThree, "id 3");
    (void)proxy().addCallDataDistribution(false, "sip:2", "id", cTwo);
    (void)proxy().addCallDataDistribution(true, "sip:3", "client id", cTwo);
    EXPECT_THAT(proxy().remCallDataDistribution(false, cTwo), IsOk());
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000002"), 1U);
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:1", "id", cTwo), IsOk());
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:2", "id", cTwo), IsOk());
    EXPECT_THAT(proxy().addCallDataDistribution(true, "sip:3", "client id", cTwo), FailsWith(E_CDS_EXISTS));
    EXPECT_THAT(proxy().addCallDataDistribution(false, "sip:1", "id 3", cThree), FailsWith(E_CDS_EXISTS));
}

TEST_F(DistributionTest, WithoutAnEntryThereIsNothingToUpdate)
{
    CNews news("sip:1");
    EXPECT_THAT(proxy().updateCallDataDistribution("sip:1", cTwo, news.data()), FailsWith(E_CDS_DISTNOTFOUND));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::updateCallDataDistribution, call = sip:1, ipaddr 0x0A000002"), 1U);
}

TEST_F(DistributionTest, WhatAPeerHasIsNotSentToIt)
{
    adds(cTwo, "id");
    CNews first("sip:1");
    first.sets("CALLERID", "alice");
    CNews second("sip:1");
    second.sets("DNIS", "4711");
    EXPECT_THAT(proxy().updateCallDataDistribution("sip:1", cTwo, first.data()), IsOk());
    EXPECT_THAT(proxy().updateCallDataDistribution("sip:1", cTwo, second.data()), IsOk());
    updates(first);
    updates(second);
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    EXPECT_EQ(CFakeLog::countExactly("sendCDDist, no diff"), 2U);
}

TEST_F(DistributionTest, WhatAPeerLostIsSentAgain)
{
    adds(cTwo, "id");
    CNews first("sip:1");
    first.sets("CALLERID", "alice");
    (void)proxy().updateCallDataDistribution("sip:1", cTwo, first.data());
    EXPECT_THAT(proxy().updateCallDataDistribution("sip:1", cTwo, nullptr), IsOk());
    updates(first);
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 id: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, TheFirstSendIsWholeLaterOnesAreDifferences)
{
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    adds(cTwo, "id");
    (void)proxy().requestCallData("sip:1");
    CProxyWorld::settle();
    updates(CNews("sip:1").sets("DNIS", "4711"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 id: sip:1 CALLERID=alice", "10.0.0.2 id: sip:1 DNIS=4711"));
}

TEST_F(DistributionTest, CallDataCarriesItsReasonAndTheEntrysID)
{
    adds(cTwo, "id");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    const CRequest request = takenApart(CFakeChannels::sentTexts().at(0));
    EXPECT_EQ(request.sReason, "1");
    EXPECT_EQ(request.sRegID, "id");
}

TEST_F(DistributionTest, EntriesAreServedInTheOrderTheyWereAdded)
{
    adds(cThree, "three");
    adds(cTwo, "two");
    adds(cFour, "four");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: sip:1 CALLERID=alice", "10.0.0.2 two: sip:1 CALLERID=alice",
                                           "10.0.0.4 four: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, OtherCallsEntriesGetNothing)
{
    (void)proxy().addCallDataDistribution(false, "sip:2", "id", cTwo);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    EXPECT_FALSE(CFakeLog::contains("(Error) CCDSNetProxy"));
}

TEST_F(DistributionTest, AnUnreachablePeerEndsTheRound)
{
    adds(cTwo, "two");
    adds(cThree, "three");
    adds(cFour, "four");
    proxy().serverStates().set(static_cast<std::uint32_t>(cThree), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 two: sip:1 CALLERID=alice"));
    EXPECT_FALSE(CFakeLog::contains("sendCalldataDistribution"));
}

TEST_F(DistributionTest, AnyOtherFailureIsTold)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    m_server.registers("bob", "sip:1", m_server.address(), "none");
    adds(cTwo, "two");
    CFakeChannels::setSendResult(0xC1200D55U);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_EQ(CFakeLog::countContaining("(Error) CCDSNetProxy::workerThread, sendCalldataDistribution, work - 0x"), 1U);
    EXPECT_TRUE(CFakeLog::find("sendCalldataDistribution, work").ends_with(" failed: 0xC1200D55"));
}

TEST_F(DistributionTest, AMessageThatIsTooLargeForOnePeerCostsNobodyElseAnything)
{
    for (const unsigned long ulSetting : {0UL, 1UL})
    {
        SCOPED_TRACE(ulSetting);
        const std::string sCallID = "sip:" + std::to_string(7 + ulSetting);
        CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", ulSetting);
        m_server.stops();
        m_server.starts();
        m_server.registers(sCallID, sCallID, m_server.address(), "none");
        EXPECT_EQ(proxy().addCallDataDistribution(false, sCallID, "two", cTwo), 0);
        EXPECT_EQ(proxy().addCallDataDistribution(false, sCallID, "three", cThree), 0);
        CFakeChannels::scriptSends({CMLIB_TOO_LARGE});
        CFakeChannels::forgetTraffic();
        m_server.updates(sCallID, CNews(sCallID).sets("CALLERID", "alice"));
        CProxyWorld::settle();
        EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: " + sCallID + " CALLERID=alice"));
        CFakeChannels::forgetTraffic();
        m_server.updates(sCallID, CNews(sCallID).sets("DNIS", "1"));
        CProxyWorld::settle();
        EXPECT_THAT(sentInShort(),
                    ElementsAre("10.0.0.2 two: " + sCallID + " DNIS=1", "10.0.0.3 three: " + sCallID + " DNIS=1"));
        // Now that something has reached it the rest is tried again.
        ASSERT_FALSE(CFakeChannels::sent().empty());
        CFakeChannels::confirm(CFakeChannels::sent().front().ulRequestID);
        CProxyWorld::settle();
        EXPECT_EQ(sentInShort().size(), 3U);
        EXPECT_EQ(sentInShort().back(), "10.0.0.2 two: " + sCallID + " CALLERID=alice");
    }
}

TEST_F(DistributionTest, ARecordThatIsTooLongForOneMessageKeepsNothingFromTheOthers)
{
    adds(cTwo, "two");
    adds(cThree, "three");
    for (const char* const pszProperty : {"CALLERID", "CALLEDID"})
        updates(CNews("sip:1").sets(pszProperty, std::string(400'000, 'x')));
    EXPECT_EQ(CFakeChannels::sent().size(), 4U);        // one by one they fit
    ASSERT_TRUE(proxy().forgetPeerData("sip:1", cTwo)); // now it lacks both
    proxy().serverStates().set(static_cast<std::uint32_t>(cThree), 0);
    updates(CNews("sip:1").sets("DNIS", "1"));
    proxy().serverStates().set(static_cast<std::uint32_t>(cThree), 1);
    CFakeChannels::forgetTraffic();
    EXPECT_THAT(proxy().requestCallData("sip:1"), IsOk());
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: sip:1 DNIS=1"));

    // Whoever cannot have all of it still has what changes, which is no reason to try all of it each time.
    CFakeChannels::forgetTraffic();
    updates(CNews("sip:1").sets("DNIS", "2"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 two: sip:1 DNIS=2", "10.0.0.3 three: sip:1 DNIS=2"));
    CFakeLog::clear();
    ASSERT_FALSE(CFakeChannels::sent().empty());
    CFakeChannels::confirm(CFakeChannels::sent().front().ulRequestID);
    CProxyWorld::settle();
    EXPECT_FALSE(CFakeLog::contains("is distributed again, ipaddr 0x0A000002"));
    EXPECT_FALSE(CFakeLog::contains("failed: 0x80004005"));
}

TEST_F(DistributionTest, AfterAFailureThePeerIsStillOwedTheChange)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    adds(cTwo, "two");
    CFakeChannels::scriptSends({0xC1200D55U});
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    CFakeChannels::forgetTraffic();
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 1);
    (void)proxy().requestCallData("sip:1");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 two: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, ASendIsTracedStepByStep)
{
    adds(cTwo, "two");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_LT(placeInLog("CCDSNetProxy::sendCallDataDistribution, call = sip:1"), placeInLog("sendCDDist, org=NULL"));
    EXPECT_LT(placeInLog("sendCDDist, org=NULL"), placeInLog("sendCDDist, new"));
    EXPECT_LT(placeInLog("sendCDDist, new"), placeInLog("sendCDDist, send"));
    EXPECT_LT(placeInLog("sendCDDist, send"), placeInLog("sendCDDist, after merg"));
    CFakeLog::clear();
    updates(CNews("sip:1").sets("DNIS", "1"));
    EXPECT_LT(placeInLog("sendCDDist, org"), placeInLog("sendCDDist, new"));
    EXPECT_FALSE(CFakeLog::contains("org=NULL"));
}

TEST_F(DistributionTest, ADifferenceIsCopiedForItsMessage)
{
    adds(cTwo, "two");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    CFakeLog::clear();
    CNews news("sip:1");
    news.sets("DNIS", "1");
    CFakeLog::clear();
    updates(news);
    // The store's difference, the copy for the queue, the difference for the peer, its copy for the request.
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc: 0x"), 4U);
}

TEST_F(DistributionTest, ADumpNamesCallIDSideAndPeer)
{
    CFakeLog::clear();
    CCalldataDistribution(&proxy(), false, cTwo, "sip:7", "its id").dump(0);
    CCalldataDistribution(&proxy(), true, cTwo, "sip:7", "its id").dump(0);
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("   callid sip:7, regid its id, client 0, server 10.0.0.2",
                                               "   callid sip:7, regid its id, client 1, server 10.0.0.2"));
}

TEST_F(DistributionTest, AFailedExchangeMakesThePeerGetEverythingAtTheNextConnection)
{
    adds(cTwo, "two");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    updates(CNews("sip:1").sets("DNIS", "1"));
    CFakeChannels::response(CFakeChannels::sent().back().ulRequestID, 0xC1200D99U, nullptr);
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 two: sip:1 CALLERID=alice DNIS=1"));
    CFakeChannels::forgetTraffic();
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty()); // once is enough
}

TEST_F(DistributionTest, ABadResponseCountsAsAFailedExchange)
{
    adds(cTwo, "two");
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    const std::string sBogus("nonsense\0", 9);
    CFakeChannels::response(CFakeChannels::sent().back().ulRequestID, 0, &sBogus);
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 two: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, PeersBehindAnUnreachableOneAreServedWhenItCanBeReached)
{
    adds(cTwo, "two");
    adds(cThree, "three");
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(),
                ElementsAre("10.0.0.2 two: sip:1 CALLERID=alice", "10.0.0.3 three: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, PeersBehindAnUnreachableOneAreServedWhenItIsGone)
{
    CFakeChannels::request("10.0.0.2", registrationRequest("two", "10.0.0.1", "sip:1"));
    CFakeChannels::request("10.0.0.3", registrationRequest("three", "10.0.0.1", "sip:1"));
    CProxyWorld::settle();
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, EntriesThatAPeerLeftBehindKeepNobodyFromAChange)
{
    CFakeChannels::request("10.0.0.2", registrationRequest("two", "10.0.0.1", "sip:1"));
    CFakeChannels::request("10.0.0.3", registrationRequest("three", "10.0.0.1", "sip:1"));
    CFakeChannels::request("10.0.0.4", registrationRequest("four", "10.0.0.1", "sip:1"));
    CProxyWorld::settle();
    m_server.unregisters("two"); // by somebody else, so that its entry stays
    m_server.unregisters("three");
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.3");
    CProxyWorld::settle();
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 0);
    proxy().serverStates().set(static_cast<std::uint32_t>(cThree), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.4 four: sip:1 CALLERID=alice"));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000002"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000003"), 1U);
}

TEST_F(DistributionTest, WhatEntriesLeftBehindKeptFromOthersIsSentWhenTheyGo)
{
    CFakeChannels::request("10.0.0.2", registrationRequest("two", "10.0.0.1", "sip:1"));
    CFakeChannels::request("10.0.0.2", registrationRequest("two too", "10.0.0.1", "sip:2"));
    CFakeChannels::request("10.0.0.3", registrationRequest("three", "10.0.0.1", "sip:1"));
    CProxyWorld::settle();
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice")); // before it was seen to leave
    m_server.unregisters("two too");
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    m_server.registers("bob", "sip:2", m_server.address(), "none");
    EXPECT_EQ(m_server.updates("bob", CNews("sip:2").sets("CALLERID", "bob")), 0);
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: sip:1 CALLERID=alice"));
}

TEST_F(DistributionTest, PeersBehindAnUnreachableOneAreServedWhenItUnregisters)
{
    CFakeChannels::request("10.0.0.2", registrationRequest("two", "10.0.0.1", "sip:1"));
    CFakeChannels::request("10.0.0.3", registrationRequest("three", "10.0.0.1", "sip:1"));
    CProxyWorld::settle();
    proxy().serverStates().set(static_cast<std::uint32_t>(cTwo), 0);
    updates(CNews("sip:1").sets("CALLERID", "alice"));
    CFakeChannels::request("10.0.0.2", registrationRequest("two", "10.0.0.1", "sip:1", false));
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 three: sip:1 CALLERID=alice"));
}

} // namespace
