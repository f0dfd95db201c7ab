#include "cdr/CdrText.h"

#include <gtest/gtest.h>

namespace {

using std::string_literals::operator""s;

TEST(CdrTextTest, TellsTextFromBytes)
{
    for (const std::string& sText : {""s, "abc"s, "J\xC3\xBCrgen"s, "\xE2\x82\xAC"s, "\xF0\x9F\x93\x9E"s, "a\\b'\"\n"s})
        EXPECT_TRUE(CdrText::isText(sText)) << sText;
    for (const std::string& sBytes :
         {"a\0b"s, "\xFF"s, "\xC3"s, "\xC0\x80"s, "\xED\xA0\x80"s, "\xF4\x90\x80\x80"s, "\xE0\x80\x80"s, "\x80"s})
        EXPECT_FALSE(CdrText::isText(sBytes)) << CdrText::escaped(sBytes);
}

TEST(CdrTextTest, EscapesWhatIsNoText)
{
    EXPECT_EQ(CdrText::escaped("sip:1@h\xC3\xBC"), "sip:1@h\xC3\xBC");
    EXPECT_EQ(CdrText::escaped("a\0\xFF\\b"s), "a\\x00\\xFF\\x5Cb");
    EXPECT_NE(CdrText::escaped("\\x00"), CdrText::escaped("\0"s));
}

TEST(CdrTextTest, KeysAreShortAndDifferent)
{
    EXPECT_EQ(CdrText::keyOf("sip:1"), "sip:1");
    const std::string sLong = "sip:" + std::string(5000, 'a');
    EXPECT_LT(CdrText::keyOf(sLong).size(), 1500U);
    EXPECT_NE(CdrText::keyOf(sLong), CdrText::keyOf(sLong + 'a'));
    EXPECT_EQ(CdrText::keyOf(sLong), CdrText::keyOf(sLong));
    std::string sWide;
    for (int n = 0; n < 1000; ++n)
        sWide += "\xE2\x82\xAC";
    EXPECT_TRUE(CdrText::isText(CdrText::keyOf("x" + sWide)));
    EXPECT_TRUE(CdrText::isText(CdrText::keyOf("xy" + sWide)));
    EXPECT_TRUE(CdrText::isText(CdrText::keyOf(sWide)));
}

TEST(CdrTextTest, WritesBase64)
{
    EXPECT_EQ(CdrText::base64(""), "");
    EXPECT_EQ(CdrText::base64("\0\xFF"s), "AP8=");
    EXPECT_EQ(CdrText::base64("abc"), "YWJj");
}

TEST(CdrTextTest, WritesTimesInUtc)
{
    EXPECT_EQ(CdrText::timeText(0), "1601-01-01T00:00:00.0000000Z");
    EXPECT_EQ(CdrText::timeText(116'444'736'000'000'001ULL), "1970-01-01T00:00:00.0000001Z");
    EXPECT_EQ(CdrText::timeText(134'081'568'000'000'000ULL), "2025-11-21T00:00:00.0000000Z");
    EXPECT_EQ(CdrText::timeText(~0ULL).substr(0, 6), "+60056");
}

} // namespace
