// What the code under test sees of the fake log.
#include "AllocationPause.h"
#include "FakeLives.h"
#include "FakeLocks.h"
#include "FakeLogState.h"
#include "KRLogLib.h"

#include <cstdio>
#include <cstdlib>
#include <cwchar>

namespace {
std::string formatted(const char* pszFormat, va_list args) __attribute__((format(printf, 1, 0)));

std::string formatted(const char* pszFormat, va_list args)
{
    va_list argsAgain;
    va_copy(argsAgain, args);
    const int nLength = std::vsnprintf(nullptr, 0, pszFormat, args);
    std::string sText(nLength < 0 ? 0 : static_cast<std::size_t>(nLength), '\0');
    (void)std::vsnprintf(sText.data(), sText.size() + 1, pszFormat, argsAgain); // measured a moment ago
    va_end(argsAgain);
    return sText;
}

std::string toUtf8(const std::wstring& sWide)
{
    std::string sText;
    for (const wchar_t cWide : sWide)
    {
        const auto u = static_cast<std::uint32_t>(cWide);
        if (u > 0x10FFFFU || (u >= 0xD800U && u < 0xE000U))
        {
            sText += "\xEF\xBF\xBD"; // no character: the replacement character
            continue;
        }
        const int nFollowing = u < 0x80U ? 0 : u < 0x800U ? 1 : u < 0x10000U ? 2 : 3;
        static constexpr unsigned char cLead[] = {0x00, 0xC0, 0xE0, 0xF0};
        sText += static_cast<char>(cLead[nFollowing] | (u >> (6 * nFollowing)));
        for (int nByte = nFollowing - 1; nByte >= 0; --nByte)
            sText += static_cast<char>(0x80U | ((u >> (6 * nByte)) & 0x3FU));
    }
    return sText;
}

std::string formatted(const wchar_t* pszFormat, va_list args)
{
    wchar_t* pszText = nullptr;
    std::size_t uLength = 0;
    std::FILE* pFile = open_wmemstream(&pszText, &uLength);
    if (!pFile)
        return {};
    (void)std::vfwprintf(pFile, pszFormat, args); // what was formatted before an error is kept
    (void)std::fclose(pFile);
    const std::string sText = toUtf8(std::wstring(pszText, uLength));
    std::free(pszText);
    return sText;
}

std::string text(const char* pszText)
{
    return pszText ? pszText : "";
}
} // namespace

namespace KRLogLib {
struct CLogFile::CState
{
    std::string sName;
    CFakeLogState::CMask* pMask;
    bool bEnabled = true;     // guarded by CFakeLogState::mtx
    int nPriorityMask = 1023; // guarded by CFakeLogState::mtx

    bool traceable(CFakeLogState& log, int nPriority) const
    {
        return log.optTraceable.value_or(bEnabled && (nPriority & nPriorityMask) != 0);
    }

    long report(CFakeLog::CEvent event) const
    {
        CFakeLogState& log = CFakeLogState::get();
        const std::lock_guard lock(log.mtx);
        event.sLog = sName;
        log.vecEvents.push_back(std::move(event));
        return log.lReportResult;
    }
};

namespace {
CFakeLog::CEvent makeEvent(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                           const char** ppszStrings, const void* pRawData)
{
    CFakeLog::CEvent event;
    event.dwEventID = dwEventID;
    event.wCount = wCount;
    event.wCategory = wCategory;
    event.bStringsNull = ppszStrings == nullptr;
    event.pRawData = pRawData;
    for (std::uint16_t w = 0; ppszStrings && w < wCount; ++w)
        event.vecStrings.push_back(text(ppszStrings[w]));
    return event;
}

CFakeLog::CEvent makeEvent(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                           const wchar_t** ppszStrings, const void* pRawData)
{
    CFakeLog::CEvent event = makeEvent(dwEventID, wCount, wCategory, static_cast<const char**>(nullptr), pRawData);
    event.bWide = true;
    event.bStringsNull = ppszStrings == nullptr;
    for (std::uint16_t w = 0; ppszStrings && w < wCount; ++w)
    {
        event.vecWide.emplace_back(ppszStrings[w] ? ppszStrings[w] : L"");
        event.vecStrings.push_back(toUtf8(event.vecWide.back()));
    }
    return event;
}

CFakeLog::CLine makeLine(const std::string& sLog, std::string sText, int nPriority, bool bReservedNull, bool bWide)
{
    CFakeLog::CLine line;
    line.sLog = sLog;
    line.sText = std::move(sText);
    line.nPriority = nPriority;
    line.bWide = bWide;
    line.bReservedNull = bReservedNull;
    line.idThread = std::this_thread::get_id();
    line.vecLocks = CFakeLocks::heldByThisThread();
    line.uLives = CFakeLives::count();
    return line;
}

CFakeLog::CEvent withSeverity(CFakeLog::CEvent event, CLogFile::RE_SEVERITY eSeverity)
{
    event.bSeverity = true;
    event.nSeverity = eSeverity;
    return event;
}
} // namespace

CLogFile::CLogFile(const char* pszName, const char* pszSecondName, bool bAppendOnly, bool bCreate, bool bEvents)
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    log.logConstruction.enter();
    const std::lock_guard lock(log.mtx);
    m_pState = std::make_unique<CState>();
    m_pState->sName = text(pszName);
    m_pState->pMask = &log.mask(m_pState->sName);
    log.vecCreations.push_back({text(pszName), pszSecondName == nullptr, bAppendOnly, bCreate, bEvents});
    CFakeLives::note("CLogFile " + m_pState->sName);
    ++log.uLogsAlive;
}

CLogFile::~CLogFile()
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    CFakeLives::note("~CLogFile " + m_pState->sName);
    --log.uLogsAlive;
}

const std::atomic<std::uint32_t>& CLogFile::traceMask() const noexcept
{
    return m_pState->pMask->dwMask;
}

bool CLogFile::IsTraceable(int nPriority) const noexcept
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    log.vecTraceableQueries.push_back(nPriority);
    return m_pState->traceable(log, nPriority);
}

void CLogFile::LogStringArgListX(int nPriority, const char* pszReserved, const char* pszFormat, va_list args) noexcept
{
    CAllocationPause pause;
    CFakeLog::CLine line =
        makeLine(m_pState->sName, formatted(pszFormat, args), nPriority, pszReserved == nullptr, false);
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    line.bStored = m_pState->traceable(log, nPriority);
    log.vecLines.push_back(std::move(line));
}

void CLogFile::LogStringArgListX(int nPriority, const wchar_t* pszReserved, const wchar_t* pszFormat,
                                 va_list args) noexcept
{
    CAllocationPause pause;
    CFakeLog::CLine line =
        makeLine(m_pState->sName, formatted(pszFormat, args), nPriority, pszReserved == nullptr, true);
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    line.bStored = m_pState->traceable(log, nPriority);
    log.vecLines.push_back(std::move(line));
}

long CLogFile::ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                     const char** ppszStrings, const void* pRawData) noexcept
{
    CAllocationPause pause;
    return m_pState->report(makeEvent(dwEventID, wCount, wCategory, ppszStrings, pRawData));
}

long CLogFile::ReportEventToWIN32Log(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                     const wchar_t** ppszStrings, const void* pRawData) noexcept
{
    CAllocationPause pause;
    return m_pState->report(makeEvent(dwEventID, wCount, wCategory, ppszStrings, pRawData));
}

long CLogFile::ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                      const char** ppszStrings, const void* pRawData, RE_SEVERITY eSeverity) noexcept
{
    CAllocationPause pause;
    return m_pState->report(withSeverity(makeEvent(dwEventID, wCount, wCategory, ppszStrings, pRawData), eSeverity));
}

long CLogFile::ReportEventToWIN32LogX(std::uint32_t dwEventID, std::uint16_t wCount, std::uint16_t wCategory,
                                      const wchar_t** ppszStrings, const void* pRawData, RE_SEVERITY eSeverity) noexcept
{
    CAllocationPause pause;
    return m_pState->report(withSeverity(makeEvent(dwEventID, wCount, wCategory, ppszStrings, pRawData), eSeverity));
}

struct CLogFileRegistry::CState
{
    std::string sLog;
};

CLogFileRegistry::CLogFileRegistry(CLogFile* pLog, const char* pszKey, const char* pszSubKey, const char* pszReserved1,
                                   const char* pszReserved2, unsigned long ulDestination, unsigned long ulEnabled,
                                   unsigned long ulMaxFiles, unsigned long ulMaxFileKB, unsigned long ulTraceMask,
                                   unsigned long ulPriorityMask, unsigned long ulConsoleTraceMask,
                                   unsigned long ulConsolePriorityMask, unsigned long ulDropWhenFull,
                                   unsigned long ulQueueLines, unsigned long ulReserved3,
                                   unsigned long ulFollowConfiguration, unsigned long ulFollowIntervalMs,
                                   unsigned long ulUtc, unsigned long ulReserved4)
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    log.registryConstruction.enter();
    const std::lock_guard lock(log.mtx);
    CLogFile::CState& bound = *pLog->m_pState;
    m_pState = std::make_unique<CState>(CState{bound.sName});
    bound.bEnabled = ulEnabled != 0;
    bound.nPriorityMask = static_cast<int>(ulPriorityMask);
    bound.pMask->dwBound = static_cast<std::uint32_t>(ulTraceMask);
    if (!bound.pMask->bOverridden)
        bound.pMask->dwMask.store(bound.pMask->dwBound);
    log.vecRegistries.push_back({bound.sName,
                                 text(pszKey),
                                 text(pszSubKey),
                                 pszReserved1 == nullptr,
                                 pszReserved2 == nullptr,
                                 {ulDestination, ulEnabled, ulMaxFiles, ulMaxFileKB, ulTraceMask, ulPriorityMask,
                                  ulConsoleTraceMask, ulConsolePriorityMask, ulDropWhenFull, ulQueueLines, ulReserved3,
                                  ulFollowConfiguration, ulFollowIntervalMs, ulUtc, ulReserved4}});
    CFakeLives::note("CLogFileRegistry " + bound.sName);
    ++log.uRegistriesAlive;
}

CLogFileRegistry::~CLogFileRegistry()
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    log.mask(m_pState->sLog).dwBound = 0;
    CFakeLives::note("~CLogFileRegistry " + m_pState->sLog);
    --log.uRegistriesAlive;
}
} // namespace KRLogLib
