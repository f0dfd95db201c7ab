// IP headers of both versions, down to the transport.
#include "capture/IpDecoder.h"

#include <netinet/in.h>

struct CIpDecoder::CPayload
{
    CIpFragment part; // the whole packet is its own only part
    bool bFragment = false;
};

bool CIpDecoder::refuse(const char* pszReason)
{
    m_counts.refuse(pszReason);
    return false;
}

bool CIpDecoder::decode(CBytes ip, std::int64_t llMicros, CTransportPacket* pTransport)
{
    for (int nDepth = 0; nDepth <= cMaxTunnels; ++nDepth)
    {
        if (ip.empty())
            return refuse("IP packet too short");
        CPayload payload;
        const int nVersion = ip[0] >> 4;
        if (nVersion != 4 && nVersion != 6)
            return refuse("unknown IP version");
        if (!(nVersion == 4 ? decodeV4(ip, &payload) : decodeV6(ip, &payload)))
            return false;
        if (payload.bFragment && !wholePayload(&payload, llMicros, nDepth))
            return false;
        if (payload.bFragment && nVersion == 6 && !skipExtensions(payload.part.bytes, &payload))
            return false; // extension headers may stand in the part that was cut to fragments
        if (payload.part.byProtocol == IPPROTO_UDP || payload.part.byProtocol == IPPROTO_TCP)
        {
            pTransport->eKind =
                payload.part.byProtocol == IPPROTO_UDP ? CTransportPacket::EKind::udp : CTransportPacket::EKind::tcp;
            pTransport->source = payload.part.source;
            pTransport->destination = payload.part.destination;
            pTransport->bytes = payload.part.bytes;
            return true;
        }
        if (payload.part.byProtocol != IPPROTO_IPIP && payload.part.byProtocol != IPPROTO_IPV6)
        {
            m_counts.ignore("neither UDP nor TCP");
            return false;
        }
        ip = payload.part.bytes;
    }
    return refuse("too many tunnels");
}

bool CIpDecoder::wholePayload(CPayload* pPayload, std::int64_t llMicros, int nDepth)
{
    const char* pszRefused = nullptr;
    auto& vecWhole = m_vecWhole[nDepth];
    const bool bWhole = m_reassembly.add(pPayload->part, llMicros, &vecWhole, &pszRefused);
    if (pszRefused != nullptr)
        m_counts.refuse(pszRefused);
    if (bWhole)
        pPayload->part.bytes = vecWhole;
    return bWhole;
}

bool CIpDecoder::decodeV4(CBytes ip, CPayload* pPayload)
{
    if (ip.size() < 20)
        return refuse("IP packet too short");
    const std::size_t uHeader = static_cast<std::size_t>(ip[0] & 15) * 4;
    std::size_t uTotal = readU16(ip, 2);
    if (uTotal == 0)
        uTotal = ip.size(); // captured before the network card cut a large send to size
    if (uHeader < 20 || uTotal < uHeader)
        return refuse("IP header of impossible size");
    if (ip.size() < uTotal)
        return refuse("packet cut by the capture");
    const std::uint16_t wFlags = readU16(ip, 6);
    CIpFragment& part = pPayload->part;
    part.source = CIpAddress(ip.subspan(12, 4));
    part.destination = CIpAddress(ip.subspan(16, 4));
    part.dwIdentification = readU16(ip, 4);
    part.byProtocol = ip[9];
    part.uOffset = static_cast<std::size_t>(wFlags & 0x1FFF) * 8;
    part.bMore = (wFlags & 0x2000) != 0;
    part.bytes = ip.subspan(uHeader, uTotal - uHeader);
    pPayload->bFragment = part.bMore || part.uOffset != 0;
    return true;
}

bool CIpDecoder::decodeV6(CBytes ip, CPayload* pPayload)
{
    if (ip.size() < 40)
        return refuse("IP packet too short");
    std::size_t uLength = readU16(ip, 4);
    if (uLength == 0)
        uLength = ip.size() - 40;
    if (ip.size() < 40 + uLength)
        return refuse("packet cut by the capture");
    pPayload->part.source = CIpAddress(ip.subspan(8, 16));
    pPayload->part.destination = CIpAddress(ip.subspan(24, 16));
    pPayload->part.byProtocol = ip[6];
    return skipExtensions(ip.subspan(40, uLength), pPayload);
}

bool CIpDecoder::skipExtensions(CBytes ip, CPayload* pPayload)
{
    CIpFragment& part = pPayload->part;
    for (;;)
    {
        std::size_t uLength = 8;
        switch (part.byProtocol)
        {
        case IPPROTO_HOPOPTS:
        case IPPROTO_ROUTING:
        case IPPROTO_DSTOPTS: uLength = ip.size() < 2 ? 8 : (static_cast<std::size_t>(ip[1]) + 1) * 8; break;
        case IPPROTO_AH: uLength = ip.size() < 2 ? 8 : (static_cast<std::size_t>(ip[1]) + 2) * 4; break;
        case IPPROTO_FRAGMENT: break;
        default: part.bytes = ip; return true;
        }
        if (ip.size() < uLength)
            return refuse("IP packet too short");
        const bool bFragment = part.byProtocol == IPPROTO_FRAGMENT;
        part.byProtocol = ip[0];
        if (bFragment)
        {
            const std::uint16_t wFlags = readU16(ip, 2);
            part.dwIdentification = readU32(ip, 4);
            part.uOffset = static_cast<std::size_t>(wFlags & 0xFFF8);
            part.bMore = (wFlags & 1) != 0;
            part.bytes = ip.subspan(uLength);
            pPayload->bFragment = part.bMore || part.uOffset != 0;
            if (pPayload->bFragment)
                return true; // what follows belongs to the whole packet
        }
        ip = ip.subspan(uLength);
    }
}
