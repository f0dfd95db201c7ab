// TCP segments in order.
#include "capture/TcpReassembly.h"

#include <algorithm>

namespace {

constexpr std::uint8_t cFin = 0x01;
constexpr std::uint8_t cSyn = 0x02;
constexpr std::uint8_t cRst = 0x04;

/// How far one sequence number is behind another; negative when it is ahead. They wrap.
std::int32_t distance(std::uint32_t dwFrom, std::uint32_t dwTo) noexcept
{
    return static_cast<std::int32_t>(dwTo - dwFrom);
}

} // namespace

void CTcpReassembly::add(const CIpAddress& source, const CIpAddress& destination, CBytes segment, std::int64_t llMicros)
{
    CEndpoint from{source, 0};
    CEndpoint to{destination, 0};
    CSegment parsed;
    if (!parse(segment, &from, &to, &parsed))
        return;
    const bool bMake = (parsed.byFlags & cSyn) != 0 || !parsed.data.empty();
    const auto it = find(from, to, bMake);
    if (it == m_lstStreams.end())
        return;
    m_lstStreams.splice(m_lstStreams.end(), m_lstStreams, it);
    CStream& stream = *it;
    if ((parsed.byFlags & cSyn) != 0)
    {
        if (stream.bStarted && stream.dwNext != parsed.dwSequence + 1)
        {
            skipGap(stream, llMicros); // the ports are used again for a new connection
            stream.pSink->onGap();
        }
        stream.bStarted = true;
        stream.dwNext = ++parsed.dwSequence; // a SYN counts as one byte
        stream.dwEnd.reset();
    }
    if (!parsed.data.empty())
        take(stream, parsed, llMicros);
    const std::uint32_t dwBehind = parsed.dwSequence + static_cast<std::uint32_t>(parsed.data.size());
    const std::int32_t lAhead = distance(stream.dwNext, dwBehind);
    if ((parsed.byFlags & cFin) != 0 && lAhead >= 0 && lAhead <= cMaxDistance)
        stream.dwEnd = dwBehind;
    if ((parsed.byFlags & cRst) != 0 || stream.dwEnd == stream.dwNext)
        end(it, llMicros);
}

bool CTcpReassembly::parse(CBytes segment, CEndpoint* pSource, CEndpoint* pDestination, CSegment* pSegment)
{
    if (segment.size() < 20)
    {
        m_counts.refuse("TCP header too short");
        return false;
    }
    const std::size_t uHeader = static_cast<std::size_t>(segment[12] >> 4) * 4;
    if (uHeader < 20 || uHeader > segment.size())
    {
        m_counts.refuse("TCP header of impossible size");
        return false;
    }
    pSource->wPort = readU16(segment, 0);
    pDestination->wPort = readU16(segment, 2);
    pSegment->dwSequence = readU32(segment, 4);
    pSegment->byFlags = segment[13];
    pSegment->data = segment.subspan(uHeader);
    return true;
}

CTcpReassembly::CStreams::iterator CTcpReassembly::find(const CEndpoint& source, const CEndpoint& destination,
                                                        bool bMake)
{
    const auto key = std::make_pair(source, destination);
    if (const auto it = m_mapStreams.find(key); it != m_mapStreams.end())
        return it->second;
    if (!bMake)
        return m_lstStreams.end();
    if (m_lstStreams.size() >= cMaxStreams)
    {
        m_counts.warn("too many TCP streams: one was given up");
        m_uWaitingBytes -= m_lstStreams.front().uWaitingBytes;
        m_mapStreams.erase({m_lstStreams.front().source, m_lstStreams.front().destination});
        m_lstStreams.pop_front();
    }
    CStream stream;
    stream.source = source;
    stream.destination = destination;
    stream.pSink = m_factory.makeStream(source, destination);
    m_lstStreams.push_back(std::move(stream));
    const auto it = std::prev(m_lstStreams.end());
    m_mapStreams.emplace(key, it);
    return it;
}

void CTcpReassembly::take(CStream& stream, CSegment segment, std::int64_t llMicros)
{
    if (!stream.bStarted)
    {
        stream.bStarted = true;
        stream.dwNext = segment.dwSequence;
    }
    if (!follow(stream, segment, llMicros))
        return;
    const std::int32_t lAhead = distance(stream.dwNext, segment.dwSequence);
    if (lAhead > 0)
    {
        wait(stream, segment, llMicros);
        return;
    }
    const auto uOld = static_cast<std::size_t>(-static_cast<std::int64_t>(lAhead));
    if (uOld >= segment.data.size())
        return; // sent again, or the byte that a keep-alive probe repeats
    segment.data = segment.data.subspan(uOld);
    stream.dwNext += static_cast<std::uint32_t>(segment.data.size());
    stream.pSink->onBytes(segment.data, llMicros);
    deliverWaiting(stream, llMicros);
}

/// Whether a segment belongs to its stream. One that is far away does when it goes on from another such one.
bool CTcpReassembly::follow(CStream& stream, const CSegment& segment, std::int64_t llMicros)
{
    const std::int32_t lAhead = distance(stream.dwNext, segment.dwSequence);
    if (lAhead >= -cMaxDistance && lAhead <= cMaxDistance)
        return true;
    const bool bGoesOn = stream.dwFar == segment.dwSequence;
    stream.dwFar = segment.dwSequence + static_cast<std::uint32_t>(segment.data.size());
    if (!bGoesOn)
    {
        m_counts.refuse("TCP segment far from the others of its stream");
        return false;
    }
    skipGap(stream, llMicros);
    m_counts.warn("bytes of a TCP stream are missing");
    stream.pSink->onGap();
    stream.dwNext = segment.dwSequence;
    return true;
}

void CTcpReassembly::wait(CStream& stream, const CSegment& segment, std::int64_t llMicros)
{
    if (stream.mapWaiting.empty())
    {
        stream.dwBase = stream.dwNext;
        stream.llGapSince = llMicros;
    }
    auto& bytes = stream.mapWaiting[segment.dwSequence - stream.dwBase];
    if (bytes.size() < segment.data.size())
    {
        stream.uWaitingBytes += segment.data.size() - bytes.size();
        m_uWaitingBytes += segment.data.size() - bytes.size();
        bytes.assign(segment.data.begin(), segment.data.end());
    }
    if (stream.uWaitingBytes > cMaxWaitingBytes || m_uWaitingBytes > cMaxWaitingInAll ||
        stream.mapWaiting.size() > cMaxWaitingSegments || llMicros - stream.llGapSince > cGapMicros)
        skipGap(stream, llMicros);
}

void CTcpReassembly::deliverWaiting(CStream& stream, std::int64_t llMicros)
{
    while (!stream.mapWaiting.empty())
    {
        const auto it = stream.mapWaiting.begin();
        const std::int32_t lAhead = distance(stream.dwNext, stream.dwBase + it->first);
        if (lAhead > 0)
            return;
        const std::vector<std::uint8_t> bytes = std::move(it->second);
        stream.uWaitingBytes -= bytes.size();
        m_uWaitingBytes -= bytes.size();
        stream.mapWaiting.erase(it);
        const auto uOld = static_cast<std::size_t>(-static_cast<std::int64_t>(lAhead));
        if (uOld >= bytes.size())
            continue;
        stream.dwNext += static_cast<std::uint32_t>(bytes.size() - uOld);
        stream.pSink->onBytes(CBytes(bytes).subspan(uOld), llMicros);
    }
}

void CTcpReassembly::skipGap(CStream& stream, std::int64_t llMicros)
{
    while (!stream.mapWaiting.empty())
    {
        m_counts.warn("bytes of a TCP stream are missing");
        stream.pSink->onGap();
        stream.dwNext = stream.dwBase + stream.mapWaiting.begin()->first;
        deliverWaiting(stream, llMicros);
    }
}

void CTcpReassembly::end(CStreams::iterator it, std::int64_t llMicros)
{
    skipGap(*it, llMicros);
    m_mapStreams.erase({it->source, it->destination});
    m_lstStreams.erase(it);
}

void CTcpReassembly::flush(std::int64_t llMicros)
{
    while (!m_lstStreams.empty())
        end(m_lstStreams.begin(), llMicros);
}
