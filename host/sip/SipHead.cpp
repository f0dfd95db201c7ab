// First line, header fields, body.
#include "sip/SipHead.h"

#include "sip/SipText.h"

#include <array>
#include <charconv>
#include <utility>

namespace {

std::string longName(std::string_view sName)
{
    static constexpr std::array<std::pair<char, std::string_view>, 10> cCompact = {{{'v', "via"},
                                                                                    {'f', "from"},
                                                                                    {'t', "to"},
                                                                                    {'i', "call-id"},
                                                                                    {'m', "contact"},
                                                                                    {'l', "content-length"},
                                                                                    {'c', "content-type"},
                                                                                    {'r', "refer-to"},
                                                                                    {'x', "session-expires"},
                                                                                    {'b', "referred-by"}}};
    std::string sLower = toLower(trim(sName));
    if (sLower.size() == 1)
        for (const auto& [cShort, sLong] : cCompact)
            if (sLower[0] == cShort)
                return std::string(sLong);
    return sLower;
}

/// Takes the next line off the text, without its line end.
std::string_view nextLine(std::string_view* psText) noexcept
{
    const std::size_t uEnd = psText->find('\n');
    std::string_view sLine = psText->substr(0, uEnd);
    psText->remove_prefix(uEnd == std::string_view::npos ? psText->size() : uEnd + 1);
    if (sLine.ends_with('\r'))
        sLine.remove_suffix(1);
    return sLine;
}

} // namespace

std::size_t findEndOfHead(std::string_view sMessage, std::size_t uFrom) noexcept
{
    for (std::size_t uAt = sMessage.find('\n', uFrom); uAt != std::string_view::npos;
         uAt = sMessage.find('\n', uAt + 1))
    {
        if (uAt + 1 < sMessage.size() && sMessage[uAt + 1] == '\n')
            return uAt + 2;
        if (uAt + 2 < sMessage.size() && sMessage[uAt + 1] == '\r' && sMessage[uAt + 2] == '\n')
            return uAt + 3;
    }
    return std::string_view::npos;
}

bool readContentLength(std::string_view sHead, std::size_t* puLength, bool* pbGiven)
{
    *pbGiven = false;
    *puLength = 0;
    (void)nextLine(&sHead); // the first line is no field
    while (!sHead.empty())
    {
        const std::string_view sLine = nextLine(&sHead);
        const std::size_t uColon = sLine.find(':');
        if (uColon == std::string_view::npos || longName(sLine.substr(0, uColon)) != "content-length")
            continue;
        const std::string_view sValue = trim(sLine.substr(uColon + 1));
        std::size_t uLength = 0;
        const auto [pEnd, error] = std::from_chars(sValue.data(), sValue.data() + sValue.size(), uLength);
        if (error != std::errc() || pEnd != sValue.data() + sValue.size() || (*pbGiven && uLength != *puLength))
            return false;
        *pbGiven = true;
        *puLength = uLength;
    }
    return true;
}

CSipHead::CSipHead(std::string_view sMessage)
{
    const std::size_t uEnd = findEndOfHead(sMessage);
    std::string_view sHead = sMessage.substr(0, uEnd);
    if (uEnd != std::string_view::npos)
    {
        std::size_t uLength = 0;
        bool bGiven = false;
        m_sBody = sMessage.substr(uEnd);
        // Without a length the whole rest of a datagram is the body; so it is with a length that cannot be read.
        if (readContentLength(sHead, &uLength, &bGiven) && bGiven && uLength < m_sBody.size())
            m_sBody.resize(uLength);
    }
    m_sStartLine = nextLine(&sHead);
    while (!sHead.empty())
    {
        const std::string_view sLine = nextLine(&sHead);
        if (!sLine.empty() && (sLine[0] == ' ' || sLine[0] == '\t') && !m_vecFields.empty())
        {
            m_vecFields.back().sValue.append(" ").append(trim(sLine));
            continue;
        }
        const std::size_t uColon = sLine.find(':');
        if (uColon == std::string_view::npos || m_vecFields.size() == cMaxFields)
            continue;
        m_vecFields.push_back({longName(sLine.substr(0, uColon)), std::string(trim(sLine.substr(uColon + 1)))});
    }
}

const std::string* CSipHead::field(std::string_view sName) const noexcept
{
    for (const CField& field : m_vecFields)
        if (field.sName == sName)
            return &field.sValue;
    return nullptr;
}

std::vector<std::string> CSipHead::values(std::string_view sName) const
{
    std::vector<std::string> vecValues;
    for (const CField& field : m_vecFields)
        if (field.sName == sName)
            for (const std::string_view sValue : splitList(field.sValue, ','))
                vecValues.emplace_back(sValue);
    return vecValues;
}
