#include "CPortable.h"

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

#include <uuid/uuid.h>

namespace {
constexpr unsigned long long cFileTimePerSecond = 10'000'000ULL;
constexpr unsigned long long cUnixEpoch = 116'444'736'000'000'000ULL; ///< 1970-01-01 as file time
constexpr unsigned long long cFileTimePerDay = 24ULL * 60 * 60 * cFileTimePerSecond;

struct CCalendarDate
{
    unsigned long long ullYear;
    unsigned uMonth;
    unsigned uDay;
};

/// The Gregorian date that lies ullDays after 1601-01-01.
///
/// Counts in years that begin with March, so that the leap day is a year's last, and in eras of 400 years, which all
/// have the same length.
CCalendarDate dateOf(unsigned long long ullDays)
{
    constexpr unsigned long long cDaysPerEra = 146'097;
    constexpr unsigned long long cDaysFromMarch1600 = 306; ///< 1600-03-01 to 1601-01-01
    ullDays += cDaysFromMarch1600;
    const unsigned long long ullEra = ullDays / cDaysPerEra;
    const auto uDayOfEra = static_cast<unsigned>(ullDays % cDaysPerEra);
    const unsigned uYearOfEra = (uDayOfEra - uDayOfEra / 1460 + uDayOfEra / 36'524 - uDayOfEra / 146'096) / 365;
    const unsigned uDayOfYear = uDayOfEra - (365 * uYearOfEra + uYearOfEra / 4 - uYearOfEra / 100);
    const unsigned uMonthFromMarch = (5 * uDayOfYear + 2) / 153;
    const unsigned uDay = uDayOfYear - (153 * uMonthFromMarch + 2) / 5 + 1;
    const unsigned uMonth = uMonthFromMarch < 10 ? uMonthFromMarch + 3 : uMonthFromMarch - 9;
    return {1600 + 400 * ullEra + uYearOfEra + (uMonth <= 2 ? 1 : 0), uMonth, uDay};
}
} // namespace

void CPortable::GetCurrentULLFileTimeUTC(unsigned long long* pullFileTime) noexcept
{
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now); // this clock is always there
    *pullFileTime = cUnixEpoch + static_cast<unsigned long long>(now.tv_sec) * cFileTimePerSecond +
                    static_cast<unsigned long long>(now.tv_nsec) / 100;
}

void CPortable::FileTimeToSystemTime(unsigned long long ullFileTime, CPSystemTime* pstTime) noexcept
{
    const unsigned long long ullDays = ullFileTime / cFileTimePerDay;
    const auto uMs = static_cast<unsigned>(ullFileTime % cFileTimePerDay / (cFileTimePerSecond / 1000));
    const CCalendarDate date = dateOf(ullDays);
    pstTime->wYear = static_cast<std::uint16_t>(date.ullYear); // the largest is 60056
    pstTime->wMonth = static_cast<std::uint16_t>(date.uMonth);
    pstTime->wDayOfWeek = static_cast<std::uint16_t>((ullDays + 1) % 7); // 1601-01-01 was a Monday
    pstTime->wDay = static_cast<std::uint16_t>(date.uDay);
    pstTime->wHour = static_cast<std::uint16_t>(uMs / 3'600'000);
    pstTime->wMinute = static_cast<std::uint16_t>(uMs / 60'000 % 60);
    pstTime->wSecond = static_cast<std::uint16_t>(uMs / 1000 % 60);
    pstTime->wMilliseconds = static_cast<std::uint16_t>(uMs % 1000);
}

void CPortable::GetSystemTime(CPSystemTime* pstTime) noexcept
{
    unsigned long long ullFileTime = 0;
    GetCurrentULLFileTimeUTC(&ullFileTime);
    FileTimeToSystemTime(ullFileTime, pstTime);
}

unsigned long CPortable::GetTickCount() noexcept
{
    return static_cast<unsigned long>(GetTickCountULL() & 0xFFFFFFFFULL);
}

unsigned long long CPortable::GetTickCountULL() noexcept
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now); // this clock is always there
    return static_cast<unsigned long long>(now.tv_sec) * 1000 +
           static_cast<unsigned long long>(now.tv_nsec) / 1'000'000;
}

void CPortable::Sleep(unsigned long ulMs) noexcept
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ulMs));
}

std::string CPortable::newPUUID()
{
    uuid_t binary;
    uuid_generate_random(binary); // never the form with clock and network address, which can be guessed
    char szText[UUID_STR_LEN];
    uuid_unparse_lower(binary, szText);
    return szText;
}

char* CPortable::ltoa(long lValue, char* pszBuffer, int nRadix) noexcept
{
    constexpr std::ptrdiff_t cBinaryDigits = 65; // a sign and 64 digits: what the shortest radix can need
    *std::to_chars(pszBuffer, pszBuffer + cBinaryDigits, lValue, nRadix).ptr = '\0';
    return pszBuffer;
}

char* CPortable::ulltos(unsigned long long ullValue, char* pszBuffer) noexcept
{
    *std::to_chars(pszBuffer, pszBuffer + cDecimalBuffer - 1, ullValue).ptr = '\0';
    return pszBuffer;
}

unsigned long long CPortable::stoull(const char* pszText) noexcept
{
    return std::strtoull(pszText, nullptr, 10);
}
