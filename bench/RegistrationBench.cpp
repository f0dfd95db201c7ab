// Registering for a call of one's own, and unregistering, while a number of other registrations is present. The limit
// is the same entry in two maps of the standard library, by registration and by call.

#include "BenchStore.h"
#include "CDSSupport.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include <ctime>

namespace {

constexpr std::size_t cBatch = 1000;
constexpr std::size_t cBatches = 20;

const std::string g_sIP = "127.0.0.1";
const std::string g_sEvent = "*";

struct CNames
{
    std::string sRegID;
    std::string sCallID;
};

/// Names of registrations that are like no other benchmark's.
CNames namesOf(std::uint64_t ullNumber)
{
    return {SampleCall::callID(2 * ullNumber), SampleCall::callID(2 * ullNumber + 1)};
}

/// Names for one batch more than is measured: with the first one, tables that must grow do so.
class CBatches
{
public:
    explicit CBatches(std::uint64_t ullPresent)
    {
        for (std::uint64_t i = 0; i < (cBatches + 1) * cBatch; ++i)
            m_vecNames.push_back(namesOf(ullPresent + i));
    }
    std::span<const CNames> next()
    {
        m_uNext += cBatch;
        return std::span(m_vecNames).subspan(m_uNext - cBatch, cBatch);
    }

private:
    std::vector<CNames> m_vecNames;
    std::size_t m_uNext = 0;
};

/// Processor time of this thread, in seconds.
double threadSeconds()
{
    timespec now{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now); // this clock is always there
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

bool registerOne(CBenchStore& store, const CNames& names)
{
    return store->Register(0, names.sRegID, g_sIP, names.sCallID, g_sEvent, CBenchStore::onChange, 1) == 0;
}

/// Times either the registering or the unregistering of a batch; the population is the same before each.
void registerBatches(benchmark::State& state, bool bTimeRegistering)
{
    CBenchStore store;
    CBenchStore::setTraceMask(0); // while the others register
    const auto ullPresent = static_cast<std::uint64_t>(state.range(0));
    for (std::uint64_t i = 0; i < ullPresent; ++i)
        (void)registerOne(store, namesOf(i)); // refusals show below
    CBatches batches(ullPresent);
    const auto fnRegister = [&](std::span<const CNames> batch) {
        for (const CNames& names : batch)
            if (!registerOne(store, names))
                state.SkipWithError("refused");
    };
    const auto fnUnregister = [&](std::span<const CNames> batch) {
        for (const CNames& names : batch)
            if (store->Unregister(names.sRegID) != 0)
                state.SkipWithError("not unregistered");
    };
    const auto first = batches.next();
    fnRegister(first);
    fnUnregister(first);

    CBenchStore::setTraceMask(CBenchStore::cDefaultMask);
    for (auto _ : state)
    {
        const auto batch = batches.next();
        const double dStart = threadSeconds();
        fnRegister(batch);
        const double dRegistered = threadSeconds();
        CDSSupport::flushLogs(); // what lies in the log's queue is of no concern to the next
        const double dContinued = threadSeconds();
        fnUnregister(batch);
        const double dEnd = threadSeconds();
        CDSSupport::flushLogs();
        state.SetIterationTime(bTimeRegistering ? dRegistered - dStart : dEnd - dContinued);
    }
    CBenchStore::setTraceMask(0);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * std::int64_t{cBatch});
}

void BM_Registration_Register(benchmark::State& state)
{
    registerBatches(state, true);
}
BENCHMARK(BM_Registration_Register)
    ->Arg(1000)
    ->Arg(1'000'000)
    ->UseManualTime()
    ->Iterations(cBatches)
    ->Unit(benchmark::kMicrosecond);

void BM_Registration_Unregister(benchmark::State& state)
{
    registerBatches(state, false);
}
BENCHMARK(BM_Registration_Unregister)
    ->Arg(1000)
    ->Arg(1'000'000)
    ->UseManualTime()
    ->Iterations(cBatches)
    ->Unit(benchmark::kMicrosecond);

/// As much of a registration as the store keeps.
struct CBareRegistration
{
    unsigned long ulHandle;
    std::string sRegID;
    std::string sIP;
    std::string sCallID;
    std::string sEvent;
    long (*pfnCallback)(CCallbackMsg*);
};

struct CBareRegistrations
{
    std::map<std::string, CBareRegistration> mapRegistrations;
    std::map<std::string, std::vector<CBareRegistration*>> mapCalls;

    void add(const CNames& names)
    {
        CBareRegistration& added =
            mapRegistrations
                .try_emplace(names.sRegID,
                             CBareRegistration{0, names.sRegID, g_sIP, names.sCallID, g_sEvent, CBenchStore::onChange})
                .first->second;
        mapCalls[names.sCallID].push_back(&added);
    }
    void remove(const CNames& names)
    {
        const auto it = mapRegistrations.find(names.sRegID);
        const auto itCall = mapCalls.find(names.sCallID);
        std::erase(itCall->second, &it->second);
        if (itCall->second.empty())
            mapCalls.erase(itCall);
        mapRegistrations.erase(it);
    }
};

void BM_Registration_Bare(benchmark::State& state)
{
    CBareRegistrations registrations;
    const auto ullPresent = static_cast<std::uint64_t>(state.range(0));
    for (std::uint64_t i = 0; i < ullPresent; ++i)
        registrations.add(namesOf(i));
    CBatches batches(ullPresent);
    const auto first = batches.next();
    for (const CNames& names : first)
        registrations.add(names);
    for (const CNames& names : first)
        registrations.remove(names);
    for (auto _ : state)
    {
        const auto batch = batches.next();
        const double dStart = threadSeconds();
        for (const CNames& names : batch)
            registrations.add(names);
        state.SetIterationTime(threadSeconds() - dStart);
        for (const CNames& names : batch)
            registrations.remove(names);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * std::int64_t{cBatch});
}
BENCHMARK(BM_Registration_Bare)
    ->Arg(1000)
    ->Arg(1'000'000)
    ->UseManualTime()
    ->Iterations(cBatches)
    ->Unit(benchmark::kMicrosecond);

} // namespace
