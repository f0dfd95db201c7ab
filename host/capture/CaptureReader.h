#pragma once

#include "capture/ByteReader.h"

#include <cstdint>
#include <memory>
#include <string>

/// A packet of a capture file.
struct CCapturedPacket
{
    std::int64_t llSeconds = 0; ///< since 1970, as the file says: not checked
    std::int64_t llMicros = 0;  ///< as the file says: not checked
    int nLinkType = 0;          ///< a DLT_ number of libpcap
    CBytes bytes;               ///< valid until the next packet is read
    bool bCut = false;          ///< the capture did not keep the whole packet
};

/// Reads pcap and pcapng files.
///
/// Threads  one thread.
/// Errors   open and next say in words what went wrong.
class CCaptureReader
{
public:
    CCaptureReader();
    ~CCaptureReader();
    CCaptureReader(const CCaptureReader&) = delete;
    CCaptureReader& operator=(const CCaptureReader&) = delete;

    /// @param psError  out: why it failed
    /// @return false when the file cannot be opened or is no capture
    [[nodiscard]] bool open(const std::string& sPath, std::string* psError);

    enum class EResult
    {
        packet,
        end,
        damaged ///< the file ends inside a packet, or holds nonsense; what was read so far is good
    };

    /// @param psError  out: what is damaged
    [[nodiscard]] EResult next(CCapturedPacket* pPacket, std::string* psError);

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};
