#include "capture/LinkLayer.h"
#include "PacketBuilder.h"

#include <gmock/gmock.h>
#include <pcap/dlt.h>

namespace {

using testing::ElementsAreArray;
using testing::StrEq;

const CPacketBytes s_ip = ipv4(bytesOf("payload"));

CPacketBytes wrapped(CPacketBytes header)
{
    append(header, s_ip);
    return header;
}

void expectFound(int nLinkType, const CPacketBytes& frame)
{
    CBytes ip;
    ASSERT_EQ(findIpPacket(nLinkType, frame, &ip), nullptr);
    EXPECT_THAT(ip, ElementsAreArray(s_ip));
}

TEST(LinkLayerTest, ReadsEthernet)
{
    expectFound(DLT_EN10MB, ethernet(s_ip));
}

TEST(LinkLayerTest, TakesVlanTagsOff)
{
    for (int nTags = 1; nTags <= 4; ++nTags)
        expectFound(DLT_EN10MB, ethernet(s_ip, 0x0800, nTags));
}

TEST(LinkLayerTest, RefusesEndlessVlanTags)
{
    CBytes ip;
    EXPECT_THAT(findIpPacket(DLT_EN10MB, ethernet(s_ip, 0x0800, 5), &ip), StrEq("too many VLAN tags"));
}

TEST(LinkLayerTest, ReadsLinuxCookedCaptures)
{
    CPacketBytes sll(14, 0);
    appendU16(sll, 0x0800);
    expectFound(DLT_LINUX_SLL, wrapped(sll));
    CPacketBytes sll2;
    appendU16(sll2, 0x0800);
    sll2.resize(20, 0);
    expectFound(DLT_LINUX_SLL2, wrapped(sll2));
}

TEST(LinkLayerTest, ReadsRawIp)
{
    expectFound(DLT_RAW, s_ip);
    expectFound(DLT_IPV4, s_ip);
}

TEST(LinkLayerTest, ReadsLoopbackInBothByteOrders)
{
    expectFound(DLT_NULL, wrapped({2, 0, 0, 0}));
    expectFound(DLT_NULL, wrapped({0, 0, 0, 2}));
    expectFound(DLT_LOOP, wrapped({0, 0, 0, 2}));
}

TEST(LinkLayerTest, TellsWhatIsNotIp)
{
    CBytes ip;
    EXPECT_EQ(findIpPacket(DLT_EN10MB, ethernet(s_ip, 0x0806), &ip), cNotIp);
    EXPECT_EQ(findIpPacket(DLT_NULL, CPacketBytes{7, 0, 0, 0, 0x10}, &ip), cNotIp);
}

TEST(LinkLayerTest, RefusesShortFramesOfEveryKind)
{
    for (const int nLinkType : {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_NULL, DLT_LOOP})
    {
        CBytes ip;
        EXPECT_THAT(findIpPacket(nLinkType, CPacketBytes(4, 0), &ip), StrEq("frame too short")) << nLinkType;
        EXPECT_THAT(findIpPacket(nLinkType, CPacketBytes{}, &ip), StrEq("frame too short")) << nLinkType;
    }
}

TEST(LinkLayerTest, RefusesLinkTypesItDoesNotKnow)
{
    CBytes ip;
    EXPECT_THAT(findIpPacket(DLT_IEEE802_11, s_ip, &ip), StrEq("unknown link type"));
}

} // namespace
