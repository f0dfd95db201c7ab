// HEPv3 datagrams.
#include "capture/HepDecoder.h"

namespace {

constexpr std::size_t cHeaderSize = 6;
constexpr std::uint8_t cFamilyIpv4 = 2;
constexpr std::uint8_t cFamilyIpv6 = 10; // both are the numbers of Linux

enum EChunk : std::uint16_t
{
    chunk_family = 1,
    chunk_protocol = 2,
    chunk_source_v4 = 3,
    chunk_destination_v4 = 4,
    chunk_source_v6 = 5,
    chunk_destination_v6 = 6,
    chunk_source_port = 7,
    chunk_destination_port = 8,
    chunk_seconds = 9,
    chunk_micros = 10,
    chunk_payload_kind = 11,
    chunk_capture_agent = 12,
    chunk_key = 14,
    chunk_payload = 15,
    chunk_correlation = 17,
    chunk_count
};

/// The size that a chunk's value must have; 0 for any.
constexpr std::size_t cValueSize[chunk_count] = {0, 1, 1, 4, 4, 16, 16, 2, 2, 4, 4, 1, 4, 0, 0, 0, 0, 0};

/// The values by type; an absent one has no data.
struct CChunks
{
    CBytes values[chunk_count];

    bool has(EChunk eType) const noexcept { return values[eType].data() != nullptr; }
    std::uint8_t byteOf(EChunk eType) const noexcept { return values[eType][0]; }
};

const char* readChunks(CBytes datagram, CChunks* pChunks)
{
    for (std::size_t uAt = cHeaderSize; uAt < datagram.size();)
    {
        if (datagram.size() - uAt < cHeaderSize)
            return "HEP chunk runs past the end";
        const std::uint16_t wVendor = readU16(datagram, uAt);
        const std::uint16_t wType = readU16(datagram, uAt + 2);
        const std::size_t uLength = readU16(datagram, uAt + 4);
        if (uLength < cHeaderSize)
            return "HEP chunk shorter than its header";
        if (uLength > datagram.size() - uAt)
            return "HEP chunk runs past the end";
        const CBytes value = datagram.subspan(uAt + cHeaderSize, uLength - cHeaderSize);
        uAt += uLength;
        if (wVendor != 0 || wType >= chunk_count || pChunks->values[wType].data() != nullptr)
            continue;
        if (cValueSize[wType] != 0 && value.size() != cValueSize[wType])
            return "HEP chunk of wrong size";
        pChunks->values[wType] = value;
    }
    return nullptr;
}

const char* readAddresses(const CChunks& chunks, CHepPacket* pPacket)
{
    const std::uint8_t byFamily = chunks.byteOf(chunk_family);
    if (byFamily != cFamilyIpv4 && byFamily != cFamilyIpv6)
        return "HEP address family unknown";
    const EChunk eSource = byFamily == cFamilyIpv4 ? chunk_source_v4 : chunk_source_v6;
    const EChunk eDestination = byFamily == cFamilyIpv4 ? chunk_destination_v4 : chunk_destination_v6;
    if (!chunks.has(eSource) || !chunks.has(eDestination))
        return "HEP datagram incomplete";
    pPacket->source = {CIpAddress(chunks.values[eSource]), readU16(chunks.values[chunk_source_port], 0)};
    pPacket->destination = {CIpAddress(chunks.values[eDestination]), readU16(chunks.values[chunk_destination_port], 0)};
    return nullptr;
}

} // namespace

bool isHep(CBytes datagram) noexcept
{
    return asText(datagram).starts_with("HEP3");
}

const char* decodeHep(CBytes datagram, CHepPacket* pPacket)
{
    if (datagram.size() < cHeaderSize || !isHep(datagram))
        return "not a HEPv3 datagram";
    if (readU16(datagram, 4) != datagram.size())
        return "HEP total length differs from the datagram";
    CChunks chunks;
    if (const char* pszWhy = readChunks(datagram, &chunks))
        return pszWhy;
    for (const EChunk eNeeded : {chunk_family, chunk_protocol, chunk_source_port, chunk_destination_port, chunk_seconds,
                                 chunk_micros, chunk_payload_kind, chunk_payload})
        if (!chunks.has(eNeeded))
            return "HEP datagram incomplete";
    CHepPacket packet;
    if (const char* pszWhy = readAddresses(chunks, &packet))
        return pszWhy;
    packet.byProtocol = chunks.byteOf(chunk_protocol);
    packet.llSeconds = readU32(chunks.values[chunk_seconds], 0);
    packet.llMicros = readU32(chunks.values[chunk_micros], 0);
    packet.byPayloadKind = chunks.byteOf(chunk_payload_kind);
    if (chunks.has(chunk_capture_agent))
        packet.dwCaptureAgent = readU32(chunks.values[chunk_capture_agent], 0);
    packet.sKey = asText(chunks.values[chunk_key]);
    packet.sCorrelation = asText(chunks.values[chunk_correlation]);
    packet.sPayload = asText(chunks.values[chunk_payload]);
    *pPacket = packet;
    return nullptr;
}
