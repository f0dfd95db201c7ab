#pragma once

#include "CDSResults.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <string>

/// A result code by its name, for failing tests.
inline std::string resultName(long lResult)
{
    switch (static_cast<std::int32_t>(lResult))
    {
    case 0: return "0";
    case static_cast<std::int32_t>(E_FAIL): return "E_FAIL";
    case static_cast<std::int32_t>(E_OUTOFMEMORY): return "E_OUTOFMEMORY";
    case static_cast<std::int32_t>(E_CDS_OUTOFMEMORY): return "E_CDS_OUTOFMEMORY";
    case static_cast<std::int32_t>(E_CDS_NOTFOUND): return "E_CDS_NOTFOUND";
    case static_cast<std::int32_t>(E_CDS_EXISTS): return "E_CDS_EXISTS";
    case static_cast<std::int32_t>(E_CDS_NULLDATA): return "E_CDS_NULLDATA";
    default: break;
    }
    char szText[16];
    (void)std::snprintf(szText, sizeof szText, "0x%08X", static_cast<unsigned int>(lResult));
    return szText;
}

MATCHER(IsOk, "succeeds")
{
    *result_listener << resultName(arg);
    return arg == 0;
}

MATCHER_P(FailsWith, lCode, (negation ? "does not fail with " : "fails with ") + resultName(lCode))
{
    *result_listener << resultName(arg);
    return arg == lCode && arg < 0;
}
