// The texts that travel between servers keep their bytes, from release to release and on every word size.

#include "GoldenTexts.h"

#include "CDSParams.h"
#include "ModelSupport.h"

#include <algorithm>
#include <fstream>
#include <iterator>

using namespace model;

namespace model {

void PrintTo(const SGolden& golden, std::ostream* pOut)
{
    *pOut << golden.pszName;
}

} // namespace model

namespace {

class GoldenTest : public ::testing::TestWithParam<SGolden>
{
protected:
    void SetUp() override { ASSERT_TRUE(readGolden(GetParam(), &m_sText)) << goldenFile(GetParam()); }

    CFakeWorld m_world;
    std::string m_sText; // of the file
};

class GoldenFilesTest : public CModelTest
{
protected:
    static std::string textOf(const char* pszName)
    {
        std::string sText;
        for (const SGolden& golden : goldenTexts())
            if (golden.pszName == std::string(pszName) && !readGolden(golden, &sText))
                ADD_FAILURE() << goldenFile(golden);
        return sText;
    }
};

std::string nameOf(const ::testing::TestParamInfo<SGolden>& golden)
{
    std::string sName = golden.param.pszName;
    std::replace(sName.begin(), sName.end(), '-', '_');
    return sName;
}

} // namespace

TEST_P(GoldenTest, IsWrittenAsItStandsInTheFile)
{
    EXPECT_EQ(GetParam().fnMake(), m_sText);
}

TEST_P(GoldenTest, IsReadAndWrittenAgainByteForByte)
{
    EXPECT_EQ(writtenAgain(GetParam().eKind, m_sText), m_sText);
}

INSTANTIATE_TEST_SUITE_P(Texts, GoldenTest, ::testing::ValuesIn(goldenTexts()), nameOf);

TEST_F(GoldenFilesTest, AreTheOnesThatAreTested)
{
    std::vector<std::string> vecFiles;
    for (const auto& entry : std::filesystem::directory_iterator(goldenDirectory()))
        if (entry.path().extension() == ".txt")
            vecFiles.push_back(entry.path().filename().string());
    std::vector<std::string> vecTested;
    for (const SGolden& golden : goldenTexts())
        vecTested.push_back(goldenFile(golden).filename().string());
    EXPECT_THAT(vecFiles, ::testing::UnorderedElementsAreArray(vecTested));
}

TEST_F(GoldenFilesTest, AllHaveAReasonInTheReadme)
{
    std::ifstream file(goldenDirectory() / "README.md");
    const std::string sReadme{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const SGolden& golden : goldenTexts())
        EXPECT_THAT(sReadme, ::testing::HasSubstr("`" + goldenFile(golden).filename().string() + "`"));
}

// The values behind the bytes, where one word size might read them differently.

TEST_F(GoldenFilesTest, NumbersReadTheSameOnEveryWordSize)
{
    const CParamsX list(textOf("list-scalars"));
    const long alSigned[] = {0, 1, -1, 42, 2147483647L, -2147483647L - 1};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(list.getLongParamAt(i), alSigned[i]) << i;
    const unsigned long aulUnsigned[] = {0, 7, 2147483648UL, 0xC0A80001UL, 4294967295UL};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(list.getULONGParamAt(6 + i), aulUnsigned[i]) << i;
    const unsigned long long aullWide[] = {0, 4294967296ULL, 128806167670890000ULL, 18446744073709551615ULL};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(list.getULONGLONGParamAt(11 + i), aullWide[i]) << i;
    EXPECT_FALSE(list.getBOOLParamAt(15));
    EXPECT_TRUE(list.getBOOLParamAt(16));
    EXPECT_TRUE(list.getBOOLParamAt(17));
    CParamsX result;
    (void)result.addParam(list.getStringParamAt(21), 3.14F);
    EXPECT_THAT(result.getHRESULT(), FailsWith(E_CDS_NOTFOUND));
}

TEST_F(GoldenFilesTest, StampsReadTheSameOnEveryWordSize)
{
    CCDSTimestamp tsStamp(0, 0);
    EXPECT_THAT(tsStamp.deserialize(textOf("stamp-largest")), IsOk());
    EXPECT_EQ(tsStamp, at(18446744073709551615ULL, 2147483647L));
    EXPECT_THAT(tsStamp.deserialize(textOf("stamp-least-increment")), IsOk());
    EXPECT_EQ(tsStamp, at(0, -2147483647L - 1));
}

TEST_F(GoldenFilesTest, RecordsReadTheSameOnEveryWordSize)
{
    CCallData data(textOf("record-edges"), true);
    EXPECT_EQ(callIDOf(data), "*;\n1;");
    const std::vector<SItem> vecContent = contentOf(data);
    ASSERT_EQ(vecContent.size(), 9U);
    EXPECT_EQ(vecContent[0], (SItem{"", "no name", at(1)}));
    EXPECT_EQ(vecContent[1].tsStamp, at(18446744073709551615ULL, 2147483647L));
    EXPECT_EQ(vecContent[1].sValue.size(), 256U);
    EXPECT_EQ(vecContent[2], (SItem{"EMPTY", "", at(0)}));
    EXPECT_EQ(vecContent[3], (SItem{"a;b;1;c", "3;abc", at(18446744073709551615ULL, -2147483647L - 1)}));
    EXPECT_EQ(vecContent[4], (SItem{"\xC3\xA4", "\xFF", at(1ULL << 63, -1)}));
    EXPECT_EQ(data.getsize(), 7U + 256U + 5U + 1U);
}

TEST_F(GoldenFilesTest, TraceIdsReadTheSameOnEveryWordSize)
{
    for (const auto& [pszName, ulTraceID] :
         {std::pair("message-call", 0xFFFFFFFFUL), std::pair("message-cdr", 0x80000000UL)})
    {
        const CCallbackMsg msg(1UL, textOf(pszName));
        const std::unique_ptr<CCallbackData> pPayload(msg.getCallbackData());
        EXPECT_EQ(msg.getTraceID(), ulTraceID);
    }
}
