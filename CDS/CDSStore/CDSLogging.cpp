// The trace log: its life, the level test, the writers and the dump line.

#include "CDSLogging.h"

#include "CDSResults.h"
#include "CDSTraceText.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>

using KRLogLib::CLogFile;
using KRLogLib::CLogFileRegistry;

CLogFile* CCDSLogging::pCDSLog = nullptr;
CLogFileRegistry* CCDSLogging::pCDSLogReg = nullptr;

namespace {

/// Guards the log's existence: writers of lines share it, making and deleting the log excludes them. A leaf: nothing of
/// the store is called under it. Never destroyed, since records may be traced by the host's last destructors.
std::shared_mutex& logGuard()
{
    // In storage of its own: the first line of a process may come when there is no memory.
    alignas(std::shared_mutex) static std::byte s_storage[sizeof(std::shared_mutex)];
    static auto* const pGuard = new (s_storage) std::shared_mutex;
    return *pGuard;
}

/// The present log's mask, null while there is no log. The word itself outlives the log, so testing a level needs no
/// lock: this is all that a trace line costs while its level is off.
std::atomic<const std::atomic<std::uint32_t>*> g_pTraceMask = nullptr;

} // namespace

void CCDSLogging::initLogger() noexcept
{
    const std::unique_lock lock(logGuard());
    if (pCDSLog != nullptr)
        return;
    try
    {
        auto pLog = std::make_unique<CLogFile>("OvnCDS", nullptr, false, true, false);
        auto pRegistry =
            std::make_unique<CLogFileRegistry>(pLog.get(), "Orvane", "CDS", nullptr, nullptr, 0UL, 1UL, 100UL, 1000UL,
                                               3UL, 1023UL, 0UL, 1023UL, 0UL, 10000UL, 0UL, 1UL, 40000UL, 1UL, 0UL);
        pCDSLog = pLog.release();
        pCDSLogReg = pRegistry.release();
        g_pTraceMask.store(&pCDSLog->traceMask(), std::memory_order_release);
    }
    catch (...) // there is nowhere to report that the log itself cannot be made
    {
        pCDSLog = nullptr;
    }
}

void CCDSLogging::finalizeLogger() noexcept
{
    const std::unique_lock lock(logGuard());
    g_pTraceMask.store(nullptr, std::memory_order_release);
    delete pCDSLogReg;
    pCDSLogReg = nullptr;
    delete pCDSLog;
    pCDSLog = nullptr;
}

bool CCDSLogging::isLevelOn(unsigned long ulLevel) noexcept
{
    const auto* pMask = g_pTraceMask.load(std::memory_order_acquire);
    if (pMask == nullptr)
    {
        initLogger();
        pMask = g_pTraceMask.load(std::memory_order_acquire);
    }
    return pMask != nullptr && (pMask->load(std::memory_order_relaxed) & ulLevel) != 0;
}

bool CCDSLogging::checkTraceLevel(unsigned long ulLevel) noexcept
{
    if (!isLevelOn(ulLevel))
        return false;
    const std::shared_lock lock(logGuard());
    return pCDSLog != nullptr && pCDSLog->IsTraceable(CLogFile::priority_all);
}

void CCDSLogging::CDSDbgOutX(unsigned long ulLevel, const char* pszFormat, va_list args) noexcept
{
    if (!isLevelOn(ulLevel) || pszFormat == nullptr)
        return;
    const std::shared_lock lock(logGuard());
    if (pCDSLog != nullptr)
        pCDSLog->LogStringArgListX(CLogFile::priority_all, nullptr, pszFormat, args);
}

void CCDSLogging::CDSDbgOutX(unsigned long ulLevel, const wchar_t* pszFormat, va_list args) noexcept
{
    if (!isLevelOn(ulLevel) || pszFormat == nullptr)
        return;
    const std::shared_lock lock(logGuard());
    if (pCDSLog != nullptr)
        pCDSLog->LogStringArgListX(CLogFile::priority_all, nullptr, pszFormat, args);
}

void CCDSLogging::log(unsigned long ulLevel, const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(ulLevel, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logError(const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(level_error, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logWarning(const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(level_warning, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logInfo(const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(level_info, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logAlways(const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(level_always, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logTimePlusWarning(const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(level_warning, pszFormat, args);
    va_end(args);
}

void CCDSLogging::CDSDbgOut(unsigned long ulLevel, const char* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(ulLevel, pszFormat, args);
    va_end(args);
}

void CCDSLogging::CDSDbgOut(unsigned long ulLevel, const wchar_t* pszFormat, ...) noexcept
{
    va_list args;
    va_start(args, pszFormat);
    CDSDbgOutX(ulLevel, pszFormat, args);
    va_end(args);
}

void CCDSLogging::logHRESULT(long hr, const char* pszFormat, ...) noexcept
{
    const long lResult = cdsResult(static_cast<unsigned long>(hr));
    if (lResult >= 0 || pszFormat == nullptr)
        return;
    char szText[256] = "";
    char szLine[512] = "";
    va_list args;
    va_start(args, pszFormat);
    (void)std::vsnprintf(szText, sizeof szText, pszFormat, args); // a cut text is meant, here and below
    va_end(args);
    (void)std::snprintf(szLine, sizeof szLine, "(Error) %s failed: 0x%08X", szText, cdsCode(lResult));
    log(level_error, "%s", szLine);
}

void CCDSLogging::hexascii(const unsigned char* pData, int nLen, char* pszOut, int nOutSize) noexcept
{
    constexpr int cLine = 52;
    constexpr int cBytes = 16;
    constexpr int cHexColumn = 18;
    if (nOutSize <= cLine)
    {
        if (nOutSize > 0)
            *pszOut = '\0';
        return;
    }
    std::memset(pszOut, ' ', cLine);
    pszOut[cLine] = '\0';
    if (pData == nullptr || nLen <= 0)
        return;
    const int nBytes = std::min(nLen, cBytes);
    char* pHex = pszOut + cHexColumn;
    for (int i = 0; i < nBytes; ++i)
    {
        pszOut[i] = cdsPrintable(pData[i]);
        *pHex++ = cdsHexDigit(pData[i] >> 4U);
        *pHex++ = cdsHexDigit(pData[i] & 0x0FU);
    }
    *pHex = '\0';
}
