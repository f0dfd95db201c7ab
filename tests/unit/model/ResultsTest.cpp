// The result codes, as they travel between servers and stand in trace logs.

#include "ModelSupport.h"

using namespace model;

namespace {

struct SCode
{
    const char* pszName;
    long lCode;
    std::uint32_t dwBits;
    std::int32_t lSigned;
};

void PrintTo(const SCode& code, std::ostream* pOut)
{
    *pOut << code.pszName;
}

class ResultsTest : public ::testing::TestWithParam<SCode>
{
};

const SCode g_aCodes[] = {
    {"E_FAIL", E_FAIL, 0x80004005U, -2147467259},
    {"E_OUTOFMEMORY", E_OUTOFMEMORY, 0x8007000EU, -2147024882},
    {"E_CDS_OUTOFMEMORY", E_CDS_OUTOFMEMORY, 0xC1170A28U, -1055454680},
    {"E_CDS_SERVERUNREACHABLE", E_CDS_SERVERUNREACHABLE, 0xC1170A29U, -1055454679},
    {"E_CDS_DISTNOTFOUND", E_CDS_DISTNOTFOUND, 0xC1170A2CU, -1055454676},
    {"E_CDS_UNKNOWNREASON", E_CDS_UNKNOWNREASON, 0xC1170A2DU, -1055454675},
    {"E_CDS_NOTFOUND", E_CDS_NOTFOUND, 0xC1170A2EU, -1055454674},
    {"E_CDS_EXISTS", E_CDS_EXISTS, 0xC1170A2FU, -1055454673},
    {"E_CDS_NULLDATA", E_CDS_NULLDATA, 0xC1170A30U, -1055454672},
    {"E_CDS_NOCHANNEL", E_CDS_NOCHANNEL, 0xC1170A33U, -1055454669},
    {"E_CDS_NOTHREAD", E_CDS_NOTHREAD, 0xC1170A34U, -1055454668},
};

} // namespace

TEST_P(ResultsTest, HasItsBits)
{
    EXPECT_EQ(static_cast<std::uint32_t>(GetParam().lCode), GetParam().dwBits);
}

TEST_P(ResultsTest, IsTheSameNegativeNumberOnEveryAbi)
{
    EXPECT_EQ(GetParam().lCode, GetParam().lSigned);
    EXPECT_LT(GetParam().lCode, 0);
}

INSTANTIATE_TEST_SUITE_P(Codes, ResultsTest, ::testing::ValuesIn(g_aCodes),
                         [](const auto& code) { return code.param.pszName; });

TEST(ResultConversionTest, KeepsTheLow32BitsWithTheirSign)
{
    EXPECT_EQ(cdsResult(0), 0);
    EXPECT_EQ(cdsResult(1), 1);
    EXPECT_EQ(cdsResult(0x7FFFFFFFUL), 2147483647L);
    EXPECT_EQ(cdsResult(0x80000000UL), -2147483647L - 1);
    EXPECT_EQ(cdsResult(0xFFFFFFFFUL), -1);
    EXPECT_EQ(cdsResult(static_cast<unsigned long>(-5L)), -5);
}
