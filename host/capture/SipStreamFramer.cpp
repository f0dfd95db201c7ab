// SIP messages in a stream of bytes.
#include "capture/SipStreamFramer.h"

#include "sip/SipHead.h"

#include <algorithm>

namespace {

/// Longest first line that can begin a message: request targets are long, but not this long.
constexpr std::size_t cMaxStartLine = 4096;
constexpr std::string_view cVersion = "SIP/2.0";

bool isToken(std::string_view sText) noexcept
{
    return !sText.empty() && sText.size() <= 32 && std::all_of(sText.begin(), sText.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_' || (c >= '0' && c <= '9');
    });
}

} // namespace

bool isSipStartLine(std::string_view sLine) noexcept
{
    while (!sLine.empty() && (sLine.back() == '\r' || sLine.back() == '\n'))
        sLine.remove_suffix(1);
    if (sLine.starts_with(cVersion))
        return sLine.size() >= 11 && sLine[7] == ' ' &&
               std::all_of(sLine.begin() + 8, sLine.begin() + 11, [](char c) { return c >= '0' && c <= '9'; });
    return sLine.ends_with(cVersion) && sLine.size() > cVersion.size() && sLine[sLine.size() - 8] == ' ' &&
           isToken(sLine.substr(0, sLine.find(' ')));
}

bool looksLikeSip(std::string_view sBytes) noexcept
{
    const std::size_t uEnd = sBytes.substr(0, cMaxStartLine).find('\n');
    return uEnd != std::string_view::npos && isSipStartLine(sBytes.substr(0, uEnd));
}

void CSipStreamFramer::add(std::string_view sBytes)
{
    m_sBuffer.append(sBytes);
    const std::string_view sAll = m_sBuffer;
    std::size_t uDone = 0;
    for (std::size_t uUsed = 0; uDone < sAll.size() && step(sAll.substr(uDone), &uUsed); uUsed = 0)
        uDone += uUsed;
    m_sBuffer.erase(0, uDone);
}

void CSipStreamFramer::gap()
{
    if (!m_sBuffer.empty())
        m_counts.refuse("SIP message with missing bytes");
    m_sBuffer.clear();
    m_uScanned = m_uNeeded = 0;
    m_bInLine = false;
}

/// Takes one item off the front: a keep-alive, a line to skip or a message.
///
/// @return false when more bytes must come first
bool CSipStreamFramer::step(std::string_view sRest, std::size_t* puUsed)
{
    if (m_uNeeded == 0 && m_uScanned == 0)
    {
        if (m_bInLine)
            return skipLine(sRest, puUsed);
        if (sRest[0] == '\r' || sRest[0] == '\n')
        {
            *puUsed = 1;
            return true;
        }
        const std::size_t uEnd = sRest.substr(0, cMaxStartLine).find('\n');
        if (uEnd == std::string_view::npos && sRest.size() < cMaxStartLine)
            return false;
        if (uEnd == std::string_view::npos || !isSipStartLine(sRest.substr(0, uEnd)))
            return skipLine(sRest, puUsed);
    }
    return frame(sRest, puUsed);
}

bool CSipStreamFramer::skipLine(std::string_view sRest, std::size_t* puUsed)
{
    const std::size_t uEnd = sRest.find('\n');
    m_bInLine = uEnd == std::string_view::npos;
    *puUsed = m_bInLine ? sRest.size() : uEnd + 1;
    return true;
}

bool CSipStreamFramer::frame(std::string_view sRest, std::size_t* puUsed)
{
    if (m_uNeeded == 0)
    {
        const std::size_t uHead = findEndOfHead(sRest, m_uScanned);
        if (uHead == std::string_view::npos)
        {
            if (sRest.size() > cMaxMessage)
                return refuse("SIP message too large", sRest, puUsed);
            m_uScanned = sRest.size() > 3 ? sRest.size() - 3 : 1;
            return false;
        }
        std::size_t uBody = 0;
        bool bGiven = false; // a message without the field ends with its head
        if (!readContentLength(sRest.substr(0, uHead), &uBody, &bGiven))
            return refuse("SIP message in a stream with an unusable Content-Length", sRest, puUsed);
        if (uBody > cMaxMessage || uHead + uBody > cMaxMessage)
            return refuse("SIP message too large", sRest, puUsed);
        m_uNeeded = uHead + uBody;
    }
    if (sRest.size() < m_uNeeded)
        return false;
    *puUsed = m_uNeeded;
    m_uScanned = m_uNeeded = 0;
    m_fnMessage(sRest.substr(0, *puUsed));
    return true;
}

bool CSipStreamFramer::refuse(const char* pszReason, std::string_view sRest, std::size_t* puUsed)
{
    m_counts.refuse(pszReason);
    m_uScanned = m_uNeeded = 0;
    return skipLine(sRest, puUsed); // its other lines begin no message, so they are skipped one by one
}
