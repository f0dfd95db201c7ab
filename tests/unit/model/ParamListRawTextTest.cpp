// Parameter lists: the operations on a raw text, as it comes from a peer.

#include "CDSParams.h"
#include "ModelSupport.h"

using namespace model;

namespace {

/// What Verify says; the error position is -1 when it was left untouched.
struct SVerdict
{
    bool bValid = false;
    int nErrorPos = -1;

    bool operator==(const SVerdict& other) const { return bValid == other.bValid && nErrorPos == other.nErrorPos; }
};

void PrintTo(const SVerdict& verdict, std::ostream* pOut)
{
    *pOut << (verdict.bValid ? "valid" : "refused at ") << verdict.nErrorPos;
}

SVerdict verified(const std::string& sText, int nReceived)
{
    SVerdict verdict;
    verdict.bValid = CParamsX::Verify(sText, nReceived, &verdict.nErrorPos);
    return verdict;
}

/// With the number of bytes that goes with the text.
SVerdict verified(const std::string& sText)
{
    return verified(sText, static_cast<int>(sText.size()) + 1);
}

constexpr SVerdict cValid{true, -1};

class ParamListRawTextTest : public CModelTest
{
};

} // namespace

TEST_F(ParamListRawTextTest, ReadsAResultWithoutBuildingAList)
{
    const std::pair<const char*, unsigned long> aCases[] = {
        {"", 0x80004005UL},
        {"10;0x00000000", 0},
        {"10;0xC1170A2E;3;abc", 0xC1170A2EUL},
        {"HDR;10;0x00000001", 1},
        {"HDR", 0x80004005UL},
        {"HDR;", 0x80004005UL},
        {";", 0x80004005UL},
        {"9;0x8000400", 0x80004005UL},
        {"11;0x000000001", 0x80004005UL},
        {"10", 0}, // no value at all
        {"10;", 0},
        {"10;ABCDEFGHIJ", 0},
        {"10;0x00000001FFFF", 1},                // ten characters and no more
        {"10;0x1", 1},                           // or as many as there are
        {"4294967306;0x00000001", 0x80004005UL}, // 10 in its low 32 bits only
        {"-4294967286;0x00000001", 0x80004005UL},
        {"HDR;4294967306;0x00000001", 0x80004005UL},
        {"0010;0x00000001", 1},
        {"10;0x       1", 1}, // blanks and signs as sscanf takes them
        {"10;0x-0000001", 0xFFFFFFFFUL},
        {"10;0x+0000001", 1},
    };
    for (const auto& [pszText, ulExpected] : aCases)
        EXPECT_EQ(hexOf(CParamsX::getHRESULT(pszText)), hexOf(cdsResult(ulExpected))) << pszText;
}

TEST_F(ParamListRawTextTest, AFailureReadFromATextIsNegative)
{
    EXPECT_THAT(CParamsX::getHRESULT("10;0xC1170A2E"), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(ParamListRawTextTest, ReadingAResultLeavesTheTextAlone)
{
    const std::string sText = "HDR;10;0xC1170A2E;3;abc";
    const std::string sGiven = sText;
    (void)CParamsX::getHRESULT(sGiven);
    EXPECT_EQ(sGiven, sText);
}

TEST_F(ParamListRawTextTest, AcceptsWellFormedTexts)
{
    for (const char* const pszText : {"", "2;42", "0;", "0;;0;", "2;42;3;abc", "3;abc;", "5;ab", "5;1;2;3",
                                      "26;NETREQ_CLIENT_CCALLBACKMSG;3;abc", "007;abcdefg", "2147483635;a"})
        EXPECT_EQ(verified(pszText), cValid) << pszText;
}

TEST_F(ParamListRawTextTest, TheNumberOfBytesCountsOneTerminator)
{
    EXPECT_EQ(verified("2;42", 5), cValid);
    EXPECT_EQ(verified("2;42", 4), (SVerdict{false, 0}));
    EXPECT_EQ(verified("2;42", 6), (SVerdict{false, 0}));
    EXPECT_EQ(verified("", 1), cValid);
    EXPECT_EQ(verified("", 0), (SVerdict{false, 0}));
    EXPECT_EQ(verified("2;42", -5), (SVerdict{false, 0}));
    EXPECT_EQ(verified("", -2147483647 - 1), (SVerdict{false, 0}));
}

TEST_F(ParamListRawTextTest, SaysWhereATextGoesWrong)
{
    const std::pair<const char*, int> aCases[] = {
        {"HDR;2;42", 0},     // a header is not allowed here
        {"x", 0},            // no number
        {"2;42;x;1", 5},     // no number
        {"2;42;3", 5},       // no semicolon
        {"2;42;;", 5},       // no number before the semicolon
        {"2;42;-1;a", 5},    // no digit
        {"2;42; 1;a", 5},    // no digit
        {"2;42;+1;a", 5},    // no digit
        {"1;abc;x", 4},      // inside the text whose length is too short
        {"2147483647;a", 0}, // the next position is no 32-bit number
        {"99999999999;a", 0},
        {"1;a;2147483647;a", 4},
        {"1;a;2147483632;a", 4},
    };
    for (const auto& [pszText, nErrorPos] : aCases)
        EXPECT_EQ(verified(pszText), (SVerdict{false, nErrorPos})) << pszText;
}

TEST_F(ParamListRawTextTest, AcceptsALengthUpToTheLargestPosition)
{
    // 0 + 11 characters of prefix + length + 1 is the largest 32-bit number.
    EXPECT_EQ(verified("2147483635;a"), cValid);
    EXPECT_EQ(verified("2147483636;a"), (SVerdict{false, 0}));
}

TEST_F(ParamListRawTextTest, AcceptsEveryTextThatAListWithoutHeaderHas)
{
    CParamsX list;
    for (int i = 0; i < 50; ++i)
    {
        EXPECT_EQ(verified(list.paramListRef()), cValid) << i;
        (void)list.addParam(std::string(static_cast<std::size_t>(i), ';'), 3.14F);
        list.addParam(-i * 1000L);
    }
}

TEST_F(ParamListRawTextTest, MeasuresTheElementAtAPosition)
{
    long lPrefixLength = 0;
    EXPECT_EQ(CParamsX::getSafeLength("12;ab", 0, &lPrefixLength), 12);
    EXPECT_EQ(lPrefixLength, 3);
    EXPECT_EQ(CParamsX::getSafeLength("1;a;0;", 4, &lPrefixLength), 0);
    EXPECT_EQ(lPrefixLength, 2);
    EXPECT_EQ(CParamsX::getSafeLength("4294967306;ab", 0, &lPrefixLength), 2147483647);
    EXPECT_EQ(lPrefixLength, 11);
}

TEST_F(ParamListRawTextTest, MeasuresNothingButDigitsAndASemicolon)
{
    for (const char* const pszText : {"-1;a", " 1;a", "+1;a", "x;a", ";a", "12", "", "/1;a", ":1;a", "\xB1;a"})
    {
        SCOPED_TRACE(pszText);
        long lPrefixLength = 0;
        long lLength = 0;
        EXPECT_EQ(thrownBy([&] { lLength = CParamsX::getSafeLength(pszText, 0, &lPrefixLength); }), 0U);
        EXPECT_EQ(lLength, -1);
    }
}

TEST_F(ParamListRawTextTest, MeasuresNothingAtANegativePosition)
{
    long lPrefixLength = 0;
    EXPECT_EQ(CParamsX::getSafeLength("12;ab", -1, &lPrefixLength), -1);
}
