#pragma once

#include "LogQueue.h"
#include "LogSettings.h"
#include "LogSink.h"

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include <unistd.h>

/// A trace log: the queue, the files, and the thread between them, which also looks after the configuration file.
///
/// Threads    construction and destruction apart, any.
/// Errors     the constructor throws std::exception when the file cannot be opened or the thread not started.
class CTraceLog
{
public:
    /// Makes the log "<sName>.log" in the directory chosen for logs.
    CTraceLog(const std::string& sName, bool bCreate);
    /// Returns when all lines are with the system.
    ~CTraceLog();
    CTraceLog(const CTraceLog&) = delete;
    CTraceLog& operator=(const CTraceLog&) = delete;

    void apply(const CLogSettings& settings);
    bool enabled(int nPriority) const noexcept;
    void write(int nPriority, std::string_view sText) noexcept;

    static void setDirectory(const std::string& sDirectory);
    /// For every log there is. False when one cannot be opened.
    static bool reopenAll();
    static void flushAll();

private:
    void run();
    void store(const CLogQueue::CBatch& batch);
    CLogQueue::CTimePoint nextLook() const;
    void follow();

    // Read on every line.
    std::atomic<bool> m_bEnabled{true};
    std::atomic<std::uint32_t> m_dwPriorityMask{0x3FF};
    std::atomic<std::uint32_t> m_dwConsolePriorityMask{0}; // 0 when no level goes to the console

    CLogQueue m_queue;
    std::mutex m_mtx;
    std::optional<CLogSettings> m_optNewSettings; // guarded by m_mtx: not taken over by the writer yet
    std::atomic<bool> m_bReopened{true};          // outcome of the last reopening

    // The writer's alone, once it runs.
    CLogSink m_sink;
    CLogSettings m_settings;
    CLogQueue::CTimePoint m_tpLooked;

    const pid_t m_nProcess = ::getpid();
    std::thread m_thread;
};
