#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <span>
#include <string>

/// An IPv4 or IPv6 address.
class CIpAddress
{
public:
    CIpAddress() = default;

    /// @param bytes  4 or 16 bytes in network order; anything else gives the empty address
    explicit CIpAddress(std::span<const std::uint8_t> bytes) noexcept;

    bool isV6() const noexcept { return m_bV6; }
    /// "127.0.0.1", "fe80::1".
    std::string toString() const;

    auto operator<=>(const CIpAddress&) const = default;

private:
    std::array<std::uint8_t, 16> m_bytes{};
    bool m_bV6 = false;
};

/// Where a message comes from or goes to.
struct CEndpoint
{
    CIpAddress address;
    std::uint16_t wPort = 0;

    /// "127.0.0.1:5060", "[fe80::1]:5060".
    std::string toString() const;

    auto operator<=>(const CEndpoint&) const = default;
};
