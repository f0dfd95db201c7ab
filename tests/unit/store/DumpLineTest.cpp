// The line in which trace output shows bytes.

#include "CDSLogging.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

std::string dumpLine(const std::string& sBytes, int nOutSize = 53)
{
    std::array<char, 80> szOut{};
    szOut.fill('#');
    CCDSLogging::hexascii(reinterpret_cast<const unsigned char*>(sBytes.data()), static_cast<int>(sBytes.size()),
                          szOut.data(), nOutSize);
    return szOut.data();
}

TEST(DumpLineTest, ShowsTextAndDigits)
{
    EXPECT_EQ(dumpLine("abc"), "abc" + std::string(15, ' ') + "616263");
}

TEST(DumpLineTest, IsFullAtSixteenBytes)
{
    EXPECT_EQ(dumpLine("0123456789ABCDEF"), "0123456789ABCDEF  30313233343536373839414243444546");
}

TEST(DumpLineTest, ShowsSixteenBytesAtTheMost)
{
    EXPECT_EQ(dumpLine("0123456789ABCDEFGHIJ"), dumpLine("0123456789ABCDEF"));
}

TEST(DumpLineTest, IsBlankWithoutBytes)
{
    EXPECT_EQ(dumpLine(""), std::string(52, ' '));
}

TEST(DumpLineTest, IsBlankForNothing)
{
    std::array<char, 53> szOut{};
    CCDSLogging::hexascii(nullptr, 5, szOut.data(), 53);
    EXPECT_EQ(std::string(szOut.data()), std::string(52, ' '));
}

TEST(DumpLineTest, IsBlankForANegativeLength)
{
    std::array<char, 53> szOut{};
    CCDSLogging::hexascii(reinterpret_cast<const unsigned char*>("abc"), -1, szOut.data(), 53);
    EXPECT_EQ(std::string(szOut.data()), std::string(52, ' '));
}

TEST(DumpLineTest, ShowsUnprintableBytesAsDots)
{
    EXPECT_EQ(dumpLine("\x1F\x7F\x80\xFF"), "...." + std::string(14, ' ') + "1F7F80FF");
}

TEST(DumpLineTest, ShowsTheOutermostPrintableBytes)
{
    EXPECT_EQ(dumpLine("\x20\x7E"), " ~" + std::string(16, ' ') + "207E");
}

TEST(DumpLineTest, NeedsRoomForAWholeLine)
{
    EXPECT_EQ(dumpLine("abc", 52), "");
    EXPECT_NE(dumpLine("abc", 53), "");
}

TEST(DumpLineTest, KeepsToItsRoom)
{
    std::array<char, 64> szOut{};
    szOut.fill('#');
    CCDSLogging::hexascii(reinterpret_cast<const unsigned char*>("0123456789ABCDEF"), 16, szOut.data(), 53);
    EXPECT_EQ(std::string(szOut.data() + 53, szOut.size() - 53), std::string(11, '#'));
}

TEST(DumpLineTest, KeepsToItsRoomWhenThereIsTooLittle)
{
    std::array<char, 8> szOut{};
    szOut.fill('#');
    CCDSLogging::hexascii(reinterpret_cast<const unsigned char*>("abc"), 3, szOut.data(), 1);
    EXPECT_EQ(szOut[0], '\0');
    EXPECT_EQ(szOut[1], '#');
}

TEST(DumpLineTest, WritesNothingWithoutRoom)
{
    char cOut = '#';
    CCDSLogging::hexascii(reinterpret_cast<const unsigned char*>("abc"), 3, &cOut, 0);
    EXPECT_EQ(cOut, '#');
}

} // namespace
