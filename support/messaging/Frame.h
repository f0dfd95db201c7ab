#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Messaging {

/// What a frame is, its first byte after the length.
enum class EFrame : std::uint8_t
{
    hello = 1,    ///< the connecting side says who it is
    welcome = 2,  ///< the accepting side's answer to it
    request = 3,  ///< exchange number, body
    response = 4, ///< exchange number, body
    refusal = 5,  ///< exchange number: the request was not taken
    ping = 6,     ///< asks for a sign of life and for the time
    pong = 7      ///< the answer to it
};

using CInstance = std::array<std::uint8_t, 16>;

/// Length field in front of every frame; it counts the type and what follows, not itself.
constexpr std::size_t cFrameHead = 4;
/// Type and exchange number of a request or response.
constexpr std::size_t cExchangeHead = 5;
/// Longest frame before the greeting is over: whoever has not said who he is gets no memory.
constexpr std::uint32_t cGreetingLimit = 64;
constexpr std::uint16_t cProtocolVersion = 1;

/// The greeting and its answer. Instance and number name a session: no two are alike.
struct CHello
{
    std::uint16_t wVersion = cProtocolVersion; ///< hello: the newest spoken; welcome: the one chosen
    std::uint64_t ullService = 0;              ///< which service is meant: both sides have the same
    CInstance instance{};                      ///< of the sender, chosen at random when it started
    std::uint32_t dwNumber = 0;                ///< hello: of this connection, counted by its sender; welcome: the last
                                               ///< that its sender has counted: greetings up to it are void
    bool operator==(const CHello&) const = default;
};

/// The answer to a ping.
struct CPong
{
    std::uint64_t ullStamp = 0;    ///< the ping's stamp
    std::uint64_t ullFileTime = 0; ///< the answering side's clock
    std::uint64_t ullTicks = 0;    ///< its monotonic milliseconds
    bool operator==(const CPong&) const = default;
};

/// A received frame; the body lies in the reader's buffer.
struct CFrame
{
    EFrame eType{};
    std::uint32_t dwExchange = 0; ///< of request, response and refusal
    std::span<const char> body;   ///< of request and response what they carry, else everything after the type
};

// Writing: each appends one frame to the text. Lengths were checked before.
void appendHello(std::string* psOut, EFrame eType, const CHello& hello);
void appendExchange(std::string* psOut, EFrame eType, std::uint32_t dwExchange, std::span<const char> body);
void appendPing(std::string* psOut, std::uint64_t ullStamp);
void appendPong(std::string* psOut, const CPong& pong);

// Reading a frame's body: false when it is none.
bool readHello(std::span<const char> body, CHello* pHello);
bool readPing(std::span<const char> body, std::uint64_t* pullStamp);
bool readPong(std::span<const char> body, CPong* pPong);

/// Cuts a stream of received bytes into frames.
///
/// Holds what was received and not read yet, and grows with what has really arrived, whatever a length field says.
///
/// Threads    one at a time.
class CFrameReader
{
public:
    enum EResult
    {
        complete, ///< a frame was read
        partial,  ///< more bytes are needed
        broken    ///< these bytes are no frame: nothing after them can be read
    };

    explicit CFrameReader(std::uint32_t dwLimit) : m_dwLimit(dwLimit) {}

    /// The longest frame from now on.
    void setLimit(std::uint32_t dwLimit) { m_dwLimit = dwLimit; }

    /// Room for the bytes to come. Frames read before are gone.
    std::span<char> space();
    /// So many bytes were put there.
    void received(std::size_t uBytes) { m_uEnd += uBytes; }

    /// The next frame; it lasts until space is called.
    EResult next(CFrame* pFrame);

    /// Bytes of memory held.
    std::size_t held() const { return m_vecBuffer.size(); }

private:
    std::vector<char> m_vecBuffer;
    std::size_t m_uBegin = 0; // first byte that is not read yet
    std::size_t m_uEnd = 0;   // behind the last byte received
    std::uint32_t m_dwLimit;
};

} // namespace Messaging
