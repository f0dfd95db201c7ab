// The record: text form, clone, filter and merge of the sample call with a number of log entries. The limits are a copy
// of the same text, and a copy of the same objects in the standard library's containers. A copy's end belongs to it, on
// both sides.

#include "BareStore.h"
#include "CDSCallData.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>

namespace {

const std::string g_sCallID = SampleCall::callID(1);

/// The sample call after a number of updates.
std::unique_ptr<CCallData> makeRecord(std::int64_t llUpdates)
{
    auto pRecord = std::make_unique<CCallData>(g_sCallID);
    for (std::int64_t i = 1; i <= llUpdates; ++i)
        SampleCall::fill(*pRecord, static_cast<std::uint64_t>(i));
    return pRecord;
}

CBareRecord makeBareRecord(std::int64_t llUpdates)
{
    CBareRecord record;
    for (std::int64_t i = 1; i <= llUpdates; ++i)
        fillBare(record, static_cast<std::uint64_t>(i));
    return record;
}

std::string textOf(std::int64_t llUpdates)
{
    std::string sText;
    (void)makeRecord(llUpdates)->serialize(&sText); // a text that is missing shows in the figures
    return sText;
}

void BM_Record_Serialize(benchmark::State& state)
{
    const auto pRecord = makeRecord(state.range(0));
    for (auto _ : state)
    {
        std::string sText;
        if (pRecord->serialize(&sText) < 0)
            state.SkipWithError("not serialized");
        benchmark::DoNotOptimize(sText.data());
    }
}
BENCHMARK(BM_Record_Serialize)->Arg(1)->Arg(100);

void BM_Record_Parse(benchmark::State& state)
{
    const std::string sText = textOf(state.range(0));
    for (auto _ : state)
    {
        const CCallData record(sText, true);
        benchmark::DoNotOptimize(&record);
    }
}
BENCHMARK(BM_Record_Parse)->Arg(1)->Arg(100);

void BM_Record_CopyText(benchmark::State& state)
{
    const std::string sText = textOf(state.range(0));
    for (auto _ : state)
    {
        std::string sCopy(sText);
        benchmark::DoNotOptimize(sCopy.data());
    }
}
BENCHMARK(BM_Record_CopyText)->Arg(1)->Arg(100);

void BM_Record_Clone(benchmark::State& state)
{
    const auto pRecord = makeRecord(state.range(0));
    for (auto _ : state)
    {
        const std::unique_ptr<CCallData> pCopy(pRecord->clone());
        if (pCopy == nullptr)
            state.SkipWithError("not cloned");
        benchmark::DoNotOptimize(pCopy.get());
    }
}
BENCHMARK(BM_Record_Clone)->Arg(1)->Arg(100);

/// Everything in the one record is news to the other, which has as many items.
void BM_Record_Filter(benchmark::State& state)
{
    CCallData news(g_sCallID);
    for (std::int64_t i = 1; i <= state.range(0); ++i)
        SampleCall::fill(news, static_cast<std::uint64_t>(state.range(0) + i));
    const auto pOld = makeRecord(state.range(0));
    for (auto _ : state)
    {
        CCallData* pDifference = nullptr;
        if (news.filter(pOld.get(), &pDifference) < 0 || pDifference == nullptr)
            state.SkipWithError("not filtered");
        delete pDifference;
    }
}
BENCHMARK(BM_Record_Filter)->Arg(1)->Arg(100);

/// Into an empty record.
void BM_Record_Merge(benchmark::State& state)
{
    const auto pRecord = makeRecord(state.range(0));
    for (auto _ : state)
    {
        CCallData target(g_sCallID);
        bool bChanged = false;
        if (target.merge(pRecord.get(), &bChanged) < 0 || !bChanged)
            state.SkipWithError("not merged");
    }
}
BENCHMARK(BM_Record_Merge)->Arg(1)->Arg(100);

void BM_Record_CopyBare(benchmark::State& state)
{
    const CBareRecord record = makeBareRecord(state.range(0));
    for (auto _ : state)
    {
        CBareRecord copy(record);
        benchmark::DoNotOptimize(&copy);
    }
}
BENCHMARK(BM_Record_CopyBare)->Arg(1)->Arg(100);

} // namespace
