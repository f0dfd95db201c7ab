#include "ModelGenerators.h"

#include <tuple>

RC_GTEST_PROP(TimestampProperties, TextsReadBackAsTheyWere, (const CCDSTimestamp& tsStamp))
{
    std::string sText;
    RC_ASSERT(tsStamp.serialize(&sText) == 0);
    CCDSTimestamp tsRead(0, 0);
    RC_ASSERT(tsRead.deserialize(sText) == 0);
    RC_ASSERT(tsRead == tsStamp);
}

RC_GTEST_PROP(TimestampProperties, OrderLikePairsOfTheirParts,
              (const CCDSTimestamp& tsLeft, const CCDSTimestamp& tsRight))
{
    const auto pairOf = [](const CCDSTimestamp& ts) { return std::tuple(ts.value(), ts.incrementValue()); };
    RC_ASSERT((tsLeft == tsRight) == (pairOf(tsLeft) == pairOf(tsRight)));
    RC_ASSERT((tsLeft < tsRight) == (pairOf(tsLeft) < pairOf(tsRight)));
    RC_ASSERT((tsLeft > tsRight) == (pairOf(tsLeft) > pairOf(tsRight)));
    RC_ASSERT((tsLeft >= tsRight) == (pairOf(tsLeft) >= pairOf(tsRight)));
}

RC_GTEST_PROP(TimestampProperties, ShownTextsOrderLikeTheirTimes, (std::uint32_t dwSeconds, std::uint32_t dwMore))
{
    // Whole seconds of the years that have four digits; the text up to the fraction is then as wide as any other.
    constexpr unsigned long long cSecond = 10'000'000ULL;
    const std::string sLeft = CCDSTimestamp(dwSeconds * cSecond, 0).toString();
    const std::string sRight = CCDSTimestamp((0ULL + dwSeconds + dwMore) * cSecond, 0).toString();
    RC_ASSERT((sLeft < sRight) == (dwMore != 0));
}
