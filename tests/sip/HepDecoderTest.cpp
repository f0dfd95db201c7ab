#include "capture/HepDecoder.h"
#include "PacketBuilder.h"

#include <algorithm>
#include <gmock/gmock.h>

namespace {

using testing::StrEq;

/// The chunks of a complete datagram: 10.0.0.1:5060 to 10.0.0.2:5070, UDP, SIP.
std::vector<CPacketBytes> completeChunks()
{
    return {chunk(1, CPacketBytes{2}),
            chunk(2, CPacketBytes{17}),
            chunk(3, CPacketBytes{10, 0, 0, 1}),
            chunk(4, CPacketBytes{10, 0, 0, 2}),
            chunk(7, CPacketBytes{0x13, 0xC4}),
            chunk(8, CPacketBytes{0x13, 0xCE}),
            chunk(9, CPacketBytes{0x6B, 0x00, 0xE1, 0x62}),
            chunk(10, CPacketBytes{0x00, 0x00, 0xF0, 0x0E}),
            chunk(11, CPacketBytes{1}),
            chunk(12, CPacketBytes{0, 0, 7, 0xD1}),
            chunk(14, bytesOf("secret")),
            chunk(17, bytesOf("corr-1")),
            chunk(15, bytesOf("INVITE sip:b@h SIP/2.0\r\n\r\n"))};
}

const char* decode(const CPacketBytes& datagram)
{
    CHepPacket packet;
    return decodeHep(datagram, &packet);
}

void expectComplete(const CHepPacket& packet)
{
    EXPECT_EQ(packet.source.toString(), "10.0.0.1:5060");
    EXPECT_EQ(packet.destination.toString(), "10.0.0.2:5070");
    EXPECT_EQ(packet.byProtocol, 17);
    EXPECT_EQ(packet.llSeconds, 1795219810);
    EXPECT_EQ(packet.llMicros, 61454);
    EXPECT_EQ(packet.byPayloadKind, cHepPayloadSip);
    EXPECT_EQ(packet.dwCaptureAgent, 2001U);
    EXPECT_EQ(packet.sKey, "secret");
    EXPECT_EQ(packet.sCorrelation, "corr-1");
    EXPECT_EQ(packet.sPayload, "INVITE sip:b@h SIP/2.0\r\n\r\n");
}

TEST(HepDecoderTest, ReadsEveryField)
{
    const CPacketBytes datagram = hep(completeChunks());
    CHepPacket packet;
    ASSERT_EQ(decodeHep(datagram, &packet), nullptr);
    expectComplete(packet);
}

TEST(HepDecoderTest, TakesChunksInAnyOrder)
{
    auto vecChunks = completeChunks();
    for (std::size_t u = 0; u < vecChunks.size(); ++u)
    {
        std::rotate(vecChunks.begin(), vecChunks.begin() + 1, vecChunks.end());
        const CPacketBytes datagram = hep(vecChunks);
        CHepPacket packet;
        ASSERT_EQ(decodeHep(datagram, &packet), nullptr) << "rotated by " << u + 1;
        expectComplete(packet);
    }
}

TEST(HepDecoderTest, SkipsUnknownTypesAndOtherVendors)
{
    auto vecChunks = completeChunks();
    vecChunks.insert(vecChunks.begin(), chunk(0x1234, bytesOf("new")));
    vecChunks.insert(vecChunks.begin() + 3, chunk(3, bytesOf("another vendor's"), 42));
    vecChunks.push_back(chunk(13, CPacketBytes{0, 1}));
    const CPacketBytes datagram = hep(vecChunks);
    CHepPacket packet;
    ASSERT_EQ(decodeHep(datagram, &packet), nullptr);
    expectComplete(packet);
}

TEST(HepDecoderTest, TakesTheFirstOfTwoEqualChunks)
{
    auto vecChunks = completeChunks();
    vecChunks.push_back(chunk(17, bytesOf("corr-2")));
    const CPacketBytes datagram = hep(vecChunks);
    CHepPacket packet;
    ASSERT_EQ(decodeHep(datagram, &packet), nullptr);
    EXPECT_EQ(packet.sCorrelation, "corr-1");
}

TEST(HepDecoderTest, ReadsIpv6)
{
    auto vecChunks = completeChunks();
    CPacketBytes address(16, 0);
    address[15] = 1;
    vecChunks[0] = chunk(1, CPacketBytes{10});
    vecChunks[2] = chunk(5, address);
    vecChunks[3] = chunk(6, address);
    const CPacketBytes datagram = hep(vecChunks);
    CHepPacket packet;
    ASSERT_EQ(decodeHep(datagram, &packet), nullptr);
    EXPECT_EQ(packet.source.toString(), "[::1]:5060");
}

TEST(HepDecoderTest, RefusesAnotherMagic)
{
    CPacketBytes datagram = hep(completeChunks());
    datagram[3] = '2';
    EXPECT_THAT(decode(datagram), StrEq("not a HEPv3 datagram"));
}

TEST(HepDecoderTest, RefusesATotalThatDiffersFromTheDatagram)
{
    CPacketBytes datagram = hep(completeChunks());
    ++datagram[5];
    EXPECT_THAT(decode(datagram), StrEq("HEP total length differs from the datagram"));
    datagram[5] = static_cast<std::uint8_t>(datagram[5] - 2);
    EXPECT_THAT(decode(datagram), StrEq("HEP total length differs from the datagram"));
}

TEST(HepDecoderTest, RefusesEveryDatagramThatIsCutShort)
{
    const CPacketBytes datagram = hep(completeChunks());
    for (std::size_t u = 0; u < datagram.size(); ++u)
        EXPECT_NE(decode({datagram.begin(), datagram.begin() + static_cast<std::ptrdiff_t>(u)}), nullptr) << u;
}

TEST(HepDecoderTest, RefusesAChunkShorterThanItsHeader)
{
    for (std::uint8_t byLength = 0; byLength < 6; ++byLength)
    {
        auto vecChunks = completeChunks();
        CPacketBytes bad = chunk(99, CPacketBytes{});
        bad[5] = byLength;
        vecChunks.insert(vecChunks.begin(), bad);
        EXPECT_THAT(decode(hep(vecChunks)), StrEq("HEP chunk shorter than its header")) << int{byLength};
    }
}

TEST(HepDecoderTest, RefusesAChunkPastTheEnd)
{
    auto vecChunks = completeChunks();
    vecChunks.push_back(chunk(99, CPacketBytes{1}));
    CPacketBytes datagram = hep(vecChunks);
    ++datagram[datagram.size() - 2];
    EXPECT_THAT(decode(datagram), StrEq("HEP chunk runs past the end"));
}

TEST(HepDecoderTest, RefusesBytesBehindTheLastChunk)
{
    auto vecChunks = completeChunks();
    vecChunks.push_back(CPacketBytes{0, 0, 0, 99, 0});
    EXPECT_THAT(decode(hep(vecChunks)), StrEq("HEP chunk runs past the end"));
}

TEST(HepDecoderTest, RefusesAChunkOfWrongSize)
{
    auto vecChunks = completeChunks();
    vecChunks[2] = chunk(3, CPacketBytes{10, 0, 0});
    EXPECT_THAT(decode(hep(vecChunks)), StrEq("HEP chunk of wrong size"));
}

TEST(HepDecoderTest, RefusesAnUnknownFamily)
{
    auto vecChunks = completeChunks();
    vecChunks[0] = chunk(1, CPacketBytes{3});
    EXPECT_THAT(decode(hep(vecChunks)), StrEq("HEP address family unknown"));
}

TEST(HepDecoderTest, RefusesAnAddressOfTheOtherFamily)
{
    auto vecChunks = completeChunks();
    vecChunks[0] = chunk(1, CPacketBytes{10});
    EXPECT_THAT(decode(hep(vecChunks)), StrEq("HEP datagram incomplete"));
}

TEST(HepDecoderTest, NeedsEveryFieldButAgentKeyAndCorrelation)
{
    const auto vecChunks = completeChunks();
    for (std::size_t u = 0; u < vecChunks.size(); ++u)
    {
        auto vecFewer = vecChunks;
        vecFewer.erase(vecFewer.begin() + static_cast<std::ptrdiff_t>(u));
        const bool bOptional = u >= 9 && u <= 11;
        EXPECT_EQ(decode(hep(vecFewer)) == nullptr, bOptional) << "without the chunk at " << u;
    }
}

TEST(HepDecoderTest, LeavesTheResultAloneWhenItRefuses)
{
    CHepPacket packet;
    packet.dwCaptureAgent = 7;
    EXPECT_NE(decodeHep(bytesOf("HEP3"), &packet), nullptr);
    EXPECT_EQ(packet.dwCaptureAgent, 7U);
}

} // namespace
