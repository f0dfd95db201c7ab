#pragma once

#include "capture/ByteReader.h"
#include "capture/Endpoint.h"
#include "capture/IntakeCounts.h"
#include "capture/IpReassembly.h"

/// The payload of an IP packet: a UDP datagram or a TCP segment with its header.
struct CTransportPacket
{
    enum class EKind
    {
        udp,
        tcp
    };
    EKind eKind = EKind::udp;
    CIpAddress source;
    CIpAddress destination;
    CBytes bytes; ///< transport header included; valid until the next packet is decoded
};

/// Takes IP packets apart: both versions, extension headers, fragments, and IP packets carried in IP packets.
///
/// Threads  one thread.
class CIpDecoder
{
public:
    explicit CIpDecoder(CIntakeCounts& counts) : m_counts(counts) {}

    /// @param pTransport  out: what the packet carries
    /// @return false when there is nothing (yet): a fragment, another protocol, a packet that was refused
    [[nodiscard]] bool decode(CBytes ip, std::int64_t llMicros, CTransportPacket* pTransport);

private:
    struct CPayload;
    bool decodeV4(CBytes ip, CPayload* pPayload);
    bool decodeV6(CBytes ip, CPayload* pPayload);
    bool skipExtensions(CBytes ip, CPayload* pPayload);
    bool wholePayload(CPayload* pPayload, std::int64_t llMicros, int nDepth);
    bool refuse(const char* pszReason);

    /// A tunnel in a tunnel in a tunnel is still somebody's network; a dozen is an attack on the reader.
    static constexpr int cMaxTunnels = 4;

    CIntakeCounts& m_counts;
    CIpReassembly m_reassembly;
    // One buffer a tunnel level: an inner packet put together must not move the outer one that it lies in.
    std::vector<std::uint8_t> m_vecWhole[cMaxTunnels + 1];
};
