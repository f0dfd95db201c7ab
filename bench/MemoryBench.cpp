// What a stored call costs in memory: the heap's growth, tables included, while calls are stored, through the store and
// through the bare program. One registrant watches all calls; with a registrant for each call its registration counts
// too.

#include "BareStore.h"
#include "BenchStore.h"
#include "CDSSupport.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <memory>

#include <malloc.h>

namespace {

/// Bytes of the heap's blocks in use, all arenas and large blocks included, headers and rounding too.
double heapInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Runs an operation and reports what it has left in the heap for each of so many calls.
template <class TOperation> void measureGrowth(benchmark::State& state, TOperation operation)
{
    malloc_trim(0);
    const double dInUse = heapInUse();
    operation();
    const auto dCalls = static_cast<double>(state.range(0));
    state.counters["bytes_per_call"] = (heapInUse() - dInUse) / dCalls;
}

void storeCalls(benchmark::State& state, bool bRegistrantEach)
{
    for (auto _ : state)
    {
        CBenchStore store;
        store.watch("*");
        CBenchStore::setTraceMask(0); // the log's queue is no part of a call
        CDSSupport::flushLogs();
        measureGrowth(state, [&] {
            for (std::int64_t i = 0; i < state.range(0); ++i)
            {
                const std::string sCallID = SampleCall::callID(static_cast<std::uint64_t>(i));
                if (bRegistrantEach)
                    store.watch(sCallID);
                if (!store.update(sCallID, 1, false))
                    state.SkipWithError("refused");
            }
        });
    }
}

void BM_Memory_StoredCall(benchmark::State& state)
{
    storeCalls(state, false);
}
BENCHMARK(BM_Memory_StoredCall)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_Memory_StoredCallRegistered(benchmark::State& state)
{
    storeCalls(state, true);
}
BENCHMARK(BM_Memory_StoredCallRegistered)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

void onBareChange(const std::string& sCallID, const CBareRecord& /*change*/)
{
    benchmark::DoNotOptimize(sCallID.data());
}

void BM_Memory_BareCall(benchmark::State& state)
{
    for (auto _ : state)
    {
        CBareStore store;
        store.watchAll(onBareChange);
        measureGrowth(state, [&] {
            for (std::int64_t i = 0; i < state.range(0); ++i)
            {
                CBareRecord record;
                fillBare(record, 1);
                store.update(SampleCall::callID(static_cast<std::uint64_t>(i)), record);
            }
        });
    }
}
BENCHMARK(BM_Memory_BareCall)->Arg(100'000)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace
