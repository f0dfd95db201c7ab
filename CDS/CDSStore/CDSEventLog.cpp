// Reports to the system's event log.

#include "CDSEventLog.h"

#include "CDSResults.h"

#include <cstdlib>

using KRLogLib::CLogFile;

namespace {

std::uint32_t eventCode(unsigned long ulEventID)
{
    return static_cast<std::uint32_t>(ulEventID);
}
std::uint32_t eventCode(long lEventID)
{
    return static_cast<std::uint32_t>(static_cast<unsigned long>(lEventID));
}
std::uint16_t stringCount(unsigned long ulCount)
{
    return static_cast<std::uint16_t>(ulCount);
}

CLogFile::RE_SEVERITY severityOf(int nSeverity)
{
    switch (nSeverity)
    {
    case 1: return CLogFile::re_information;
    case 2: return CLogFile::re_warning;
    default: return nSeverity > 2 ? CLogFile::re_error : CLogFile::re_none;
    }
}

} // namespace

CEventLogHelp::CEventLogHelp(const char* /*pszSource*/, EFacility /*eFacility*/, ESeverity /*eSeverity*/)
{
    (void)Init(); // always 0
}

CEventLogHelp::~CEventLogHelp()
{
    (void)Uninit(); // always 0
}

long CEventLogHelp::Init()
{
    m_pEventLog = std::make_unique<CLogFile>("OvnNTLog", nullptr, false, true, true);
    m_bInitialized = true;
    return 0;
}

long CEventLogHelp::Uninit()
{
    m_pEventLog.reset();
    return 0;
}

long CEventLogHelp::LogEvent(ESeverity eSeverity, EFacility /*eFacility*/, unsigned long ulEventID,
                             unsigned long ulCount, const char** ppszA, const wchar_t** ppszW,
                             unsigned long bWide) const
{
    const CLogFile::RE_SEVERITY eLibrary = severityOf(eSeverity);
    if (bWide != 0)
        return m_pEventLog->ReportEventToWIN32LogX(eventCode(ulEventID), stringCount(ulCount), 0, ppszW, nullptr,
                                                   eLibrary);
    return m_pEventLog->ReportEventToWIN32LogX(eventCode(ulEventID), stringCount(ulCount), 0, ppszA, nullptr, eLibrary);
}

long CEventLogHelp::LogEventA(long lEventID, unsigned long ulCount, const char** ppsz) const
{
    return LogEvent(severity_none, facility_none, eventCode(lEventID), ulCount, ppsz, nullptr, 0);
}

long CEventLogHelp::LogEventW(long lEventID, unsigned long ulCount, const wchar_t** ppsz) const
{
    return LogEvent(severity_none, facility_none, eventCode(lEventID), ulCount, nullptr, ppsz, 1);
}

long CEventLogHelp::LogEvent(unsigned long ulEventID, unsigned long ulCount, const char** ppsz) const
{
    return LogEvent(severity_none, facility_none, ulEventID, ulCount, ppsz, nullptr, 0);
}

long CEventLogHelp::LogEventStrA(unsigned long ulEventID, unsigned long ulCount, const char** ppsz) const
{
    return m_pEventLog->ReportEventToWIN32Log(eventCode(ulEventID), stringCount(ulCount), 0, ppsz, nullptr);
}

template <class TChar> long CEventLogHelp::logList(unsigned long ulEventID, unsigned long ulCount, va_list args) const
{
    using CText = const TChar*;
    if (ulCount == 0)
        return m_pEventLog->ReportEventToWIN32Log(eventCode(ulEventID), 0, 0, static_cast<CText*>(nullptr), nullptr);
    if (ulCount > SIZE_MAX / sizeof(CText))
        return E_OUTOFMEMORY;
    const std::unique_ptr<CText, decltype(&std::free)> pTexts(static_cast<CText*>(std::malloc(ulCount * sizeof(CText))),
                                                              &std::free);
    if (pTexts == nullptr)
        return E_OUTOFMEMORY;
    for (unsigned long i = 0; i < ulCount; ++i)
        pTexts.get()[i] = va_arg(args, CText);
    return m_pEventLog->ReportEventToWIN32Log(eventCode(ulEventID), stringCount(ulCount), 0, pTexts.get(), nullptr);
}

long CEventLogHelp::LogEventVLA(unsigned long ulEventID, unsigned long ulCount, va_list args) const
{
    return logList<char>(ulEventID, ulCount, args);
}

long CEventLogHelp::LogEventVLW(unsigned long ulEventID, unsigned long ulCount, va_list args) const
{
    return logList<wchar_t>(ulEventID, ulCount, args);
}

long CEventLogHelp::LogEventVA(long lEventID, unsigned long ulCount, ...) const
{
    va_list args;
    va_start(args, ulCount);
    const long lResult = LogEventVLA(eventCode(lEventID), ulCount, args);
    va_end(args);
    return lResult;
}

long CEventLogHelp::LogEventVW(long lEventID, unsigned long ulCount, ...) const
{
    va_list args;
    va_start(args, ulCount);
    const long lResult = LogEventVLW(eventCode(lEventID), ulCount, args);
    va_end(args);
    return lResult;
}

long CEventLogHelp::LogEventV(long lEventID, unsigned long ulCount, ...) const
{
    va_list args;
    va_start(args, ulCount);
    const long lResult = LogEventVLW(eventCode(lEventID), ulCount, args);
    va_end(args);
    return lResult;
}

long CEventLogHelp::LogSwitchEvent(unsigned long ulEventID, EVENT_TYPE eType, unsigned long ulCount,
                                   const char** ppsz) const
{
    CLogFile::RE_SEVERITY eSeverity = CLogFile::re_none;
    switch (static_cast<int>(eType))
    {
    case 0:
    case 1: return 0;
    case event_information: eSeverity = CLogFile::re_information; break;
    case event_warning: eSeverity = CLogFile::re_warning; break;
    case event_error: eSeverity = CLogFile::re_error; break;
    default: break;
    }
    return m_pEventLog->ReportEventToWIN32LogX(eventCode(ulEventID), stringCount(ulCount), 0, ppsz, nullptr, eSeverity);
}
