#include "cdr/RefusedCdrs.h"
#include "TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;

class RefusedCdrsTest : public testing::Test
{
protected:
    std::unique_ptr<CRefusedCdrs> opened(CRefusedCdrs::CLimits limits = {})
    {
        auto pRefused = std::make_unique<CRefusedCdrs>(m_directory.file("refused"), limits);
        EXPECT_TRUE(pRefused->open(&m_sError)) << m_sError;
        return pRefused;
    }
    static CRefusedCdr cdr(const std::string& sRecord) { return {"10.0.0.1", 4711, sRecord}; }

    CTemporaryDirectory m_directory;
    std::string m_sError;
};

TEST_F(RefusedCdrsTest, KeepsARecordAcrossAStart)
{
    const std::string sRecord = "4;abc\0\xFF\n\nbytes 3\n"s;
    ASSERT_TRUE(opened()->keep(cdr(sRecord), &m_sError));
    const auto pRefused = opened();
    ASSERT_EQ(pRefused->count(), 1U);
    CRefusedCdr read;
    ASSERT_EQ(pRefused->read(pRefused->next(""), &read), CRefusedCdrs::ERead::record);
    EXPECT_EQ(read.sOrigin, "10.0.0.1");
    EXPECT_EQ(read.ullReceived, 4711U);
    EXPECT_EQ(read.sRecord, sRecord);
    pRefused->remove(pRefused->next(""));
    EXPECT_EQ(pRefused->count(), 0U);
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.file("refused")));
}

TEST_F(RefusedCdrsTest, GoesThroughRecordsInTheirOrder)
{
    const auto pRefused = opened();
    for (const char* const pszRecord : {"a", "b", "c"})
        ASSERT_TRUE(pRefused->keep(cdr(pszRecord), &m_sError));
    std::string sAll;
    for (std::string sName = pRefused->next(""); !sName.empty(); sName = pRefused->next(sName))
    {
        CRefusedCdr read;
        ASSERT_EQ(pRefused->read(sName, &read), CRefusedCdrs::ERead::record);
        sAll += read.sRecord;
    }
    EXPECT_EQ(sAll, "abc");
}

TEST_F(RefusedCdrsTest, AFileThatCannotBeReadNowIsNotTakenForNone)
{
    const auto pRefused = opened();
    ASSERT_TRUE(pRefused->keep(cdr("a"), &m_sError));
    const std::string sPath = m_directory.file("refused") + "/" + pRefused->next("");
    std::filesystem::rename(sPath, sPath + ".away");
    CRefusedCdr read;
    EXPECT_EQ(pRefused->read(pRefused->next(""), &read), CRefusedCdrs::ERead::failed);
    std::filesystem::rename(sPath + ".away", sPath);
    EXPECT_EQ(pRefused->read(pRefused->next(""), &read), CRefusedCdrs::ERead::record);
}

TEST_F(RefusedCdrsTest, IsBounded)
{
    const auto pRefused = opened({2, 1000});
    EXPECT_TRUE(pRefused->keep(cdr("a"), &m_sError));
    EXPECT_FALSE(pRefused->keep(cdr(std::string(1000, 'x')), &m_sError));
    EXPECT_THAT(m_sError, HasSubstr("full, with 1 records"));
    EXPECT_TRUE(pRefused->keep(cdr("b"), &m_sError));
    EXPECT_FALSE(pRefused->keep(cdr("c"), &m_sError));
    pRefused->remove(pRefused->next(""));
    EXPECT_TRUE(pRefused->keep(cdr("c"), &m_sError));
}

TEST_F(RefusedCdrsTest, WhatIsThereCountsAfterAStart)
{
    ASSERT_TRUE(opened()->keep(cdr(std::string(500, 'x')), &m_sError));
    EXPECT_FALSE(opened({10, 700})->keep(cdr(std::string(200, 'x')), &m_sError));
}

TEST_F(RefusedCdrsTest, ClearsAwayWhatWasNotFinished)
{
    ASSERT_TRUE(opened()->keep(cdr("a"), &m_sError));
    m_directory.write("refused/00000000000000000001-000001.cdr.new", "cds-refu");
    EXPECT_EQ(opened()->count(), 1U);
    EXPECT_FALSE(std::filesystem::exists(m_directory.file("refused/00000000000000000001-000001.cdr.new")));
}

TEST_F(RefusedCdrsTest, TellsARecordFromAnotherFile)
{
    const std::string sGood = "cds-refused-cdr 1\norigin h\nreceived 1\nbytes 3\n\nabc";
    for (const std::string& sContent :
         {sGood, sGood + "d", sGood.substr(0, sGood.size() - 1), ""s, "cds-refused-cdr 2" + sGood.substr(17),
          "cds-refused-cdr 1\norigin h\nreceived x\nbytes 3\n\nabc"s})
    {
        const auto pRefused = std::make_unique<CRefusedCdrs>(m_directory.path(), CRefusedCdrs::CLimits{});
        m_directory.write("1.cdr", sContent);
        ASSERT_TRUE(pRefused->open(&m_sError));
        CRefusedCdr read;
        EXPECT_EQ(pRefused->read("1.cdr", &read),
                  sContent == sGood ? CRefusedCdrs::ERead::record : CRefusedCdrs::ERead::noRecord)
            << sContent;
        pRefused->putAside("1.cdr");
        EXPECT_EQ(pRefused->count(), 0U);
        EXPECT_EQ(m_directory.read("1.cdr.unreadable"), sContent);
    }
}

TEST_F(RefusedCdrsTest, BelongsToOneProgram)
{
    const auto pRefused = opened();
    CRefusedCdrs second(m_directory.file("refused"), {});
    EXPECT_FALSE(second.open(&m_sError));
    EXPECT_THAT(m_sError, HasSubstr("another program"));
}

TEST_F(RefusedCdrsTest, SaysThatTheDirectoryIsGone)
{
    const auto pRefused = opened();
    std::filesystem::remove_all(m_directory.file("refused"));
    EXPECT_FALSE(pRefused->keep(cdr("a"), &m_sError));
    EXPECT_THAT(m_sError, HasSubstr("No such file"));
    EXPECT_EQ(pRefused->count(), 0U);
}

} // namespace
