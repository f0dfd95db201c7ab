// What peers ask: registrations, call data, and things that make no sense. Everything is answered.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class PeerRequestTest : public testing::Test
{
protected:
    PeerRequestTest() { m_server.starts(); }

    /// A request by 10.0.0.2 that has been handled, and answered once.
    void asks(const std::string& sRequest, const std::string& sPeer = "10.0.0.2")
    {
        const std::size_t uAnswers = CFakeChannels::answers().size();
        CFakeChannels::request(sPeer, sRequest);
        CProxyWorld::settle();
        const auto vecAnswers = CFakeChannels::answers();
        ASSERT_EQ(vecAnswers.size(), uAnswers + 1);
        EXPECT_EQ(vecAnswers.back().sBytes, std::string("20;NETRSP_CLIENT_STATUS;1;0\0", 28));
    }
    /// A log line with the address of an item cut out.
    static bool told(const std::string& sBefore, const std::string& sAfter = "")
    {
        for (const std::string& sText : CFakeLog::texts())
            if (sText.rfind(sBefore, 0) == 0 && sText.size() == sBefore.size() + 8 + sAfter.size() &&
                sText.compare(sText.size() - sAfter.size(), std::string::npos, sAfter) == 0)
                return true;
        return false;
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(PeerRequestTest, ARequestIsTraced)
{
    asks("18;NETREQ_CLIENT_PING");
    EXPECT_TRUE(told("WT_OP_SERVER_RECEIVEREQUEST - 0x", ", ipaddr 0x0A000002"));
    EXPECT_EQ(CFakeLog::countExactly("-- request \"NETREQ_CLIENT_PING\""), 1U);
}

TEST_F(PeerRequestTest, OtherNamesAreAnsweredAndNothingElse)
{
    m_server.registers("ann", "sip:1", m_server.address());
    for (const char* const pszRequest : {"18;NETREQ_CLIENT_PING", "21;NETREQ_CLIENT_IMALIVE",
                                         "20;NETRSP_CLIENT_STATUS;1;0", "26;NETREQ_CLIENT_CCALLBACKMSGX"})
        asks(pszRequest);
    EXPECT_THAT(m_server.hears(), IsEmpty());
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
}

TEST_F(PeerRequestTest, NothingIsSentThatNobodyAskedFor)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.2");
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
}

TEST_F(PeerRequestTest, ARegistrationIsMadeAndGetsTheData)
{
    m_server.registers("ann", "sip:1", m_server.address(), "none");
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CProxyWorld::settle();
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::workerThread, ipaddr=0x0A000002, regid=peer's id, callid=sip:1, "
                                     "reason=ccbr_registration=1"),
              1U);
    EXPECT_EQ(CFakeLog::countExactly("-- request ccbr_registration - register"), 1U);
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 peer's id: sip:1 CALLERID=alice"));
    EXPECT_EQ(m_server.unregisters("peer's id"), 0); // it stands in the store
}

TEST_F(PeerRequestTest, ARegistrationIsMadeUnderTheProxysNameWithoutCallback)
{
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    EXPECT_EQ(
        CFakeLog::countContaining("CCDSAPI::Register: \"peer's id\",\"sip:1\",IP=\"10.0.0.1\",CCOID=0xFFFFFFFE, "), 1U);
    EXPECT_TRUE(CFakeLog::contains(", event=") &&
                CFakeLog::find("CCDSAPI::Register: \"peer's id\",\"sip:1\",IP").ends_with(", event="));
}

TEST_F(PeerRequestTest, ARegistrationOfAPeerIsNotForwarded)
{
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
    EXPECT_EQ(m_server.proxy().getClientCall("sip:1"), nullptr);
}

TEST_F(PeerRequestTest, ARepeatedRegistrationIsRefusedAndChangesNothing)
{
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    CFakeLog::clear();
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, addCallDataDistribution, work - 0x", " failed: 0xC1170A2F"));
    EXPECT_FALSE(CFakeLog::contains("CCDSAPI::Register"));
}

TEST_F(PeerRequestTest, ARegistrationUnderAnotherIDTakesTheEntryOver)
{
    m_server.registers("ann", "sip:1", m_server.address(), "none");
    asks(registrationRequest("old id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("new id", "10.0.0.1", "sip:1"));
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CProxyWorld::settle();
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 new id: sip:1 CALLERID=alice"));
}

TEST_F(PeerRequestTest, ARegistrationThatTheStoreRefusesIsTold)
{
    m_server.registers("taken", "sip:9", m_server.address());
    asks(registrationRequest("taken", "10.0.0.1", "sip:1"));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, registerClient, work - 0x", " failed: 0xC1170A2F"));
}

TEST_F(PeerRequestTest, AnUnregistrationIsMade)
{
    m_server.registers("ann", "sip:1", m_server.address(), "none");
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1", false));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::workerThread, ipaddr=0x0A000002, regid=peer's id, callid=sip:1, "
                                     "reason=ccbr_registration=0"),
              1U);
    EXPECT_EQ(CFakeLog::countExactly("-- request ccbr_registration - unregister"), 1U);
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.22, ipaddr 0x0A000002, ReqID:peer's id"),
              1U);
    EXPECT_THAT(m_server.unregisters("peer's id"), FailsWith(E_CDS_NOTFOUND));
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    CProxyWorld::settle();
    EXPECT_THAT(CFakeChannels::sent(), IsEmpty());
}

TEST_F(PeerRequestTest, AnUnregistrationOfAnUnknownIDIsTold)
{
    asks(registrationRequest("nobody", "10.0.0.1", "sip:1", false));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, unregisterClient, work - 0x", " failed: 0xC1170A2E"));
}

TEST_F(PeerRequestTest, AnUnregistrationOfAnotherPartysIDIsToldAndNotMade)
{
    m_server.registers("ann", "sip:1", m_server.address());
    asks(registrationRequest("third's id", "10.0.0.1", "sip:1"), "10.0.0.3");
    for (const char* const pszRegID : {"ann", "third's id"})
    {
        CFakeLog::clear();
        asks(registrationRequest(pszRegID, "10.0.0.1", "sip:1", false));
        EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, unregisterClient, work - 0x", " failed: 0xC1170A2E"));
        EXPECT_EQ(m_server.unregisters(pszRegID), 0) << "it stood";
    }
}

TEST_F(PeerRequestTest, AReplacedRegistrationGoesWithItsEntry)
{
    for (const char* const pszRegID : {"first id", "second id", "third id"})
        asks(registrationRequest(pszRegID, "10.0.0.1", "sip:1"));
    asks(registrationRequest("third id", "10.0.0.1", "sip:1", false));
    EXPECT_THAT(m_server.unregisters("first id"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(PeerRequestTest, AReplacedRegistrationIsStillItsPeersOwn)
{
    asks(registrationRequest("first id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("second id", "10.0.0.1", "sip:1"));
    CFakeLog::clear();
    asks(registrationRequest("first id", "10.0.0.1", "sip:1", false));
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
    EXPECT_THAT(m_server.unregisters("first id"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(PeerRequestTest, AnIDThatALocalRegistrantHasStaysItsOwn)
{
    m_server.registers("ann", "sip:9", m_server.address());
    asks(registrationRequest("ann", "10.0.0.1", "sip:1"));
    asks(registrationRequest("ann", "10.0.0.1", "sip:1", false));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, unregisterClient, work - 0x", " failed: 0xC1170A2E"));
    asks(registrationRequest("ann", "10.0.0.1", "sip:1"));
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_TRUE(CFakeLog::contains("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000002"));
    EXPECT_EQ(m_server.unregisters("ann"), 0) << "it stood";
}

TEST_F(PeerRequestTest, AnIDThatALocalRegistrantHasStaysItsOwnWhenItTakesAnEntryOver)
{
    m_server.registers("ann", "sip:9", m_server.address());
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("ann", "10.0.0.1", "sip:1"));
    asks(registrationRequest("ann", "10.0.0.1", "sip:1", false));
    EXPECT_THAT(m_server.unregisters("peer's id"), FailsWith(E_CDS_NOTFOUND)) << "it went with its entry";
    EXPECT_EQ(m_server.unregisters("ann"), 0) << "it stood";
}

TEST_F(PeerRequestTest, ARegistrationGoesWithItsEntryWhateverIDIsNamed)
{
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("nobody", "10.0.0.1", "sip:1", false));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, unregisterClient, work - 0x", " failed: 0xC1170A2E"));
    EXPECT_THAT(m_server.unregisters("peer's id"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(PeerRequestTest, IDsMayBeSoLongAndNoLonger)
{
    const std::string sLong(cPeerIDBytes, 'i');
    asks(registrationRequest(sLong, "10.0.0.1", "sip:1"));
    asks(registrationRequest("peer's id", "10.0.0.1", sLong));
    EXPECT_EQ(m_server.proxy().unregisterClient(sLong), 0) << "it stood";
    for (int nRequest = 0; nRequest < 5; ++nRequest)
    {
        asks(registrationRequest(sLong + "j", "10.0.0.1", "sip:2"));
        asks(registrationRequest("an id", "10.0.0.1", sLong + "j"));
        asks(registrationRequest("an id", "10.0.0.1", sLong + "j", false));
    }
    asks(registrationRequest("an id", "10.0.0.1", sLong + "j"), "10.0.0.3");
    EXPECT_THAT(m_server.proxy().unregisterClient(sLong + "j"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_server.proxy().unregisterClient("an id"), FailsWith(E_CDS_NOTFOUND));
    const std::string sRefused = "CCDSNetProxy::workerThread, registration refused, ipaddr 0x0A00000";
    for (const char* const pszTold :
         {"2, an ID is too long, 1 so far", "2, an ID is too long, 8 so far", "3, an ID is too long, 1 so far"})
        EXPECT_EQ(CFakeLog::countContaining(sRefused + pszTold), 1U) << pszTold;
    EXPECT_EQ(CFakeLog::countContaining(sRefused), 5U) << "each twice the one before";
}

TEST_F(PeerRequestTest, APeerMayHaveSoManyEntriesAndNoMore)
{
    for (std::size_t uEntry = 1; uEntry < cPeerEntries; ++uEntry)
        ASSERT_TRUE(m_server.proxy().reserveDistribution(false, std::to_string(uEntry), "id", 0x0A000002UL));
    asks(registrationRequest("the last", "10.0.0.1", "sip:1"));
    asks(registrationRequest("one more", "10.0.0.1", "sip:2"));
    asks(registrationRequest("another's", "10.0.0.1", "sip:2"), "10.0.0.3");
    EXPECT_EQ(CFakeLog::countContaining("registration refused, ipaddr 0x0A000002, it has too many, 1 so far"), 1U);
    EXPECT_THAT(m_server.proxy().unregisterClient("one more"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_EQ(m_server.proxy().unregisterClient("another's"), 0);
    // What goes makes room, and what is there may be asked for again.
    asks(registrationRequest("new id", "10.0.0.1", "sip:1"));
    EXPECT_FALSE(CFakeLog::contains("it has too many, 2 so far"));
    asks(registrationRequest("the last", "10.0.0.1", "sip:1", false));
    asks(registrationRequest("one more", "10.0.0.1", "sip:2"));
    EXPECT_EQ(m_server.proxy().unregisterClient("one more"), 0);
    EXPECT_THAT(m_server.proxy().remCallDataDistribution(false, 0x0A000002UL), IsOk());
    asks(registrationRequest("an id", "10.0.0.1", "sip:3"));
    EXPECT_EQ(m_server.proxy().unregisterClient("an id"), 0);
}

TEST_F(PeerRequestTest, CallDataReachesTheRegistrants)
{
    m_server.registers("ann", "sip:1", "10.0.0.2");
    CProxyWorld::settle();
    asks(callDataRequest("our id", CNews("sip:1").sets("CALLERID", "alice")));
    EXPECT_THAT(m_server.hears(), ElementsAre("ann: sip:1 CALLERID=alice"));
    EXPECT_EQ(CFakeLog::countExactly(
                  "CCDSNetProxy::workerThread, ipaddr=0x0A000002, regid=our id, callid=sip:1, reason=ccbr_calldata"),
              1U);
    EXPECT_TRUE(CFakeLog::contains("CCallbackMsg::trace: NetProxy, remote"));
}

TEST_F(PeerRequestTest, CallDataIsNotSentBackToWhomItCameFrom)
{
    m_server.registers("ann", "sip:1", "10.0.0.2");
    asks(registrationRequest("peer 3", "10.0.0.1", "sip:1"), "10.0.0.3");
    CFakeChannels::forgetTraffic();
    asks(callDataRequest("our id", CNews("sip:1").sets("CALLERID", "alice")));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.3 peer 3: sip:1 CALLERID=alice"));
    EXPECT_EQ(CFakeLog::countExactly("sendCDDist, no diff"), 1U);
}

TEST_F(PeerRequestTest, CallDataThatNobodyWaitsForIsDropped)
{
    m_server.registers("ann", "sip:1", m_server.address());
    CFakeLog::clear();
    asks(callDataRequest("an id", CNews("sip:1").sets("CALLERID", "alice")));
    EXPECT_THAT(m_server.hears(), IsEmpty());
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(PeerRequestTest, CallDataWithoutLocalRegistrantsIsRefusedByTheStore)
{
    (void)m_server.proxy().addCallDataDistribution(true, "sip:1", "an id", 0x0A000002UL);
    asks(callDataRequest("an id", CNews("sip:1").sets("CALLERID", "alice")));
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, m_pCDSAPI->Update, work - 0x", " failed: 0xC1170A2E"));
}

TEST_F(PeerRequestTest, CdrDataThatNoHostAskedForIsDropped)
{
    asks(callDataRequest("", CNews("sip:1").sets("CALLERID", "alice"), ccbr_cdrcalldata));
    EXPECT_EQ(
        CFakeLog::countExactly("CCDSNetProxy::workerThread, ipaddr=0x0A000002, callid=sip:1, reason=ccbr_cdrcalldata"),
        1U);
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(PeerRequestTest, AnUnknownReasonIsAnswered)
{
    asks(requestOf("1;0;0;;1;9;0;"));
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
}

TEST_F(PeerRequestTest, MalformedMessagesAreAnsweredAndTheWorkerGoesOn)
{
    const std::string aMessages[] = {
        "x",              // no list
        "",               // nothing
        "1;0;0;;1;1;1;x", // a record that is none
        "1;0;0;;1;2;1;x", // a registration that is none
        "1;0;0;;1;3;1;;",
        "1;0;0;;1;1;32;5;sip:1;1;1;1;A;3;1;x;1;0;1;0;1;0",       // a blob that is none
        "1;0;0;;1;1;40;5;sip:1;10;2147483647;10;2147483647;1;0", // counts out of all proportion
        "1;0;0;;1;2;-4;;;;;",
    };
    for (const std::string& sMessage : aMessages)
    {
        SCOPED_TRACE(sMessage);
        asks(requestOf(sMessage));
    }
    asks("26;NETREQ_CLIENT_CCALLBACKMSG");
    EXPECT_TRUE(told("(Error) CCDSNetProxy::workerThread, work - 0x", " failed: 0x80004005"));
    EXPECT_EQ(CFakeLog::countContaining("CCallData Malloc: 0x"), CFakeLog::countContaining("CCallData Free: 0x"));
}

TEST_F(PeerRequestTest, ACallbackThatThrowsDoesNotEndTheWorker)
{
    struct CThrower
    {
        static long callback(CCallbackMsg* pMsg)
        {
            if (pMsg->getCallbackReason() == ccbr_calldata)
                throw 42;
            return 0;
        }
    };
    ASSERT_EQ(m_server.store().Register(0, "thrower", "10.0.0.2", "sip:1", "*", CThrower::callback, 1), 0);
    CProxyWorld::settle();
    asks(callDataRequest("our id", CNews("sip:1").sets("CALLERID", "alice")));
    EXPECT_TRUE(told("CCDSNetProxy::workerThread - exception, work - 0x"));
    asks("18;NETREQ_CLIENT_PING");
}

TEST_F(PeerRequestTest, ACallbackThatThrowsCostsThePeerNothing)
{
    static bool s_bThrows = false;
    struct CThrower
    {
        static long callback(CCallbackMsg*)
        {
            if (s_bThrows)
                throw 42;
            return 0;
        }
    };
    m_server.registers("ann", "sip:1", m_server.address(), "none");
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    ASSERT_EQ(m_server.store().Register(0, "thrower", "10.0.0.1", "sip:9", "@", CThrower::callback, 1), 0);
    CProxyWorld::settle();
    s_bThrows = true;
    asks(registrationRequest("peer's id", "10.0.0.1", "sip:1"));
    s_bThrows = false;
    EXPECT_TRUE(told("CCDSNetProxy::workerThread - exception, work - 0x"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 peer's id: sip:1 CALLERID=alice"));
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(m_server.unregisters("peer's id"), FailsWith(E_CDS_NOTFOUND)) << "it left with its peer";
}

TEST_F(PeerRequestTest, APeerThatLeavesTakesItsRegistrationsWithIt)
{
    asks(registrationRequest("id 1", "10.0.0.1", "sip:1"));
    asks(registrationRequest("id 2", "10.0.0.1", "sip:2"));
    asks(registrationRequest("id 3", "10.0.0.1", "sip:1"), "10.0.0.3");
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(m_server.unregisters("id 1"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_server.unregisters("id 2"), FailsWith(E_CDS_NOTFOUND));
    EXPECT_EQ(CFakeLog::countExactly("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000002"), 1U);
    asks(registrationRequest("id 1", "10.0.0.1", "sip:1")); // its entry is gone: this one is new
    EXPECT_FALSE(CFakeLog::contains("addCallDataDistribution, found the IPADDR"));
    EXPECT_THAT(m_server.unregisters("id 3"), IsOk());
}

TEST_F(PeerRequestTest, RegistrationsOfALeavingPeerEndInTheOrderOfTheirCalls)
{
    asks(registrationRequest("b", "10.0.0.1", "sip:2"));
    asks(registrationRequest("a", "10.0.0.1", "sip:1"));
    asks(registrationRequest("c", "10.0.0.1", "sip:3"));
    CFakeLog::clear();
    EXPECT_THAT(m_server.proxy().unregisterClients(0x0A000002UL), IsOk());
    EXPECT_LT(placeInLog("CCDSAPI::Unregister: RegID=a"), placeInLog("CCDSAPI::Unregister: RegID=b"));
    EXPECT_LT(placeInLog("CCDSAPI::Unregister: RegID=b"), placeInLog("CCDSAPI::Unregister: RegID=c"));
}

TEST_F(PeerRequestTest, WhenARegistrationOfALeavingPeerIsUnknownItsEntriesStay)
{
    asks(registrationRequest("id 1", "10.0.0.1", "sip:1"));
    m_server.unregisters("id 1"); // by somebody else
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::workerThread, unregisterClients failed: 0xC1170A2E"), 1U);
    EXPECT_FALSE(CFakeLog::contains("CCDSNetProxy::remCallDataDistribution.1"));
}

TEST_F(PeerRequestTest, EntriesThatStayedGoWhenThePeerConnectsAgain)
{
    m_server.registers("ann", "sip:1", m_server.address(), "none");
    m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    asks(registrationRequest("id 1", "10.0.0.1", "sip:1"));
    m_server.unregisters("id 1"); // by somebody else
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CFakeChannels::serverReceives(CMLIB_SERVER_CONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    CFakeChannels::forgetTraffic();
    asks(registrationRequest("id 1", "10.0.0.1", "sip:1"));
    EXPECT_THAT(sentInShort(), ElementsAre("10.0.0.2 id 1: sip:1 CALLERID=alice"));
}

TEST_F(PeerRequestTest, AReplacedRegistrationGoesWithItsPeer)
{
    asks(registrationRequest("old id", "10.0.0.1", "sip:1"));
    asks(registrationRequest("new id", "10.0.0.1", "sip:1"));
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_THAT(m_server.unregisters("old id"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(PeerRequestTest, APeerWithoutRegistrationsLeavesWithoutAnError)
{
    CFakeChannels::serverReceives(CMLIB_SERVER_DISCONNECTED, "10.0.0.2");
    CProxyWorld::settle();
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
    EXPECT_TRUE(CFakeLog::contains("CCDSNetProxy::remCallDataDistribution.1, ipaddr 0x0A000002"));
}

} // namespace
