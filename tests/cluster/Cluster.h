#pragma once

#include "CallSet.h"
#include "Network.h"
#include "Program.h"
#include "TemporaryDirectory.h"

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

/// Sanitizers make everything five to fifteen times slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool cSanitized = true;
#else
constexpr bool cSanitized = false;
#endif

/// A server as a process of its own; ClusterNode.cpp says what it understands.
class CNode
{
public:
    /// Returns when it exchanges calls with others.
    CNode(const CNetwork& network, unsigned uServer, const std::string& sSettings);

    /// @return the words of the answer; throws when there is none
    std::vector<std::string> ask(const std::string& sCommand)
    {
        begin(sCommand);
        return finish();
    }
    /// The same in two steps, for a command that takes its time.
    void begin(const std::string& sCommand) { m_program.writeLine(sCommand); }
    std::vector<std::string> finish();
    void tell(const std::string& sCommand) { (void)ask(sCommand); }
    bool isTold(const std::string& sCommand) { return ask(sCommand)[0] == "yes"; }

    const std::string& address() const { return m_sAddress; }
    CProgram& program() { return m_program; }

private:
    const CTemporaryDirectory m_directory;
    const std::string m_sAddress;
    CProgram m_program;
};

/// Servers, what is done to them, and what must hold after it.
class CClusterTest : public testing::Test
{
protected:
    using milliseconds = std::chrono::milliseconds;
    using CClock = std::chrono::steady_clock;

    /// Within this time everything is whole again. Only a failure reaches it.
    static constexpr milliseconds cLimit{cSanitized ? 60'000 : 10'000};
    /// What the tests' servers are set to, unless a test says otherwise.
    static constexpr const char* cSettings = "HeartbeatMs = 500\nSilenceLimitMs = 2000\nReconnectMostMs = 500\n";

    CClusterTest() { (void)signal(SIGPIPE, SIG_IGN); } // a server that has ended is no reason to end

    std::unique_ptr<CNode> start(unsigned uServer, const std::string& sSettings = cSettings)
    {
        return std::make_unique<CNode>(m_network, uServer, sSettings);
    }

    /// A limit as the last word of a command.
    static std::string text(milliseconds limit) { return ' ' + std::to_string(limit.count()); }

    /// A group of registrants of one server, and the server that owns their calls.
    struct CShare
    {
        CNode& owner;
        CNode& asker;
        std::string sName;              // of the group
        std::string sCalls;             // all of these have data
        std::size_t uRegistrations = 0; // at the owner, of all its peers together; 0: one for each call
        std::size_t uOwned = 0;         // calls of the owner that peers are registered for; 0: these calls
    };
    /// Waits until peers' registrations are at the owner exactly once, and each copy is equal to its owner's record.
    void awaitWhole(const std::vector<CShare>& vecShares, milliseconds limit = cLimit);

    /// Waits until each copy is equal to its owner's record, whatever is registered.
    void awaitSame(const CShare& share, milliseconds limit = cLimit);

    /// Says how long something took, for the record.
    void took(const std::string& sWhat, CClock::time_point tpBegin);
    void measured(const std::string& sWhat, long lValue, const char* pszUnit);

    /// What a server's exchange keeps is what the shares need, and no more.
    void expectEntries(CNode& node, std::size_t uWatched, std::size_t uRegistered, std::size_t uForPeers);

    /// No call into the store took longer than what a dead peer may cost it. Ends the server in order.
    void conclude(CNode& node);

    CNetwork m_network;

private:
    static milliseconds left(CClock::time_point tpUntil);
};
