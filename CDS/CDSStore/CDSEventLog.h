#pragma once

#include "KRLogLib.h"

#include <cstdarg>
#include <cstdint>
#include <memory>

/// Reports events that operators shall see to the system's event log: a code and insertion texts.
///
/// Threads    reports may come from any thread.
/// Ownership  texts are used during the call only.
/// Errors     reports return the log's result unchanged, or E_OUTOFMEMORY when the array of an argument list could not
///            be allocated; nothing is reported then. After Uninit nothing may be reported.
class CEventLogHelp
{
public:
    enum ESeverity : int
    {
        severity_none = 0,
        severity_information = 1,
        severity_warning = 2,
        severity_error = 3
    };
    enum EFacility : int
    {
        facility_none = -1
    };
    enum EVENT_TYPE : int
    {
        event_information = 2, ///< types 0 and 1 are not reported
        event_warning = 3,
        event_error = 4
    };

    /// The arguments are not used: the source is always the one that Init names.
    CEventLogHelp(const char* pszSource, EFacility eFacility, ESeverity eSeverity);
    ~CEventLogHelp();
    CEventLogHelp(const CEventLogHelp&) = delete;
    CEventLogHelp& operator=(const CEventLogHelp&) = delete;

    /// Makes the log. 0; throws KRException when it cannot be made.
    long Init();
    /// Deletes it. 0.
    long Uninit();
    bool isInitialized() const noexcept { return m_bInitialized; }

    /// With a severity: 1, 2, 3 for 1, 2, 3 and above, else 0. The facility is not used.
    ///
    /// @param bWide  not 0: the wide texts are taken
    long LogEvent(ESeverity eSeverity, EFacility eFacility, unsigned long ulEventID, unsigned long ulCount,
                  const char** ppszA, const wchar_t** ppszW, unsigned long bWide) const;

    // With severity 0.
    long LogEventA(long lEventID, unsigned long ulCount, const char** ppsz) const;
    long LogEventW(long lEventID, unsigned long ulCount, const wchar_t** ppsz) const;
    long LogEvent(unsigned long ulEventID, unsigned long ulCount, const char** ppsz) const;

    // Without severity.
    long LogEventStrA(unsigned long ulEventID, unsigned long ulCount, const char** ppsz) const;
    /// ulCount narrow, or wide, texts from the caller's list. All are read; the count passed on is cut to 16 bits.
    long LogEventVLA(unsigned long ulEventID, unsigned long ulCount, va_list args) const;
    long LogEventVLW(unsigned long ulEventID, unsigned long ulCount, va_list args) const;
    long LogEventVA(long lEventID, unsigned long ulCount, ...) const;
    long LogEventVW(long lEventID, unsigned long ulCount, ...) const;
    /// The unsuffixed form is the wide one, deliberately.
    long LogEventV(long lEventID, unsigned long ulCount, ...) const;

    /// Types 0 and 1 report nothing and return 0; 2, 3, 4 have severity 1, 2, 3, any above 0.
    long LogSwitchEvent(unsigned long ulEventID, EVENT_TYPE eType, unsigned long ulCount, const char** ppsz) const;

private:
    template <class TChar> long logList(unsigned long ulEventID, unsigned long ulCount, va_list args) const;

    bool m_bInitialized = false;
    std::unique_ptr<KRLogLib::CLogFile> m_pEventLog; // null after Uninit
};
