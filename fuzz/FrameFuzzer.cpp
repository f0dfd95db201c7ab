// The reader of frames, and what frames hold, on arbitrary bytes that arrive in arbitrary pieces.

#include "Frame.h"
#include "FuzzCheck.h"

#include <algorithm>
#include <cstring>

namespace {

using namespace Messaging;

// Rules show in a few frames; a larger limit would only ask for longer inputs.
constexpr std::size_t cMaxInput = 8192;
constexpr std::uint32_t cLimit = 2048;

/// A frame written anew: whatever is understood has one form only, but for a greeting, which may say more at its end.
std::string rewritten(const CFrame& frame)
{
    std::string sFrame;
    CHello hello;
    CPong pong;
    std::uint64_t ullStamp = 0;
    switch (frame.eType)
    {
    case EFrame::hello:
    case EFrame::welcome:
        if (readHello(frame.body, &hello))
        {
            FUZZ_CHECK(hello.wVersion != 0);
            appendHello(&sFrame, frame.eType, hello);
        }
        break;
    case EFrame::request:
    case EFrame::response:
    case EFrame::refusal: appendExchange(&sFrame, frame.eType, frame.dwExchange, frame.body); break;
    case EFrame::ping:
        if (readPing(frame.body, &ullStamp))
            appendPing(&sFrame, ullStamp);
        break;
    case EFrame::pong:
        if (readPong(frame.body, &pong))
            appendPong(&sFrame, pong);
        break;
    }
    return sFrame;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize < 2 || uSize > cMaxInput)
        return 0;
    // The first byte says how large the pieces are, the second whether strangers' limit holds.
    const std::size_t uPiece = std::max<std::size_t>(pData[0], 1);
    const std::uint32_t dwLimit = pData[1] % 2 != 0 ? cGreetingLimit : cLimit;
    const std::string sBytes(reinterpret_cast<const char*>(pData) + 2, uSize - 2);

    CFrameReader reader(dwLimit);
    std::size_t uGiven = 0;
    std::size_t uRead = 0; // bytes of the frames read
    for (;;)
    {
        CFrame frame;
        const CFrameReader::EResult eResult = reader.next(&frame);
        if (eResult == CFrameReader::broken)
            return 0;
        if (eResult == CFrameReader::complete)
        {
            const std::size_t uHead =
                frame.eType == EFrame::request || frame.eType == EFrame::response || frame.eType == EFrame::refusal
                    ? cExchangeHead
                    : 1;
            const std::size_t uFrame = cFrameHead + uHead + frame.body.size();
            FUZZ_CHECK(uFrame - cFrameHead <= dwLimit);
            FUZZ_CHECK(uRead + uFrame <= uGiven);
            const std::string sAnew = rewritten(frame);
            const bool bGreeting = frame.eType == EFrame::hello || frame.eType == EFrame::welcome;
            // Of a greeting that says more, the length differs and the end is missing.
            const std::size_t uFrom = bGreeting ? cFrameHead : 0;
            FUZZ_CHECK(sAnew.empty() || bGreeting || sAnew.size() == uFrame);
            FUZZ_CHECK(sAnew.empty() || sBytes.compare(uRead + uFrom, sAnew.size() - uFrom, sAnew, uFrom) == 0);
            uRead += uFrame;
            continue;
        }
        if (uGiven == sBytes.size())
            break;
        const std::span<char> space = reader.space();
        FUZZ_CHECK(!space.empty());
        const std::size_t uNow = std::min({uPiece, space.size(), sBytes.size() - uGiven});
        std::memcpy(space.data(), sBytes.data() + uGiven, uNow);
        reader.received(uNow);
        uGiven += uNow;
        FUZZ_CHECK(reader.held() <= 64 * 1024 + 2 * cMaxInput);
    }
    return 0;
}
