// The bytes of the protocol: frames, the greeting, signs of life.
#include "Frame.h"

#include <algorithm>
#include <cstring>

namespace Messaging {
namespace {
constexpr std::array<char, 4> cMagic{'C', 'D', 'S', 'M'};
constexpr std::size_t cHelloBody = cMagic.size() + 2 + 8 + 16 + 4;
constexpr std::size_t cSmallBuffer = 4'096;
constexpr std::size_t cBuffer = 65'536;

template <typename Number> void appendNumber(std::string* psOut, Number number)
{
    for (int nShift = static_cast<int>(sizeof number) * 8 - 8; nShift >= 0; nShift -= 8)
        psOut->push_back(static_cast<char>(static_cast<std::uint8_t>(number >> nShift)));
}

template <typename Number> Number readNumber(std::span<const char> bytes, std::size_t uAt)
{
    std::uint64_t ullNumber = 0;
    for (std::size_t u = 0; u < sizeof(Number); ++u)
        ullNumber = ullNumber << 8 | static_cast<std::uint8_t>(bytes[uAt + u]);
    return static_cast<Number>(ullNumber);
}

void appendHead(std::string* psOut, EFrame eType, std::size_t uBody)
{
    psOut->reserve(psOut->size() + cFrameHead + 1 + uBody); // a frame is appended whole or not at all
    appendNumber(psOut, static_cast<std::uint32_t>(1 + uBody));
    psOut->push_back(static_cast<char>(eType));
}
} // namespace

void appendHello(std::string* psOut, EFrame eType, const CHello& hello)
{
    appendHead(psOut, eType, cHelloBody);
    psOut->append(cMagic.data(), cMagic.size());
    appendNumber(psOut, hello.wVersion);
    appendNumber(psOut, hello.ullService);
    for (const std::uint8_t byte : hello.instance)
        psOut->push_back(static_cast<char>(byte));
    appendNumber(psOut, hello.dwNumber);
}

void appendExchange(std::string* psOut, EFrame eType, std::uint32_t dwExchange, std::span<const char> body)
{
    appendHead(psOut, eType, sizeof dwExchange + body.size());
    appendNumber(psOut, dwExchange);
    psOut->append(body.data(), body.size());
}

void appendPing(std::string* psOut, std::uint64_t ullStamp)
{
    appendHead(psOut, EFrame::ping, sizeof ullStamp);
    appendNumber(psOut, ullStamp);
}

void appendPong(std::string* psOut, const CPong& pong)
{
    appendHead(psOut, EFrame::pong, 3 * sizeof pong.ullStamp);
    appendNumber(psOut, pong.ullStamp);
    appendNumber(psOut, pong.ullFileTime);
    appendNumber(psOut, pong.ullTicks);
}

bool readHello(std::span<const char> body, CHello* pHello)
{
    // A later version may say more at the end.
    if (body.size() < cHelloBody || !std::equal(cMagic.begin(), cMagic.end(), body.begin()))
        return false;
    std::size_t uAt = cMagic.size();
    pHello->wVersion = readNumber<std::uint16_t>(body, uAt);
    uAt += sizeof pHello->wVersion;
    pHello->ullService = readNumber<std::uint64_t>(body, uAt);
    uAt += sizeof pHello->ullService;
    std::memcpy(pHello->instance.data(), body.data() + uAt, pHello->instance.size());
    uAt += pHello->instance.size();
    pHello->dwNumber = readNumber<std::uint32_t>(body, uAt);
    return pHello->wVersion != 0;
}

bool readPing(std::span<const char> body, std::uint64_t* pullStamp)
{
    if (body.size() != sizeof *pullStamp)
        return false;
    *pullStamp = readNumber<std::uint64_t>(body, 0);
    return true;
}

bool readPong(std::span<const char> body, CPong* pPong)
{
    if (body.size() != 3 * sizeof pPong->ullStamp)
        return false;
    pPong->ullStamp = readNumber<std::uint64_t>(body, 0);
    pPong->ullFileTime = readNumber<std::uint64_t>(body, 8);
    pPong->ullTicks = readNumber<std::uint64_t>(body, 16);
    return true;
}

std::span<char> CFrameReader::space()
{
    if (m_uBegin == m_uEnd)
    {
        m_uBegin = m_uEnd = 0;
        if (m_vecBuffer.size() > 4 * cBuffer) // a large frame has come and gone
            std::vector<char>().swap(m_vecBuffer);
    }
    else if (m_uBegin != 0 && m_vecBuffer.size() - m_uEnd < m_vecBuffer.size() / 2)
    {
        std::memmove(m_vecBuffer.data(), m_vecBuffer.data() + m_uBegin, m_uEnd - m_uBegin);
        m_uEnd -= m_uBegin;
        m_uBegin = 0;
    }
    const std::size_t uLeast = m_dwLimit <= cSmallBuffer ? cSmallBuffer : cBuffer;
    if (m_uEnd == 0 && m_vecBuffer.size() < uLeast) // a greeting needed less
        m_vecBuffer.resize(uLeast);
    else if (m_uEnd == m_vecBuffer.size())
        m_vecBuffer.resize(2 * m_vecBuffer.size());
    return {m_vecBuffer.data() + m_uEnd, m_vecBuffer.size() - m_uEnd};
}

CFrameReader::EResult CFrameReader::next(CFrame* pFrame)
{
    const std::span<const char> held(m_vecBuffer.data() + m_uBegin, m_uEnd - m_uBegin);
    if (held.size() < cFrameHead)
        return partial;
    const auto dwLength = readNumber<std::uint32_t>(held, 0);
    if (dwLength == 0 || dwLength > m_dwLimit)
        return broken;
    if (held.size() - cFrameHead < dwLength)
        return partial;
    const std::span<const char> frame = held.subspan(cFrameHead, dwLength);
    pFrame->eType = static_cast<EFrame>(frame[0]);
    pFrame->dwExchange = 0;
    pFrame->body = frame.subspan(1);
    switch (pFrame->eType)
    {
    case EFrame::hello:
    case EFrame::welcome:
    case EFrame::ping:
    case EFrame::pong: break;
    case EFrame::request:
    case EFrame::response:
    case EFrame::refusal:
        if (frame.size() < cExchangeHead)
            return broken;
        pFrame->dwExchange = readNumber<std::uint32_t>(frame, 1);
        pFrame->body = frame.subspan(cExchangeHead);
        break;
    default: return broken;
    }
    m_uBegin += cFrameHead + dwLength;
    return complete;
}

} // namespace Messaging
