#include "capture/SipStreamFramer.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string s_sInvite = "INVITE sip:b@h SIP/2.0\r\nCall-ID: 1\r\nContent-Length: 5\r\n\r\nv=0\r\n";
const std::string s_sRinging = "SIP/2.0 180 Ringing\r\nCall-ID: 1\r\nl:0\r\n\r\n";

class SipStreamFramerTest : public testing::Test
{
protected:
    std::vector<std::string> m_vecMessages;
    CIntakeCounts m_counts;
    CSipStreamFramer m_framer{m_counts, [this](std::string_view sMessage) { m_vecMessages.emplace_back(sMessage); }};
};

TEST_F(SipStreamFramerTest, CutsAStreamAtEveryPositionOfEverySegment)
{
    const std::string sStream = s_sInvite + "\r\n\r\n" + s_sRinging + s_sInvite;
    for (std::size_t uFirst = 0; uFirst <= sStream.size(); ++uFirst)
        for (std::size_t uSecond = uFirst; uSecond <= sStream.size(); uSecond += 7)
        {
            m_vecMessages.clear();
            m_framer.add(std::string_view(sStream).substr(0, uFirst));
            m_framer.add(std::string_view(sStream).substr(uFirst, uSecond - uFirst));
            m_framer.add(std::string_view(sStream).substr(uSecond));
            ASSERT_THAT(m_vecMessages, ElementsAre(s_sInvite, s_sRinging, s_sInvite)) << uFirst << ", " << uSecond;
            ASSERT_EQ(m_framer.buffered(), 0U);
        }
    EXPECT_TRUE(m_counts.refused().empty());
}

TEST_F(SipStreamFramerTest, TakesByteByByte)
{
    for (const char c : s_sInvite + s_sRinging)
        m_framer.add(std::string_view(&c, 1));
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sInvite, s_sRinging));
}

TEST_F(SipStreamFramerTest, TakesLoneLineFeeds)
{
    const std::string sMessage = "SIP/2.0 180 Ringing\nContent-Length: 2\n\nab";
    m_framer.add(sMessage);
    EXPECT_THAT(m_vecMessages, ElementsAre(sMessage));
}

TEST_F(SipStreamFramerTest, SkipsWhatBeganBeforeTheCapture)
{
    m_framer.add("ve part of a head\r\nContent-Length: 3\r\n\r\nv=0"
                 "\r\n" +
                 s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
}

TEST_F(SipStreamFramerTest, SkipsOtherProtocolsWithoutKeepingThem)
{
    for (int n = 0; n < 100; ++n)
        m_framer.add(std::string(10'000, 'x'));
    EXPECT_LT(m_framer.buffered(), 10'000U);
    m_framer.add("\r\n" + s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
}

TEST_F(SipStreamFramerTest, GoesOnBehindAnUnusableLength)
{
    for (const std::string sLength : {"bad", "-1", "5x", "99999999999999999999999"})
    {
        m_vecMessages.clear();
        m_framer.add("INVITE sip:b@h SIP/2.0\r\nContent-Length: " + sLength + "\r\n\r\nv=0\r\n" + s_sRinging);
        EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging)) << sLength;
    }
    EXPECT_EQ(m_counts.count("SIP message in a stream with an unusable Content-Length"), 4U);
}

TEST_F(SipStreamFramerTest, RefusesTwoLengthsThatDiffer)
{
    m_framer.add("INVITE sip:b@h SIP/2.0\r\nContent-Length: 1\r\nl: 2\r\n\r\nab\r\n" + s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
}

TEST_F(SipStreamFramerTest, RefusesMessagesThatAreTooLarge)
{
    m_framer.add("INVITE sip:b@h SIP/2.0\r\nContent-Length: 65536\r\n\r\n" + s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
    EXPECT_EQ(m_counts.count("SIP message too large"), 1U);
}

TEST_F(SipStreamFramerTest, RefusesAHeadWithoutEnd)
{
    m_framer.add("INVITE sip:b@h SIP/2.0\r\n");
    for (int n = 0; n < 3000; ++n)
    {
        m_framer.add("X-Header: and so on without any end\r\n");
        ASSERT_LE(m_framer.buffered(), CSipStreamFramer::cMaxMessage + 100);
    }
    EXPECT_EQ(m_counts.count("SIP message too large"), 1U);
    m_framer.add(s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
}

TEST_F(SipStreamFramerTest, DropsTheMessageThatAGapIsIn)
{
    m_framer.add(s_sInvite.substr(0, 30));
    m_framer.gap();
    m_framer.add("5\r\n\r\nv=0\r\n" + s_sRinging);
    EXPECT_THAT(m_vecMessages, ElementsAre(s_sRinging));
    EXPECT_EQ(m_counts.count("SIP message with missing bytes"), 1U);
}

TEST(SipStartLineTest, KnowsFirstLines)
{
    EXPECT_TRUE(isSipStartLine("INVITE sip:bob@example.com SIP/2.0\r"));
    EXPECT_TRUE(isSipStartLine("SIP/2.0 200 OK"));
    EXPECT_TRUE(isSipStartLine("SIP/2.0 200"));
    EXPECT_FALSE(isSipStartLine("GET / HTTP/1.1"));
    EXPECT_FALSE(isSipStartLine("SIP/2.0 2x0 OK"));
    EXPECT_FALSE(isSipStartLine("Via: SIP/2.0"));
    EXPECT_FALSE(isSipStartLine("SIP/2.0"));
    EXPECT_FALSE(isSipStartLine(""));
}

} // namespace
