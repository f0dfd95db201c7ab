// Updates of existing calls, delivered to one registrant each, through the store and through the bare program.
//
// An update brings new values for the three properties and one log entry more, so that records grow. On both sides
// every call gets the same number of updates; then all data is let go, with the clock stopped, and everything begins
// anew. The clock runs while the component makes its record, hands it in and lets it go, and until the trace lines are
// with the system.

#include "BareStore.h"
#include "BenchStore.h"
#include "CDSSupport.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

constexpr std::uint64_t cUpdatesPerCall = 16;

using CClock = std::chrono::steady_clock;

std::vector<std::string> callIDs(std::int64_t llCalls)
{
    std::vector<std::string> vecCallIDs;
    for (std::int64_t i = 0; i < llCalls; ++i)
        vecCallIDs.push_back(SampleCall::callID(static_cast<std::uint64_t>(i)));
    return vecCallIDs;
}

void setTime(benchmark::State& state, CClock::time_point tpStart)
{
    state.SetIterationTime(std::chrono::duration<double>(CClock::now() - tpStart).count());
}

void setUpdates(benchmark::State& state)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0) *
                            static_cast<std::int64_t>(cUpdatesPerCall));
}

void updateStore(benchmark::State& state, std::uint32_t dwTraceMask)
{
    const std::vector<std::string> vecCallIDs = callIDs(state.range(0));
    CBenchStore store;
    CBenchStore::setTraceMask(0);
    for (const std::string& sCallID : vecCallIDs)
        store.watch(sCallID);
    for (auto _ : state)
    {
        CBenchStore::setTraceMask(0);
        store.forgetCalls();
        for (const std::string& sCallID : vecCallIDs)
            (void)store.update(sCallID, 0, true); // refusals show below
        CBenchStore::setTraceMask(dwTraceMask);
        const std::uint64_t ullDelivered = CBenchStore::delivered();

        const auto tpStart = CClock::now();
        for (std::uint64_t i = 1; i <= cUpdatesPerCall; ++i)
            for (const std::string& sCallID : vecCallIDs)
                if (!store.update(sCallID, i, true))
                    state.SkipWithError("refused");
        CDSSupport::flushLogs();
        setTime(state, tpStart);

        if (CBenchStore::delivered() - ullDelivered != vecCallIDs.size() * cUpdatesPerCall)
            state.SkipWithError("not every change was delivered");
    }
    CBenchStore::setTraceMask(0);
    setUpdates(state);
}

void BM_Update_Existing(benchmark::State& state)
{
    updateStore(state, CBenchStore::cDefaultMask);
}
BENCHMARK(BM_Update_Existing)->Arg(1000)->Arg(10'000)->UseManualTime()->Unit(benchmark::kMillisecond);

/// What the trace line of each update costs is the difference to this.
void BM_Update_ExistingUntraced(benchmark::State& state)
{
    updateStore(state, 0);
}
BENCHMARK(BM_Update_ExistingUntraced)->Arg(1000)->UseManualTime()->Unit(benchmark::kMillisecond);

std::uint64_t g_ullBareDelivered = 0;

void onBareChange(const std::string& sCallID, const CBareRecord& change)
{
    benchmark::DoNotOptimize(sCallID.data());
    g_ullBareDelivered += change.mapProperties.empty() ? 0 : 1;
}

void updateBare(CBareStore& store, const std::string& sCallID, std::uint64_t ullUpdate)
{
    CBareRecord record;
    fillBare(record, ullUpdate);
    store.update(sCallID, record);
}

void BM_Update_Bare(benchmark::State& state)
{
    const std::vector<std::string> vecCallIDs = callIDs(state.range(0));
    for (auto _ : state)
    {
        CBareStore store;
        for (const std::string& sCallID : vecCallIDs)
        {
            store.watch(sCallID, onBareChange);
            updateBare(store, sCallID, 0);
        }
        const std::uint64_t ullDelivered = g_ullBareDelivered;

        const auto tpStart = CClock::now();
        for (std::uint64_t i = 1; i <= cUpdatesPerCall; ++i)
            for (const std::string& sCallID : vecCallIDs)
                updateBare(store, sCallID, i);
        setTime(state, tpStart);

        if (g_ullBareDelivered - ullDelivered != vecCallIDs.size() * cUpdatesPerCall)
            state.SkipWithError("not every change was delivered");
    }
    setUpdates(state);
}
BENCHMARK(BM_Update_Bare)->Arg(1000)->Arg(10'000)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
