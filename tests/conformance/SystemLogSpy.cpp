#include "SystemLogSpy.h"

#include <cstdarg>
#include <cstdio>

namespace {
std::mutex s_mtx;
std::vector<std::pair<int, std::string>> s_vecMessages; // guarded by s_mtx

void spy(int nPriority, const char* pszFormat, va_list args) __attribute__((format(printf, 2, 0)));

void spy(int nPriority, const char* pszFormat, va_list args)
{
    char szText[4096];
    (void)std::vsnprintf(szText, sizeof szText, pszFormat, args); // no test says more
    CSystemLogSpy::add(nPriority, szText);
}
} // namespace

std::vector<std::pair<int, std::string>> CSystemLogSpy::messages()
{
    const std::lock_guard lock(s_mtx);
    return s_vecMessages;
}

void CSystemLogSpy::clear()
{
    const std::lock_guard lock(s_mtx);
    s_vecMessages.clear();
}

void CSystemLogSpy::add(int nPriority, std::string sText)
{
    const std::lock_guard lock(s_mtx);
    s_vecMessages.emplace_back(nPriority, std::move(sText));
}

// Declared here and not by <syslog.h>, whose inline forms would get in the way when the build fortifies the library.
extern "C" {
void syslog(int nPriority, const char* pszFormat, ...) __attribute__((format(printf, 2, 3)));
void __syslog_chk(int nPriority, int nFlag, const char* pszFormat, ...) __attribute__((format(printf, 3, 4)));
}

void syslog(int nPriority, const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    spy(nPriority, pszFormat, args);
    va_end(args);
}

void __syslog_chk(int nPriority, int /*nFlag*/, const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    spy(nPriority, pszFormat, args);
    va_end(args);
}
