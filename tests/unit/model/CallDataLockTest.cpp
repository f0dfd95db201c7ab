// Records: which operation takes the record's lock, and which must not.

#include "FakeOwner.h"
#include "ModelSupport.h"

#include <algorithm>
#include <functional>
#include <set>

using namespace model;

namespace {

const std::string g_sLock = "CCallData::m_pCritsec";

using CEntry = CFakeLocks::CEntry;

/// An operation on a record, by name.
struct SOperation
{
    const char* pszName;
    std::function<void(CCallData&)> fnRun;
};

unsigned char g_aBytes[] = {1, 2, 3};
unsigned char* const g_pBytes = g_aBytes;

const SOperation g_aLocking[] = {
    {"addRef", [](CCallData& r) { (void)r.addRef(); }},
    {"decRef", [](CCallData& r) { (void)r.decRef(); }},
    {"setCallID", [](CCallData& r) { (void)r.setCallID("C2"); }},
    {"getCallID", [](CCallData& r) { (void)callIDOf(r); }},
    {"getCallIDByReference",
     [](CCallData& r) {
         std::string sCallID;
         (void)r.getCallID(sCallID);
     }},
    {"setProperty",
     [](CCallData& r) {
         bool bChanged = false;
         (void)r.setProperty("A", g_pBytes, 3, at(99), true, &bChanged);
     }},
    {"setPropertyNow", [](CCallData& r) { (void)r.setProperty("A", g_pBytes, 3); }},
    {"appendLogEntry",
     [](CCallData& r) {
         bool bChanged = false;
         (void)r.appendLogEntry("L", g_pBytes, 3, at(99), true, &bChanged);
     }},
    {"appendLogEntryNow", [](CCallData& r) { (void)r.appendLogEntry("L", g_pBytes, 3); }},
    {"clear", [](CCallData& r) { (void)r.clear(); }},
    {"getProperty",
     [](CCallData& r) {
         unsigned char* pData = nullptr;
         int nLength = 0;
         (void)r.getProperty("A", &pData, &nLength, nullptr);
         (void)r.getProperty("missing", &pData, &nLength, nullptr);
     }},
    {"getPropertyUpdateTimestamp",
     [](CCallData& r) {
         CCDSTimestamp tsStamp(0, 0);
         (void)r.getPropertyUpdateTimestamp("missing", &tsStamp);
     }},
    {"iterateProperties", [](CCallData& r) { (void)propertiesOf(r); }},
    {"iterateEntries", [](CCallData& r) { (void)entriesOf(r, "L"); }},
    {"iterateEntriesByPartialName", [](CCallData& r) { (void)entriesOf(r, "L", true); }},
    {"getLogName", [](CCallData& r) { (void)logNamesOf(r); }},
    {"getLogEntryExists", [](CCallData& r) { (void)r.getLogEntryExists("L", at(1)); }},
    {"getLogEntryCount", [](CCallData& r) { (void)r.getLogEntryCount("L"); }},
    {"getLogNameCount", [](CCallData& r) { (void)r.getLogNameCount(); }},
    {"filter", [](CCallData& r) { (void)filtered(r, nullptr); }},
    {"merge",
     [](CCallData& r) {
         CCallData other("C1");
         put(other, "B", "1", at(1));
         add(other, "M", "1", at(1));
         bool bChanged = false;
         (void)r.merge(&other, &bChanged);
     }},
    {"clone", [](CCallData& r) { const std::unique_ptr<CCallData> pClone(r.clone()); }},
    {"trace", [](CCallData& r) { r.trace("x"); }},
};

const SOperation g_aLockFree[] = {
    {"getSetPropertiesCount", [](CCallData& r) { (void)r.getSetPropertiesCount(); }},
    {"getAppendLogEntriesCount", [](CCallData& r) { (void)r.getAppendLogEntriesCount(); }},
    {"getsize", [](CCallData& r) { (void)r.getsize(); }},
    {"changed",
     [](CCallData& r) {
         (void)r.changed(&r);
         (void)r.changed(nullptr);
     }},
    {"serialize", [](CCallData& r) { (void)serialized(r); }},
    {"deserialize", [](CCallData& r) { (void)r.deserialize("2;C1;1;0;1;0"); }},
    {"DumpContent",
     [](CCallData& r) {
         std::string sDump;
         r.DumpContent(sDump);
     }},
};

/// A record, whose lock's name and uses are recorded.
class CallDataLockTest : public CModelTest
{
protected:
    CallDataLockTest()
    {
        CFakeLocks::record(true);
        m_pRecord = std::make_unique<CCallData>("C1");
        put(*m_pRecord, "A", "1", at(1));
        add(*m_pRecord, "L", "1", at(1));
    }

    static const void* lockOfLatestRecord() { return CFakeLocks::creations().back().pLock; }

    /// What happens to locks while a call runs.
    template <class TCall> static std::vector<CEntry> during(const TCall& call)
    {
        const std::size_t uBefore = CFakeLocks::entries().size();
        call();
        std::vector<CEntry> vecEntries = CFakeLocks::entries();
        vecEntries.erase(vecEntries.begin(), vecEntries.begin() + static_cast<std::ptrdiff_t>(uBefore));
        return vecEntries;
    }

    static std::size_t usesOf(const void* pLock, const std::vector<CEntry>& vecEntries)
    {
        return static_cast<std::size_t>(std::count_if(vecEntries.begin(), vecEntries.end(),
                                                      [pLock](const CEntry& entry) { return entry.pLock == pLock; }));
    }

    std::unique_ptr<CCallData> m_pRecord;
};

} // namespace

TEST_F(CallDataLockTest, EveryRecordHasAReentrantLockOfItsOwn)
{
    const std::size_t uBefore = CFakeLocks::creations().size();
    const CCallData one("C1");
    const CCallData read("2;C1;1;0;1;0", true);
    const auto vecCreations = CFakeLocks::creations();
    ASSERT_EQ(vecCreations.size(), uBefore + 2);
    for (std::size_t i = uBefore; i < vecCreations.size(); ++i)
    {
        EXPECT_EQ(vecCreations[i].sName, g_sLock);
        EXPECT_EQ(vecCreations[i].nFlag, 1);
    }
    EXPECT_NE(vecCreations[uBefore].pLock, vecCreations[uBefore + 1].pLock);
}

TEST_F(CallDataLockTest, TheLockGoesWithItsRecord)
{
    const long lBefore = CFakeLocks::alive();
    {
        const CCallData record("C1");
        EXPECT_EQ(CFakeLocks::alive(), lBefore + 1);
    }
    EXPECT_EQ(CFakeLocks::alive(), lBefore);
}

TEST_F(CallDataLockTest, OperationsRunUnderTheLockAndGiveItBack)
{
    const void* const pLock = lockOfLatestRecord();
    for (const auto& [pszName, fnRun] : g_aLocking)
    {
        SCOPED_TRACE(pszName);
        const auto vecEntries = during([&, &run = fnRun] { run(*m_pRecord); });
        EXPECT_GE(usesOf(pLock, vecEntries), 2U);
        EXPECT_TRUE(CFakeLocks::balanced());
    }
}

TEST_F(CallDataLockTest, SomeOperationsTakeNoLockAtAll)
{
    for (const auto& [pszName, fnRun] : g_aLockFree)
        EXPECT_EQ(during([&, &run = fnRun] { run(*m_pRecord); }).size(), 0U) << pszName;
}

TEST_F(CallDataLockTest, EveryUseNamesItsPlace)
{
    for (const auto& [pszName, fnRun] : g_aLocking)
        for (const CEntry& entry : during([&, &run = fnRun] { run(*m_pRecord); }))
            EXPECT_GT(entry.lPlace, 0) << pszName;
}

TEST_F(CallDataLockTest, PlacesTellOperationsApart)
{
    const void* const pLock = lockOfLatestRecord();
    std::set<long> setPlaces;
    std::size_t uOperations = 0;
    for (const auto& [pszName, fnRun] : g_aLocking)
    {
        const std::string sName = pszName;
        if (sName.ends_with("Now") || sName.ends_with("ByReference"))
            continue; // another form of the operation before it
        const auto vecEntries = during([&, &run = fnRun] { run(*m_pRecord); });
        const auto itFirst = std::find_if(vecEntries.begin(), vecEntries.end(),
                                          [pLock](const CEntry& entry) { return entry.pLock == pLock; });
        ASSERT_NE(itFirst, vecEntries.end()) << pszName;
        setPlaces.insert(itFirst->lPlace);
        ++uOperations;
    }
    // They are lines of several sources, of which two may happen to have the same number.
    EXPECT_GE(setPlaces.size(), uOperations - 3);
}

// The owner may ask another server, or hold a lock of its own that it also holds when it comes to the record.
TEST_F(CallDataLockTest, TheOwnerIsAskedWithoutTheLock)
{
    CFakeOwner owner;
    CCallData record(&owner, "C1");
    EXPECT_THAT(record.setProperty("A", g_pBytes, 3), IsOk());
    EXPECT_THAT(record.appendLogEntry("L", g_pBytes, 3), IsOk());
    EXPECT_EQ(owner.m_vecAsked.size(), 2U);
    EXPECT_THAT(owner.m_vecLocks, ::testing::IsEmpty());
}

TEST_F(CallDataLockTest, FilterTakesItsOwnLockAndThenTheOthers)
{
    const void* const pLock = lockOfLatestRecord();
    CCallData other("C1");
    const void* const pOtherLock = lockOfLatestRecord();
    put(other, "A", "1", at(1));
    const auto vecEntries = during([&] { (void)filtered(*m_pRecord, &other); });
    int nHeld = 0;
    std::size_t uOther = 0;
    for (const CEntry& entry : vecEntries)
    {
        if (entry.pLock == pLock)
            nHeld += entry.bEnter ? 1 : -1;
        if (entry.pLock != pOtherLock)
            continue;
        ++uOther;
        EXPECT_GT(nHeld, 0);
    }
    EXPECT_EQ(uOther, 2U); // once, for all that is asked
    EXPECT_TRUE(CFakeLocks::balanced());
}

TEST_F(CallDataLockTest, FilterAgainstItselfDoesNotBlock)
{
    EXPECT_EQ(filtered(*m_pRecord, m_pRecord.get()).pRecord, nullptr);
    EXPECT_TRUE(CFakeLocks::balanced());
}

TEST_F(CallDataLockTest, MergeReadsTheOtherRecordWithoutItsLock)
{
    CCallData other("C1");
    const void* const pOtherLock = lockOfLatestRecord();
    put(other, "B", "1", at(1));
    add(other, "M", "1", at(1));
    bool bChanged = false;
    const auto vecEntries = during([&] { EXPECT_THAT(m_pRecord->merge(&other, &bChanged), IsOk()); });
    EXPECT_EQ(usesOf(pOtherLock, vecEntries), 0U);
    EXPECT_TRUE(bChanged);
}

TEST_F(CallDataLockTest, FilterMergeAndCloneHoldTheirLockAllTheTime)
{
    const void* const pLock = lockOfLatestRecord();
    for (const auto& [pszName, fnRun] : g_aLocking)
    {
        const std::string sName = pszName;
        if (sName != "filter" && sName != "merge" && sName != "clone")
            continue;
        int nHeld = 0;
        int nGivenBack = 0;
        for (const CEntry& entry : during([&, &run = fnRun] { run(*m_pRecord); }))
        {
            if (entry.pLock != pLock)
                continue;
            nHeld += entry.bEnter ? 1 : -1;
            nGivenBack += nHeld == 0 ? 1 : 0;
        }
        EXPECT_EQ(nGivenBack, 1) << sName;
    }
}

TEST_F(CallDataLockTest, WritesThatChangeNothingGiveTheLockBack)
{
    bool bChanged = false;
    put(*m_pRecord, "A", "older", at(0, -1));
    (void)m_pRecord->appendLogEntry("L", g_pBytes, 3, at(1), true, &bChanged); // there already
    EXPECT_TRUE(CFakeLocks::balanced());
    EXPECT_THAT(CFakeLocks::heldByThisThread(), ::testing::IsEmpty());
}
