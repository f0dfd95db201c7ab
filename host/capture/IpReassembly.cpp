// Fragments of IP packets.
#include "capture/IpReassembly.h"

bool CIpReassembly::add(const CIpFragment& fragment, std::int64_t llMicros, std::vector<std::uint8_t>* pWhole,
                        const char** ppszRefused)
{
    dropStale(llMicros, ppszRefused);
    const std::size_t uEnd = fragment.uOffset + fragment.bytes.size();
    if (fragment.bytes.empty() || uEnd > cMaxPacketSize || (fragment.bMore && fragment.bytes.size() % 8 != 0))
    {
        *ppszRefused = "IP fragment of impossible size";
        return false;
    }
    CPacket& packet = find({fragment.source, fragment.destination, fragment.dwIdentification, fragment.byProtocol},
                           llMicros, ppszRefused);
    if (packet.bSpoiled)
        return false;
    const auto itNext = packet.mapParts.lower_bound(fragment.uOffset);
    if (itNext != packet.mapParts.end() && itNext->first == fragment.uOffset &&
        itNext->second.size() == fragment.bytes.size())
        return false; // captured twice
    const bool bOverNext = itNext != packet.mapParts.end() && uEnd > itNext->first;
    const bool bOverPrevious = itNext != packet.mapParts.begin() &&
                               std::prev(itNext)->first + std::prev(itNext)->second.size() > fragment.uOffset;
    const bool bPastTotal = packet.uTotal != 0 && (uEnd > packet.uTotal || !fragment.bMore);
    const bool bShortTotal = !fragment.bMore && itNext != packet.mapParts.end();
    if (bOverNext || bOverPrevious || bPastTotal || bShortTotal || packet.mapParts.size() == cMaxFragments)
    {
        *ppszRefused = "IP fragments overlap or are too many";
        spoil(packet);
        return false;
    }
    packet.mapParts.emplace(fragment.uOffset, std::vector<std::uint8_t>(fragment.bytes.begin(), fragment.bytes.end()));
    packet.uBytes += fragment.bytes.size();
    m_uBytes += fragment.bytes.size();
    if (!fragment.bMore)
        packet.uTotal = uEnd;
    if (packet.uTotal == 0 || packet.uBytes != packet.uTotal)
        return false;
    pWhole->clear();
    pWhole->reserve(packet.uTotal);
    for (const auto& [uOffset, bytes] : packet.mapParts) // without gaps: nothing overlaps and the sizes add up
        pWhole->insert(pWhole->end(), bytes.begin(), bytes.end());
    drop(m_mapPackets.at(packet.key));
    return true;
}

CIpReassembly::CPacket& CIpReassembly::find(const CKey& key, std::int64_t llMicros, const char** ppszRefused)
{
    if (const auto it = m_mapPackets.find(key); it != m_mapPackets.end())
        return *it->second;
    while (!m_lstPackets.empty() && (m_lstPackets.size() >= cMaxPackets || m_uBytes >= cMaxBytes))
    {
        *ppszRefused = "too many IP fragments waiting";
        drop(m_lstPackets.begin());
    }
    m_lstPackets.push_back(CPacket{key, llMicros, {}, 0, 0, false});
    m_mapPackets.emplace(key, std::prev(m_lstPackets.end()));
    return m_lstPackets.back();
}

void CIpReassembly::dropStale(std::int64_t llMicros, const char** ppszRefused)
{
    while (!m_lstPackets.empty() && llMicros - m_lstPackets.front().llBegin > cMaxAgeMicros)
    {
        if (!m_lstPackets.front().bSpoiled)
            *ppszRefused = "IP packet with missing fragments";
        drop(m_lstPackets.begin());
    }
}

void CIpReassembly::drop(CPackets::iterator it)
{
    m_uBytes -= it->uBytes;
    m_mapPackets.erase(it->key);
    m_lstPackets.erase(it);
}

void CIpReassembly::spoil(CPacket& packet)
{
    m_uBytes -= packet.uBytes;
    packet.uBytes = 0;
    packet.mapParts.clear();
    packet.bSpoiled = true;
}
