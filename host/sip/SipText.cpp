// Texts of SIP messages: cutting, unquoting, decoding.
#include "sip/SipText.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr std::string_view cReplacement = "\xEF\xBF\xBD";

/// Length of the valid UTF-8 sequence at the front; 0 when there is none.
std::size_t sequenceLength(std::string_view sText) noexcept
{
    const auto byteAt = [sText](std::size_t uAt) { return static_cast<std::uint8_t>(sText[uAt]); };
    const std::uint8_t byFirst = byteAt(0);
    if (byFirst < 0x80)
        return 1;
    const std::size_t uLength = byFirst >= 0xF0 ? 4 : byFirst >= 0xE0 ? 3 : 2;
    if (byFirst < 0xC2 || byFirst > 0xF4 || sText.size() < uLength)
        return 0;
    for (std::size_t u = 1; u < uLength; ++u)
        if ((byteAt(u) & 0xC0) != 0x80)
            return 0;
    const bool bOverlong = (byFirst == 0xE0 && byteAt(1) < 0xA0) || (byFirst == 0xF0 && byteAt(1) < 0x90);
    const bool bSurrogate = byFirst == 0xED && byteAt(1) >= 0xA0;
    const bool bPastUnicode = byFirst == 0xF4 && byteAt(1) >= 0x90;
    return bOverlong || bSurrogate || bPastUnicode ? 0 : uLength;
}

/// U+0000 to U+001F, and U+007F to U+009F.
bool isControl(std::string_view sSequence) noexcept
{
    const auto byFirst = static_cast<std::uint8_t>(sSequence[0]);
    return byFirst < 0x20 || byFirst == 0x7F || (byFirst == 0xC2 && static_cast<std::uint8_t>(sSequence[1]) < 0xA0);
}

int hexDigit(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

/// Position of a character outside quotes; npos when there is none.
std::size_t findUnquoted(std::string_view sText, char cWanted) noexcept
{
    bool bQuoted = false;
    for (std::size_t u = 0; u < sText.size(); ++u)
    {
        if (sText[u] == '\\' && bQuoted)
            ++u;
        else if (sText[u] == '"')
            bQuoted = !bQuoted;
        else if (sText[u] == cWanted && !bQuoted)
            return u;
    }
    return std::string_view::npos;
}

} // namespace

std::string toLower(std::string_view sText)
{
    std::string sLower(sText);
    for (char& c : sLower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + ('a' - 'A')); // not by locale: header names are ASCII
    return sLower;
}

std::string_view trim(std::string_view sText) noexcept
{
    constexpr std::string_view cBlanks = " \t\r\n";
    const std::size_t uBegin = sText.find_first_not_of(cBlanks);
    if (uBegin == std::string_view::npos)
        return {};
    return sText.substr(uBegin, sText.find_last_not_of(cBlanks) - uBegin + 1);
}

std::vector<std::string_view> splitList(std::string_view sText, char cSeparator)
{
    std::vector<std::string_view> vecPieces;
    bool bQuoted = false;
    bool bInAngles = false;
    std::size_t uBegin = 0;
    for (std::size_t u = 0; u <= sText.size(); ++u)
    {
        const char c = u < sText.size() ? sText[u] : cSeparator;
        if (u == sText.size() || (c == cSeparator && !bQuoted && !bInAngles))
        {
            if (const std::string_view sPiece = trim(sText.substr(uBegin, u - uBegin)); !sPiece.empty())
                vecPieces.push_back(sPiece);
            uBegin = u + 1;
        }
        else if (c == '\\' && bQuoted)
            ++u;
        else if (c == '"' && !bInAngles)
            bQuoted = !bQuoted;
        else if (!bQuoted && (c == '<' || c == '>'))
            bInAngles = c == '<';
    }
    return vecPieces;
}

std::string toUtf8(std::string_view sText, std::size_t uMaxBytes)
{
    std::string sResult;
    sResult.reserve(std::min(sText.size(), uMaxBytes));
    while (!sText.empty())
    {
        const std::size_t uLength = sequenceLength(sText);
        const bool bGood = uLength != 0 && !isControl(sText.substr(0, uLength));
        const std::string_view sNext = bGood ? sText.substr(0, uLength) : cReplacement;
        if (sResult.size() + sNext.size() > uMaxBytes)
            break;
        sResult.append(sNext);
        sText.remove_prefix(std::max<std::size_t>(uLength, 1));
    }
    return sResult;
}

std::string printable(std::string_view sText)
{
    return toUtf8(sText, sText.size() * 3); // a replaced byte becomes three
}

std::string unquote(std::string_view sText)
{
    sText = trim(sText);
    if (sText.size() < 2 || sText.front() != '"' || sText.back() != '"')
        return std::string(sText);
    std::string sResult;
    for (std::size_t u = 1; u + 1 < sText.size(); ++u)
    {
        if (sText[u] == '\\' && u + 2 < sText.size())
            ++u;
        sResult.push_back(sText[u]);
    }
    return sResult;
}

std::string percentDecode(std::string_view sText)
{
    std::string sResult;
    for (std::size_t u = 0; u < sText.size(); ++u)
    {
        const bool bEscape =
            sText[u] == '%' && u + 2 < sText.size() && hexDigit(sText[u + 1]) >= 0 && hexDigit(sText[u + 2]) >= 0;
        if (!bEscape)
            sResult.push_back(sText[u]);
        else
        {
            sResult.push_back(static_cast<char>(hexDigit(sText[u + 1]) * 16 + hexDigit(sText[u + 2])));
            u += 2;
        }
    }
    return sResult;
}

CNameAddr splitNameAddr(std::string_view sValue)
{
    sValue = trim(sValue);
    const std::size_t uAngle = findUnquoted(sValue, '<');
    if (uAngle == std::string_view::npos)
    {
        // A lone quote hides the bracket: some equipment sends names with unpaired ones.
        const std::size_t uAny = sValue.find('<');
        if (uAny == std::string_view::npos)
            return {"", sValue};
        return {unquote(sValue.substr(0, uAny)), sValue.substr(uAny)};
    }
    return {unquote(sValue.substr(0, uAngle)), sValue.substr(uAngle)};
}
