#include "sip/SipText.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

TEST(SipTextTest, UnquotesDisplayNames)
{
    EXPECT_EQ(splitNameAddr("\"Zo\xC3\xAB \\\"Z\\\" Quist\" <sip:z@h>;tag=1").sName, "Zo\xC3\xAB \"Z\" Quist");
    EXPECT_EQ(splitNameAddr("\"Wei\xC3\x9F, Anna\" <sip:a@h>").sName, "Wei\xC3\x9F, Anna");
    EXPECT_EQ(splitNameAddr("\"a\\\\b\" <sip:a@h>").sName, "a\\b");
    EXPECT_EQ(splitNameAddr("Bob <sip:b@h>").sName, "Bob");
    EXPECT_EQ(splitNameAddr("<sip:b@h>").sName, "");
    EXPECT_EQ(splitNameAddr("sip:b@h;tag=1").sName, "");
}

TEST(SipTextTest, LeavesBackslashesOutsideQuotes)
{
    EXPECT_EQ(splitNameAddr("\\\"arik\\\" <sip:816666@h>;tag=1").sName, "\\\"arik\\\"");
}

TEST(SipTextTest, FindsTheAddressBehindBracketsInQuotes)
{
    const CNameAddr parts = splitNameAddr("\"<sip:no@h>\" <sip:yes@h>;tag=1");
    EXPECT_EQ(parts.sName, "<sip:no@h>");
    EXPECT_EQ(parts.sAddress, "<sip:yes@h>;tag=1");
}

TEST(SipTextTest, FindsTheAddressBehindALoneQuote)
{
    EXPECT_EQ(splitNameAddr("\"Bob <sip:b@h>").sAddress, "<sip:b@h>");
}

TEST(SipTextTest, SplitsOutsideQuotesAndBrackets)
{
    EXPECT_THAT(splitList("\"a, b\" <sip:x@h;p=1,2>,, tel:1 ", ','), ElementsAre("\"a, b\" <sip:x@h;p=1,2>", "tel:1"));
    EXPECT_THAT(splitList("\"a\\\", b\", c", ','), ElementsAre("\"a\\\", b\"", "c"));
}

TEST(SipTextTest, MakesValidUtf8)
{
    const std::string sBad = "\xEF\xBF\xBD";
    EXPECT_EQ(toUtf8("J\xC3\xBCrgen \xE7\x94\xB0 \xF0\x9F\x93\x9E", 100),
              "J\xC3\xBCrgen \xE7\x94\xB0 \xF0\x9F\x93\x9E");
    EXPECT_EQ(toUtf8("J\xFCrgen", 100), "J" + sBad + "rgen");
    EXPECT_EQ(toUtf8("\xC3", 100), sBad);
    EXPECT_EQ(toUtf8("\xC0\x80", 100), sBad + sBad) << "overlong";
    EXPECT_EQ(toUtf8("\xED\xA0\x80", 100), sBad + sBad + sBad) << "surrogate";
    EXPECT_EQ(toUtf8("\xF4\x90\x80\x80", 100), sBad + sBad + sBad + sBad) << "past the last character";
    EXPECT_EQ(toUtf8(std::string_view("a\0b\nc\x7F", 6), 100), "a" + sBad + "b" + sBad + "c" + sBad);
    EXPECT_EQ(toUtf8("\xC2\x9B"
                     "31m\xC2\x80\xC2\x9F\xC2\xA0",
                     100),
              sBad + "31m" + sBad + sBad + "\xC2\xA0")
        << "a terminal obeys these, too";
}

TEST(SipTextTest, CutsBetweenCharacters)
{
    EXPECT_EQ(toUtf8("a\xC3\xBC", 2), "a");
    EXPECT_EQ(toUtf8("a\xC3\xBC", 3), "a\xC3\xBC");
}

TEST(SipTextTest, DecodesPercentEscapes)
{
    EXPECT_EQ(percentDecode("a%20b%2Bc"), "a b+c");
    EXPECT_EQ(percentDecode("100%"), "100%");
    EXPECT_EQ(percentDecode("%zz%4"), "%zz%4");
}

} // namespace
