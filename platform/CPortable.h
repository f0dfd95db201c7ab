#pragma once

#include "CPExport.h"

#include <cstdint>
#include <string>

/// A point of calendar time, always UTC.
struct CPSystemTime
{
    std::uint16_t wYear = 0;
    std::uint16_t wMonth = 0;     ///< 1 to 12
    std::uint16_t wDayOfWeek = 0; ///< 0 is Sunday
    std::uint16_t wDay = 0;       ///< 1 to 31
    std::uint16_t wHour = 0;
    std::uint16_t wMinute = 0;
    std::uint16_t wSecond = 0;
    std::uint16_t wMilliseconds = 0;
};

/// Names a thread made by CPortable::CreateThread; 0 is no thread. Wide enough for a pointer on every ABI.
using CPThreadHandle = unsigned long;

/// Clocks, threads, identifiers and decimal conversions.
///
/// Threads    every operation may be called from any thread at any time.
/// Errors     none throws, unless it says so.
/// Units      ticks are milliseconds of a monotonic clock; file time is in 100-nanosecond intervals since
///            1601-01-01 00:00 UTC.
class CP_API CPortable
{
public:
    /// Writes the current UTC time as file time. Follows the system clock, so it may step backwards.
    static void GetCurrentULLFileTimeUTC(unsigned long long* pullFileTime) noexcept;

    /// Splits a file time into calendar fields, UTC, over the full unsigned 64-bit range (the year may have five
    /// digits). Fractions of a millisecond are dropped.
    static void FileTimeToSystemTime(unsigned long long ullFileTime, CPSystemTime* pstTime) noexcept;

    /// Writes the current UTC time as calendar fields.
    static void GetSystemTime(CPSystemTime* pstTime) noexcept;

    /// Monotonic milliseconds, low 32 bits: wraps every 49.7 days.
    static unsigned long GetTickCount() noexcept;

    /// Monotonic milliseconds. Never steps backwards.
    static unsigned long long GetTickCountULL() noexcept;

    /// Holds the calling thread for at least ulMs milliseconds.
    static void Sleep(unsigned long ulMs) noexcept;

    /// Names the calling thread for debuggers and process listings; the system may keep only the first 15 characters.
    static void SetCurrentThreadName(const char* pszName) noexcept;

    /// Starts a joinable thread that runs pfnEntry(pArg).
    ///
    /// @return its handle, which JoinThread releases, or 0 when no thread could be started
    static CPThreadHandle CreateThread(void (*pfnEntry)(void*), void* pArg, const char* pszName) noexcept;

    /// Waits until the thread has returned and releases its handle. 0 is ignored.
    static void JoinThread(CPThreadHandle hThread) noexcept;

    /// A new random identifier from a cryptographic source, in the form
    /// "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx": nobody can guess one that he has not seen.
    ///
    /// @throws std::bad_alloc
    static std::string newPUUID();

    /// Room that the decimal conversions need in their buffers: a sign, 20 digits and the terminator.
    static constexpr int cDecimalBuffer = 22;

    /// Writes lValue in radix nRadix (2 to 36), without padding or grouping, a "-" in front when it is negative.
    ///
    /// @param pszBuffer  takes the text and a terminator: cDecimalBuffer characters for radix 10, 66 for radix 2
    /// @return pszBuffer
    static char* ltoa(long lValue, char* pszBuffer, int nRadix) noexcept;

    /// Writes ullValue in decimal; pszBuffer has room for cDecimalBuffer characters.
    ///
    /// @return pszBuffer
    static char* ulltos(unsigned long long ullValue, char* pszBuffer) noexcept;

    /// Reads a decimal number as strtoull does: no digits give 0, a number too large gives the largest one.
    static unsigned long long stoull(const char* pszText) noexcept;
};
