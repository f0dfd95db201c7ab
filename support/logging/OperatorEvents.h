#pragma once

#include <cstdint>

/// Reports an operator event to the system's log: "event 0x<code>: <string>, <string>".
///
/// The identity in the system's log is the process's: openlog belongs to the host, who may have set it.
///
/// @param nSeverity  KRLogLib::CLogFile::RE_SEVERITY, which becomes the priority
/// @return 0, or negative when there is no memory for the text
long reportOperatorEvent(std::uint32_t dwEventID, std::uint16_t wCount, const char* const* ppszStrings,
                         int nSeverity) noexcept;
long reportOperatorEvent(std::uint32_t dwEventID, std::uint16_t wCount, const wchar_t* const* ppszStrings,
                         int nSeverity) noexcept;
