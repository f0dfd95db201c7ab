// Time stamps: their parts, their order and their texts. Taking the current time is in TimestampClockTest.cpp.

#include "ModelSupport.h"

#include <cstdlib>
#include <ctime>
#include <map>
#include <type_traits>

using namespace model;

static_assert(!std::is_polymorphic_v<CCDSTimestamp>, "a plain value, the key of every series");

// The operations as hosts are compiled against them.
static_assert(std::is_default_constructible_v<CCDSTimestamp>);
static_assert(std::is_constructible_v<CCDSTimestamp, unsigned long long, long>);
[[maybe_unused]] static constexpr void (*g_pfnGetCurrent)(CCDSTimestamp*) = &CCDSTimestamp::getCurrent;
[[maybe_unused]] static constexpr std::string (CCDSTimestamp::*g_pfnToString)() const = &CCDSTimestamp::toString;
[[maybe_unused]] static constexpr long (CCDSTimestamp::*g_pfnSerialize)(std::string*) const = &CCDSTimestamp::serialize;
[[maybe_unused]] static constexpr long (CCDSTimestamp::*g_pfnDeserialize)(const std::string&) =
    &CCDSTimestamp::deserialize;

// Whoever wants "not equal" or "not later" negates == or swaps the operands.
template <class TStamp>
concept CHasNotEqual = requires(const TStamp& left, const TStamp& right)
{
    left != right;
};
template <class TStamp>
concept CHasLessOrEqual = requires(const TStamp& left, const TStamp& right)
{
    left <= right;
};
static_assert(!CHasNotEqual<CCDSTimestamp> && !CHasLessOrEqual<CCDSTimestamp>);

namespace {

constexpr unsigned long long cExample = 128806167670890000ULL; // 2009-03-04 05:06:07.089
constexpr long cLeast = -2147483647L - 1;

std::string serializedStamp(const CCDSTimestamp& tsStamp)
{
    std::string sText = "what was there before";
    EXPECT_THAT(tsStamp.serialize(&sText), IsOk());
    return sText;
}

CCDSTimestamp read(const std::string& sText)
{
    CCDSTimestamp tsStamp(77, 77);
    EXPECT_THAT(tsStamp.deserialize(sText), IsOk());
    return tsStamp;
}

/// A time zone for the whole process, while it lives.
class CTimeZone
{
public:
    explicit CTimeZone(const char* pszZone)
    {
        if (const char* const pszOld = std::getenv("TZ"); pszOld != nullptr)
            m_sOld = pszOld;
        (void)setenv("TZ", pszZone, 1);
        tzset();
    }
    ~CTimeZone()
    {
        (void)(m_sOld.empty() ? unsetenv("TZ") : setenv("TZ", m_sOld.c_str(), 1));
        tzset();
    }
    CTimeZone(const CTimeZone&) = delete;
    CTimeZone& operator=(const CTimeZone&) = delete;

private:
    std::string m_sOld;
};

class TimestampTest : public CModelTest
{
};

using TimestampOrderTest = TimestampTest;
using TimestampTextTest = TimestampTest;

} // namespace

TEST_F(TimestampTest, KeepsBothParts)
{
    const CCDSTimestamp tsStamp(cExample, 2);
    EXPECT_EQ(tsStamp.value(), cExample);
    EXPECT_EQ(tsStamp.incrementValue(), 2);
}

TEST_F(TimestampTest, KeepsTheLow32BitsOfTheIncrement)
{
    EXPECT_EQ(at(5, static_cast<long>(0x100000003ULL)).incrementValue(), 3);
    EXPECT_EQ(at(5, static_cast<long>(0xFFFFFFFFULL)).incrementValue(), -1);
    CCDSTimestamp tsStamp(0, 0);
    tsStamp.set(5, static_cast<long>(0x1FFFFFFFEULL));
    EXPECT_EQ(tsStamp.incrementValue(), -2);
}

TEST_F(TimestampTest, SetOverwritesBothParts)
{
    CCDSTimestamp tsStamp(1, 2);
    tsStamp.set(30, 40);
    EXPECT_EQ(tsStamp.value(), 30U);
    EXPECT_EQ(tsStamp.incrementValue(), 40);
}

TEST_F(TimestampTest, SetCopiesAnotherStamp)
{
    CCDSTimestamp tsStamp(1, 2);
    tsStamp.set(at(30, 40));
    EXPECT_EQ(tsStamp.value(), 30U);
    EXPECT_EQ(tsStamp.incrementValue(), 40);
}

TEST_F(TimestampTest, IncrementCountsWithoutTouchingTheValue)
{
    const std::pair<long, long> aCases[] = {{2, 3}, {-1, 0}, {0, 1}, {2147483646L, 2147483647L}};
    for (const auto& [lBefore, lAfter] : aCases)
    {
        CCDSTimestamp tsStamp(100, lBefore);
        tsStamp.increment();
        EXPECT_EQ(tsStamp.incrementValue(), lAfter);
        EXPECT_EQ(tsStamp.value(), 100U);
    }
}

TEST_F(TimestampTest, IncrementWrapsFromTheLargestToTheSmallest)
{
    CCDSTimestamp tsStamp(100, 2147483647L);
    tsStamp.increment();
    EXPECT_EQ(tsStamp.incrementValue(), cLeast);
    EXPECT_EQ(tsStamp.value(), 100U);
}

TEST_F(TimestampOrderTest, OrdersByUnsignedValueThenBySignedIncrement)
{
    const CCDSTimestamp atsAscending[] = {
        at(0, cLeast),
        at(0, 0),
        at(1, 0),
        at(2, -1),
        at(2, 0),
        at(5, -1),
        at(5, 0),
        at(5, 1),
        at(5, 2),
        at(5, 2147483647L),
        at(0x7FFFFFFFFFFFFFFFULL, 5),
        at(0x8000000000000000ULL, 0),
        at(0xFFFFFFFFFFFFFFFEULL, 2147483647L),
        at(0xFFFFFFFFFFFFFFFFULL, cLeast),
        at(0xFFFFFFFFFFFFFFFFULL, 0),
    };
    const int nCount = static_cast<int>(std::size(atsAscending));
    for (int i = 0; i < nCount; ++i)
        for (int j = 0; j < nCount; ++j)
        {
            const CCDSTimestamp& tsLeft = atsAscending[i];
            const CCDSTimestamp& tsRight = atsAscending[j];
            SCOPED_TRACE(::testing::PrintToString(tsLeft) + " against " + ::testing::PrintToString(tsRight));
            EXPECT_EQ(tsLeft == tsRight, i == j);
            EXPECT_EQ(tsLeft < tsRight, i < j);
            EXPECT_EQ(tsLeft > tsRight, i > j);
            EXPECT_EQ(tsLeft >= tsRight, i >= j);
        }
}

TEST_F(TimestampOrderTest, IsTheOrderOfAMap)
{
    std::map<CCDSTimestamp, int> mapStamps;
    mapStamps[at(0x8000000000000000ULL)] = 4;
    mapStamps[at(5, 1)] = 3;
    mapStamps[at(5, -1)] = 1;
    mapStamps[at(5, 0)] = 2;
    mapStamps[at(5, -1)] = 1; // the same key again
    std::vector<int> vecOrder;
    for (const auto& [tsStamp, nOrder] : mapStamps)
        vecOrder.push_back(nOrder);
    EXPECT_THAT(vecOrder, ::testing::ElementsAre(1, 2, 3, 4));
}

TEST_F(TimestampTextTest, ShowsDateTimeAndIncrement)
{
    constexpr unsigned long long cSecond = 10'000'000ULL;
    constexpr unsigned long long cWhole = cExample - 890'000ULL; // 05:06:07.000
    const std::pair<CCDSTimestamp, const char*> aCases[] = {
        {at(cExample, 2), "2009/03/04 05:06:07.89+2"},
        {at(cWhole, 0), "2009/03/04 05:06:07.0+0"},
        {at(cWhole + 50'000, 0), "2009/03/04 05:06:07.5+0"}, // no leading zeros
        {at(cWhole + 500'000, 0), "2009/03/04 05:06:07.50+0"},
        {at(cWhole + 9'990'000, 0), "2009/03/04 05:06:07.999+0"},
        {at(cWhole + 9'999'999, 0), "2009/03/04 05:06:07.999+0"},
        {at(cWhole + cSecond, 0), "2009/03/04 05:06:08.0+0"},
        {at(0, 0), "1601/01/01 00:00:00.0+0"},
        {at(0, -3), "1601/01/01 00:00:00.0+-3"},
        {at(0, 2147483647L), "1601/01/01 00:00:00.0+2147483647"},
        {at(0, cLeast), "1601/01/01 00:00:00.0+-2147483648"},
    };
    for (const auto& [tsStamp, pszExpected] : aCases)
        EXPECT_EQ(tsStamp.toString(), pszExpected);
}

TEST_F(TimestampTextTest, ShowsUtcInEveryTimeZone)
{
    for (const char* const pszZone : {"Asia/Tokyo", "JST-9", "EST5EDT", "UTC"})
    {
        const CTimeZone zone(pszZone);
        EXPECT_EQ(at(cExample, 2).toString(), "2009/03/04 05:06:07.89+2") << pszZone;
    }
}

TEST_F(TimestampTextTest, ShowsTheLargestValueWithFiveDigitsOfYear)
{
    const std::string sText = at(0xFFFFFFFFFFFFFFFFULL, cLeast).toString();
    EXPECT_EQ(sText, "60056/05/28 05:36:10.955+-2147483648");
}

TEST_F(TimestampTextTest, SerializesValueAndIncrement)
{
    const std::pair<CCDSTimestamp, const char*> aCases[] = {
        {at(cExample, 2), "18;128806167670890000;1;2"},
        {at(0, 0), "1;0;1;0"},
        {at(100, 2), "3;100;1;2"},
        {at(18446744073709551615ULL, -1), "20;18446744073709551615;2;-1"},
        {at(1, 2147483647L), "1;1;10;2147483647"},
        {at(1, cLeast), "1;1;11;-2147483648"},
    };
    for (const auto& [tsStamp, pszExpected] : aCases)
        EXPECT_EQ(serializedStamp(tsStamp), pszExpected);
}

TEST_F(TimestampTextTest, ReadsBackWhatItSerializes)
{
    for (const CCDSTimestamp& tsStamp : {at(cExample, 2), at(0, 0), at(18446744073709551615ULL, -1), at(1, cLeast)})
        EXPECT_EQ(read(serializedStamp(tsStamp)), tsStamp);
}

TEST_F(TimestampTextTest, ReadsWhatATextHolds)
{
    const std::pair<const char*, CCDSTimestamp> aCases[] = {
        {"", at(0, 0)},
        {"3;100", at(100, 0)}, // no increment
        {"3;100;1;2;5;extra;1;7", at(100, 2)},
        {"HDR;3;100;1;2", at(100, 2)},
        {"3;abc;3;def", at(0, 0)},
        {"1;7;10;4294967296", at(7, 2147483647L)},
        {"1;7;11;-4294967296", at(7, cLeast)},
        {"20;18446744073709551616;1;0", at(18446744073709551615ULL, 0)},
    };
    for (const auto& [pszText, tsExpected] : aCases)
        EXPECT_EQ(read(pszText), tsExpected) << pszText;
}

TEST_F(TimestampTextTest, RefusesAMalformedText)
{
    for (const char* const pszText : {"3", "x", "3;100;;", "3;100;1;2;x"})
    {
        CCDSTimestamp tsStamp(77, 7);
        EXPECT_EQ(thrownBy([&] { (void)tsStamp.deserialize(pszText); }), cParseFailure) << pszText;
    }
}

TEST_F(TimestampTextTest, ARefusedTextLeavesTheStampAlone)
{
    CCDSTimestamp tsStamp(77, 7);
    EXPECT_EQ(thrownBy([&] { (void)tsStamp.deserialize("3;100;1"); }), cParseFailure);
    EXPECT_EQ(tsStamp, at(77, 7));
}

TEST_F(TimestampTextTest, SerializingWritesOneDetailLinePerPart)
{
    const auto vecLines = linesUnder(cAllLevels, [] { (void)serializedStamp(at(5, 5)); });
    EXPECT_EQ(vecLines, std::vector<std::string>(2, "CParamsX::addParam(const string& sParam, float dummy)"));
}
