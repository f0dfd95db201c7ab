#include "LogText.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <type_traits>

namespace {
/// Bytes of the control character at this place, 0 when there is none: one, or two for U+0080 to U+009F.
std::size_t controlAt(std::string_view sText, std::size_t uAt) noexcept
{
    const auto uc = static_cast<unsigned char>(sText[uAt]);
    if (uc == 0xC2U && uAt + 1 < sText.size())
        return (static_cast<unsigned char>(sText[uAt + 1]) & 0xE0U) == 0x80U ? 2 : 0;
    return (uc < 0x20U && uc != '\t') || uc == 0x7FU ? 1 : 0;
}
} // namespace

CFormattedText::CFormattedText(const char* pszFormat, va_list args) noexcept
{
    va_list argsAgain;
    va_copy(argsAgain, args);
    const int nLength = std::vsnprintf(m_szShort, cShort, pszFormat, args);
    const std::size_t uLength = nLength < 0 ? 0 : static_cast<std::size_t>(nLength);
    if (uLength < cShort)
        m_sText = {m_szShort, uLength};
    else
    {
        try
        {
            m_sLong.resize(uLength);
            (void)std::vsnprintf(m_sLong.data(), uLength + 1, pszFormat, argsAgain); // measured a moment ago
            m_sText = m_sLong;
        }
        catch (const std::bad_alloc&)
        {
            m_sText = {m_szShort, cShort - 1}; // the beginning is better than nothing
        }
    }
    va_end(argsAgain);
}

CFormattedText::CFormattedText(const wchar_t* pszFormat, va_list args) noexcept
{
    wchar_t* pszWide = nullptr;
    std::size_t uLength = 0;
    std::FILE* const pFile = open_wmemstream(&pszWide, &uLength); // vswprintf does not tell how much room it lacks
    if (!pFile)
        return;
    (void)std::vfwprintf(pFile, pszFormat, args);
    (void)std::fclose(pFile);
    const std::unique_ptr<wchar_t, decltype(&std::free)> pszOwned(pszWide, &std::free);
    try
    {
        m_sLong = utf8Of({pszWide, uLength});
        m_sText = m_sLong;
    }
    catch (const std::bad_alloc&)
    {
        m_sText = {};
    }
}

std::string utf8Of(std::wstring_view sWide)
{
    std::string sText;
    sText.reserve(sWide.size());
    const auto fnPut = [&sText](std::uint32_t dwByte) { sText.push_back(static_cast<char>(dwByte)); };
    for (const wchar_t cWide : sWide)
    {
        auto dwPoint = static_cast<std::uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(cWide));
        if (dwPoint > 0x10FFFFU || (dwPoint >= 0xD800U && dwPoint <= 0xDFFFU))
            dwPoint = 0xFFFDU;
        if (dwPoint < 0x80U)
        {
            fnPut(dwPoint);
            continue;
        }
        if (dwPoint < 0x800U)
            fnPut(0xC0U | (dwPoint >> 6));
        else
        {
            if (dwPoint < 0x10000U)
                fnPut(0xE0U | (dwPoint >> 12));
            else
            {
                fnPut(0xF0U | (dwPoint >> 18));
                fnPut(0x80U | ((dwPoint >> 12) & 0x3FU));
            }
            fnPut(0x80U | ((dwPoint >> 6) & 0x3FU));
        }
        fnPut(0x80U | (dwPoint & 0x3FU));
    }
    return sText;
}

bool hasControls(std::string_view sText) noexcept
{
    // Eight at a time, since this runs over every byte that is logged: a byte below 0x20, or equal to 0x7F or 0xC2,
    // leaves its top bit in the word. Which byte it was may be wrong, and tabulators are among them, so the answer is
    // only where to look closely.
    constexpr std::uint64_t cOnes = 0x0101010101010101ULL;
    constexpr std::uint64_t cTops = 0x8080808080808080ULL;
    std::size_t uAt = 0;
    for (; uAt + 8 <= sText.size(); uAt += 8)
    {
        std::uint64_t ullBytes = 0;
        std::memcpy(&ullBytes, sText.data() + uAt, 8);
        const std::uint64_t ullDelete = ullBytes ^ (cOnes * 0x7F);
        const std::uint64_t ullLead = ullBytes ^ (cOnes * 0xC2);
        if ((((ullBytes - cOnes * 0x20) & ~ullBytes) | ((ullDelete - cOnes) & ~ullDelete) |
             ((ullLead - cOnes) & ~ullLead)) &
            cTops)
            break;
    }
    for (; uAt < sText.size(); ++uAt)
        if (controlAt(sText, uAt) > 0)
            return true;
    return false;
}

std::string escaped(std::string_view sText)
{
    std::string sEscaped;
    sEscaped.reserve(sText.size() + 16);
    for (std::size_t uAt = 0; uAt < sText.size(); ++uAt)
    {
        const std::size_t uLength = controlAt(sText, uAt);
        if (uLength == 0)
        {
            sEscaped += sText[uAt];
            continue;
        }
        uAt += uLength - 1;
        const auto uc = static_cast<unsigned char>(sText[uAt]); // of two bytes the second has the character's number
        if (uc == '\n')
            sEscaped += "\\n";
        else if (uc == '\r')
            sEscaped += "\\r";
        else
        {
            static constexpr char cDigits[] = "0123456789abcdef";
            sEscaped += "\\x";
            sEscaped += cDigits[uc >> 4];
            sEscaped += cDigits[uc & 0xFU];
        }
    }
    return sEscaped;
}
