// Servers that are killed and started again.

#include "Cluster.h"

namespace {

constexpr unsigned cCalls = cSanitized ? 40 : 100;
const std::string s_sCalls = "0-" + std::to_string(cCalls - 1);

class ClusterRestartTest : public CClusterTest
{
protected:
    std::unique_ptr<CNode> startOwner(const std::string& sValue)
    {
        auto pOwner = start(1);
        pOwner->tell("own " + s_sCalls);
        pOwner->tell("update " + s_sCalls + ' ' + sValue);
        return pOwner;
    }
    std::unique_ptr<CNode> startAsker()
    {
        auto pAsker = start(2);
        pAsker->tell("watch a " + m_network.address(1) + ' ' + s_sCalls);
        return pAsker;
    }
    void loadBoth(CNode& owner, CNode& asker)
    {
        owner.tell("load " + s_sCalls + " 1000");
        asker.tell("load " + s_sCalls + " 200");
        ASSERT_TRUE(asker.isTold("await-deliveries a 500" + text(cLimit)));
    }
    void awaitWhole(CNode& owner, CNode& asker) { CClusterTest::awaitWhole({{owner, asker, "a", s_sCalls}}); }
    void concludeBoth(CNode& owner, CNode& asker)
    {
        expectEntries(owner, 0, 0, cCalls);
        expectEntries(asker, cCalls, cCalls, 0);
        conclude(asker);
        conclude(owner);
    }
};

TEST_F(ClusterRestartTest, TheAskerIsWholeAfterItsOwnerWasKilledUnderLoad)
{
    auto pOwner = startOwner("before");
    const auto pAsker = startAsker();
    awaitWhole(*pOwner, *pAsker);
    loadBoth(*pOwner, *pAsker);
    pOwner->program().kill();
    // The asker's components do not know, and come, go and write as ever.
    pAsker->tell("leave a 0-9");
    pAsker->tell("watch a " + m_network.address(1) + " 0-9");
    pOwner = startOwner("after");
    const auto tpReady = CClock::now();
    pOwner->tell("load " + s_sCalls + " 1000");
    ASSERT_TRUE(pAsker->isTold("await-deliveries a 500" + text(cLimit)));
    pOwner->tell("unload");
    pAsker->tell("unload");
    awaitWhole(*pOwner, *pAsker);
    took("owner killed under load, from its return", tpReady);
    concludeBoth(*pOwner, *pAsker);
}

TEST_F(ClusterRestartTest, TheOwnerKnowsTheAskerOnceAfterItWasKilledUnderLoad)
{
    const auto pOwner = startOwner("before");
    auto pAsker = startAsker();
    awaitWhole(*pOwner, *pAsker);
    loadBoth(*pOwner, *pAsker);
    const auto tpKilled = CClock::now();
    pAsker->program().kill();
    ASSERT_TRUE(pOwner->isTold("await-registrations 0 0" + text(cLimit)));
    took("asker killed under load, until the owner has noticed", tpKilled);
    const auto tpReturn = CClock::now();
    pAsker = startAsker();
    ASSERT_TRUE(pAsker->isTold("await-deliveries a 500" + text(cLimit)));
    pOwner->tell("unload");
    awaitWhole(*pOwner, *pAsker);
    took("asker killed under load, from its start", tpReturn);
    concludeBoth(*pOwner, *pAsker);
}

TEST_F(ClusterRestartTest, BothAreWholeAfterBothWereKilledAndTheOwnerCameFirst)
{
    auto pOwner = startOwner("before");
    auto pAsker = startAsker();
    awaitWhole(*pOwner, *pAsker);
    pOwner->program().kill();
    pAsker->program().kill();
    pOwner = startOwner("after");
    const auto tpReturn = CClock::now();
    pAsker = startAsker();
    awaitWhole(*pOwner, *pAsker);
    took("both killed, from the asker's start", tpReturn);
    concludeBoth(*pOwner, *pAsker);
}

TEST_F(ClusterRestartTest, BothAreWholeAfterBothWereKilledAndTheAskerCameFirst)
{
    auto pOwner = startOwner("before");
    auto pAsker = startAsker();
    awaitWhole(*pOwner, *pAsker);
    pAsker->program().kill();
    pOwner->program().kill();
    pAsker = startAsker();
    pAsker->tell("touch " + s_sCalls + " alone");
    const auto tpReturn = CClock::now();
    pOwner = startOwner("after");
    awaitWhole(*pOwner, *pAsker);
    took("both killed, from the owner's start", tpReturn);
    concludeBoth(*pOwner, *pAsker);
}

} // namespace
