#pragma once

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

/// A formatted text: short ones, which nearly all lines are, without a heap allocation.
class CFormattedText
{
public:
    /// Formats as vprintf does. Empty when the format is broken or memory runs out.
    CFormattedText(const char* pszFormat, va_list args) noexcept __attribute__((format(printf, 2, 0)));

    /// Formats as vwprintf does, into UTF-8. After a conversion error, what was formatted before it.
    CFormattedText(const wchar_t* pszFormat, va_list args) noexcept;

    std::string_view text() const noexcept { return m_sText; }

private:
    static constexpr std::size_t cShort = 1024;
    char m_szShort[cShort];
    std::string m_sLong;
    std::string_view m_sText; // lies in one of the two
};

/// UTF-8 for a wide text, by the code points alone: the process's locale has no say. What is no character becomes the
/// replacement character.
std::string utf8Of(std::wstring_view sWide);

/// Whether the text holds control characters other than the tabulator: of ASCII, or U+0080 to U+009F in UTF-8.
bool hasControls(std::string_view sText) noexcept;

/// The text with its control characters but the tabulator written as "\n", "\r" or "\x1b", so that one line stays
/// one and a terminal that shows it obeys no part of it.
std::string escaped(std::string_view sText);
