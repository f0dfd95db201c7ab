#pragma once

#include "calls/CallMapper.h"
#include "capture/CaptureIntake.h"
#include "capture/IntakeCounts.h"

#include <cstdint>
#include <string>
#include <vector>

/// What a capture file held.
struct CCaptureSummary
{
    std::string sPath;
    std::uint64_t ullPackets = 0;
    std::uint64_t ullSip = 0;      ///< messages in packets as they are
    std::uint64_t ullHep = 0;      ///< messages in HEPv3 datagrams
    std::uint64_t ullMessages = 0; ///< readable ones
    std::uint64_t ullRepeats = 0;
    std::uint64_t ullOpen = 0; ///< calls whose end was not seen when the file ended
    std::string sDamage;       ///< where the file breaks off; empty when it does not
    CIntakeCounts counts;

    /// "SIP", "HEPv3", both, or "no SIP".
    std::string format() const;
};

/// Reads capture files one after the other, as if they were one, and hands their calls to a sink: a call, and a TCP
/// connection, may begin in one file and go on in the next.
///
/// Threads  one thread.
class CCaptureReplay
{
public:
    /// @param sink  outlives the replay
    CCaptureReplay(CCallSink& sink, const CCallMapperSettings& settings);
    CCaptureReplay(const CCaptureReplay&) = delete;
    CCaptureReplay& operator=(const CCaptureReplay&) = delete;

    /// Reads the next file.
    ///
    /// @param psError  out: why the file cannot be read
    /// @return false when it cannot be read at all
    [[nodiscard]] bool add(const std::string& sPath, std::string* psError);

    /// No file follows. What it brings to light counts for the last file.
    ///
    /// @param bCloseOpen  whether calls are closed whose end was not seen
    void finish(bool bCloseOpen);

    const std::vector<CCaptureSummary>& captures() const noexcept { return m_vecCaptures; }

private:
    void summarize(CCaptureSummary* pSummary) const;

    CIntakeCounts m_counts; // of the file at hand
    CCallMapper m_mapper;
    CCaptureIntake m_intake;
    CCaptureSummary m_before; // sums over the files before the one at hand
    std::vector<CCaptureSummary> m_vecCaptures;
};
