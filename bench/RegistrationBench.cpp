// Registering for a call of one's own, and unregistering, while a number of other registrations is present. The limit
// is the same entry in two maps of the standard library, by registration and by call.

#include "BenchStore.h"
#include "CDSSupport.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr std::int64_t cBatch = 1000;
constexpr int cBatches = 20;

using CClock = std::chrono::steady_clock;

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
    std::vector<CNames> vecNames;
    for (std::uint64_t i = 0; i < cBatch; ++i)
        vecNames.push_back(namesOf(ullPresent + i));
    const auto fnRegister = [&] {
        for (const CNames& names : vecNames)
            if (!registerOne(store, names))
                state.SkipWithError("refused");
    };
    const auto fnUnregister = [&] {
        for (const CNames& names : vecNames)
            if (store->Unregister(names.sRegID) != 0)
                state.SkipWithError("not unregistered");
    };
    fnRegister(); // tables that must grow have grown
    fnUnregister();

    CBenchStore::setTraceMask(CBenchStore::cDefaultMask);
    for (auto _ : state)
    {
        const auto tpStart = CClock::now();
        fnRegister();
        const auto tpRegistered = CClock::now();
        CDSSupport::flushLogs(); // what lies in the log's queue is of no concern to the next
        const auto tpContinued = CClock::now();
        fnUnregister();
        const auto tpEnd = CClock::now();
        CDSSupport::flushLogs();
        state.SetIterationTime(
            std::chrono::duration<double>(bTimeRegistering ? tpRegistered - tpStart : tpEnd - tpContinued).count());
    }
    CBenchStore::setTraceMask(0);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * cBatch);
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
    std::vector<CNames> vecNames;
    for (std::uint64_t i = 0; i < cBatch; ++i)
        vecNames.push_back(namesOf(ullPresent + i));
    for (auto _ : state)
    {
        const auto tpStart = CClock::now();
        for (const CNames& names : vecNames)
            registrations.add(names);
        state.SetIterationTime(std::chrono::duration<double>(CClock::now() - tpStart).count());
        for (const CNames& names : vecNames)
            registrations.remove(names);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * cBatch);
}
BENCHMARK(BM_Registration_Bare)
    ->Arg(1000)
    ->Arg(1'000'000)
    ->UseManualTime()
    ->Iterations(cBatches)
    ->Unit(benchmark::kMicrosecond);

} // namespace
