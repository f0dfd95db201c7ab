#pragma once

#include "capture/ByteReader.h"
#include "capture/Endpoint.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Bytes of packets, put together by hand.
using CPacketBytes = std::vector<std::uint8_t>;

inline void appendU16(CPacketBytes& bytes, std::size_t uValue)
{
    bytes.push_back(static_cast<std::uint8_t>(uValue >> 8));
    bytes.push_back(static_cast<std::uint8_t>(uValue));
}

inline void appendU32(CPacketBytes& bytes, std::uint32_t dwValue)
{
    appendU16(bytes, dwValue >> 16);
    appendU16(bytes, dwValue & 0xFFFF);
}

inline void append(CPacketBytes& bytes, CBytes more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

inline CPacketBytes bytesOf(std::string_view sText)
{
    return {sText.begin(), sText.end()};
}

/// 10.0.0.n
inline CIpAddress v4(std::uint8_t byHost)
{
    const std::uint8_t bytes[4] = {10, 0, 0, byHost};
    return CIpAddress(bytes);
}

inline CPacketBytes udp(std::uint16_t wSource, std::uint16_t wDestination, CBytes payload)
{
    CPacketBytes bytes;
    appendU16(bytes, wSource);
    appendU16(bytes, wDestination);
    appendU16(bytes, 8 + payload.size());
    appendU16(bytes, 0);
    append(bytes, payload);
    return bytes;
}

/// @param byFlags  FIN 1, SYN 2, RST 4, ACK 16
inline CPacketBytes tcp(std::uint16_t wSource, std::uint16_t wDestination, std::uint32_t dwSequence,
                        std::string_view sPayload, std::uint8_t byFlags = 16)
{
    CPacketBytes bytes;
    appendU16(bytes, wSource);
    appendU16(bytes, wDestination);
    appendU32(bytes, dwSequence);
    appendU32(bytes, 0);
    bytes.push_back(0x50);
    bytes.push_back(byFlags);
    appendU16(bytes, 8192);
    appendU32(bytes, 0);
    append(bytes, bytesOf(sPayload));
    return bytes;
}

struct CIpOptions
{
    std::uint8_t byProtocol = 17;
    std::uint16_t wIdentification = 1;
    std::size_t uOffset = 0; // bytes
    bool bMore = false;
};

/// An IPv4 packet from 10.0.0.1 to 10.0.0.2.
inline CPacketBytes ipv4(CBytes payload, CIpOptions options = {})
{
    CPacketBytes bytes = {0x45, 0};
    appendU16(bytes, 20 + payload.size());
    appendU16(bytes, options.wIdentification);
    appendU16(bytes, options.uOffset / 8 | (options.bMore ? 0x2000U : 0U));
    bytes.push_back(64);
    bytes.push_back(options.byProtocol);
    appendU16(bytes, 0);
    append(bytes, CPacketBytes{10, 0, 0, 1, 10, 0, 0, 2});
    append(bytes, payload);
    return bytes;
}

/// An IPv6 packet from fe80::1 to fe80::2.
inline CPacketBytes ipv6(CBytes payload, std::uint8_t byNextHeader = 17)
{
    CPacketBytes bytes = {0x60, 0, 0, 0};
    appendU16(bytes, payload.size());
    bytes.push_back(byNextHeader);
    bytes.push_back(64);
    for (const std::uint8_t byHost : {std::uint8_t{1}, std::uint8_t{2}})
    {
        CPacketBytes address(16, 0);
        address[0] = 0xFE;
        address[1] = 0x80;
        address[15] = byHost;
        append(bytes, address);
    }
    append(bytes, payload);
    return bytes;
}

inline CPacketBytes ethernet(CBytes ip, std::uint16_t wType = 0x0800, int nVlanTags = 0)
{
    CPacketBytes bytes(12, 0);
    for (int n = 0; n < nVlanTags; ++n)
    {
        appendU16(bytes, n == 0 ? 0x88A8 : 0x8100);
        appendU16(bytes, 7);
    }
    appendU16(bytes, wType);
    append(bytes, ip);
    return bytes;
}

/// A HEPv3 chunk.
inline CPacketBytes chunk(std::uint16_t wType, CBytes value, std::uint16_t wVendor = 0)
{
    CPacketBytes bytes;
    appendU16(bytes, wVendor);
    appendU16(bytes, wType);
    appendU16(bytes, 6 + value.size());
    append(bytes, value);
    return bytes;
}

/// A HEPv3 datagram of chunks.
inline CPacketBytes hep(const std::vector<CPacketBytes>& vecChunks)
{
    CPacketBytes body;
    for (const CPacketBytes& one : vecChunks)
        append(body, one);
    CPacketBytes bytes = bytesOf("HEP3");
    appendU16(bytes, 6 + body.size());
    append(bytes, body);
    return bytes;
}
