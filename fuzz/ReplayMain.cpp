// Runs a fuzzer's inputs without the fuzzer: the files named, and those in the folders named. Each is run whole and cut
// off after every byte, since a text that ends too early is what a broken sender most often produces.

#include "FuzzCheck.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(int argc, char** argv)
{
    std::vector<fs::path> vecFiles;
    for (int i = 1; i < argc; ++i)
    {
        if (!fs::is_directory(argv[i]))
        {
            vecFiles.emplace_back(argv[i]);
            continue;
        }
        for (const fs::directory_entry& entry : fs::directory_iterator(argv[i]))
            vecFiles.push_back(entry.path());
    }
    std::sort(vecFiles.begin(), vecFiles.end());
    return vecFiles;
}

/// A copy of exactly that size for every run, so that a sanitizer sees the first byte read beyond it.
void run(const std::vector<char>& vecInput, std::size_t uSize)
{
    const std::vector<std::uint8_t> vecExact(vecInput.begin(), vecInput.begin() + static_cast<std::ptrdiff_t>(uSize));
    (void)LLVMFuzzerTestOneInput(vecExact.data(), vecExact.size()); // always 0
}

} // namespace

int main(int argc, char** argv)
{
    const std::vector<fs::path> vecFiles = filesOf(argc, argv);
    for (const fs::path& file : vecFiles)
    {
        std::ifstream stream(file, std::ios::binary);
        if (!stream)
        {
            (void)std::fprintf(stderr, "cannot read %s\n", file.c_str());
            return 1;
        }
        const std::vector<char> vecInput{std::istreambuf_iterator<char>(stream), {}};
        (void)std::printf("%s, %zu bytes\n", file.c_str(), vecInput.size());
        (void)std::fflush(stdout); // the name must be out when the input ends the program
        for (std::size_t uSize = 0; uSize <= vecInput.size(); ++uSize)
            run(vecInput, uSize);
    }
    if (vecFiles.empty())
    {
        (void)std::fprintf(stderr, "usage: %s <input file or folder>...\n", argv[0]);
        return 2;
    }
    return 0;
}
