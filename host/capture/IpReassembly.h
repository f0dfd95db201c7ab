#pragma once

#include "capture/ByteReader.h"
#include "capture/Endpoint.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <vector>

/// A fragment of an IP packet, as its header describes it.
struct CIpFragment
{
    CIpAddress source;
    CIpAddress destination;
    std::uint32_t dwIdentification = 0;
    std::uint8_t byProtocol = 0;
    std::size_t uOffset = 0; ///< of its bytes in the whole, bytes
    bool bMore = false;      ///< not the last one
    CBytes bytes;
};

/// Puts IP fragments together, in any order.
///
/// Bounded: a fixed number of packets in the making, of fragments in each, and of bytes in all; the oldest packet gives
/// way. A fragment that overlaps another one spoils its packet: no sender makes such, only whoever wants two readers
/// of one capture to see different things.
///
/// Threads  one thread.
/// Units    times are microseconds of the capture.
class CIpReassembly
{
public:
    static constexpr std::size_t cMaxPackets = 256;
    static constexpr std::size_t cMaxFragments = 128;
    static constexpr std::size_t cMaxBytes = std::size_t{4} << 20;
    static constexpr std::size_t cMaxPacketSize = 65535;
    static constexpr std::int64_t cMaxAgeMicros = 30'000'000;

    /// Takes a fragment.
    ///
    /// @param pWhole  out: the packet's payload, when this fragment completed it
    /// @param ppszRefused  out: why the fragment or an older packet was dropped, else untouched
    /// @return whether the packet is complete
    [[nodiscard]] bool add(const CIpFragment& fragment, std::int64_t llMicros, std::vector<std::uint8_t>* pWhole,
                           const char** ppszRefused);

    /// Packets still in the making.
    std::size_t pending() const noexcept { return m_lstPackets.size(); }

private:
    struct CKey
    {
        CIpAddress source;
        CIpAddress destination;
        std::uint32_t dwIdentification;
        std::uint8_t byProtocol;
        auto operator<=>(const CKey&) const = default;
    };
    struct CPacket
    {
        CKey key;
        std::int64_t llBegin = 0;
        std::map<std::size_t, std::vector<std::uint8_t>> mapParts; // offset -> bytes
        std::size_t uBytes = 0;
        std::size_t uTotal = 0; // 0 until the last fragment is here
        bool bSpoiled = false;  // kept, empty, so that its other fragments are dropped too
    };
    using CPackets = std::list<CPacket>;

    CPacket& find(const CKey& key, std::int64_t llMicros, const char** ppszRefused);
    void dropStale(std::int64_t llMicros, const char** ppszRefused);
    void drop(CPackets::iterator it);
    void spoil(CPacket& packet);

    CPackets m_lstPackets; // oldest first
    std::map<CKey, CPackets::iterator> m_mapPackets;
    std::size_t m_uBytes = 0;
};
