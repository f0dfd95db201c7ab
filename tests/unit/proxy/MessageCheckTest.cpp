// Which buffers pass as messages of peers, and how others look in the trace log.

#include "CDSNetProxyMessages.h"
#include "Fakes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MessageCheckTest, ACallbackMessageIsLongerThanItsName)
{
    EXPECT_FALSE(checkMessage("26;NETREQ_CLIENT_CCALLBACKMSG", 26));
    EXPECT_TRUE(checkMessage("26;NETREQ_CLIENT_CCALLBACKMSG", 27));
}

TEST(MessageCheckTest, APingIsLongerThanItsName)
{
    EXPECT_FALSE(checkMessage("18;NETREQ_CLIENT_PING", 18));
    EXPECT_TRUE(checkMessage("18;NETREQ_CLIENT_PING", 19));
}

TEST(MessageCheckTest, ASignOfLifeIsLongerThanItsName)
{
    EXPECT_FALSE(checkMessage("21;NETREQ_CLIENT_IMALIVE", 21));
    EXPECT_TRUE(checkMessage("21;NETREQ_CLIENT_IMALIVE", 22));
}

TEST(MessageCheckTest, AStatusIsLongerThanItsName)
{
    EXPECT_FALSE(checkMessage("20;NETRSP_CLIENT_STATUS;1;0", 20));
    EXPECT_TRUE(checkMessage("20;NETRSP_CLIENT_STATUS;1;0", 21));
}

TEST(MessageCheckTest, TheNameStandsAtTheStart)
{
    EXPECT_FALSE(checkMessage(" 26;NETREQ_CLIENT_CCALLBACKMSG", 64));
    EXPECT_FALSE(checkMessage("1;x;26;NETREQ_CLIENT_CCALLBACKMSG", 64));
}

TEST(MessageCheckTest, TheNameIsExact)
{
    EXPECT_FALSE(checkMessage("26;netreq_client_ccallbackmsg", 64));
    EXPECT_FALSE(checkMessage("25;NETREQ_CLIENT_CCALLBACKMSG", 64));
    EXPECT_FALSE(checkMessage("26;NETREQ_CLIENT_CCALLBACKMS", 64));
    EXPECT_FALSE(checkMessage("18;NETREQ_CLIENT_PONG", 64));
}

TEST(MessageCheckTest, WhatFollowsTheNameIsNotLookedAt)
{
    EXPECT_TRUE(checkMessage("26;NETREQ_CLIENT_CCALLBACKMSGX", 31));
}

TEST(MessageCheckTest, NothingIsNoMessage)
{
    EXPECT_FALSE(checkMessage(nullptr, 0));
    EXPECT_FALSE(checkMessage("26;NETREQ_CLIENT_CCALLBACKMSG", 0));
    EXPECT_FALSE(checkMessage("", 100));
}

TEST(MessageCheckTest, ARefusedBufferShowsTheFirstDigitOfItsFirstByte)
{
    EXPECT_EQ(hexasciiMessage("26;NETREQ", 9), "3");
    EXPECT_EQ(hexasciiMessage("\x80 and more", 10), "F");
    EXPECT_EQ(hexasciiMessage("\xFF", 1), "F");
    EXPECT_EQ(hexasciiMessage("\n", 1), "0");
    EXPECT_EQ(hexasciiMessage("\x7F", 1), "7");
}

TEST(MessageCheckTest, AnEmptyBufferShowsBlanks)
{
    EXPECT_EQ(hexasciiMessage("x", 0), std::string(386, ' '));
    EXPECT_EQ(hexasciiMessage(nullptr, 0), std::string(386, ' '));
}

TEST(MessageCheckTest, ALongBufferShowsNoMoreThanItsBeginning)
{
    const std::string sLong(300, 'A');
    EXPECT_EQ(hexasciiMessage(sLong.data(), 300), hexasciiMessage(sLong.data(), 128));
}

TEST(MessageCheckTest, TheTextOfABufferEndsAtItsFirstZeroByteOrItsEnd)
{
    EXPECT_EQ(cdsReceivedText("abc", 4), "abc");
    EXPECT_EQ(cdsReceivedText("abc", 2), "ab");
    EXPECT_EQ(cdsReceivedText("a\0c", 3), "a");
    EXPECT_EQ(cdsReceivedText(nullptr, 0), "");
}

TEST(MessageCheckTest, ABufferLargerThanAnyMessageGetsABoundedNumberOfLines)
{
    const CFakeWorld world;
    CFakeLog::setTraceMask("OvnCDS", 1);
    const std::string sHuge(3 * 1024 * 1024, 'x');
    cdsLogBogusRequest(1, sHuge.data(), static_cast<unsigned long>(sHuge.size()), 0);
    EXPECT_EQ(CFakeLog::countContaining("(Error) buf 0x"), 8192U);
}

} // namespace
