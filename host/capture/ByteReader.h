#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

/// Bytes of a packet. They belong to whoever read the packet, and live as long as it does.
using CBytes = std::span<const std::uint8_t>;

/// Big-endian numbers; the caller has checked that the bytes are there.
inline std::uint16_t readU16(CBytes bytes, std::size_t uAt) noexcept
{
    return static_cast<std::uint16_t>((bytes[uAt] << 8) | bytes[uAt + 1]);
}

inline std::uint32_t readU32(CBytes bytes, std::size_t uAt) noexcept
{
    return (static_cast<std::uint32_t>(readU16(bytes, uAt)) << 16) | readU16(bytes, uAt + 2);
}

inline std::string_view asText(CBytes bytes) noexcept
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}
