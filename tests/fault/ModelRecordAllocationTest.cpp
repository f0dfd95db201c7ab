// Records without memory: a write happens or not, a merge stops half-way in a known way, a copy is whole or null.

#include "AllocationSweep.h"

#include <algorithm>
#include <functional>
#include <optional>

using namespace model;

namespace {

const std::string g_sLong = "a text that is longer than what a string keeps inside itself";
const std::string g_sOther = "b text that is longer than what a string keeps inside itself";

using CRecord = std::unique_ptr<CCallData>;

CRecord makeRecord()
{
    auto pRecord = std::make_unique<CCallData>(g_sLong);
    put(*pRecord, g_sLong, "held", at(10));
    put(*pRecord, "SHORT", "held", at(10));
    add(*pRecord, g_sLong, "held", at(10));
    return pRecord;
}

/// With an iteration under way, whose snapshot the writers take care of.
CRecord makeIteratedRecord()
{
    CRecord pRecord = makeRecord();
    (void)propertiesOf(*pRecord);
    (void)entriesOf(*pRecord, g_sLong);
    return pRecord;
}

/// What a record held that brings something new of every kind.
CRecord makeIncoming()
{
    auto pRecord = std::make_unique<CCallData>(g_sLong);
    put(*pRecord, g_sLong, "new", at(20));
    put(*pRecord, g_sOther, "new", at(20));
    add(*pRecord, g_sLong, "new", at(20));
    add(*pRecord, g_sOther, "new", at(20));
    return pRecord;
}

unsigned long sizeOf(const std::vector<SItem>& vecItems)
{
    unsigned long ulSize = 0;
    for (const SItem& item : vecItems)
        ulSize += item.sValue.size();
    return ulSize;
}

bool isAmong(const SItem& item, const std::vector<SItem>& vecItems)
{
    return std::find(vecItems.begin(), vecItems.end(), item) != vecItems.end();
}

/// A write to a record.
struct SWriter
{
    const char* pszName;
    std::function<long(CCallData&, bool*)> fnWrite;
    std::function<unsigned long(const CCallData&)> fnCount;
};

const CValue g_value("value");

const auto g_fnSets = [](const CCallData& record) { return record.getSetPropertiesCount(); };
const auto g_fnAppends = [](const CCallData& record) { return record.getAppendLogEntriesCount(); };

const SWriter g_aWriters[] = {
    {"new property",
     [](CCallData& r, bool* pb) { return r.setProperty(g_sOther, g_value.data(), 5, at(20), true, pb); }, g_fnSets},
    {"replaced property",
     [](CCallData& r, bool* pb) { return r.setProperty(g_sLong, g_value.data(), 5, at(20), true, pb); }, g_fnSets},
    {"entry of a new log",
     [](CCallData& r, bool* pb) { return r.appendLogEntry(g_sOther, g_value.data(), 5, at(20), true, pb); },
     g_fnAppends},
    {"entry of a known log",
     [](CCallData& r, bool* pb) { return r.appendLogEntry(g_sLong, g_value.data(), 5, at(5), true, pb); }, g_fnAppends},
};

class RecordAllocationTest : public CModelTest
{
};

using RecordCompareAllocationTest = RecordAllocationTest;
using RecordTextAllocationTest = RecordAllocationTest;

} // namespace

TEST_F(RecordAllocationTest, MakingOneFailsWithoutALeak)
{
    sweep([] { return CRecord(); },
          [](CRecord& pRecord) {
              pRecord = std::make_unique<CCallData>(g_sLong);
              return 0L;
          },
          [](const CRecord& pRecord, const SOutcome& outcome) { EXPECT_EQ(pRecord != nullptr, outcome.succeeded()); });
}

TEST_F(RecordAllocationTest, AWriteHappensOrNot)
{
    for (const auto& [pszName, fnWrite, fnCount] : g_aWriters)
        for (const auto& fnMake : {makeRecord, makeIteratedRecord})
        {
            SCOPED_TRACE(pszName);
            const CRecord pBefore = fnMake();
            const CRecord pAfter = fnMake();
            bool bChanged = false;
            EXPECT_THAT(fnWrite(*pAfter, &bChanged), IsOk());
            sweep(
                fnMake, [&, &write = fnWrite](CRecord& pRecord) { return write(*pRecord, &bChanged); },
                [&, &count = fnCount](CRecord& pRecord, const SOutcome& outcome) {
                    EXPECT_FALSE(outcome.bBadAlloc || outcome.ulThrown != 0);
                    EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
                    EXPECT_EQ(bChanged, outcome.succeeded());
                    EXPECT_EQ(count(*pRecord), count(*pAfter)); // it counts all the same
                    CCallData& expected = outcome.succeeded() ? *pAfter : *pBefore;
                    EXPECT_EQ(serialized(*pRecord), serialized(expected));
                    EXPECT_EQ(pRecord->getsize(), expected.getsize());
                });
        }
}

TEST_F(RecordAllocationTest, AWriteOfNowHappensOrNot)
{
    sweep(
        makeRecord,
        [](CRecord& pRecord) {
            const long lResult = pRecord->setProperty(g_sOther, g_value.data(), 5);
            return lResult < 0 ? lResult : pRecord->appendLogEntry(g_sOther, g_value.data(), 5);
        },
        [](CRecord& pRecord, const SOutcome& outcome) {
            EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
            EXPECT_EQ(pRecord->getsize(), sizeOf(contentOf(*pRecord)));
        });
}

TEST_F(RecordAllocationTest, IterationsReportItAndCanBeRepeated)
{
    const std::function<long(CCallData&)> aIterations[] = {
        [](CCallData& record) {
            int nIndex = 0;
            std::string sName;
            unsigned char* pData = nullptr;
            int nLength = 0;
            return record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr);
        },
        [](CCallData& record) {
            int nIndex = 0;
            unsigned char* pData = nullptr;
            int nLength = 0;
            return record.getLogEntry(g_sLong, &nIndex, &pData, &nLength, at(0), nullptr);
        },
        [](CCallData& record) {
            int nIndex = 0;
            unsigned char* pData = nullptr;
            int nLength = 0;
            return record.getLogEntryByPartialName("a", &nIndex, &pData, &nLength, at(0), nullptr);
        },
        [](CCallData& record) {
            std::string sName;
            return record.getLogName(0, &sName);
        },
        [](CCallData& record) { return record.setCallID(g_sLong + g_sOther); },
        [](CCallData& record) {
            std::string sCallID;
            return record.getCallID(&sCallID);
        },
    };
    const CRecord pExpected = makeRecord();
    for (const auto& fnRun : aIterations)
        sweep(
            makeRecord, [&](CRecord& pRecord) { return fnRun(*pRecord); },
            [&](CRecord& pRecord, const SOutcome& outcome) {
                // The caller's own copy of a name is the caller's std::bad_alloc.
                EXPECT_TRUE(outcome.succeeded() || outcome.bBadAlloc || outcome.lResult == E_CDS_OUTOFMEMORY);
                EXPECT_THAT(fnRun(*pRecord), IsOk());
                EXPECT_EQ(contentOf(*pRecord), contentOf(*pExpected));
            });
}

TEST_F(RecordAllocationTest, AnIterationThatCannotBeginLeavesTheOneBefore)
{
    struct SIterated
    {
        CRecord pRecord;
        int nNext;
        std::string sName;
        std::string sValue;
    };
    struct SIteration
    {
        const char* pszName;
        std::function<long(SIterated&)> fnNext;
        std::string sSecond;
    };
    const auto takeValue = [](SIterated& iterated, long lResult, const unsigned char* pData, int nLength) {
        const CAllocationPause pause;
        iterated.sValue = lResult < 0 ? std::string() : textOf(pData, nLength);
        return lResult;
    };
    const SIteration aIterations[] = {
        {"properties",
         [&](SIterated& it) {
             unsigned char* pData = nullptr;
             int nLength = 0;
             const long lResult = it.pRecord->getProperty(&it.nNext, &it.sName, &pData, &nLength, at(0), nullptr);
             return takeValue(it, lResult, pData, nLength);
         },
         "second"},
        {"entries",
         [&](SIterated& it) {
             unsigned char* pData = nullptr;
             int nLength = 0;
             const long lResult = it.pRecord->getLogEntry("L", &it.nNext, &pData, &nLength, at(0), nullptr);
             return takeValue(it, lResult, pData, nLength);
         },
         "second"},
        {"entries by partial name",
         [&](SIterated& it) {
             unsigned char* pData = nullptr;
             int nLength = 0;
             const long lResult =
                 it.pRecord->getLogEntryByPartialName("L", &it.nNext, &pData, &nLength, at(0), nullptr);
             return takeValue(it, lResult, pData, nLength);
         },
         "second"},
        {"log names",
         [](SIterated& it) {
             const long lResult = it.pRecord->getLogName(it.nNext, &it.sName);
             it.nNext += lResult < 0 ? 0 : 1; // the caller's own count
             const CAllocationPause pause;
             it.sValue = it.sName;
             return lResult;
         },
         g_sOther},
    };
    for (const auto& [pszName, fnNext, sSecond] : aIterations)
    {
        SCOPED_TRACE(pszName);
        bool bFailed = false;
        sweep(
            [&next = fnNext] {
                SIterated iterated{std::make_unique<CCallData>("C1"), 0, {}, {}};
                iterated.sName.reserve(200); // the caller's room, so that only the record's own can fail
                put(*iterated.pRecord, "A", "first", at(10));
                put(*iterated.pRecord, "B", "second", at(10));
                add(*iterated.pRecord, "L", "first", at(10));
                add(*iterated.pRecord, "L", "second", at(20));
                add(*iterated.pRecord, g_sOther, "x", at(10));
                EXPECT_THAT(next(iterated), IsOk());
                put(*iterated.pRecord, "C", "late", at(10));
                add(*iterated.pRecord, "L", "late", at(30));
                add(*iterated.pRecord, "late", "x", at(10));
                iterated.nNext = 0;
                return iterated;
            },
            [&next = fnNext](SIterated& iterated) { return next(iterated); },
            [&, &next = fnNext, &sExpected = sSecond](SIterated& iterated, const SOutcome& outcome) {
                EXPECT_FALSE(outcome.bBadAlloc || outcome.ulThrown != 0);
                if (outcome.succeeded())
                {
                    EXPECT_EQ(iterated.nNext, 1);
                    return;
                }
                bFailed = true;
                EXPECT_THAT(outcome.lResult, FailsWith(E_CDS_OUTOFMEMORY));
                EXPECT_EQ(iterated.nNext, 0);
                iterated.nNext = 1; // goes on where the one before was
                EXPECT_THAT(next(iterated), IsOk());
                EXPECT_EQ(iterated.sValue, sExpected);
                EXPECT_THAT(next(iterated), FailsWith(E_CDS_NOTFOUND)); // which knew of nothing that came late
            });
        EXPECT_TRUE(bFailed);
    }
}

TEST_F(RecordAllocationTest, DumpAndTraceLeaveTheRecordWhole)
{
    const CRecord pExpected = makeRecord();
    sweep(
        makeRecord,
        [](CRecord& pRecord) {
            pRecord->trace("label"); // ends early instead of failing
            return 0L;
        },
        [&](CRecord& pRecord, const SOutcome& outcome) {
            EXPECT_TRUE(outcome.succeeded());
            EXPECT_EQ(serialized(*pRecord), serialized(*pExpected));
        });
    sweep(
        makeRecord,
        [](CRecord& pRecord) {
            std::string sDump;
            pRecord->DumpContent(sDump);
            return 0L;
        },
        [&](CRecord& pRecord, const SOutcome&) { EXPECT_EQ(serialized(*pRecord), serialized(*pExpected)); });
}

TEST_F(RecordCompareAllocationTest, ACloneIsWholeOrNull)
{
    const CRecord pSource = makeRecord();
    const std::string sBefore = serialized(*pSource);
    sweep([] { return CRecord(); },
          [&](CRecord& pClone) {
              pClone.reset(pSource->clone());
              return pClone != nullptr ? 0 : E_CDS_OUTOFMEMORY;
          },
          [&](CRecord& pClone, const SOutcome& outcome) {
              EXPECT_FALSE(outcome.bBadAlloc || outcome.ulThrown != 0); // null tells
              EXPECT_EQ(serialized(*pSource), sBefore);
              EXPECT_TRUE(pClone == nullptr || contentOf(*pClone) == contentOf(*pSource));
          });
}

TEST_F(RecordCompareAllocationTest, ADifferenceIsWholeOrNull)
{
    const CRecord pHeld = makeRecord();
    const CRecord pNew = makeIncoming();
    const std::vector<SItem> vecWhole = contentOf(*filtered(*pNew, pHeld.get()).pRecord);
    sweep(
        [&] {
            return SFiltered{0, nullptr};
        },
        [&](SFiltered& difference) {
            difference = filtered(*pNew, pHeld.get());
            return difference.lResult;
        },
        [&](SFiltered& difference, const SOutcome& outcome) {
            EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
            EXPECT_EQ(difference.any(), outcome.succeeded());
            EXPECT_TRUE(!difference.any() || contentOf(*difference.pRecord) == vecWhole);
        });
}

TEST_F(RecordCompareAllocationTest, AValueIsCopiedInOneBlock)
{
    const auto makeOf = [](int nValues) {
        auto pRecord = std::make_unique<CCallData>("C1");
        for (int i = 0; i < nValues; ++i)
        {
            const std::string sName = g_sLong + std::to_string(i);
            put(*pRecord, sName, g_sLong, at(10));
            add(*pRecord, "L", g_sLong, at(10 + static_cast<unsigned long long>(i)));
        }
        return pRecord;
    };
    const struct
    {
        const char* pszName;
        std::function<void(CCallData&, CRecord&)> fnTake;
    } aTakers[] = {
        {"clone", [](CCallData& from, CRecord& pTaken) { pTaken.reset(from.clone()); }},
        {"filter", [](CCallData& from, CRecord& pTaken) { pTaken = filtered(from, nullptr).pRecord; }},
        {"merge",
         [](CCallData& from, CRecord& pTaken) {
             bool bChanged = false;
             EXPECT_THAT(pTaken->merge(&from, &bChanged), IsOk());
         }},
    };
    for (const auto& [pszName, fnTake] : aTakers)
    {
        SCOPED_TRACE(pszName);
        const auto allocationsFor = [&, &take = fnTake](int nValues) {
            const CRecord pFrom = makeOf(nValues);
            CRecord pTaken = std::make_unique<CCallData>("C1");
            std::size_t uSeen = 0;
            {
                const CFailingAllocator counting(10'000);
                take(*pFrom, pTaken);
                uSeen = counting.seen();
            }
            EXPECT_EQ(contentOf(*pTaken), contentOf(*pFrom));
            return uSeen;
        };
        EXPECT_EQ(allocationsFor(100), allocationsFor(10) + 2 * 90); // else the same blocks, only larger
    }
}

TEST_F(RecordCompareAllocationTest, NoDifferenceWithoutARecordToHoldIt)
{
    const CRecord pNew = makeIncoming();
    CCallData* pResult = pNew.get();
    long lResult = 0;
    {
        const CFailingAllocator failing(0);
        lResult = pNew->filter(nullptr, &pResult);
    }
    EXPECT_THAT(lResult, FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_EQ(pResult, nullptr);
}

TEST_F(RecordCompareAllocationTest, WhatWasMergedBeforeStays)
{
    const CRecord pNew = makeIncoming();
    const CRecord pOld = makeRecord();
    const CRecord pWhole = makeRecord();
    bool bChanged = false;
    EXPECT_THAT(pWhole->merge(pNew.get(), &bChanged), IsOk());
    const std::vector<SItem> vecOld = contentOf(*pOld);
    const std::vector<SItem> vecWhole = contentOf(*pWhole);
    sweep(
        makeIteratedRecord, [&](CRecord& pRecord) { return pRecord->merge(pNew.get(), &bChanged); },
        [&](CRecord& pRecord, const SOutcome& outcome) {
            EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
            const std::vector<SItem> vecNow = contentOf(*pRecord);
            for (const SItem& item : vecNow)
                EXPECT_TRUE(isAmong(item, vecOld) || isAmong(item, vecWhole));
            EXPECT_EQ(bChanged, vecNow != vecOld);
            EXPECT_EQ(pRecord->getsize(), sizeOf(vecNow));
            EXPECT_THAT(pRecord->merge(pNew.get(), &bChanged), IsOk()); // with memory again, the rest follows
            EXPECT_EQ(contentOf(*pRecord), vecWhole);
        });
}

TEST_F(RecordCompareAllocationTest, AFailingPropertyEndsThePropertiesButNotTheLogs)
{
    CCallData incoming("C1");
    put(incoming, "A", "new", at(20));
    put(incoming, "B", "new", at(20));
    add(incoming, "L", "new", at(20));
    const SItem entry{"L", "new", at(20)};
    bool bHit = true;
    int nPropertiesFailed = 0;
    for (std::size_t uGranted = 0; bHit; ++uGranted)
    {
        SCOPED_TRACE(uGranted);
        CCallData held("C1");
        bool bChanged = false;
        long lResult = -1;
        {
            const CFailingAllocator failing(uGranted, CFailingAllocator::Mode::RefuseOne);
            lResult = held.merge(&incoming, &bChanged);
            bHit = failing.hit();
        }
        const std::vector<SItem> vecNow = contentOf(held);
        if (!isAmong(entry, vecNow))
        {
            EXPECT_THAT(lResult, FailsWith(E_CDS_OUTOFMEMORY));
            continue;
        }
        EXPECT_THAT(lResult, IsOk()); // the result of the last entry
        EXPECT_TRUE(bChanged);
        if (vecNow.size() < 3)
        {
            ++nPropertiesFailed;
            EXPECT_FALSE(isAmong(SItem{"B", "new", at(20)}, vecNow)); // none behind the failing one
        }
    }
    EXPECT_GE(nPropertiesFailed, 2); // one for each property at least
}

TEST_F(RecordCompareAllocationTest, AFailingPropertyIsTheResultWhenNoEntryFollows)
{
    CCallData incoming("C1");
    put(incoming, "A", "new", at(20));
    CCallData held("C1");
    bool bChanged = true;
    long lResult = 0;
    {
        const CFailingAllocator failing(0);
        lResult = held.merge(&incoming, &bChanged);
    }
    EXPECT_THAT(lResult, FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_FALSE(bChanged);
}

TEST_F(RecordCompareAllocationTest, AFailingEntryIsTracedAndEndsTheMerge)
{
    CCallData incoming("C1");
    add(incoming, "L", "new", at(20));
    add(incoming, "M", "new", at(20));
    CCallData held("C1");
    bool bChanged = true;
    long lResult = 0;
    const auto mergeWithout = [&] {
        const CFailingAllocator failing(0);
        lResult = held.merge(&incoming, &bChanged);
    };
    EXPECT_THAT(linesUnder(cError, mergeWithout),
                ::testing::ElementsAre("CCallData::merge: Error(0xC1170A28) appendlogEntry"));
    EXPECT_THAT(lResult, FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_FALSE(bChanged);
    EXPECT_LE(held.getAppendLogEntriesCount(), 1U); // the second entry was not offered any more
    EXPECT_THAT(linesUnder(~(cError | cInfo | cDetail), mergeWithout), ::testing::IsEmpty());
    const std::vector<std::string> vecLines = linesUnder(cError | cInfo, mergeWithout);
    ASSERT_GE(vecLines.size(), 2U);
    EXPECT_EQ(vecLines[vecLines.size() - 2], "CCallData::merge: Error(0xC1170A28) appendlogEntry");
    EXPECT_EQ(vecLines.back(), "CCallData::merge: After merging Logs(bChanged=0)");
}

TEST_F(RecordTextAllocationTest, ATextIsWrittenWholeOrNotAtAll)
{
    const CRecord pRecord = makeRecord();
    const std::string sWhole = serialized(*pRecord);
    sweep([] { return std::string("before"); }, [&](std::string& sText) { return pRecord->serialize(&sText); },
          [&](const std::string& sText, const SOutcome& outcome) {
              EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
              EXPECT_EQ(sText, outcome.succeeded() ? sWhole : "before");
          });
}

TEST_F(RecordTextAllocationTest, ReadingReportsItAndKeepsTheRecordUsable)
{
    CCallData incoming(g_sLong);
    put(incoming, g_sOther, "new", at(20));
    add(incoming, g_sLong, "new", at(20));
    add(incoming, g_sOther, "new", at(20));
    const std::string sText = serialized(incoming);
    for (const auto& fnMake : {makeRecord, makeIteratedRecord})
        sweep(
            fnMake, [&](CRecord& pRecord) { return pRecord->deserialize(sText); },
            [&](CRecord& pRecord, const SOutcome& outcome) {
                EXPECT_TRUE(outcome.succeeded() || outcome.lResult == E_CDS_OUTOFMEMORY);
                std::string sNow;
                EXPECT_THAT(pRecord->serialize(&sNow), IsOk());
                EXPECT_THAT(contentOf(*pRecord), ::testing::Contains(SItem{"SHORT", "held", at(10)}));
                EXPECT_THAT(put(*pRecord, g_sOther, "later", at(99)), true);
            });
}

TEST_F(RecordTextAllocationTest, AValueWhoseBytesFoundNoRoomReadsAsAnEmptyOne)
{
    CCallData incoming("C1");
    put(incoming, "A", "a value", at(10));
    add(incoming, "L", "an entry", at(10));
    const std::string sText = serialized(incoming);
    std::size_t uLost = 0;
    bool bHit = true;
    for (std::size_t uGranted = 0; bHit; ++uGranted)
    {
        SCOPED_TRACE(uGranted);
        CCallData record("C1");
        long lRead = 0;
        {
            const CFailingAllocator failing(uGranted, CFailingAllocator::Mode::RefuseOne);
            lRead = record.deserialize(sText);
            bHit = failing.hit();
        }
        const std::vector<SItem> vecHeld = contentOf(record);
        if (lRead < 0 || vecHeld.size() != 2 || (!vecHeld[0].sValue.empty() && !vecHeld[1].sValue.empty()))
            continue;
        ++uLost;
        const bool bProperty = vecHeld[0].sValue.empty();
        unsigned char* pData = nullptr;
        int nLength = 0;
        int nIndex = 0;
        EXPECT_THAT(bProperty ? record.getProperty("A", &pData, &nLength, nullptr)
                              : record.getLogEntry("L", &nIndex, &pData, &nLength, at(0), nullptr),
                    IsOk());
        EXPECT_EQ(pData, nullptr);
        EXPECT_GT(nLength, 0); // the text's own number stands
        const SItem lost{bProperty ? "A" : "L", "", at(10)};

        const std::unique_ptr<CCallData> pClone(record.clone());
        ASSERT_NE(pClone, nullptr);
        EXPECT_EQ(contentOf(*pClone), vecHeld);
        EXPECT_EQ(contentOf(*filtered(record, nullptr).pRecord), vecHeld);
        EXPECT_FALSE(filtered(incoming, &record).any()); // its stamp is there
        CCallData again(sText, true);                    // records have one order of locks: these two are in none yet
        EXPECT_FALSE(filtered(*pClone, &again).any());
        CCallData other("C1");
        bool bChanged = false;
        EXPECT_THAT(other.merge(&record, &bChanged), IsOk());
        EXPECT_EQ(contentOf(other), vecHeld);
        const auto vecLines = linesUnder(cInfo, [&] { record.trace("label"); });
        EXPECT_THAT(vecLines, ::testing::Contains(::testing::EndsWith(",val=" + std::string(52, ' '))));
        std::string sDump;
        record.DumpContent(sDump);
        EXPECT_THAT(sDump, ::testing::HasSubstr("Name: " + lost.sName + ", DataLen: "));
        CCallData read(serialized(record), true);
        EXPECT_THAT(contentOf(read), ::testing::Contains(lost));

        // A value that can be stored takes its place.
        CCallData newer("C1");
        put(newer, "A", "newer", at(20));
        add(newer, "L", "newer", at(20));
        EXPECT_THAT(record.merge(&newer, &bChanged), IsOk());
        EXPECT_THAT(contentOf(record),
                    ::testing::IsSupersetOf({SItem{"A", "newer", at(20)}, SItem{"L", "newer", at(20)}}));
    }
    EXPECT_EQ(uLost, 2U); // the property's, and the entry's
}

TEST_F(RecordTextAllocationTest, NoHalfRecordIsMadeOfAText)
{
    const std::string sText = serialized(*makeIncoming());
    sweep([] { return CRecord(); },
          [&](CRecord& pRecord) {
              pRecord = std::make_unique<CCallData>(sText, true);
              return 0L;
          },
          [&](CRecord& pRecord, const SOutcome& outcome) {
              EXPECT_EQ(pRecord != nullptr, outcome.succeeded());
              EXPECT_TRUE(pRecord == nullptr ||
                          serialized(*pRecord).size() <= sText.size()); // values that found no room are empty
          });
}
