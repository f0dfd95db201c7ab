#pragma once

#include "KRLogLib.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace Messaging {

/// Operator events of the channels.
constexpr std::uint32_t cEventSettings = 0x81200E01U; ///< a channel could not be started
constexpr std::uint32_t cEventRefused = 0x81200E02U;  ///< somebody connected who is no peer

/// What the channels have to say: the trace log "CDSMessaging" and operator events.
///
/// Bounded: peers decide how often there is something to say, so lines that come too quickly are counted and left out.
///
/// Threads    any.
/// Errors     none: without a log, lines are dropped.
class CChannelLog
{
public:
    /// The process's log, made by the first channel and gone with the last.
    static std::shared_ptr<CChannelLog> get();

    /// A line, unless there were too many of late.
    void line(const std::string& sText) noexcept;
    /// A line that somebody asked for.
    void dumpLine(const std::string& sText) noexcept;
    /// An operator event and its line, unless there were too many of late.
    void event(std::uint32_t dwEventID, KRLogLib::CLogFile::RE_SEVERITY eSeverity, const std::string& sText) noexcept;

    CChannelLog();

private:
    using CClock = std::chrono::steady_clock;

    /// Lets a number through at once and then so many a second.
    struct CAllowance
    {
        double dMost;
        double dPerSecond;
        double dLeft;
        CClock::time_point tpLast;
        std::uint64_t ullLeftOut = 0;
        bool take();
    };
    void write(const char* pszFormat, ...) noexcept __attribute__((format(printf, 2, 3)));

    std::unique_ptr<KRLogLib::CLogFile> m_pLog; // null when it could not be made
    std::unique_ptr<KRLogLib::CLogFileRegistry> m_pSettings;
    std::unique_ptr<KRLogLib::CLogFile> m_pEvents;
    std::mutex m_mtx;
    CAllowance m_lines;  // guarded by m_mtx
    CAllowance m_events; // guarded by m_mtx
};

} // namespace Messaging
