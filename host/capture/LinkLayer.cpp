// Link layers: how each kind of capture wraps an IP packet.
#include "capture/LinkLayer.h"

#include <pcap/dlt.h>

namespace {

constexpr const char* cFrameTooShort = "frame too short";
constexpr std::uint16_t cEtherIpv4 = 0x0800;
constexpr std::uint16_t cEtherIpv6 = 0x86DD;
/// Service providers nest two tags; more than four are no network's.
constexpr int cMaxVlanTags = 4;

bool isVlanTag(std::uint16_t wEtherType) noexcept
{
    return wEtherType == 0x8100 || wEtherType == 0x88A8 || wEtherType == 0x9100;
}

/// @param uTypeAt  where the Ethernet type stands
/// @param uDataAt  where the data begins, before VLAN tags are taken off
const char* afterEtherType(CBytes frame, std::size_t uTypeAt, std::size_t uDataAt, CBytes* pIp)
{
    if (frame.size() < uDataAt)
        return cFrameTooShort;
    std::uint16_t wType = readU16(frame, uTypeAt);
    for (int nTags = 0; isVlanTag(wType); ++nTags)
    {
        if (nTags == cMaxVlanTags)
            return "too many VLAN tags";
        if (frame.size() < uDataAt + 4)
            return cFrameTooShort;
        wType = readU16(frame, uDataAt + 2);
        uDataAt += 4;
    }
    if (wType != cEtherIpv4 && wType != cEtherIpv6)
        return cNotIp;
    *pIp = frame.subspan(uDataAt);
    return nullptr;
}

/// The protocol family stands in the byte order of the machine that captured, unless the kind fixes it; the families'
/// numbers differ between systems. The IP version tells what it really is, so only frames that are not IP matter.
const char* afterFamily(CBytes frame, CBytes* pIp)
{
    if (frame.size() < 5)
        return cFrameTooShort;
    const int nVersion = frame[4] >> 4;
    if (nVersion != 4 && nVersion != 6)
        return cNotIp;
    *pIp = frame.subspan(4);
    return nullptr;
}

} // namespace

const char* findIpPacket(int nLinkType, CBytes frame, CBytes* pIp)
{
    switch (nLinkType)
    {
    case DLT_EN10MB: return afterEtherType(frame, 12, 14, pIp);
    case DLT_LINUX_SLL: return afterEtherType(frame, 14, 16, pIp);
    case DLT_LINUX_SLL2: return afterEtherType(frame, 0, 20, pIp);
    case DLT_NULL:
    case DLT_LOOP: return afterFamily(frame, pIp);
    case DLT_RAW:
    case DLT_IPV4:
    case DLT_IPV6: *pIp = frame; return nullptr;
    default: return "unknown link type";
    }
}
