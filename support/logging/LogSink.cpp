#include "LogSink.h"

#include "LogText.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <spdlog/fmt/fmt.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace {
/// A stamp's date and time. Lines of one second share it: formatting it for each costs more than all the rest.
constexpr char cPattern[] = "%Y-%m-%d %H:%M:%S";

/// Lines are joined to blocks of about so many bytes, or of a small file's eighth: the sink looks at its file's size
/// once per block.
constexpr std::size_t cBlock = 64U << 10;

/// Lets blocks through as they are: their lines are formatted already.
class CRawFormatter : public spdlog::formatter
{
public:
    void format(const spdlog::details::log_msg& msg, spdlog::memory_buf_t& dest) override
    {
        dest.append(msg.payload.data(), msg.payload.data() + msg.payload.size());
    }
    std::unique_ptr<formatter> clone() const override { return std::make_unique<CRawFormatter>(); }
};

std::size_t maxFileBytes(const CLogSettings& settings)
{
    return std::size_t{std::clamp(settings.dwMaxFileKB, 1U, 1U << 21)} * 1024;
}

/// Call data is nobody's business: a new file is for its owner and group.
void restrictNewFile(const spdlog::filename_t& /*sName*/, std::FILE* pFile)
{
    struct stat status = {};
    if (fstat(fileno(pFile), &status) == 0 && status.st_size == 0)
        (void)fchmod(fileno(pFile), status.st_mode & 0640U); // never wider than the process's own mask allows
}

void append(spdlog::memory_buf_t& buffer, std::string_view sText)
{
    buffer.append(sText.data(), sText.data() + sText.size());
}
} // namespace

CLogSink::CLogSink(std::string sPath, const CLogSettings& settings) : m_sPath(std::move(sPath)), m_settings(settings)
{
    apply(settings);
    open();
}

void CLogSink::apply(const CLogSettings& settings)
{
    const bool bFilesChanged =
        settings.dwMaxFiles != m_settings.dwMaxFiles || settings.dwMaxFileKB != m_settings.dwMaxFileKB;
    if (!m_pFormatter || settings.dwUtc != m_settings.dwUtc)
    {
        const auto eTime = settings.dwUtc != 0 ? spdlog::pattern_time_type::utc : spdlog::pattern_time_type::local;
        m_pFormatter = std::make_unique<spdlog::pattern_formatter>(cPattern, eTime, "");
        m_llSecond = -1;
    }
    m_settings = settings;
    m_uBlockLimit = std::min(cBlock, maxFileBytes(settings) / 8);
    if (bFilesChanged && m_pFile)
        (void)reopen(); // a failure is told when the next line is lost
}

void CLogSink::open()
{
    // The sink tries several times and sleeps in between; whoever makes a log may be a thread that serves calls.
    const int nFile = ::open(m_sPath.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    if (nFile < 0)
        throw std::system_error(errno, std::generic_category());
    (void)::close(nFile);
    spdlog::file_event_handlers handlers;
    handlers.after_open = restrictNewFile;
    // The sink counts the files beside the one being written.
    const std::size_t uOlderFiles = std::clamp(m_settings.dwMaxFiles, 1U, 1000U) - 1;
    m_pFile = std::make_unique<spdlog::sinks::rotating_file_sink_st>(m_sPath, maxFileBytes(m_settings), uOlderFiles,
                                                                     false, handlers);
    m_pFile->set_formatter(std::make_unique<CRawFormatter>());
}

bool CLogSink::reopen() noexcept
{
    m_pFile.reset();
    try
    {
        open();
        return true;
    }
    catch (const std::exception&)
    {
        return false;
    }
}

void CLogSink::note(std::string_view sText)
{
    m_sNotes = std::string(sText);
}

void CLogSink::addStamp(std::int64_t llStampNs, std::uint32_t dwThread)
{
    constexpr std::int64_t cNsPerSecond = 1'000'000'000;
    if (llStampNs / cNsPerSecond != m_llSecond)
    {
        m_llSecond = llStampNs / cNsPerSecond;
        m_bufSecond.clear();
        const spdlog::log_clock::time_point tpSecond{std::chrono::seconds(m_llSecond)};
        m_pFormatter->format({tpSecond, {}, {}, spdlog::level::info, {}}, m_bufSecond);
    }
    append(m_bufBlock, {m_bufSecond.data(), m_bufSecond.size()});
    // Seven digits, of which the first makes room for leading zeros: the point takes its place.
    fmt::format_int microseconds(1'000'000 + llStampNs % cNsPerSecond / 1000);
    const std::size_t uPoint = m_bufBlock.size();
    append(m_bufBlock, {microseconds.data(), microseconds.size()});
    m_bufBlock[uPoint] = '.';
    append(m_bufBlock, " [");
    const fmt::format_int thread(dwThread);
    append(m_bufBlock, {thread.data(), thread.size()});
    append(m_bufBlock, "] ");
}

void CLogSink::addLine(std::int64_t llStampNs, std::uint32_t dwThread, std::string_view sText)
{
    const std::size_t uBefore = m_bufBlock.size();
    addStamp(llStampNs, dwThread);
    if (hasControls(sText))
        append(m_bufBlock, escaped(sText));
    else
        append(m_bufBlock, sText);
    m_bufBlock.push_back('\n');
    if (uBefore == 0 || m_bufBlock.size() <= m_uBlockLimit)
    {
        ++m_uBlockLines;
        return;
    }
    const std::string sLine(m_bufBlock.data() + uBefore, m_bufBlock.size() - uBefore);
    m_bufBlock.resize(uBefore);
    (void)store(); // what is lost is counted
    m_bufBlock.append(sLine.data(), sLine.data() + sLine.size());
    m_uBlockLines = 1;
}

bool CLogSink::store()
{
    if (m_bufBlock.size() == 0)
        return true;
    bool bStored = true;
    try
    {
        if (!m_pFile)
            open();
        m_pFile->log({{}, spdlog::level::info, {m_bufBlock.data(), m_bufBlock.size()}});
        m_pFile->flush();
        m_bTrouble = false;
    }
    catch (const std::exception& error)
    {
        m_pFile.reset(); // a sink that failed while it rotated has no file, and does not look
        lose(m_uBlockLines, error.what());
        bStored = false;
    }
    m_bufBlock.clear();
    m_uBatchLeft -= std::exchange(m_uBlockLines, 0);
    return bStored;
}

void CLogSink::lose(std::size_t uLines, const char* pszWhy) noexcept
{
    if (!m_bTrouble) // once per trouble, and for those who do not read this log
        syslog(LOG_WARNING, "%s: trace lines are lost: %s", m_sPath.c_str(), pszWhy);
    m_bTrouble = true;
    m_ullLost += uLines;
}

/// Stores the log's own lines, in a block of their own: they are said again until they are stored.
void CLogSink::storeNotes()
{
    if (m_ullLost == 0 && m_ullDropped == 0 && m_sNotes.empty())
        return;
    const std::int64_t llNow =
        std::chrono::duration_cast<std::chrono::nanoseconds>(spdlog::log_clock::now().time_since_epoch()).count();
    if (m_ullLost > 0)
        addLine(llNow, 0, std::to_string(m_ullLost) + " lines could not be stored");
    if (m_ullDropped > 0)
        addLine(llNow, 0, std::to_string(m_ullDropped) + " lines were dropped: the queue was full");
    if (!m_sNotes.empty())
        addLine(llNow, 0, m_sNotes);
    m_uBlockLines = 0; // they are not the batch's
    if (!store())
        return;
    m_ullLost = m_ullDropped = 0;
    m_sNotes.clear();
}

void CLogSink::write(const CLogQueue::CBatch& batch) noexcept
{
    m_ullDropped += batch.dropped();
    m_uBatchLeft = batch.lines();
    try
    {
        storeNotes();
        batch.forEach([this](const CLogQueue::CHeader& header, std::string_view sText) {
            addLine(header.llStampNs, header.dwThread, sText);
            if (header.bConsole)
                m_sConsole += escaped(sText) + '\n';
        });
        (void)store(); // what is lost is counted
        if (!m_sConsole.empty())
            (void)!::write(STDERR_FILENO, m_sConsole.data(), m_sConsole.size()); // nobody to tell
        m_sConsole.clear();
    }
    catch (const std::exception& error) // out of memory
    {
        lose(m_uBatchLeft, error.what());
        m_bufBlock.clear();
        m_uBlockLines = 0;
    }
}
