// How the proxy starts: its channels, threads, configuration and registration, and what happens when one is missing.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class ProxyStartTest : public testing::Test
{
protected:
    /// A start by the proxy's own account, since the store does not tell.
    long starts()
    {
        CFakeChannels::setMaker(m_server.address());
        return m_server.proxy().Initialize(m_server.address(), &m_server.store());
    }
    ~ProxyStartTest() override { (void)m_server.proxy().Finalize(); }

    CProxyWorld m_world;
    CServer m_server;
};

static_assert(!std::is_polymorphic_v<CCDSNetProxy> && !std::is_polymorphic_v<CCDRCallData>);
static_assert(!std::is_polymorphic_v<CCDSWork> && !std::is_polymorphic_v<CClientCall> &&
              !std::is_polymorphic_v<CCalldataDistribution>);

TEST_F(ProxyStartTest, Succeeds)
{
    EXPECT_THAT(starts(), IsOk());
}

TEST_F(ProxyStartTest, MakesTheServerChannel)
{
    starts();
    const auto vecCreations = CFakeChannels::creations();
    ASSERT_EQ(vecCreations.size(), 2U);
    EXPECT_EQ(vecCreations[0].sChannelID, "5F3A9C21-7B4E-4D08-9A6C-2E81D04B7F13");
    EXPECT_EQ(vecCreations[0].sService, "CDS");
    EXPECT_EQ(vecCreations[0].sPeerChannelID, "8C2D6E47-1A93-4F5B-B0D2-6A7F39E1C845");
    EXPECT_EQ(vecCreations[0].ulTimeout, 60U);
    EXPECT_EQ(vecCreations[0].nRole, 1);
    EXPECT_EQ(vecCreations[0].ulCount, 2U);
    EXPECT_EQ(static_cast<int>(vecCreations[0].eMode), 3);
}

TEST_F(ProxyStartTest, MakesTheClientChannel)
{
    starts();
    const auto vecCreations = CFakeChannels::creations();
    ASSERT_EQ(vecCreations.size(), 2U);
    EXPECT_EQ(vecCreations[1].sChannelID, vecCreations[0].sChannelID);
    EXPECT_EQ(vecCreations[1].sService, vecCreations[0].sService);
    EXPECT_EQ(vecCreations[1].sPeerChannelID, vecCreations[0].sPeerChannelID);
    EXPECT_EQ(vecCreations[1].ulTimeout, 60U);
    EXPECT_EQ(vecCreations[1].nRole, 0);
    EXPECT_EQ(vecCreations[1].ulCount, 1U);
    EXPECT_EQ(static_cast<int>(vecCreations[1].eMode), 2);
}

TEST_F(ProxyStartTest, StartsEachChannelBeforeTheNextIsMade)
{
    starts();
    EXPECT_THAT(CFakeChannels::lifeCycle(),
                ElementsAre("server new", "server initialize", "client new", "client initialize"));
}

TEST_F(ProxyStartTest, StartsWorkerAndReceiversInOrder)
{
    starts();
    std::vector<std::string> vecNames;
    for (const auto& start : CFakeThreads::starts())
    {
        vecNames.push_back(start.sName);
        EXPECT_TRUE(start.bCreateThread);
        EXPECT_EQ(start.pArg, &m_server.proxy());
    }
    EXPECT_THAT(vecNames, ElementsAre("CDSNPWker", "CDSXPSrvReq", "CDSXPCliReq", "CDSXPCliRsp"));
}

TEST_F(ProxyStartTest, ThreadsNameThemselves)
{
    m_server.starts();
    EXPECT_THAT(CFakeThreads::namesSet(), Contains("CDSNPWker"));
    EXPECT_THAT(CFakeThreads::namesSet(), Contains("CDSXPSrvReq"));
    EXPECT_THAT(CFakeThreads::namesSet(), Contains("CDSXPCliReq"));
    EXPECT_THAT(CFakeThreads::namesSet(), Contains("CDSXPCliRsp"));
}

TEST_F(ProxyStartTest, KnowsItsAddressAsANumber)
{
    starts();
    EXPECT_EQ(m_server.proxy().address(), 0x0A000001U);
}

TEST_F(ProxyStartTest, WithoutAWorkerNothingElseIsStarted)
{
    CFakeThreads::failNextCreateThread();
    EXPECT_THAT(starts(), FailsWith(E_CDS_NOTHREAD));
    EXPECT_THAT(CFakeChannels::creations(), IsEmpty());
    EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, CreateThread workerThread failed: 0xC1170A34"),
              1U);
    EXPECT_EQ(CFakeLog::countExactly("<<<CCDSNetProxy::Finalize"), 1U);
}

TEST_F(ProxyStartTest, AServerChannelThatThrowsIsTold)
{
    CFakeChannels::failNextCreation(cdsResult(0xC1200D01UL), 0, "messaging/channel", 12);
    EXPECT_THAT(starts(), FailsWith(cdsResult(0xC1200D01UL)));
    EXPECT_EQ(CFakeLog::countExactly("(Error) Catch KRException. CCDSNetProxy::Initialize, new CCMLibraryX.2, "
                                     "loc:messaging/channel.12 failed: 0xC1200D01"),
              1U);
    EXPECT_EQ(CFakeChannels::alive(), 0U);
    EXPECT_EQ(CFakeLog::countExactly("<<<CCDSNetProxy::Finalize"), 1U);
}

TEST_F(ProxyStartTest, AServerChannelThatDoesNotStartIsTold)
{
    CFakeChannels::failNextInitialize(cdsResult(0xC1200D02UL));
    EXPECT_THAT(starts(), FailsWith(cdsResult(0xC1200D02UL)));
    EXPECT_EQ(
        CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, m_pcmLibraryServer->initialize failed: 0xC1200D02"),
        1U);
    EXPECT_THAT(CFakeChannels::lifeCycle(),
                ElementsAre("server new", "server initialize", "server uninitialize", "server delete"));
}

TEST_F(ProxyStartTest, AClientChannelThatThrowsIsTold)
{
    CFakeChannels::failNextCreation(cdsResult(0xC1200D03UL), 1, "messaging/channel", 13);
    EXPECT_THAT(starts(), FailsWith(cdsResult(0xC1200D03UL)));
    // Two blanks behind the first full stop.
    EXPECT_EQ(CFakeLog::countExactly("(Error) Catch KRException.  CCDSNetProxy::Initialize, new CCMLibraryX.4, "
                                     "loc:messaging/channel.13 failed: 0xC1200D03"),
              1U);
    EXPECT_EQ(CFakeChannels::alive(), 0U);
}

TEST_F(ProxyStartTest, AClientChannelThatDoesNotStartIsTold)
{
    CFakeChannels::failNextInitialize(cdsResult(0xC1200D04UL), 1);
    EXPECT_THAT(starts(), FailsWith(cdsResult(0xC1200D04UL)));
    EXPECT_EQ(
        CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, m_pcmLibraryClient->initialize failed: 0xC1200D04"),
        1U);
    EXPECT_EQ(CFakeChannels::alive(), 0U);
}

TEST_F(ProxyStartTest, AReceiverThatDoesNotStartIsTold)
{
    const std::vector<std::string> vecNames{"xpServerRequestThread", "xpClientRequestThread", "xpClientResponseThread"};
    for (std::size_t uThread = 0; uThread < vecNames.size(); ++uThread)
    {
        SCOPED_TRACE(vecNames[uThread]);
        CFakeLog::clear();
        CFakeThreads::failNextCreateThread(uThread + 1);
        EXPECT_THAT(starts(), FailsWith(E_CDS_NOTHREAD));
        EXPECT_EQ(CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, CreateThread " + vecNames[uThread] +
                                         " failed: 0xC1170A34"),
                  1U);
        EXPECT_EQ(CFakeChannels::alive(), 0U);
        EXPECT_EQ(CFakeThreads::alive(), 0U);
        EXPECT_EQ(CFakeLog::countExactly("<<<CCDSNetProxy::Finalize"), 1U);
    }
}

TEST_F(ProxyStartTest, AMissingSettingIsWritten)
{
    starts();
    EXPECT_EQ(CFakeConfiguration::number("Orvane\\CDS", "SendInWorkerThread"), 1UL);
    EXPECT_TRUE(m_server.proxy().sendsInWorkerThread());
}

TEST_F(ProxyStartTest, ASettingOfZeroIsTaken)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 0);
    starts();
    EXPECT_FALSE(m_server.proxy().sendsInWorkerThread());
    EXPECT_EQ(CFakeConfiguration::number("Orvane\\CDS", "SendInWorkerThread"), 0UL);
}

TEST_F(ProxyStartTest, AnyOtherSettingMeansYes)
{
    CFakeConfiguration::setNumber("Orvane\\CDS", "SendInWorkerThread", 5);
    starts();
    EXPECT_TRUE(m_server.proxy().sendsInWorkerThread());
}

TEST_F(ProxyStartTest, WithoutItsKeyTheDefaultHolds)
{
    CFakeConfiguration::failKeys(E_FAIL);
    EXPECT_THAT(starts(), IsOk());
    EXPECT_TRUE(m_server.proxy().sendsInWorkerThread());
}

TEST_F(ProxyStartTest, WithoutAConfigurationTheDefaultHolds)
{
    CFakeConfiguration::failNextOpen(E_FAIL);
    EXPECT_THAT(starts(), IsOk());
    EXPECT_TRUE(m_server.proxy().sendsInWorkerThread());
}

TEST_F(ProxyStartTest, RegistersForAllCallsAndNotices)
{
    CFakeGuid::script({"the proxy"});
    starts();
    EXPECT_EQ(m_server.proxy().registrationID(), "the proxy");
    EXPECT_TRUE(CFakeLog::contains(
        "CCDSAPI::Register: \"the proxy\",\"*\",IP=\"10.0.0.1\",CCOID=0xFFFFFFFF, Req=" +
        std::to_string(static_cast<int>(reinterpret_cast<std::uintptr_t>(&m_server.proxy()) & 0xFFFFFFFFU)) +
        ", event=@"));
}

TEST_F(ProxyStartTest, ARefusedRegistrationEndsIt)
{
    CFakeGuid::script({"taken"});
    m_server.registers("taken", "sip:1", m_server.address());
    EXPECT_THAT(starts(), FailsWith(E_CDS_EXISTS));
    EXPECT_EQ(CFakeChannels::alive(), 0U);
    EXPECT_EQ(CFakeThreads::alive(), 0U);
}

TEST_F(ProxyStartTest, OtherListenersHearOfIt)
{
    m_server.registers("ann", "sip:1", m_server.address(), "@");
    m_server.hears();
    m_server.starts();
    EXPECT_THAT(m_server.hears(), ElementsAre("ann: notice"));
}

TEST_F(ProxyStartTest, EveryStartRegistersUnderANewID)
{
    starts();
    const std::string sFirst = m_server.proxy().registrationID();
    (void)m_server.proxy().Finalize();
    starts();
    EXPECT_NE(m_server.proxy().registrationID(), sFirst);
    EXPECT_NE(m_server.proxy().registrationID(), "");
}

TEST_F(ProxyStartTest, ASecondStartStopsTheFirst)
{
    starts();
    EXPECT_THAT(starts(), IsOk());
    EXPECT_EQ(CFakeThreads::alive(), 4U);
    EXPECT_EQ(CFakeChannels::alive(), 2U);
}

TEST_F(ProxyStartTest, TheStoreStartsWithoutItsProxy)
{
    CFakeChannels::failNextCreation(E_FAIL);
    EXPECT_THAT(m_server.starts(), IsOk());
    EXPECT_THAT(m_server.registers("ann", "sip:1", m_server.address()), IsOk());
    EXPECT_THAT(m_server.updates("ann", CNews("sip:1").sets("CALLERID", "alice")), IsOk());
    EXPECT_EQ(m_server.copyOf("ann", "sip:1"), "sip:1 CALLERID=alice");
}

TEST_F(ProxyStartTest, TimeQueriesAreAnsweredByTheServerChannel)
{
    m_server.starts();
    CFakeChannels::setPeerTime("10.0.0.2", 4711);
    EXPECT_EQ(m_server.store().GetServerTimestamp(0x0A000002UL), 4711U);
}

TEST_F(ProxyStartTest, AfterAFailedStartTheLocalClockAnswers)
{
    CFakeChannels::failNextInitialize(E_FAIL, 1);
    starts();
    CFakeChannels::setPeerTime("10.0.0.2", 4711);
    EXPECT_EQ(m_server.store().GetServerTimestamp(0x0A000002UL), CFakeClock::fileTime());
}

TEST_F(ProxyStartTest, WorkQueuedBeforeTheStartIsDoneAfterIt)
{
    m_server.store().Dump(0);
    m_server.starts();
    EXPECT_EQ(CFakeLog::countExactly("-- call on server."), 1U);
}

} // namespace
