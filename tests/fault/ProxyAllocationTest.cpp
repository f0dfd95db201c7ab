// The proxy without memory: each operation with 0, 1, 2, ... allocations granted, until it needs no more.

#include "FailingAllocator.h"
#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

namespace {

using testing::AnyOf;
using testing::IsEmpty;

using Mode = CFailingAllocator::Mode;

// Longer than a string holds by itself, so that every copy of them asks for memory.
const std::string cCall = "sip:a-call-with-a-rather-long-identifier";
const std::string cAnn = "ann, who has a rather long name";
const std::string cPeerID = "a peer's registration, of some length";
constexpr unsigned long cPeer = 0x0A000002UL;

class ProxyAllocationTest : public testing::TestWithParam<Mode>
{
protected:
    /// Runs the deed on one fresh server after the other, with one allocation more each time, until none is refused.
    void sweep(const std::function<void(CServer&)>& fnPrepare, const std::function<long(CServer&)>& fnDeed,
               const std::function<void(CServer&, long)>& fnCheck)
    {
        bool bHit = true;
        std::size_t uGranted = 0;
        for (; bHit && uGranted < 3000; ++uGranted)
        {
            SCOPED_TRACE(uGranted);
            const CProxyWorld world;
            CServer server;
            fnPrepare(server);
            long lResult = 0;
            {
                const CFailingAllocator failing(uGranted, GetParam());
                lResult = fnDeed(server);
                bHit = failing.hit();
            }
            fnCheck(server, lResult);
            if (!bHit)
            {
                EXPECT_GE(lResult, 0) << "failed with all the memory it asked for";
            }
        }
        EXPECT_FALSE(bHit) << "never comes to an end";
        EXPECT_GT(uGranted, 1U) << "never allocates: nothing was tried";
    }
};

TEST_P(ProxyAllocationTest, AStartSucceedsOrLeavesNothingBehind)
{
    std::size_t uNoServerChannel = 0;
    std::size_t uNoClientChannel = 0;
    sweep([](CServer&) { CCDSAPI::initLogger(); },
          [](CServer& server) { return server.proxy().Initialize("10.0.0.1", &server.store()); },
          [&](CServer& server, long lResult) {
              uNoServerChannel +=
                  CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, new CCMLibraryX.1 failed: 0xC1170A33");
              uNoClientChannel +=
                  CFakeLog::countExactly("(Error) CCDSNetProxy::Initialize, new CCMLibraryX.3 failed: 0xC1170A33");
              if (lResult < 0)
              {
                  EXPECT_THAT(lResult, AnyOf(E_CDS_OUTOFMEMORY, E_CDS_NOCHANNEL));
                  EXPECT_EQ(CFakeThreads::alive(), 0U);
                  EXPECT_EQ(CFakeChannels::alive(), 0U);
                  EXPECT_EQ(CFakeLog::countExactly("<<<CCDSNetProxy::Finalize"), 1U);
                  EXPECT_THAT(server.proxy().Initialize("10.0.0.1", &server.store()), IsOk());
              }
              EXPECT_THAT(server.proxy().Finalize(), IsOk());
          });
    EXPECT_GT(uNoServerChannel, 0U);
    EXPECT_GT(uNoClientChannel, 0U);
}

TEST_P(ProxyAllocationTest, ARegistrationForAnotherServersCallIsHealedByAConnection)
{
    sweep([](CServer& server) { server.starts(); },
          [](CServer& server) {
              const std::string sOwner = "10.0.0.2";
              return server.store().Register(0, cAnn, sOwner, cCall, "none", nullptr, 1);
          },
          [](CServer& server, long) {
              CProxyWorld::settle();
              CFakeChannels::forgetTraffic();
              CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
              CProxyWorld::settle();
              // What was counted is sent again; what was not counted was refused as a whole.
              const auto pCall = server.proxy().getClientCall(cCall);
              EXPECT_EQ(CFakeChannels::sent().size(), pCall != nullptr ? 1U : 0U);
              (void)server.unregisters(cAnn); // unknown when it was refused
              CProxyWorld::settle();
          });
}

TEST_P(ProxyAllocationTest, AChangeReachesThePeerAtLast)
{
    CNews news(cCall);
    news.sets("CALLERID", "a caller with a long name").appends("CONNECT_ENTRY", "yes, connected");
    sweep(
        [&news](CServer& server) {
            server.starts();
            server.registers(cAnn, cCall, "10.0.0.1", "none");
            server.updates(cAnn, news);
            CProxyWorld::settle();
            EXPECT_EQ(server.proxy().addCallDataDistribution(false, cCall, cPeerID, cPeer), 0);
        },
        [&news](CServer& server) { // the worker's deed, on this thread
            const CCallbackMsg* pMsg = nullptr;
            {
                const CAllocationPause pause;
                pMsg = new CCallbackMsg(0UL, cPeerID, ccbr_calldata, news.data(), 0);
            }
            const std::unique_ptr<const CCallbackMsg> pHeld(pMsg);
            try
            {
                return server.proxy().sendCallDataDistribution(const_cast<CCallbackMsg*>(pMsg));
            }
            catch (const std::bad_alloc&) // the worker ends the step then
            {
                return E_CDS_OUTOFMEMORY;
            }
        },
        [](CServer& server, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            CProxyWorld::settle();
            CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
            CProxyWorld::settle();
            (void)server.proxy().requestCallData(cCall); // as the next change would
            CProxyWorld::settle();
            const auto vecSent = sentInShort();
            ASSERT_FALSE(vecSent.empty());
            EXPECT_EQ(vecSent.back(), "10.0.0.2 " + cPeerID + ": " + cCall +
                                          " CALLERID=a caller with a long name CONNECT_ENTRY+yes, connected");
            EXPECT_LE(vecSent.size(), 2U); // twice when it could not be noted that it was sent
        });
}

TEST_P(ProxyAllocationTest, ACdrIsKeptWholeOrNotAtAll)
{
    CNews news(cCall);
    news.sets("CALLERID", "a caller with a long name").appends("CONNECT_ENTRY", "yes, connected");
    sweep([](CServer& server) { server.starts(); },
          [&news](CServer& server) { // the worker's deed, on this thread
              CSharedMessage pMsg;
              {
                  const CAllocationPause pause;
                  CCallbackMsg msg(0UL, "", ccbr_cdrcalldata, news.data(), 0);
                  (void)msg.setCDSIPAddr("10.0.0.2"); // always 0
                  pMsg = cdsHoldMessage(msg.clone());
              }
              return server.proxy().addCDRCallData(pMsg);
          },
          [](CServer& server, long lResult) {
              EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
              CProxyWorld::settle();
              CFakeChannels::forgetTraffic();
              // What was kept is sent again, whatever became of the first time.
              const bool bKept = server.proxy().findCDRCallDataByCallID(cCall);
              EXPECT_TRUE(bKept || lResult < 0);
              CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
              CProxyWorld::settle();
              ASSERT_EQ(CFakeChannels::sent().size(), bKept ? 1U : 0U);
              for (const auto& sent : CFakeChannels::sent())
                  CFakeChannels::confirm(sent.ulRequestID);
              CProxyWorld::settle();
              EXPECT_FALSE(server.proxy().findCDRCallDataByCallID(cCall));
              EXPECT_EQ(CFakeLog::countContaining("Total CDR cache size = 0 bytes."), bKept ? 1U : 0U);
          });
}

TEST_P(ProxyAllocationTest, ACdrOfTheHostIsQueuedOrRefused)
{
    CNews news(cCall);
    news.sets("CALLERID", "a caller with a long name");
    sweep([](CServer& server) { server.starts(); },
          [&news](CServer& server) {
              const std::string sDestination = "10.0.0.2";
              return server.store().SendCDRDataToHQ(sDestination, cCall, news.data());
          },
          [](CServer& server, long lResult) {
              EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
              CProxyWorld::settle();
              if (lResult < 0)
              {
                  EXPECT_FALSE(server.proxy().findCDRCallDataByCallID(cCall));
              }
          });
}

TEST_P(ProxyAllocationTest, WorkIsQueuedOrRefused)
{
    CNews news(cCall);
    news.sets("CALLERID", "a caller with a long name");
    sweep(
        [](CServer& server) {
            server.starts();
            CFakeLog::clear();
        },
        [&news](CServer& server) {
            CCallbackMsg msg(reinterpret_cast<unsigned long>(&server.proxy()), "", ccbr_calldata, news.data(), 0);
            return CCDSNetProxy::CDSCallback(&msg);
        },
        [](CServer&, long lResult) {
            EXPECT_THAT(lResult, AnyOf(0, E_CDS_OUTOFMEMORY));
            CProxyWorld::settle();
            EXPECT_EQ(CFakeLog::countContaining("WT_OP_CDS_CALLBACK - 0x"), lResult == 0 ? 1U : 0U);
            EXPECT_EQ(CFakeLog::countContaining("CCDSWork::CCDSWork() - 0x"),
                      CFakeLog::countContaining("CCDSWork::~CCDSWork() - 0x"));
        });
}

INSTANTIATE_TEST_SUITE_P(Memory, ProxyAllocationTest, testing::Values(Mode::RefuseAllLater, Mode::RefuseOne),
                         [](const auto& named) {
                             return std::string(named.param == Mode::RefuseAllLater ? "IsUsedUp" : "FailsOnce");
                         });

} // namespace
