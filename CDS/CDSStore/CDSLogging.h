#pragma once

#include "KRLogLib.h"

#include <cstdarg>
#include <cstdint>

/// The one door through which the store writes trace lines.
///
/// Every line carries a level, and is written only when that bit is set in the log's trace mask. The log is made by
/// initLogger or by the first line, and again by the first line after finalizeLogger.
///
/// Threads    any operation from any thread; initLogger and finalizeLogger may race with lines.
/// Errors     none is reported, nothing throws: without a log, with a null format or a cleared level bit nothing is
///            written.
class CCDSLogging
{
public:
    enum ELevel : unsigned long
    {
        level_error = 1,
        level_warning = 2, ///< also the routine life-cycle lines of the exchange with peers
        level_info = 4,    ///< also object dumps
        level_detail = 16, ///< one line per element added to a parameter list and per message serialized
        level_always = 0xFFFFFFFFUL
    };

    static void initLogger() noexcept;
    static void finalizeLogger() noexcept;

    /// Whether a line of this level would be written now: callers skip building costly output otherwise.
    static bool checkTraceLevel(unsigned long ulLevel) noexcept;

    static void log(unsigned long ulLevel, const char* pszFormat, ...) noexcept __attribute__((format(printf, 2, 3)));
    static void logError(const char* pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));
    static void logWarning(const char* pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));
    static void logInfo(const char* pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));
    static void logAlways(const char* pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));
    /// The same line as logWarning: no time is added, deliberately.
    static void logTimePlusWarning(const char* pszFormat, ...) noexcept __attribute__((format(printf, 1, 2)));

    /// "(Error) <text> failed: 0x<code>" at the error level when hr is negative in 32 bits, else nothing. The text is
    /// cut at 255 characters, the line at 511.
    static void logHRESULT(long hr, const char* pszFormat, ...) noexcept __attribute__((format(printf, 2, 3)));

    static void CDSDbgOut(unsigned long ulLevel, const char* pszFormat, ...) noexcept
        __attribute__((format(printf, 2, 3)));
    static void CDSDbgOut(unsigned long ulLevel, const wchar_t* pszFormat, ...) noexcept;

    /// The writers that all the above end in; args is the caller's list.
    static void CDSDbgOutX(unsigned long ulLevel, const char* pszFormat, va_list args) noexcept
        __attribute__((format(printf, 2, 0)));
    static void CDSDbgOutX(unsigned long ulLevel, const wchar_t* pszFormat, va_list args) noexcept;

    /// One dump line of up to 16 bytes: their characters, unprintable ones as dots, and from column 18 on their
    /// hexadecimal digits. A buffer of less than 53 characters gets the empty string.
    static void hexascii(const unsigned char* pData, int nLen, char* pszOut, int nOutSize) noexcept;

    /// The log and its settings' binding; null while there is none.
    static KRLogLib::CLogFile* pCDSLog;
    static KRLogLib::CLogFileRegistry* pCDSLogReg;

private:
    static bool isLevelOn(unsigned long ulLevel) noexcept;
};
