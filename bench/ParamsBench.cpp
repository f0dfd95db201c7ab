// The parameter list: elements of 24 characters, and values of bytes, written and read. The limit is the copying of the
// same encoded text.

#include "CDSParams.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

const std::string g_sElement(reinterpret_cast<const char*>(SampleCall::bytes()), SampleCall::cPropertyBytes);

std::string encodedTexts(std::int64_t llCount)
{
    CParamsX list;
    for (std::int64_t i = 0; i < llCount; ++i)
        (void)list.addParam(g_sElement, 0.0F); // never too long
    return list.paramList();
}

std::string encodedBytes(std::vector<unsigned char>& vecBytes)
{
    CParamsX list;
    unsigned char* const pBytes = vecBytes.data();
    list.addParam(pBytes, static_cast<int>(vecBytes.size()));
    return list.paramList();
}

std::vector<unsigned char> someBytes(std::int64_t llCount)
{
    std::vector<unsigned char> vecBytes;
    for (std::int64_t i = 0; i < llCount; ++i)
        vecBytes.push_back(static_cast<unsigned char>(i * 37));
    return vecBytes;
}

void count(benchmark::State& state, const std::string& sText)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(sText.size()));
}

void copyText(benchmark::State& state, const std::string& sText)
{
    std::vector<char> vecTarget(sText.size());
    for (auto _ : state)
    {
        std::memcpy(vecTarget.data(), sText.data(), sText.size());
        benchmark::DoNotOptimize(vecTarget.data());
        benchmark::ClobberMemory();
    }
    count(state, sText);
}

void BM_Params_Encode(benchmark::State& state)
{
    const std::string sText = encodedTexts(state.range(0));
    for (auto _ : state)
    {
        CParamsX list(static_cast<long>(sText.size()));
        for (std::int64_t i = 0; i < state.range(0); ++i)
            (void)list.addParam(g_sElement, 0.0F); // never too long
        benchmark::DoNotOptimize(list.paramListRef().data());
    }
    count(state, sText);
}
BENCHMARK(BM_Params_Encode)->Arg(8)->Arg(64)->Arg(512);

void BM_Params_Decode(benchmark::State& state)
{
    const std::string sText = encodedTexts(state.range(0));
    for (auto _ : state)
    {
        const CParamsX list(sText);
        std::size_t uCharacters = 0;
        for (int i = 0; i < list.count(); ++i)
            uCharacters += list.getViewParamAt(i).size();
        benchmark::DoNotOptimize(uCharacters);
    }
    count(state, sText);
}
BENCHMARK(BM_Params_Decode)->Arg(8)->Arg(64)->Arg(512);

void BM_Params_Memcpy(benchmark::State& state)
{
    copyText(state, encodedTexts(state.range(0)));
}
BENCHMARK(BM_Params_Memcpy)->Arg(8)->Arg(64)->Arg(512);

void BM_Params_EncodeBytes(benchmark::State& state)
{
    std::vector<unsigned char> vecBytes = someBytes(state.range(0));
    const std::string sText = encodedBytes(vecBytes);
    unsigned char* const pBytes = vecBytes.data();
    for (auto _ : state)
    {
        CParamsX list(static_cast<long>(sText.size()));
        list.addParam(pBytes, static_cast<int>(vecBytes.size()));
        benchmark::DoNotOptimize(list.paramListRef().data());
    }
    count(state, sText);
}
BENCHMARK(BM_Params_EncodeBytes)->Arg(24)->Arg(4096);

void BM_Params_DecodeBytes(benchmark::State& state)
{
    std::vector<unsigned char> vecBytes = someBytes(state.range(0));
    const std::string sText = encodedBytes(vecBytes);
    for (auto _ : state)
    {
        const CParamsX list(sText);
        int nSize = 0;
        unsigned char* const pBytes = list.getCDSDATAParamAt(0, &nSize);
        benchmark::DoNotOptimize(pBytes);
        std::free(pBytes);
    }
    count(state, sText);
}
BENCHMARK(BM_Params_DecodeBytes)->Arg(24)->Arg(4096);

void BM_Params_MemcpyBytes(benchmark::State& state)
{
    std::vector<unsigned char> vecBytes = someBytes(state.range(0));
    copyText(state, encodedBytes(vecBytes));
}
BENCHMARK(BM_Params_MemcpyBytes)->Arg(24)->Arg(4096);

} // namespace
