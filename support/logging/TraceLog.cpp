#include "TraceLog.h"

#include "BackgroundThread.h"
#include "Configuration.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>
#include <system_error>

#include <pthread.h>
#include <spdlog/details/os.h>
#include <unistd.h>

namespace {
/// All trace logs there are, and where new ones go. Never destroyed: a log may outlive the statics.
struct CTraceLogs
{
    std::mutex mtx;
    std::set<CTraceLog*> setLogs;
    std::string sDirectory = ".";
};

CTraceLogs& traceLogs()
{
    static CTraceLogs* const pLogs = new CTraceLogs;
    return *pLogs;
}

/// Lines wait a moment in their queue; at the end of the process nobody else would see to them.
__attribute__((destructor)) void flushAtExit()
{
    CTraceLog::flushAll();
}

std::string pathOf(const std::string& sName, bool bCreate)
{
    CTraceLogs& logs = traceLogs();
    const std::lock_guard lock(logs.mtx);
    // A name is no path, and a directory that is missing is a mistake: spdlog would make it.
    if (sName.empty() || sName.front() == '.' || sName.find('/') != std::string::npos)
        throw std::system_error(EINVAL, std::generic_category());
    if (!std::filesystem::is_directory(logs.sDirectory))
        throw std::system_error(ENOENT, std::generic_category());
    const auto path = std::filesystem::absolute(logs.sDirectory) / (sName + ".log");
    if (!bCreate && !std::filesystem::exists(path))
        throw std::system_error(ENOENT, std::generic_category());
    return path.string();
}
} // namespace

CTraceLog::CTraceLog(const std::string& sName, bool bCreate)
    : m_sink(pathOf(sName, bCreate), CLogSettings{}), m_tpLooked(std::chrono::steady_clock::now())
{
    {
        const std::lock_guard lock(traceLogs().mtx);
        traceLogs().setLogs.insert(this);
    }
    try
    {
        m_thread = std::thread(&CTraceLog::run, this);
    }
    catch (...)
    {
        const std::lock_guard lock(traceLogs().mtx);
        traceLogs().setLogs.erase(this);
        throw;
    }
}

CTraceLog::~CTraceLog()
{
    {
        const std::lock_guard lock(traceLogs().mtx); // after this nobody asks it to flush or to reopen
        traceLogs().setLogs.erase(this);
    }
    m_queue.stop();
    m_thread.join();
}

void CTraceLog::apply(const CLogSettings& settings)
{
    m_bEnabled.store(settings.dwEnabled != 0);
    m_dwPriorityMask.store(settings.dwPriorityMask);
    // A line does not carry its level, so any level that is meant for the console brings all lines there.
    m_dwConsolePriorityMask.store(settings.dwConsoleTraceMask != 0 ? settings.dwConsolePriorityMask : 0);
    m_queue.setLimits(settings.dwQueueLines, settings.dwDropWhenFull != 0);
    {
        const std::lock_guard lock(m_mtx);
        m_optNewSettings = settings;
    }
    m_queue.wake();
}

bool CTraceLog::enabled(int nPriority) const noexcept
{
    return m_bEnabled.load(std::memory_order_relaxed) &&
           (static_cast<std::uint32_t>(nPriority) & m_dwPriorityMask.load(std::memory_order_relaxed)) != 0;
}

void CTraceLog::write(int nPriority, std::string_view sText) noexcept
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto dwConsole = m_dwConsolePriorityMask.load(std::memory_order_relaxed);
    m_queue.push(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count(),
                 static_cast<std::uint32_t>(spdlog::details::os::thread_id()),
                 (static_cast<std::uint32_t>(nPriority) & dwConsole) != 0, sText);
}

CLogQueue::CTimePoint CTraceLog::nextLook() const
{
    if (m_settings.dwFollowConfiguration == 0 || !CConfiguration::get().hasFile())
        return CLogQueue::CTimePoint::max(); // chosen later, it is read in that moment, and new settings wake us
    return m_tpLooked + std::chrono::milliseconds(std::max(m_settings.dwFollowIntervalMs, 10U));
}

void CTraceLog::follow()
{
    if (std::chrono::steady_clock::now() < nextLook())
        return;
    std::string sError;
    if (CConfiguration::get().rereadIfChanged(&sError) < 0)
    {
        m_sink.note("The configuration stays as it was. " + sError);
        m_queue.wake();
    }
    m_tpLooked = std::chrono::steady_clock::now();
}

namespace {

/// Writing a log must not end the process: what memory or the system refuses is dropped.
template <class TStep> void orDrop(TStep step) noexcept
{
    try
    {
        step();
    }
    catch (...) // there is no other log to tell
    {
    }
}

} // namespace

void CTraceLog::store(const CLogQueue::CBatch& batch)
{
    {
        const std::lock_guard lock(m_mtx);
        if (m_optNewSettings)
            m_settings = *m_optNewSettings;
        m_optNewSettings.reset();
    }
    m_sink.apply(m_settings);
    m_sink.write(batch);
    if (batch.reopen())
        m_bReopened.store(m_sink.reopen());
}

void CTraceLog::run()
{
    (void)pthread_setname_np(pthread_self(), "CDSTraceLog"); // a name is a convenience
    serveInBackground();
    CLogQueue::CBatch batch;
    do
    {
        m_queue.collect(&batch, nextLook());
        orDrop([&] { store(batch); });
        m_queue.complete(batch); // whatever became of its lines: others may wait for it
        orDrop([&] { follow(); });
    }
    while (!batch.stop());
}

void CTraceLog::setDirectory(const std::string& sDirectory)
{
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(sDirectory, error);
    const std::lock_guard lock(traceLogs().mtx);
    traceLogs().sDirectory = error ? sDirectory : path.string();
}

bool CTraceLog::reopenAll()
{
    const std::lock_guard lock(traceLogs().mtx);
    bool bAll = true;
    for (CTraceLog* const pLog : traceLogs().setLogs)
    {
        pLog->m_queue.request(true);
        bAll = pLog->m_bReopened.load() && bAll;
    }
    return bAll;
}

void CTraceLog::flushAll()
{
    const std::lock_guard lock(traceLogs().mtx);
    for (CTraceLog* const pLog : traceLogs().setLogs)
        if (pLog->m_nProcess == ::getpid()) // a forked process has the log, but not the thread that writes it
            pLog->m_queue.request(false);
}
