// The usual test program, which also writes the files: GoldenTest --regenerate.

#include "GoldenTexts.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <exception>
#include <string_view>

int main(int nArguments, char** ppszArguments)
{
    if (nArguments == 2 && std::string_view(ppszArguments[1]) == "--regenerate")
    {
        try
        {
            model::regenerateGolden();
            return 0;
        }
        catch (const std::exception& failure)
        {
            (void)std::fprintf(stderr, "GoldenTest: %s\n", failure.what());
            return 1;
        }
    }
    ::testing::InitGoogleTest(&nArguments, ppszArguments);
    return RUN_ALL_TESTS();
}
