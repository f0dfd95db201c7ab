#pragma once

#include "CPExport.h"

#include <cstdint>
#include <string>

/// What a host decides about the support library: where its configuration and its logs are.
///
/// Everything has a value when nothing is said: no configuration file, so the built-in settings hold and nothing is
/// written to disk but the log; the trace log "OvnCDS" in the file "OvnCDS.log" of the working directory that the
/// process has when the log is made. A daemon says where its log belongs before it makes a store.
///
/// Configuration file: TOML. The key "Orvane\CDS" is the table [Orvane.CDS]. The trace log's settings are numbers in
/// that table: LogEnabled, LogMaxFiles, LogMaxFileKB, LogTraceMask, LogPriorityMask, LogConsoleTraceMask,
/// LogConsolePriorityMask, LogDropWhenFull, LogQueueLines, LogFollowConfiguration, LogFollowIntervalMs, LogUtc. One
/// that is absent, or no number from 0 to 4294967295, counts as not configured.
///
/// Threads    every operation may be called from any thread.
/// Errors     results are 0 or a negative code; nothing throws but std::bad_alloc.
namespace CDSSupport {

/// Reads the configuration from a file from now on, and lets everything that follows it take the values over.
///
/// @param sPath          the file; "" for none: built-in settings, values set are kept in memory alone
/// @param psError        out, may be null: on failure what is wrong, as "file:line:column: text" when the file can be
///                       read but not understood, else as "file: text"
/// @param bMayBeMissing  a file that is not there counts as an empty one, made when the first value is written
/// @return 0; negative when the file cannot be read or understood: the configuration stays as it was
CP_API long setConfigurationFile(const std::string& sPath, std::string* psError, bool bMayBeMissing = false);

/// Reads the configuration file anew; as setConfigurationFile with the present file. 0 when there is none.
CP_API long rereadConfiguration(std::string* psError);

/// Chooses the directory of the logs that are made from now on; it must exist when one is. Relative paths count from
/// the working directory at this call. Logs that exist stay where they are.
CP_API void setLogDirectory(const std::string& sDirectory);

/// Sets the trace mask of the log of that name, at once or, when there is none yet, as soon as there is. It holds
/// against the configuration until the configured mask changes.
CP_API void setTraceMask(const std::string& sLogName, std::uint32_t dwMask);

/// Opens every log's file anew under its name, after a rotation from outside has renamed it. All lines written before
/// the call are in the old file when it returns.
///
/// @return 0, or negative when a file could not be opened: that log drops its lines and tries again with each batch
CP_API long reopenLogs();

/// Returns when every line written before the call is with the system. Needless in regular use: lines are there after
/// a fraction of a second, and when their log is destroyed.
CP_API void flushLogs();

} // namespace CDSSupport
