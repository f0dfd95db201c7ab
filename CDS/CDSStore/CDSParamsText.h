#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class CParamsX;

// How the elements of a parameter list are read from text, shared by CParamsX and by readers of nested lists.

/// What a malformed list is reported with: the code of E_FAIL, 32 bits wide on every ABI.
[[noreturn]] void cdsThrowParseFailure();

/// A decimal number as strtol reads it on a 32-bit system: blanks and a sign in front, digits as far as they go, values
/// beyond 32 bits clamped, no digits 0.
std::int32_t cdsReadLong(std::string_view text) noexcept;
/// As strtoull reads it.
unsigned long long cdsReadU64(std::string_view text);

/// One element of a text.
struct SParamElement
{
    std::int64_t llLength; // as written, never negative; it may run past the end of the text
    long lPrefixLength;    // digits and semicolon
};

/// The element whose length prefix begins at a position.
///
/// @throws unsigned long  when no semicolon follows the position or one stands there
SParamElement cdsElementAt(std::string_view text, std::int64_t llPos);

/// The characters of the element at a position, cut at the end of the text.
std::string_view cdsElementText(std::string_view text, std::int64_t llPos);

/// Characters of the text's header, its semicolon included; 0 when there is none.
std::size_t cdsHeaderLength(std::string_view text) noexcept;

/// Bytes from pairs of hexadecimal digits, in a new buffer from malloc; null and size 0 for less than a pair. A pair
/// that is not hexadecimal reads as far as it is. *pnSize is set also when the buffer could not be allocated.
unsigned char* cdsReadBytes(std::string_view text, int* pnSize) noexcept;
/// The same into the caller's room for cdsByteCount bytes.
void cdsReadBytesInto(std::string_view text, unsigned char* pBytes) noexcept;
inline std::size_t cdsByteCount(std::string_view text) noexcept
{
    return text.size() / 2;
}

/// The first elements of an encoded text, read in place: what CParamsX gives for a nested list, without a copy of it.
/// The whole text is walked, so it is malformed for this reader exactly when it is for CParamsX.
template <int nElements> class CParamsHead
{
public:
    explicit CParamsHead(std::string_view text)
    {
        const auto llSize = static_cast<std::int64_t>(text.size());
        for (auto llPos = static_cast<std::int64_t>(cdsHeaderLength(text)); llPos < llSize;)
        {
            const SParamElement element = cdsElementAt(text, llPos);
            const std::int64_t llBegin = llPos + element.lPrefixLength;
            if (m_nCount < nElements)
                m_aElements[static_cast<std::size_t>(m_nCount++)] =
                    text.substr(static_cast<std::size_t>(llBegin), static_cast<std::size_t>(element.llLength));
            llPos = llBegin + element.llLength + 1;
        }
    }

    /// Empty when the text has no such element.
    std::string_view at(int nIndex) const noexcept { return m_aElements[static_cast<std::size_t>(nIndex)]; }
    std::int32_t longAt(int nIndex) const noexcept { return cdsReadLong(at(nIndex)); }

private:
    std::array<std::string_view, nElements> m_aElements;
    int m_nCount = 0;
};

// The overloads of CParamsX::addParam are easily mistaken for each other: an int is a truth value, and which of them a
// fixed-width type picks depends on the ABI. The library adds through these names only.

void cdsAddText(CParamsX& list, const std::string& sText);
void cdsAddLong(CParamsX& list, std::int32_t lValue);
void cdsAddBool(CParamsX& list, bool bValue);
void cdsAddU64(CParamsX& list, unsigned long long ullValue);
void cdsAddBytes(CParamsX& list, const unsigned char* pData, int nSize);
