#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

/// What libFuzzer, and the replaying program, call with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize);

/// Ends the program when the condition does not hold, in every build: a fuzzer notices nothing less.
#define FUZZ_CHECK(condition)                                                                                          \
    do                                                                                                                 \
    {                                                                                                                  \
        if (!(condition))                                                                                              \
        {                                                                                                              \
            (void)std::fprintf(stderr, "%s:%d: does not hold: %s\n", __FILE__, __LINE__, #condition);                  \
            std::abort();                                                                                              \
        }                                                                                                              \
    }                                                                                                                  \
    while (false)
