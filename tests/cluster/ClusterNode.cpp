// A server for tests to kill, stop and cut off: it does what its standard input says, and answers each line with one.
//
//   ClusterNode <directory> <address> <settings>
//
// The directory takes configuration and trace log; the settings are lines of the table [Orvane.CDS.Messaging]. The
// first line of its output is "ready". Numbers of calls are written as CallSet.h says, times are milliseconds.
//
//   own CALLS                             a component of this server registers for each call, so that its record stays
//   watch NAME OWNER CALLS                registers for calls of another server, and keeps a copy of each
//   leave NAME CALLS
//   update CALLS VALUE [BYTES]            updates each call once: a property everybody writes, one that only this
//                                         server writes, of so many bytes, and a log entry
//   touch CALLS VALUE                     the same without log entry
//   load CALLS PER-SECOND                 touches them from now on, one after the other; the property that only this
//                                         server writes is one that nothing else writes
//   unload                             -> updates made
//   churn OWNER COUNT STEPS SEED          registrants "a" and "b" come and go at random for the calls below COUNT
//   members NAME                       -> CALLS
//   digest CALLS                       -> records, digest of what the store holds
//   await NAME COUNT DIGEST LIMIT      -> yes or no, copies with data, their digest
//   await-deliveries NAME COUNT LIMIT  -> yes or no: so many more have come
//   registrations                      -> calls, registrations of peers, registrations that ended so far
//   await-registrations CALLS COUNT LIMIT -> yes or no, the same
//   await-ended COUNT LIMIT            -> yes or no, the same
//   entries LIMIT                      -> what the exchange keeps: calls of other servers, registrations counted for
//                                         them, entries for their owners, entries for peers; different keys of both
//   times                              -> calls into the store, the longest, the machine's own delay, in microseconds,
//   and
//                                         what the longest was
//   memory                             -> kilobytes resident, bytes allocated
//   text NAME CALL, record CALL        -> a copy, a record; for messages about failures
//   stop                                  ends in order

#include "CDSAPI.h"
#include "CDSSupport.h"
#include "CallSet.h"
#include "NodeCopies.h"
#include "NodeRegistrations.h"
#include "NodeTimes.h"

#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <malloc.h>
#include <random>
#include <signal.h>
#include <sys/prctl.h>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;

/// One server.
class CNode
{
public:
    CNode(std::string sDirectory, std::string sServerIP)
        : m_sDirectory(std::move(sDirectory)),
          m_sServerIP(std::move(sServerIP)),
          m_pStore(std::make_unique<CCDSAPI>()),
          m_pRegistrations(std::make_unique<CNodeRegistrations>(*m_pStore, m_sServerIP))
    {
    }
    ~CNode()
    {
        (void)unload();
        (void)m_pStore->Finalize(); // cannot fail; whatever is under way
        m_mapCopies.clear();
        m_pRegistrations.reset();
    }
    CNode(const CNode&) = delete;
    CNode& operator=(const CNode&) = delete;

    bool start()
    {
        const auto ulThis = reinterpret_cast<unsigned long>(this);
        return m_pStore->Register(ulThis, cReader, m_sServerIP, "*", "none", onRecord, 1) >= 0 &&
               m_pStore->Initialize(m_sServerIP, 0) >= 0 && m_pRegistrations->exchanging();
    }

    /// @return the answer to a command; throws when it is none
    std::string answer(const std::string& sCommand);

private:
    using CWords = std::vector<std::string>;
    static constexpr const char* cReader = "local reader";

    static long onRecord(CCallbackMsg* pMessage)
    {
        if (auto* const pData = dynamic_cast<CCallData*>(pMessage->getCallbackData()); pData != nullptr)
            reinterpret_cast<CNode*>(pMessage->getReqHandle())->m_sRecord = CRecordDigest::text(*pData);
        return 0;
    }
    /// Text form of what the store holds of a call; empty: nothing.
    std::string record(unsigned uNumber)
    {
        m_sRecord.clear();
        (void)m_pStore->GetCallData(cReader, CallSet::callID(uNumber)); // a call without data leaves the text empty
        return m_sRecord;
    }

    static void require(long lResult, const char* pszWhat)
    {
        if (lResult < 0)
            throw std::runtime_error(std::string(pszWhat) + " refused");
    }
    void set(CCallData& call, const std::string& sName, const std::string& sValue)
    {
        std::string sBytes = sValue;
        auto* const pBytes = reinterpret_cast<unsigned char*>(sBytes.data());
        require(m_times.measured("setProperty",
                                 [&] { return call.setProperty(sName, pBytes, static_cast<int>(sBytes.size())); }),
                "setProperty");
    }
    void update(unsigned uNumber, const std::string& sValue, std::size_t uBytes, bool bLog,
                const std::string& sOwn = "BY ");

    /// @param sOwnerIP  whose calls, when the name is new
    CNodeCopies& copies(const std::string& sName, const std::string& sOwnerIP = "")
    {
        auto& pCopies = m_mapCopies[sName];
        if (pCopies == nullptr)
            pCopies = std::make_unique<CNodeCopies>(*m_pStore, m_times, sName, sOwnerIP);
        return *pCopies;
    }

    std::string own(const CWords& vecWords);
    std::string load(const CWords& vecWords);
    unsigned long unload();
    std::string churn(const CWords& vecWords);
    std::string digest(const std::string& sCalls);
    std::string await(const CWords& vecWords);
    std::string registrations() const;
    std::string entries(milliseconds limit);
    std::string times();
    static std::string memory();

    const std::string m_sDirectory;
    const std::string m_sServerIP;
    CNodeTimes m_times;
    std::string m_sRecord; // the record asked for
    std::unique_ptr<CCDSAPI> m_pStore;
    std::unique_ptr<CNodeRegistrations> m_pRegistrations;
    std::map<std::string, std::unique_ptr<CNodeCopies>> m_mapCopies; // name -> registrants and their copies

    // The load.
    std::thread m_loader;
    std::mutex m_mutex; // guards the flag
    std::condition_variable m_stopping;
    bool m_bStopping = false;
    unsigned long m_ulLoaded = 0; // the loader's until it has ended
};

/// @param sOwn  what the property that only this server writes begins with
void CNode::update(unsigned uNumber, const std::string& sValue, std::size_t uBytes, bool bLog, const std::string& sOwn)
{
    CCallData call(m_pStore.get(), CallSet::callID(uNumber));
    set(call, CDSPROP_CALLERID, sValue);
    set(call, sOwn + m_sServerIP, sValue + std::string(uBytes, 'x'));
    if (bLog)
    {
        std::string sBytes = sValue + " by " + m_sServerIP;
        auto* const pBytes = reinterpret_cast<unsigned char*>(sBytes.data());
        require(call.appendLogEntry(CDSLOG_CONNECT_ENTRY, pBytes, static_cast<int>(sBytes.size())), "appendLogEntry");
    }
    require(m_times.measured("Update", [&] { return m_pStore->Update(cReader, &call, false); }), "Update");
}

std::string CNode::own(const CWords& vecWords)
{
    for (const unsigned uNumber : CallSet::numbers(vecWords.at(1)))
        require(m_times.measured("Register",
                                 [&] {
                                     return m_pStore->Register(0, CNodeRegistrations::cLocal + std::to_string(uNumber),
                                                               m_sServerIP, CallSet::callID(uNumber), "none", nullptr,
                                                               1);
                                 }),
                "Register");
    return "ok";
}

std::string CNode::load(const CWords& vecWords)
{
    (void)unload();
    const auto vecNumbers = CallSet::numbers(vecWords.at(1));
    const auto period = std::chrono::nanoseconds(1'000'000'000 / std::stol(vecWords.at(2)));
    m_bStopping = false;
    m_loader = std::thread([this, vecNumbers, period] {
        auto due = std::chrono::steady_clock::now();
        std::unique_lock lock(m_mutex);
        for (m_ulLoaded = 0; !m_stopping.wait_until(lock, due, [this] { return m_bStopping; }); ++m_ulLoaded)
        {
            lock.unlock();
            update(vecNumbers[m_ulLoaded % vecNumbers.size()], "load " + std::to_string(m_ulLoaded), 0, false,
                   "LOADED BY ");
            due += period;
            lock.lock();
        }
    });
    return "ok";
}

unsigned long CNode::unload()
{
    if (!m_loader.joinable())
        return 0;
    {
        const std::lock_guard guard(m_mutex);
        m_bStopping = true;
    }
    m_stopping.notify_all();
    m_loader.join();
    return m_ulLoaded;
}

/// Registers and unregisters two registrants of each call in every order, while the exchanges that this starts are
/// under way: how far they have got when the next step comes is left to chance.
std::string CNode::churn(const CWords& vecWords)
{
    const auto uCalls = static_cast<unsigned>(std::stoul(vecWords.at(2)));
    std::mt19937 random(static_cast<unsigned>(std::stoul(vecWords.at(4))));
    const auto below = [&](unsigned uLimit) { return std::uniform_int_distribution(0U, uLimit - 1)(random); };
    CNodeCopies& first = copies("a", vecWords.at(1));
    CNodeCopies& second = copies("b", vecWords.at(1));
    for (unsigned long ulStep = std::stoul(vecWords.at(3)); ulStep > 0; --ulStep)
    {
        CNodeCopies& group = below(2) == 0 ? first : second;
        const unsigned uNumber = below(uCalls);
        require(group.watches(uNumber) ? group.leave(uNumber) : group.watch(uNumber), "a registration");
        // Who is not registered for another server's call has no business with it: nobody takes his word there.
        if (below(8) == 0 && (first.watches(uNumber) || second.watches(uNumber)))
            update(uNumber, "churn " + std::to_string(ulStep), 0, false);
        // From no pause at all to several exchanges.
        const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(below(4) == 0 ? below(600) : 0);
        while (std::chrono::steady_clock::now() < until)
            std::this_thread::yield();
    }
    return "ok";
}

std::string CNode::digest(const std::string& sCalls)
{
    std::uint64_t ullDigest = 0;
    std::size_t uRecords = 0;
    for (const unsigned uNumber : CallSet::numbers(sCalls))
        if (const std::string sText = record(uNumber); !sText.empty())
        {
            ullDigest += CRecordDigest::of(sText);
            ++uRecords;
        }
    return std::to_string(uRecords) + ' ' + std::to_string(ullDigest);
}

std::string CNode::await(const CWords& vecWords)
{
    CNodeCopies& group = copies(vecWords.at(1));
    const bool bSame =
        group.await(std::stoul(vecWords.at(2)), std::stoull(vecWords.at(3)), milliseconds(std::stol(vecWords.at(4))));
    const auto [uCopies, ullDigest] = group.state();
    return (bSame ? "yes " : "no ") + std::to_string(uCopies) + ' ' + std::to_string(ullDigest);
}

std::string CNode::registrations() const
{
    const auto count = m_pRegistrations->count();
    return std::to_string(count.uCalls) + ' ' + std::to_string(count.uRegistrations) + ' ' +
           std::to_string(count.uEnded);
}

/// Has the exchange write its tables to the trace log, and counts the lines.
std::string CNode::entries(milliseconds limit)
{
    const std::string sPath = m_sDirectory + "/OvnCDS.log";
    CDSSupport::flushLogs();
    std::ifstream log(sPath, std::ios::ate);
    const auto begin = log.tellg();
    CDSSupport::setTraceMask("OvnCDS", 1); // silent else: the tests are about the exchange
    m_pStore->Dump(1);
    std::string sText;
    const auto until = std::chrono::steady_clock::now() + limit;
    while (sText.find("-- CDR.") == std::string::npos) // what comes behind the tables
    {
        if (std::chrono::steady_clock::now() > until)
            throw std::runtime_error("no dump in time");
        CDSSupport::flushLogs();
        log.clear();
        log.seekg(begin);
        sText.assign(std::istreambuf_iterator<char>(log), {});
    }
    CDSSupport::setTraceMask("OvnCDS", 0);
    std::size_t uCalls = 0;
    std::size_t uCounted = 0;
    std::size_t uForOwners = 0;
    std::size_t uForPeers = 0;
    std::set<std::string> setKeys;
    std::istringstream lines(sText);
    for (std::string sLine; std::getline(lines, sLine);)
    {
        const std::size_t uCall = sLine.find("   callid ");
        if (uCall == std::string::npos)
            continue;
        if (const std::size_t uCount = sLine.find(", regcount "); uCount != std::string::npos)
        {
            ++uCalls;
            uCounted += std::stoul(sLine.substr(uCount + 11));
        }
        else if (const std::size_t uClient = sLine.find(", client "); uClient != std::string::npos)
        {
            ++(sLine[uClient + 9] == '1' ? uForOwners : uForPeers);
            setKeys.insert(sLine.substr(uCall, sLine.find(',', uCall) - uCall) + sLine.substr(uClient));
        }
    }
    std::ostringstream answer;
    answer << uCalls << ' ' << uCounted << ' ' << uForOwners << ' ' << uForPeers << ' ' << setKeys.size();
    return answer.str();
}

std::string CNode::times()
{
    const auto us = [](CNodeTimes::CClock::duration duration) {
        return std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(duration).count());
    };
    const auto reading = m_times.read();
    return std::to_string(reading.ulCalls) + ' ' + us(reading.longest) + ' ' + us(reading.machine) + ' ' +
           reading.pszLongest;
}

std::string CNode::memory()
{
    (void)malloc_trim(0); // as little as possible: what is left is in use
    std::ifstream status("/proc/self/status");
    std::string sResident;
    for (std::string sLine; std::getline(status, sLine);)
        if (sLine.starts_with("VmRSS:"))
            sResident = std::to_string(std::stoul(sLine.substr(6)));
    const auto heap = mallinfo2();
    return sResident + ' ' + std::to_string(heap.uordblks + heap.hblkhd);
}

std::string CNode::answer(const std::string& sCommand)
{
    std::istringstream text(sCommand);
    const CWords vecWords{std::istream_iterator<std::string>(text), {}};
    const std::string& sVerb = vecWords.at(0);
    if (sVerb == "own")
        return own(vecWords);
    if (sVerb == "watch")
    {
        for (const unsigned uNumber : CallSet::numbers(vecWords.at(3)))
            require(copies(vecWords[1], vecWords[2]).watch(uNumber), "Register");
        return "ok";
    }
    if (sVerb == "leave")
    {
        for (const unsigned uNumber : CallSet::numbers(vecWords.at(2)))
            require(copies(vecWords[1]).leave(uNumber), "Unregister");
        return "ok";
    }
    if (sVerb == "update" || sVerb == "touch")
    {
        const std::size_t uBytes = vecWords.size() > 3 ? std::stoul(vecWords[3]) : 0;
        for (const unsigned uNumber : CallSet::numbers(vecWords.at(1)))
            update(uNumber, vecWords.at(2), uBytes, sVerb == "update");
        return "ok";
    }
    if (sVerb == "load")
        return load(vecWords);
    if (sVerb == "unload")
        return std::to_string(unload());
    if (sVerb == "churn")
        return churn(vecWords);
    if (sVerb == "members")
        return CallSet::text(copies(vecWords.at(1)).members());
    if (sVerb == "digest")
        return digest(vecWords.at(1));
    if (sVerb == "await")
        return await(vecWords);
    if (sVerb == "registrations")
        return registrations();
    if (sVerb == "await-registrations")
    {
        const bool bThere = m_pRegistrations->await(std::stoul(vecWords.at(1)), std::stoul(vecWords.at(2)),
                                                    milliseconds(std::stol(vecWords.at(3))));
        return (bThere ? "yes " : "no ") + registrations();
    }
    if (sVerb == "await-ended")
        return (m_pRegistrations->awaitEnded(std::stoul(vecWords.at(1)), milliseconds(std::stol(vecWords.at(2))))
                    ? "yes "
                    : "no ") +
               registrations();
    if (sVerb == "await-deliveries")
        return copies(vecWords.at(1))
                       .awaitDeliveries(std::stoul(vecWords.at(2)), milliseconds(std::stol(vecWords.at(3))))
                   ? "yes"
                   : "no";
    if (sVerb == "entries")
        return entries(milliseconds(std::stol(vecWords.at(1))));
    if (sVerb == "times")
        return times();
    if (sVerb == "memory")
        return memory();
    if (sVerb == "text")
        return copies(vecWords.at(1)).textOf(CallSet::numbers(vecWords.at(2)).at(0));
    if (sVerb == "record")
        return record(CallSet::numbers(vecWords.at(1)).at(0));
    throw std::runtime_error("no such command");
}

bool configure(const std::string& sDirectory, const std::string& sAddress, const std::string& sSettings)
{
    const std::string sPath = sDirectory + "/cds.toml";
    std::ofstream file(sPath);
    file << "[Orvane.CDS]\nLogTraceMask = 0\nLogMaxFileKB = 1000000\n[Orvane.CDS.Messaging]\nLocalAddress = \""
         << sAddress << "\"\nAllowUnencrypted = 1\n"
         << sSettings;
    file.close();
    std::string sError;
    CDSSupport::setLogDirectory(sDirectory);
    if (CDSSupport::setConfigurationFile(sPath, &sError) >= 0)
        return true;
    std::cerr << sError << '\n';
    return false;
}

} // namespace

int main(int nArguments, char** ppszArguments)
{
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL); // a stopped one would outlive a test that was killed
    if (nArguments != 4 || !configure(ppszArguments[1], ppszArguments[2], ppszArguments[3]))
        return 2;
    CCDSAPI::initLogger();
    {
        CNode node(ppszArguments[1], ppszArguments[2]);
        if (!node.start())
            return 1;
        std::cout << "ready" << std::endl;
        for (std::string sCommand; std::getline(std::cin, sCommand) && sCommand != "stop";)
        {
            try
            {
                std::cout << node.answer(sCommand) << std::endl;
            }
            catch (const std::exception& error)
            {
                std::cout << "failed: " << sCommand.substr(0, 60) << ": " << error.what() << std::endl;
            }
        }
    }
    std::cout << "stopped" << std::endl;
    return 0;
}
