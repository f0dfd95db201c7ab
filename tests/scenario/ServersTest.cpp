// Servers that share calls, connected by the fake network: what one learns reaches the others, also after their
// connections were lost, silently or not, and after one of them was started anew.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* cA = "10.0.0.1";
constexpr const char* cB = "10.0.0.2";
constexpr const char* cC = "10.0.0.3";

class ServersTest : public testing::Test
{
protected:
    /// @param bWorkerSends  else whoever causes a request sends it
    explicit ServersTest(bool bWorkerSends = true)
    {
        CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", bWorkerSends ? 1 : 0);
        CFakeChannels::setNetwork(true);
        m_b.starts();
        m_a.starts();
        // The owner's own component, which writes what the others read.
        writes("");
        settle();
    }

    static void settle() { CProxyWorld::settle(); }
    /// The servers are connected when the first registration is sent, and then it is sent once more.
    void connects()
    {
        m_a.registers("first", "sip:first", cB);
        settle();
    }
    /// The owner has a component for each call that writes, and one that reads.
    void writes(const std::string& sValue, const std::string& sCallID = "sip:1", const std::string& sName = "CALLERID")
    {
        (void)m_b.registers("reader of " + sCallID, sCallID, cB); // there already, when it is
        if (!sValue.empty())
        {
            EXPECT_THAT(m_b.updates("reader of " + sCallID, CNews(sCallID).sets(sName, sValue)), IsOk());
        }
    }
    std::string ownersCopy(const std::string& sCallID = "sip:1") { return m_b.copyOf("reader of " + sCallID, sCallID); }
    /// How often the owner's proxy holds an entry for a peer.
    std::size_t entriesAt(CServer& server, const std::string& sPeer, int nClient)
    {
        CFakeLog::clear();
        server.proxy().Dump(1);
        settle();
        return CFakeLog::countContaining(", client " + std::to_string(nClient) + ", server " + sPeer);
    }

    CProxyWorld m_world;
    CServer m_b{cB}; // owns the calls
    CServer m_a{cA}; // watches them
};

TEST_F(ServersTest, WhatTheOwnerLearnsReachesTheWatcher)
{
    EXPECT_THAT(m_a.registers("ann", "sip:1", cB), IsOk());
    settle();
    writes("alice");
    settle();
    EXPECT_THAT(m_a.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(ServersTest, WhatTheOwnerKnowsAlreadyComesAtOnce)
{
    writes("alice");
    EXPECT_THAT(m_a.registers("ann", "sip:1", cB), IsOk());
    settle();
    EXPECT_THAT(m_a.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
}

TEST_F(ServersTest, WhatTheWatcherLearnsReachesTheOwnerWithoutAnEcho)
{
    EXPECT_THAT(m_a.registers("ann", "sip:1", cB), IsOk());
    settle();
    m_b.hears();
    CFakeChannels::forgetTraffic();
    EXPECT_THAT(m_a.updates("ann", CNews("sip:1").sets("DNIS", "4711")), IsOk());
    settle();
    EXPECT_THAT(m_b.hears(), ElementsAre("reader of sip:1: sip:1 DNIS=4711"));
    EXPECT_EQ(CFakeChannels::sent(cA).size(), 1U);
    EXPECT_THAT(CFakeChannels::sent(cB), IsEmpty());
}

TEST_F(ServersTest, EveryWatcherHearsEachChangeOnce)
{
    CServer c(cC);
    c.starts();
    m_a.registers("ann", "sip:1", cB);
    c.registers("cleo", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    EXPECT_THAT(m_a.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
    EXPECT_THAT(c.hears(), ElementsAre("cleo: sip:1 CALLERID=alice"));
    m_a.updates("ann", CNews("sip:1").sets("DNIS", "1"));
    settle();
    EXPECT_THAT(c.hears(), ElementsAre("cleo: sip:1 DNIS=1"));
    c.stops();
    settle();
}

TEST_F(ServersTest, AWatcherThatLeavesIsForgotten)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    m_a.unregisters("ann");
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 0U);
    CFakeChannels::forgetTraffic();
    writes("alice");
    settle();
    EXPECT_THAT(CFakeChannels::sent(cB), IsEmpty());
}

TEST_F(ServersTest, ALinkThatWasCutIsMadeGood)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    CFakeChannels::cutLink(cA, cB);
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    writes("bob");
    writes("4711", "sip:1", "DNIS");
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here CALLERID=bob DNIS=4711");
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), ownersCopy());
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
}

TEST_F(ServersTest, WhatWasUnderWayWhenTheLinkFellSilentIsMadeGood)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::silenceLink(cA, cB);
    writes("alice");
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    CFakeChannels::cutLink(cA, cB); // now they notice
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here CALLERID=alice");
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), ownersCopy());
}

TEST_F(ServersTest, ARegistrationThatFellIntoTheSilenceIsMadeGood)
{
    CFakeChannels::silenceLink(cA, cB);
    m_a.registers("ann", "sip:1", cB);
    writes("alice");
    settle();
    CFakeChannels::cutLink(cA, cB);
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
}

TEST_F(ServersTest, ARegistrationWhileTheOwnerIsAwayIsMadeGood)
{
    CFakeChannels::cutLink(cA, cB);
    m_a.registers("ann", "sip:1", cB); // tries, and finds it unreachable
    settle();
    m_a.registers("eve", "sip:2", cB); // refused without a try
    writes("alice");
    writes("bob", "sip:2");
    settle();
    // The owner's data comes before the answers to the registrations.
    CFakeChannels::holdResponses(cA, true);
    CFakeChannels::restoreLink(cA, cB);
    settle();
    CFakeChannels::holdResponses(cA, false);
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_EQ(m_a.copyOf("eve", "sip:2"), "sip:2 CALLERID=bob");
}

TEST_F(ServersTest, AnOwnerThatStartsAnewGetsEverythingBack)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    m_b.beginsAgain();
    settle();
    m_b.starts();
    (void)m_b.registers("reader of sip:1", "sip:1", cB);
    settle();
    writes("4711", "sip:1", "DNIS");
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice DNIS=4711");
    EXPECT_EQ(ownersCopy(), m_a.copyOf("ann", "sip:1"));
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
}

TEST_F(ServersTest, AWatcherThatStartsAnewIsServedAgain)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    m_a.beginsAgain();
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    m_a.starts();
    m_a.registers("ann", "sip:1", cB);
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
}

TEST_F(ServersTest, AnOwnerThatStopsAndStartsIsWholeAgain)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    m_b.stops(); // its registrants stay, its records go
    settle();
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    m_b.starts();
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 1U);
    writes("4711", "sip:1", "DNIS");
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 ANI=here CALLERID=alice DNIS=4711");
    EXPECT_EQ(ownersCopy(), m_a.copyOf("ann", "sip:1"));
    // The registration that was made for the watcher before the stop went, and stands once.
    EXPECT_EQ(m_b.unregisters(m_a.proxy().getClientCall("sip:1")->m_sRegID), 0);
    EXPECT_THAT(m_b.unregisters(m_a.proxy().getClientCall("sip:1")->m_sRegID), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(ServersTest, AWatcherThatStopsAndStartsIsWholeAgain)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    m_a.stops();
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    writes("bob");
    settle();
    m_a.starts();
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=bob");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 1U);
    EXPECT_THAT(m_a.updates("ann", CNews("sip:1").sets("ANI", "here")), IsOk());
    writes("4711", "sip:1", "DNIS");
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 ANI=here CALLERID=bob DNIS=4711");
    EXPECT_EQ(ownersCopy(), m_a.copyOf("ann", "sip:1"));
}

TEST_F(ServersTest, AStopWhileTheOwnerIsAwayDoesNotKeepTheWatcherFromIt)
{
    m_b.stops();
    m_a.registers("ann", "sip:1", cB); // finds it unreachable
    settle();
    m_a.stops();
    m_b.starts(); // knows of nobody
    m_a.starts();
    settle();
    writes("alice");
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
}

TEST_F(ServersTest, AWatcherThatLeavesWhileTheOwnerIsStoppedIsForgotten)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    const std::string sRegID = m_a.proxy().getClientCall("sip:1")->m_sRegID;
    m_b.stops();
    m_a.unregisters("ann");
    settle();
    m_b.starts();
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    EXPECT_THAT(m_b.unregisters(sRegID), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(ServersTest, AStopDuringAnUnregistrationEndsIt)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdRequests(cB, true);
    m_a.unregisters("ann");
    settle();
    m_a.stops(); // with the answer still to come
    CFakeChannels::holdRequests(cB, false);
    m_a.starts();
    settle();
    EXPECT_EQ(m_a.proxy().getClientCall("sip:1"), nullptr);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 0U);
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
}

TEST_F(ServersTest, ServersThatWatchEachOtherStopAndStartInEitherOrder)
{
    m_a.registers("reader of sip:2", "sip:2", cA); // a call of the other
    m_a.registers("ann", "sip:1", cB);
    m_b.registers("bea", "sip:2", cA);
    settle();
    for (CServer* const pFirst : {&m_a, &m_b})
    {
        CServer& second = pFirst == &m_a ? m_b : m_a;
        pFirst->stops();
        second.stops();
        pFirst->starts();
        second.starts();
        settle();
        writes(pFirst->address());
        m_a.updates("reader of sip:2", CNews("sip:2").sets("DNIS", pFirst->address()));
        settle();
        EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=" + pFirst->address());
        EXPECT_EQ(m_b.copyOf("bea", "sip:2"), "sip:2 DNIS=" + pFirst->address());
        EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
        EXPECT_EQ(entriesAt(m_a, cB, 0), 1U);
        EXPECT_EQ(entriesAt(m_b, cA, 1), 1U);
        EXPECT_EQ(entriesAt(m_a, cB, 1), 1U);
    }
}

TEST_F(ServersTest, ACdrThatWaitsWhenItsServerStopsIsSentAtTheNextStart)
{
    CFakeChannels::cutLink(cA, cB);
    EXPECT_THAT(m_a.store().SendCDRDataToHQ(cB, "sip:9", CNews("sip:9").sets("CALLERID", "alice").data()), IsOk());
    settle();
    EXPECT_TRUE(m_a.proxy().findCDRCallDataByCallID("sip:9"));
    m_a.stops();
    CFakeChannels::restoreLink(cA, cB);
    CFakeChannels::forgetTraffic();
    m_a.starts();
    settle();
    EXPECT_FALSE(CFakeChannels::sent(cA).empty());
    EXPECT_FALSE(m_a.proxy().findCDRCallDataByCallID("sip:9"));
}

TEST_F(ServersTest, WhatCameInBeforeAStopAndWasNotHandledIsDropped)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    // As if it had been queued when the worker had already ended.
    const auto pWork = m_b.proxy().newWork();
    const std::string sRequest = registrationRequest("an id", cB, "sip:2");
    pWork->m_dwPeer = static_cast<std::uint32_t>(CFakeChannels::address(cC));
    pWork->m_pInBuf = std::make_unique<char[]>(sRequest.size() + 1);
    std::copy(sRequest.begin(), sRequest.end(), pWork->m_pInBuf.get());
    pWork->m_dwInLen = static_cast<std::uint32_t>(sRequest.size() + 1);
    m_b.stops();
    m_b.proxy().enqueueCCDSWork(pWork, WT_OP_SERVER_RECEIVEREQUEST);
    m_b.starts();
    settle();
    EXPECT_EQ(entriesAt(m_b, cC, 0), 0U);
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    EXPECT_EQ(m_b.proxy().getCCDSWork(pWork->m_dwID), nullptr);
}

TEST_F(ServersTest, AHundredReconnectsLeaveOneRegistration)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    for (int nRound = 0; nRound < 100; ++nRound)
    {
        CFakeChannels::cutLink(cA, cB);
        writes(std::to_string(nRound));
        CFakeChannels::restoreLink(cA, cB);
        if (nRound % 3 == 0)
            settle();
    }
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=99");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 1U);
    m_a.unregisters("ann");
    settle();
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
}

TEST_F(ServersTest, AnUnreachableWatcherDoesNotCostTheOthersTheirChanges)
{
    CServer c(cC);
    c.starts();
    m_a.registers("ann", "sip:1", cB);
    settle();
    c.registers("cleo", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    CFakeChannels::silenceLink(cA, cB);
    writes("bob"); // swallowed on the way to the first
    CFakeChannels::cutLink(cA, cB);
    writes("carol");
    settle();
    EXPECT_EQ(c.copyOf("cleo", "sip:1"), "sip:1 CALLERID=carol");
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=carol");
    c.stops();
    settle();
}

TEST_F(ServersTest, AWatcherThatLeftItsEntriesBehindDoesNotCostTheOthersTheirChanges)
{
    CServer c(cC);
    c.starts();
    m_a.registers("ann", "sip:1", cB);
    settle();
    c.registers("cleo", "sip:1", cB);
    settle();
    m_b.unregisters(m_a.proxy().getClientCall("sip:1")->m_sRegID); // so that the watcher's entry outlives it
    CFakeChannels::cutLink(cA, cB);
    settle();
    for (const char* const pszName : {"alice", "bob", "carol"})
    {
        writes(pszName);
        settle();
    }
    EXPECT_EQ(c.copyOf("cleo", "sip:1"), "sip:1 CALLERID=carol");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 0U);
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=carol");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    c.stops();
    settle();
}

// A registrant that comes while another's leaving is under way.

TEST_F(ServersTest, ARegistrationDuringAnUnregistrationIsServed)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdResponses(cA, true);
    m_a.unregisters("ann");
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    CFakeChannels::holdResponses(cA, false);
    settle();
    writes("alice");
    settle();
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 1U);
    EXPECT_EQ(entriesAt(m_a, cB, 1), 1U);
}

TEST_F(ServersTest, WhatOneCouldNotSendBeforeItLeftIsSentWhenAnotherComes)
{
    connects();
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::cutLink(cA, cB);
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    m_a.unregisters("ann");
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    EXPECT_EQ(ownersCopy(), "");
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 ANI=here");
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(ServersTest, WhatOneSentInVainBeforeItLeftIsSentWhenAnotherComes)
{
    connects();
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::silenceLink(cA, cB);
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    CFakeChannels::cutLink(cA, cB);
    settle();
    m_a.unregisters("ann");
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(ServersTest, WhatOneSentInVainIsKnownAlsoWhenItHasLeftForGood)
{
    connects();
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::silenceLink(cA, cB);
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    CFakeChannels::scriptSends({CFakeChannels::cPeerDown});
    m_a.registers("carl", "sip:2", cB);
    settle();
    m_a.unregisters("ann"); // the owner is said to be unreachable: that ends the call here
    settle();
    CFakeChannels::cutLink(cA, cB); // and only this the exchange
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(ServersTest, ARecordThatOthersKeepIsOwedToItsOwnerAllTheSame)
{
    connects();
    m_a.registers("ann", "sip:1", cB);
    m_a.registers("eve", "sip:1", cA); // takes it for a call of this server
    settle();
    CFakeChannels::cutLink(cA, cB);
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    m_a.unregisters("ann");
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(ServersTest, WhatWaitsForItsOwnerIsSentOnce)
{
    connects();
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::cutLink(cA, cB);
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    m_a.unregisters("ann");
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    CFakeChannels::forgetTraffic();
    for (const char* const pszWho : {"bob", "carl"})
    {
        m_a.registers(pszWho, "sip:1", cB);
        settle();
        m_a.unregisters(pszWho);
        settle();
    }
    EXPECT_THAT(sentInShort(cA), ElementsAre(StartsWith("10.0.0.2 register "), EndsWith(": sip:1 ANI=here"),
                                             StartsWith("10.0.0.2 unregister "), StartsWith("10.0.0.2 register "),
                                             StartsWith("10.0.0.2 unregister ")));
}

TEST_F(ServersTest, WhatOneKnewWhileTheOwnerWasAwayIsSentWhenAnotherComes)
{
    connects();
    CFakeChannels::cutLink(cA, cB);
    m_a.registers("carl", "sip:2", cB); // finds it unreachable
    settle();
    m_a.registers("ann", "sip:1", cB);
    settle();
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    m_a.unregisters("ann");
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(ServersTest, WhatDidNotFitIsOwedWhenItsTurnComesTooLate)
{
    for (const bool bKept : {false, true}) // by a registrant that takes it for a call of this server
    {
        SCOPED_TRACE(bKept);
        const std::string sCallID = bKept ? "sip:kept" : "sip:parked";
        (void)m_b.registers("reader of " + sCallID, sCallID, cB);
        connects();
        m_a.registers("ann of " + sCallID, sCallID, cB);
        if (bKept)
            m_a.registers("eve", sCallID, cA);
        settle();
        CFakeChannels::scriptSends({CFakeChannels::cTooLarge});
        m_a.updates("ann of " + sCallID, CNews(sCallID).sets("ANI", "here"));
        settle();
        CFakeChannels::holdResponses(cA, true);
        m_a.updates("ann of " + sCallID, CNews(sCallID).sets("DNIS", "4711")); // what was not sent is sent after this
        settle();
        m_a.unregisters("ann of " + sCallID);
        settle();
        CFakeChannels::holdResponses(cA, false);
        settle();
        ASSERT_EQ(ownersCopy(sCallID), sCallID + " DNIS=4711");
        m_a.registers("bob of " + sCallID, sCallID, cB);
        settle();
        EXPECT_EQ(ownersCopy(sCallID), sCallID + " ANI=here DNIS=4711");
    }
}

TEST_F(ServersTest, WithoutAFailureNothingIsMadeGood)
{
    m_a.registers("ann", "sip:1", cB);
    settle(); // also sent once more, as the servers were not connected, and without data to send
    writes("alice");
    m_a.registers("bob", "sip:1", cB);
    m_a.unregisters("bob");
    settle();
    m_a.unregisters("ann");
    settle();
    m_a.registers("carl", "sip:1", cB);
    settle();
    EXPECT_EQ(m_a.copyOf("carl", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_FALSE(CFakeLog::contains("CCDSNetProxyResync"));
}

TEST_F(ServersTest, WhatWasOwedLongAgoIsForgotten)
{
    connects();
    const auto owes = [this](unsigned uFirst, unsigned uCount) {
        const auto nameOf = [](unsigned uCall) { return "ann of " + std::to_string(uCall); };
        for (unsigned uCall = uFirst; uCall < uFirst + uCount; ++uCall)
            m_a.registers(nameOf(uCall), "sip:" + std::to_string(uCall), cB);
        settle();
        CFakeChannels::cutLink(cA, cB);
        for (unsigned uCall = uFirst; uCall < uFirst + uCount; ++uCall)
        {
            m_a.updates(nameOf(uCall), CNews("sip:" + std::to_string(uCall)).sets("ANI", "here"));
            m_a.unregisters(nameOf(uCall));
        }
        settle();
        CFakeChannels::restoreLink(cA, cB);
        settle();
    };
    const auto isMadeGood = [this](unsigned uCall) {
        CFakeLog::clear();
        m_a.registers("bob of " + std::to_string(uCall), "sip:" + std::to_string(uCall), cB);
        settle();
        const bool bMadeGood = CFakeLog::contains("call sip:" + std::to_string(uCall) + " is made good");
        m_a.unregisters("bob of " + std::to_string(uCall));
        settle();
        return bMadeGood;
    };
    owes(10, 2);
    EXPECT_TRUE(isMadeGood(10));
    CFakeClock::advance(121'000);
    owes(1'000, 1'000);
    EXPECT_TRUE(isMadeGood(1'999));
    EXPECT_FALSE(isMadeGood(11));
}

/// Lets things happen while the watcher's worker is busy sending a registration for a call: what they queue it handles
/// afterwards, in their order.
class BusyWorkerTest : public ServersTest
{
protected:
    BusyWorkerTest() { connects(); }
    ~BusyWorkerTest() override { CFakeChannels::whileSending(nullptr); }

    /// Once, at the first registration.
    void whileRegistering(const std::string& sCallID, std::function<void()> fnDuring)
    {
        m_mapDuring.emplace(" for " + sCallID + " at ", std::move(fnDuring));
        CFakeChannels::whileSending([this](const CFakeChannels::CSent& sent) {
            if (sent.sOwner != cA)
                return;
            const std::string sText = takenApart(sent.sBytes.c_str()).sText;
            const auto it = std::find_if(m_mapDuring.begin(), m_mapDuring.end(), [&](const auto& during) {
                return sText.find(during.first) != std::string::npos;
            });
            if (it != m_mapDuring.end())
                m_mapDuring.extract(it).mapped()();
        });
    }
    static void received() { EXPECT_TRUE(CFakeChannels::awaitReceivers()); }

private:
    std::map<std::string, std::function<void()>> m_mapDuring; // part of a registration's text -> what happens
};

TEST_F(BusyWorkerTest, WhatNobodyWasThereToTakeIsTakenUpWhenAnotherComes)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdRequests(cA, true);
    writes("alice");
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received(); // queued: the owner's data
        m_a.registers("dan", "sip:3", cB);
        m_a.unregisters("ann"); // nobody is there when the data is handled
    });
    whileRegistering("sip:3", [this] { m_a.registers("bob", "sip:1", cB); }); // before it is told that ann has left
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_TRUE(CFakeLog::contains("no registrants found"));
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=alice");
}

TEST_F(BusyWorkerTest, WhatNobodyWasThereToTakeWaitsForOneWhoStays)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdRequests(cA, true);
    writes("alice");
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received(); // queued: the owner's data
        m_a.registers("eve", "sip:3", cB);
        m_a.unregisters("ann");
        m_a.registers("fay", "sip:4", cB);
    });
    whileRegistering("sip:3", [this] {
        m_a.registers("bob", "sip:1", cB);
        m_a.unregisters("bob"); // gone when ann's leaving is handled
    });
    whileRegistering("sip:4", [this] { m_a.registers("dan", "sip:1", cB); });
    m_a.registers("carl", "sip:2", cB);
    settle();
    EXPECT_EQ(CFakeLog::countContaining("is taken up"), 2U);
    EXPECT_EQ(m_a.copyOf("dan", "sip:1"), "sip:1 CALLERID=alice");
}

TEST_F(BusyWorkerTest, WhatNobodyWasThereToTakeComesWithTheNextRegistration)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdRequests(cA, true);
    writes("alice");
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received();
        m_a.unregisters("ann");
    });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_TRUE(CFakeLog::contains("no registrants found"));
    m_a.registers("bob", "sip:1", cB);
    m_a.registers("dan", "sip:1", cB);
    m_a.unregisters("dan");
    settle();
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=alice");
    EXPECT_FALSE(CFakeLog::contains("CCDSNetProxyResync"));
}

TEST_F(BusyWorkerTest, WhatNobodyWasThereToTakeComesWithARegistrationDuringTheLeaving)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    CFakeChannels::holdRequests(cA, true);
    writes("alice");
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received();
        m_a.unregisters("ann");
        CFakeChannels::holdResponses(cA, true);
    });
    m_a.registers("carl", "sip:2", cB);
    settle();
    m_a.registers("bob", "sip:1", cB);
    settle();
    CFakeChannels::holdResponses(cA, false);
    settle();
    ASSERT_TRUE(CFakeLog::contains("call sip:1 is registered again"));
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=alice");
}

TEST_F(BusyWorkerTest, WhatIsRefusedDuringALeavingOutlastsIt)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    CFakeChannels::holdResponses(cA, true);
    m_a.unregisters("ann");
    settle();
    CFakeChannels::holdRequests(cA, true);
    m_a.registers("dan", "sip:1", cB);
    settle();
    writes("zoe"); // goes to dan's registration
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received(); // queued: the owner's data
        m_a.registers("eve", "sip:3", cB);
        CFakeChannels::holdResponses(cA, false);
        received(); // queued: the ends of ann's and of dan's exchange
        m_a.unregisters("dan");
    });
    whileRegistering("sip:3", [this] { m_a.registers("fay", "sip:1", cB); });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_TRUE(CFakeLog::contains("no registrants found"));
    EXPECT_EQ(m_a.copyOf("fay", "sip:1"), "sip:1 CALLERID=zoe");
}

TEST_F(BusyWorkerTest, WhatNobodyWasThereToSendAgainIsSentWhenAnotherComes)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    whileRegistering("sip:2", [this] {
        // It leaves on the new connection before the call is registered there, and is dropped.
        m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
        CFakeChannels::cutLink(cA, cB);
        CFakeChannels::restoreLink(cA, cB);
        received();
        CFakeChannels::holdResponses(cA, true);
    });
    whileRegistering("sip:3", [this] {
        CFakeChannels::holdResponses(cA, false);
        received(); // queued: the call is registered again
        m_a.registers("eve", "sip:4", cB);
        m_a.unregisters("ann");
    });
    whileRegistering("sip:4", [this] { m_a.registers("bob", "sip:1", cB); });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_EQ(ownersCopy(), "");
    m_a.registers("dan", "sip:3", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
}

TEST_F(BusyWorkerTest, WhatWasSentOnceMoreForNobodyIsSentWhenAnotherComes)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    whileRegistering("sip:2", [this] {
        // It leaves on the new connection before the call is registered there, and is dropped; so does its leaving.
        m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
        m_a.unregisters("ann");
        CFakeChannels::cutLink(cA, cB);
        CFakeChannels::restoreLink(cA, cB);
        received();
    });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_TRUE(CFakeLog::contains("no longer registered"));
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
    EXPECT_EQ(entriesAt(m_b, cA, 0), 3U);
}

TEST_F(BusyWorkerTest, WhatWasRefusedOutlastsARepeatedRegistration)
{
    m_a.registers("ann", "sip:1", cB);
    settle();
    writes("alice");
    settle();
    CFakeChannels::cutLink(cA, cB);
    settle();
    writes("zoe");
    settle();
    CFakeChannels::holdRequests(cA, true);
    CFakeChannels::holdResponses(cA, true);
    CFakeChannels::restoreLink(cA, cB);
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdRequests(cA, false);
        received(); // queued: the owner's data
        CFakeChannels::holdResponses(cA, false);
        received(); // queued: the call is registered again
        m_a.registers("dan", "sip:3", cB);
        m_a.unregisters("ann");
    });
    whileRegistering("sip:3", [this] { m_a.registers("bob", "sip:1", cB); });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_TRUE(CFakeLog::contains("no registrants found"));
    EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=zoe");
}

class TurnTest : public BusyWorkerTest, public testing::WithParamInterface<bool>
{
};

/// @param  whether another, who takes it for a call of this server, keeps the record
TEST_P(TurnTest, WhatDidNotFitIsOwedWhenNobodyIsThereAtItsTurn)
{
    m_a.registers("ann", "sip:1", cB);
    if (GetParam())
        m_a.registers("eve", "sip:1", cA);
    settle();
    CFakeChannels::scriptSends({CFakeChannels::cTooLarge});
    m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
    settle();
    CFakeChannels::holdResponses(cA, true);
    m_a.updates("ann", CNews("sip:1").sets("DNIS", "4711"));
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdResponses(cA, false);
        received(); // queued: the owner has the second
        m_a.unregisters("ann");
    });
    m_a.registers("carl", "sip:2", cB);
    settle();
    ASSERT_EQ(ownersCopy(), "sip:1 DNIS=4711");
    m_a.registers("bob", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here DNIS=4711");
}
INSTANTIATE_TEST_SUITE_P(Keepers, TurnTest, testing::Bool());

/// Owes the owner what one knew, while another keeps the record here.
class DebtTest : public BusyWorkerTest
{
protected:
    DebtTest()
    {
        m_a.registers("ann", "sip:1", cB);
        m_a.registers("eve", "sip:1", cA);
        settle();
        CFakeChannels::cutLink(cA, cB);
        m_a.updates("ann", CNews("sip:1").sets("ANI", "here"));
        settle();
        m_a.unregisters("ann");
        settle();
        CFakeChannels::restoreLink(cA, cB);
        settle();
    }
    void expectPaidToTheNext()
    {
        ASSERT_EQ(ownersCopy(), "");
        m_a.registers("dan", "sip:1", cB);
        settle();
        EXPECT_EQ(ownersCopy(), "sip:1 ANI=here");
    }
};

TEST_F(DebtTest, IsNotPaidWhenTheNextHasLeftAlready)
{
    CFakeChannels::holdResponses(cA, true);
    m_a.registers("bob", "sip:1", cB);
    settle();
    m_a.unregisters("bob");
    settle();
    CFakeChannels::holdResponses(cA, false);
    settle();
    expectPaidToTheNext();
}

TEST_F(DebtTest, IsOwedStillWhenItIsPaidBehindALeaving)
{
    CFakeChannels::holdResponses(cA, true);
    m_a.registers("bob", "sip:1", cB);
    settle();
    whileRegistering("sip:2", [this] {
        CFakeChannels::holdResponses(cA, false);
        received(); // queued: the owner knows of bob
        m_a.unregisters("bob");
    });
    m_a.registers("carl", "sip:2", cB);
    settle();
    expectPaidToTheNext();
}

TEST_F(DebtTest, IsNotPaidByWhatCameBehindALeaving)
{
    m_a.registers("bob", "sip:1", cB);
    settle();
    ASSERT_EQ(ownersCopy(), "sip:1 ANI=here");
    CFakeChannels::holdResponses(cA, true);
    m_a.unregisters("bob");
    settle();
    m_a.updates("eve", CNews("sip:1").sets("DNIS", "4711")); // the owner drops it, and the entry says that it has it
    settle();
    m_a.registers("dan", "sip:1", cB);
    m_a.registers("fay", "sip:1", cB);
    m_a.unregisters("fay");
    settle();
    CFakeChannels::holdResponses(cA, false);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here DNIS=4711");
}

TEST_F(DebtTest, IsOwedStillWhenTheOwnerIsLostDuringALeaving)
{
    m_a.registers("bob", "sip:1", cB);
    settle();
    ASSERT_EQ(ownersCopy(), "sip:1 ANI=here");
    CFakeChannels::silenceLink(cA, cB);
    m_a.unregisters("bob");
    settle();
    m_a.updates("eve", CNews("sip:1").sets("DNIS", "4711")); // to nobody: bob was the last
    settle();
    CFakeChannels::cutLink(cA, cB);
    settle();
    CFakeChannels::restoreLink(cA, cB);
    settle();
    m_a.registers("dan", "sip:1", cB);
    settle();
    EXPECT_EQ(ownersCopy(), "sip:1 ANI=here DNIS=4711");
}

/// Registrations and unregistrations of two, in every order, with the network held up between any two of them.
class InterleavingTest : public ServersTest, public testing::WithParamInterface<int>
{
};

TEST_P(InterleavingTest, EndsWithWhatIsRegistered)
{
    const int nHolds = GetParam();
    bool bAnn = false;
    bool bBob = false;
    const auto toggles = [this](const std::string& sWho, bool* pbRegistered) {
        if (*pbRegistered)
        {
            EXPECT_THAT(m_a.unregisters(sWho), IsOk());
        }
        else
        {
            EXPECT_THAT(m_a.registers(sWho, "sip:1", cB), IsOk());
        }
        *pbRegistered = !*pbRegistered;
    };
    for (int nOrder = 0; nOrder < 64; ++nOrder)
    {
        SCOPED_TRACE(nOrder);
        for (int nStep = 0; nStep < 6; ++nStep)
        {
            const bool bHold = ((nHolds >> (nStep % 3)) & 1) != 0;
            CFakeChannels::holdResponses(cA, bHold);
            CFakeChannels::holdRequests(cB, bHold && (nHolds & 8) != 0);
            ((nOrder >> nStep) & 1) != 0 ? toggles("ann", &bAnn) : toggles("bob", &bBob);
            settle();
        }
        CFakeChannels::holdRequests(cB, false);
        CFakeChannels::holdResponses(cA, false);
        settle();
        const std::string sValue = std::to_string(nOrder) + "/" + std::to_string(nHolds);
        writes(sValue);
        settle();
        if (bAnn)
        {
            EXPECT_EQ(m_a.copyOf("ann", "sip:1"), "sip:1 CALLERID=" + sValue);
        }
        if (bBob)
        {
            EXPECT_EQ(m_a.copyOf("bob", "sip:1"), "sip:1 CALLERID=" + sValue);
        }
        EXPECT_EQ(entriesAt(m_b, cA, 0), bAnn || bBob ? 1U : 0U);
        EXPECT_EQ(entriesAt(m_a, cB, 1), bAnn || bBob ? 1U : 0U);
    }
}
INSTANTIATE_TEST_SUITE_P(Holds, InterleavingTest, testing::Range(0, 16));

/// Anything may happen, in any order; when the network is whole again, so are the servers.
class TroubleTest : public ServersTest, public testing::WithParamInterface<unsigned int>
{
protected:
    TroubleTest() : ServersTest(GetParam() % 4 != 0) {}

    unsigned int pick(unsigned int uBelow) { return static_cast<unsigned int>(m_random() % uBelow); }
    /// Somebody comes or goes.
    void toggles(const std::string& sWho, const std::string& sCallID)
    {
        bool& bRegistered = m_mapRegistered[sWho];
        EXPECT_THAT(bRegistered ? m_a.unregisters(sWho) : m_a.registers(sWho, sCallID, cB), IsOk());
        bRegistered = !bRegistered;
    }
    void happens(int nStep);
    void expectAgreement();

    std::mt19937 m_random{GetParam()};
    std::map<std::string, bool> m_mapRegistered;
};

void TroubleTest::happens(int nStep)
{
    const std::string sCallID = "sip:" + std::to_string(1 + pick(3));
    const std::string sWho = (pick(2) != 0 ? "ann of " : "bob of ") + sCallID;
    switch (pick(10))
    {
    case 0: CFakeChannels::silenceLink(cA, cB); break;
    case 1: CFakeChannels::cutLink(cA, cB); break;
    case 2:
    case 3:
        // A silent link is noticed before it is made again.
        CFakeChannels::cutLink(cA, cB);
        CFakeChannels::restoreLink(cA, cB);
        break;
    case 4:
    case 5: toggles(sWho, sCallID); break;
    case 6:
        if (m_mapRegistered[sWho])
        {
            EXPECT_THAT(m_a.updates(sWho, CNews(sCallID).sets("ANI", std::to_string(nStep))), IsOk());
        }
        break;
    case 7: settle(); break;
    default: writes(std::to_string(nStep), sCallID); break;
    }
}

void TroubleTest::expectAgreement()
{
    std::size_t uCalls = 0;
    for (int nCall = 1; nCall <= 3; ++nCall)
    {
        const std::string sCallID = "sip:" + std::to_string(nCall);
        SCOPED_TRACE(sCallID);
        const bool bAnn = m_mapRegistered["ann of " + sCallID];
        const bool bBob = m_mapRegistered["bob of " + sCallID];
        if (bAnn)
        {
            EXPECT_EQ(m_a.copyOf("ann of " + sCallID, sCallID), ownersCopy(sCallID));
        }
        if (bBob)
        {
            EXPECT_EQ(m_a.copyOf("bob of " + sCallID, sCallID), ownersCopy(sCallID));
        }
        uCalls += bAnn || bBob ? 1 : 0;
    }
    EXPECT_EQ(entriesAt(m_b, cA, 0), uCalls);
    EXPECT_EQ(entriesAt(m_a, cB, 1), uCalls);
}

TEST_P(TroubleTest, EndsInAgreement)
{
    for (int nStep = 0; nStep < 200; ++nStep)
        happens(nStep);
    CFakeChannels::cutLink(cA, cB);
    CFakeChannels::restoreLink(cA, cB);
    settle();
    expectAgreement();
    // Whoever comes now finds also what nobody was there for in the end.
    for (const std::string sCallID : {"sip:1", "sip:2", "sip:3"})
        for (const std::string sWho : {"ann of ", "bob of "})
            if (!m_mapRegistered[sWho + sCallID])
                toggles(sWho + sCallID, sCallID);
    settle();
    expectAgreement();
}
INSTANTIATE_TEST_SUITE_P(Seeds, TroubleTest, testing::Range(1U, 101U));

} // namespace
