#pragma once

#include "calls/CallMapper.h"
#include "capture/IntakeCounts.h"

#include <cstdint>
#include <string>

/// What a capture held.
struct CCaptureSummary
{
    std::string sPath;
    std::uint64_t ullPackets = 0;
    std::uint64_t ullSip = 0;      ///< messages in packets as they are
    std::uint64_t ullHep = 0;      ///< messages in HEPv3 datagrams
    std::uint64_t ullMessages = 0; ///< readable ones
    std::uint64_t ullRepeats = 0;
    std::uint64_t ullOpen = 0; ///< calls whose end was not seen
    std::string sDamage;       ///< where the file breaks off; empty when it does not
    CIntakeCounts counts;

    /// "SIP", "HEPv3", both, or "no SIP".
    std::string format() const;
};

/// Reads a capture file and hands its calls to the sink.
///
/// @param pSummary  out: what was read; filled as far as it came
/// @param psError   out: why the file cannot be read
/// @return false when it cannot be read at all
[[nodiscard]] bool replayCapture(const std::string& sPath, CCallSink& sink, const CCallMapperSettings& settings,
                                 bool bCloseOpen, CCaptureSummary* pSummary, std::string* psError);
