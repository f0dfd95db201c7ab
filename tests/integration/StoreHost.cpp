// A host process for tests to kill: it updates a call for ever, and says on standard output how many updates are in
// the trace log for certain.
//
//   StoreHost <log directory>

#include "CDSAPI.h"
#include "CDSSupport.h"

#include <cstdio>
#include <memory>

namespace {

constexpr int cUpdatesPerReport = 100;

long ignoreMessage(CCallbackMsg*)
{
    return 0;
}

} // namespace

int main(int nArguments, char** ppszArguments)
{
    if (nArguments != 2)
        return 2;
    CDSSupport::setLogDirectory(ppszArguments[1]);
    CCDSAPI::initLogger();
    const auto pStore = std::make_unique<CCDSAPI>();
    if (pStore->Initialize("127.0.0.1", 0) < 0 ||
        pStore->Register(0, "watcher", "127.0.0.1", "sip:1", "*", ignoreMessage, 1) < 0)
        return 1;
    CCallData call(pStore.get(), "sip:1");
    unsigned char bytes[] = "a value";
    unsigned char* const pBytes = bytes;
    for (int nUpdates = 1;; ++nUpdates)
    {
        if (call.setProperty(CDSPROP_CALLERID, pBytes, sizeof bytes) < 0 || pStore->Update("watcher", &call, false) < 0)
            return 1;
        if (nUpdates % cUpdatesPerReport != 0)
            continue;
        CDSSupport::flushLogs();
        if (std::printf("%d\n", nUpdates) < 0 || std::fflush(stdout) != 0)
            return 0; // nobody listens any more
    }
}
