// cdswatch: a second server, which registers for calls of a first and shows what it got of them.
#include "CDSVersion.h"
#include "replay/ReplayReport.h"
#include "share/CallMirror.h"
#include "share/ProgramRun.h"
#include "share/RecordLines.h"
#include "share/ServerPlace.h"
#include "share/SharedCalls.h"
#include "sip/SipText.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <unistd.h>

namespace {

struct COptions
{
    CServerAddress server;
    std::string sOwner;
    std::string sLogDirectory;
    unsigned uLimitSeconds = 60;
    bool bJson = false;
};

void declareOptions(CLI::App& app, COptions& options)
{
    app.add_option("--server", options.server.sAddress, "this server's address")->required()->check(CLI::ValidIPV4);
    app.add_option("--owner", options.sOwner, "address of the server whose calls are watched")
        ->required()
        ->check(CLI::ValidIPV4);
    app.add_option("--port", options.server.wPort, "port of all servers")->capture_default_str();
    app.add_option("--limit", options.uLimitSeconds, "give up when nothing comes for so many seconds")
        ->check(CLI::Range(1, 86'400))
        ->capture_default_str();
    app.add_option("--log-dir", options.sLogDirectory, "keep the store's trace log in this directory")
        ->check(CLI::ExistingDirectory);
    app.add_flag("--json", options.bJson, "write one JSON object instead of text");
    app.set_version_flag("--version", "cdswatch " CDS_VERSION);
    app.footer("Standard input is what cdsreplay --share writes: the calls to register for, later their records.\n\n"
               "Exit status: 0 every record is equal to the owner's, 1 refused, failed or different, 2 misuse.\n\n"
               "Example:\n"
               "  cdsreplay calls.pcap --server 127.0.0.1 --share >(cdswatch --server 127.0.0.2 --owner 127.0.0.1)\n");
}

/// Lines of standard input, waited for with a time limit.
class CLineSource
{
public:
    enum class EResult
    {
        line,
        end,
        timeout
    };

    EResult next(std::string* psLine, std::chrono::milliseconds limit)
    {
        for (;;)
        {
            if (const std::size_t uEnd = m_sBuffer.find('\n', m_uBegin); uEnd != std::string::npos)
            {
                *psLine = m_sBuffer.substr(m_uBegin, uEnd - m_uBegin);
                m_uBegin = uEnd + 1;
                return EResult::line;
            }
            m_sBuffer.erase(0, std::exchange(m_uBegin, 0));
            pollfd input{STDIN_FILENO, POLLIN, 0};
            if (poll(&input, 1, static_cast<int>(limit.count())) == 0)
                return EResult::timeout;
            char szChunk[65536];
            const ssize_t nRead = read(STDIN_FILENO, szChunk, sizeof szChunk);
            if (nRead <= 0)
                return EResult::end;
            m_sBuffer.append(szChunk, static_cast<std::size_t>(nRead));
        }
    }

private:
    std::string m_sBuffer;
    std::size_t m_uBegin = 0;
};

/// A store of this server's, and in it copies of the owner's calls.
class CWatchSession
{
public:
    explicit CWatchSession(const COptions& options) : m_options(options), m_limit(options.uLimitSeconds) {}
    ~CWatchSession()
    {
        m_pMirror.reset();
        m_pShared.reset();
        if (m_pStore != nullptr)
            (void)m_pStore->Finalize(); // cannot fail
    }
    CWatchSession(const CWatchSession&) = delete;
    CWatchSession& operator=(const CWatchSession&) = delete;

    bool start(std::string* psError);
    /// Follows standard input to the end line, and waits for what is missing then.
    bool watch(std::string* psError);
    const CCallMirror& mirror() const { return *m_pMirror; }

private:
    bool handle(const std::string& sLine, std::string* psError);

    const COptions& m_options;
    const std::chrono::seconds m_limit;
    bool m_bEnded = false;      // the end line came
    std::size_t m_uRecords = 0; // record lines that came
    std::unique_ptr<CCDSAPI> m_pStore;
    std::unique_ptr<CSharedCalls> m_pShared; // sees the exchange start
    std::unique_ptr<CCallMirror> m_pMirror;
};

bool CWatchSession::start(std::string* psError)
{
    CCDSAPI::initLogger();
    m_pStore = std::make_unique<CCDSAPI>();
    m_pShared = std::make_unique<CSharedCalls>(*m_pStore, m_options.server.sAddress);
    m_pMirror = std::make_unique<CCallMirror>(*m_pStore, m_options.sOwner);
    if (m_pShared->start() < 0 || m_pStore->Initialize(m_options.server.sAddress, 0) < 0)
        *psError = "the store cannot be started; the trace log (--log-dir) says more";
    else if (!m_pShared->exchanging())
        *psError = "cannot listen on " + m_options.server.text() +
                   " (the port is in use, or the address not this machine's); the trace log (--log-dir) says more";
    return psError->empty();
}

bool CWatchSession::handle(const std::string& sLine, std::string* psError)
{
    const auto vecFields = RecordLines::fields(sLine);
    const std::string& sKind = vecFields[0];
    if (sKind == "call" && vecFields.size() == 2)
    {
        if (const long lResult = m_pMirror->watch(vecFields[1]); lResult < 0)
            *psError = "the store refuses to register for " + vecFields[1] + ": " + codeText(lResult);
    }
    else if (sKind == "record" && vecFields.size() == 3)
    {
        ++m_uRecords;
        m_pMirror->expect(vecFields[1], vecFields[2]);
    }
    else if (sKind == "end" && vecFields.size() == 2 && vecFields[1] == std::to_string(m_uRecords))
        m_bEnded = true;
    else
        *psError = "standard input has a line that is none of cdsreplay --share: " + sLine.substr(0, 100);
    return psError->empty();
}

bool CWatchSession::watch(std::string* psError)
{
    CLineSource lines;
    auto tpLast = std::chrono::steady_clock::now();
    while (!m_bEnded)
    {
        const auto now = std::chrono::steady_clock::now();
        const auto left = std::max(tpLast, m_pMirror->lastDelivery()) + m_limit - now;
        std::string sLine;
        const auto eResult = left.count() <= 0 ? CLineSource::EResult::timeout
                                               : lines.next(&sLine, std::chrono::ceil<std::chrono::milliseconds>(left));
        if (eResult == CLineSource::EResult::end)
        {
            *psError = "standard input ended before the owner had said what all its records are";
            return false;
        }
        if (eResult == CLineSource::EResult::line)
        {
            if (!handle(sLine, psError))
                return false;
            tpLast = std::chrono::steady_clock::now();
        }
        else if (std::max(tpLast, m_pMirror->lastDelivery()) + m_limit <= std::chrono::steady_clock::now())
        {
            *psError = "neither a line nor call data came for " + std::to_string(m_limit.count()) + " seconds";
            return false;
        }
    }
    m_pMirror->awaitExpected(m_limit);
    return true;
}

void writeText(std::ostream& out, const COptions& options, const CCallMirror& mirror)
{
    constexpr std::size_t cShown = 10;
    const CRecordBook mapRecords = mirror.records();
    const CCallMirror::CTraffic traffic = mirror.traffic();
    const auto vecDifferent = mirror.different();
    const auto row = [&](const std::string& sLabel, std::uint64_t ullValue) {
        out << "  " << std::left << std::setw(46) << sLabel << std::right << std::setw(10) << ullValue << '\n';
    };
    out << "Server " << options.server.sAddress << ", watching the calls of server " << options.sOwner << '\n'
        << "  " << mapRecords.size() << " calls\n";
    for (const auto& [sOutcome, uCount] : outcomes(mapRecords))
        row(sOutcome, uCount);
    row("deliveries through the network", traffic.ullDeliveries);
    row("bytes of call data that crossed", traffic.ullChangeBytes);
    row("bytes if each had been the whole record", traffic.ullWholeBytes);
    if (traffic.ullWholeBytes > traffic.ullChangeBytes)
    {
        const std::uint64_t ullSaved = traffic.ullWholeBytes - traffic.ullChangeBytes;
        out << "  " << std::left << std::setw(46) << "bytes saved by sending differences" << std::right << std::setw(10)
            << ullSaved << "  " << ullSaved * 100 / traffic.ullWholeBytes << " %\n";
    }
    out << "  " << mirror.equal() << " of " << mirror.expected() << " records equal to the owner's, stamps included\n";
    for (std::size_t u = 0; u < std::min(cShown, vecDifferent.size()); ++u)
        out << "  different: " << printable(vecDifferent[u]) << '\n';
    if (vecDifferent.size() > cShown)
        out << "  and " << vecDifferent.size() - cShown << " more\n";
}

void writeJson(std::ostream& out, const COptions& options, const CCallMirror& mirror)
{
    const CRecordBook mapRecords = mirror.records();
    const CCallMirror::CTraffic traffic = mirror.traffic();
    const auto vecDifferent = mirror.different();
    const nlohmann::ordered_json json = {{"server", options.server.sAddress},
                                         {"owner", options.sOwner},
                                         {"calls", mapRecords.size()},
                                         {"outcomes", outcomes(mapRecords)},
                                         {"deliveries", traffic.ullDeliveries},
                                         {"change_bytes", traffic.ullChangeBytes},
                                         {"whole_bytes", traffic.ullWholeBytes},
                                         {"owner_records", mirror.expected()},
                                         {"equal", mirror.equal()},
                                         {"different", vecDifferent}};
    // Record IDs are as the network sent them.
    out << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

EExit run(const COptions& options)
{
    CServerPlace place("cdswatch", options.sLogDirectory);
    std::string sError;
    if (place.configure(options.server, &sError))
    {
        CWatchSession session(options);
        if (session.start(&sError) && session.watch(&sError))
        {
            (options.bJson ? writeJson : writeText)(std::cout, options, session.mirror());
            std::cout.flush();
            return session.mirror().different().empty() && std::cout.good() ? exit_done : exit_failed;
        }
    }
    std::cerr << "cdswatch: " << printable(sError) << '\n';
    return exit_failed;
}

} // namespace

int main(int argc, char** argv)
{
    COptions options;
    CLI::App app("Is a second server: registers for calls of a first, and compares what it got with what that has.",
                 "cdswatch");
    declareOptions(app, options);
    return runProgram(app, argc, argv, [&] { return run(options); });
}
