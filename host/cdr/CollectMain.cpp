// cdscollect: the server that other servers send their finished calls' records to, and what it has collected.
#include "CDSVersion.h"
#include "cdr/CdrSink.h"
#include "share/ProgramRun.h"
#include "share/ServerPlace.h"
#include "share/SharedCalls.h"
#include "sip/SipText.h"

#include <csignal>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <syslog.h>

namespace {

struct COptions
{
    CServerAddress server;
    std::string sDatabase;
    std::string sRefused;
    CRefusedCdrs::CLimits limits;
    unsigned uRetrySeconds = 10;
    std::string sLogDirectory;
    bool bJson = false;
    std::size_t uLimit = 10;
};

CLI::App* declareServe(CLI::App& app, COptions& options)
{
    CLI::App* const pServe = app.add_subcommand("serve", "Collects until it gets SIGTERM or SIGINT.");
    pServe->add_option("--server", options.server.sAddress, "this server's address")->required()->check(CLI::ValidIPV4);
    pServe->add_option("--port", options.server.wPort, "port of all servers")->capture_default_str();
    pServe
        ->add_option("--database", options.sDatabase,
                     "sqlite:///path or a path: an SQLite file; postgresql://...: a PostgreSQL database")
        ->required();
    pServe->add_option("--refused", options.sRefused,
                       "directory for records that the database refuses, until it takes them (default: the SQLite "
                       "file's name with .refused behind; has to be said for PostgreSQL)");
    pServe->add_option("--refused-count", options.limits.ullCount, "records kept there at the most")
        ->capture_default_str();
    pServe->add_option("--refused-bytes", options.limits.ullBytes, "bytes kept there at the most")
        ->capture_default_str();
    pServe->add_option("--retry", options.uRetrySeconds, "seconds between tries to write what was refused")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    pServe->add_option("--log-dir", options.sLogDirectory, "keep the store's trace log in this directory")
        ->check(CLI::ExistingDirectory);
    return pServe;
}

CLI::App* declareList(CLI::App& app, COptions& options)
{
    CLI::App* const pList = app.add_subcommand("list", "Shows what is in a database.");
    pList->add_option("--database", options.sDatabase, "as above")->required();
    pList->add_option("--limit", options.uLimit, "calls to show, those that began first")
        ->check(CLI::Range(0, 1'000'000))
        ->capture_default_str();
    pList->add_flag("--json", options.bJson, "write one JSON object instead of tables");
    return pList;
}

const char* eventText(ECdrEvent eEvent)
{
    // The codes go on where the store's own end.
    switch (eEvent)
    {
    case ECdrEvent::refused: return "event 0xC1170B01: refused CDR: ";
    case ECdrEvent::lost: return "event 0xC1170B02: lost CDR: ";
    case ECdrEvent::differs: return "event 0x81170B03: differing CDR: ";
    case ECdrEvent::recovered: return "event 0x41170B04: recovered CDRs: ";
    default: return "event 0xC1170B05: unreadable file: ";
    }
}

void reportEvent(ECdrEvent eEvent, const std::string& sText)
{
    const int nPriority = eEvent == ECdrEvent::recovered ? LOG_INFO
                          : eEvent == ECdrEvent::differs ? LOG_WARNING
                                                         : LOG_ERR;
    syslog(nPriority, "%s%s", eventText(eEvent), printable(sText).c_str());
}

/// The signals that end the program, kept from all threads but the one that waits for them.
class CStopSignals
{
public:
    CStopSignals()
    {
        (void)sigemptyset(&m_signals); // none of these fails with known signals
        (void)sigaddset(&m_signals, SIGTERM);
        (void)sigaddset(&m_signals, SIGINT);
        (void)pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
    }
    /// Afterwards the next one ends the program at once.
    void await() const
    {
        int nSignal = 0;
        (void)sigwait(&m_signals, &nSignal);
        (void)pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
    }

private:
    sigset_t m_signals{};
};

void writeCounts(const CCdrSink::CCounts& counts)
{
    std::cout << "received " << counts.ullReceived << ", stored " << counts.ullStored << ", present "
              << counts.ullPresent << ", differing " << counts.ullDiffering << ", refused " << counts.ullRefused
              << ", lost " << counts.ullLost << ", recovered " << counts.ullRecovered << ", waiting "
              << counts.ullWaiting << std::endl;
}

/// @return whether it began; the counts are written when it has ended
bool collect(const COptions& options, CCdrSink& sink, const CStopSignals& stop, std::string* psError)
{
    CCDSAPI::initLogger();
    const auto pStore = std::make_unique<CCDSAPI>();
    CSharedCalls shared(*pStore, options.server.sAddress); // sees the exchange start
    pStore->SetCDRDataCallBack(&CCdrSink::onCdr);
    if (shared.start() < 0 || pStore->Initialize(options.server.sAddress, 0) < 0)
        *psError = "the store cannot be started; the trace log (--log-dir) says more";
    else if (!shared.exchanging())
        *psError = "cannot listen on " + options.server.text() +
                   " (the port is in use, or the address not this machine's); the trace log (--log-dir) says more";
    else
    {
        std::cout << "ready on " << options.server.text() << ", " << sink.counts().ullWaiting
                  << " refused records are waiting" << std::endl;
        stop.await();
    }
    (void)pStore->Finalize(); // cannot fail
    return psError->empty();
}

EExit serve(const CLI::App& app, const COptions& options)
{
    const CStopSignals stop;             // before there are threads
    (void)umask(027);                    // what the files hold names callers
    (void)std::signal(SIGPIPE, SIG_IGN); // who reads the events may go
    openlog("cdscollect", LOG_PERROR | LOG_PID, LOG_DAEMON);
    CServerPlace place("cdscollect", options.sLogDirectory);
    const std::string sPath = cdrFilePath(options.sDatabase);
    std::string sError;
    if (options.sRefused.empty() && sPath.empty())
        sError = "say with --refused where records are kept that the database refuses";
    // A database that cannot be had now is no reason to take records: their senders still have them.
    const auto pDatabase = sError.empty() ? openCdrDatabase(options.sDatabase, ECdrOpen::write, &sError) : nullptr;
    CRefusedCdrs refused(options.sRefused.empty() ? sPath + ".refused" : options.sRefused, options.limits);
    if (sError.empty() && place.configure(options.server, &sError) && refused.open(&sError))
    {
        CCdrSink sink(*pDatabase, refused, reportEvent, std::chrono::seconds{options.uRetrySeconds});
        if (collect(options, sink, stop, &sError))
        {
            writeCounts(sink.counts());
            return std::cout.good() ? exit_done : exit_failed;
        }
    }
    complainOf(app, sError);
    return exit_failed;
}

/// "2026-11-21T00:10:10.0613490Z" without what a table has no room for.
std::string shortTime(const std::string& sTime)
{
    std::string sShort = sTime.substr(0, 19);
    if (sShort.size() > 10)
        sShort[10] = ' ';
    return sShort.empty() ? "-" : sShort;
}

/// Cut to its column, not within a character.
std::string fitted(const std::string& sText, std::size_t uWidth)
{
    return toUtf8(sText.empty() ? "-" : sText, uWidth);
}

void writeText(std::ostream& out, const CCdrListing& listing)
{
    out << listing.ullRows << " records of finished calls\n";
    for (const auto& [sOutcome, ullRows] : listing.vecOutcomes)
        out << "  " << std::left << std::setw(46) << printable(sOutcome) << std::right << std::setw(10) << ullRows
            << '\n';
    if (listing.vecCalls.empty())
        return;
    const auto row = [&](const std::string& sBegan, const std::string& sEnded, const std::string& sOrigin,
                         const std::string& sCaller, const std::string& sCalled, const std::string& sOutcome) {
        out << "  " << std::left << std::setw(21) << sBegan << std::setw(10) << sEnded << std::setw(17)
            << fitted(sOrigin, 15) << std::setw(26) << fitted(sCaller, 24) << std::setw(26) << fitted(sCalled, 24)
            << fitted(sOutcome, 24) << '\n';
    };
    out << "\nThe first " << listing.vecCalls.size() << " (times in UTC)\n";
    row("began", "ended", "from server", "caller", "called", "outcome");
    for (const CCdrListing::CCall& call : listing.vecCalls)
    {
        const std::string sEnded = shortTime(call.sEndedAt);
        row(shortTime(call.sStartedAt), sEnded.size() > 11 ? sEnded.substr(11) : sEnded, call.sOrigin, call.sCaller,
            call.sCalled, call.sOutcome);
    }
}

void writeJson(std::ostream& out, const CCdrListing& listing)
{
    nlohmann::ordered_json json = {{"records", listing.ullRows}, {"outcomes", nlohmann::ordered_json::object()}};
    for (const auto& [sOutcome, ullRows] : listing.vecOutcomes)
        json["outcomes"][sOutcome] = ullRows;
    json["calls"] = nlohmann::ordered_json::array();
    for (const CCdrListing::CCall& call : listing.vecCalls)
        json["calls"].push_back({{"call_id", call.sCallID},
                                 {"origin", call.sOrigin},
                                 {"started_at", call.sStartedAt},
                                 {"ended_at", call.sEndedAt},
                                 {"caller", call.sCaller},
                                 {"called", call.sCalled},
                                 {"outcome", call.sOutcome}});
    out << json.dump(2) << '\n';
}

EExit list(const CLI::App& app, const COptions& options)
{
    std::string sError;
    CCdrListing listing;
    const auto pDatabase = openCdrDatabase(options.sDatabase, ECdrOpen::read, &sError);
    if (pDatabase == nullptr || !pDatabase->list(options.uLimit, &listing, &sError))
    {
        complainOf(app, sError);
        return exit_failed;
    }
    (options.bJson ? writeJson : writeText)(std::cout, listing);
    std::cout.flush();
    return std::cout.good() ? exit_done : exit_failed;
}

} // namespace

int main(int argc, char** argv)
{
    COptions options;
    CLI::App app("Is the server that collects the records of finished calls, in a database.", "cdscollect");
    app.require_subcommand(1);
    const CLI::App* const pServe = declareServe(app, options);
    (void)declareList(app, options);
    app.set_version_flag("--version", "cdscollect " CDS_VERSION);
    app.footer(
        "Exit status: 0 done, 1 refused or failed, 2 misuse.\n\n"
        "Examples:\n"
        "  cdscollect serve --server 127.0.0.3 --database /var/lib/cds/cdr.db\n"
        "  cdscollect serve --server 127.0.0.3 --database postgresql://cds@db/cds --refused /var/lib/cds/refused\n"
        "  cdscollect list --database /var/lib/cds/cdr.db --limit 20\n");
    return runProgram(app, argc, argv, [&] { return pServe->parsed() ? serve(app, options) : list(app, options); });
}
