// Parameter lists: what the writers put into the text.

#include "CDSParams.h"
#include "ModelSupport.h"

#include <cstdlib>
#include <type_traits>

using namespace model;

static_assert(!std::is_polymorphic_v<CParamsX>, "a plain value: lists are made by the thousand");

namespace {

constexpr char cAddingLine[] = "CParamsX::addParam(const string& sParam, float dummy)";

unsigned char* const& noBytes()
{
    static unsigned char* const pNull = nullptr;
    return pNull;
}

std::string withText(const std::string& sText)
{
    CParamsX list;
    EXPECT_THAT(list.addParam(sText, 3.14F), IsOk());
    return list.paramList();
}

template <class TValue> std::string withValue(TValue value)
{
    CParamsX list;
    list.addParam(value);
    return list.paramList();
}

std::string withBytes(const std::string& sBytes)
{
    const CValue value(sBytes);
    CParamsX list;
    list.addParam(value.data(), value.length());
    return list.paramList();
}

std::string withResult(unsigned long ulCode)
{
    CParamsX list;
    list.addResult(cdsResult(ulCode));
    return list.paramList();
}

/// One value of every kind.
void addOneOfEach(CParamsX& list)
{
    const CValue blob(bytes({0x01, 0xAB}));
    list.addParam(42L);
    (void)list.addParam("abc", 3.14F); // short
    list.addParam(1);
    list.addParam(0xC0A80001UL);
    list.addResult(E_FAIL);
    list.addParam(blob.data(), blob.length());
}

class ParamListWriteTest : public CModelTest
{
};

using ParamListLimitTest = ParamListWriteTest;
using ParamListTraceTest = ParamListWriteTest;

} // namespace

TEST_F(ParamListWriteTest, StartsEmpty)
{
    const CParamsX list;
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.length(), 0);
    EXPECT_EQ(list.paramList(), "");
    EXPECT_EQ(list.getHeader(), "");
}

TEST_F(ParamListWriteTest, ReservingRoomChangesNothingElse)
{
    for (const long lReserve : {1000L, 1L, 0L, -1L, -2147483647L - 1})
    {
        SCOPED_TRACE(lReserve);
        CParamsX list(lReserve);
        EXPECT_EQ(list.count(), 0);
        EXPECT_EQ(list.length(), 0);
        EXPECT_EQ(list.paramList(), "");
        EXPECT_EQ(list.getHeader(), "");
        list.addParam(42L);
        EXPECT_EQ(list.paramList(), "2;42");
    }
}

TEST_F(ParamListWriteTest, JoinsElementsOfEveryKind)
{
    CParamsX list;
    addOneOfEach(list);
    EXPECT_EQ(list.paramList(), "2;42;3;abc;1;T;11;-1062731775;10;0x80004005;4;01AB");
    EXPECT_EQ(list.length(), 50);
    EXPECT_EQ(list.count(), 6);
    EXPECT_EQ(list.getHeader(), "");
}

TEST_F(ParamListWriteTest, RecordsWhereEachElementBegins)
{
    CParamsX list;
    addOneOfEach(list);
    const char* const apszElements[] = {"42", "abc", "T", "-1062731775", "0x80004005", "01AB"};
    const long alStarts[] = {0, 5, 11, 15, 30, 44};
    for (int i = 0; i < 6; ++i)
    {
        SCOPED_TRACE(i);
        const std::string sElement = apszElements[i];
        EXPECT_EQ(list.getStringParamAt(i), sElement);
        long lPrefixLength = 0;
        EXPECT_EQ(list.getLength(alStarts[i], &lPrefixLength), static_cast<long>(sElement.size()));
        EXPECT_EQ(list.paramList().substr(static_cast<std::size_t>(alStarts[i] + lPrefixLength), sElement.size()),
                  sElement);
    }
}

TEST_F(ParamListWriteTest, WritesTexts)
{
    const std::string sEightBit = bytes({0x00, 0x80, 0xFF, 0x3B, 0x7F});
    const std::pair<std::string, std::string> aCases[] = {
        {"", "0;"},
        {"abc", "3;abc"},
        {"NETREQ_CLIENT_CCALLBACKMSG", "26;NETREQ_CLIENT_CCALLBACKMSG"},
        {"1;2;3", "5;1;2;3"},
        {"2;42;3;abc", "10;2;42;3;abc"},
        {sEightBit, "5;" + sEightBit},
    };
    for (const auto& [sText, sExpected] : aCases)
    {
        SCOPED_TRACE(sText);
        EXPECT_EQ(withText(sText), sExpected);
    }
}

TEST_F(ParamListWriteTest, WritesTwoEmptyTextsOneBehindTheOther)
{
    CParamsX list;
    (void)list.addParam("", 3.14F);
    (void)list.addParam("", 3.14F);
    EXPECT_EQ(list.paramList(), "0;;0;");
    EXPECT_EQ(list.count(), 2);
}

TEST_F(ParamListWriteTest, NeverReadsTheNumberBesideAText)
{
    for (const float fDummy : {0.0F, 3.14F, -1.0F})
    {
        CParamsX list;
        EXPECT_THAT(list.addParam("abc", fDummy), IsOk());
        EXPECT_EQ(list.paramList(), "3;abc");
    }
}

TEST_F(ParamListWriteTest, WritesSignedNumbersInDecimal)
{
    EXPECT_EQ(withValue(0L), "1;0");
    EXPECT_EQ(withValue(42L), "2;42");
    EXPECT_EQ(withValue(-5L), "2;-5");
    EXPECT_EQ(withValue(2147483647L), "10;2147483647");
    EXPECT_EQ(withValue(-2147483647L - 1), "11;-2147483648");
}

TEST_F(ParamListWriteTest, CutsWideNumbersToTheirLow32Bits)
{
    EXPECT_EQ(withValue(static_cast<long>(0xFFFFFFFFULL)), "2;-1");
    EXPECT_EQ(withValue(static_cast<long>(0x100000007ULL)), "1;7");
    EXPECT_EQ(withValue(static_cast<unsigned long>(0x1C0A80001ULL)), "11;-1062731775");
}

TEST_F(ParamListWriteTest, WritesUnsignedNumbersAsTheSignedOnesOfTheSameBits)
{
    EXPECT_EQ(withValue(7UL), "1;7");
    EXPECT_EQ(withValue(2147483647UL), "10;2147483647");
    EXPECT_EQ(withValue(2147483648UL), "11;-2147483648");
    EXPECT_EQ(withValue(0xC0A80001UL), "11;-1062731775");
    EXPECT_EQ(withValue(4294967295UL), "2;-1");
}

TEST_F(ParamListWriteTest, WritesTruthValuesAsLetters)
{
    EXPECT_EQ(withValue(0), "1;F");
    EXPECT_EQ(withValue(1), "1;T");
    EXPECT_EQ(withValue(-7), "1;T");
    EXPECT_EQ(withValue(256), "1;T");
}

TEST_F(ParamListWriteTest, Writes64BitNumbersUnsigned)
{
    EXPECT_EQ(withValue(0ULL), "1;0");
    EXPECT_EQ(withValue(9223372036854775808ULL), "19;9223372036854775808");
    EXPECT_EQ(withValue(18446744073709551615ULL), "20;18446744073709551615");
}

TEST_F(ParamListWriteTest, WritesBytesAsUpperCaseHexadecimalPairs)
{
    EXPECT_EQ(withBytes(bytes({0x00, 0x0F, 0xFF})), "6;000FFF");
    std::string sAll;
    std::string sDigits;
    for (int i = 0; i < 256; ++i)
    {
        char szDigits[3];
        (void)std::snprintf(szDigits, sizeof szDigits, "%02X", static_cast<unsigned int>(i));
        sAll += static_cast<char>(static_cast<unsigned char>(i));
        sDigits += szDigits;
    }
    EXPECT_EQ(withBytes(sAll), "512;" + sDigits);
}

TEST_F(ParamListWriteTest, WritesNoBytesAsAnEmptyElement)
{
    const CValue value("abc");
    for (const int nSize : {0, -1, -2147483647 - 1})
    {
        CParamsX list;
        list.addParam(value.data(), nSize);
        EXPECT_EQ(list.paramList(), "0;") << nSize;
    }
}

TEST_F(ParamListWriteTest, WritesNullBytesAsAnEmptyElementWhateverTheirNumber)
{
    CParamsX list;
    list.addParam(noBytes(), 5);
    EXPECT_EQ(list.paramList(), "0;");
}

TEST_F(ParamListWriteTest, WritesResultsWithEightUpperCaseDigits)
{
    EXPECT_EQ(withResult(0), "10;0x00000000");
    EXPECT_EQ(withResult(1), "10;0x00000001");
    EXPECT_EQ(withResult(0xC1170A2EUL), "10;0xC1170A2E");
    EXPECT_EQ(withResult(0x80004005UL), "10;0x80004005");
}

TEST_F(ParamListWriteTest, WritesAResultByIts32BitsWhateverTheSignOfItsLong)
{
    CParamsX list;
    list.addResult(static_cast<long>(0x80004005UL)); // positive where long is wider than 32 bits
    list.addResult(static_cast<long>(static_cast<std::int32_t>(0x80004005UL)));
    EXPECT_EQ(list.paramList(), "10;0x80004005;10;0x80004005");
}

TEST_F(ParamListWriteTest, PutsAHeaderInFront)
{
    CParamsX list;
    list.addHeader("HDR");
    EXPECT_EQ(list.paramList(), "HDR;");
    EXPECT_EQ(list.getHeader(), "HDR");
    EXPECT_EQ(list.count(), 0);
}

TEST_F(ParamListWriteTest, PutsNoSemicolonBetweenHeaderAndFirstElement)
{
    CParamsX list;
    list.addHeader("HDR");
    list.addParam(42L);
    (void)list.addParam("", 3.14F);
    EXPECT_EQ(list.paramList(), "HDR;2;42;0;");
    EXPECT_EQ(list.getHeader(), "HDR");
    EXPECT_EQ(list.getStringParamAt(0), "42");
    EXPECT_EQ(list.getStringParamAt(1), "");
    long lPrefixLength = 0;
    EXPECT_EQ(list.getLength(4, &lPrefixLength), 2);
    EXPECT_EQ(list.getLength(9, &lPrefixLength), 0);
    EXPECT_EQ(list.count(), 2);
}

TEST_F(ParamListWriteTest, IgnoresAnEmptyHeader)
{
    CParamsX list;
    list.addParam(42L);
    list.addHeader("");
    EXPECT_EQ(list.paramList(), "2;42");
    EXPECT_EQ(list.getHeader(), "");
}

TEST_F(ParamListWriteTest, AHeaderReplacesTheTextThatWasThere)
{
    CParamsX list;
    list.addHeader("FIRST");
    list.addHeader("SECOND");
    EXPECT_EQ(list.paramList(), "SECOND;");
    EXPECT_EQ(list.getHeader(), "SECOND");
    EXPECT_EQ(list.count(), 0);
}

TEST_F(ParamListWriteTest, ReadersSurviveAHeaderPutBeforeExistingElements)
{
    CParamsX list;
    list.addParam(42L);
    list.addParam(43L);
    list.addHeader("H");
    EXPECT_EQ(list.count(), 2); // the positions stay
    EXPECT_EQ(thrownBy([&] { (void)list.getStringParamAt(1); }), cParseFailure);
}

TEST_F(ParamListWriteTest, ClearsForAnotherUse)
{
    CParamsX list;
    list.addHeader("HDR");
    list.addParam(42L);
    list.clear();
    EXPECT_EQ(list.count(), 0);
    EXPECT_EQ(list.length(), 0);
    EXPECT_EQ(list.getHeader(), "");
    list.addParam(7L);
    EXPECT_EQ(list.paramList(), "1;7");
    EXPECT_EQ(list.getLongParamAt(0), 7);
}

TEST_F(ParamListWriteTest, AppendsASequence)
{
    CParamsX list;
    list.addParam(42L);
    list.append("3;abc;1;T");
    EXPECT_EQ(list.paramList(), "2;42;3;abc;1;T");
    EXPECT_EQ(list.count(), 3);
    EXPECT_EQ(list.getStringParamAt(0), "42");
    EXPECT_EQ(list.getStringParamAt(1), "abc");
    EXPECT_EQ(list.getStringParamAt(2), "T");
}

TEST_F(ParamListWriteTest, AppendsToAnEmptyListWithoutSemicolon)
{
    CParamsX list;
    list.append("3;abc");
    EXPECT_EQ(list.paramList(), "3;abc");
    EXPECT_EQ(list.count(), 1);
}

TEST_F(ParamListWriteTest, AppendsBehindAHeaderWithoutSemicolon)
{
    CParamsX list;
    list.addHeader("HDR");
    list.append("3;abc");
    EXPECT_EQ(list.paramList(), "HDR;3;abc");
    EXPECT_EQ(list.getStringParamAt(0), "abc");
}

TEST_F(ParamListWriteTest, AppendsAnotherListElementByElement)
{
    CParamsX other;
    addOneOfEach(other);
    CParamsX list;
    (void)list.addParam("first", 3.14F);
    list.append(other.paramList());
    ASSERT_EQ(list.count(), 7);
    EXPECT_EQ(list.getStringParamAt(0), "first");
    for (int i = 0; i < other.count(); ++i)
        EXPECT_EQ(list.getStringParamAt(i + 1), other.getStringParamAt(i)) << i;
}

TEST_F(ParamListWriteTest, TakesItsOwnTextAsItWasBefore)
{
    CParamsX list(std::string("2;42;3;abc"));
    EXPECT_THAT(list.addParam(list.paramListRef(), 3.14F), IsOk());
    EXPECT_EQ(list.paramList(), "2;42;3;abc;10;2;42;3;abc");
    CParamsX doubled(std::string("2;42;3;abc"));
    doubled.append(doubled.paramListRef());
    EXPECT_EQ(doubled.paramList(), "2;42;3;abc;2;42;3;abc");
    EXPECT_EQ(doubled.count(), 4);
}

TEST_F(ParamListWriteTest, RefusesToAppendAMalformedSequence)
{
    CParamsX list;
    EXPECT_EQ(thrownBy([&] { list.append("x"); }), cParseFailure);
}

TEST_F(ParamListWriteTest, AppendingNothingLeavesALoneSemicolon)
{
    CParamsX list;
    list.addParam(42L);
    list.append("");
    EXPECT_EQ(list.paramList(), "2;42;");
    EXPECT_EQ(list.count(), 1);
}

TEST_F(ParamListWriteTest, AppendingNothingToAnEmptyListChangesNothing)
{
    CParamsX list;
    list.append("");
    EXPECT_EQ(list.paramList(), "");
    EXPECT_EQ(list.count(), 0);
}

TEST_F(ParamListWriteTest, ShowsItsTextByReferenceToo)
{
    CParamsX list;
    list.addParam(42L);
    EXPECT_EQ(list.paramListRef(), list.paramList());
    EXPECT_EQ(&list.paramListRef(), &list.paramListRef());
}

TEST_F(ParamListWriteTest, ACopyOutlivesItsSource)
{
    auto pSource = std::make_unique<CParamsX>();
    pSource->addParam(42L);
    (void)pSource->getStringParamAt(0);
    const CParamsX copy(*pSource);
    CParamsX assigned;
    assigned = *pSource;
    pSource->clear();
    pSource->addParam(4711L);
    EXPECT_EQ(copy.getLongParamAt(0), 42);
    pSource.reset();
    EXPECT_EQ(copy.getLongParamAt(0), 42);
    EXPECT_EQ(assigned.getLongParamAt(0), 42);
}

TEST_F(ParamListLimitTest, TakesTheLongestElement)
{
    const std::string sLongest(999995, 'x');
    CParamsX list;
    EXPECT_THAT(list.addParam(sLongest, 3.14F), IsOk());
    EXPECT_EQ(list.paramListRef().substr(0, 8), "999995;x");
    EXPECT_EQ(list.length(), 999995 + 7);
    EXPECT_EQ(list.getStringParamAt(0), sLongest);
}

TEST_F(ParamListLimitTest, RefusesALongerElementAndStaysAsItWas)
{
    CParamsX list;
    list.addParam(42L);
    EXPECT_THAT(list.addParam(std::string(999996, 'x'), 3.14F), FailsWith(E_FAIL));
    EXPECT_EQ(list.paramList(), "2;42");
    EXPECT_EQ(list.count(), 1);
    list.addParam(43L);
    EXPECT_EQ(list.paramList(), "2;42;2;43");
}

TEST_F(ParamListLimitTest, ARefusedElementIsAnErrorInTheLog)
{
    CParamsX list;
    const auto vecLines = linesUnder(cError, [&] { (void)list.addParam(std::string(999996, 'x'), 3.14F); });
    EXPECT_THAT(vecLines, ::testing::ElementsAre(
                              "ERROR :CParamsX::addParam :parm size 999996 larger than max permitted size 999995"));
    EXPECT_THAT(linesUnder(~cError & ~cDetail, [&] { (void)list.addParam(std::string(999996, 'x'), 3.14F); }),
                ::testing::IsEmpty());
}

TEST_F(ParamListLimitTest, TakesTheLargestBlob)
{
    const CValue blob(std::string(499997, '\xAB'));
    CParamsX list;
    list.addParam(blob.data(), blob.length());
    ASSERT_EQ(list.count(), 1);
    EXPECT_EQ(list.getViewParamAt(0).size(), 999994U);
}

TEST_F(ParamListLimitTest, RefusesALargerBlob)
{
    const CValue blob(std::string(499998, '\xAB'));
    CParamsX list;
    list.addParam(42L);
    const auto vecLines = linesUnder(cError, [&] { list.addParam(blob.data(), blob.length()); });
    EXPECT_EQ(list.paramList(), "2;42");
    EXPECT_EQ(list.count(), 1);
    EXPECT_THAT(vecLines, ::testing::ElementsAre(
                              "ERROR :CParamsX::addParam :parm size 999996 larger than max permitted size 999995"));
    EXPECT_THAT(linesUnder(~cError & ~cDetail, [&] { list.addParam(blob.data(), blob.length()); }),
                ::testing::IsEmpty());
}

TEST_F(ParamListLimitTest, RefusesTheLargestSizesWithoutReading)
{
    const std::pair<int, const char*> aCases[] = {
        {0x3FFFFFFF, "2147483646"}, {0x40000000, "-2147483648"}, {0x40000001, "-2147483646"}, {2147483647, "-2"}};
    for (const auto& [nSize, pszShown] : aCases)
    {
        const CValue fewBytes("abc");
        CParamsX list;
        list.addParam(42L);
        const auto vecLines = linesUnder(cError, [&, &nTold = nSize] { list.addParam(fewBytes.data(), nTold); });
        EXPECT_EQ(list.paramList(), "2;42");
        EXPECT_THAT(vecLines, ::testing::ElementsAre("ERROR :CParamsX::addParam :parm size " + std::string(pszShown) +
                                                     " larger than max permitted size 999995"));
    }
}

TEST_F(ParamListTraceTest, EveryElementWritesOneDetailLine)
{
    CParamsX list;
    const auto vecLines = linesUnder(cDetail, [&] {
        addOneOfEach(list);
        list.addParam(7ULL);
        list.addParam(noBytes(), 0);
    });
    EXPECT_EQ(vecLines, std::vector<std::string>(8, cAddingLine));
}

TEST_F(ParamListTraceTest, ARefusedElementWritesItsDetailLineBeforeTheError)
{
    const CValue blob(std::string(499998, 'x'));
    for (const bool bBlob : {false, true})
    {
        SCOPED_TRACE(bBlob);
        CParamsX list;
        const auto vecLines = linesUnder(cAllLevels, [&] {
            if (bBlob)
                list.addParam(blob.data(), blob.length());
            else
                (void)list.addParam(std::string(999996, 'x'), 3.14F);
        });
        EXPECT_THAT(vecLines, ::testing::ElementsAre(cAddingLine, ::testing::StartsWith("ERROR :CParamsX::addParam")));
    }
}

TEST_F(ParamListTraceTest, AppendingParsingAndReadingWriteNothing)
{
    const auto vecLines = linesUnder(0xFFFFFFFFU, [] {
        CParamsX list(std::string("HDR;2;42;1;T"));
        list.append("3;abc;10;0x00000000");
        for (int i = -1; i <= list.count(); ++i)
        {
            int nSize = 0;
            (void)list.getStringParamAt(i);
            (void)list.getLongParamAt(i);
            (void)list.getBOOLParamAt(i);
            std::free(list.getCDSDATAParamAt(i, &nSize));
        }
        list.addHeader("OTHER");
        (void)list.getHRESULT("10;0x00000000");
    });
    EXPECT_THAT(vecLines, ::testing::IsEmpty());
}

TEST_F(ParamListTraceTest, DumpWritesOneErrorLinePerElement)
{
    CParamsX list(std::string("HDR;2;42;0;;3;abc"));
    EXPECT_THAT(linesUnder(cError, [&] { list.dump(); }),
                ::testing::ElementsAre("CParamsX::dump(), param=42",
                                       "CParamsX::dump(), param=", "CParamsX::dump(), param=abc"));
    EXPECT_THAT(linesUnder(~cError, [&] { list.dump(); }), ::testing::IsEmpty());
}

TEST_F(ParamListTraceTest, DumpOfAnEmptyListWritesNothing)
{
    const CParamsX list;
    EXPECT_THAT(linesUnder(0xFFFFFFFFU, [&] { list.dump(); }), ::testing::IsEmpty());
}
