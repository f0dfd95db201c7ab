#include "OperatorEvents.h"

#include "KRLogLib.h"
#include "LogText.h"
#include "SupportResults.h"

#include <cstdio>
#include <new>
#include <string>

#include <syslog.h>

namespace {
int priorityOf(int nSeverity)
{
    switch (nSeverity)
    {
    case KRLogLib::CLogFile::re_error: return LOG_ERR;
    case KRLogLib::CLogFile::re_warning: return LOG_WARNING;
    default: return LOG_INFO;
    }
}

std::string textOf(const char* pszText)
{
    return pszText ? pszText : "";
}

std::string textOf(const wchar_t* pszText)
{
    return pszText ? utf8Of(pszText) : "";
}

template <typename Character>
long report(std::uint32_t dwEventID, std::uint16_t wCount, const Character* const* ppszStrings, int nSeverity) noexcept
{
    try
    {
        std::string sStrings;
        for (std::uint16_t w = 0; ppszStrings && w < wCount; ++w)
            sStrings += (w == 0 ? ": " : ", ") + textOf(ppszStrings[w]);
        syslog(priorityOf(nSeverity), "event 0x%08X%s", dwEventID, escaped(sStrings).c_str());
        return 0;
    }
    catch (const std::bad_alloc&)
    {
        return E_SUPPORT_MEMORY;
    }
}
} // namespace

long reportOperatorEvent(std::uint32_t dwEventID, std::uint16_t wCount, const char* const* ppszStrings,
                         int nSeverity) noexcept
{
    return report(dwEventID, wCount, ppszStrings, nSeverity);
}

long reportOperatorEvent(std::uint32_t dwEventID, std::uint16_t wCount, const wchar_t* const* ppszStrings,
                         int nSeverity) noexcept
{
    return report(dwEventID, wCount, ppszStrings, nSeverity);
}
