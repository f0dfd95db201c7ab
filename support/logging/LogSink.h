#pragma once

#include "LogQueue.h"
#include "LogSettings.h"

#include <memory>
#include <string>
#include <string_view>

#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/rotating_file_sink.h>

/// The files of a trace log: lines stamped, joined to blocks, and handed to spdlog's rotating file sink.
///
/// Threads    made on any thread, then the writer's alone.
/// Errors     the constructor throws spdlog::spdlog_ex; afterwards lines that cannot be stored are counted, and the
///            log and the system's log are told.
class CLogSink
{
public:
    CLogSink(std::string sPath, const CLogSettings& settings);

    /// Takes over what concerns the files.
    void apply(const CLogSettings& settings);

    /// Stores the lines and hands them to the system before it returns.
    void write(const CLogQueue::CBatch& batch) noexcept;

    /// Adds a line of the log's own, stored with the next batch.
    void note(std::string_view sText);

    /// Opens the file anew under its name. False when that fails: tried again with each batch.
    bool reopen() noexcept;

private:
    void open();
    void addStamp(std::int64_t llStampNs, std::uint32_t dwThread);
    void addLine(std::int64_t llStampNs, std::uint32_t dwThread, std::string_view sText);
    void storeNotes();
    bool store();
    void lose(std::size_t uLines, const char* pszWhy) noexcept;

    const std::string m_sPath;
    CLogSettings m_settings;
    std::unique_ptr<spdlog::sinks::rotating_file_sink_st> m_pFile; // null while it cannot be opened
    std::unique_ptr<spdlog::pattern_formatter> m_pFormatter;       // of stamps, down to the second
    std::int64_t m_llSecond = -1;                                  // which m_bufSecond shows
    spdlog::memory_buf_t m_bufSecond;
    spdlog::memory_buf_t m_bufBlock; // formatted lines that are not stored yet
    std::size_t m_uBlockLines = 0;   // of the batch, among them
    std::size_t m_uBatchLeft = 0;    // the batch's lines that are neither stored nor counted as lost
    std::size_t m_uBlockLimit = 0;
    std::string m_sConsole;
    std::string m_sNotes;
    // What the log has not been told yet.
    std::uint64_t m_ullLost = 0;
    std::uint64_t m_ullDropped = 0;
    bool m_bTrouble = false; // since the last success; the system's log knows
};
