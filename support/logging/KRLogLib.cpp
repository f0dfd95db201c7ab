#include "KRLogLib.h"

#include "Configuration.h"
#include "KRException.h"
#include "LogText.h"
#include "OperatorEvents.h"
#include "SupportResults.h"
#include "TraceLog.h"
#include "TraceMask.h"

#include <new>

namespace KRLogLib {
struct CLogFile::CState
{
    CTraceMask& mask;
    std::unique_ptr<CTraceLog> pTrace; // null for a log of operator events
};

CLogFile::CLogFile(const char* pszName, const char* /*pszSecondName*/, bool /*bAppendOnly*/, bool bCreate, bool bEvents)
{
    try
    {
        const std::string sName = pszName ? pszName : "";
        m_pState = std::make_unique<CState>(CState{CTraceMask::of(sName), nullptr});
        if (!bEvents)
            m_pState->pTrace = std::make_unique<CTraceLog>(sName, bCreate);
    }
    catch (const std::bad_alloc&)
    {
        throw KRException(E_SUPPORT_MEMORY, "support/logging/KRLogLib", __LINE__);
    }
    catch (const std::exception&) // the file, or the thread that writes it
    {
        throw KRException(E_SUPPORT_SYSTEM, "support/logging/KRLogLib", __LINE__);
    }
}

CLogFile::~CLogFile() = default;

const std::atomic<std::uint32_t>& CLogFile::traceMask() const noexcept
{
    return m_pState->mask.word();
}

bool CLogFile::IsTraceable(int nPriority) const noexcept
{
    return m_pState->pTrace && m_pState->pTrace->enabled(nPriority);
}

void CLogFile::LogStringArgListX(int nPriority, const char* /*pszReserved*/, const char* pszFormat,
                                 va_list args) noexcept
{
    if (!IsTraceable(nPriority))
        return;
    const CFormattedText line(pszFormat, args);
    m_pState->pTrace->write(nPriority, line.text());
}

void CLogFile::LogStringArgListX(int nPriority, const wchar_t* /*pszReserved*/, const wchar_t* pszFormat,
                                 va_list args) noexcept
{
    if (!IsTraceable(nPriority))
        return;
    const CFormattedText line(pszFormat, args);
    m_pState->pTrace->write(nPriority, line.text());
}

long CLogFile::ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t /*wCategory*/,
                                     const char** ppszStrings, const void* /*pRawData*/) noexcept
{
    return reportOperatorEvent(dwEventID, wCount, ppszStrings, re_none);
}

long CLogFile::ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t /*wCategory*/,
                                     const wchar_t** ppszStrings, const void* /*pRawData*/) noexcept
{
    return reportOperatorEvent(dwEventID, wCount, ppszStrings, re_none);
}

long CLogFile::ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t /*wCategory*/,
                                      const char** ppszStrings, const void* /*pRawData*/,
                                      RE_SEVERITY eSeverity) noexcept
{
    return reportOperatorEvent(dwEventID, wCount, ppszStrings, eSeverity);
}

long CLogFile::ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t /*wCategory*/,
                                      const wchar_t** ppszStrings, const void* /*pRawData*/,
                                      RE_SEVERITY eSeverity) noexcept
{
    return reportOperatorEvent(dwEventID, wCount, ppszStrings, eSeverity);
}

struct CLogFileRegistry::CState
{
    CLogFile::CState& log;
    CConfiguration::CPath path;
    CLogSettings defaults;
    CConfiguration::CListener listener{};

    /// Takes over what is configured, and the defaults for the rest.
    void apply() const
    {
        CLogSettings settings = defaults;
        const auto fnRead = [this](const char* pszName, std::uint32_t* pdwValue) {
            const auto optValue = CConfiguration::get().query(path, pszName);
            if (optValue && std::holds_alternative<std::uint32_t>(*optValue))
                *pdwValue = std::get<std::uint32_t>(*optValue);
        };
        fnRead("LogEnabled", &settings.dwEnabled);
        fnRead("LogMaxFiles", &settings.dwMaxFiles);
        fnRead("LogMaxFileKB", &settings.dwMaxFileKB);
        fnRead("LogTraceMask", &settings.dwTraceMask);
        fnRead("LogPriorityMask", &settings.dwPriorityMask);
        fnRead("LogConsoleTraceMask", &settings.dwConsoleTraceMask);
        fnRead("LogConsolePriorityMask", &settings.dwConsolePriorityMask);
        fnRead("LogDropWhenFull", &settings.dwDropWhenFull);
        fnRead("LogQueueLines", &settings.dwQueueLines);
        fnRead("LogFollowConfiguration", &settings.dwFollowConfiguration);
        fnRead("LogFollowIntervalMs", &settings.dwFollowIntervalMs);
        fnRead("LogUtc", &settings.dwUtc);
        log.mask.configure(settings.dwTraceMask);
        if (log.pTrace)
            log.pTrace->apply(settings);
    }
};

CLogFileRegistry::CLogFileRegistry(CLogFile* pLog, const char* pszKey, const char* pszSubKey,
                                   const char* /*pszReserved1*/, const char* /*pszReserved2*/,
                                   unsigned long /*ulDestination*/, unsigned long ulEnabled, unsigned long ulMaxFiles,
                                   unsigned long ulMaxFileKB, unsigned long ulTraceMask, unsigned long ulPriorityMask,
                                   unsigned long ulConsoleTraceMask, unsigned long ulConsolePriorityMask,
                                   unsigned long ulDropWhenFull, unsigned long ulQueueLines,
                                   unsigned long /*ulReserved3*/, unsigned long ulFollowConfiguration,
                                   unsigned long ulFollowIntervalMs, unsigned long ulUtc, unsigned long /*ulReserved4*/)
{
    const auto fnNarrow = [](unsigned long ulValue) { return static_cast<std::uint32_t>(ulValue); };
    CLogSettings defaults;
    defaults.dwEnabled = fnNarrow(ulEnabled);
    defaults.dwMaxFiles = fnNarrow(ulMaxFiles);
    defaults.dwMaxFileKB = fnNarrow(ulMaxFileKB);
    defaults.dwTraceMask = fnNarrow(ulTraceMask);
    defaults.dwPriorityMask = fnNarrow(ulPriorityMask);
    defaults.dwConsoleTraceMask = fnNarrow(ulConsoleTraceMask);
    defaults.dwConsolePriorityMask = fnNarrow(ulConsolePriorityMask);
    defaults.dwDropWhenFull = fnNarrow(ulDropWhenFull);
    defaults.dwQueueLines = fnNarrow(ulQueueLines);
    defaults.dwFollowConfiguration = fnNarrow(ulFollowConfiguration);
    defaults.dwFollowIntervalMs = fnNarrow(ulFollowIntervalMs);
    defaults.dwUtc = fnNarrow(ulUtc);
    try
    {
        m_pState = std::make_unique<CState>(CState{*pLog->m_pState, {pszKey, pszSubKey}, defaults});
        m_pState->listener = CConfiguration::get().subscribe([pState = m_pState.get()] { pState->apply(); });
    }
    catch (const std::bad_alloc&)
    {
        throw KRException(E_SUPPORT_MEMORY, "support/logging/KRLogLib", __LINE__);
    }
}

CLogFileRegistry::~CLogFileRegistry()
{
    CConfiguration::get().unsubscribe(m_pState->listener);
    m_pState->log.mask.unbind();
}
} // namespace KRLogLib
