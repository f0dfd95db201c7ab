#pragma once

#include "capture/IntakeCounts.h"

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

/// Whether a line is the first line of a SIP message: "INVITE sip:x SIP/2.0" or "SIP/2.0 200 OK".
[[nodiscard]] bool isSipStartLine(std::string_view sLine) noexcept;

/// Whether bytes begin with a SIP message's first line.
[[nodiscard]] bool looksLikeSip(std::string_view sBytes) noexcept;

/// Cuts a stream of bytes into SIP messages: head, empty line, and as many bytes of body as Content-Length says.
///
/// Empty lines between messages are keep-alives. What is no message (the middle of one that began before the capture,
/// another protocol) is skipped up to the next line that can begin one. A message that is too large or whose length
/// cannot be believed is refused, and skipped the same way.
///
/// Bounded: holds one message at the most.
///
/// Threads  one thread.
class CSipStreamFramer
{
public:
    static constexpr std::size_t cMaxMessage = std::size_t{64} << 10;

    /// @param fnMessage  gets each message; its bytes live until it returns
    CSipStreamFramer(CIntakeCounts& counts, std::function<void(std::string_view)> fnMessage)
        : m_counts(counts), m_fnMessage(std::move(fnMessage))
    {
    }

    void add(std::string_view sBytes);

    /// What follows does not join what came before: drops an unfinished message.
    void gap();

    std::size_t buffered() const noexcept { return m_sBuffer.size(); }

private:
    bool step(std::string_view sRest, std::size_t* puUsed);
    bool skipLine(std::string_view sRest, std::size_t* puUsed);
    bool frame(std::string_view sRest, std::size_t* puUsed);
    bool refuse(const char* pszReason, std::string_view sRest, std::size_t* puUsed);

    CIntakeCounts& m_counts;
    std::function<void(std::string_view)> m_fnMessage;
    std::string m_sBuffer;
    std::size_t m_uScanned = 0; // bytes of the message at the front that hold no end of head
    std::size_t m_uNeeded = 0;  // size of the message at the front once its head is known, else 0
    bool m_bInLine = false;     // the rest of a line too long to begin a message is being skipped
};
