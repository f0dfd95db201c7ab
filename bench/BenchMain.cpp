// What every benchmark program begins with: it refuses a build whose numbers mean nothing, says what is measured and
// on what, and gives the store a place for its trace log.

#include "BenchStore.h"
#include "CDSSupport.h"
#include "CDSVersion.h"
#include "SampleCall.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include <cstdlib>

namespace {

#if defined(__has_feature)
#define CDS_HAS_FEATURE(x) __has_feature(x)
#else
#define CDS_HAS_FEATURE(x) 0
#endif

/// Null when this build's numbers may be reported.
const char* whyNotToReport()
{
#if !defined(__OPTIMIZE__)
    return "it is built without optimisation";
#elif !defined(NDEBUG) || defined(_GLIBCXX_ASSERTIONS)
    return "it is built with assertions";
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || CDS_HAS_FEATURE(address_sanitizer) ||           \
    CDS_HAS_FEATURE(thread_sanitizer)
    return "it is built with a sanitizer";
#else
    return nullptr;
#endif
}

std::string processorName()
{
    std::ifstream file("/proc/cpuinfo");
    for (std::string sLine; std::getline(file, sLine);)
        if (sLine.rfind("model name", 0) == 0 && sLine.find(": ") != std::string::npos)
            return sLine.substr(sLine.find(": ") + 2);
    return "unknown";
}

/// A directory of this process's own, gone when it ends.
class CScratchDirectory
{
public:
    CScratchDirectory()
    {
        std::string sTemplate = (std::filesystem::temp_directory_path() / "cds-bench-XXXXXX").string();
        if (mkdtemp(sTemplate.data()) != nullptr)
            m_sPath = sTemplate;
    }
    ~CScratchDirectory()
    {
        std::error_code ignored; // what cannot be removed is the system's to clear away
        if (!m_sPath.empty())
            std::filesystem::remove_all(m_sPath, ignored);
    }
    CScratchDirectory(const CScratchDirectory&) = delete;
    CScratchDirectory& operator=(const CScratchDirectory&) = delete;

    const std::string& path() const { return m_sPath; }

private:
    std::string m_sPath;
};

void addContext()
{
    benchmark::AddCustomContext("version", CDS_VERSION);
    benchmark::AddCustomContext("compiler", __VERSION__);
    benchmark::AddCustomContext("processor", processorName());
    benchmark::AddCustomContext("call", std::to_string(SampleCall::cCallIDLength) + "-character call ID, " +
                                            std::to_string(SampleCall::cProperties) + " properties of " +
                                            std::to_string(SampleCall::cPropertyBytes) + " bytes, log entries of " +
                                            std::to_string(SampleCall::cEntryBytes) + " bytes");
    benchmark::AddCustomContext("trace_mask", std::to_string(CBenchStore::cDefaultMask));
}

int runAll()
{
    const CScratchDirectory scratch;
    if (scratch.path().empty())
    {
        std::perror("no directory for the trace log");
        return 1;
    }
    CDSSupport::setLogDirectory(scratch.path());
    CBenchStore::setTraceMask(CBenchStore::cDefaultMask);
    CCDSAPI::initLogger();
    benchmark::RunSpecifiedBenchmarks();
    CCDSAPI::finalizeLogger();
    return 0;
}

} // namespace

int main(int nArguments, char** ppszArguments)
{
    if (const char* const pszWhy = whyNotToReport(); pszWhy != nullptr)
    {
        (void)std::fprintf(stderr, "%s reports nothing: %s. Use the release preset.\n", ppszArguments[0], pszWhy);
        return 1;
    }
    benchmark::Initialize(&nArguments, ppszArguments);
    if (benchmark::ReportUnrecognizedArguments(nArguments, ppszArguments))
        return 2;
    addContext();
    const int nResult = runAll();
    benchmark::Shutdown();
    return nResult;
}
