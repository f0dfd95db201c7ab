// cdsreplay: replays captures of SIP signalling into the call data store, and shows what its registrants get.
#include "CDSVersion.h"
#include "replay/ReplayReport.h"
#include "share/ProgramRun.h"
#include "share/ServerPlace.h"
#include "sip/SipText.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <fstream>
#include <iostream>
#include <optional>

namespace {

struct COptions
{
    std::vector<std::string> vecCaptures;
    std::string sCompare;
    std::string sWatch;
    std::string sLogDirectory;
    std::string sShare;
    CServerAddress server;
    CHeadQuarters headQuarters;
    bool bJson = false;
    bool bNoWait = false;
    bool bCloseOpen = false;
    CCallMapperSettings settings;
};

void declareOptions(CLI::App& app, COptions& options)
{
    app.add_option("CAPTURE", options.vecCaptures,
                   "pcap or pcapng files, of SIP signalling or of HEPv3 datagrams; replayed one after the other, as if "
                   "they were one, into one store")
        ->required();
    app.add_option("--compare", options.sCompare,
                   "replay this capture too, into a fresh store, and say whether the records are the same");
    app.add_option("--watch", options.sWatch, "Call-ID of the call to watch and to show (default: the first)");
    app.add_flag("--no-wait-eoc", options.bNoWait,
                 "do not wait for the last deliveries, which come 30 to 40 seconds after the calls' ends");
    app.add_flag("--close-open", options.bCloseOpen,
                 "close the calls whose end is not in the capture (default: they stay open)");
    app.add_option("--idle-answered", options.settings.llAnsweredIdleSeconds,
                   "close an answered call without session timer after so many silent seconds of the capture")
        ->check(CLI::Range(1, 604'800))
        ->capture_default_str();
    app.add_option("--idle-ringing", options.settings.llRingingIdleSeconds,
                   "close an unanswered call after so many silent seconds of the capture")
        ->check(CLI::Range(1, 604'800))
        ->capture_default_str();
    app.add_option("--max-calls", options.settings.uMaxCalls,
                   "calls followed at a time; when there are more, the one that would be closed first gives way")
        ->check(CLI::Range(1, 10'000'000))
        ->capture_default_str();
    app.add_option("--log-dir", options.sLogDirectory, "keep the store's trace log in this directory")
        ->check(CLI::ExistingDirectory);
    auto* const pServer = app.add_option("--server", options.server.sAddress,
                                         "this server's address, one of this machine (127.0.0.2 is one, too); "
                                         "gives calls to other servers that want them")
                              ->check(CLI::ValidIPV4);
    app.add_option("--port", options.server.wPort, "port of all servers")->capture_default_str()->needs(pServer);
    app.add_option("--share", options.sShare,
                   "write the calls' names to this file or pipe, wait until another server (see cdswatch) has "
                   "registered for them all, replay, write their records, and wait until it has left")
        ->needs(pServer);
    auto* const pQuarters =
        app.add_option("--head-quarters", options.headQuarters.sAddress,
                       "address of the server that collects the records of finished calls (see cdscollect); waits in "
                       "the end until it has acknowledged them all")
            ->check(CLI::ValidIPV4)
            ->needs(pServer);
    app.add_option("--cdr-cache", options.headQuarters.ulCacheBytes,
                   "bytes of records that may wait to be sent; a larger record is refused, and when there is no room "
                   "the record that came last is given up")
        ->check(CLI::Range(1UL, 0xFFFFFFFEUL))
        ->capture_default_str()
        ->needs(pQuarters);
    app.add_option("--cdr-expiry", options.headQuarters.ulExpiryMinutes,
                   "minutes after which a record that cannot be sent is given up")
        ->check(CLI::Range(0UL, 71'582UL))
        ->capture_default_str()
        ->needs(pQuarters);
    app.add_flag("--json", options.bJson, "write one JSON object instead of tables");
    app.set_version_flag("--version", "cdsreplay " CDS_VERSION);
    app.footer(
        "Exit status: 0 done, 1 refused or failed (also when a capture is damaged, when --watch names a call that is "
        "not there, and when --compare finds a difference), 2 misuse.\n\n"
        "Examples:\n"
        "  cdsreplay calls.pcap\n"
        "  cdsreplay calls.pcap --compare calls-hep3.pcap --no-wait-eoc\n"
        "  cdsreplay calls.pcap --watch 4711@10.0.0.1 --json\n"
        "  cdsreplay calls.pcap --server 127.0.0.1 --head-quarters 127.0.0.3\n"
        "  cdsreplay calls.pcap --server 127.0.0.1 --share >(cdswatch --server 127.0.0.2 --owner 127.0.0.1)\n");
}

bool refuse(const std::string& sWhy, const char* pszAdvice)
{
    std::cerr << "cdsreplay: " << printable(sWhy) << pszAdvice << '\n';
    return false;
}

/// @param pShare  where other servers are told of the calls; null: nothing is shared
/// @return whether the captures are in the store; if not, after having said why
bool fillStore(CReplaySession& session, const std::vector<std::string>& vecCaptures, const COptions& options,
               std::ofstream* pShare)
{
    const char* const pszLog = "; the trace log (--log-dir) says more";
    std::string sError;
    if (!session.start(pShare != nullptr, &sError))
        return refuse(sError, pszLog);
    if (pShare != nullptr && !session.awaitPeers(*pShare, vecCaptures, options.settings, options.bCloseOpen, &sError))
        return refuse(sError, "");
    if (!session.replay(vecCaptures, options.settings, options.bCloseOpen, &sError))
        return refuse("cannot read the capture " + sError,
                      "\nGive the path of a pcap or pcapng file that this user may read.");
    return pShare == nullptr || session.showPeers(*pShare, &sError) || refuse(sError, pszLog);
}

/// @return nothing on failure, after having said why
std::optional<CSessionResult> runSession(const std::vector<std::string>& vecCaptures, const COptions& options,
                                         const CHeadQuarters& headQuarters, bool bWait, std::ofstream* pShare)
{
    CReplaySession session(options.sWatch, options.server.sAddress.empty() ? "127.0.0.1" : options.server.sAddress,
                           headQuarters);
    if (!fillStore(session, vecCaptures, options, pShare))
        return std::nullopt;
    const bool bSent = session.awaitSent([&](unsigned long ulLeft) {
        std::cerr << "waiting until " << headQuarters.sAddress << " has the last " << ulLeft << " records\n";
    });
    if (!bSent)
    {
        (void)refuse("the server " + headQuarters.sAddress +
                         " has not acknowledged all records of finished calls, and none for a minute",
                     "\nIs cdscollect running there, with the same --port?");
        return std::nullopt;
    }
    const bool bCame = !bWait || session.awaitLastDeliveries([](std::uint64_t ullCame, std::uint64_t ullExpected) {
        std::cerr << "waiting for the last deliveries, 30 to 40 seconds after the calls' ends: " << ullCame << " of "
                  << ullExpected << " came\n";
    });
    if (!bCame)
    {
        (void)refuse("the store did not deliver every ended call a last time within a minute", "");
        return std::nullopt;
    }
    return session.result();
}

/// @return whether there was nothing to complain about
bool complain(const CSessionResult& result, const std::string& sWatch)
{
    const auto vecComplaints = complaints(result, sWatch);
    for (const std::string& sComplaint : vecComplaints)
        std::cerr << "cdsreplay: " << sComplaint << '\n';
    return vecComplaints.empty();
}

EExit run(const COptions& options)
{
    CServerPlace place("cdsreplay", options.sLogDirectory);
    std::string sError;
    if (!options.server.sAddress.empty() && !place.configure(options.server, &sError))
    {
        (void)refuse(sError, "");
        return exit_failed;
    }
    std::ofstream share;
    if (!options.sShare.empty())
    {
        (void)std::signal(SIGPIPE, SIG_IGN); // who reads the pipe may go: the stream says so
        share.open(options.sShare);
        if (!share)
        {
            (void)refuse("cannot write to " + options.sShare, "");
            return exit_failed;
        }
    }
    const auto result = runSession(options.vecCaptures, options, options.headQuarters, !options.bNoWait,
                                   options.sShare.empty() ? nullptr : &share);
    if (!result)
        return exit_failed;
    bool bDone = complain(*result, options.sWatch);
    std::optional<CComparison> comparison;
    if (!options.sCompare.empty())
    {
        const auto other = runSession({options.sCompare}, options, {}, false, nullptr);
        if (!other)
            return exit_failed;
        bDone = complain(*other, "") && bDone; // what is to be watched was asked of the first
        comparison = compareRecords(*result, *other);
    }
    (options.bJson ? writeJson : writeReport)(std::cout, *result, comparison ? &*comparison : nullptr);
    std::cout.flush();
    bDone = bDone && (!comparison || comparison->same()) && std::cout.good();
    return bDone ? exit_done : exit_failed;
}

} // namespace

int main(int argc, char** argv)
{
    COptions options;
    CLI::App app("Replays captures of SIP signalling into the call data store and shows what its registrants get.",
                 "cdsreplay");
    declareOptions(app, options);
    return runProgram(app, argc, argv, [&] { return run(options); });
}
