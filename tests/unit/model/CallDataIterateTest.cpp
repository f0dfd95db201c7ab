// Records: the index iterations and their snapshots.

#include "ModelSupport.h"

using namespace model;

namespace {

/// One step of an iteration: what came out, and where the index stands afterwards.
struct SStep
{
    std::string sItem; ///< "name=value@stamp", or the failure
    int nIndex = 0;

    bool operator==(const SStep& other) const { return sItem == other.sItem && nIndex == other.nIndex; }
};

void PrintTo(const SStep& step, std::ostream* pOut)
{
    *pOut << step.sItem << " -> " << step.nIndex;
}

class CallDataIterateTest : public CModelTest
{
protected:
    SStep property(int nIndex, const CCDSTimestamp& tsSince = at(0))
    {
        SItem item;
        unsigned char* pData = nullptr;
        int nLength = 0;
        const long lResult = m_record.getProperty(&nIndex, &item.sName, &pData, &nLength, tsSince, &item.tsStamp);
        item.sValue = textOf(pData, nLength);
        return {shown(lResult, item), nIndex};
    }

    SStep entry(const std::string& sName, int nIndex, const CCDSTimestamp& tsSince = at(0), bool bPartial = false)
    {
        SItem item{sName, {}, at(0)};
        unsigned char* pData = nullptr;
        int nLength = 0;
        const long lResult =
            bPartial ? m_record.getLogEntryByPartialName(sName, &nIndex, &pData, &nLength, tsSince, &item.tsStamp)
                     : m_record.getLogEntry(sName, &nIndex, &pData, &nLength, tsSince, &item.tsStamp);
        item.sValue = textOf(pData, nLength);
        return {shown(lResult, item), nIndex};
    }

    SStep partial(const std::string& sName, int nIndex) { return entry(sName, nIndex, at(0), true); }

    std::string logName(int nIndex)
    {
        std::string sName = "what was there before";
        const long lResult = m_record.getLogName(nIndex, &sName);
        if (lResult >= 0)
            return sName;
        EXPECT_EQ(sName, "");
        return hexOf(lResult);
    }

    CCallData m_record{"C1"};

private:
    static std::string shown(long lResult, const SItem& item)
    {
        return lResult < 0 ? hexOf(lResult)
                           : item.sName + '=' + item.sValue + '@' + std::to_string(item.tsStamp.value());
    }
};

constexpr char cNotFound[] = "0xC1170A2E";

using PropertyIterationTest = CallDataIterateTest;
using LogIterationTest = CallDataIterateTest;
using LogNameIterationTest = CallDataIterateTest;

} // namespace

TEST_F(PropertyIterationTest, GoesThroughTheNamesInByteOrder)
{
    for (const char* const pszName : {"b", "B", "a", "\xC3\xA4", "", "AB", "A"})
        put(m_record, pszName, "v", at(1));
    std::vector<std::string> vecNames;
    for (const SItem& item : propertiesOf(m_record))
        vecNames.push_back(item.sName);
    EXPECT_THAT(vecNames, ::testing::ElementsAre("", "A", "AB", "B", "a", "b", "\xC3\xA4"));
}

TEST_F(PropertyIterationTest, AdvancesTheIndexByOneForEachItem)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "B", "2", at(20));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    EXPECT_EQ(property(1), (SStep{"B=2@20", 2}));
    EXPECT_EQ(property(2), (SStep{cNotFound, 2}));
}

TEST_F(PropertyIterationTest, OfAnEmptyRecordEndsAtOnce)
{
    EXPECT_EQ(property(0), (SStep{cNotFound, 0}));
}

TEST_F(PropertyIterationTest, SkipsWhatIsOlderThanAskedFor)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "B", "2", at(20));
    put(m_record, "C", "3", at(30));
    EXPECT_EQ(property(0, at(20)), (SStep{"B=2@20", 2}));
    EXPECT_EQ(property(2, at(20)), (SStep{"C=3@30", 3}));
    EXPECT_EQ(property(3, at(20)), (SStep{cNotFound, 3}));
    EXPECT_EQ(property(0, at(20, 1)), (SStep{"C=3@30", 3}));
    EXPECT_EQ(property(0, at(31)), (SStep{cNotFound, 3}));
}

TEST_F(PropertyIterationTest, DoesNotNeedAStampPointer)
{
    put(m_record, "A", "1", at(10));
    int nIndex = 0;
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    EXPECT_EQ(sName, "A");
}

TEST_F(PropertyIterationTest, DoesNotSeeAPropertyAddedMeanwhile)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "C", "3", at(30));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    put(m_record, "B", "2", at(20));
    put(m_record, "D", "4", at(40));
    EXPECT_EQ(property(1), (SStep{"C=3@30", 2}));
    EXPECT_EQ(property(2), (SStep{cNotFound, 2}));
    EXPECT_EQ(propertiesOf(m_record).size(), 4U);
}

TEST_F(PropertyIterationTest, StillSeesAValueReplacedMeanwhile)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "B", "2", at(20));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    put(m_record, "B", "new", at(21));
    put(m_record, "B", "newer", at(22)); // the one in between was in no snapshot
    EXPECT_EQ(property(1), (SStep{"B=2@20", 2}));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    EXPECT_EQ(property(1), (SStep{"B=newer@22", 2}));
}

TEST_F(PropertyIterationTest, KeepsTheBytesItHandedOutWhileItGoesOn)
{
    put(m_record, "A", "1", at(10));
    int nIndex = 0;
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    put(m_record, "A", "2", at(11));
    EXPECT_EQ(textOf(pData, nLength), "1");
}

TEST_F(PropertyIterationTest, EndsWhenTheRecordIsCleared)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "B", "2", at(20));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    put(m_record, "A", "new", at(30));
    (void)m_record.clear();
    EXPECT_EQ(property(1), (SStep{cNotFound, 1}));
}

TEST_F(PropertyIterationTest, StartedInTheMiddleFindsNothing)
{
    for (const char* const pszName : {"A", "B", "C", "D"})
        put(m_record, pszName, "v", at(1));
    EXPECT_EQ(property(3), (SStep{cNotFound, 3}));
}

TEST_F(PropertyIterationTest, ANegativeIndexFindsNothing)
{
    put(m_record, "A", "1", at(10));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    EXPECT_EQ(property(-1), (SStep{cNotFound, -1}));
    EXPECT_EQ(property(-2147483647 - 1), (SStep{cNotFound, -2147483647 - 1}));
}

TEST_F(PropertyIterationTest, AnIndexFarBeyondFindsNothing)
{
    put(m_record, "A", "1", at(10));
    EXPECT_EQ(property(0), (SStep{"A=1@10", 1}));
    EXPECT_EQ(property(2147483647), (SStep{cNotFound, 2147483647}));
}

TEST_F(LogIterationTest, GoesThroughOneLogInTimeOrder)
{
    add(m_record, "L", "b", at(20));
    add(m_record, "L", "a", at(10));
    add(m_record, "M", "x", at(15));
    EXPECT_EQ(entry("L", 0), (SStep{"L=a@10", 1}));
    EXPECT_EQ(entry("L", 1), (SStep{"L=b@20", 2}));
    EXPECT_EQ(entry("L", 2), (SStep{cNotFound, 2}));
}

TEST_F(LogIterationTest, FindsNothingUnderAnUnknownName)
{
    add(m_record, "L", "b", at(20));
    EXPECT_EQ(entry("K", 0), (SStep{cNotFound, 0}));
    EXPECT_EQ(partial("K", 0), (SStep{cNotFound, 0}));
    EXPECT_EQ(partial("LL", 0), (SStep{cNotFound, 0}));
}

TEST_F(LogIterationTest, SkipsWhatIsOlderThanAskedFor)
{
    add(m_record, "L", "a", at(10));
    add(m_record, "L", "b", at(20));
    add(m_record, "L", "c", at(30));
    EXPECT_EQ(entry("L", 0, at(20)), (SStep{"L=b@20", 2}));
    EXPECT_EQ(entry("L", 2, at(20)), (SStep{"L=c@30", 3}));
    EXPECT_EQ(entry("L", 3, at(20)), (SStep{cNotFound, 3}));
    EXPECT_EQ(entry("L", 0, at(31)), (SStep{cNotFound, 3}));
    EXPECT_EQ(entry("L", 0, at(20), true), (SStep{"L=b@20", 2}));
}

TEST_F(LogIterationTest, ANegativeIndexFindsNothing)
{
    add(m_record, "L", "a", at(10));
    EXPECT_EQ(entry("L", -1), (SStep{cNotFound, -1}));
    EXPECT_EQ(partial("L", -1), (SStep{cNotFound, -1}));
}

TEST_F(LogIterationTest, AnotherNameTakesANewSnapshotAndGoesOnAtTheIndex)
{
    add(m_record, "A", "a1", at(10));
    add(m_record, "A", "a2", at(11));
    add(m_record, "B", "b1", at(20));
    add(m_record, "B", "b2", at(21));
    EXPECT_EQ(entry("A", 0), (SStep{"A=a1@10", 1}));
    EXPECT_EQ(entry("B", 1), (SStep{"B=b2@21", 2}));
    EXPECT_EQ(entry("A", 1), (SStep{"A=a2@11", 2}));
}

TEST_F(LogIterationTest, AnotherUnknownNameFindsNothing)
{
    add(m_record, "A", "a1", at(10));
    add(m_record, "A", "a2", at(11));
    EXPECT_EQ(entry("A", 0), (SStep{"A=a1@10", 1}));
    EXPECT_EQ(entry("K", 1), (SStep{cNotFound, 1}));
}

TEST_F(LogIterationTest, DoesNotSeeAnEntryAppendedMeanwhile)
{
    add(m_record, "A", "a1", at(10));
    EXPECT_EQ(entry("A", 0), (SStep{"A=a1@10", 1}));
    add(m_record, "A", "a2", at(11));
    EXPECT_EQ(entry("A", 1), (SStep{cNotFound, 1}));
}

TEST_F(LogIterationTest, PartialNamesGoLogByLogInNameOrder)
{
    add(m_record, "QUEUE_STEP", "s1", at(1));
    add(m_record, "QUEUE_CALL", "c2", at(20));
    add(m_record, "QUEUE_CALL", "c1", at(10));
    add(m_record, "QUEUE_AGENT_WRAPUP", "w1", at(99));
    add(m_record, "QUEUD", "no", at(1));
    add(m_record, "QUEUF", "no", at(1));
    std::vector<std::string> vecValues;
    for (const SItem& item : entriesOf(m_record, "QUEUE_", true))
        vecValues.push_back(item.sValue);
    EXPECT_THAT(vecValues, ::testing::ElementsAre("w1", "c1", "c2", "s1"));
}

TEST_F(LogIterationTest, TheWholeNameIsAPartialNameToo)
{
    add(m_record, "L", "a", at(10));
    add(m_record, "LL", "b", at(5));
    EXPECT_EQ(partial("L", 0), (SStep{"L=a@10", 1}));
    EXPECT_EQ(partial("L", 1), (SStep{"L=b@5", 2}));
}

TEST_F(LogIterationTest, TheEmptyPartialNameFindsEverything)
{
    add(m_record, "L", "a", at(10));
    add(m_record, "", "b", at(5));
    add(m_record, "M", "c", at(1));
    EXPECT_EQ(entriesOf(m_record, "", true).size(), 3U);
}

TEST_F(LogIterationTest, WholeAndPartialNamesShareOneSnapshot)
{
    add(m_record, "L", "a", at(10));
    add(m_record, "LL", "b", at(5));
    EXPECT_EQ(partial("L", 0), (SStep{"L=a@10", 1}));
    EXPECT_EQ(entry("L", 1), (SStep{"L=b@5", 2})); // an entry of the other log: the snapshot was taken for "L..."
    EXPECT_EQ(entry("L", 0), (SStep{"L=a@10", 1}));
    EXPECT_EQ(partial("L", 1), (SStep{cNotFound, 1}));
}

TEST_F(LogIterationTest, EndsWhenTheRecordIsCleared)
{
    add(m_record, "A", "a1", at(10));
    add(m_record, "A", "a2", at(11));
    EXPECT_EQ(entry("A", 0), (SStep{"A=a1@10", 1}));
    (void)m_record.clear();
    EXPECT_EQ(entry("A", 1), (SStep{cNotFound, 1}));
}

TEST_F(LogIterationTest, ClearingKeepsTheNameThatTheSnapshotWasTakenFor)
{
    add(m_record, "A", "a1", at(10));
    EXPECT_EQ(entry("A", 0), (SStep{"A=a1@10", 1}));
    (void)m_record.clear();
    add(m_record, "A", "a2", at(11));
    add(m_record, "A", "a3", at(12));
    EXPECT_EQ(entry("A", 1), (SStep{cNotFound, 1})); // no new snapshot
    EXPECT_EQ(entry("A", 0), (SStep{"A=a2@11", 1}));
}

TEST_F(LogNameIterationTest, GivesTheNamesInOrder)
{
    add(m_record, "B", "x", at(1));
    add(m_record, "A", "x", at(1));
    EXPECT_EQ(logName(0), "A");
    EXPECT_EQ(logName(1), "B");
    EXPECT_EQ(logName(2), cNotFound);
    EXPECT_EQ(m_record.getLogNameCount(), 2);
}

TEST_F(LogNameIterationTest, FindsNothingBeforeTheFirstNameWasAskedFor)
{
    add(m_record, "A", "x", at(1));
    add(m_record, "B", "x", at(1));
    EXPECT_EQ(logName(1), cNotFound);
}

TEST_F(LogNameIterationTest, DoesNotSeeALogAddedMeanwhile)
{
    add(m_record, "A", "x", at(1));
    add(m_record, "C", "x", at(1));
    EXPECT_EQ(logName(0), "A");
    add(m_record, "B", "x", at(1));
    EXPECT_EQ(logName(1), "C");
    EXPECT_EQ(logName(2), cNotFound);
    EXPECT_EQ(logName(0), "A");
    EXPECT_EQ(logName(1), "B");
}

TEST_F(LogNameIterationTest, EndsWhenTheRecordIsCleared)
{
    add(m_record, "A", "x", at(1));
    add(m_record, "B", "x", at(1));
    EXPECT_EQ(logName(0), "A");
    (void)m_record.clear();
    EXPECT_EQ(logName(1), cNotFound);
}

TEST_F(LogNameIterationTest, ANegativeIndexFindsNothing)
{
    add(m_record, "A", "x", at(1));
    EXPECT_EQ(logName(0), "A");
    EXPECT_EQ(logName(-1), cNotFound);
}
