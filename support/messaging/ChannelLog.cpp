#include "ChannelLog.h"

#include "KRException.h"

#include <algorithm>
#include <cstdarg>

namespace Messaging {
namespace {
constexpr char cLogName[] = "CDSMessaging";
constexpr std::uint32_t cLevel = 1;
} // namespace

std::shared_ptr<CChannelLog> CChannelLog::get()
{
    static std::mutex s_mtx;
    static std::weak_ptr<CChannelLog> s_pLog;
    const std::lock_guard lock(s_mtx);
    std::shared_ptr<CChannelLog> pLog = s_pLog.lock();
    if (!pLog)
    {
        pLog = std::make_shared<CChannelLog>();
        s_pLog = pLog;
    }
    return pLog;
}

CChannelLog::CChannelLog() : m_lines{100, 10, 100, CClock::now()}, m_events{10, 0.2, 10, CClock::now()}
{
    try
    {
        m_pEvents = std::make_unique<KRLogLib::CLogFile>("OvnNTLog", nullptr, false, true, true);
        m_pLog = std::make_unique<KRLogLib::CLogFile>(cLogName, nullptr, false, true, false);
        m_pSettings = std::make_unique<KRLogLib::CLogFileRegistry>(
            m_pLog.get(), "Orvane\\CDS", "Messaging", nullptr, nullptr, 0, 1, 4, 4096, cLevel,
            KRLogLib::CLogFile::priority_all, 0, 0, 1, 4096, 0, 1, 10'000, 1, 0);
    }
    catch (const KRException&) // channels work without
    {
        m_pLog.reset();
    }
}

bool CChannelLog::CAllowance::take()
{
    const CClock::time_point tpNow = CClock::now();
    dLeft = std::min(dMost, dLeft + dPerSecond * std::chrono::duration<double>(tpNow - tpLast).count());
    tpLast = tpNow;
    if (dLeft < 1)
    {
        ++ullLeftOut;
        return false;
    }
    --dLeft;
    return true;
}

void CChannelLog::line(const std::string& sText) noexcept
{
    std::uint64_t ullLeftOut = 0;
    {
        const std::lock_guard lock(m_mtx);
        if (!m_lines.take())
            return;
        std::swap(ullLeftOut, m_lines.ullLeftOut);
    }
    if (ullLeftOut != 0)
        write("%llu lines left out", static_cast<unsigned long long>(ullLeftOut));
    write("%s", sText.c_str());
}

void CChannelLog::dumpLine(const std::string& sText) noexcept
{
    write("%s", sText.c_str());
}

void CChannelLog::event(std::uint32_t dwEventID, KRLogLib::CLogFile::RE_SEVERITY eSeverity,
                        const std::string& sText) noexcept
{
    line(sText);
    {
        const std::lock_guard lock(m_mtx);
        if (!m_events.take())
            return;
    }
    const char* pszText = sText.c_str();
    if (m_pEvents)
        (void)m_pEvents->ReportEventToWIN32LogX(dwEventID, 1, 0, &pszText, nullptr, eSeverity); // nobody to tell
}

void CChannelLog::write(const char* pszFormat, ...) noexcept
{
    if (!m_pLog || (m_pLog->traceMask().load(std::memory_order_relaxed) & cLevel) == 0)
        return;
    va_list args;
    va_start(args, pszFormat);
    m_pLog->LogStringArgListX(KRLogLib::CLogFile::priority_all, nullptr, pszFormat, args);
    va_end(args);
}

} // namespace Messaging
