// The configuration file.
#include "CDSSupport.h"
#include "KRException.h"
#include "KRRegLib.h"
#include "TemporaryDirectory.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

using KRRegLib::CRegKey;
using KRRegLib::CRegLib;

class SupportConfigurationTest : public testing::Test
{
protected:
    ~SupportConfigurationTest() override { (void)CDSSupport::setConfigurationFile("", nullptr); }

    /// Writes the file and reads it.
    void given(const std::string& sContent)
    {
        m_directory.write("cds.toml", sContent);
        std::string sError;
        ASSERT_GE(CDSSupport::setConfigurationFile(file(), &sError), 0) << sError;
    }

    long set(const std::string& sKey, const std::string& sName, unsigned long ulValue)
    {
        CRegLib store;
        CRegKey key;
        const long lResult = store.rootKey().createOrOpenKey(sKey, &key);
        return lResult < 0 ? lResult : key.setValue(sName, ulValue);
    }

    long query(const std::string& sKey, const std::string& sName)
    {
        CRegLib store;
        CRegKey key;
        unsigned long ulValue = 0;
        if (store.rootKey().createOrOpenKey(sKey, &key) < 0 || key.queryValue(sName, &ulValue) < 0)
            return -1;
        return static_cast<long>(ulValue);
    }

    std::string content() { return m_directory.read("cds.toml"); }
    std::string file() { return m_directory.file("cds.toml"); }

    CTemporaryDirectory m_directory;
};

TEST_F(SupportConfigurationTest, ABrokenFileIsAnErrorWithLineAndColumn)
{
    m_directory.write("cds.toml", "[Orvane.CDS]\nLogTraceMask = 3\nLogUtc = = 1\n");
    std::string sError;
    EXPECT_LT(CDSSupport::setConfigurationFile(file(), &sError), 0);
    EXPECT_EQ(sError.find(file() + ":3:10: "), 0U) << sError;
}

TEST_F(SupportConfigurationTest, ABrokenFileLeavesTheOldValues)
{
    given("[Orvane.CDS]\na = 1\n");
    m_directory.write("cds.toml", "[Orvane.CDS\n");
    std::string sError;
    EXPECT_LT(CDSSupport::rereadConfiguration(&sError), 0);
    EXPECT_NE(sError, "");
    EXPECT_THROW(CRegLib(), KRException);
    m_directory.write("cds.toml", "[Orvane.CDS]\na = 2\n");
    EXPECT_GE(CDSSupport::rereadConfiguration(&sError), 0);
    EXPECT_EQ(query("Orvane\\CDS", "a"), 2);
}

TEST_F(SupportConfigurationTest, AMissingFileIsAnErrorUnlessAllowed)
{
    std::string sError;
    EXPECT_LT(CDSSupport::setConfigurationFile(file(), &sError), 0);
    EXPECT_EQ(sError, file() + ": No such file or directory");
    EXPECT_GE(CDSSupport::setConfigurationFile(file(), &sError, true), 0);
    EXPECT_GE(set("Orvane\\CDS", "a", 1), 0);
    EXPECT_EQ(content(), "[Orvane.CDS]\na = 1\n");
}

TEST_F(SupportConfigurationTest, WithoutAFileNothingIsWritten)
{
    EXPECT_GE(CDSSupport::setConfigurationFile("", nullptr), 0);
    EXPECT_GE(set("Orvane\\CDS", "a", 1), 0);
    EXPECT_EQ(query("Orvane\\CDS", "a"), 1);
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.path()));
}

TEST_F(SupportConfigurationTest, ANewValueGoesToItsTableAndCommentsStay)
{
    given("# head\n\n[Orvane.CDS] # the store\n# about a\na = 1 # one\n\n[Other]\nb = 2\n");
    EXPECT_GE(set("Orvane\\CDS", "SendInWorkerThread", 1), 0);
    EXPECT_EQ(content(), "# head\n\n[Orvane.CDS] # the store\n# about a\na = 1 # one\nSendInWorkerThread = 1\n\n"
                         "[Other]\nb = 2\n");
}

TEST_F(SupportConfigurationTest, AChangedValueIsReplacedInPlace)
{
    given("[Orvane.CDS]\n\"\xC3\xA4\" = '\xC3\xA4' # umlaut\na = 0x10 # one\nb = 2");
    EXPECT_GE(set("Orvane\\CDS", "a", 70000), 0);
    EXPECT_GE(set("Orvane\\CDS", "b", 3), 0);
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("Orvane\\CDS", &key), 0);
    EXPECT_GE(key.setValue("\xC3\xA4", std::string("\xC3\xB6")), 0);
    EXPECT_EQ(content(), "[Orvane.CDS]\n\"\xC3\xA4\" = '\xC3\xB6' # umlaut\na = 70000 # one\nb = 3");
}

TEST_F(SupportConfigurationTest, ANewTableGoesToTheEnd)
{
    given("# head\n[Other]\nb = 2 # two");
    EXPECT_GE(set("Orvane\\CDS", "a", 1), 0);
    EXPECT_EQ(content(), "# head\n[Other]\nb = 2 # two\n\n[Orvane.CDS]\na = 1\n");
}

TEST_F(SupportConfigurationTest, ATableInAnyNotationTakesAValue)
{
    for (const char* pszContent : {"Orvane = { CDS = { a = 1 } }\n", "Orvane.CDS.a = 1\n", "[Orvane]\nCDS.a = 1\n",
                                   "[Orvane.CDS.Deep]\nx = 1\n[Orvane.CDS]\na = 1", "[Orvane.CDS.Deep]\nx = 1\n"})
    {
        given(pszContent);
        EXPECT_GE(set("Orvane\\CDS", "b", 2), 0) << pszContent;
        std::string sError;
        EXPECT_GE(CDSSupport::setConfigurationFile(file(), &sError), 0) << sError << " in " << content();
        EXPECT_EQ(query("Orvane\\CDS", "b"), 2) << content();
        if (std::string(pszContent).find("a = 1") != std::string::npos)
        {
            EXPECT_EQ(query("Orvane\\CDS", "a"), 1) << content();
        }
    }
}

TEST_F(SupportConfigurationTest, CommentsStayInAnyNotation)
{
    const struct
    {
        const char* pszBefore;
        const char* pszAfter;
    } aCases[] = {
        {"# why\nOrvane.CDS.a = 1 # one\n", "# why\nOrvane.CDS.a = 1 # one\nOrvane.CDS.b = 2\n"},
        {"[Orvane] # ours\nCDS.a = 1\nx = 2\n", "[Orvane] # ours\nCDS.a = 1\nCDS.b = 2\nx = 2\n"},
        {"Orvane = { CDS = { a = 1 } } # all\n", "Orvane = { CDS = { a = 1, b = 2 } } # all\n"},
        {"[Orvane] # ours\nCDS = {}\n", "[Orvane] # ours\nCDS = { b = 2 }\n"},
    };
    for (const auto& [pszBefore, pszAfter] : aCases)
    {
        given(pszBefore);
        EXPECT_GE(set("Orvane\\CDS", "b", 2), 0) << pszBefore;
        EXPECT_EQ(content(), pszAfter);
    }
}

TEST_F(SupportConfigurationTest, ADirectoryIsNoFile)
{
    given("[K]\na = 1\n");
    std::string sError;
    EXPECT_LT(CDSSupport::setConfigurationFile(m_directory.path(), &sError), 0);
    EXPECT_EQ(sError, m_directory.path() + ": Is a directory");
    EXPECT_EQ(query("K", "a"), 1);
}

TEST_F(SupportConfigurationTest, AFileNamedFromTheWorkingDirectoryStaysTheSame)
{
    const auto before = std::filesystem::current_path();
    m_directory.write("cds.toml", "[K]\na = 1\n");
    std::filesystem::create_directory(m_directory.file("elsewhere"));
    std::filesystem::current_path(m_directory.path());
    const long lResult = CDSSupport::setConfigurationFile("cds.toml", nullptr);
    std::filesystem::current_path(m_directory.file("elsewhere"));
    const long lValue = query("K", "a");
    const long lSet = set("K", "b", 2);
    std::filesystem::current_path(before);
    EXPECT_GE(lResult, 0);
    EXPECT_EQ(lValue, 1);
    EXPECT_GE(lSet, 0);
    EXPECT_EQ(content(), "[K]\na = 1\nb = 2\n");
}

TEST_F(SupportConfigurationTest, AValueIsNoTable)
{
    given("Orvane = 5\n");
    EXPECT_LT(set("Orvane\\CDS", "a", 1), 0);
    EXPECT_EQ(content(), "Orvane = 5\n");
}

TEST_F(SupportConfigurationTest, NumbersThatDoNotFitAreNone)
{
    given("[K]\na = -1\nb = 4294967296\nc = 1.0\nd = true\ne = 4294967295\n");
    for (const char* pszName : {"a", "b", "c", "d"})
        EXPECT_EQ(query("K", pszName), -1) << pszName;
    CRegLib store;
    CRegKey key;
    unsigned long ulValue = 0;
    ASSERT_GE(store.rootKey().createOrOpenKey("K", &key), 0);
    EXPECT_GE(key.queryValue("e", &ulValue), 0);
    EXPECT_EQ(ulValue, 0xFFFFFFFFUL);
}

TEST_F(SupportConfigurationTest, SomebodyElsesChangeIsNotWrittenOver)
{
    given("[K]\na = 1\n");
    m_directory.write("cds.toml", "[K]\na = 1\nhis = 7\n");
    EXPECT_GE(set("K", "mine", 8), 0);
    EXPECT_EQ(content(), "[K]\na = 1\nhis = 7\nmine = 8\n");
    CRegLib store;
    CRegKey key;
    ASSERT_GE(store.rootKey().createOrOpenKey("K", &key), 0);
    m_directory.write("cds.toml", "[K\n");
    EXPECT_LT(key.setValue("mine", 9UL), 0);
    EXPECT_EQ(content(), "[K\n");
}

TEST_F(SupportConfigurationTest, TheFileKeepsItsPermissionsAndItsLink)
{
    m_directory.write("real.toml", "[K]\na = 1\n");
    std::filesystem::permissions(m_directory.file("real.toml"), std::filesystem::perms(0640));
    std::filesystem::create_symlink("real.toml", file());
    ASSERT_GE(CDSSupport::setConfigurationFile(file(), nullptr), 0);
    EXPECT_GE(set("K", "a", 2), 0);
    EXPECT_TRUE(std::filesystem::is_symlink(file()));
    EXPECT_EQ(m_directory.read("real.toml"), "[K]\na = 2\n");
    EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms(0640));
}
