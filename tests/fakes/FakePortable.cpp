// Calendar and decimal conversions of the fakes, written out by hand so that the support library's have something to
// be compared with.
#include "CPortable.h"

#include <array>
#include <climits>
#include <cstring>

namespace {
bool isLeapYear(unsigned uYear)
{
    return (uYear % 4 == 0 && uYear % 100 != 0) || uYear % 400 == 0;
}

std::uint16_t narrow(unsigned long long ullField)
{
    return static_cast<std::uint16_t>(ullField);
}

char* convert(unsigned long long ullValue, bool bNegative, unsigned uRadix, char* pszBuffer)
{
    std::array<char, 66> szReversed{};
    std::size_t uDigits = 0;
    do
    {
        szReversed[uDigits++] = "0123456789abcdefghijklmnopqrstuvwxyz"[ullValue % uRadix];
        ullValue /= uRadix;
    }
    while (ullValue != 0);
    char* pszOut = pszBuffer;
    if (bNegative)
        *pszOut++ = '-';
    while (uDigits > 0)
        *pszOut++ = szReversed[--uDigits];
    *pszOut = '\0';
    return pszBuffer;
}
} // namespace

void CPortable::FileTimeToSystemTime(unsigned long long ullFileTime, CPSystemTime* pstTime) noexcept
{
    constexpr unsigned long long cPerDay = 864'000'000'000ULL;
    unsigned long long ullDays = ullFileTime / cPerDay;
    const unsigned long long ullMs = ullFileTime % cPerDay / 10'000;

    pstTime->wDayOfWeek = narrow((ullDays + 1) % 7); // the first day was a Monday
    pstTime->wMilliseconds = narrow(ullMs % 1000);
    pstTime->wSecond = narrow(ullMs / 1000 % 60);
    pstTime->wMinute = narrow(ullMs / 60'000 % 60);
    pstTime->wHour = narrow(ullMs / 3'600'000);

    constexpr unsigned long long cDaysIn400Years = 146'097;
    auto uYear = static_cast<unsigned>(1601 + 400 * (ullDays / cDaysIn400Years));
    ullDays %= cDaysIn400Years;
    for (unsigned uLength = 365; ullDays >= uLength; uLength = isLeapYear(uYear) ? 366 : 365)
    {
        ullDays -= uLength;
        ++uYear;
    }
    const std::array<unsigned, 12> arrMonths{31, isLeapYear(uYear) ? 29U : 28U, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    std::size_t uMonth = 0;
    while (ullDays >= arrMonths[uMonth])
        ullDays -= arrMonths[uMonth++];
    pstTime->wYear = narrow(uYear);
    pstTime->wMonth = narrow(uMonth + 1);
    pstTime->wDay = narrow(ullDays + 1);
}

char* CPortable::ltoa(long lValue, char* pszBuffer, int nRadix) noexcept
{
    const auto ulValue = static_cast<unsigned long>(lValue);
    return convert(lValue < 0 ? 0UL - ulValue : ulValue, lValue < 0, static_cast<unsigned>(nRadix), pszBuffer);
}

char* CPortable::ulltos(unsigned long long ullValue, char* pszBuffer) noexcept
{
    return convert(ullValue, false, 10, pszBuffer);
}

unsigned long long CPortable::stoull(const char* pszText) noexcept
{
    pszText += std::strspn(pszText, " \t\n\v\f\r");
    const bool bNegative = *pszText == '-';
    if (*pszText == '-' || *pszText == '+')
        ++pszText;
    unsigned long long ullValue = 0;
    for (; *pszText >= '0' && *pszText <= '9'; ++pszText)
    {
        const auto uDigit = static_cast<unsigned>(*pszText - '0');
        if (ullValue > (ULLONG_MAX - uDigit) / 10)
            return ULLONG_MAX;
        ullValue = ullValue * 10 + uDigit;
    }
    return bNegative ? 0ULL - ullValue : ullValue;
}
