// Servers as processes, and what must hold of them.
#include "Cluster.h"

#include <iostream>
#include <sstream>
#include <stdexcept>

namespace {

/// What a dead peer may cost a call into the store. A sanitizer stops a thread while it looks up what it has found,
/// even when that is to be suppressed.
constexpr long cLongestCallUs = cSanitized ? 3'000'000 : 300'000;

} // namespace

CNode::CNode(const CNetwork& network, unsigned uServer, const std::string& sSettings)
    : m_sAddress(network.address(uServer)),
      m_program({CDS_CLUSTER_NODE, m_directory.path(), m_sAddress, sSettings}, network.network(uServer))
{
    std::string sLine;
    if (!m_program.readLine(&sLine) || sLine != "ready")
        throw std::runtime_error("server " + m_sAddress + " does not start");
}

std::vector<std::string> CNode::finish()
{
    std::string sAnswer;
    if (!m_program.readLine(&sAnswer))
        throw std::runtime_error("server " + m_sAddress + " has ended without an answer");
    if (sAnswer.starts_with("failed"))
        throw std::runtime_error("server " + m_sAddress + ' ' + sAnswer);
    std::istringstream words(sAnswer);
    std::vector<std::string> vecWords;
    for (std::string sWord; words >> sWord;)
        vecWords.push_back(sWord);
    return vecWords;
}

void CClusterTest::awaitWhole(const std::vector<CShare>& vecShares, milliseconds limit)
{
    const auto tpUntil = CClock::now() + limit;
    for (const CShare& share : vecShares)
    {
        const std::size_t uOwned = share.uOwned == 0 ? CallSet::numbers(share.sCalls).size() : share.uOwned;
        const std::size_t uRegistrations = share.uRegistrations == 0 ? uOwned : share.uRegistrations;
        const auto vecCounted = share.owner.ask("await-registrations " + std::to_string(uOwned) + ' ' +
                                                std::to_string(uRegistrations) + text(left(tpUntil)));
        ASSERT_EQ(vecCounted[0], "yes") << vecCounted[1] << " calls have " << vecCounted[2] << " registrations, not "
                                        << uOwned << " and " << uRegistrations;
        ASSERT_NO_FATAL_FAILURE(awaitSame(share, left(tpUntil)));
    }
}

void CClusterTest::awaitSame(const CShare& share, milliseconds limit)
{
    const auto tpUntil = CClock::now() + limit;
    const auto vecNumbers = CallSet::numbers(share.sCalls);
    // The owner's records may still change when a digest is taken, so none is waited for much longer than it took.
    std::vector<std::string> vecOwned;
    std::vector<std::string> vecCopied{"no"};
    while (vecCopied[0] == "no" && CClock::now() < tpUntil)
    {
        const auto tpAsked = CClock::now();
        vecOwned = share.owner.ask("digest " + share.sCalls);
        const auto patience = 3 * std::chrono::ceil<milliseconds>(CClock::now() - tpAsked) + milliseconds(10);
        vecCopied = share.asker.ask("await " + share.sName + ' ' + std::to_string(vecNumbers.size()) + ' ' +
                                    vecOwned[1] + text(std::min(left(tpUntil), patience)));
    }
    if (vecCopied[0] == "yes")
        return;
    std::string sDifferent;
    for (const unsigned uNumber : vecNumbers)
    {
        const auto vecRecord = share.owner.ask("record " + std::to_string(uNumber));
        const auto vecText = share.asker.ask("text " + share.sName + ' ' + std::to_string(uNumber));
        if (vecRecord != vecText && sDifferent.size() < 2'000)
            sDifferent += std::to_string(uNumber) + ":\n  owned  " + testing::PrintToString(vecRecord) + "\n  copied " +
                          testing::PrintToString(vecText) + '\n';
    }
    FAIL() << vecOwned[0] << " records at " << share.owner.address() << ", " << vecCopied[1] << " copies at "
           << share.asker.address() << ". Different now:\n"
           << sDifferent;
}

/// What is left of a limit; not nothing, so that what is there already is found.
CClusterTest::milliseconds CClusterTest::left(CClock::time_point tpUntil)
{
    return std::max(std::chrono::duration_cast<milliseconds>(tpUntil - CClock::now()), milliseconds(1));
}

void CClusterTest::took(const std::string& sWhat, CClock::time_point tpBegin)
{
    measured(sWhat, static_cast<long>(std::chrono::duration_cast<milliseconds>(CClock::now() - tpBegin).count()), "ms");
}

void CClusterTest::measured(const std::string& sWhat, long lValue, const char* pszUnit)
{
    const auto* const pTest = testing::UnitTest::GetInstance()->current_test_info();
    std::cout << "measured " << pTest->name() << ": " << sWhat << ": " << lValue << ' ' << pszUnit << std::endl;
    std::string sKey = sWhat + '_' + pszUnit;
    for (char& c : sKey)
        c = c == ' ' || c == ',' ? '_' : c;
    RecordProperty(sKey, std::to_string(lValue));
}

void CClusterTest::expectEntries(CNode& node, std::size_t uWatched, std::size_t uRegistered, std::size_t uForPeers)
{
    const std::vector<std::string> vecExpected{std::to_string(uWatched), std::to_string(uRegistered),
                                               std::to_string(uWatched), std::to_string(uForPeers),
                                               std::to_string(uWatched + uForPeers)};
    // A registration that was sent again while its unregistration was under way is there for a moment.
    const auto tpUntil = CClock::now() + cLimit;
    std::vector<std::string> vecEntries;
    do
        vecEntries = node.ask("entries" + text(cLimit));
    while (vecEntries != vecExpected && CClock::now() < tpUntil);
    EXPECT_EQ(vecEntries, vecExpected) << "at " << node.address()
                                       << ": calls of other servers, registrations counted for them, entries for their "
                                          "owners, entries for peers, different ones among both";
}

void CClusterTest::conclude(CNode& node)
{
    const auto vecTimes = node.ask("times");
    const long lLongestUs = std::stol(vecTimes[1]);
    const long lMachineUs = std::stol(vecTimes[2]);
    measured("longest of " + vecTimes[0] + " store calls at " + node.address() + ", " + vecTimes[3], lLongestUs, "us");
    // The machine may delay both who waits for a lock and who holds it.
    EXPECT_LE(lLongestUs, cLongestCallUs + 2 * lMachineUs) << vecTimes[3] << "; the machine's delay was " << lMachineUs;
    node.program().writeLine("stop");
    const auto tpStop = CClock::now();
    const bool bEnded = node.program().awaitEnd(cLimit);
    took("stop of " + node.address(), tpStop);
    ASSERT_TRUE(bEnded) << "a thread of " << node.address() << " does not end";
    EXPECT_EQ(node.program().exitStatus(), 0);
}
