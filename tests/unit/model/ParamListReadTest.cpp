// Parameter lists: parsing a text, and what the readers make of its elements.

#include "CDSParams.h"
#include "ModelSupport.h"

#include <cstdlib>

using namespace model;

namespace {

struct CFree
{
    void operator()(unsigned char* pData) const { std::free(pData); }
};

/// A list of one element.
CParamsX listOf(const std::string& sElement)
{
    CParamsX list;
    EXPECT_THAT(list.addParam(sElement, 3.14F), IsOk());
    return list;
}

struct SDecoded
{
    std::string sBytes;
    int nSize = -1;
    bool bNull = true;
};

SDecoded decoded(const CParamsX& list, int nIndex)
{
    SDecoded result;
    const std::unique_ptr<unsigned char, CFree> pData(list.getCDSDATAParamAt(nIndex, &result.nSize));
    result.bNull = pData == nullptr;
    result.sBytes = textOf(pData.get(), result.nSize);
    return result;
}

std::vector<std::string> elementsOf(const std::string& sText)
{
    const CParamsX list(sText);
    std::vector<std::string> vecElements;
    for (int i = 0; i < list.count(); ++i)
        vecElements.push_back(list.getStringParamAt(i));
    return vecElements;
}

using CStrings = std::vector<std::string>;

class ParamListReadTest : public CModelTest
{
};

using ParamListParseTest = ParamListReadTest;

} // namespace

TEST_F(ParamListParseTest, FindsHeaderAndElements)
{
    const struct
    {
        std::string sText;
        std::string sHeader;
        CStrings vecElements;
    } aCases[] = {
        {"", "", {}},
        {"2;42;3;abc", "", {"42", "abc"}},
        {"0;;0;", "", {"", ""}},
        {"HDR;", "HDR", {}},
        {"HDR;2;42", "HDR", {"42"}},
        {";", "", {}},
        {"5;1;2;3", "", {"1;2;3"}},
        {"HDR;10;2;42;3;abc;1;T", "HDR", {"2;42;3;abc", "T"}},
    };
    for (const auto& [sText, sHeader, vecElements] : aCases)
    {
        SCOPED_TRACE(sText);
        EXPECT_EQ(CParamsX(sText).getHeader(), sHeader);
        EXPECT_EQ(elementsOf(sText), vecElements);
        EXPECT_EQ(CParamsX(sText).paramList(), sText);
    }
}

TEST_F(ParamListParseTest, TakesTheHeaderSemicolonForPartOfIt)
{
    CParamsX list(std::string("HDR;"));
    list.addParam(42L); // right behind it, without another one
    EXPECT_EQ(list.paramList(), "HDR;2;42");
}

TEST_F(ParamListParseTest, RefusesMalformedLengthPrefixes)
{
    for (const char* const pszText : {"HDR", "3", "1;a;;", "1;a;3", "HDR;3", "1;a;xyz", "-"})
    {
        SCOPED_TRACE(pszText);
        EXPECT_EQ(thrownBy([&] { const CParamsX list{std::string(pszText)}; }), cParseFailure);
    }
}

TEST_F(ParamListParseTest, TheFailureIsNotTakenForASignedNumber)
{
    bool bSigned = false;
    bool bUnsigned = false;
    try
    {
        const CParamsX list{std::string("HDR")};
    }
    catch (long)
    {
        bSigned = true;
    }
    catch (unsigned long ulCode)
    {
        bUnsigned = ulCode == 0x80004005UL;
    }
    EXPECT_FALSE(bSigned);
    EXPECT_TRUE(bUnsigned);
}

TEST_F(ParamListParseTest, TrustsTheLengths)
{
    EXPECT_EQ(elementsOf("5;ab"), CStrings{"ab"});
    EXPECT_EQ(elementsOf("3;abc;"), CStrings{"abc"});
    EXPECT_EQ(elementsOf("1;abc;x"), (CStrings{"a", ""}));
    EXPECT_EQ(elementsOf("1;aX1;b"), (CStrings{"a", "b"}));
    EXPECT_EQ(elementsOf("1;ax5;b"), (CStrings{"a", "b"}));
}

TEST_F(ParamListParseTest, TakesANegativeLengthForNone)
{
    EXPECT_EQ(elementsOf("1;a;-4;"), (CStrings{"a", ""}));
    EXPECT_EQ(elementsOf("1;a;-2147483648;;1;b"), (CStrings{"a", "", "b"}));
    EXPECT_EQ(elementsOf("1;a;-99999999999999999999;;1;b"), (CStrings{"a", "", "b"}));
}

TEST_F(ParamListParseTest, ReadsLengthsAsStrtolDoes)
{
    EXPECT_EQ(elementsOf("1;a;+2;bc;1;d"), (CStrings{"a", "bc", "d"}));
    EXPECT_EQ(elementsOf("1;a; 2;bc;1;d"), (CStrings{"a", "bc", "d"}));
    EXPECT_EQ(elementsOf("1;a;002;bc;1;d"), (CStrings{"a", "bc", "d"}));
    EXPECT_EQ(elementsOf("1;a;2x;bc;1;d"), (CStrings{"a", "bc", "d"}));
    EXPECT_EQ(elementsOf("1;a;0000000000002;bc;1;d"), (CStrings{"a", "bc", "d"}));
}

TEST_F(ParamListParseTest, EndsWithALengthBeyondTheText)
{
    for (const char* const pszText :
         {"2147483647;a", "2147483648;a", "999999999;a", "1000000000;a", "4294967297;a", "99999999999999999999999;a"})
    {
        SCOPED_TRACE(pszText);
        EXPECT_EQ(elementsOf(pszText), CStrings{"a"});
    }
}

TEST_F(ParamListParseTest, ParsesIntoAnExistingList)
{
    CParamsX list;
    list.constructor("HDR;2;42;3;abc");
    EXPECT_EQ(list.getHeader(), "HDR");
    ASSERT_EQ(list.count(), 2);
    EXPECT_EQ(list.getStringParamAt(0), "42");
    EXPECT_EQ(list.getStringParamAt(1), "abc");
}

TEST_F(ParamListParseTest, ParsingIntoAUsedListKeepsTheOldPositions)
{
    CParamsX list(std::string("1;a"));
    list.constructor("1;b;1;c");
    EXPECT_EQ(list.count(), 3);
    EXPECT_EQ(list.getStringParamAt(0), "b");
    EXPECT_EQ(list.getStringParamAt(1), "b");
    EXPECT_EQ(list.getStringParamAt(2), "c");
}

TEST_F(ParamListReadTest, AnAbsentElementIsEmpty)
{
    const CParamsX list(std::string("1;7"));
    for (const int nIndex : {1, 2, 1000000, -1, -2147483647 - 1})
    {
        SCOPED_TRACE(nIndex);
        EXPECT_EQ(list.getStringParamAt(nIndex), "");
        EXPECT_EQ(list.getViewParamAt(nIndex), "");
        EXPECT_EQ(list.getLongParamAt(nIndex), 0);
        EXPECT_EQ(list.getULONGParamAt(nIndex), 0U);
        EXPECT_FALSE(list.getBOOLParamAt(nIndex));
        EXPECT_EQ(list.getULONGLONGParamAt(nIndex), 0U);
        const SDecoded none = decoded(list, nIndex);
        EXPECT_TRUE(none.bNull);
        EXPECT_EQ(none.nSize, 0);
    }
}

TEST_F(ParamListReadTest, ReadsAnyCharactersBack)
{
    std::string sAll;
    for (int i = 0; i < 256; ++i)
        sAll += static_cast<char>(static_cast<unsigned char>(i));
    for (const std::string& sText : {std::string(), std::string("1;2;3"), std::string("2;42;3;abc;1;T"), sAll})
    {
        SCOPED_TRACE(sText);
        const CParamsX list(listOf(sText).paramList());
        EXPECT_EQ(list.getStringParamAt(0), sText);
        EXPECT_EQ(list.getViewParamAt(0), sText);
        EXPECT_EQ(list.count(), 1);
    }
}

TEST_F(ParamListReadTest, ReadsSignedNumbersAs32Bits)
{
    const std::pair<const char*, long> aCases[] = {
        {"42", 42},
        {"-7", -7},
        {"+7", 7},
        {" 7", 7},
        {"42abc", 42},
        {"abc", 0},
        {"", 0},
        {"-", 0},
        {"- 7", 0},
        {"2147483647", 2147483647},
        {"2147483648", 2147483647},
        {"-2147483648", -2147483647L - 1},
        {"-2147483649", -2147483647L - 1},
        {"4294967296", 2147483647},
        {"99999999999", 2147483647},
        {"-99999999999", -2147483647L - 1},
        {"99999999999999999999999999", 2147483647},
        {"-99999999999999999999999999", -2147483647L - 1},
    };
    for (const auto& [pszText, lExpected] : aCases)
        EXPECT_EQ(listOf(pszText).getLongParamAt(0), lExpected) << pszText;
}

TEST_F(ParamListReadTest, ReadsUnsignedNumbersFromTheirSignedForm)
{
    const std::pair<const char*, unsigned long> aCases[] = {
        {"7", 7UL},
        {"-1", 4294967295UL},
        {"-1062731775", 0xC0A80001UL},
        {"-2147483648", 2147483648UL},
        {"4294967295", 2147483647UL}, // read signed, it is too large
        {"", 0UL},
    };
    for (const auto& [pszText, ulExpected] : aCases)
        EXPECT_EQ(listOf(pszText).getULONGParamAt(0), ulExpected) << pszText;
}

TEST_F(ParamListReadTest, OnlyACapitalTIsTrue)
{
    EXPECT_TRUE(listOf("T").getBOOLParamAt(0));
    for (const char* const pszText : {"t", "TRUE", "1", "", "F", "T ", " T", "TT"})
        EXPECT_FALSE(listOf(pszText).getBOOLParamAt(0)) << pszText;
}

TEST_F(ParamListReadTest, Reads64BitNumbers)
{
    EXPECT_EQ(listOf("18446744073709551615").getULONGLONGParamAt(0), 18446744073709551615ULL);
    EXPECT_EQ(listOf("9223372036854775808").getULONGLONGParamAt(0), 9223372036854775808ULL);
    EXPECT_EQ(listOf("18446744073709551616").getULONGLONGParamAt(0), 18446744073709551615ULL);
    EXPECT_EQ(listOf("").getULONGLONGParamAt(0), 0U);
    EXPECT_EQ(listOf("abc").getULONGLONGParamAt(0), 0U);
    EXPECT_EQ(listOf("12abc").getULONGLONGParamAt(0), 12U);
    EXPECT_EQ(listOf(std::string(100, '0') + "12").getULONGLONGParamAt(0), 12U);
}

TEST_F(ParamListReadTest, NumbersEndWithTheirElement)
{
    const CParamsX list(std::string("2;42;1;7"));
    EXPECT_EQ(list.getLongParamAt(0), 42);
    EXPECT_EQ(list.getULONGLONGParamAt(0), 42U);
    const CParamsX tight(std::string("1;4275;abc")); // the length says one digit
    EXPECT_EQ(tight.getLongParamAt(0), 4);
    EXPECT_EQ(tight.getULONGLONGParamAt(0), 4U);
}

TEST_F(ParamListReadTest, DecodesBytes)
{
    const std::pair<const char*, std::string> aCases[] = {
        {"01AB", bytes({0x01, 0xAB})},
        {"01ab", bytes({0x01, 0xAB})},
        {"fF09", bytes({0xFF, 0x09})},
        {"01A", bytes({0x01})}, // half a byte is none
        {"0123456789abcdefABCDEF", bytes({0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF})},
    };
    for (const auto& [pszText, sExpected] : aCases)
    {
        SCOPED_TRACE(pszText);
        const SDecoded result = decoded(listOf(pszText), 0);
        EXPECT_EQ(result.sBytes, sExpected);
        EXPECT_EQ(result.nSize, static_cast<int>(sExpected.size()));
    }
}

TEST_F(ParamListReadTest, DecodesWhatIsNotHexadecimalAsFarAsItIs)
{
    EXPECT_EQ(decoded(listOf("4G41"), 0).sBytes, bytes({0x04, 0x41}));
    EXPECT_EQ(decoded(listOf("G441"), 0).sBytes, bytes({0x00, 0x41}));
    EXPECT_EQ(decoded(listOf("zz@`/:"), 0).sBytes, bytes({0x00, 0x00, 0x00}));
    EXPECT_EQ(decoded(listOf(bytes({0xC1, 0x31, 0x34, 0x31})), 0).sBytes, bytes({0x00, 0x41}));
}

TEST_F(ParamListReadTest, DecodesAnEmptyElementAsNoBytes)
{
    for (const char* const pszText : {"", "A"})
    {
        const SDecoded result = decoded(listOf(pszText), 0);
        EXPECT_EQ(result.nSize, 0) << pszText;
        EXPECT_EQ(result.sBytes, "");
    }
}

// Decoding that looks at the rest of the text for every byte takes minutes here, and the time limit ends it.
TEST_F(ParamListReadTest, DecodesTheLargestBlobs)
{
    const CValue blob(std::string(499997, '\x5A'));
    CParamsX list;
    for (int i = 0; i < 4; ++i)
        list.addParam(blob.data(), blob.length());
    const CParamsX read(list.paramListRef());
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(decoded(read, i).sBytes, std::string(499997, '\x5A'));
}

TEST_F(ParamListReadTest, ReadsAResult)
{
    const std::pair<const char*, unsigned long> aCases[] = {
        {"0x00000000", 0},
        {"0x00000001", 1},
        {"0xC1170A2E", 0xC1170A2EUL},
        {"0xc1170a2e", 0xC1170A2EUL},
        {"0x7FFFFFFF", 0x7FFFFFFFUL},
        {"0xFFFFFFFF", 0xFFFFFFFFUL},
        {"0x8000400", 0x80004005UL},   // 9 characters
        {"0x000000001", 0x80004005UL}, // 11 characters
        {"", 0x80004005UL},
        {"ABCDEFGHIJ", 0}, // 10 characters that are no code mean success
        {"0x12zzzzzz", 0x12},
        {"0x       1", 1}, // blanks and signs as sscanf takes them
        {"0x-0000001", 0xFFFFFFFFUL},
        {"0x+0000001", 1},
    };
    for (const auto& [pszText, ulExpected] : aCases)
        EXPECT_EQ(hexOf(listOf(pszText).getHRESULT()), hexOf(cdsResult(ulExpected))) << pszText;
}

TEST_F(ParamListReadTest, AFailureReadFromAListIsNegative)
{
    EXPECT_THAT(listOf("0xC1170A2E").getHRESULT(), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(ParamListReadTest, AnEmptyListHasAFailureForItsResult)
{
    EXPECT_THAT(CParamsX().getHRESULT(), FailsWith(E_FAIL));
    EXPECT_THAT(CParamsX(std::string("HDR;")).getHRESULT(), FailsWith(E_FAIL));
}

TEST_F(ParamListReadTest, ReadsTheResultBehindAHeader)
{
    EXPECT_EQ(CParamsX(std::string("HDR;10;0x00000001;3;abc")).getHRESULT(), 1);
}

TEST_F(ParamListReadTest, MeasuresTheElementAtAPosition)
{
    const struct
    {
        const char* pszText;
        long lPos;
        long lLength;
        long lPrefixLength;
    } aCases[] = {
        {"12;abcdefghijkl", 0, 12, 3},
        {"1;a;0;", 4, 0, 2},
        {"HDR;2;42", 4, 2, 2},
        {"0;;x5;", 3, 0, 3},
        {"0;;-4;", 3, 0, 3},
        {"0;;007;abc", 3, 7, 4},
        {"0;;+5;abc", 3, 5, 3},
        {"0;; 5;abc", 3, 5, 3},
        {"0;;4294967306;", 3, 2147483647, 11},
        {"2147483647;", 0, 2147483647, 11},
    };
    for (const auto& [pszText, lPos, lLength, lPrefixLength] : aCases)
    {
        SCOPED_TRACE(pszText);
        const CParamsX list{std::string(pszText)};
        long lPrefix = 0;
        EXPECT_EQ(list.getLength(lPos, &lPrefix), lLength);
        EXPECT_EQ(lPrefix, lPrefixLength);
    }
}

TEST_F(ParamListReadTest, RefusesToMeasureWithoutASemicolonBehindThePosition)
{
    const CParamsX list(std::string("2;42;3;abc"));
    long lPrefixLength = 0;
    EXPECT_EQ(thrownBy([&] { (void)list.getLength(7, &lPrefixLength); }), cParseFailure);  // "abc"
    EXPECT_EQ(thrownBy([&] { (void)list.getLength(10, &lPrefixLength); }), cParseFailure); // the end
    EXPECT_EQ(thrownBy([&] { (void)list.getLength(11, &lPrefixLength); }), cParseFailure); // beyond
    EXPECT_EQ(thrownBy([&] { (void)list.getLength(-1, &lPrefixLength); }), cParseFailure);
}

TEST_F(ParamListReadTest, RefusesToMeasureAtASemicolon)
{
    const CParamsX list(std::string("2;42;3;abc"));
    long lPrefixLength = 0;
    EXPECT_EQ(thrownBy([&] { (void)list.getLength(4, &lPrefixLength); }), cParseFailure);
}
