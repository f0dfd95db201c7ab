#pragma once

#include "CPExport.h"

#include <cstdint>
#include <cstdio>

/// What the support operations throw when the system refuses them, and the store when an object cannot be made.
///
/// Holds its text itself, so that throwing one needs no memory beyond the exception.
class CP_API KRException
{
public:
    /// Longest location text, the terminator not counted.
    static constexpr int cMaxLocation = 270;

    /// @param lCode      negative result code
    /// @param pszSource  source path without its extension
    /// @param nLine      source line; the location reads "path.line", cut at cMaxLocation characters
    KRException(long lCode, const char* pszSource, int nLine) noexcept
        : m_lCode(static_cast<std::int32_t>(static_cast<std::uint32_t>(lCode)))
    {
        (void)std::snprintf(m_szLocation, sizeof m_szLocation, "%s.%d", pszSource, nLine); // a cut text is meant
    }

    /// The code, negative on every ABI.
    long code() const noexcept { return m_lCode; }
    const char* location() const noexcept { return m_szLocation; }

private:
    long m_lCode;
    char m_szLocation[cMaxLocation + 1];
};
