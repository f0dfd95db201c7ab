#include "capture/IpDecoder.h"
#include "PacketBuilder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAreArray;

class IpDecoderTest : public testing::Test
{
protected:
    bool decode(const CPacketBytes& ip, std::int64_t llMicros = 0)
    {
        m_ip = ip; // what the decoder hands out points into it
        return m_decoder.decode(m_ip, llMicros, &m_transport);
    }

    /// The UDP datagram of the tests, cut into fragments of uSize bytes.
    std::vector<CPacketBytes> fragments(std::size_t uSize, std::uint16_t wIdentification = 1)
    {
        std::vector<CPacketBytes> vecFragments;
        for (std::size_t uAt = 0; uAt < m_udp.size(); uAt += uSize)
        {
            const std::size_t uLength = std::min(uSize, m_udp.size() - uAt);
            CIpOptions options;
            options.wIdentification = wIdentification;
            options.uOffset = uAt;
            options.bMore = uAt + uLength < m_udp.size();
            vecFragments.push_back(ipv4(CBytes(m_udp).subspan(uAt, uLength), options));
        }
        return vecFragments;
    }

    const CPacketBytes m_udp = udp(5060, 5060, bytesOf("a datagram that is long enough to be cut to pieces"));
    CIntakeCounts m_counts;
    CIpDecoder m_decoder{m_counts};
    CTransportPacket m_transport;
    CPacketBytes m_ip;
};

TEST_F(IpDecoderTest, ReadsIpv4)
{
    ASSERT_TRUE(decode(ipv4(m_udp)));
    EXPECT_EQ(m_transport.source.toString(), "10.0.0.1");
    EXPECT_EQ(m_transport.destination.toString(), "10.0.0.2");
    EXPECT_EQ(m_transport.eKind, CTransportPacket::EKind::udp);
    EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
}

TEST_F(IpDecoderTest, LeavesPaddingOut)
{
    CPacketBytes ip = ipv4(m_udp);
    ip.resize(ip.size() + 9);
    ASSERT_TRUE(decode(ip));
    EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
}

TEST_F(IpDecoderTest, ReadsIpv6BehindExtensionHeaders)
{
    CPacketBytes extended = {43, 0, 0, 0, 0, 0, 0, 0}; // hop-by-hop options, then routing
    append(extended, CPacketBytes{17, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    append(extended, m_udp);
    ASSERT_TRUE(decode(ipv6(extended, 0)));
    EXPECT_EQ(m_transport.source.toString(), "fe80::1");
    EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
}

TEST_F(IpDecoderTest, TakesIpOutOfIp)
{
    CIpOptions tunnel;
    tunnel.byProtocol = 4;
    ASSERT_TRUE(decode(ipv4(ipv4(m_udp), tunnel)));
    EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
    tunnel.byProtocol = 41;
    ASSERT_TRUE(decode(ipv4(ipv6(m_udp), tunnel)));
    EXPECT_EQ(m_transport.source.toString(), "fe80::1");
}

TEST_F(IpDecoderTest, RefusesEndlessTunnels)
{
    CIpOptions tunnel;
    tunnel.byProtocol = 4;
    CPacketBytes ip = ipv4(m_udp);
    for (int n = 0; n < 5; ++n)
        ip = ipv4(ip, tunnel);
    EXPECT_FALSE(decode(ip));
    EXPECT_EQ(m_counts.count("too many tunnels"), 1U);
}

TEST_F(IpDecoderTest, PutsFragmentsTogetherInAnyOrder)
{
    auto vecFragments = fragments(16);
    ASSERT_EQ(vecFragments.size(), 4U);
    std::vector<std::size_t> vecOrder = {0, 1, 2, 3};
    std::uint16_t wIdentification = 10;
    do
    {
        vecFragments = fragments(16, ++wIdentification);
        for (std::size_t u = 0; u + 1 < vecOrder.size(); ++u)
            ASSERT_FALSE(decode(vecFragments[vecOrder[u]]));
        ASSERT_TRUE(decode(vecFragments[vecOrder.back()]));
        EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
    }
    while (std::next_permutation(vecOrder.begin(), vecOrder.end()));
}

TEST_F(IpDecoderTest, TakesAFragmentThatWasCapturedTwiceOnce)
{
    const auto vecFragments = fragments(32);
    EXPECT_FALSE(decode(vecFragments[0]));
    EXPECT_FALSE(decode(vecFragments[0]));
    EXPECT_TRUE(decode(vecFragments[1]));
}

TEST_F(IpDecoderTest, PutsIpv6FragmentsTogether)
{
    const auto fragment = [&](std::size_t uAt, std::size_t uLength, bool bMore) {
        CPacketBytes bytes = {17, 0};
        appendU16(bytes, uAt | (bMore ? 1U : 0U));
        appendU32(bytes, 77);
        append(bytes, CBytes(m_udp).subspan(uAt, uLength));
        return ipv6(bytes, 44);
    };
    EXPECT_FALSE(decode(fragment(0, 24, true)));
    ASSERT_TRUE(decode(fragment(24, m_udp.size() - 24, false)));
    EXPECT_THAT(m_transport.bytes, ElementsAreArray(m_udp));
}

TEST_F(IpDecoderTest, DropsAPacketWhoseFragmentsOverlap)
{
    auto vecFragments = fragments(16);
    CIpOptions options;
    options.uOffset = 8;
    options.bMore = true;
    EXPECT_FALSE(decode(vecFragments[0]));
    EXPECT_FALSE(decode(ipv4(bytesOf("0123456789abcdef"), options)));
    EXPECT_EQ(m_counts.count("IP fragments overlap or are too many"), 1U);
    for (const auto& fragment : vecFragments)
        EXPECT_FALSE(decode(fragment));
}

TEST_F(IpDecoderTest, ForgetsFragmentsWhoseRestDoesNotCome)
{
    const auto vecFragments = fragments(32);
    EXPECT_FALSE(decode(vecFragments[0], 0));
    EXPECT_FALSE(decode(vecFragments[1], CIpReassembly::cMaxAgeMicros + 1));
    EXPECT_EQ(m_counts.count("IP packet with missing fragments"), 1U);
}

TEST_F(IpDecoderTest, HoldsABoundedNumberOfFragmentedPackets)
{
    CIntakeCounts counts;
    CIpReassembly reassembly;
    std::vector<std::uint8_t> vecWhole;
    const char* pszRefused = nullptr;
    const CPacketBytes part(8, 0);
    for (std::uint32_t dw = 0; dw < 2 * CIpReassembly::cMaxPackets; ++dw)
        EXPECT_FALSE(reassembly.add({v4(1), v4(2), dw, 17, 0, true, part}, 0, &vecWhole, &pszRefused));
    EXPECT_EQ(reassembly.pending(), CIpReassembly::cMaxPackets);
    EXPECT_STREQ(pszRefused, "too many IP fragments waiting");
}

TEST_F(IpDecoderTest, RefusesHeadersThatPromiseMoreThanThereIs)
{
    const CPacketBytes ip = ipv4(m_udp);
    for (std::size_t u = 0; u < ip.size(); ++u)
        EXPECT_FALSE(decode({ip.begin(), ip.begin() + static_cast<std::ptrdiff_t>(u)})) << u;
    const CPacketBytes six = ipv6(m_udp);
    for (std::size_t u = 0; u < six.size(); ++u)
        EXPECT_FALSE(decode({six.begin(), six.begin() + static_cast<std::ptrdiff_t>(u)})) << u;
}

TEST_F(IpDecoderTest, IgnoresOtherProtocols)
{
    CIpOptions icmp;
    icmp.byProtocol = 1;
    EXPECT_FALSE(decode(ipv4(m_udp, icmp)));
    EXPECT_EQ(m_counts.ignored().size(), 1U);
    EXPECT_TRUE(m_counts.refused().empty());
}

} // namespace
