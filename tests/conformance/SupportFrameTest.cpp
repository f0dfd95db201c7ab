// How the messaging channel cuts what it receives into frames.
#include "Frame.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

using namespace Messaging;

namespace {
/// Hands the bytes to the reader as a connection does.
void receive(CFrameReader* pReader, const std::string& sBytes)
{
    for (std::size_t uTaken = 0; uTaken < sBytes.size();)
    {
        const std::span<char> space = pReader->space();
        const std::size_t uBytes = std::min(space.size(), sBytes.size() - uTaken);
        std::copy_n(sBytes.data() + uTaken, uBytes, space.data());
        pReader->received(uBytes);
        uTaken += uBytes;
    }
}
} // namespace

TEST(SupportFrameTest, RoomIsSmallUntilTheGreetingIsOver)
{
    CFrameReader reader(cGreetingLimit);
    EXPECT_LE(reader.space().size(), 4096U) << "whoever has not said who it is";
    std::string sBytes;
    appendHello(&sBytes, EFrame::hello, {});
    receive(&reader, sBytes);
    CFrame frame;
    ASSERT_EQ(reader.next(&frame), CFrameReader::complete);

    reader.setLimit(4U << 20);
    EXPECT_GE(reader.space().size(), 65'536U) << "each read costs a call of the system";
}

TEST(SupportFrameTest, RoomGrowsOnceWhatIsHeldHasBeenRead)
{
    CFrameReader reader(cGreetingLimit);
    std::string sBytes;
    appendHello(&sBytes, EFrame::hello, {});
    const std::size_t uHello = sBytes.size();
    appendExchange(&sBytes, EFrame::request, 7, std::string("the first request"));
    receive(&reader, sBytes.substr(0, uHello + 10)); // a part of what follows comes with the greeting
    CFrame frame;
    ASSERT_EQ(reader.next(&frame), CFrameReader::complete);
    reader.setLimit(4U << 20);
    ASSERT_EQ(reader.next(&frame), CFrameReader::partial);

    receive(&reader, sBytes.substr(uHello + 10));
    ASSERT_EQ(reader.next(&frame), CFrameReader::complete);
    EXPECT_EQ(frame.dwExchange, 7U);
    EXPECT_EQ(std::string(frame.body.begin(), frame.body.end()), "the first request");
    EXPECT_GE(reader.space().size(), 65'536U);
}
