#include "capture/TcpReassembly.h"
#include "PacketBuilder.h"

#include <gmock/gmock.h>

namespace {

class TcpReassemblyTest : public testing::Test, protected CTcpStreamFactory
{
protected:
    /// Sends a segment of the stream from 10.0.0.1:4000 to 10.0.0.2:5060.
    void segment(std::uint32_t dwSequence, std::string_view sData, std::uint8_t byFlags = 16, std::int64_t llMicros = 0)
    {
        m_reassembly.add(v4(1), v4(2), tcp(4000, 5060, dwSequence, sData, byFlags), llMicros);
    }

    std::string m_sStream; // what came, "|" where bytes are missing
    CIntakeCounts m_counts;
    CTcpReassembly m_reassembly{*this, m_counts};

private:
    class CSink final : public CTcpStreamSink
    {
    public:
        explicit CSink(std::string& sStream) : m_sStream(sStream) {}
        void onBytes(CBytes bytes, std::int64_t) override { m_sStream.append(asText(bytes)); }
        void onGap() override { m_sStream.push_back('|'); }

    private:
        std::string& m_sStream;
    };
    std::unique_ptr<CTcpStreamSink> makeStream(const CEndpoint&, const CEndpoint&) override
    {
        return std::make_unique<CSink>(m_sStream);
    }
};

TEST_F(TcpReassemblyTest, JoinsSegmentsInOrder)
{
    segment(99, "", 2);
    segment(100, "abc");
    segment(103, "def");
    EXPECT_EQ(m_sStream, "abcdef");
}

TEST_F(TcpReassemblyTest, PutsSegmentsInOrder)
{
    segment(99, "", 2);
    segment(106, "ghi");
    segment(103, "def");
    EXPECT_EQ(m_sStream, "");
    segment(100, "abc");
    EXPECT_EQ(m_sStream, "abcdefghi");
}

TEST_F(TcpReassemblyTest, DropsWhatIsSentAgain)
{
    segment(100, "abc");
    segment(100, "abc");
    segment(102, "cde");
    segment(100, "abcdef");
    EXPECT_EQ(m_sStream, "abcdef");
}

TEST_F(TcpReassemblyTest, DropsWhatIsSentAgainBehindAGap)
{
    segment(100, "abc");
    segment(106, "ghi");
    segment(106, "ghijk");
    segment(103, "defgh");
    EXPECT_EQ(m_sStream, "abcdefghijk");
}

TEST_F(TcpReassemblyTest, CrossesTheEndOfTheSequenceNumbers)
{
    segment(0xFFFFFFFE, "ab");
    segment(2, "ef");
    segment(0, "cd");
    EXPECT_EQ(m_sStream, "abcdef");
}

TEST_F(TcpReassemblyTest, BeginsInTheMiddleOfAConnection)
{
    segment(500, "rest");
    EXPECT_EQ(m_sStream, "rest");
}

TEST_F(TcpReassemblyTest, ReportsAGapWhenItHasWaitedLongEnough)
{
    segment(100, "abc");
    segment(110, "xyz", 16, 1'000'000);
    EXPECT_EQ(m_sStream, "abc");
    segment(113, "!", 16, 1'000'000 + CTcpReassembly::cGapMicros + 1);
    EXPECT_EQ(m_sStream, "abc|xyz!");
    EXPECT_EQ(m_counts.count("bytes of a TCP stream are missing"), 1U);
}

TEST_F(TcpReassemblyTest, ReportsAGapWhenTooMuchWaits)
{
    segment(100, "abc");
    const std::string sLarge(60'000, 'x');
    for (std::uint32_t dw = 0; dw < 5; ++dw)
        segment(110 + dw * 60'000, sLarge);
    EXPECT_EQ(m_sStream.substr(0, 4), "abc|");
    EXPECT_EQ(m_sStream.size(), 4 + 5 * sLarge.size());
}

TEST_F(TcpReassemblyTest, HandsOnWhatWaitsWhenTheCaptureEnds)
{
    segment(100, "abc");
    segment(110, "xyz");
    segment(120, "123");
    m_reassembly.flush(0);
    EXPECT_EQ(m_sStream, "abc|xyz|123");
    EXPECT_EQ(m_reassembly.streams(), 0U);
}

TEST_F(TcpReassemblyTest, EndsAStreamWithItsLastSegment)
{
    segment(100, "abc", 16 | 1);
    EXPECT_EQ(m_sStream, "abc");
    EXPECT_EQ(m_reassembly.streams(), 0U);
}

TEST_F(TcpReassemblyTest, EndsAStreamOnlyWhereItsLastByteIs)
{
    segment(100, "abc");
    segment(109, "", 16 | 1);
    segment(50, "", 16 | 1);
    EXPECT_EQ(m_reassembly.streams(), 1U);
    segment(103, "def");
    EXPECT_EQ(m_reassembly.streams(), 1U);
    segment(106, "ghi");
    EXPECT_EQ(m_sStream, "abcdefghi");
    EXPECT_EQ(m_reassembly.streams(), 0U) << "the end was known before the last bytes";
}

TEST_F(TcpReassemblyTest, MakesNoStreamOfSegmentsWithoutData)
{
    for (const int nFlags : {16, 16 | 1, 16 | 4})
    {
        segment(100, "", static_cast<std::uint8_t>(nFlags));
        EXPECT_EQ(m_reassembly.streams(), 0U);
    }
}

TEST_F(TcpReassemblyTest, BelievesNoEndThatIsFarFromTheOthers)
{
    segment(100, "abc");
    segment(0x60000000, "stray", 16 | 1);
    segment(103, "def");
    EXPECT_EQ(m_sStream, "abcdef");
    EXPECT_EQ(m_reassembly.streams(), 1U);
}

TEST_F(TcpReassemblyTest, DropsASegmentFarFromTheOthers)
{
    segment(100, "abc");
    segment(0x60000000, "stray");
    segment(0xC0000000, "stray");
    segment(103, "def", 16, CTcpReassembly::cGapMicros + 1);
    segment(106, "ghi", 16, CTcpReassembly::cGapMicros + 2);
    EXPECT_EQ(m_sStream, "abcdefghi");
    EXPECT_EQ(m_counts.count("TCP segment far from the others of its stream"), 2U);
}

TEST_F(TcpReassemblyTest, FollowsAStreamThatGoesOnElsewhere)
{
    segment(0x20000000, "abc");
    segment(0x20000005, "!"); // waits for the byte between
    segment(0x60000000, "def");
    segment(0x60000003, "ghi");
    EXPECT_EQ(m_sStream, "abc|!|ghi");
    segment(100, "jkl");
    segment(103, "mno");
    segment(106, "pqr");
    EXPECT_EQ(m_sStream, "abc|!|ghi|mnopqr");
}

TEST_F(TcpReassemblyTest, StartsAnewWhenPortsAreUsedAgain)
{
    segment(99, "", 2);
    segment(100, "abc");
    segment(5000, "", 2);
    segment(5001, "new");
    EXPECT_EQ(m_sStream, "abc|new");
}

TEST_F(TcpReassemblyTest, KeepsBothDirectionsApart)
{
    segment(100, "ab");
    m_reassembly.add(v4(2), v4(1), tcp(5060, 4000, 900, "X"), 0);
    segment(102, "cd");
    EXPECT_EQ(m_sStream, "abXcd");
    EXPECT_EQ(m_reassembly.streams(), 2U);
}

TEST_F(TcpReassemblyTest, HoldsABoundedNumberOfStreams)
{
    for (std::size_t u = 0; u < CTcpReassembly::cMaxStreams + 10; ++u)
        m_reassembly.add(v4(1), v4(2), tcp(static_cast<std::uint16_t>(u), 5060, 1, "x"), 0);
    EXPECT_EQ(m_reassembly.streams(), CTcpReassembly::cMaxStreams);
    EXPECT_EQ(m_counts.count("too many TCP streams: one was given up"), 10U);
}

TEST_F(TcpReassemblyTest, RefusesHeadersOfImpossibleSize)
{
    CPacketBytes bytes = tcp(1, 2, 3, "abc");
    bytes[12] = 0x40;
    m_reassembly.add(v4(1), v4(2), bytes, 0);
    bytes[12] = 0xF0;
    m_reassembly.add(v4(1), v4(2), bytes, 0);
    m_reassembly.add(v4(1), v4(2), CBytes(bytes).first(19), 0);
    EXPECT_EQ(m_sStream, "");
    EXPECT_EQ(m_counts.count("TCP header of impossible size"), 2U);
    EXPECT_EQ(m_counts.count("TCP header too short"), 1U);
}

} // namespace
