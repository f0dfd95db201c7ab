// Trace lines, from the thread that says them until they are in the file: processor time of all threads that have a
// part in it, through the store's trace log and by the logging library alone, on one thread, with the same files.

#include "CDSSupport.h"
#include "KRLogLib.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

using KRLogLib::CLogFile;
using KRLogLib::CLogFileRegistry;

constexpr int cLines = 100'000; // ten times what the queue holds, a dozen files
constexpr unsigned long cFiles = 100;
constexpr unsigned long cFileKB = 1000;
constexpr char cFormat[] = "CCDSNetProxy::updateCallDataDistribution, call = %s, ipaddr 0x%08X";
constexpr unsigned int cAddress = 0x7F000001;

/// Processor seconds of this process so far, all threads.
double cpuSeconds()
{
    timespec now{};
    (void)clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now); // every Linux has it
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

void setTime(benchmark::State& state, double dBefore)
{
    state.SetIterationTime(cpuSeconds() - dBefore);
}

void setLines(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * cLines);
}

__attribute__((format(printf, 2, 3))) void say(CLogFile& log, const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    log.LogStringArgListX(CLogFile::priority_all, nullptr, pszFormat, args);
    va_end(args);
}

void BM_Trace_Line(benchmark::State& state)
{
    const std::string sCallID = SampleCall::callID(1);
    CLogFile log("TraceBench", nullptr, false, true, false);
    // As the store's own log has it when nothing is configured.
    const CLogFileRegistry registry(&log, "Orvane", "TraceBench", nullptr, nullptr, 0, 1, cFiles, cFileKB, 3, 1023, 0,
                                    1023, 0, 10'000, 0, 1, 40'000, 1, 0);
    for (auto _ : state)
    {
        const double dBefore = cpuSeconds();
        for (int i = 0; i < cLines; ++i)
            say(log, cFormat, sCallID.c_str(), cAddress);
        CDSSupport::flushLogs();
        setTime(state, dBefore);
    }
    setLines(state);
}
BENCHMARK(BM_Trace_Line)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_Trace_Spdlog(benchmark::State& state)
{
    const std::string sCallID = SampleCall::callID(1);
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("cds-spdlog-" + std::to_string(getpid()));
    {
        spdlog::logger log("bare", std::make_shared<spdlog::sinks::rotating_file_sink_st>(directory / "bare.log",
                                                                                          cFileKB * 1024, cFiles - 1));
        log.set_pattern("%Y-%m-%d %H:%M:%S.%f [%t] %v", spdlog::pattern_time_type::utc);
        for (auto _ : state)
        {
            const double dBefore = cpuSeconds();
            for (int i = 0; i < cLines; ++i)
            {
                char szLine[256];
                const int nLength = std::snprintf(szLine, sizeof szLine, cFormat, sCallID.c_str(), cAddress);
                log.info(std::string_view(szLine, static_cast<std::size_t>(nLength)));
            }
            log.flush();
            setTime(state, dBefore);
        }
    }
    std::filesystem::remove_all(directory);
    setLines(state);
}
BENCHMARK(BM_Trace_Spdlog)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
