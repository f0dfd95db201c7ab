// Records: making one, writing values and entries, the look-ups by name.

#include "FakeOwner.h"
#include "ModelSupport.h"

#include <type_traits>

using namespace model;

static_assert(!std::is_copy_constructible_v<CCallData> && !std::is_copy_assignable_v<CCallData>);

namespace {

/// A property as the look-up by name finds it.
SItem propertyOf(const CCallData& record, const std::string& sName)
{
    unsigned char* pData = nullptr;
    int nLength = -1;
    SItem item{sName, {}, at(77, 77)};
    EXPECT_THAT(record.getProperty(sName, &pData, &nLength, &item.tsStamp), IsOk());
    item.sValue = textOf(pData, nLength);
    return item;
}

class CallDataTest : public CModelTest
{
protected:
    CCallData m_record{"C1"};
};

using CallDataPropertyTest = CallDataTest;
using CallDataLogTest = CallDataTest;
using CallDataSizeTest = CallDataTest;

/// Writers that stamp by themselves.
class CallDataOwnerTest : public CModelTest
{
protected:
    CFakeOwner m_owner;
    CCallData m_record{&m_owner, "C1"};
    const CValue m_value{"now"};
};

} // namespace

TEST_F(CallDataTest, StartsEmpty)
{
    EXPECT_EQ(callIDOf(m_record), "C1");
    EXPECT_EQ(m_record.getSetPropertiesCount(), 0U);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 0U);
    EXPECT_EQ(m_record.getLogNameCount(), 0);
    EXPECT_EQ(m_record.getsize(), 0U);
    EXPECT_THAT(contentOf(m_record), ::testing::IsEmpty());
}

TEST_F(CallDataTest, CountsReferencesWithoutDeletingItself)
{
    EXPECT_EQ(m_record.addRef(), 1);
    EXPECT_EQ(m_record.addRef(), 2);
    EXPECT_EQ(m_record.decRef(), 1);
    EXPECT_EQ(m_record.decRef(), 0);
    EXPECT_EQ(callIDOf(m_record), "C1");
}

TEST_F(CallDataTest, KeepsTheCallIdItIsGiven)
{
    EXPECT_THAT(m_record.setCallID("C2"), IsOk());
    std::string sByReference;
    std::string sByPointer;
    EXPECT_THAT(m_record.getCallID(sByReference), IsOk());
    EXPECT_THAT(m_record.getCallID(&sByPointer), IsOk());
    EXPECT_EQ(sByReference, "C2");
    EXPECT_EQ(sByPointer, "C2");
}

TEST_F(CallDataTest, TracesItsLifeAsInformation)
{
    std::string sIdentity;
    const auto live = [&] {
        const CCallData record("C2");
        sIdentity = identityOf(&record);
    };
    const auto vecLines = linesUnder(cInfo, live);
    EXPECT_THAT(vecLines, ::testing::ElementsAre("CCallData Malloc: " + sIdentity, "CCallData Free: " + sIdentity));
    EXPECT_THAT(linesUnder(~cInfo, live), ::testing::IsEmpty());
}

TEST_F(CallDataPropertyTest, TakesANewValue)
{
    EXPECT_TRUE(put(m_record, "A", "value", at(10, 1)));
    EXPECT_EQ(propertyOf(m_record, "A"), (SItem{"A", "value", at(10, 1)}));
}

TEST_F(CallDataPropertyTest, TakesAValueOnlyWhenItIsLaterOrForced)
{
    const struct
    {
        CCDSTimestamp tsHeld;
        CCDSTimestamp tsOffered;
        bool bTaken;
    } aCases[] = {
        {at(10), at(11), true},     {at(10), at(10), false},     {at(10), at(9), false},
        {at(5, 1), at(5, 2), true}, {at(5, 2), at(5, 1), false}, {at(10), at(0, 0), true}, // the zero stamp forces
        {at(0), at(0), true},       {at(10), at(0, 1), false},   {at(0), at(0, 1), true},
        {at(0), at(0, -1), false},  {at(0), at(1), true},        {at(0x7FFFFFFFFFFFFFFFULL), at(1ULL << 63), true},
    };
    for (const auto& [tsHeld, tsOffered, bTaken] : aCases)
    {
        SCOPED_TRACE(::testing::PrintToString(tsOffered) + " over " + ::testing::PrintToString(tsHeld));
        CCallData record("C1");
        put(record, "A", "held", tsHeld);
        EXPECT_EQ(put(record, "A", "offered", tsOffered), bTaken);
        EXPECT_EQ(propertyOf(record, "A"), bTaken ? (SItem{"A", "offered", tsOffered}) : (SItem{"A", "held", tsHeld}));
    }
}

TEST_F(CallDataPropertyTest, TakesTheZeroStampForANewName)
{
    EXPECT_TRUE(put(m_record, "A", "value", at(0)));
    EXPECT_EQ(propertyOf(m_record, "A"), (SItem{"A", "value", at(0)}));
}

TEST_F(CallDataPropertyTest, CountsEveryWriteTakenOrNot)
{
    put(m_record, "A", "1", at(10));
    put(m_record, "A", "2", at(9));
    put(m_record, "B", "3", at(10));
    EXPECT_EQ(m_record.getSetPropertiesCount(), 3U);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 0U);
}

TEST_F(CallDataPropertyTest, StoresNoBytesAsNull)
{
    const CValue value("abc");
    unsigned char* const pNull = nullptr;
    const struct
    {
        const char* pszName;
        unsigned char* pData;
        int nLength;
    } aCases[] = {{"A", pNull, 0}, {"B", pNull, 3}, {"C", value.data(), 0}, {"D", value.data(), -1}};
    for (const auto& [pszName, pGiven, nGiven] : aCases)
    {
        SCOPED_TRACE(pszName);
        bool bChanged = false;
        EXPECT_THAT(m_record.setProperty(pszName, pGiven, nGiven, at(1), true, &bChanged), IsOk());
        EXPECT_TRUE(bChanged);
        unsigned char* pData = value.data();
        int nLength = -1;
        EXPECT_THAT(m_record.getProperty(pszName, &pData, &nLength, nullptr), IsOk());
        EXPECT_EQ(pData, nullptr);
        EXPECT_EQ(nLength, 0);
    }
    EXPECT_EQ(m_record.getsize(), 0U);
}

TEST_F(CallDataPropertyTest, SaysWhetherItChangedWhateverTheFlagHeld)
{
    const CValue value("abc");
    bool bChanged = true;
    put(m_record, "A", "held", at(10));
    EXPECT_THAT(m_record.setProperty("A", value.data(), 3, at(9), true, &bChanged), IsOk());
    EXPECT_FALSE(bChanged);
}

TEST_F(CallDataPropertyTest, TheReservedArgumentHasNoEffect)
{
    const CValue value("abc");
    for (const bool bReserved : {true, false})
    {
        SCOPED_TRACE(bReserved);
        CCallData record("C1");
        bool bChanged = false;
        EXPECT_THAT(record.setProperty("A", value.data(), 3, at(10), bReserved, &bChanged), IsOk());
        EXPECT_TRUE(bChanged);
        EXPECT_THAT(record.setProperty("A", value.data(), 3, at(9), bReserved, &bChanged), IsOk());
        EXPECT_FALSE(bChanged);
        EXPECT_THAT(record.appendLogEntry("L", value.data(), 3, at(10), bReserved, &bChanged), IsOk());
        EXPECT_TRUE(bChanged);
        EXPECT_THAT(record.appendLogEntry("L", value.data(), 3, at(10), bReserved, &bChanged), IsOk());
        EXPECT_FALSE(bChanged);
    }
}

TEST_F(CallDataPropertyTest, IsNotFoundUnderAnotherName)
{
    put(m_record, "A", "value", at(10));
    unsigned char* pData = nullptr;
    int nLength = -1;
    CCDSTimestamp tsStamp(77, 77);
    for (const char* const pszName : {"a", "AA", "", "B"})
        EXPECT_THAT(m_record.getProperty(pszName, &pData, &nLength, &tsStamp), FailsWith(E_CDS_NOTFOUND)) << pszName;
}

TEST_F(CallDataPropertyTest, IsReadWithoutItsStamp)
{
    put(m_record, "A", "value", at(10));
    unsigned char* pData = nullptr;
    int nLength = -1;
    EXPECT_THAT(m_record.getProperty("A", &pData, &nLength, nullptr), IsOk());
    EXPECT_EQ(textOf(pData, nLength), "value");
}

TEST_F(CallDataPropertyTest, HandsOutItsOwnBytes)
{
    put(m_record, "A", "value", at(10));
    unsigned char* pFirst = nullptr;
    unsigned char* pSecond = nullptr;
    int nLength = -1;
    EXPECT_THAT(m_record.getProperty("A", &pFirst, &nLength, nullptr), IsOk());
    EXPECT_THAT(m_record.getProperty("A", &pSecond, &nLength, nullptr), IsOk());
    EXPECT_EQ(pFirst, pSecond);
}

TEST_F(CallDataPropertyTest, TellsWhenItWasSet)
{
    put(m_record, "A", "value", at(10, 3));
    CCDSTimestamp tsStamp(77, 77);
    EXPECT_THAT(m_record.getPropertyUpdateTimestamp("A", &tsStamp), IsOk());
    EXPECT_EQ(tsStamp, at(10, 3));
}

TEST_F(CallDataPropertyTest, WasSetAtTheZeroStampWhenThereIsNone)
{
    CCDSTimestamp tsStamp(77, 77);
    EXPECT_THAT(m_record.getPropertyUpdateTimestamp("A", &tsStamp), FailsWith(E_CDS_NOTFOUND));
    EXPECT_EQ(tsStamp, at(0));
}

TEST_F(CallDataPropertyTest, ManyNamesAreAllKept)
{
    for (int i = 0; i < 100; ++i) // in an order that is neither up nor down
        put(m_record, std::to_string(100 + i * 37 % 100), std::to_string(i), at(1));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(propertyOf(m_record, std::to_string(100 + i * 37 % 100)).sValue, std::to_string(i));
}

TEST_F(CallDataLogTest, TakesANewEntry)
{
    EXPECT_TRUE(add(m_record, "L", "first", at(10)));
    EXPECT_THAT(entriesOf(m_record, "L"), ::testing::ElementsAre(SItem{"L", "first", at(10)}));
    EXPECT_EQ(m_record.getLogEntryCount("L"), 1);
}

TEST_F(CallDataLogTest, KeepsTheFirstOfTwoEntriesWithOneStamp)
{
    add(m_record, "L", "first", at(10));
    EXPECT_FALSE(add(m_record, "L", "second", at(10)));
    EXPECT_THAT(entriesOf(m_record, "L"), ::testing::ElementsAre(SItem{"L", "first", at(10)}));
    EXPECT_EQ(m_record.getLogEntryCount("L"), 1);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 2U);
}

TEST_F(CallDataLogTest, SaysThatADuplicateChangedNothingWhateverTheFlagHeld)
{
    const CValue value("x");
    bool bChanged = true;
    add(m_record, "L", "first", at(10));
    EXPECT_THAT(m_record.appendLogEntry("L", value.data(), 1, at(10), true, &bChanged), IsOk());
    EXPECT_FALSE(bChanged);
}

TEST_F(CallDataLogTest, PutsALateEntryInItsPlace)
{
    add(m_record, "L", "b", at(20));
    add(m_record, "L", "d", at(40));
    EXPECT_TRUE(add(m_record, "L", "a", at(10)));
    EXPECT_TRUE(add(m_record, "L", "c", at(20, 1)));
    EXPECT_THAT(entriesOf(m_record, "L"), ::testing::ElementsAre(SItem{"L", "a", at(10)}, SItem{"L", "b", at(20)},
                                                                 SItem{"L", "c", at(20, 1)}, SItem{"L", "d", at(40)}));
}

TEST_F(CallDataLogTest, RemembersTheEntryAppendedLast)
{
    add(m_record, "L", "", at(20));
    EXPECT_EQ(serialized(m_record), "2;C1;1;0;1;1;1;L;8;2;20;1;0;1;1;17;1;L;0;;8;2;20;1;0");
    add(m_record, "L", "", at(10));
    EXPECT_EQ(serialized(m_record), "2;C1;1;0;1;1;1;L;8;2;10;1;0;1;2;17;1;L;0;;8;2;10;1;0;17;1;L;0;;8;2;20;1;0");
    add(m_record, "L", "", at(20)); // a duplicate is not appended
    EXPECT_THAT(serialized(m_record), ::testing::StartsWith("2;C1;1;0;1;1;1;L;8;2;10;1;0;1;2;"));
}

TEST_F(CallDataLogTest, TakesOneStampUnderTwoNames)
{
    EXPECT_TRUE(add(m_record, "L", "first", at(10)));
    EXPECT_TRUE(add(m_record, "M", "second", at(10)));
    EXPECT_EQ(m_record.getLogNameCount(), 2);
}

TEST_F(CallDataLogTest, TheZeroStampForcesNothing)
{
    EXPECT_TRUE(add(m_record, "L", "first", at(0)));
    EXPECT_FALSE(add(m_record, "L", "second", at(0)));
    EXPECT_THAT(entriesOf(m_record, "L"), ::testing::ElementsAre(SItem{"L", "first", at(0)}));
}

TEST_F(CallDataLogTest, TakesAnEmptyEntry)
{
    unsigned char* const pNull = nullptr;
    bool bChanged = false;
    EXPECT_THAT(m_record.appendLogEntry("L", pNull, 0, at(1), true, &bChanged), IsOk());
    EXPECT_TRUE(bChanged);
    EXPECT_EQ(m_record.getLogEntryCount("L"), 1);
}

TEST_F(CallDataLogTest, CountsEveryWriteTakenOrNot)
{
    add(m_record, "L", "1", at(10));
    add(m_record, "L", "2", at(10));
    add(m_record, "M", "3", at(10));
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 3U);
    EXPECT_EQ(m_record.getSetPropertiesCount(), 0U);
}

TEST_F(CallDataLogTest, AnEntryExistsAtItsExactStamp)
{
    add(m_record, "L", "x", at(10, 1));
    EXPECT_THAT(m_record.getLogEntryExists("L", at(10, 1)), IsOk());
    EXPECT_THAT(m_record.getLogEntryExists("L", at(10, 2)), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_record.getLogEntryExists("L", at(11, 1)), FailsWith(E_CDS_NOTFOUND));
    EXPECT_THAT(m_record.getLogEntryExists("M", at(10, 1)), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(CallDataLogTest, CountsEntriesAndNames)
{
    EXPECT_EQ(m_record.getLogEntryCount("L"), 0);
    add(m_record, "L", "1", at(10));
    add(m_record, "L", "2", at(11));
    add(m_record, "M", "3", at(10));
    EXPECT_EQ(m_record.getLogEntryCount("L"), 2);
    EXPECT_EQ(m_record.getLogEntryCount("M"), 1);
    EXPECT_EQ(m_record.getLogEntryCount("LM"), 0);
    EXPECT_EQ(m_record.getLogNameCount(), 2);
}

TEST_F(CallDataSizeTest, IsTheSumOfAllBytes)
{
    put(m_record, "A", "12345", at(10));
    EXPECT_EQ(m_record.getsize(), 5U);
    put(m_record, "B", "123", at(10));
    add(m_record, "L", "12", at(10));
    add(m_record, "L", "1", at(11));
    EXPECT_EQ(m_record.getsize(), 11U);
}

TEST_F(CallDataSizeTest, CountsAReplacedValueOnce)
{
    put(m_record, "A", "12345", at(10));
    put(m_record, "A", "12", at(11));
    EXPECT_EQ(m_record.getsize(), 2U);
    put(m_record, "A", "123456789", at(12));
    EXPECT_EQ(m_record.getsize(), 9U);
    put(m_record, "A", "dropped", at(12));
    EXPECT_EQ(m_record.getsize(), 9U);
}

TEST_F(CallDataSizeTest, DoesNotCountADuplicateEntry)
{
    add(m_record, "L", "12", at(10));
    add(m_record, "L", "12345", at(10));
    EXPECT_EQ(m_record.getsize(), 2U);
}

TEST_F(CallDataTest, ClearingRemovesValuesAndLogs)
{
    put(m_record, "A", "12345", at(10));
    add(m_record, "L", "12", at(10));
    EXPECT_THAT(m_record.clear(), IsOk());
    EXPECT_THAT(contentOf(m_record), ::testing::IsEmpty());
    EXPECT_EQ(m_record.getLogNameCount(), 0);
    EXPECT_EQ(m_record.getLogEntryCount("L"), 0);
    EXPECT_EQ(m_record.getsize(), 0U);
}

TEST_F(CallDataTest, ClearingKeepsCallIdCountersAndReferences)
{
    put(m_record, "A", "12345", at(10));
    add(m_record, "L", "12", at(10));
    (void)m_record.addRef();
    EXPECT_THAT(m_record.clear(), IsOk());
    EXPECT_EQ(callIDOf(m_record), "C1");
    EXPECT_EQ(m_record.getSetPropertiesCount(), 1U);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 1U);
    EXPECT_EQ(m_record.addRef(), 2);
}

TEST_F(CallDataTest, ACutOffPastIsForgottenByClearing)
{
    put(m_record, "A", "late", at(100));
    (void)m_record.clear();
    EXPECT_TRUE(put(m_record, "A", "early", at(1)));
    EXPECT_EQ(propertyOf(m_record, "A").sValue, "early");
}

TEST_F(CallDataTest, WithoutOwnerWritersStampWithTheCurrentTime)
{
    CFakeClock::setFileTime(160'000'000'000'000'000ULL);
    const CCDSTimestamp tsBefore;
    const CValue value("now");
    EXPECT_THAT(m_record.setProperty("A", value.data(), value.length()), IsOk());
    EXPECT_THAT(m_record.appendLogEntry("L", value.data(), value.length()), IsOk());
    const long lNext = tsBefore.incrementValue() + 1;
    EXPECT_EQ(propertyOf(m_record, "A"), (SItem{"A", "now", at(tsBefore.value(), lNext)}));
    EXPECT_THAT(entriesOf(m_record, "L"), ::testing::ElementsAre(SItem{"L", "now", at(tsBefore.value(), lNext + 1)}));
}

TEST_F(CallDataOwnerTest, AsksTheOwnerOnceForTheCallsStamp)
{
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), IsOk());
    EXPECT_THAT(m_owner.m_vecAsked, ::testing::ElementsAre(SItem{"C1", {}, at(0)}));
    EXPECT_THAT(m_record.appendLogEntry("L", m_value.data(), m_value.length()), IsOk());
    EXPECT_THAT(m_owner.m_vecAsked, ::testing::ElementsAre(SItem{"C1", {}, at(0)}, SItem{"C1", {}, at(0)}));
}

TEST_F(CallDataOwnerTest, UsesTheOwnersStamp)
{
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), IsOk());
    EXPECT_THAT(m_record.appendLogEntry("L", m_value.data(), m_value.length()), IsOk());
    EXPECT_THAT(contentOf(m_record),
                ::testing::ElementsAre(SItem{"A", "now", at(4711, 3)}, SItem{"L", "now", at(4711, 3)}));
}

TEST_F(CallDataOwnerTest, TakesNoStampOfItsOwn)
{
    const std::size_t uBefore = CFakeClock::fileTimeReads();
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), IsOk());
    EXPECT_EQ(CFakeClock::fileTimeReads(), uBefore);
}

TEST_F(CallDataOwnerTest, ReturnsTheOwnersFailureAndWritesNothing)
{
    m_owner.m_lAnswer = E_CDS_NOCHANNEL;
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), FailsWith(E_CDS_NOCHANNEL));
    EXPECT_THAT(m_record.appendLogEntry("L", m_value.data(), m_value.length()), FailsWith(E_CDS_NOCHANNEL));
    EXPECT_THAT(contentOf(m_record), ::testing::IsEmpty());
    EXPECT_EQ(m_record.getSetPropertiesCount(), 0U);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), 0U);
}

TEST_F(CallDataOwnerTest, TakesAFailureWithoutItsSignForOne)
{
    m_owner.m_lAnswer = static_cast<long>(0xC1170A33UL); // positive where long has 64 bits
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), FailsWith(E_CDS_NOCHANNEL));
}

TEST_F(CallDataOwnerTest, GoesOnWithAPositiveAnswer)
{
    m_owner.m_lAnswer = 1;
    EXPECT_THAT(m_record.setProperty("A", m_value.data(), m_value.length()), IsOk());
    EXPECT_THAT(contentOf(m_record), ::testing::ElementsAre(SItem{"A", "now", at(4711, 3)}));
}
