// Updates from one server to another, each a process of its own: how many a second, how late, for how much processor
// time and memory; and the same work done over bare sockets, and by a general-purpose server with a replica, in the
// same run.

#include "BareContender.h"
#include "Board.h"
#include "CDSVersion.h"
#include "StoreContender.h"
#if CDS_BENCH_REDIS
#include "RedisContender.h"
#endif

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#ifdef CDS_HAVE_JEMALLOC
#include <jemalloc/jemalloc.h>
#else
#include <malloc.h>
#endif
#include <map>
#include <new>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr std::chrono::microseconds cPoll{200};
constexpr std::chrono::microseconds cPace{500}; // between two timed updates
constexpr std::chrono::seconds cStepLimit{120};

using CMakeContender = std::function<std::unique_ptr<CContender>(CBoard&, const CPlan&)>;

struct CFigures
{
    double dUpdatesPerSecond = 0;
    double dCpuSecondsPerMillion = 0;
    double dMedianUs = 0;
    double d99Us = 0;
    double d999Us = 0;
    double dWatchSeconds = 0;
    double dOwnerBytes = 0;
    double dSharedBytes = 0; // more at the owner for each call that is watched
    double dWatcherBytes = 0;
};

template <class TCondition> void await(const CBoard& board, TCondition fnCondition, const char* pszWhat)
{
    const auto limit = std::chrono::steady_clock::now() + cStepLimit;
    while (!fnCondition())
    {
        if (board.bFailed || std::chrono::steady_clock::now() > limit)
            throw std::runtime_error(std::string("no end of: ") + pszWhat);
        std::this_thread::sleep_for(cPoll);
    }
}

void awaitStep(const CBoard& board, CBoard::EStep eStep)
{
    await(
        board, [&] { return board.dwStep >= eStep; }, "the step before");
}

void sendPaced(CBoard& board, const CPlan& plan, CContender& contender)
{
    auto next = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < plan.ullPaced; ++i)
    {
        std::this_thread::sleep_until(next += cPace);
        contender.update(i % plan.ullCalls, {CUpdateMark::now(), i + 1});
        contender.flush();
    }
    await(
        board, [&] { return board.ullArrived >= plan.ullPaced; }, "the timed updates");
}

void sendFlood(CBoard& board, const CPlan& plan, CContender& contender)
{
    for (std::uint64_t i = 0; i < plan.ullFlood; ++i)
    {
        if (i >= board.ullArrived.load(std::memory_order_relaxed) + plan.ullMostUnderWay)
        {
            contender.flush();
            await(
                board, [&] { return i < board.ullArrived + plan.ullMostUnderWay / 2; }, "the updates under way");
        }
        contender.update(i % plan.ullCalls, {CUpdateMark::now(), i + 1});
    }
    contender.flush();
    await(
        board, [&] { return board.ullArrived >= plan.ullFlood; }, "the updates");
}

void playOwner(CBoard& board, const CPlan& plan, CContender& contender)
{
    contender.startOwner();
    board.ullOwnerEmpty = contender.bytesInUse();
    board.dwOwnerDone = CBoard::step_start + 1;
    awaitStep(board, CBoard::step_fill);
    for (std::uint64_t i = 0; i < plan.ullCalls; ++i)
        contender.update(i, {0, 0});
    contender.flush();
    board.ullOwnerFull = contender.bytesInUse();
    board.dwOwnerDone = CBoard::step_fill + 1;
    awaitStep(board, CBoard::step_pace); // the watcher has all of them
    board.ullOwnerShared = contender.bytesInUse();
    sendPaced(board, plan, contender);
    board.dwOwnerDone = CBoard::step_pace + 1;
    awaitStep(board, CBoard::step_flood);
    sendFlood(board, plan, contender);
    board.dwOwnerDone = CBoard::step_flood + 1;
    awaitStep(board, CBoard::step_end);
}

void playWatcher(CBoard& board, const CPlan& /*plan*/, CContender& contender)
{
    await(
        board, [&] { return board.dwOwnerDone > CBoard::step_start; }, "the owner's start");
    contender.startWatcher();
    board.ullWatcherEmpty = contender.bytesInUse();
    board.dwWatcherDone = CBoard::step_start + 1;
    awaitStep(board, CBoard::step_watch);
    contender.watchAll();
    board.dwWatcherDone = CBoard::step_watch + 1;
    awaitStep(board, CBoard::step_pace);
    board.ullWatcherFull = contender.bytesInUse();
    awaitStep(board, CBoard::step_end);
}

/// Processor seconds of a process so far, all threads.
double cpuSeconds(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string sText;
    std::getline(file, sText);
    std::istringstream fields(sText.substr(sText.rfind(')') + 2));
    std::string sField;
    double dTicks = 0;
    for (int nField = 3; fields >> sField; ++nField)
        if (nField == 14 || nField == 15) // user and system time
            dTicks += std::stod(sField);
    return dTicks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double quantileUs(const CBoard& board, double dPart)
{
    std::vector<std::uint32_t> vecSamples;
    for (std::uint64_t i = 0; i < std::min<std::uint64_t>(board.ullSamples, CBoard::cMostSamples); ++i)
        vecSamples.push_back(board.aNanoseconds[i]);
    std::sort(vecSamples.begin(), vecSamples.end());
    if (vecSamples.empty())
        return 0;
    return vecSamples[static_cast<std::size_t>(dPart * static_cast<double>(vecSamples.size() - 1))] / 1000.0;
}

/// One measurement: two processes, and the servers that they use.
class CRun
{
public:
    CRun(const CPlan& plan, CMakeContender fnMake, std::vector<pid_t> vecServers)
        : m_plan(plan), m_fnMake(std::move(fnMake)), m_vecProcesses(std::move(vecServers))
    {
        void* const pMemory = mmap(nullptr, sizeof(CBoard), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (pMemory == MAP_FAILED)
            throw std::runtime_error("no shared memory");
        m_pBoard = new (pMemory) CBoard;
    }
    ~CRun()
    {
        m_pBoard->dwStep = CBoard::step_end;
        for (const pid_t pid : m_vecChildren)
            waitpid(pid, nullptr, 0);
        munmap(m_pBoard, sizeof(CBoard));
    }
    CRun(const CRun&) = delete;
    CRun& operator=(const CRun&) = delete;

    CFigures measure()
    {
        CFigures figures;
        CBoard& board = *m_pBoard;
        play(playOwner);
        play(playWatcher);
        await(
            board, [&] { return board.dwWatcherDone > CBoard::step_start; }, "the watcher's start");
        proceed(CBoard::step_fill);
        await(
            board, [&] { return board.dwOwnerDone > CBoard::step_fill; }, "the first data");

        const auto tpWatch = std::chrono::steady_clock::now();
        proceed(CBoard::step_watch);
        await(
            board, [&] { return board.ullFirst >= m_plan.ullCalls || !m_plan.bFirstStates; }, "the first states");
        figures.dWatchSeconds = secondsSince(tpWatch);
        await(
            board, [&] { return board.dwWatcherDone > CBoard::step_watch; }, "the registrations");

        proceed(CBoard::step_pace);
        await(
            board, [&] { return board.dwOwnerDone > CBoard::step_pace; }, "the timed updates");
        figures.dMedianUs = quantileUs(board, 0.5);
        figures.d99Us = quantileUs(board, 0.99);
        figures.d999Us = quantileUs(board, 0.999);

        const double dCpu = cpu();
        const auto tpFlood = std::chrono::steady_clock::now();
        proceed(CBoard::step_flood);
        await(
            board, [&] { return board.dwOwnerDone > CBoard::step_flood; }, "the updates");
        const double dFlood = static_cast<double>(m_plan.ullFlood);
        figures.dUpdatesPerSecond = dFlood / secondsSince(tpFlood);
        figures.dCpuSecondsPerMillion = (cpu() - dCpu) / dFlood * 1e6;
        if (board.ullArrived != m_plan.ullFlood)
            throw std::runtime_error("more arrived than was sent");

        const auto dCalls = static_cast<double>(m_plan.ullCalls);
        figures.dOwnerBytes = static_cast<double>(board.ullOwnerFull - board.ullOwnerEmpty) / dCalls;
        figures.dSharedBytes =
            static_cast<double>(board.ullOwnerShared) / dCalls - static_cast<double>(board.ullOwnerFull) / dCalls;
        figures.dWatcherBytes =
            static_cast<double>(board.ullWatcherFull) / dCalls - static_cast<double>(board.ullWatcherEmpty) / dCalls;
        return figures;
    }

private:
    static double secondsSince(std::chrono::steady_clock::time_point tpBegin)
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - tpBegin).count();
    }
    double cpu() const
    {
        double dSeconds = 0;
        for (const pid_t pid : m_vecProcesses)
            dSeconds += cpuSeconds(pid);
        return dSeconds;
    }
    void proceed(CBoard::EStep eStep)
    {
        m_pBoard->ullArrived = 0;
        m_pBoard->ullSamples = 0;
        m_pBoard->dwStep = eStep;
    }
    void play(void (*pfnPart)(CBoard&, const CPlan&, CContender&))
    {
        const pid_t pid = fork();
        if (pid < 0)
            throw std::runtime_error("no process");
        if (pid == 0)
        {
            try
            {
                const auto pContender = m_fnMake(*m_pBoard, m_plan);
                pfnPart(*m_pBoard, m_plan, *pContender);
            }
            catch (const std::exception& failure)
            {
                (void)std::fprintf(stderr, "NetworkBench: %s\n", failure.what());
                m_pBoard->bFailed = true;
            }
            std::_Exit(0); // after the contender's end, without the parent's
        }
        m_vecChildren.push_back(pid);
        m_vecProcesses.push_back(pid);
    }

    const CPlan m_plan;
    const CMakeContender m_fnMake;
    std::vector<pid_t> m_vecProcesses; // whose time counts
    std::vector<pid_t> m_vecChildren;
    CBoard* m_pBoard = nullptr;
};

double median(std::vector<double> vecValues)
{
    std::sort(vecValues.begin(), vecValues.end());
    return vecValues.empty() ? 0 : vecValues[vecValues.size() / 2];
}

CFigures medianOf(const std::vector<CFigures>& vecRuns)
{
    const auto of = [&](double CFigures::*pField) {
        std::vector<double> vecValues;
        for (const CFigures& run : vecRuns)
            vecValues.push_back(run.*pField);
        return median(std::move(vecValues));
    };
    return {of(&CFigures::dUpdatesPerSecond),
            of(&CFigures::dCpuSecondsPerMillion),
            of(&CFigures::dMedianUs),
            of(&CFigures::d99Us),
            of(&CFigures::d999Us),
            of(&CFigures::dWatchSeconds),
            of(&CFigures::dOwnerBytes),
            of(&CFigures::dSharedBytes),
            of(&CFigures::dWatcherBytes)};
}

struct CCandidate
{
    const char* pszName;
    std::function<CFigures(const CPlan&)> fnMeasure;
};

/// A candidate that needs no servers beside the two processes.
CCandidate plainCandidate(const char* pszName, bool bFirstStates, const CMakeContender& fnMake)
{
    return {pszName, [bFirstStates, fnMake](CPlan plan) {
                plan.bFirstStates = bFirstStates;
                return CRun(plan, fnMake, {}).measure();
            }};
}

#if CDS_BENCH_REDIS
CCandidate redisCandidate(const char* pszName, ERedisUpdate eUpdate)
{
    return {pszName, [eUpdate](const CPlan& plan) {
                const CRedisServers servers;
                const auto fnMake = [&](CBoard& board, const CPlan& given) -> std::unique_ptr<CContender> {
                    return std::make_unique<CRedisContender>(board, given, servers, eUpdate);
                };
                return CRun(plan, fnMake, servers.processes()).measure();
            }};
}
#endif

/// The length of a message with one update. A process of its own makes it: the trace log's thread, which records bring
/// with them, would not come along into the processes that are forked later.
std::size_t messageBytes()
{
    int aPipe[2] = {-1, -1};
    if (pipe(aPipe) != 0)
        throw std::runtime_error("no pipe");
    const pid_t pid = fork();
    std::size_t uBytes = 0;
    if (pid == 0)
    {
        uBytes = CStoreContender::messageText().size();
        std::_Exit(write(aPipe[1], &uBytes, sizeof uBytes) == sizeof uBytes ? 0 : 1);
    }
    close(aPipe[1]);
    const bool bRead = read(aPipe[0], &uBytes, sizeof uBytes) == sizeof uBytes;
    close(aPipe[0]);
    waitpid(pid, nullptr, 0);
    if (!bRead)
        throw std::runtime_error("no message");
    return uBytes;
}

std::vector<CCandidate> candidates(std::size_t uMessageBytes)
{
    const auto storeWith = [](std::uint32_t dwTraceMask) -> CMakeContender {
        return [dwTraceMask](CBoard& board, const CPlan& plan) -> std::unique_ptr<CContender> {
            return std::make_unique<CStoreContender>(board, plan, dwTraceMask);
        };
    };
    const auto fnBare = [uMessageBytes](CBoard& board, const CPlan& plan) -> std::unique_ptr<CContender> {
        return std::make_unique<CBareContender>(board, plan, uMessageBytes);
    };
    std::vector<CCandidate> vecCandidates = {plainCandidate("store", true, storeWith(3)),
                                             plainCandidate("store, errors traced only", true, storeWith(1)),
                                             plainCandidate("bare sockets", false, fnBare)};
#if CDS_BENCH_REDIS
    if (CRedisServers::installed())
    {
        vecCandidates.push_back(redisCandidate("Redis with a replica", ERedisUpdate::pipeline));
        vecCandidates.push_back(redisCandidate("Redis, newest by script", ERedisUpdate::script));
    }
    else
#endif
        std::puts("Redis is left out: redis-server or libhiredis-dev is not installed.");
    return vecCandidates;
}

/// The text behind "--name", or nothing.
std::optional<std::string> textOption(int nArguments, char** ppszArguments, const std::string& sName)
{
    for (int i = 1; i + 1 < nArguments; ++i)
        if (ppszArguments[i] == "--" + sName)
            return ppszArguments[i + 1];
    return std::nullopt;
}

/// The value of "--name N", or the default.
std::uint64_t option(int nArguments, char** ppszArguments, const std::string& sName, std::uint64_t ullDefault)
{
    const auto optText = textOption(nArguments, ppszArguments, sName);
    return optText ? std::stoull(*optText) : ullDefault;
}

void print(const std::map<std::string, std::vector<CFigures>>& mapRuns, const std::vector<CCandidate>& vecCandidates)
{
    std::printf("%-28s %12s %10s %9s %9s %9s %9s %10s %10s %10s\n", "", "updates/s", "CPU s/M", "p50 us", "p99 us",
                "p99.9 us", "watch s", "owner B", "+shared B", "watcher B");
    for (const CCandidate& candidate : vecCandidates)
    {
        const CFigures f = medianOf(mapRuns.at(candidate.pszName));
        std::printf("%-28s %12.0f %10.2f %9.1f %9.1f %9.1f %9.2f %10.0f %10.0f %10.0f\n", candidate.pszName,
                    f.dUpdatesPerSecond, f.dCpuSecondsPerMillion, f.dMedianUs, f.d99Us, f.d999Us, f.dWatchSeconds,
                    f.dOwnerBytes, f.dSharedBytes, f.dWatcherBytes);
    }
    const CFigures store = medianOf(mapRuns.at(vecCandidates.front().pszName));
    for (const CCandidate& candidate : vecCandidates)
    {
        const CFigures other = medianOf(mapRuns.at(candidate.pszName));
        std::printf("store / %-26s rate %.3f, median latency %.2f, CPU %.2f\n", candidate.pszName,
                    store.dUpdatesPerSecond / other.dUpdatesPerSecond, store.dMedianUs / other.dMedianUs,
                    store.dCpuSecondsPerMillion / other.dCpuSecondsPerMillion);
    }
}

int run(int nArguments, char** ppszArguments)
{
    CPlan plan;
    plan.ullCalls = option(nArguments, ppszArguments, "calls", plan.ullCalls);
    plan.ullPaced = option(nArguments, ppszArguments, "paced", plan.ullPaced);
    plan.ullFlood = option(nArguments, ppszArguments, "flood", plan.ullFlood);
    const std::uint64_t ullRepetitions = option(nArguments, ppszArguments, "repetitions", 5);
    if (plan.ullCalls == 0 || ullRepetitions == 0 || plan.ullPaced > CBoard::cMostSamples)
    {
        (void)std::fprintf(stderr,
                           "usage: NetworkBench [--calls N] [--paced N] [--flood N] [--repetitions N] [--only NAME]\n");
        return 2;
    }
    const std::size_t uMessageBytes = messageBytes();
    auto vecCandidates = candidates(uMessageBytes);
    if (const auto optOnly = textOption(nArguments, ppszArguments, "only"))
        std::erase_if(vecCandidates, [&](const CCandidate& candidate) { return candidate.pszName != *optOnly; });
    if (vecCandidates.empty())
        throw std::runtime_error("nobody has the name that --only gives");
    std::printf("version %s, %llu calls, message of %zu bytes, %llu runs of each, medians\n", CDS_VERSION,
                static_cast<unsigned long long>(plan.ullCalls), uMessageBytes,
                static_cast<unsigned long long>(ullRepetitions));
    std::map<std::string, std::vector<CFigures>> mapRuns;
    for (std::uint64_t i = 0; i < ullRepetitions; ++i)
        for (const CCandidate& candidate : vecCandidates)
        {
            (void)std::fprintf(stderr, "%s ...\n", candidate.pszName);
            mapRuns[candidate.pszName].push_back(candidate.fnMeasure(plan));
        }
    print(mapRuns, vecCandidates);
    return 0;
}

} // namespace

void noteArrival(CBoard& board, const CUpdateMark& mark)
{
    if (mark.ullNanoseconds == 0)
    {
        board.ullFirst.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    const std::uint64_t ullTook = CUpdateMark::now() - mark.ullNanoseconds;
    if (const std::uint64_t ullSample = board.ullSamples.fetch_add(1, std::memory_order_relaxed);
        ullSample < CBoard::cMostSamples)
        board.aNanoseconds[ullSample] = static_cast<std::uint32_t>(std::min<std::uint64_t>(ullTook, 0xFFFFFFFFU));
    board.ullArrived.fetch_add(1, std::memory_order_release);
}

std::uint64_t CContender::bytesInUse() const
{
#ifdef CDS_HAVE_JEMALLOC
    std::uint64_t ullEpoch = 1; // has the figures brought up to date
    std::size_t uAllocated = 0;
    std::size_t uSize = sizeof uAllocated;
    if (mallctl("epoch", nullptr, nullptr, &ullEpoch, sizeof ullEpoch) != 0 ||
        mallctl("stats.allocated", &uAllocated, &uSize, nullptr, 0) != 0)
        throw std::runtime_error("the allocator does not tell what is in use");
    return uAllocated;
#else
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
#endif
}

int main(int nArguments, char** ppszArguments)
{
#if !defined(__OPTIMIZE__) || !defined(NDEBUG) || defined(_GLIBCXX_ASSERTIONS)
    (void)std::fprintf(stderr, "%s reports nothing: it is not a release build. Use the release preset.\n",
                       ppszArguments[0]);
    return 1;
#else
    try
    {
        return run(nArguments, ppszArguments);
    }
    catch (const std::exception& failure)
    {
        (void)std::fprintf(stderr, "NetworkBench: %s\n", failure.what());
        return 1;
    }
#endif
}
