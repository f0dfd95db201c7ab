// Records: the text form, and what becomes of any text that arrives.

#include "CDSParams.h"
#include "FakeOwner.h"
#include "ModelSupport.h"

using namespace model;

namespace {

/// A parameter list of texts.
std::string listOf(const std::vector<std::string>& vecElements)
{
    CParamsX list;
    for (const std::string& sElement : vecElements)
        EXPECT_THAT(list.addParam(sElement, 3.14F), IsOk());
    return list.paramList();
}

std::string stampText(unsigned long long ullValue, long lIncrement = 0)
{
    return listOf({std::to_string(ullValue), std::to_string(lIncrement)});
}

/// A blob's text; the value in hexadecimal.
std::string blobText(const std::string& sName, const std::string& sHex, unsigned long long ullValue)
{
    return listOf({sName, sHex, stampText(ullValue)});
}

/// What a record has become after reading a text.
std::vector<SItem> contentOfText(const std::string& sText)
{
    CCallData record(sText, true);
    return contentOf(record);
}

constexpr char cReplacedLine[] = "CCallData::deserialize - Deleting OldBLOB";
constexpr char cLargest[] = "2147483647";

class CallDataTextTest : public CModelTest
{
protected:
    CCallData m_record{"C1"};
};

using CallDataReadTest = CallDataTextTest;
using CallDataHostileTextTest = CallDataTextTest;

} // namespace

TEST_F(CallDataTextTest, OfAnEmptyRecordIsItsCallIdAndTwoZeros)
{
    EXPECT_EQ(serialized(m_record), "2;C1;1;0;1;0");
    CCallData nameless("");
    EXPECT_EQ(serialized(nameless), "0;;1;0;1;0");
}

TEST_F(CallDataTextTest, HoldsEachPropertyAsANestedList)
{
    put(m_record, "CALLERID", "415", at(100, 2));
    EXPECT_EQ(serialized(m_record), "2;C1;1;1;31;8;CALLERID;6;343135;9;3;100;1;2;1;0");
}

TEST_F(CallDataTextTest, HoldsEachLogWithItsLastStampAndItsEntries)
{
    put(m_record, "CALLERID", "415", at(100, 2));
    add(m_record, "LOGN", "\xAB", at(7));
    EXPECT_EQ(serialized(m_record), "2;C1;1;1;31;8;CALLERID;6;343135;9;3;100;1;2;1;1;4;LOGN;7;1;7;1;0;1;1;"
                                    "21;4;LOGN;2;AB;7;1;7;1;0");
}

TEST_F(CallDataTextTest, KeepsTheNameThatAnEntryCameWith)
{
    const std::string sText = "2;C1;1;1;31;8;CALLERID;6;343135;9;3;100;1;2;1;1;4;LOGN;7;1;7;1;0;1;1;"
                              "19;2;L1;2;AB;7;1;7;1;0";
    CCallData record(sText, true);
    EXPECT_EQ(serialized(record), sText);
}

TEST_F(CallDataTextTest, IsInTheOrderOfNamesAndStamps)
{
    put(m_record, "B", "", at(2));
    put(m_record, "A", "", at(1));
    add(m_record, "M", "", at(3));
    add(m_record, "L", "", at(2));
    add(m_record, "L", "", at(1));
    const CParamsX list(serialized(m_record));
    std::vector<std::string> vecElements;
    for (int i = 0; i < list.count(); ++i)
        vecElements.push_back(list.getStringParamAt(i));
    EXPECT_THAT(vecElements, ::testing::ElementsAre("C1", "2", blobText("A", "", 1), blobText("B", "", 2), "2", "L",
                                                    stampText(1), "2", blobText("L", "", 1), blobText("L", "", 2), "M",
                                                    stampText(3), "1", blobText("M", "", 3)));
}

TEST_F(CallDataTextTest, HoldsNothingThatIsLocal)
{
    put(m_record, "A", "1", at(10));
    CFakeClock::advance(1'000'000);
    CCallData other("C1");
    put(other, "A", "0", at(9));
    put(other, "A", "1", at(10));
    (void)other.addRef();
    EXPECT_EQ(serialized(other), serialized(m_record));
    CFakeOwner owner;
    CCallData owned(&owner, "C1");
    put(owned, "A", "1", at(10));
    EXPECT_EQ(serialized(owned), serialized(m_record));
    EXPECT_THAT(owner.m_vecAsked, ::testing::IsEmpty());
}

TEST_F(CallDataTextTest, WritesOneDetailLinePerElementOfEveryList)
{
    put(m_record, "A", "1", at(10));
    std::string sText;
    const auto vecLines = linesUnder(cAllLevels, [&] { (void)m_record.serialize(&sText); });
    // Three elements of the record itself, two of the stamp, three of the blob, and the blob in the record.
    EXPECT_EQ(vecLines, std::vector<std::string>(9, "CParamsX::addParam(const string& sParam, float dummy)"));
}

TEST_F(CallDataTextTest, AValueTooLargeForATextIsLeftOut)
{
    put(m_record, "A", std::string(499997, 'x'), at(10)); // fits alone, but not with its name and stamp
    std::string sText;
    const auto vecLines = linesUnder(cError, [&] { EXPECT_THAT(m_record.serialize(&sText), IsOk()); });
    EXPECT_EQ(sText, "2;C1;1;1;1;0");
    EXPECT_THAT(vecLines, ::testing::ElementsAre(::testing::StartsWith("ERROR :CParamsX::addParam :parm size ")));
}

TEST_F(CallDataReadTest, GivesBackEveryValueAndStamp)
{
    put(m_record, "CALLERID", "415", at(100, 2));
    put(m_record, "EMPTY", "", at(18446744073709551615ULL, -1));
    put(m_record, "a;b;1;", bytes({0, 59, 255}), at(0));
    add(m_record, "L", "late", at(20));
    add(m_record, "L", "early", at(10));
    add(m_record, "M", "", at(30, 5));
    CCallData read(serialized(m_record), true);
    EXPECT_EQ(contentOf(read), contentOf(m_record));
    EXPECT_EQ(serialized(read), serialized(m_record)); // with the stamps appended last
    EXPECT_EQ(callIDOf(read), "C1");
    EXPECT_EQ(read.getsize(), m_record.getsize());
}

TEST_F(CallDataReadTest, IsAFreshRecordOtherwise)
{
    put(m_record, "A", "1", at(10));
    add(m_record, "L", "1", at(10));
    (void)m_record.addRef();
    CCallData read(serialized(m_record), true);
    EXPECT_EQ(read.getSetPropertiesCount(), 0U);
    EXPECT_EQ(read.getAppendLogEntriesCount(), 0U);
    EXPECT_EQ(read.addRef(), 1);
}

TEST_F(CallDataReadTest, HasNoOwnerToAskForStamps)
{
    CFakeClock::setFileTime(170'000'000'000'000'000ULL);
    CCallData read("2;C1;1;0;1;0", true);
    const CValue value("x");
    EXPECT_THAT(read.setProperty("A", value.data(), 1), IsOk());
    EXPECT_EQ(propertiesOf(read)[0].tsStamp.value(), 170'000'000'000'000'000ULL);
}

TEST_F(CallDataReadTest, AnEmptyValueIsNullAgain)
{
    put(m_record, "A", "", at(10));
    CCallData read(serialized(m_record), true);
    unsigned char* pData = reinterpret_cast<unsigned char*>(&m_record);
    int nLength = -1;
    EXPECT_THAT(read.getProperty("A", &pData, &nLength, nullptr), IsOk());
    EXPECT_EQ(pData, nullptr);
    EXPECT_EQ(nLength, 0);
}

TEST_F(CallDataReadTest, TheReservedArgumentHasNoEffect)
{
    put(m_record, "A", "1", at(10));
    CCallData one(serialized(m_record), true);
    CCallData other(serialized(m_record), false);
    EXPECT_EQ(serialized(one), serialized(other));
}

TEST_F(CallDataReadTest, TracesOneLife)
{
    const auto vecLines = linesUnder(cInfo, [] { const CCallData read("2;C1;1;0;1;0", true); });
    EXPECT_THAT(vecLines, ::testing::ElementsAre(::testing::StartsWith("CCallData Malloc: 0x"),
                                                 ::testing::StartsWith("CCallData Free: 0x")));
}

TEST_F(CallDataReadTest, AnEmptyTextIsAnEmptyRecordWithoutCallId)
{
    EXPECT_THAT(m_record.deserialize(""), IsOk());
    EXPECT_EQ(serialized(m_record), "0;;1;0;1;0");
}

TEST_F(CallDataReadTest, MissingCountsAreZero)
{
    for (const char* const pszText :
         {"2;C1", "2;C1;1;0", "2;C1;1;0;1;0", "2;C1;1;0;2;-1", "2;C1;0;;0;", "2;C1;1;x;1;y"})
    {
        SCOPED_TRACE(pszText);
        CCallData record("");
        EXPECT_THAT(record.deserialize(pszText), IsOk());
        EXPECT_EQ(serialized(record), "2;C1;1;0;1;0");
    }
}

TEST_F(CallDataReadTest, ANegativeNumberOfPropertiesIsNone)
{
    const std::string sText = listOf({"C1", "-5", "1", "L", stampText(7), "1", blobText("L", "31", 7)});
    EXPECT_THAT(contentOfText(sText), ::testing::ElementsAre(SItem{"L", "1", at(7)}));
}

TEST_F(CallDataReadTest, ANegativeNumberOfEntriesIsNone)
{
    const std::string sText =
        listOf({"C1", "0", "2", "K", stampText(7), "-3", "L", stampText(7), "1", blobText("L", "31", 7)});
    EXPECT_THAT(contentOfText(sText), ::testing::ElementsAre(SItem{"L", "1", at(7)}));
}

TEST_F(CallDataReadTest, ReplacesPropertiesOfTheSameNameAndKeepsOthers)
{
    put(m_record, "A", "held", at(50));
    put(m_record, "B", "held", at(50));
    add(m_record, "K", "held", at(50));
    const std::string sText = listOf({"C2", "1", blobText("A", "31", 7), "0"});
    std::vector<std::string> vecLines;
    vecLines = linesUnder(cError, [&] { EXPECT_THAT(m_record.deserialize(sText), IsOk()); });
    EXPECT_THAT(contentOf(m_record),
                ::testing::ElementsAre(SItem{"A", "1", at(7)}, SItem{"B", "held", at(50)}, SItem{"K", "held", at(50)}));
    EXPECT_EQ(callIDOf(m_record), "C2");
    EXPECT_THAT(vecLines, ::testing::ElementsAre(cReplacedLine));
    EXPECT_EQ(m_record.getsize(), 9U);
}

TEST_F(CallDataReadTest, AnIterationStillSeesAValueReplacedByAText)
{
    put(m_record, "A", "held", at(50));
    put(m_record, "B", "held", at(50));
    int nIndex = 0;
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    EXPECT_THAT(m_record.deserialize(listOf({"C2", "1", blobText("B", "31", 7), "0"})), IsOk());
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    EXPECT_EQ(sName, "B");
    EXPECT_EQ(textOf(pData, nLength), "held");
}

TEST_F(CallDataReadTest, StaysAtARepeatedPropertyForAllThatAreAnnounced)
{
    // The third property is never reached; the number of logs is read from the repeated one's text: "1;A;..." gives 1.
    const std::string sRepeated = blobText("A", "32", 8);
    const std::string sText = listOf({"C1", "3", blobText("A", "31", 7), sRepeated, "LOG", stampText(9), "0"});
    std::vector<SItem> vecContent;
    std::vector<std::string> vecNames;
    const auto vecLines = linesUnder(cError, [&] {
        CCallData record(sText, true);
        vecContent = contentOf(record);
        vecNames = logNamesOf(record);
    });
    EXPECT_THAT(vecLines, ::testing::ElementsAre(cReplacedLine, cReplacedLine));
    EXPECT_THAT(vecContent, ::testing::ElementsAre(SItem{"A", "2", at(8)}));
    EXPECT_THAT(vecNames, ::testing::ElementsAre("LOG"));
}

TEST_F(CallDataReadTest, ReplacedPropertiesAreErrorsInTheLog)
{
    const std::string sText = listOf({"C1", "2", blobText("A", "31", 7), blobText("A", "32", 8)});
    const auto read = [&] { const CCallData record(sText, true); };
    EXPECT_THAT(linesUnder(~cError & ~cInfo, read), ::testing::IsEmpty());
    EXPECT_THAT(linesUnder(cError, read), ::testing::ElementsAre(cReplacedLine));
}

TEST_F(CallDataReadTest, AbsentPropertiesReadAsOneWithoutName)
{
    const std::string sText = listOf({"C1", "2", blobText("A", "31", 7)});
    EXPECT_THAT(contentOfText(sText), ::testing::ElementsAre(SItem{"", "", at(0)}, SItem{"A", "1", at(7)}));
}

TEST_F(CallDataReadTest, AbsentEntriesReadAsOneAtTheZeroStamp)
{
    const std::string sText = listOf({"C1", "0", "1", "L", stampText(7), "5", blobText("L", "31", 7)});
    EXPECT_THAT(contentOfText(sText), ::testing::ElementsAre(SItem{"L", "", at(0)}, SItem{"L", "1", at(7)}));
}

TEST_F(CallDataReadTest, AbsentLogsReadAsOneWithoutName)
{
    CCallData record(listOf({"C1", "0", "3", "L", stampText(7), "0"}), true);
    EXPECT_THAT(logNamesOf(record), ::testing::ElementsAre("", "L"));
    EXPECT_EQ(serialized(record), listOf({"C1", "0", "2", "", stampText(0), "0", "L", stampText(7), "0"}));
}

TEST_F(CallDataReadTest, KeepsTheFirstOfTwoLogsOfOneName)
{
    const std::string sText = listOf({"C1", "0", "3", "L", stampText(7), "1", blobText("L", "31", 7), "L", stampText(8),
                                      "1", blobText("L", "32", 8), "M", stampText(9), "1", blobText("M", "33", 9)});
    CCallData record(sText, true);
    EXPECT_THAT(contentOf(record), ::testing::ElementsAre(SItem{"L", "1", at(7)}, SItem{"M", "3", at(9)}));
    EXPECT_EQ(record.getsize(), 2U);
    EXPECT_EQ(serialized(record), listOf({"C1", "0", "2", "L", stampText(7), "1", blobText("L", "31", 7), "M",
                                          stampText(9), "1", blobText("M", "33", 9)}));
}

TEST_F(CallDataReadTest, KeepsALogThatTheRecordHeldBefore)
{
    add(m_record, "L", "held", at(50));
    EXPECT_THAT(m_record.deserialize(listOf({"C1", "0", "1", "L", stampText(7), "1", blobText("L", "31", 7)})), IsOk());
    EXPECT_THAT(contentOf(m_record), ::testing::ElementsAre(SItem{"L", "held", at(50)}));
    EXPECT_EQ(m_record.getsize(), 4U);
}

TEST_F(CallDataReadTest, KeepsTheFirstOfTwoEntriesWithOneStamp)
{
    const std::string sText = listOf({"C1", "0", "1", "L", stampText(7), "3", blobText("L", "31", 7),
                                      blobText("L", "3232", 7), blobText("L", "33", 8)});
    CCallData record(sText, true);
    EXPECT_THAT(contentOf(record), ::testing::ElementsAre(SItem{"L", "1", at(7)}, SItem{"L", "3", at(8)}));
    EXPECT_EQ(record.getsize(), 2U);
}

TEST_F(CallDataReadTest, PutsItemsInAnyOrderInTheirPlace)
{
    const std::string sText =
        listOf({"C1", "4", blobText("B", "31", 1), blobText("D", "32", 1), blobText("A", "33", 1),
                blobText("C", "34", 1), "2", "M", stampText(7), "4", blobText("M", "31", 20), blobText("M", "32", 40),
                blobText("M", "33", 10), blobText("M", "34", 30), "L", stampText(7), "1", blobText("L", "35", 1)});
    EXPECT_THAT(contentOfText(sText),
                ::testing::ElementsAre(SItem{"A", "3", at(1)}, SItem{"B", "1", at(1)}, SItem{"C", "4", at(1)},
                                       SItem{"D", "2", at(1)}, SItem{"L", "5", at(1)}, SItem{"M", "3", at(10)},
                                       SItem{"M", "1", at(20)}, SItem{"M", "4", at(30)}, SItem{"M", "2", at(40)}));
}

TEST_F(CallDataReadTest, FindsARepeatedPropertyAmongItemsInAnyOrder)
{
    const std::string sText = listOf(
        {"C1", "3", blobText("B", "31", 1), blobText("A", "32", 1), blobText("B", "33", 9), "LOG", stampText(9), "0"});
    std::vector<SItem> vecContent;
    const auto vecLines = linesUnder(cError, [&] { vecContent = contentOfText(sText); });
    EXPECT_THAT(vecContent, ::testing::ElementsAre(SItem{"A", "2", at(1)}, SItem{"B", "3", at(9)}));
    EXPECT_THAT(vecLines, ::testing::ElementsAre(cReplacedLine));
}

TEST_F(CallDataReadTest, FindsRepeatedEntriesAndLogsAmongItemsInAnyOrder)
{
    const std::string sText = listOf({"C1", "0", "3", "M", stampText(7), "3", blobText("M", "31", 20),
                                      blobText("M", "32", 10), blobText("M", "33", 20), "L", stampText(7), "1",
                                      blobText("L", "34", 1), "M", stampText(8), "1", blobText("M", "35", 99)});
    EXPECT_THAT(contentOfText(sText),
                ::testing::ElementsAre(SItem{"L", "4", at(1)}, SItem{"M", "2", at(10)}, SItem{"M", "1", at(20)}));
}

TEST_F(CallDataReadTest, TheLastStampComesFromTheText)
{
    const std::string sText = listOf({"C1", "0", "1", "L", stampText(4711, -2), "1", blobText("L", "31", 7)});
    CCallData record(sText, true);
    EXPECT_EQ(serialized(record), sText);
}

TEST_F(CallDataReadTest, EachPropertyTakesOneOfTheProcessesStamps)
{
    CFakeClock::setFileTime(180'000'000'000'000'000ULL);
    const CCDSTimestamp tsBefore;
    const CCallData record(listOf({"C1", "2", blobText("A", "", 1), blobText("B", "", 1), "1", "L", stampText(7), "1",
                                   blobText("L", "31", 7)}),
                           true);
    const CCDSTimestamp tsAfter;
    EXPECT_EQ(tsAfter.incrementValue(), tsBefore.incrementValue() + 4); // three blobs, and this stamp
}

TEST_F(CallDataHostileTextTest, RefusesMalformedLists)
{
    const std::string aTexts[] = {
        "x",
        "2;C1;1",
        listOf({"C1", "1", "x", "0"}),                                            // a property that is no list
        listOf({"C1", "1", listOf({"A", "31", "x"}), "0"}),                       // its stamp is none
        listOf({"C1", "0", "1", "L", "x", "0"}),                                  // the log's stamp is none
        listOf({"C1", "0", "1", "L", stampText(7), "1", "x"}),                    // an entry is none
        listOf({"C1", "0", "1", "L", stampText(7), "1", listOf({"L", "", "x"})}), // its stamp is none
        listOf({"C1", "1", blobText("A", "31", 1), "1", "L", "x", "0"}),
    };
    for (const std::string& sText : aTexts)
    {
        SCOPED_TRACE(sText);
        EXPECT_EQ(thrownBy([&] { const CCallData record(sText, true); }), cParseFailure);
        CCallData used("C0");
        put(used, "A", "held", at(1));
        EXPECT_EQ(thrownBy([&] { (void)used.deserialize(sText); }), cParseFailure);
        std::string sAfter;
        EXPECT_THAT(used.serialize(&sAfter), IsOk()); // usable, whatever it holds
        EXPECT_EQ(used.getsize(), [&] {
            unsigned long ulSize = 0;
            for (const SItem& item : contentOf(used))
                ulSize += item.sValue.size();
            return ulSize;
        }());
    }
}

// A few bytes that promise two thousand million items must not take the time of these, nor memory, nor log lines.
TEST_F(CallDataHostileTextTest, CountsBeyondTheTextEndWithIt)
{
    const std::string aTexts[] = {
        listOf({"C1", cLargest}),
        listOf({"C1", cLargest, blobText("A", "31", 1)}),
        listOf({"C1", cLargest, blobText("A", "31", 1), blobText("A", "32", 2)}),
        listOf({"C1", "0", cLargest}),
        listOf({"C1", "0", cLargest, "L", stampText(1), "0"}),
        listOf({"C1", "0", cLargest, "L", stampText(1), cLargest, blobText("L", "31", 1)}),
        listOf({"C1", "0", "1", "L", stampText(1), cLargest}),
        listOf({"C1", "0", "2", "L", stampText(1), cLargest, blobText("L", "31", 1), blobText("L", "32", 2)}),
    };
    for (const std::string& sText : aTexts)
    {
        SCOPED_TRACE(sText);
        const auto vecLines = linesUnder(cError, [&] { EXPECT_LE(contentOfText(sText).size(), 4U); });
        EXPECT_LE(vecLines.size(), 1000U);
    }
}

TEST_F(CallDataHostileTextTest, ACountBeyondTheTextHidesNothingThatIsThere)
{
    EXPECT_THAT(contentOfText(listOf({"C1", "0", cLargest, "L", stampText(1), "1", blobText("L", "31", 1), "M",
                                      stampText(2), "1", blobText("M", "32", 2)})),
                ::testing::ElementsAre(SItem{"L", "1", at(1)}, SItem{"M", "2", at(2)}));
}

TEST_F(CallDataHostileTextTest, EveryRoundAtARepeatedPropertyIsInTheLogUpToALimit)
{
    const auto linesOf = [](const char* pszCount) {
        const std::string sText = listOf({"C1", pszCount, blobText("A", "31", 1), blobText("A", "32", 2)});
        return linesUnder(cError, [&] { (void)contentOfText(sText); }).size();
    };
    EXPECT_EQ(linesOf("2"), 1U);
    EXPECT_EQ(linesOf("501"), 500U);
    EXPECT_EQ(linesOf(cLargest), 1000U);
}
