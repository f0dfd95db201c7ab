#pragma once

#include "capture/ByteReader.h"
#include "capture/Endpoint.h"

#include <cstdint>
#include <string_view>

/// A message in the HEPv3 capture encapsulation. Texts point into the datagram.
struct CHepPacket
{
    CEndpoint source;
    CEndpoint destination;
    std::uint8_t byProtocol = 0; ///< 17: UDP, 6: TCP
    std::int64_t llSeconds = 0;  ///< since 1970: not checked
    std::int64_t llMicros = 0;   ///< not checked
    std::uint8_t byPayloadKind = 0;
    std::uint32_t dwCaptureAgent = 0; ///< 0 when not given
    std::string_view sKey;            ///< authentication key, not checked
    std::string_view sCorrelation;
    std::string_view sPayload;
};

/// Whether a datagram claims to be one.
[[nodiscard]] bool isHep(CBytes datagram) noexcept;

inline constexpr std::uint8_t cHepPayloadSip = 1;

/// Reads a HEPv3 datagram: "HEP3", its total length, then chunks in any order. Chunks of other vendors and of unknown
/// types are skipped; of a chunk that comes twice the first counts.
///
/// @param pPacket  out: written only when the datagram is good
/// @return null, or why the datagram is refused
[[nodiscard]] const char* decodeHep(CBytes datagram, CHepPacket* pPacket);
