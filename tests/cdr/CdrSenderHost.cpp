// A server for tests, which sends records of finished calls to a collecting server.
//
//   CdrSenderHost <own address> <collector's address> <port> <log directory> <records> <cache bytes> <expiry minutes>
//
// Says on standard output "started", waits for a line on standard input, sends, says "sent", "left <n>" when so many
// are waiting that had not been so few before, and "done". Operator events go to standard error, which is standard
// output.

#include "CDSAPI.h"
#include "SampleRecord.h"
#include "share/ServerPlace.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <syslog.h>
#include <thread>
#include <unistd.h>

namespace {

void say(const char* pszWhat, unsigned long ulNumber)
{
    (void)std::printf("%s %lu\n", pszWhat, ulNumber);
    (void)std::fflush(stdout);
}

void sendAll(CCDSAPI& store, const std::string& sCollector, unsigned long ulRecords)
{
    for (unsigned long ul = 0; ul < ulRecords; ++ul)
    {
        CCallData record("sip:" + std::to_string(ul));
        fillSample(record, "caller " + std::to_string(ul));
        (void)store.SendCDRDataToHQ(sCollector, "sip", &record); // one that is refused is missed by the test
    }
}

} // namespace

int main(int nArguments, char** ppszArguments)
{
    if (nArguments != 8)
        return 2;
    (void)dup2(STDOUT_FILENO, STDERR_FILENO);
    openlog("sender", LOG_PERROR, LOG_DAEMON);
    CServerPlace place("sender", ppszArguments[4]);
    std::string sError;
    const CServerAddress own{ppszArguments[1], static_cast<std::uint16_t>(std::atoi(ppszArguments[3]))};
    if (!place.configure(own, &sError))
        return 1;
    CCDSAPI::initLogger();
    const auto pStore = std::make_unique<CCDSAPI>();
    pStore->SetCDRDataCacheSize(std::strtoul(ppszArguments[6], nullptr, 10));
    pStore->SetCDRDataExpiration(std::strtoul(ppszArguments[7], nullptr, 10));
    if (pStore->Initialize(own.sAddress, 0) < 0)
        return 1;
    say("started", 0);
    (void)std::getchar();
    const unsigned long ulRecords = std::strtoul(ppszArguments[5], nullptr, 10);
    sendAll(*pStore, ppszArguments[2], ulRecords);
    say("sent", ulRecords);
    unsigned long ulFewest = ulRecords + 1;
    while (ulFewest != 0)
    {
        const unsigned long ulWaiting = pStore->GetCDRDataCacheCount();
        if (ulWaiting < ulFewest)
        {
            ulFewest = ulWaiting;
            say("left", ulWaiting);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{2});
    }
    (void)pStore->Finalize(); // cannot fail
    say("done", 0);
    return 0;
}
