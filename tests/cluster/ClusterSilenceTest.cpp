// Servers that fall silent: stopped as they are, or cut off from the network, without a word to the other side. Both
// own calls that the other has registered for, so that either side tells when it has noticed.

#include "Cluster.h"

namespace {

constexpr unsigned cCalls = cSanitized ? 40 : 100;

class ClusterSilenceTest : public CClusterTest
{
protected:
    static inline const std::string s_sNoticed = "await-registrations 0 0 " + std::to_string(cLimit.count());
    /// Clearly less than the limit of silence, so that a busy machine does not make it more.
    static constexpr const char* cStillThere = "await-registrations 0 0 700";

    ClusterSilenceTest() : m_pOne(start(1)), m_pTwo(start(2))
    {
        for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
        {
            pNode->tell("own " + callsOf(*pNode));
            pNode->tell("update " + callsOf(*pNode) + " first");
        }
        m_pOne->tell("watch a " + m_pTwo->address() + ' ' + callsOf(*m_pTwo));
        m_pTwo->tell("watch a " + m_pOne->address() + ' ' + callsOf(*m_pOne));
    }

    std::string callsOf(const CNode& node) const
    {
        const unsigned uFirst = &node == m_pOne.get() ? 0 : 10'000;
        return std::to_string(uFirst) + '-' + std::to_string(uFirst + cCalls - 1);
    }
    void awaitBothWhole()
    {
        awaitWhole({{*m_pOne, *m_pTwo, "a", callsOf(*m_pOne)}, {*m_pTwo, *m_pOne, "a", callsOf(*m_pTwo)}});
    }
    /// Changes every call at one side: its own, and its peer's.
    void touchAll(CNode& node, const std::string& sValue)
    {
        node.tell("touch " + callsOf(*m_pOne) + ' ' + sValue);
        node.tell("touch " + callsOf(*m_pTwo) + ' ' + sValue);
    }
    /// Registrants at one side leave calls of the other, and come back.
    void comeAndGo(CNode& node)
    {
        const CNode& other = &node == m_pOne.get() ? *m_pTwo : *m_pOne;
        node.tell("leave a " + callsOf(other));
        node.tell("watch a " + other.address() + ' ' + callsOf(other));
    }
    void concludeBoth()
    {
        for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
            expectEntries(*pNode, cCalls, cCalls, cCalls);
        for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
            conclude(*pNode);
    }
    void expectNothingEnded()
    {
        for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
            EXPECT_EQ(pNode->ask("registrations")[2], "0") << "registrations ended at " << pNode->address();
    }

    const std::unique_ptr<CNode> m_pOne;
    const std::unique_ptr<CNode> m_pTwo;
};

TEST_F(ClusterSilenceTest, BothAreWholeAfterOneStoodStillForLongerThanTheLimit)
{
    ASSERT_NO_FATAL_FAILURE(awaitBothWhole());
    m_pTwo->tell("load " + callsOf(*m_pTwo) + " 500");
    const auto tpStopped = CClock::now();
    m_pTwo->program().freeze();
    touchAll(*m_pOne, "meanwhile");
    comeAndGo(*m_pOne);
    ASSERT_TRUE(m_pOne->isTold(s_sNoticed));
    took("peer stands still, until noticed", tpStopped);
    touchAll(*m_pOne, "alone");
    comeAndGo(*m_pOne);
    m_pTwo->program().thaw();
    const auto tpReturn = CClock::now();
    m_pTwo->tell("unload");
    awaitBothWhole();
    took("peer stood still, from its return", tpReturn);
    concludeBoth();
}

TEST_F(ClusterSilenceTest, NothingEndsWhenOneStandsStillForLessThanTheLimit)
{
    ASSERT_NO_FATAL_FAILURE(awaitBothWhole());
    m_pTwo->program().freeze();
    touchAll(*m_pOne, "meanwhile");
    EXPECT_FALSE(m_pOne->isTold(cStillThere));
    m_pTwo->program().thaw();
    const auto tpReturn = CClock::now();
    awaitBothWhole();
    took("peer stood still for a moment, from its return", tpReturn);
    expectNothingEnded();
    concludeBoth();
}

TEST_F(ClusterSilenceTest, BothAreWholeAfterTheLinkWasCutForLongerThanTheLimit)
{
    if (!m_network.lacks().empty())
        GTEST_SKIP() << "no link to cut: " << m_network.lacks();
    ASSERT_NO_FATAL_FAILURE(awaitBothWhole());
    for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
        pNode->tell("load " + callsOf(*pNode) + " 500");
    const auto tpCut = CClock::now();
    m_network.cut(2);
    comeAndGo(*m_pOne);
    ASSERT_TRUE(m_pOne->isTold(s_sNoticed));
    ASSERT_TRUE(m_pTwo->isTold(s_sNoticed));
    took("link cut, until both have noticed", tpCut);
    touchAll(*m_pOne, "alone");
    touchAll(*m_pTwo, "alone-too");
    m_network.mend(2);
    const auto tpMended = CClock::now();
    for (CNode* const pNode : {m_pOne.get(), m_pTwo.get()})
        pNode->tell("unload");
    awaitBothWhole();
    took("link cut, from its return", tpMended);
    concludeBoth();
}

TEST_F(ClusterSilenceTest, NothingEndsWhenTheLinkIsCutForLessThanTheLimit)
{
    if (!m_network.lacks().empty())
        GTEST_SKIP() << "no link to cut: " << m_network.lacks();
    ASSERT_NO_FATAL_FAILURE(awaitBothWhole());
    m_network.cut(2);
    touchAll(*m_pOne, "meanwhile");
    touchAll(*m_pTwo, "meanwhile-too");
    EXPECT_FALSE(m_pOne->isTold(cStillThere));
    m_network.mend(2);
    const auto tpMended = CClock::now();
    awaitBothWhole();
    took("link cut for a moment, from its return", tpMended);
    expectNothingEnded();
    concludeBoth();
}

} // namespace
