// Calls of other servers: what the owner is told when local registrants come and go.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <utility>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t cOwner = 0x0A000002U;

class ClientCallTest : public testing::Test
{
protected:
    ClientCallTest()
    {
        CFakeGuid::script({"the proxy", "call id", "next id", "third id"});
        m_server.starts();
    }

    CCDSNetProxy& proxy() { return m_server.proxy(); }
    void registers(const std::string& sWho, const std::string& sCallID = "sip:1")
    {
        EXPECT_EQ(m_server.registers(sWho, sCallID, "10.0.0.2"), 0);
        CProxyWorld::settle();
    }
    void unregisters(const std::string& sWho)
    {
        EXPECT_EQ(m_server.unregisters(sWho), 0);
        CProxyWorld::settle();
    }
    static void confirmLast()
    {
        CFakeChannels::confirm(CFakeChannels::sent().back().ulRequestID);
        CProxyWorld::settle();
    }
    static void connects()
    {
        CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
        CProxyWorld::settle();
    }
    /// The entries of the dump, as "sip:1 call id 1 10.0.0.2".
    std::vector<std::string> entries()
    {
        CFakeLog::clear();
        m_server.store().Dump(1);
        CProxyWorld::settle();
        auto vecTexts = CFakeLog::texts();
        std::erase_if(vecTexts, [](const std::string& sText) { return sText.find(", client ") == std::string::npos; });
        return vecTexts;
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(ClientCallTest, ANewCallHasAnIDOfItsOwnAndNothingElse)
{
    CFakeGuid::script({"its id"});
    const CClientCall call(&proxy(), 0x0A000009UL, "sip:9");
    EXPECT_EQ(call.m_sRegID, "its id");
    EXPECT_EQ(call.m_lCount, 0);
    EXPECT_EQ(call.m_ullTimestamp, 0U);
    EXPECT_EQ(call.m_tsStamp, CCDSTimestamp(0, 0));
}

TEST_F(ClientCallTest, BeginAndEndOfACallAreTraced)
{
    std::string sAddress;
    {
        CFakeGuid::script({"its id"});
        const CClientCall call(&proxy(), 0x0A000009UL, "sip:9");
        sAddress = identity(&call);
        EXPECT_EQ(CFakeLog::countExactly("CClientCall::CClientCall - " + sAddress +
                                         ", ipaddr 0x0A000009, callid sip:9, regid its id"),
                  1U);
    }
    EXPECT_EQ(CFakeLog::countExactly("CClientCall::~CClientCall - " + sAddress +
                                     ", ipaddr 0x0A000009, callid sip:9, regid its id"),
              1U);
}

TEST_F(ClientCallTest, WithoutAChannelNothingIsDumped)
{
    m_server.stops();
    CFakeLog::clear();
    CClientCall(&proxy(), 1, "sip:9").dump(1);
    CCalldataDistribution(&proxy(), true, 1, "sip:9", "id").dump(1);
    EXPECT_FALSE(CFakeLog::contains("   callid"));
}

TEST_F(ClientCallTest, TheFirstRegistrationIsForwardedUnderTheCallsID)
{
    registers("ann");
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 register call id for sip:1 at 10.0.0.2"));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::addClientCall"), 1U);
}

TEST_F(ClientCallTest, AForwardedRegistrationByteByByte)
{
    registers("ann");
    const CRequest request = takenApart(CFakeChannels::sentTexts().at(0));
    EXPECT_EQ(request.sTraceID, "-1");
    EXPECT_EQ(request.sRegID, "call id");
    EXPECT_EQ(request.sReason, "2");
    EXPECT_EQ(request.sPayload, "7;call id;8;10.0.0.2;5;sip:1;1;T;7;1;0;1;0");
}

TEST_F(ClientCallTest, TheOwnersAddressGoesAsItWasGiven)
{
    EXPECT_EQ(m_server.registers("ann", "sip:1", "010.0.0.2"), 0);
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 register call id for sip:1 at 010.0.0.2"));
}

TEST_F(ClientCallTest, FurtherRegistrationsAreOnlyCounted)
{
    registers("ann");
    registers("bob");
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    EXPECT_EQ(proxy().getClientCall("sip:1")->m_lCount, 2);
}

TEST_F(ClientCallTest, OnlyTheLastUnregistrationIsForwarded)
{
    registers("ann");
    registers("bob");
    unregisters("ann");
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
    unregisters("bob");
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 register call id for sip:1 at 10.0.0.2",
                                           "10.0.0.2 unregister call id for sip:1 at 10.0.0.2"));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remClientCall"), 2U);
}

TEST_F(ClientCallTest, ItGoesWhenItsUnregistrationHasEnded)
{
    registers("ann");
    unregisters("ann");
    ASSERT_NE(proxy().getClientCall("sip:1"), nullptr);
    EXPECT_EQ(proxy().getClientCall("sip:1")->m_lCount, 0);
    confirmLast();
    EXPECT_EQ(proxy().getClientCall("sip:1"), nullptr);
    EXPECT_EQ(CFakeLog::countContaining("WORK_KIND_SEND_CLIENT_UNREGISTER - 0x"), 1U);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(ClientCallTest, ItGoesAlsoWhenItsUnregistrationFailed)
{
    registers("ann");
    unregisters("ann");
    CFakeChannels::response(CFakeChannels::sent().back().ulRequestID, 0xC1200D99U, nullptr);
    CProxyWorld::settle();
    EXPECT_EQ(proxy().getClientCall("sip:1"), nullptr);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(ClientCallTest, ARegistrationBeforeThatIsForwardedUnderTheSameID)
{
    registers("ann");
    unregisters("ann");
    registers("bob");
    EXPECT_EQ(sentInShort().back(), "10.0.0.2 register call id for sip:1 at 10.0.0.2");
    EXPECT_EQ(CFakeChannels::sent().size(), 3U);
}

TEST_F(ClientCallTest, ARegistrationAfterThatBeginsAnew)
{
    registers("ann");
    unregisters("ann");
    confirmLast();
    registers("bob");
    EXPECT_EQ(sentInShort().back(), "10.0.0.2 register next id for sip:1 at 10.0.0.2");
}

TEST_F(ClientCallTest, TheEntryOfACallThatIsWantedAgainIsSetUpAgain)
{
    registers("ann");
    CNews news("sip:1");
    (void)proxy().updateCallDataDistribution("sip:1", cOwner, news.sets("CALLERID", "alice").data());
    unregisters("ann");
    const auto ulUnregistration = CFakeChannels::sent().back().ulRequestID;
    registers("bob");
    CFakeLog::clear();
    CFakeChannels::confirm(ulUnregistration);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countContaining("CCDSNetProxy::remCallDataDistribution.22, "), 1U);
    ASSERT_NE(proxy().getClientCall("sip:1"), nullptr);
    EXPECT_EQ(proxy().getClientCall("sip:1")->m_lCount, 1);
    EXPECT_THAT(entries(), ElementsAre("   callid sip:1, regid call id, client 1, server 10.0.0.2"));
    // It does not remember what the owner had: everything goes out.
    CFakeChannels::forgetTraffic();
    m_server.updates("bob", CNews("sip:1").sets("CALLERID", "alice"));
    CProxyWorld::settle();
    EXPECT_EQ(CFakeChannels::sent().size(), 1U);
}

TEST_F(ClientCallTest, OwnCallsAreNotForwarded)
{
    m_server.registers("ann", "sip:1", m_server.address());
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    m_server.unregisters("ann");
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(ClientCallTest, TheOwnerIsAskedForTheTimesBeforeItIsSent)
{
    std::vector<std::string> vecAsked;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent&) { vecAsked = CFakeChannels::timeQueries(); });
    registers("ann");
    EXPECT_THAT(vecAsked, ElementsAre("10.0.0.2", "10.0.0.2"));
    EXPECT_EQ(CFakeChannels::timeQueries().size(), 2U);
}

TEST_F(ClientCallTest, AnOwnerThatDoesNotAnswerIsAskedForTheTimesOnce)
{
    CFakeChannels::failPeerTime("10.0.0.2", 0xC1200D11U);
    registers("ann");
    EXPECT_THAT(CFakeChannels::timeQueries(), ElementsAre("10.0.0.2", "10.0.0.1"));
}

TEST_F(ClientCallTest, TheTimesOfACallNeverGoBack)
{
    CFakeChannels::setPeerTime("10.0.0.2", 5000);
    registers("ann");
    EXPECT_EQ(m_server.store().GetCallIDTimestamp("sip:1"), 5000U);
    CFakeChannels::setPeerTime("10.0.0.2", 4000);
    EXPECT_EQ(m_server.store().GetCallIDTimestamp("sip:1"), 5000U);
    CCDSTimestamp tsFirst(0, 0);
    CCDSTimestamp tsSecond(0, 0);
    (void)m_server.store().GetCallIDCDSTimestamp("sip:1", &tsFirst);
    (void)m_server.store().GetCallIDCDSTimestamp("sip:1", &tsSecond);
    EXPECT_EQ(tsFirst.value(), 5000U);
    EXPECT_TRUE(tsSecond > tsFirst);
    CFakeChannels::failPeerTime("10.0.0.2", 0xC1200D11U);
    registers("bob");
    CFakeChannels::setPeerTime("10.0.0.2", 4500);
    EXPECT_EQ(m_server.store().GetCallIDTimestamp("sip:1"), CFakeClock::fileTime()); // this clock had answered
}

TEST_F(ClientCallTest, AnOwnerThatCannotBeReachedLeavesTheCallCounted)
{
    proxy().serverStates().set(cOwner, 0);
    EXPECT_EQ(m_server.registers("ann", "sip:1", "10.0.0.2"), 0); // the registrant's own registration stands
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::workerThread, addClientCall failed: 0xC1170A29"), 1U);
    EXPECT_EQ(proxy().getClientCall("sip:1")->m_lCount, 1);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(ClientCallTest, ARegistrationThatIsSentHasItsEntry)
{
    registers("ann");
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::addCallDataDistribution, call sip:1, ipaddr 0x0A000002"), 1U);
    EXPECT_THAT(entries(), ElementsAre("   callid sip:1, regid call id, client 1, server 10.0.0.2"));
}

TEST_F(ClientCallTest, TheEntryStandsBeforeTheRequestIsOut)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    bool bStood = false;
    CFakeChannels::whileSending(
        [&](const CFakeChannels::CSent&) { bStood = !proxy().reserveDistribution(true, "sip:1", "x", cOwner); });
    EXPECT_EQ(m_server.registers("ann", "sip:1", "10.0.0.2"), 0);
    EXPECT_TRUE(bStood);
}

TEST_F(ClientCallTest, AnEntryThatStandsAlreadyIsNoFailure)
{
    registers("ann");
    unregisters("ann");
    CFakeLog::clear();
    registers("bob");
    EXPECT_TRUE(CFakeLog::contains("CCDSNetProxy::addCallDataDistribution, found the IPADDR with the same ReqID"));
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(ClientCallTest, AnUnregistrationOfAnUnknownCallIsTold)
{
    m_server.stops();
    m_server.registers("ann", "sip:1", "10.0.0.2"); // while nobody forwards
    m_server.starts();
    CFakeLog::clear();
    unregisters("ann");
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::remClientCall failed: 0xC1170A2E"), 1U);
    EXPECT_EQ(CFakeLog::countContaining("(Error) CCDSNetProxy::workerThread, remClientCall, work - 0x"), 1U);
}

TEST_F(ClientCallTest, AnUnregistrationThatCannotBeSentEndsTheCallAtOnce)
{
    registers("ann");
    proxy().serverStates().set(cOwner, 0);
    unregisters("ann");
    EXPECT_EQ(proxy().getClientCall("sip:1"), nullptr);
    EXPECT_THAT(entries(), IsEmpty()); // or it would keep others from the call's changes for ever
}

TEST_F(ClientCallTest, AConnectionRegistersEverythingThereAgainInOrder)
{
    registers("ann", "sip:2");
    registers("bob", "sip:1");
    EXPECT_EQ(m_server.registers("eve", "sip:3", "10.0.0.9"), 0);
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    connects();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 register next id for sip:1 at 10.0.0.2",
                                           "10.0.0.2 register call id for sip:2 at 10.0.0.2"));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::reregisterClientCalls: ipaddr 0x0A000002"), 1U);
}

TEST_F(ClientCallTest, ARepeatedRegistrationByteByByte)
{
    registers("ann");
    CFakeChannels::forgetTraffic();
    connects();
    const CRequest request = takenApart(CFakeChannels::sentTexts().at(0));
    EXPECT_EQ(request.sTraceID, "0");
    EXPECT_EQ(request.sRegID, "call id");
    EXPECT_EQ(request.sReason, "2");
    EXPECT_EQ(request.sPayload, "7;call id;8;10.0.0.2;5;sip:1;1;T;7;1;0;1;0");
}

TEST_F(ClientCallTest, ACallThatIsBeingUnregisteredIsRegisteredAgainToo)
{
    registers("ann");
    unregisters("ann");
    CFakeChannels::forgetTraffic();
    connects();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 register call id for sip:1 at 10.0.0.2"));
}

TEST_F(ClientCallTest, ARegistrationThatWasRepeatedInVainIsWithdrawn)
{
    registers("ann");
    unregisters("ann");
    const auto ulUnregistration = CFakeChannels::sent().back().ulRequestID;
    connects();
    const auto ulAgain = CFakeChannels::sent().back().ulRequestID;
    CFakeChannels::confirm(ulUnregistration);
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    CFakeChannels::confirm(ulAgain);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("----- WORK_KIND_SEND_CLIENT_REREGISTER - no longer registered"), 1U);
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 unregister call id for sip:1 at 10.0.0.2"));
}

TEST_F(ClientCallTest, OneFailureDoesNotKeepTheOthersFromBeingRegisteredAgain)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    registers("ann", "sip:1");
    registers("bob", "sip:2");
    registers("eve", "sip:3");
    CFakeChannels::forgetTraffic();
    CFakeLog::clear();
    CFakeChannels::whileSending([&](const CFakeChannels::CSent& sent) {
        if (sent.sBytes.find("sip:1") != std::string::npos)
            CFakeChannels::scriptSends({0xC1200D55U});
        else
            proxy().serverStates().set(cOwner, 1);
    });
    EXPECT_THAT(proxy().reregisterClientCalls(cOwner), FailsWith(E_CDS_SERVERUNREACHABLE));
    EXPECT_EQ(CFakeChannels::sent().size(), 1U); // the others are refused, each for itself
    EXPECT_EQ(CFakeLog::countContaining("CCDSWork::CCDSWork() - 0x"), 3U);
    EXPECT_THAT(proxy().reregisterClientCalls(0x0A000007U), IsOk()); // nothing there
}

TEST_F(ClientCallTest, AfterARepeatedRegistrationEverythingIsSentAgain)
{
    registers("ann");
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    connects();
    CFakeLog::clear();
    confirmLast();
    EXPECT_EQ(CFakeLog::countExactly("----- WORK_KIND_SEND_CLIENT_REREGISTER - regid=call id"), 1U);
    EXPECT_EQ(sentInShort().back(), "10.0.0.2 call id: sip:1 CALLERID=alice");
}

TEST_F(ClientCallTest, ARepeatedRegistrationWithoutDataIsToldSo)
{
    registers("ann");
    connects();
    confirmLast();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::workerThread, m_pCDSAPI->GetCallData failed: 0xC1170A2E"),
              1U);
}

TEST_F(ClientCallTest, ARepeatedRegistrationFindsItsEntryMissing)
{
    registers("ann");
    connects();
    (void)proxy().remCallDataDistribution(true, "sip:1", cOwner);
    CFakeLog::clear();
    confirmLast();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::workerThread (client), updateCallDataDistribution failed: "
                                     "0xC1170A2C"),
              1U);
    EXPECT_THAT(entries(), ElementsAre("   callid sip:1, regid call id, client 1, server 10.0.0.2"));
}

TEST_F(ClientCallTest, TheResponsesStatusIsNotLookedAt)
{
    registers("ann");
    connects();
    const std::string sOther("20;NETRSP_CLIENT_STATUS;1;5\0", 28);
    CFakeChannels::response(CFakeChannels::sent().back().ulRequestID, 0, &sOther);
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("----- WORK_KIND_SEND_CLIENT_REREGISTER - regid=call id"), 1U);
}

TEST_F(ClientCallTest, AFailedRepeatedRegistrationChangesNothing)
{
    registers("ann");
    connects();
    CFakeChannels::response(CFakeChannels::sent().back().ulRequestID, 0xC1200D99U, nullptr);
    CProxyWorld::settle();
    EXPECT_FALSE(CFakeLog::contains("WORK_KIND_SEND_CLIENT_REREGISTER"));
}

TEST_F(ClientCallTest, AConnectionThatComesUpDuringAFailingSendIsNotMissed)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    bool bFirst = true;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent&) {
        if (!std::exchange(bFirst, false))
            return;
        connects(); // the worker has handled it, and sent the registration again, before the send fails
        CFakeChannels::scriptSends({CFakeChannels::cPeerDown});
    });
    EXPECT_EQ(m_server.registers("ann", "sip:1", "10.0.0.2"), 0);
    CProxyWorld::settle();
    EXPECT_TRUE(CFakeLog::contains("addClientCall failed: 0xC1200DC8"));
    EXPECT_THAT(proxy().serverStates().all(), ElementsAre(std::pair(cOwner, 1)));
    EXPECT_EQ(entries().size(), 1U) << "the owner's data has where to go";
    registers("eve", "sip:2");
    EXPECT_EQ(sentInShort().back().substr(0, 17), "10.0.0.2 register");
    EXPECT_EQ(CFakeChannels::sent().size(), 3U);
}

TEST_F(ClientCallTest, AnUnregistrationThatTakesItsTimeHoldsNoRegistrationUp)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    m_server.stops();
    m_server.starts();
    registers("ann");
    CFakeChannels::forgetTraffic();
    std::future<void> others;
    CFakeChannels::whileSending([&](const CFakeChannels::CSent& sent) {
        if (takenApart(sent.sBytes.c_str()).sText.rfind("unregister", 0) != 0)
            return; // one of theirs
        others = std::async(std::launch::async, [&] {
            EXPECT_EQ(m_server.registers("bob", "sip:2", "10.0.0.2"), 0);
            EXPECT_EQ(m_server.registers("eve", "sip:1", "10.0.0.2"), 0);
        });
        EXPECT_EQ(others.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    });
    unregisters("ann");
    others.get();
    CProxyWorld::settle();
    auto vecSent = sentInShort();
    std::erase_if(vecSent, [](const std::string& sText) { return sText.find("for sip:2") != std::string::npos; });
    const std::string sRegID = proxy().getClientCall("sip:1")->m_sRegID;
    EXPECT_THAT(vecSent, ElementsAre("10.0.0.2 unregister " + sRegID + " for sip:1 at 10.0.0.2",
                                     "10.0.0.2 register " + sRegID + " for sip:1 at 10.0.0.2"));
    for (const auto& sent : CFakeChannels::sent())
        CFakeChannels::confirm(sent.ulRequestID);
    CProxyWorld::settle();
    EXPECT_EQ(proxy().getClientCall("sip:1")->m_lCount, 1);
    EXPECT_EQ(entries().size(), 2U);
}

TEST_F(ClientCallTest, AnUnansweredRegistrationWaitsForever)
{
    registers("ann");
    const auto dwID = static_cast<std::uint32_t>(CFakeChannels::sent().back().ulRequestID);
    CFakeClock::advance(1000ULL * 60 * 60);
    CProxyWorld::settle();
    EXPECT_NE(proxy().getCCDSWork(dwID), nullptr);
}

} // namespace
