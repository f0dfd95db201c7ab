// Clocks and decimal conversions, identifiers, and the exception.
#include "CPortable.h"
#include "ConformanceWorld.h"
#include "KRException.h"

#include <climits>
#include <set>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

namespace {
std::string calendar(unsigned long long ullFileTime)
{
    CPSystemTime time;
    CPortable::FileTimeToSystemTime(ullFileTime, &time);
    char szText[96];
    (void)std::snprintf(szText, sizeof szText, "%u-%02u-%02u %02u:%02u:%02u.%03u day %u", time.wYear, time.wMonth,
                        time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds, time.wDayOfWeek);
    return szText;
}

std::string decimal(long lValue, int nRadix = 10)
{
    char szBuffer[72];
    EXPECT_EQ(CPortable::ltoa(lValue, szBuffer, nRadix), szBuffer);
    return szBuffer;
}

std::string decimalUnsigned(unsigned long long ullValue)
{
    char szBuffer[CPortable::cDecimalBuffer];
    EXPECT_EQ(CPortable::ulltos(ullValue, szBuffer), szBuffer);
    return szBuffer;
}

constexpr unsigned long long cPerDay = 864'000'000'000ULL;
} // namespace

class PortableTest : public testing::Test
{
protected:
    CConformanceWorld m_world;
};

TEST_F(PortableTest, SplitsKnownFileTimes)
{
    EXPECT_EQ(calendar(0), "1601-01-01 00:00:00.000 day 1");
    EXPECT_EQ(calendar(116'444'736'000'000'000ULL), "1970-01-01 00:00:00.000 day 4");
    EXPECT_EQ(calendar(128'806'167'670'890'000ULL), "2009-03-04 05:06:07.089 day 3");
}

TEST_F(PortableTest, DropsFractionsOfAMillisecond)
{
    EXPECT_EQ(calendar(9'999), "1601-01-01 00:00:00.000 day 1");
    EXPECT_EQ(calendar(10'000), "1601-01-01 00:00:00.001 day 1");
    EXPECT_EQ(calendar(cPerDay - 1), "1601-01-01 23:59:59.999 day 1");
}

TEST_F(PortableTest, KnowsLeapYears)
{
    // Days counted from 1601: 2000 has a leap day, 1700 and 2100 have none.
    EXPECT_EQ(calendar((145'731ULL + 59) * cPerDay), "2000-02-29 00:00:00.000 day 2");
    EXPECT_EQ(calendar((145'731ULL + 365) * cPerDay), "2000-12-31 00:00:00.000 day 0");
    EXPECT_EQ(calendar((36'159ULL + 59) * cPerDay), "1700-03-01 00:00:00.000 day 1");
    EXPECT_EQ(calendar((182'256ULL + 58) * cPerDay), "2100-02-28 00:00:00.000 day 0");
    EXPECT_EQ(calendar((182'256ULL + 59) * cPerDay), "2100-03-01 00:00:00.000 day 1");
}

TEST_F(PortableTest, SplitsTheLargestFileTime)
{
    EXPECT_EQ(calendar(0xFFFFFFFFFFFFFFFFULL), "60056-05-28 05:36:10.955 day 0");
}

TEST_F(PortableTest, EveryDayFollowsTheOneBefore)
{
    CPSystemTime before;
    CPortable::FileTimeToSystemTime(0, &before);
    for (unsigned long long ullDay = 1; ullDay < 2 * 146'097ULL; ++ullDay)
    {
        CPSystemTime day;
        CPortable::FileTimeToSystemTime(ullDay * cPerDay, &day);
        ASSERT_EQ(day.wDayOfWeek, (before.wDayOfWeek + 1) % 7);
        const bool bSameMonth = day.wYear == before.wYear && day.wMonth == before.wMonth;
        const bool bFirst = day.wDay == 1 && before.wDay >= 28 && before.wDay <= 31 &&
                            (day.wMonth == before.wMonth + 1 ||
                             (day.wMonth == 1 && before.wMonth == 12 && day.wYear == before.wYear + 1));
        ASSERT_TRUE(bSameMonth ? day.wDay == before.wDay + 1 : bFirst) << calendar(ullDay * cPerDay);
        before = day;
    }
    EXPECT_EQ(before.wYear, 2400);
    EXPECT_EQ(std::tie(before.wMonth, before.wDay), std::make_tuple(12, 31));
}

TEST_F(PortableTest, ClocksAgree)
{
    unsigned long long ullBefore = 0;
    unsigned long long ullAfter = 0;
    CPSystemTime time;
    CPortable::GetCurrentULLFileTimeUTC(&ullBefore);
    CPortable::GetSystemTime(&time);
    CPortable::GetCurrentULLFileTimeUTC(&ullAfter);
    EXPECT_GT(ullBefore, 132'000'000'000'000'000ULL); // some day after 2019
    CPSystemTime timeBefore;
    CPSystemTime timeAfter;
    CPortable::FileTimeToSystemTime(ullBefore, &timeBefore);
    CPortable::FileTimeToSystemTime(ullAfter, &timeAfter);
    const auto fnOrder = [](const CPSystemTime& t) {
        return std::make_tuple(t.wYear, t.wMonth, t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
    };
    EXPECT_LE(fnOrder(timeBefore), fnOrder(time));
    EXPECT_LE(fnOrder(time), fnOrder(timeAfter));
}

TEST_F(PortableTest, SleepLetsTheTicksGoOn)
{
    const unsigned long long ullBefore = CPortable::GetTickCountULL();
    m_world.sleepWhileTimePasses(20);
    EXPECT_GE(CPortable::GetTickCountULL() - ullBefore, 20U);
}

TEST_F(PortableTest, ShortTicksAreTheLowBits)
{
    const unsigned long long ullBefore = CPortable::GetTickCountULL();
    const unsigned long ulShort = CPortable::GetTickCount();
    const unsigned long long ullAfter = CPortable::GetTickCountULL();
    EXPECT_LE(ulShort, 0xFFFFFFFFUL);
    EXPECT_LE((ulShort - ullBefore) & 0xFFFFFFFFULL, ullAfter - ullBefore);
}

TEST_F(PortableTest, WritesSignedNumbers)
{
    EXPECT_EQ(decimal(0), "0");
    EXPECT_EQ(decimal(-1), "-1");
    EXPECT_EQ(decimal(2'147'483'647L), "2147483647");
    EXPECT_EQ(decimal(LONG_MIN), std::to_string(LONG_MIN));
    EXPECT_EQ(decimal(LONG_MAX), std::to_string(LONG_MAX));
    EXPECT_EQ(decimal(255, 16), "ff");
    EXPECT_EQ(decimal(-35, 36), "-z");
    EXPECT_EQ(decimal(LONG_MIN, 2), "-1" + std::string(sizeof(long) * 8 - 1, '0'));
}

TEST_F(PortableTest, WritesUnsignedNumbers)
{
    EXPECT_EQ(decimalUnsigned(0), "0");
    EXPECT_EQ(decimalUnsigned(10), "10");
    EXPECT_EQ(decimalUnsigned(ULLONG_MAX), "18446744073709551615");
}

TEST_F(PortableTest, ReadsUnsignedNumbers)
{
    EXPECT_EQ(CPortable::stoull("0"), 0U);
    EXPECT_EQ(CPortable::stoull("128806167670890000"), 128'806'167'670'890'000ULL);
    EXPECT_EQ(CPortable::stoull("18446744073709551615"), ULLONG_MAX);
    EXPECT_EQ(CPortable::stoull(" \t\n42x7"), 42U);
    EXPECT_EQ(CPortable::stoull("+7"), 7U);
    EXPECT_EQ(CPortable::stoull("007"), 7U);
}

TEST_F(PortableTest, ReadsOddNumbersAsStrtoullDoes)
{
    EXPECT_EQ(CPortable::stoull(""), 0U);
    EXPECT_EQ(CPortable::stoull("x"), 0U);
    EXPECT_EQ(CPortable::stoull("- 1"), 0U);
    EXPECT_EQ(CPortable::stoull("-1"), ULLONG_MAX);
    EXPECT_EQ(CPortable::stoull("18446744073709551616"), ULLONG_MAX);
    EXPECT_EQ(CPortable::stoull("99999999999999999999999"), ULLONG_MAX);
    EXPECT_EQ(CPortable::stoull("-99999999999999999999999"), ULLONG_MAX);
}

TEST_F(PortableTest, IdentifiersHaveTheirForm)
{
    const std::string sIdentifier = CPortable::newPUUID();
    ASSERT_EQ(sIdentifier.size(), 36U);
    for (std::size_t u = 0; u < sIdentifier.size(); ++u)
    {
        if (u == 8 || u == 13 || u == 18 || u == 23)
            EXPECT_EQ(sIdentifier[u], '-');
        else
            EXPECT_NE(std::string("0123456789abcdef").find(sIdentifier[u]), std::string::npos) << sIdentifier;
    }
    EXPECT_EQ(sIdentifier[14], '4') << "not a random identifier: " << sIdentifier;
}

TEST_F(PortableTest, IdentifiersDiffer)
{
    std::set<std::string> setSeen;
    for (int n = 0; n < 1000; ++n)
        setSeen.insert(CPortable::newPUUID());
    EXPECT_EQ(setSeen.size(), 1000U);
}

TEST(KRExceptionTest, HoldsCodeAndPlace)
{
    const KRException exception(static_cast<long>(0x80004005UL), "dir/File", 42);
    EXPECT_EQ(exception.code(), -2'147'467'259L);
    EXPECT_STREQ(exception.location(), "dir/File.42");
}

TEST(KRExceptionTest, CutsALongPlace)
{
    const KRException exception(-1, std::string(400, 'x').c_str(), 1);
    EXPECT_EQ(exception.location(), std::string(270, 'x'));
    const KRException longest(-1, std::string(268, 'x').c_str(), 1);
    EXPECT_EQ(longest.location(), std::string(268, 'x') + ".1");
}
