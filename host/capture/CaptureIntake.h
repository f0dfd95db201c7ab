#pragma once

#include "capture/CaptureClock.h"
#include "capture/CaptureReader.h"
#include "capture/IntakeCounts.h"
#include "capture/IpDecoder.h"
#include "capture/MessageReorder.h"
#include "capture/TcpReassembly.h"

#include <functional>

/// Turns captured packets into SIP messages: link layer, IP, UDP or TCP, and the HEPv3 encapsulation, which is
/// recognised by itself.
///
/// Threads  one thread.
class CCaptureIntake : private CTcpStreamFactory
{
public:
    /// @param fnMessage  gets each message, in the order of their times as far as that can be told
    CCaptureIntake(CIntakeCounts& counts, std::function<void(const CCapturedMessage&)> fnMessage);

    void add(const CCapturedPacket& packet);
    /// The file is over and another may follow: its clock is another one.
    void endFile();
    /// The capture is over.
    void flush();

    std::uint64_t packets() const noexcept { return m_ullPackets; }
    std::uint64_t sipMessages() const noexcept { return m_ullSip; } ///< read from packets as they are
    std::uint64_t hepMessages() const noexcept { return m_ullHep; } ///< read from HEPv3 datagrams

private:
    class CStreamSink;

    void addUdp(const CTransportPacket& packet, std::int64_t llMicros);
    void addHep(CBytes datagram);
    void message(CCapturedMessage&& message);
    std::unique_ptr<CTcpStreamSink> makeStream(const CEndpoint& source, const CEndpoint& destination) override;

    CIntakeCounts& m_counts;
    std::function<void(const CCapturedMessage&)> m_fnMessage;
    CCaptureClock m_clock;
    CCaptureClock m_clockHep; // the capturing agents' clock, not that of the machine that kept their datagrams
    CIpDecoder m_ip;
    CTcpReassembly m_tcp;
    CMessageReorder m_reorder;
    std::int64_t m_llLast = 0;
    std::uint64_t m_ullPackets = 0;
    std::uint64_t m_ullSip = 0;
    std::uint64_t m_ullHep = 0;
};
