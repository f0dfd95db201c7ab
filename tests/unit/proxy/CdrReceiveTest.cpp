// CDRs that peers send, and the host that collects them.

#include "ProxyStory.h"
#include "Results.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A host's CDR callback. A callback is a plain function, so what it knows is the file's.
class CCollector
{
public:
    struct CTaken
    {
        std::string sText;
        std::string sSender;
        std::string sRegID;
        CDSCALLBACKREASON eReason{};
        std::thread::id idThread{};
        std::vector<std::string> vecLocks{};
    };

    static long take(CCallbackMsg* pMsg)
    {
        CTaken taken;
        taken.sText = describe(*dynamic_cast<CCallData*>(pMsg->getCallbackData()));
        (void)pMsg->getCDSIPAddr(&taken.sSender); // always 0
        taken.sRegID = pMsg->getRegID();
        taken.eReason = pMsg->getCallbackReason();
        taken.idThread = std::this_thread::get_id();
        taken.vecLocks = CFakeLocks::heldByThisThread();
        s_vecTaken.push_back(taken);
        s_pLast = pMsg;
        if (s_bThrows)
            throw std::runtime_error("the database is gone");
        if (s_lResult >= 0)
        {
            delete pMsg->getCallbackData();
            delete pMsg;
        }
        return s_lResult;
    }
    static void reset()
    {
        s_vecTaken.clear();
        s_lResult = 0;
        s_bThrows = false;
        s_pLast = nullptr;
    }

    static inline std::vector<CTaken> s_vecTaken;
    static inline long s_lResult = 0;
    static inline bool s_bThrows = false;
    static inline const CCallbackMsg* s_pLast = nullptr;
};

class CdrReceiveTest : public testing::Test
{
protected:
    CdrReceiveTest()
    {
        CCollector::reset();
        m_server.starts();
        CFakeLog::clear();
    }
    /// 10.0.0.2 sends a CDR, which is answered as everything is.
    void receives(const CNews& news)
    {
        const std::size_t uAnswers = CFakeChannels::answers().size();
        CFakeChannels::request("10.0.0.2", callDataRequest("", news, ccbr_cdrcalldata));
        CProxyWorld::settle();
        const auto vecAnswers = CFakeChannels::answers();
        ASSERT_EQ(vecAnswers.size(), uAnswers + 1);
        EXPECT_EQ(vecAnswers.back().sBytes, std::string("20;NETRSP_CLIENT_STATUS;1;0\0", 28));
    }
    static CNews someCall() { return std::move(CNews("sip:1").sets("CALLERID", "alice").appends("END", "bye")); }
    /// Whether every record that was made since the start is gone again.
    static bool nothingIsLeft()
    {
        return CFakeLog::countContaining("CCallData Malloc: 0x") == CFakeLog::countContaining("CCallData Free: 0x");
    }

    CProxyWorld m_world;
    CServer m_server;
};

TEST_F(CdrReceiveTest, ACdrReachesTheHost)
{
    m_server.store().SetCDRDataCallBack(CCollector::take);
    CFakeLocks::record(true);
    receives(someCall());
    CFakeLocks::record(false);
    ASSERT_EQ(CCollector::s_vecTaken.size(), 1U);
    const auto& taken = CCollector::s_vecTaken.front();
    EXPECT_EQ(taken.sText, "sip:1 CALLERID=alice END+bye");
    EXPECT_EQ(taken.sSender, "10.0.0.2");
    EXPECT_EQ(taken.sRegID, "");
    EXPECT_EQ(taken.eReason, ccbr_cdrcalldata);
    EXPECT_NE(taken.idThread, std::this_thread::get_id());
    EXPECT_THAT(taken.vecLocks, IsEmpty());
}

TEST_F(CdrReceiveTest, AHostThatTakesItOwnsMessageAndPayload)
{
    m_server.store().SetCDRDataCallBack(CCollector::take); // which deletes both: once, says the address sanitizer
    {
        const CNews news = someCall();
        receives(news);
    }
    EXPECT_TRUE(nothingIsLeft());
    CCollector::s_lResult = 7; // more than 0 is a yes too
    {
        const CNews news = someCall();
        receives(news);
    }
    EXPECT_TRUE(nothingIsLeft());
    EXPECT_EQ(CCollector::s_vecTaken.size(), 2U);
}

TEST_F(CdrReceiveTest, ARefusedOneIsDeletedHere)
{
    m_server.store().SetCDRDataCallBack(CCollector::take);
    CCollector::s_lResult = E_FAIL;
    {
        const CNews news = someCall();
        receives(news);
    }
    EXPECT_EQ(CCollector::s_vecTaken.size(), 1U);
    EXPECT_TRUE(nothingIsLeft());
}

TEST_F(CdrReceiveTest, OneWhoseCallbackThrowsIsDeletedHere)
{
    m_server.store().SetCDRDataCallBack(CCollector::take);
    CCollector::s_bThrows = true;
    {
        const CNews news = someCall();
        receives(news);
    }
    EXPECT_TRUE(nothingIsLeft());
    EXPECT_TRUE(CFakeLog::contains("the database is gone"));
    CCollector::s_bThrows = false;
    receives(someCall()); // the worker goes on
    EXPECT_EQ(CCollector::s_vecTaken.size(), 2U);
}

TEST_F(CdrReceiveTest, OneThatNobodyAskedForIsDeletedHere)
{
    {
        const CNews news = someCall();
        receives(news);
    }
    EXPECT_TRUE(nothingIsLeft());
    EXPECT_FALSE(CFakeLog::contains("(Error)"));
    m_server.store().SetCDRDataCallBack(CCollector::take);
    m_server.store().SetCDRDataCallBack(nullptr);
    receives(someCall());
    EXPECT_THAT(CCollector::s_vecTaken, IsEmpty());
}

TEST_F(CdrReceiveTest, TheHostCanHandOneToItself)
{
    CNews news = someCall();
    CCallbackMsg msg(0UL, "", ccbr_cdrcalldata, news.data(), 0);
    EXPECT_EQ(m_server.store().SendRcvdCDRDataToOVN(&msg), 0);
    EXPECT_THAT(CCollector::s_vecTaken, IsEmpty());
    m_server.store().SetCDRDataCallBack(CCollector::take);
    CCollector::s_lResult = E_FAIL;
    EXPECT_THAT(m_server.store().SendRcvdCDRDataToOVN(&msg), FailsWith(E_FAIL));
    EXPECT_EQ(CCollector::s_pLast, &msg);
    EXPECT_EQ(describe(*news.data()), "sip:1 CALLERID=alice END+bye"); // both are still the caller's
}

} // namespace
