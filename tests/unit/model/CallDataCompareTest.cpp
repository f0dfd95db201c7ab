// Records: filter, merge, change detection and clone.

#include "FakeOwner.h"
#include "ModelSupport.h"

using namespace model;

namespace {

bool merged(CCallData& record, CCallData& from)
{
    bool bChanged = true;
    EXPECT_THAT(record.merge(&from, &bChanged), IsOk());
    return bChanged;
}

/// Two states of one call: what a writer brings, and what is held.
class CallDataCompareTest : public CModelTest
{
protected:
    CCallData m_new{"C1"};
    CCallData m_held{"C1"};
};

using FilterTest = CallDataCompareTest;
using MergeTest = CallDataCompareTest;
using ChangedTest = CallDataCompareTest;
using CloneTest = CallDataCompareTest;
using ValuesTest = CallDataCompareTest;

/// An entry of a log, under the name that stands in its own text.
const std::string g_sOddlyNamed = "2;C1;1;0;1;1;1;L;8;2;10;1;0;1;1;21;3;odd;2;31;8;2;10;1;0";

} // namespace

TEST_F(FilterTest, AgainstNothingIsAFullCopy)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "2", at(0));
    add(m_new, "L", "3", at(30));
    const SFiltered all = filtered(m_new, nullptr);
    EXPECT_THAT(all.lResult, IsOk());
    ASSERT_NE(all.pRecord, nullptr);
    EXPECT_EQ(contentOf(*all.pRecord), contentOf(m_new));
}

TEST_F(FilterTest, OfAnEmptyRecordIsNothing)
{
    const SFiltered nothing = filtered(m_new, nullptr);
    EXPECT_THAT(nothing.lResult, IsOk());
    EXPECT_EQ(nothing.pRecord, nullptr);
}

TEST_F(FilterTest, KeepsAPropertyOnlyWhenTheOtherLacksItOrIsOlder)
{
    const struct
    {
        CCDSTimestamp tsNew;
        CCDSTimestamp tsHeld;
        bool bKept;
    } aCases[] = {
        {at(11), at(10), true},    {at(10), at(10), false}, {at(9), at(10), false},
        {at(10, 1), at(10), true}, {at(0), at(10), false},  /* forces when merged only */ {at(0), at(0), false},
        {at(1), at(0), true},
    };
    for (const auto& [tsNew, tsHeld, bKept] : aCases)
    {
        SCOPED_TRACE(::testing::PrintToString(tsNew) + " against " + ::testing::PrintToString(tsHeld));
        CCallData fresh("C1");
        CCallData held("C1");
        put(fresh, "A", "new", tsNew);
        put(held, "A", "held", tsHeld);
        const SFiltered result = filtered(fresh, &held);
        EXPECT_THAT(result.lResult, IsOk());
        const std::vector<SItem> vecKept =
            result.pRecord != nullptr ? contentOf(*result.pRecord) : std::vector<SItem>();
        EXPECT_EQ(vecKept, bKept ? std::vector<SItem>({{"A", "new", tsNew}}) : std::vector<SItem>());
    }
}

TEST_F(FilterTest, KeepsAPropertyThatTheOtherLacks)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "2", at(0));
    put(m_new, "C", "3", at(30));
    put(m_held, "A", "1", at(10));
    const SFiltered result = filtered(m_new, &m_held);
    ASSERT_NE(result.pRecord, nullptr);
    EXPECT_THAT(contentOf(*result.pRecord), ::testing::ElementsAre(SItem{"B", "2", at(0)}, SItem{"C", "3", at(30)}));
}

TEST_F(FilterTest, DropsAnEntryThatTheOtherHasWhateverItsBytes)
{
    add(m_new, "L", "other bytes", at(10));
    add(m_new, "L", "new", at(5));
    add(m_new, "M", "new", at(10));
    add(m_held, "L", "held", at(10));
    const SFiltered result = filtered(m_new, &m_held);
    ASSERT_NE(result.pRecord, nullptr);
    EXPECT_THAT(contentOf(*result.pRecord),
                ::testing::ElementsAre(SItem{"L", "new", at(5)}, SItem{"M", "new", at(10)}));
}

TEST_F(FilterTest, FindsNothingNewInEqualStamps)
{
    for (CCallData* const pRecord : {&m_new, &m_held})
    {
        put(*pRecord, "A", pRecord == &m_new ? "bytes" : "other", at(10));
        add(*pRecord, "L", "3", at(30));
    }
    const SFiltered nothing = filtered(m_new, &m_held);
    EXPECT_THAT(nothing.lResult, IsOk());
    EXPECT_EQ(nothing.pRecord, nullptr);
}

TEST_F(FilterTest, FindsEntriesAlone)
{
    put(m_new, "A", "1", at(10));
    put(m_held, "A", "1", at(10));
    add(m_new, "L", "3", at(30));
    const SFiltered result = filtered(m_new, &m_held);
    ASSERT_NE(result.pRecord, nullptr);
    EXPECT_THAT(contentOf(*result.pRecord), ::testing::ElementsAre(SItem{"L", "3", at(30)}));
}

TEST_F(FilterTest, ChangesNeitherRecord)
{
    put(m_new, "A", "new", at(11));
    add(m_new, "L", "3", at(30));
    put(m_held, "A", "held", at(10));
    const std::string sNew = serialized(m_new);
    const std::string sHeld = serialized(m_held);
    (void)filtered(m_new, &m_held);
    EXPECT_EQ(serialized(m_new), sNew);
    EXPECT_EQ(serialized(m_held), sHeld);
    EXPECT_EQ(m_new.getSetPropertiesCount(), 1U);
    EXPECT_EQ(m_held.getSetPropertiesCount(), 1U);
}

TEST_F(FilterTest, GivesARecordOfItsOwn)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "2", at(10));
    put(m_new, "B", "3", at(11));
    add(m_new, "L", "4", at(10));
    (void)m_new.addRef();
    put(m_held, "A", "1", at(10));
    m_held.setCallID("C2");
    const SFiltered result = filtered(m_new, &m_held);
    ASSERT_NE(result.pRecord, nullptr);
    EXPECT_EQ(callIDOf(*result.pRecord), "C1");
    EXPECT_EQ(result.pRecord->addRef(), 1);
    EXPECT_EQ(result.pRecord->getSetPropertiesCount(), 1U);
    EXPECT_EQ(result.pRecord->getAppendLogEntriesCount(), 1U);
}

TEST_F(FilterTest, MakesOneRecordEvenWhenNothingIsNew)
{
    const auto vecLines = linesUnder(cInfo, [&] { (void)filtered(m_new, nullptr); });
    EXPECT_THAT(vecLines, ::testing::ElementsAre(::testing::StartsWith("CCallData Malloc: 0x"),
                                                 ::testing::StartsWith("CCallData Free: 0x")));
    EXPECT_EQ(vecLines[0].substr(18), vecLines[1].substr(16));
}

TEST_F(MergeTest, TakesNewerAndForcedProperties)
{
    const struct
    {
        CCDSTimestamp tsNew;
        CCDSTimestamp tsHeld;
        bool bTaken;
    } aCases[] = {
        {at(11), at(10), true}, {at(10), at(10), false},   {at(9), at(10), false},
        {at(0), at(10), true},  {at(10, 1), at(10), true},
    };
    for (const auto& [tsNew, tsHeld, bTaken] : aCases)
    {
        SCOPED_TRACE(::testing::PrintToString(tsNew) + " over " + ::testing::PrintToString(tsHeld));
        CCallData fresh("C1");
        CCallData held("C1");
        put(fresh, "A", "new", tsNew);
        put(held, "A", "held", tsHeld);
        EXPECT_EQ(merged(held, fresh), bTaken);
        EXPECT_THAT(contentOf(held),
                    ::testing::ElementsAre(bTaken ? (SItem{"A", "new", tsNew}) : (SItem{"A", "held", tsHeld})));
    }
}

TEST_F(MergeTest, TakesWhatIsMissingAndKeepsTheRest)
{
    put(m_new, "A", "1", at(10));
    add(m_new, "L", "2", at(20));
    put(m_held, "B", "3", at(30));
    add(m_held, "M", "4", at(40));
    EXPECT_TRUE(merged(m_held, m_new));
    EXPECT_THAT(contentOf(m_held), ::testing::ElementsAre(SItem{"A", "1", at(10)}, SItem{"B", "3", at(30)},
                                                          SItem{"L", "2", at(20)}, SItem{"M", "4", at(40)}));
}

TEST_F(MergeTest, OfAnEqualRecordChangesNothing)
{
    for (CCallData* const pRecord : {&m_new, &m_held})
    {
        put(*pRecord, "A", "1", at(10));
        add(*pRecord, "L", "3", at(30));
    }
    EXPECT_FALSE(merged(m_held, m_new));
}

TEST_F(MergeTest, TellsOfAChangeInTheMiddle)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "older", at(10));
    put(m_held, "B", "held", at(20));
    EXPECT_TRUE(merged(m_held, m_new)); // the last property changes nothing
    CCallData logs("C1");
    add(logs, "L", "1", at(10));
    add(logs, "M", "1", at(10));
    CCallData held("C1");
    add(held, "M", "2", at(10));
    EXPECT_TRUE(merged(held, logs)); // nor does the last entry
}

TEST_F(MergeTest, CountsEveryOfferTakenOrNot)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "2", at(10));
    add(m_new, "L", "1", at(10));
    add(m_new, "L", "2", at(20));
    put(m_held, "A", "held", at(20));
    add(m_held, "L", "held", at(10));
    (void)merged(m_held, m_new);
    EXPECT_EQ(m_held.getSetPropertiesCount(), 3U);
    EXPECT_EQ(m_held.getAppendLogEntriesCount(), 3U);
}

TEST_F(MergeTest, IsEveryWriteOneByOne)
{
    const auto makeHeld = [] {
        auto pRecord = std::make_unique<CCallData>("C1");
        put(*pRecord, "B", "held", at(10));
        put(*pRecord, "D", "held", at(30));
        for (const unsigned long long ullStamp : {10ULL, 20ULL, 30ULL})
            add(*pRecord, "L", "held", at(ullStamp));
        add(*pRecord, "N", "held", at(10));
        return pRecord;
    };
    // Before, between and behind all that is held: properties, logs, and entries of a log.
    for (const char* pszName : {"A", "B", "C", "D", "E"})
        put(m_new, pszName, "new", at(20));
    for (const unsigned long long ullStamp : {35ULL, 1ULL, 20ULL, 15ULL, 5ULL, 40ULL, 25ULL})
        add(m_new, "L", "new", at(ullStamp));
    for (const char* pszName : {"A", "M", "N", "Z"})
        for (const unsigned long long ullStamp : {10ULL, 7ULL})
            add(m_new, pszName, "other", at(ullStamp));

    const auto pMerged = makeHeld();
    EXPECT_TRUE(merged(*pMerged, m_new));

    const auto pWritten = makeHeld();
    for (const SItem& item : propertiesOf(m_new))
        put(*pWritten, item.sName, item.sValue, item.tsStamp);
    for (const std::string& sLog : logNamesOf(m_new))
        for (const SItem& item : entriesOf(m_new, sLog))
            add(*pWritten, item.sName, item.sValue, item.tsStamp);
    EXPECT_EQ(contentOf(*pMerged), contentOf(*pWritten));
    EXPECT_EQ(serialized(*pMerged), serialized(*pWritten)); // with each log's stamp appended last
    EXPECT_EQ(pMerged->getSetPropertiesCount(), pWritten->getSetPropertiesCount());
    EXPECT_EQ(pMerged->getAppendLogEntriesCount(), pWritten->getAppendLogEntriesCount());
    EXPECT_EQ(pMerged->getsize(), pWritten->getsize());
}

TEST_F(MergeTest, KeepsTheBytesOfAnEntryItHasAlready)
{
    add(m_new, "L", "other bytes", at(10));
    add(m_held, "L", "held", at(10));
    EXPECT_FALSE(merged(m_held, m_new));
    EXPECT_THAT(contentOf(m_held), ::testing::ElementsAre(SItem{"L", "held", at(10)}));
}

TEST_F(MergeTest, PutsALateEntryInItsPlaceAndRemembersItAsTheLast)
{
    add(m_new, "L", "", at(1));
    add(m_held, "L", "", at(2));
    EXPECT_TRUE(merged(m_held, m_new));
    EXPECT_EQ(serialized(m_held), "2;C1;1;0;1;1;1;L;7;1;1;1;0;1;2;16;1;L;0;;7;1;1;1;0;16;1;L;0;;7;1;2;1;0");
}

TEST_F(MergeTest, LeavesTheOtherRecordAlone)
{
    put(m_new, "A", "1", at(10));
    add(m_new, "L", "2", at(20));
    put(m_held, "A", "held", at(20));
    const std::string sNew = serialized(m_new);
    (void)merged(m_held, m_new);
    EXPECT_EQ(serialized(m_new), sNew);
    EXPECT_EQ(m_new.getSetPropertiesCount(), 1U);
}

TEST_F(MergeTest, KeepsItsOwnBytes)
{
    put(m_new, "A", "1", at(10));
    (void)merged(m_held, m_new);
    put(m_new, "A", "changed since", at(20));
    EXPECT_THAT(contentOf(m_held), ::testing::ElementsAre(SItem{"A", "1", at(10)}));
}

TEST_F(MergeTest, OfARecordIntoItselfIsSafe)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "2", at(0)); // forced in once more
    add(m_new, "L", "3", at(30));
    const std::string sBefore = serialized(m_new);
    EXPECT_TRUE(merged(m_new, m_new));
    EXPECT_EQ(serialized(m_new), sBefore);
}

TEST_F(MergeTest, TracesBothRecordsFirstWhenInformationIsTraced)
{
    const auto vecLines = linesUnder(cInfo, [&] { (void)merged(m_held, m_new); });
    EXPECT_THAT(vecLines, ::testing::ElementsAre("CCallData::trace: merge,  new           ",
                                                 "CCallData=" + identityOf(&m_new) + ",callID=\"C1\"",
                                                 "CCallData::trace: merge, cur            ",
                                                 "CCallData=" + identityOf(&m_held) + ",callID=\"C1\"",
                                                 "CCallData::merge: After merging prop(bChanged=0)",
                                                 "CCallData::merge: After merging Logs(bChanged=0)"));
    EXPECT_THAT(linesUnder(~cInfo & ~cDetail, [&] { (void)merged(m_held, m_new); }), ::testing::IsEmpty());
}

TEST_F(MergeTest, TracesTheStateBeforeMerging)
{
    put(m_new, "A", "1", at(10));
    const auto vecLines = linesUnder(cInfo, [&] { (void)merged(m_held, m_new); });
    ASSERT_EQ(vecLines.size(), 7U);
    EXPECT_THAT(vecLines[2], ::testing::StartsWith("\t: prop=0,name=A,"));
    EXPECT_THAT(vecLines[5], "CCallData::merge: After merging prop(bChanged=1)");
}

TEST_F(MergeTest, TracesWhatPropertiesAndLogsChanged)
{
    const auto changesOf = [&] {
        std::vector<std::string> vecLines = linesUnder(cInfo, [&] { (void)merged(m_held, m_new); });
        std::erase_if(vecLines, [](const std::string& s) { return s.find("After merging") == std::string::npos; });
        return vecLines;
    };
    add(m_new, "L", "1", at(10));
    EXPECT_THAT(changesOf(), ::testing::ElementsAre("CCallData::merge: After merging prop(bChanged=0)",
                                                    "CCallData::merge: After merging Logs(bChanged=1)"));
    put(m_new, "A", "1", at(10));
    EXPECT_THAT(changesOf(), ::testing::ElementsAre("CCallData::merge: After merging prop(bChanged=1)",
                                                    "CCallData::merge: After merging Logs(bChanged=1)"));
}

TEST_F(ChangedTest, AgainstNothingIsTrue)
{
    EXPECT_TRUE(m_new.changed(nullptr));
}

TEST_F(ChangedTest, IsFalseForAClone)
{
    put(m_new, "A", "1", at(10));
    add(m_new, "L", "2", at(20));
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_FALSE(m_new.changed(pClone.get()));
    EXPECT_FALSE(pClone->changed(&m_new));
}

TEST_F(ChangedTest, SeesThatALogIsMissing)
{
    add(m_held, "L", "1", at(10));
    EXPECT_TRUE(m_new.changed(&m_held)); // no log at all
    add(m_new, "M", "1", at(10));
    EXPECT_TRUE(m_new.changed(&m_held)); // another one only
}

TEST_F(ChangedTest, SeesAnotherNumberOfEntries)
{
    add(m_held, "L", "1", at(10));
    add(m_new, "L", "1", at(10));
    EXPECT_FALSE(m_new.changed(&m_held));
    add(m_new, "L", "2", at(20));
    EXPECT_TRUE(m_new.changed(&m_held));
    EXPECT_TRUE(m_held.changed(&m_new));
}

TEST_F(ChangedTest, DoesNotLookAtTheEntriesThemselves)
{
    for (unsigned long long i = 0; i < 3; ++i)
    {
        add(m_held, "L", "held", at(10 + i));
        add(m_new, "L", "other", at(20 + i));
    }
    EXPECT_FALSE(m_new.changed(&m_held));
}

TEST_F(ChangedTest, DoesNotSeeALogOfItsOwn)
{
    put(m_held, "A", "1", at(10));
    put(m_new, "A", "1", at(10));
    add(m_new, "L", "2", at(20));
    EXPECT_FALSE(m_new.changed(&m_held));
}

TEST_F(ChangedTest, SeesAPropertyOfItsOwnAndTracesIt)
{
    put(m_new, "NEW", "1", at(10));
    const auto vecLines = linesUnder(cInfo, [&] { EXPECT_TRUE(m_new.changed(&m_held)); });
    EXPECT_THAT(vecLines, ::testing::ElementsAre("CCDSAPI::CCallData::changedProperties, prop not in old=NEW"));
    EXPECT_THAT(linesUnder(~cInfo, [&] { (void)m_new.changed(&m_held); }), ::testing::IsEmpty());
}

TEST_F(ChangedTest, DoesNotSeeThatAPropertyIsMissing)
{
    put(m_held, "A", "1", at(10));
    EXPECT_FALSE(m_new.changed(&m_held));
}

TEST_F(ChangedTest, ComparesPropertiesByTheirStamps)
{
    put(m_held, "A", "1", at(10));
    put(m_new, "A", "other bytes", at(10));
    EXPECT_FALSE(m_new.changed(&m_held));
    put(m_new, "A", "1", at(10, 1));
    EXPECT_TRUE(m_new.changed(&m_held));
    EXPECT_TRUE(m_held.changed(&m_new)); // in either direction
}

TEST_F(CloneTest, HoldsEqualValuesOfItsOwn)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "", at(0));
    add(m_new, "L", "2", at(20));
    add(m_new, "M", "3", at(30, -1));
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    ASSERT_NE(pClone, nullptr);
    EXPECT_EQ(contentOf(*pClone), contentOf(m_new));
    EXPECT_EQ(callIDOf(*pClone), "C1");
    EXPECT_EQ(pClone->getsize(), m_new.getsize());
    const std::vector<SItem> vecBefore = contentOf(*pClone);
    put(m_new, "A", "changed", at(11));
    (void)m_new.clear();
    EXPECT_EQ(contentOf(*pClone), vecBefore);
}

TEST_F(CloneTest, CountsWhatWasCopied)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "A", "2", at(11));
    put(m_new, "B", "3", at(10));
    add(m_new, "L", "1", at(10));
    add(m_new, "L", "2", at(10));
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_EQ(pClone->getSetPropertiesCount(), 2U);
    EXPECT_EQ(pClone->getAppendLogEntriesCount(), 1U);
}

TEST_F(CloneTest, StartsWithoutReferences)
{
    (void)m_new.addRef();
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_EQ(pClone->addRef(), 1);
}

TEST_F(CloneTest, AsksTheSameOwner)
{
    CFakeOwner owner;
    CCallData record(&owner, "C1");
    put(record, "A", "1", at(10));
    const std::unique_ptr<CCallData> pClone(record.clone());
    const SFiltered difference = filtered(record, nullptr);
    const CValue value("now");
    for (CCallData* const pCopy : {pClone.get(), difference.pRecord.get()})
    {
        EXPECT_THAT(pCopy->setProperty("B", value.data(), value.length()), IsOk());
        EXPECT_THAT(contentOf(*pCopy), ::testing::Contains(SItem{"B", "now", owner.m_tsAnswer}));
    }
    EXPECT_EQ(owner.m_vecAsked.size(), 2U);
}

TEST_F(CloneTest, OfAnEmptyRecordIsEmpty)
{
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_EQ(serialized(*pClone), "2;C1;1;0;1;0");
}

TEST_F(CloneTest, TakesTheLatestEntryForTheOneAppendedLast)
{
    add(m_new, "L", "", at(2));
    add(m_new, "L", "", at(1));
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_THAT(serialized(m_new), ::testing::StartsWith("2;C1;1;0;1;1;1;L;7;1;1;1;0;"));
    EXPECT_THAT(serialized(*pClone), ::testing::StartsWith("2;C1;1;0;1;1;1;L;7;1;2;1;0;"));
}

// Every stamp is the process's next one: a comparison that took some would come between those of its writers.
TEST_F(CallDataCompareTest, TakesNoStamp)
{
    put(m_new, "A", "1", at(10));
    put(m_held, "A", "2", at(5));
    add(m_new, "L", "1", at(10));
    add(m_held, "L", "1", at(5));
    const std::size_t uBefore = CFakeClock::fileTimeReads();
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_TRUE(filtered(m_new, &m_held).any());
    EXPECT_TRUE(filtered(m_new, nullptr).any());
    EXPECT_TRUE(m_new.changed(&m_held));
    EXPECT_TRUE(merged(m_held, m_new));
    (void)serialized(m_held);
    m_held.trace("label");
    std::string sDump;
    m_held.DumpContent(sDump);
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore);
    const CValue value("now");
    EXPECT_THAT(m_held.setProperty("B", value.data(), value.length()), IsOk());
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore + 1);
}

TEST_F(CloneTest, IsMadeNow)
{
    CFakeClock::setFileTime(133'000'000'000'000'000ULL);
    const CCallData early("C1");
    CFakeClock::advance(61'001);
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    std::string sEarly;
    std::string sClone;
    early.DumpContent(sEarly);
    pClone->DumpContent(sClone);
    EXPECT_NE(sEarly, sClone); // the dump shows when the record was made
}

TEST_F(ValuesTest, ACloneHasBytesOfItsOwn)
{
    put(m_new, "A", "1", at(10));
    add(m_new, "L", "2", at(20));
    const std::unique_ptr<CCallData> pClone(m_new.clone());
    EXPECT_NE(bytesOf(m_new, "A"), nullptr);
    EXPECT_NE(bytesOf(*pClone, "A"), bytesOf(m_new, "A"));
    EXPECT_NE(entryBytesOf(m_new, "L"), nullptr);
    EXPECT_NE(entryBytesOf(*pClone, "L"), entryBytesOf(m_new, "L"));
}

TEST_F(ValuesTest, ADifferenceAndWhatItIsMergedIntoHaveBytesOfTheirOwn)
{
    put(m_new, "A", "1", at(10));
    put(m_new, "B", "1", at(10));
    add(m_new, "L", "2", at(20));
    put(m_held, "A", "0", at(5));
    add(m_held, "L", "3", at(30));
    const SFiltered difference = filtered(m_new, &m_held);
    ASSERT_TRUE(difference.any());
    EXPECT_TRUE(merged(m_held, *difference.pRecord));
    for (const auto& [pOne, pOther] : {std::pair(difference.pRecord.get(), &m_new), std::pair(&m_held, &m_new),
                                       std::pair(&m_held, difference.pRecord.get())})
    {
        EXPECT_NE(bytesOf(*pOne, "A"), bytesOf(*pOther, "A"));
        EXPECT_NE(bytesOf(*pOne, "B"), bytesOf(*pOther, "B"));
        EXPECT_NE(entryBytesOf(*pOne, "L"), entryBytesOf(*pOther, "L"));
    }
}

TEST_F(ValuesTest, WhatHappensToOneOfTwoRecordsLeavesTheOthersBytes)
{
    const auto makeTwo = [] {
        auto pFirst = std::make_unique<CCallData>("C1");
        put(*pFirst, "A", "first", at(10));
        add(*pFirst, "L", "entry", at(10));
        std::unique_ptr<CCallData> pSecond(pFirst->clone());
        return std::pair(std::move(pFirst), std::move(pSecond));
    };
    const std::vector<SItem> vecBefore = {{"A", "first", at(10)}, {"L", "entry", at(10)}};
    for (const bool bCloneStays : {false, true})
        for (const char* const pszStep : {"replace", "force", "clear", "delete"})
        {
            SCOPED_TRACE(std::string(pszStep) + (bCloneStays ? " the original" : " the clone"));
            auto [pGoes, pStays] = makeTwo();
            if (!bCloneStays)
                pGoes.swap(pStays);
            const unsigned char* const pBytes = bytesOf(*pStays, "A");
            const std::string sStep = pszStep;
            if (sStep == "replace")
                put(*pGoes, "A", "SECOND", at(20));
            else if (sStep == "force")
                put(*pGoes, "A", "SECOND", at(0));
            else if (sStep == "clear")
                (void)pGoes->clear();
            else
                pGoes.reset();
            put(m_new, "B", "may be where the value was, were it gone", at(10));
            EXPECT_EQ(textOf(pBytes, 5), "first");
            EXPECT_EQ(contentOf(*pStays), vecBefore);
            EXPECT_EQ(pStays->getsize(), 10U);
            if (pGoes != nullptr)
            {
                EXPECT_NE(contentOf(*pGoes), vecBefore);
            }
        }
}

TEST_F(ValuesTest, ADifferenceAndWhatItIsMergedIntoOutliveTheirSource)
{
    auto pSource = std::make_unique<CCallData>("C1");
    put(*pSource, "A", "1", at(10));
    add(*pSource, "L", "2", at(20));
    add(m_held, "L", "3", at(30));
    SFiltered difference = filtered(*pSource, &m_held);
    ASSERT_TRUE(difference.any());
    pSource.reset();
    EXPECT_THAT(contentOf(*difference.pRecord),
                ::testing::ElementsAre(SItem{"A", "1", at(10)}, SItem{"L", "2", at(20)}));
    EXPECT_TRUE(merged(m_held, *difference.pRecord));
    difference.pRecord.reset();
    EXPECT_THAT(contentOf(m_held),
                ::testing::ElementsAre(SItem{"A", "1", at(10)}, SItem{"L", "2", at(20)}, SItem{"L", "3", at(30)}));
}

TEST_F(ValuesTest, AnIterationKeepsWhatItBeganWithWhenAValueIsReplaced)
{
    auto pSource = std::make_unique<CCallData>("C1");
    put(*pSource, "A", "1", at(10));
    put(*pSource, "B", "before", at(10));
    EXPECT_TRUE(merged(m_held, *pSource));
    int nIndex = 0;
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_THAT(m_held.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    pSource.reset();
    put(m_held, "B", "after", at(20));
    EXPECT_THAT(m_held.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    EXPECT_EQ(textOf(pData, nLength), "before");
}

TEST_F(ValuesTest, AnEntryThatWasReadUnderAnotherNameIsTakenOverUnderItsLogs)
{
    CCallData read(g_sOddlyNamed, true);
    ASSERT_EQ(serialized(read), g_sOddlyNamed); // its own text is kept as it was
    add(m_new, "L", "1", at(10));
    const std::string sExpected = serialized(m_new);
    const std::unique_ptr<CCallData> pClone(read.clone());
    EXPECT_EQ(serialized(*pClone), sExpected);
    EXPECT_EQ(serialized(*filtered(read, &m_held).pRecord), sExpected);
    EXPECT_TRUE(merged(m_held, read));
    EXPECT_EQ(serialized(m_held), sExpected);
}

// Stamps and names are looked for from where the one before was found, with growing steps.
TEST_F(ValuesTest, WhatIsNewIsFoundBetweenAnyNumbersOfOldValues)
{
    constexpr int cMost = 12;
    const auto nameOf = [](int i) { return std::string(1, static_cast<char>('A' + i)); };
    for (unsigned int uNew = 1; uNew < 1U << 6U; ++uNew)
        for (int nStride = 1; nStride <= cMost; ++nStride)
        {
            SCOPED_TRACE(std::to_string(uNew) + " every " + std::to_string(nStride));
            CCallData held("C1");
            CCallData incoming("C1");
            CCallData expected("C1");
            for (int i = 0; i < cMost; ++i)
            {
                const auto ullStamp = static_cast<unsigned long long>(i + 1);
                const bool bIncoming = (uNew >> static_cast<unsigned int>(i % 6) & 1U) != 0;
                const bool bHeld = i % nStride == 0;
                if (bHeld)
                {
                    put(held, nameOf(i), "held", at(100));
                    add(held, "L", "held", at(ullStamp));
                }
                if (bIncoming)
                {
                    put(incoming, nameOf(i), "new", at(100));
                    add(incoming, "L", "new", at(ullStamp));
                }
                if (bIncoming && !bHeld)
                {
                    put(expected, nameOf(i), "new", at(100));
                    add(expected, "L", "new", at(ullStamp));
                }
            }
            const SFiltered difference = filtered(incoming, &held);
            EXPECT_EQ(difference.any() ? contentOf(*difference.pRecord) : std::vector<SItem>(), contentOf(expected));
            EXPECT_EQ(merged(held, incoming), difference.any());
            EXPECT_FALSE(filtered(incoming, &held).any());
        }
}
