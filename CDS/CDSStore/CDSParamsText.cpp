// How the elements of a parameter list are read from text, and the named writers.

#include "CDSParamsText.h"

#include "CDSParams.h"
#include "CPortable.h"

#include <cstdlib>
#include <limits>

namespace {

// A hexadecimal digit's value, 0xFF for any other character.
constexpr std::array<unsigned char, 256> makeHexValues()
{
    std::array<unsigned char, 256> values{};
    values.fill(0xFF);
    for (unsigned char c = '0'; c <= '9'; ++c)
        values[c] = static_cast<unsigned char>(c - '0');
    for (unsigned char i = 0; i < 6; ++i)
    {
        values['A' + i] = static_cast<unsigned char>(10 + i);
        values['a' + i] = static_cast<unsigned char>(10 + i);
    }
    return values;
}
constexpr std::array<unsigned char, 256> g_aHexValues = makeHexValues();

bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}
bool isBlank(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace

void cdsThrowParseFailure()
{
    throw static_cast<unsigned long>(0x80004005UL);
}

std::int32_t cdsReadLong(std::string_view text) noexcept
{
    std::size_t i = 0;
    while (i < text.size() && isBlank(text[i]))
        ++i;
    const bool bNegative = i < text.size() && text[i] == '-';
    if (bNegative || (i < text.size() && text[i] == '+'))
        ++i;
    // One more than the largest value is the smallest value's magnitude, so no overflow needs a case of its own.
    constexpr std::int64_t llLimit = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 1;
    std::int64_t llValue = 0;
    for (; i < text.size() && isDigit(text[i]) && llValue < llLimit; ++i)
        llValue = llValue * 10 + (text[i] - '0');
    if (bNegative)
        return static_cast<std::int32_t>(llValue > llLimit ? -llLimit : -llValue);
    return static_cast<std::int32_t>(llValue >= llLimit ? llLimit - 1 : llValue);
}

unsigned long long cdsReadU64(std::string_view text)
{
    char szShort[64];
    if (text.size() >= sizeof szShort)
        return CPortable::stoull(std::string(text).c_str());
    szShort[text.copy(szShort, text.size())] = '\0';
    return CPortable::stoull(szShort);
}

SParamElement cdsElementAt(std::string_view text, std::int64_t llPos)
{
    const auto uPos = static_cast<std::size_t>(llPos);
    if (llPos < 0 || uPos >= text.size())
        cdsThrowParseFailure();
    // The usual prefix is a few digits and the semicolon; everything else takes the general way below.
    std::int64_t llValue = 0;
    std::size_t uEnd = uPos;
    for (; uEnd < text.size() && uEnd - uPos < 9 && isDigit(text[uEnd]); ++uEnd)
        llValue = llValue * 10 + (text[uEnd] - '0');
    if (uEnd > uPos && uEnd < text.size() && text[uEnd] == ';')
        return {llValue, static_cast<long>(uEnd - uPos + 1)};

    const std::size_t uSemicolon = text.find(';', uPos);
    if (uSemicolon == std::string_view::npos || uSemicolon == uPos)
        cdsThrowParseFailure();
    const std::int32_t lLength = cdsReadLong(text.substr(uPos, uSemicolon - uPos));
    return {lLength < 0 ? 0 : lLength, static_cast<long>(uSemicolon - uPos + 1)};
}

std::string_view cdsElementText(std::string_view text, std::int64_t llPos)
{
    const SParamElement element = cdsElementAt(text, llPos);
    return text.substr(static_cast<std::size_t>(llPos + element.lPrefixLength),
                       static_cast<std::size_t>(element.llLength));
}

std::size_t cdsHeaderLength(std::string_view text) noexcept
{
    if (text.empty() || isDigit(text.front()))
        return 0;
    const std::size_t uSemicolon = text.find(';');
    return uSemicolon == std::string_view::npos ? 0 : uSemicolon + 1;
}

unsigned char* cdsReadBytes(std::string_view text, int* pnSize) noexcept
{
    const std::size_t uSize = cdsByteCount(text);
    *pnSize = static_cast<int>(uSize);
    if (uSize == 0)
        return nullptr;
    auto* const pData = static_cast<unsigned char*>(std::malloc(uSize));
    if (pData != nullptr)
        cdsReadBytesInto(text, pData);
    return pData;
}

void cdsReadBytesInto(std::string_view text, unsigned char* pBytes) noexcept
{
    for (std::size_t i = 0; i < cdsByteCount(text); ++i)
    {
        const unsigned int uHigh = g_aHexValues[static_cast<unsigned char>(text[2 * i])];
        const unsigned int uLow = g_aHexValues[static_cast<unsigned char>(text[2 * i + 1])];
        unsigned int uByte = 0;
        if (uHigh <= 0x0FU)
            uByte = uLow <= 0x0FU ? uHigh << 4U | uLow : uHigh;
        pBytes[i] = static_cast<unsigned char>(uByte);
    }
}

void cdsAddText(CParamsX& list, const std::string& sText)
{
    (void)list.addParam(sText, 3.14F); // a refused element is left out of the list and stands in the trace log
}
void cdsAddLong(CParamsX& list, std::int32_t lValue)
{
    list.addParam(static_cast<long>(lValue));
}
void cdsAddBool(CParamsX& list, bool bValue)
{
    list.addParam(static_cast<int>(bValue));
}
void cdsAddU64(CParamsX& list, unsigned long long ullValue)
{
    list.addParam(ullValue);
}
void cdsAddBytes(CParamsX& list, const unsigned char* pData, int nSize)
{
    list.addParam(const_cast<unsigned char*>(pData), nSize); // read only; the interface's type lacks the const
}
