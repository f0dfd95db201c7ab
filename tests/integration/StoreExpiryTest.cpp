// The end of a call in real time.

#include "CDSAPI.h"
#include "CDSSupport.h"
#include "TemporaryDirectory.h"

#include <chrono>
#include <future>
#include <string>

#include <gtest/gtest.h>

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;

/// The call whose end was told.
std::promise<std::string>& endedCall()
{
    static std::promise<std::string> s_promEnded;
    return s_promEnded;
}

long onEnd(CCallbackMsg* pMessage)
{
    std::string sCallID;
    (void)dynamic_cast<CCallData&>(*pMessage->getCallbackData()).getCallID(&sCallID); // empty when it fails
    endedCall().set_value(sCallID);
    return 0;
}

bool s_bFound = false;
long onData(CCallbackMsg*)
{
    s_bFound = true;
    return 0;
}

void leaveBehind(CCDSAPI& store, const std::string& sCallID)
{
    CCallData call(sCallID);
    ASSERT_EQ(store.Register(0, "writer", "127.0.0.1", sCallID, "none", nullptr, 0), 0);
    ASSERT_EQ(store.Update("writer", &call, false), 0);
    ASSERT_EQ(store.Unregister("writer"), 0);
}

TEST(StoreExpiryTest, ACallWithoutRegistrantsEndsAfterThirtyToFortySeconds)
{
    const CTemporaryDirectory directory;
    CDSSupport::setLogDirectory(directory.path());
    CCDSAPI store;
    auto futEnded = endedCall().get_future();
    ASSERT_EQ(store.Initialize("127.0.0.1", 0), 0);
    ASSERT_EQ(store.Register(0, "eoc", "127.0.0.1", "*", "EOC", onEnd, 0), 0);
    leaveBehind(store, "sip:ends");
    leaveBehind(store, "sip:lives on");
    const auto begin = steady_clock::now();

    EXPECT_EQ(futEnded.wait_for(seconds(28)), std::future_status::timeout);
    ASSERT_EQ(store.Register(0, "late", "127.0.0.1", "sip:lives on", "*", onData, 0), 0);
    EXPECT_TRUE(s_bFound) << "the data is gone too early";

    ASSERT_EQ(futEnded.wait_for(seconds(30)), std::future_status::ready);
    const auto took = steady_clock::now() - begin;
    EXPECT_EQ(futEnded.get(), "sip:ends");
    EXPECT_GE(took, seconds(30));
    EXPECT_LE(took, seconds(45)); // 40 seconds, and what a busy machine adds
    EXPECT_EQ(store.Finalize(), 0);
}

} // namespace
