#pragma once

#include <array>
#include <cstdint>
#include <cstring>

// How values look in trace lines and texts.

/// An object's identity as "0x%08X" prints it: the low 32 bits of its address.
inline unsigned int cdsIdentity(const void* pObject) noexcept
{
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pObject));
}

/// A result, handle or number as "0x%08X" prints it: its low 32 bits.
inline unsigned int cdsCode(long lValue) noexcept
{
    return static_cast<unsigned int>(static_cast<unsigned long>(lValue));
}
inline unsigned int cdsCode(unsigned long ulValue) noexcept
{
    return static_cast<unsigned int>(ulValue);
}

/// A number as "%d" prints it: its low 32 bits, signed.
inline int cdsInt(unsigned long long ullValue) noexcept
{
    return static_cast<int>(static_cast<std::uint32_t>(ullValue));
}

/// The byte itself when it is printable ASCII, else a dot. By range: no locale has a say.
inline char cdsPrintable(unsigned char byte) noexcept
{
    return byte >= 0x20 && byte <= 0x7E ? static_cast<char>(byte) : '.';
}

/// Upper-case digit of a value from 0 to 15.
inline char cdsHexDigit(unsigned int uValue) noexcept
{
    return "0123456789ABCDEF"[uValue & 0x0FU];
}

/// A trace label fitted into exactly 22 characters: cut, or padded with blanks.
class CFittedLabel
{
public:
    explicit CFittedLabel(const char* pszLabel) noexcept
    {
        m_szText.fill(' ');
        std::memcpy(m_szText.data(), pszLabel, strnlen(pszLabel, cLength));
        m_szText[cLength] = '\0';
    }
    const char* text() const noexcept { return m_szText.data(); }

private:
    static constexpr std::size_t cLength = 22;
    std::array<char, cLength + 1> m_szText;
};
