// Many calls, many connections, and a peer that keeps others waiting.

#include "Cluster.h"

#include <array>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <tuple>

namespace {

std::string firstCalls(unsigned uCount)
{
    return "0-" + std::to_string(uCount - 1);
}

/// The least that a node has answered to "memory".
struct CMemory
{
    void lower(const std::vector<std::string>& vecAnswer)
    {
        lResidentKB = std::min(lResidentKB, std::stol(vecAnswer.at(0)));
        lAllocated = std::min(lAllocated, std::stol(vecAnswer.at(1)));
    }

    long lResidentKB = std::numeric_limits<long>::max();
    long lAllocated = std::numeric_limits<long>::max();
};

class ClusterCrowdTest : public CClusterTest
{
protected:
    std::unique_ptr<CNode> startOwner(const std::string& sCalls, const std::string& sSettings = cSettings)
    {
        auto pOwner = start(1, sSettings);
        pOwner->tell("own " + sCalls);
        pOwner->tell("touch " + sCalls + " first");
        return pOwner;
    }
    std::unique_ptr<CNode> startAsker(unsigned uServer, const std::string& sCalls,
                                      const std::string& sSettings = cSettings)
    {
        auto pAsker = start(uServer, sSettings);
        pAsker->tell("watch a " + m_network.address(1) + ' ' + sCalls);
        return pAsker;
    }

    void comeAndGo(unsigned uSteps, bool bConnectionsLost);
    void expectMembersWhole(CNode& owner, CNode& asker);

    /// So many calls are shared, the connection is lost for longer than the limit of silence, and comes back.
    void reconnectWith(unsigned uCalls, milliseconds limit);
};

TEST_F(ClusterCrowdTest, OthersGoOnWhileAPeerDoesNotRead)
{
    // A queue that is soon full, and a limit of silence that does not get ahead of it.
    const std::string sSettings = "HeartbeatMs = 500\nSilenceLimitMs = 30000\nReconnectMostMs = 500\n"
                                  "MessageBytes = 1100000\nSendQueueBytes = 1100000\n";
    constexpr unsigned cCalls = 20;
    const std::string sCalls = firstCalls(cCalls);
    const auto pOwner = startOwner(sCalls, sSettings);
    const auto pDeaf = startAsker(2, sCalls, sSettings);
    const auto pOther = startAsker(3, sCalls, sSettings);
    awaitWhole({{*pOwner, *pDeaf, "a", sCalls, 2 * cCalls}, {*pOwner, *pOther, "a", sCalls, 2 * cCalls}});
    const auto tpDeaf = CClock::now();
    pDeaf->program().freeze();
    // What the system takes in for the one that does not read is some megabytes.
    auto slowest = CClock::duration::zero();
    bool bDropped = false;
    for (unsigned uRound = 0; !bDropped && uRound < 200; ++uRound)
    {
        const auto tpRound = CClock::now();
        pOwner->tell("touch " + sCalls + " round-" + std::to_string(uRound) + " 20000");
        const auto vecOwned = pOwner->ask("digest " + sCalls);
        ASSERT_TRUE(pOther->isTold("await a " + vecOwned[0] + ' ' + vecOwned[1] + text(cLimit)));
        slowest = std::max(slowest, CClock::now() - tpRound);
        bDropped = pOwner->ask("registrations")[1] == std::to_string(cCalls);
    }
    ASSERT_TRUE(bDropped) << "the peer that does not read is kept";
    took("peer does not read, until it is dropped", tpDeaf);
    measured("slowest round of another peer meanwhile", std::chrono::duration_cast<milliseconds>(slowest).count(),
             "ms");
    EXPECT_LT(slowest, milliseconds(cSanitized ? 20'000 : 3'000));
    pDeaf->program().thaw();
    const auto tpReturn = CClock::now();
    awaitWhole({{*pOwner, *pDeaf, "a", sCalls, 2 * cCalls}, {*pOwner, *pOther, "a", sCalls, 2 * cCalls}});
    took("peer did not read, from its return", tpReturn);
    expectEntries(*pOwner, 0, 0, 2 * cCalls);
    conclude(*pOther);
    conclude(*pDeaf);
    conclude(*pOwner);
}

TEST_F(ClusterCrowdTest, OthersGoOnWhileALinkIsCut)
{
    if (!m_network.lacks().empty())
        GTEST_SKIP() << "no link to cut: " << m_network.lacks();
    // The first server owns calls that both others have registered for, and has registered for calls of either.
    constexpr unsigned cCalls = 20;
    const std::string sFirst = "0-19";
    const std::string sCut = "100-119";
    const std::string sOther = "200-219";
    const auto pFirst = startOwner(sFirst);
    const auto pCut = startAsker(2, sFirst);
    const auto pOther = startAsker(3, sFirst);
    for (const auto& [pNode, sName, sCalls] :
         {std::tuple(pCut.get(), "cut ", sCut), std::tuple(pOther.get(), "other ", sOther)})
    {
        pNode->tell("own " + sCalls);
        pNode->tell("touch " + sCalls + " first");
        pFirst->tell("watch " + (sName + pNode->address()) + ' ' + sCalls);
    }
    const std::vector<CShare> vecShares{{*pFirst, *pCut, "a", sFirst, 2 * cCalls},
                                        {*pFirst, *pOther, "a", sFirst, 2 * cCalls},
                                        {*pCut, *pFirst, "cut", sCut},
                                        {*pOther, *pFirst, "other", sOther}};
    ASSERT_NO_FATAL_FAILURE(awaitWhole(vecShares));
    const auto tpCut = CClock::now();
    m_network.cut(2);
    auto slowest = CClock::duration::zero();
    unsigned uAfter = 0; // rounds since the first server has noticed
    for (unsigned uRound = 0; uAfter < 20 && CClock::now() - tpCut < cLimit; ++uRound)
    {
        const auto tpRound = CClock::now();
        for (const std::string& sCalls : {sCut, sFirst, sOther})
            pFirst->tell("touch " + sCalls + " round-" + std::to_string(uRound));
        ASSERT_NO_FATAL_FAILURE(awaitSame(vecShares[1]));
        ASSERT_NO_FATAL_FAILURE(awaitSame(vecShares[3]));
        slowest = std::max(slowest, CClock::now() - tpRound);
        uAfter += pFirst->ask("registrations")[1] == std::to_string(cCalls) ? 1 : 0;
    }
    ASSERT_EQ(uAfter, 20U) << "the cut is not noticed";
    measured("slowest round of another peer meanwhile", std::chrono::duration_cast<milliseconds>(slowest).count(),
             "ms");
    EXPECT_LT(slowest, milliseconds(cSanitized ? 20'000 : 2'000));
    m_network.mend(2);
    const auto tpMended = CClock::now();
    awaitWhole(vecShares);
    took("one of two links cut, from its return", tpMended);
    expectEntries(*pFirst, 2 * cCalls, 2 * cCalls, 2 * cCalls);
    conclude(*pFirst);
    conclude(*pOther);
    conclude(*pCut);
}

TEST_F(ClusterCrowdTest, AHundredLostConnectionsLeaveNothingBehind)
{
    if (!m_network.lacks().empty())
        GTEST_SKIP() << "no connection to end: " << m_network.lacks();
    constexpr unsigned cRounds = cSanitized ? 30 : 100;
    constexpr unsigned cCalls = 50;
    const std::string sCalls = firstCalls(cCalls);
    const auto pOwner = startOwner(sCalls, std::string(cSettings) + "ReconnectFirstMs = 10\n");
    const auto pAsker = startAsker(2, sCalls, std::string(cSettings) + "ReconnectFirstMs = 10\n");
    awaitWhole({{*pOwner, *pAsker, "a", sCalls}});
    // The least of ten rounds each, early and late: what a round has still under way is no growth.
    constexpr unsigned cWindow = 10;
    std::array<std::array<CMemory, 2>, 2> aLeast; // node, early or late
    auto longest = CClock::duration::zero();
    for (unsigned uRound = 1; uRound <= cRounds; ++uRound)
    {
        const auto tpLost = CClock::now();
        m_network.reset(1, 2);
        pOwner->tell("touch " + sCalls + " owner-" + std::to_string(uRound));
        pAsker->tell("touch " + sCalls + " asker-" + std::to_string(uRound));
        ASSERT_TRUE(pOwner->isTold("await-ended " + std::to_string(uRound * cCalls) + text(cLimit)));
        ASSERT_NO_FATAL_FAILURE(awaitWhole({{*pOwner, *pAsker, "a", sCalls}})) << "round " << uRound;
        longest = std::max(longest, CClock::now() - tpLost);
        const bool bLate = uRound > cRounds - cWindow;
        if (bLate || (uRound > cWindow && uRound <= 2 * cWindow))
        {
            aLeast[0][bLate ? 1 : 0].lower(pOwner->ask("memory"));
            aLeast[1][bLate ? 1 : 0].lower(pAsker->ask("memory"));
        }
    }
    measured("longest recovery of " + std::to_string(cRounds) + " lost connections",
             std::chrono::duration_cast<milliseconds>(longest).count(), "ms");
    for (const unsigned uNode : {0U, 1U})
    {
        const long lResidentKB = aLeast[uNode][1].lResidentKB - aLeast[uNode][0].lResidentKB;
        const long lBytes = aLeast[uNode][1].lAllocated - aLeast[uNode][0].lAllocated;
        const std::string sWhere = " grown at " + m_network.address(1 + uNode);
        measured("resident memory" + sWhere, lResidentKB, "KB");
        measured("allocated memory" + sWhere, lBytes, "bytes");
        if (!cSanitized) // whose own memory grows
        {
            EXPECT_LT(lResidentKB, 2'000) << sWhere;
            EXPECT_LT(lBytes, 40 * static_cast<long>(cCalls * (cRounds - 2 * cWindow)))
                << sWhere; // 40 bytes a registration
        }
    }
    expectEntries(*pOwner, 0, 0, cCalls);
    expectEntries(*pAsker, cCalls, cCalls, 0);
    conclude(*pAsker);
    conclude(*pOwner);
}

TEST_F(ClusterCrowdTest, AHundredKilledAskersLeaveNothingBehind)
{
    constexpr unsigned cRounds = cSanitized ? 20 : 100;
    constexpr unsigned cCalls = 50;
    const std::string sCalls = firstCalls(cCalls);
    const auto pOwner = startOwner(sCalls);
    constexpr unsigned cWindow = 10;
    std::array<CMemory, 2> aLeast; // early or late
    auto longest = CClock::duration::zero();
    for (unsigned uRound = 1; uRound <= cRounds; ++uRound)
    {
        const auto tpStart = CClock::now();
        const auto pAsker = startAsker(2, sCalls);
        pOwner->tell("touch " + sCalls + " owner-" + std::to_string(uRound));
        ASSERT_NO_FATAL_FAILURE(awaitWhole({{*pOwner, *pAsker, "a", sCalls}})) << "round " << uRound;
        longest = std::max(longest, CClock::now() - tpStart);
        if (uRound > cRounds - cWindow || (uRound > cWindow && uRound <= 2 * cWindow))
            aLeast[uRound > cRounds - cWindow ? 1 : 0].lower(pOwner->ask("memory"));
        if (uRound % 2 == 0) // else the next one comes before this one is missed
        {
            pAsker->program().kill();
            ASSERT_TRUE(pOwner->isTold("await-registrations 0 0" + text(cLimit)));
        }
    }
    ASSERT_TRUE(pOwner->isTold("await-registrations 0 0" + text(cLimit)));
    measured("longest start of " + std::to_string(cRounds) + " askers",
             std::chrono::duration_cast<milliseconds>(longest).count(), "ms");
    const long lResidentKB = aLeast[1].lResidentKB - aLeast[0].lResidentKB;
    const long lBytes = aLeast[1].lAllocated - aLeast[0].lAllocated;
    measured("resident memory grown", lResidentKB, "KB");
    measured("allocated memory grown", lBytes, "bytes");
    if (!cSanitized)
    {
        EXPECT_LT(lResidentKB, 2'000);
        EXPECT_LT(lBytes, 40 * static_cast<long>(cCalls * (cRounds - 2 * cWindow)));
    }
    expectEntries(*pOwner, 0, 0, 0);
    conclude(*pOwner);
}

/// @param bConnectionsLost  meanwhile, over and over
void ClusterCrowdTest::comeAndGo(unsigned uSteps, bool bConnectionsLost)
{
    constexpr unsigned cCalls = 20;
    constexpr unsigned cRounds = 3;
    const std::string sAll = firstCalls(cCalls);
    const auto pOwner = startOwner(sAll);
    const auto pAsker = start(2);
    std::size_t uEnded = 0;
    for (unsigned uRound = 0; uRound < cRounds; ++uRound)
    {
        const unsigned uSeed = std::random_device{}();
        std::cout << "seed " << uSeed << std::endl;
        pOwner->tell("load " + sAll + " 2000");
        pAsker->begin("churn " + pOwner->address() + ' ' + std::to_string(cCalls) + ' ' + std::to_string(uSteps) + ' ' +
                      std::to_string(uSeed));
        for (unsigned uLost = 0; bConnectionsLost && uLost < 10; ++uLost)
        {
            m_network.reset(1, 2);
            uEnded = std::stoul(pOwner->ask("await-ended " + std::to_string(uEnded + cCalls) + " 200")[3]);
        }
        (void)pAsker->finish();
        const auto tpEnded = CClock::now();
        pOwner->tell("unload");
        // Everybody who is registered now hears of this.
        pOwner->tell("touch " + sAll + " last");
        ASSERT_NO_FATAL_FAILURE(expectMembersWhole(*pOwner, *pAsker)) << "seed " << uSeed;
        took("come and gone at random, from the last step", tpEnded);
        ASSERT_FALSE(HasFailure()) << "seed " << uSeed;
    }
    conclude(*pAsker);
    conclude(*pOwner);
}

/// Who is registered now, and nobody else, is registered at the owner and has its records.
void ClusterCrowdTest::expectMembersWhole(CNode& owner, CNode& asker)
{
    std::set<unsigned> setShared;
    std::vector<CShare> vecShares;
    std::size_t uRegistered = 0;
    for (const std::string sName : {"a", "b"})
    {
        const std::string sCalls = asker.ask("members " + sName)[0];
        const auto vecNumbers = CallSet::numbers(sCalls);
        setShared.insert(vecNumbers.begin(), vecNumbers.end());
        uRegistered += vecNumbers.size();
        vecShares.push_back({owner, asker, sName, sCalls});
    }
    for (CShare& share : vecShares)
        share.uOwned = setShared.size();
    ASSERT_NO_FATAL_FAILURE(awaitWhole(vecShares));
    expectEntries(owner, 0, 0, setShared.size());
    expectEntries(asker, setShared.size(), uRegistered, 0);
}

TEST_F(ClusterCrowdTest, RegistrantsThatComeAndGoAtRandomEndUpRight)
{
    comeAndGo(cSanitized ? 600 : 3'000, false);
}

TEST_F(ClusterCrowdTest, RegistrantsThatComeAndGoWhileConnectionsAreLostEndUpRight)
{
    if (!m_network.lacks().empty())
        GTEST_SKIP() << "no connection to end: " << m_network.lacks();
    comeAndGo(cSanitized ? 1'000 : 10'000, true);
}

void ClusterCrowdTest::reconnectWith(unsigned uCalls, milliseconds limit)
{
    const std::string sCalls = firstCalls(uCalls);
    const auto tpStart = CClock::now();
    const auto pOwner = startOwner(sCalls);
    const auto pAsker = startAsker(2, sCalls);
    ASSERT_NO_FATAL_FAILURE(awaitWhole({{*pOwner, *pAsker, "a", sCalls}}, limit));
    took(std::to_string(uCalls) + " calls shared, from the start", tpStart);
    pAsker->program().freeze();
    ASSERT_TRUE(pOwner->isTold("await-registrations 0 0" + text(limit)));
    const std::string sSome = firstCalls(uCalls / 10);
    pOwner->tell("touch " + sSome + " alone");
    pOwner->tell("load " + sSome + " 100"); // its calls into the store meet the exchange's
    pAsker->program().thaw();
    const auto tpReturn = CClock::now();
    ASSERT_TRUE(
        pOwner->isTold("await-registrations " + std::to_string(uCalls) + ' ' + std::to_string(uCalls) + text(limit)));
    took(std::to_string(uCalls) + " calls registered again", tpReturn);
    pOwner->tell("unload");
    ASSERT_NO_FATAL_FAILURE(awaitWhole({{*pOwner, *pAsker, "a", sCalls}}, limit));
    took(std::to_string(uCalls) + " calls whole again", tpReturn);
    conclude(*pAsker);
    conclude(*pOwner);
}

TEST_F(ClusterCrowdTest, AThousandCallsAreWholeAfterTheConnectionWasLost)
{
    reconnectWith(1'000, cLimit);
}

/// Without optimisation the same takes several times as long.
#ifdef __OPTIMIZE__
constexpr unsigned cManyCalls = 50'000;
#else
constexpr unsigned cManyCalls = 20'000;
#endif

TEST_F(ClusterCrowdTest, TensOfThousandsOfCallsAreWholeAfterTheConnectionWasLost)
{
    if (cSanitized)
        GTEST_SKIP() << "too slow under a sanitizer";
    reconnectWith(cManyCalls, milliseconds(50'000));
}

} // namespace
