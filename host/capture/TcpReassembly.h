#pragma once

#include "capture/ByteReader.h"
#include "capture/Endpoint.h"
#include "capture/IntakeCounts.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

/// Takes one direction of a TCP connection's bytes, in order and without repeats.
class CTcpStreamSink
{
public:
    virtual ~CTcpStreamSink() = default;

    /// The next bytes.
    virtual void onBytes(CBytes bytes, std::int64_t llMicros) = 0;

    /// Bytes are missing here: what follows does not join what came before.
    virtual void onGap() = 0;
};

/// Makes a sink for each direction of each connection.
class CTcpStreamFactory
{
public:
    virtual std::unique_ptr<CTcpStreamSink> makeStream(const CEndpoint& source, const CEndpoint& destination) = 0;

protected:
    ~CTcpStreamFactory() = default;
};

/// Puts the segments of TCP connections in order. Each direction is a stream of its own, from its SYN, or from its
/// first data when it was up before the capture began, to the byte that its FIN follows.
///
/// A segment that is further away from the others than any window reaches is dropped, unless the next such segment goes
/// on from it: then the capture has lost much, and the stream is taken from there on.
///
/// A missing segment is waited for until the capture has run on for two seconds, too much is waiting behind it, or the
/// stream ends; then it is reported as a gap.
///
/// Bounded: streams, bytes and segments waiting in each. The stream that was silent longest gives way.
///
/// Threads  one thread.
/// Units    times are microseconds of the capture.
class CTcpReassembly
{
public:
    static constexpr std::size_t cMaxStreams = 2048;
    static constexpr std::size_t cMaxWaitingBytes = std::size_t{256} << 10; ///< of one stream
    static constexpr std::size_t cMaxWaitingInAll = std::size_t{32} << 20;
    static constexpr std::size_t cMaxWaitingSegments = 256;
    static constexpr std::int64_t cGapMicros = 2'000'000;
    static constexpr std::int32_t cMaxDistance = 1 << 20; ///< bytes

    CTcpReassembly(CTcpStreamFactory& factory, CIntakeCounts& counts) : m_factory(factory), m_counts(counts) {}

    /// Takes a segment with its TCP header.
    void add(const CIpAddress& source, const CIpAddress& destination, CBytes segment, std::int64_t llMicros);

    /// The capture is over: hands on what waits behind gaps.
    void flush(std::int64_t llMicros);

    std::size_t streams() const noexcept { return m_lstStreams.size(); }

private:
    struct CStream
    {
        CEndpoint source;
        CEndpoint destination;
        std::unique_ptr<CTcpStreamSink> pSink;
        bool bStarted = false;
        std::uint32_t dwNext = 0;                                      // sequence number of the next byte
        std::map<std::uint32_t, std::vector<std::uint8_t>> mapWaiting; // distance from dwBase -> bytes
        std::uint32_t dwBase = 0; // sequence number that distances are counted from
        std::size_t uWaitingBytes = 0;
        std::int64_t llGapSince = 0;
        std::optional<std::uint32_t> dwEnd; // sequence number behind the last byte, once a FIN told it
        std::optional<std::uint32_t> dwFar; // what follows the segment that was dropped as too far away
    };
    using CStreams = std::list<CStream>;
    struct CSegment
    {
        std::uint32_t dwSequence = 0;
        std::uint8_t byFlags = 0;
        CBytes data;
    };

    bool parse(CBytes segment, CEndpoint* pSource, CEndpoint* pDestination, CSegment* pSegment);
    CStreams::iterator find(const CEndpoint& source, const CEndpoint& destination, bool bMake);
    void take(CStream& stream, CSegment segment, std::int64_t llMicros);
    bool follow(CStream& stream, const CSegment& segment, std::int64_t llMicros);
    void wait(CStream& stream, const CSegment& segment, std::int64_t llMicros);
    void deliverWaiting(CStream& stream, std::int64_t llMicros);
    void skipGap(CStream& stream, std::int64_t llMicros);
    void end(CStreams::iterator it, std::int64_t llMicros);

    CTcpStreamFactory& m_factory;
    CIntakeCounts& m_counts;
    std::size_t m_uWaitingBytes = 0; // of all streams
    CStreams m_lstStreams;           // the one that was silent longest first
    std::map<std::pair<CEndpoint, CEndpoint>, CStreams::iterator> m_mapStreams;
};
