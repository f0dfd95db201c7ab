// From captured packets to SIP messages.
#include "capture/CaptureIntake.h"

#include "capture/HepDecoder.h"
#include "capture/LinkLayer.h"
#include "capture/SipStreamFramer.h"

#include <algorithm>

namespace {

/// Some send a few bytes that mean nothing, to keep a way through a firewall open.
constexpr std::size_t cMaxKeepAlive = 4;

/// A message may stand behind empty lines.
std::string_view withoutEmptyLines(std::string_view sBytes) noexcept
{
    sBytes.remove_prefix(std::min(sBytes.find_first_not_of("\r\n"), sBytes.size()));
    return sBytes;
}

} // namespace

/// One direction of a TCP connection, cut into messages.
class CCaptureIntake::CStreamSink final : public CTcpStreamSink
{
public:
    CStreamSink(CCaptureIntake& intake, const CEndpoint& source, const CEndpoint& destination)
        : m_framer(intake.m_counts, [&intake, source, destination, this](std::string_view sBytes) {
              ++intake.m_ullSip;
              intake.message({m_llMicros, source, destination, std::string(sBytes)});
          })
    {
    }

    void onBytes(CBytes bytes, std::int64_t llMicros) override
    {
        m_llMicros = llMicros; // a message is there when its last byte is
        m_framer.add(asText(bytes));
    }

    void onGap() override { m_framer.gap(); }

private:
    std::int64_t m_llMicros = 0;
    CSipStreamFramer m_framer;
};

CCaptureIntake::CCaptureIntake(CIntakeCounts& counts, std::function<void(const CCapturedMessage&)> fnMessage)
    : m_counts(counts),
      m_fnMessage(std::move(fnMessage)),
      m_clock(counts),
      m_clockHep(counts),
      m_ip(counts),
      m_tcp(*this, counts),
      m_reorder([this](CCapturedMessage&& held) { message(std::move(held)); })
{
}

void CCaptureIntake::add(const CCapturedPacket& packet)
{
    ++m_ullPackets;
    CBytes ip;
    if (const char* pszWhy = findIpPacket(packet.nLinkType, packet.bytes, &ip))
    {
        if (pszWhy == cNotIp)
            m_counts.ignore(pszWhy);
        else
            m_counts.refuse(pszWhy);
        return;
    }
    const std::int64_t llMicros = m_clock.believe(packet.llSeconds, packet.llMicros);
    m_llLast = llMicros;
    CTransportPacket transport;
    if (!m_ip.decode(ip, llMicros, &transport))
        return;
    if (transport.eKind == CTransportPacket::EKind::tcp)
        m_tcp.add(transport.source, transport.destination, transport.bytes, llMicros);
    else
        addUdp(transport, llMicros);
}

void CCaptureIntake::addUdp(const CTransportPacket& packet, std::int64_t llMicros)
{
    if (packet.bytes.size() < 8 || readU16(packet.bytes, 4) < 8 || readU16(packet.bytes, 4) > packet.bytes.size())
    {
        m_counts.refuse("UDP datagram of impossible size");
        return;
    }
    const CBytes datagram = packet.bytes.subspan(8, readU16(packet.bytes, 4) - std::size_t{8});
    if (isHep(datagram))
    {
        addHep(datagram);
        return;
    }
    const std::string_view sBytes = withoutEmptyLines(asText(datagram));
    if (!looksLikeSip(sBytes))
    {
        m_counts.ignore(sBytes.size() <= cMaxKeepAlive ? "keep-alive" : "not SIP");
        return;
    }
    ++m_ullSip;
    message({llMicros,
             {packet.source, readU16(packet.bytes, 0)},
             {packet.destination, readU16(packet.bytes, 2)},
             std::string(sBytes)});
}

void CCaptureIntake::addHep(CBytes datagram)
{
    CHepPacket hep;
    if (const char* pszWhy = decodeHep(datagram, &hep))
    {
        m_counts.refuse(pszWhy);
        return;
    }
    const std::string_view sBytes = withoutEmptyLines(hep.sPayload);
    if (hep.byPayloadKind != cHepPayloadSip || !looksLikeSip(sBytes))
    {
        const bool bKeepAlive = hep.byPayloadKind == cHepPayloadSip && sBytes.size() <= cMaxKeepAlive;
        m_counts.ignore(bKeepAlive ? "keep-alive" : "HEP payload is not SIP");
        return;
    }
    ++m_ullHep;
    m_reorder.add({m_clockHep.believe(hep.llSeconds, hep.llMicros), hep.source, hep.destination, std::string(sBytes)});
}

void CCaptureIntake::message(CCapturedMessage&& message)
{
    if (message.sBytes.size() > CSipStreamFramer::cMaxMessage)
        m_counts.refuse("SIP message too large");
    else
        m_fnMessage(message);
}

void CCaptureIntake::endFile()
{
    m_reorder.flush();
    m_clock.restart();
    m_clockHep.restart();
}

void CCaptureIntake::flush()
{
    m_tcp.flush(m_llLast);
    m_reorder.flush();
}

std::unique_ptr<CTcpStreamSink> CCaptureIntake::makeStream(const CEndpoint& source, const CEndpoint& destination)
{
    return std::make_unique<CStreamSink>(*this, source, destination);
}
