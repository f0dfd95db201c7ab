#pragma once

#include "CDSAPI.h"
#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSStoreTables.h"
#include "CDSTraceText.h"
#include "CPortable.h"

#include <cstdint>

// What the sources of the store share.

/// Measures a store operation and warns when it took 300 ms or more.
class CSlowWarning
{
public:
    /// @param pszOperation  a literal
    explicit CSlowWarning(const char* pszOperation) noexcept
        : m_pszOperation(pszOperation), m_ullStart(CPortable::GetTickCountULL())
    {
    }
    ~CSlowWarning()
    {
        const auto dwTook = static_cast<std::uint32_t>(CPortable::GetTickCountULL() - m_ullStart);
        if (dwTook > 299)
            CCDSLogging::log(CCDSLogging::level_error, "(Warning) CCDSAPI::%s: took %d ms", m_pszOperation,
                             cdsInt(dwTook));
    }
    CSlowWarning(const CSlowWarning&) = delete;
    CSlowWarning& operator=(const CSlowWarning&) = delete;

private:
    const char* const m_pszOperation;
    const std::uint64_t m_ullStart;
};
