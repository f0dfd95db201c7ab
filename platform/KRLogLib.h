#pragma once

#include "CPExport.h"

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <memory>

namespace KRLogLib {

/// A log: a file of trace lines, or the system's log of operator events.
///
/// Threads    every operation but construction and destruction may be called from any thread; lines of one thread
///            keep their order, no line is torn, none is lost while the log lives.
/// Ownership  texts are used during the call only.
/// Errors     the constructor throws KRException when the log cannot be made. Writing never throws and never reports
///            failure: a line that cannot be stored is dropped.
class CP_API CLogFile
{
public:
    /// The classes of lines, one bit each. The store writes every line with all of them.
    enum LogLib_Priority : int
    {
        priority_all = 0x3FF
    };

    /// Severity of an operator event.
    enum RE_SEVERITY : int
    {
        re_none = 0,
        re_information = 1,
        re_warning = 2,
        re_error = 3
    };

    /// @param pszName       the log's name and its file's; operator events have the process's own identity in the
    ///                      system's log
    /// @param pszSecondName null
    /// @param bAppendOnly   false
    /// @param bCreate       true: made when it is not there
    /// @param bEvents       true: operator events; false: trace lines
    CLogFile(const char* pszName, const char* pszSecondName, bool bAppendOnly, bool bCreate, bool bEvents);
    ~CLogFile();
    CLogFile(const CLogFile&) = delete;
    CLogFile& operator=(const CLogFile&) = delete;

    /// The trace mask: a line whose level shares no bit with it is not to be written.
    ///
    /// The word is the log's own but stays readable until the process ends, also after the log is destroyed, so that
    /// a level test needs no lock. It changes while running when the configuration does.
    const std::atomic<std::uint32_t>& traceMask() const noexcept;

    /// Whether lines of these priority classes are stored at present.
    bool IsTraceable(int nPriority) const noexcept;

    /// Formats as vprintf does and stores the line, whole whatever its length. Control characters may be stored
    /// escaped, so that one line stays one line.
    void LogStringArgListX(int nPriority, const char* pszReserved, const char* pszFormat, va_list args) noexcept
        __attribute__((format(printf, 4, 0)));

    /// The wide form, formatted as vwprintf does and stored as UTF-8.
    void LogStringArgListX(int nPriority, const wchar_t* pszReserved, const wchar_t* pszFormat, va_list args) noexcept;

    /// Reports an operator event.
    ///
    /// @param dwEventID   event code
    /// @param wCount      number of insertion strings
    /// @param wCategory   0
    /// @param ppszStrings wCount texts, or null when there are none
    /// @param pRawData    null
    /// @return 0, or a negative code
    long ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                               const char** ppszStrings, const void* pRawData) noexcept;
    long ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                               const wchar_t** ppszStrings, const void* pRawData) noexcept;

    /// The same with a severity, which decides how loudly the system's log speaks.
    long ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                const char** ppszStrings, const void* pRawData, RE_SEVERITY eSeverity) noexcept;
    long ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                const wchar_t** ppszStrings, const void* pRawData, RE_SEVERITY eSeverity) noexcept;

private:
    friend class CLogFileRegistry;
    struct CState;
    std::unique_ptr<CState> m_pState;
};

/// Binds a trace log's settings to the configuration key "<key>\<sub-key>": the values found there win over the
/// numbers given here, at once and again whenever the configuration is read anew. Destroyed before its log.
class CP_API CLogFileRegistry
{
public:
    /// The numbers are the settings' defaults.
    ///
    /// @param pLog                    the log, which outlives the binding
    /// @param pszKey, pszSubKey       configuration key
    /// @param pszReserved1, pszReserved2  null
    /// @param ulDestination           0: a file
    /// @param ulEnabled               1: lines are stored, 0: none is
    /// @param ulMaxFiles              files kept when the log rotates
    /// @param ulMaxFileKB             a file's size limit, kilobytes
    /// @param ulTraceMask             trace levels written
    /// @param ulPriorityMask          priority classes written
    /// @param ulConsoleTraceMask      other than 0: lines also go to standard error
    /// @param ulConsolePriorityMask   priority classes that do
    /// @param ulDropWhenFull          0: a writer waits when the queue is full, 1: the oldest line is dropped
    /// @param ulQueueLines            lines the queue holds
    /// @param ulReserved3             0
    /// @param ulFollowConfiguration   1: settings follow the configuration while running
    /// @param ulFollowIntervalMs      how often it is looked at, milliseconds
    /// @param ulUtc                   1: lines are stamped in UTC
    /// @param ulReserved4             0
    CLogFileRegistry(CLogFile* pLog, const char* pszKey, const char* pszSubKey, const char* pszReserved1,
                     const char* pszReserved2, unsigned long ulDestination, unsigned long ulEnabled,
                     unsigned long ulMaxFiles, unsigned long ulMaxFileKB, unsigned long ulTraceMask,
                     unsigned long ulPriorityMask, unsigned long ulConsoleTraceMask,
                     unsigned long ulConsolePriorityMask, unsigned long ulDropWhenFull, unsigned long ulQueueLines,
                     unsigned long ulReserved3, unsigned long ulFollowConfiguration, unsigned long ulFollowIntervalMs,
                     unsigned long ulUtc, unsigned long ulReserved4);
    ~CLogFileRegistry();
    CLogFileRegistry(const CLogFileRegistry&) = delete;
    CLogFileRegistry& operator=(const CLogFileRegistry&) = delete;

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};

} // namespace KRLogLib
