// The trace log's files and settings.
#include "CDSSupport.h"
#include "CPEvent.h"
#include "CPortable.h"
#include "KRException.h"
#include "KRLogLib.h"
#include "SystemLogSpy.h"
#include "TemporaryDirectory.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

using KRLogLib::CLogFile;
using KRLogLib::CLogFileRegistry;

namespace {
/// Settings that a test varies; the rest as the store has them.
struct CChoices
{
    unsigned long ulMaxFiles = 100;
    unsigned long ulMaxFileKB = 1000;
    unsigned long ulDropWhenFull = 0;
    unsigned long ulQueueLines = 10000;
    unsigned long ulFollow = 0;
};

class CBoundLog
{
public:
    explicit CBoundLog(const char* pszName, const CChoices& choices = {})
        : m_log(pszName, nullptr, false, true, false),
          m_registry(&m_log, "Orvane", "CDS", nullptr, nullptr, 0, 1, choices.ulMaxFiles, choices.ulMaxFileKB, 3, 1023,
                     0, 1023, choices.ulDropWhenFull, choices.ulQueueLines, 0, choices.ulFollow, 10, 1, 0)
    {
    }

    void write(const char* pszFormat, ...) __attribute__((format(printf, 2, 3)))
    {
        va_list args;
        va_start(args, pszFormat);
        m_log.LogStringArgListX(CLogFile::priority_all, nullptr, pszFormat, args);
        va_end(args);
    }

    std::uint32_t mask() const { return m_log.traceMask().load(); }
    bool enabled() const { return m_log.IsTraceable(CLogFile::priority_all); }

private:
    CLogFile m_log;
    CLogFileRegistry m_registry;
};

std::size_t linesIn(const std::string& sContent)
{
    return static_cast<std::size_t>(std::count(sContent.begin(), sContent.end(), '\n'));
}

/// Waits for what another thread brings about by itself.
bool eventually(const std::function<bool()>& fnTrue)
{
    CPEvent never(1, "", 1);
    for (int n = 0; n < 6000 && !fnTrue(); ++n)
        (void)never.wait(5, nullptr); // only the pause between two looks
    return fnTrue();
}
} // namespace

class SupportLogTest : public testing::Test
{
protected:
    SupportLogTest()
    {
        CSystemLogSpy::clear();
        CDSSupport::setLogDirectory(m_directory.path());
    }
    ~SupportLogTest() override { (void)CDSSupport::setConfigurationFile("", nullptr); }

    void configure(const std::string& sContent)
    {
        m_directory.write("cds.toml", sContent);
        std::string sError;
        ASSERT_GE(CDSSupport::setConfigurationFile(m_directory.file("cds.toml"), &sError), 0) << sError;
    }

    CTemporaryDirectory m_directory;
};

TEST_F(SupportLogTest, LinesAreStampedInUtc)
{
    CPSystemTime before;
    CPortable::GetSystemTime(&before);
    {
        CBoundLog log("Stamps");
        log.write("text");
    }
    const std::string sContent = m_directory.read("Stamps.log");
    int nYear = 0;
    int nHour = 0;
    int nEnd = 0;
    (void)std::sscanf(sContent.c_str(), "%4d-%*2d-%*2d %2d:%*2d:%*2d.%*6d [%*d] text%n", &nYear, &nHour, &nEnd);
    EXPECT_EQ(static_cast<std::size_t>(nEnd) + 1, sContent.size()) << sContent; // and the line's end
    EXPECT_EQ(sContent.find(" ["), sizeof "2009-03-04 05:06:07.000089" - 1) << sContent;
    EXPECT_EQ(nYear, before.wYear);
    EXPECT_TRUE(nHour == before.wHour || nHour == (before.wHour + 1) % 24) << sContent; // an hour may just begin
}

TEST_F(SupportLogTest, OneLineStaysOneLine)
{
    {
        CBoundLog log("Controls");
        log.write("a\nb\r\x1b[31m\x7f\tc");
    }
    const std::string sContent = m_directory.read("Controls.log");
    EXPECT_EQ(linesIn(sContent), 1U);
    EXPECT_NE(sContent.find("a\\nb\\r\\x1b[31m\\x7f\tc\n"), std::string::npos) << sContent;
}

TEST_F(SupportLogTest, EscapesAControlCharacterWhereverItIs)
{
    {
        CBoundLog log("Places");
        for (int nBefore = 0; nBefore < 20; ++nBefore)
        {
            for (const char c : {'\n', '\x01', '\x1f', '\x7f'})
                log.write("%.*s%c\tabc", nBefore, "01234567890123456789", c);
        }
    }
    const std::string sContent = m_directory.read("Places.log");
    EXPECT_EQ(linesIn(sContent), 80U);
    EXPECT_EQ(std::count(sContent.begin(), sContent.end(), '\\'), 80);
}

TEST_F(SupportLogTest, EscapesTheControlCharactersBeyondAscii)
{
    {
        CBoundLog log("Beyond");
        for (int nBefore = 0; nBefore < 10; ++nBefore)
            log.write("%.*s\xC2\x9B"
                      "31m \xC3\xA4 \xC2\xA7 long enough for words",
                      nBefore, "0123456789");
    }
    const std::string sContent = m_directory.read("Beyond.log");
    EXPECT_EQ(sContent.find("\xC2\x9B"), std::string::npos);
    EXPECT_NE(sContent.find("0\\x9b31m \xC3\xA4 \xC2\xA7 long"), std::string::npos) << sContent;
    EXPECT_EQ(std::count(sContent.begin(), sContent.end(), '\\'), 10);
}

TEST_F(SupportLogTest, LinesReachTheFileByThemselves)
{
    CBoundLog log("Soon");
    log.write("text");
    EXPECT_TRUE(eventually([&] { return linesIn(m_directory.read("Soon.log")) == 1; }));
}

TEST_F(SupportLogTest, RotatesBySize)
{
    {
        CBoundLog log("Rotating", {.ulMaxFiles = 3, .ulMaxFileKB = 16});
        for (int n = 0; n < 4000; ++n)
            log.write("line %d of some length, so that files fill up", n);
    }
    std::size_t uFiles = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
    {
        ++uFiles;
        EXPECT_LE(entry.file_size(), 16U * 1024) << entry.path();
        EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(0137), std::filesystem::perms::none);
    }
    EXPECT_EQ(uFiles, 3U);
    EXPECT_NE(m_directory.read("Rotating.log").find("line 3999 "), std::string::npos);
    EXPECT_NE(m_directory.read("Rotating.1.log").find("line "), std::string::npos);
}

TEST_F(SupportLogTest, ConfiguredSettingsWin)
{
    configure("[Orvane.CDS]\nLogTraceMask = 0x1F\nLogEnabled = 0\n");
    const CBoundLog log("Configured");
    EXPECT_EQ(log.mask(), 0x1FU);
    EXPECT_FALSE(log.enabled());
}

TEST_F(SupportLogTest, MaskFollowsARereadConfiguration)
{
    configure("[Orvane.CDS]\nLogTraceMask = 1\n");
    const CBoundLog log("Reread");
    EXPECT_EQ(log.mask(), 1U);
    m_directory.write("cds.toml", "[Orvane.CDS]\nLogTraceMask = 0xFFFFFFFF\n");
    EXPECT_GE(CDSSupport::rereadConfiguration(nullptr), 0);
    EXPECT_EQ(log.mask(), 0xFFFFFFFFU);
    m_directory.write("cds.toml", "");
    EXPECT_GE(CDSSupport::rereadConfiguration(nullptr), 0);
    EXPECT_EQ(log.mask(), 3U) << "no longer configured: the number given";
}

TEST_F(SupportLogTest, MaskFollowsTheFileByItself)
{
    configure("[Orvane.CDS]\nLogTraceMask = 1\n");
    CBoundLog log("Following", {.ulFollow = 1});
    EXPECT_EQ(log.mask(), 1U);
    m_directory.replace("cds.toml", "[Orvane.CDS]\nLogTraceMask = 0x11 # more\n");
    EXPECT_TRUE(eventually([&] { return log.mask() == 0x11; }));
    m_directory.replace("cds.toml", "[Orvane.CDS]\nLogTraceMask = = 1\n");
    EXPECT_TRUE(eventually([&] {
        return m_directory.read("Following.log").find("cds.toml:2:16: ") != std::string::npos;
    })) << "a broken file is told in the log";
    EXPECT_EQ(log.mask(), 0x11U);
}

TEST_F(SupportLogTest, HostSetsTheMask)
{
    configure("[Orvane.CDS]\nLogTraceMask = 1\n");
    CDSSupport::setTraceMask("HostMask", 0x7);
    const CBoundLog log("HostMask");
    EXPECT_EQ(log.mask(), 0x7U);
    CDSSupport::setTraceMask("HostMask", 0x3FF);
    EXPECT_EQ(log.mask(), 0x3FFU);
    EXPECT_GE(CDSSupport::rereadConfiguration(nullptr), 0);
    EXPECT_EQ(log.mask(), 0x3FFU) << "nothing new is configured";
    m_directory.write("cds.toml", "[Orvane.CDS]\nLogTraceMask = 2\n");
    EXPECT_GE(CDSSupport::rereadConfiguration(nullptr), 0);
    EXPECT_EQ(log.mask(), 2U);
}

TEST_F(SupportLogTest, ReopensAfterARename)
{
    CBoundLog log("Renamed");
    log.write("old");
    std::filesystem::rename(m_directory.file("Renamed.log"), m_directory.file("Renamed.log.1"));
    log.write("old too");
    EXPECT_GE(CDSSupport::reopenLogs(), 0);
    EXPECT_EQ(linesIn(m_directory.read("Renamed.log.1")), 2U);
    log.write("new");
    CDSSupport::flushLogs();
    EXPECT_EQ(linesIn(m_directory.read("Renamed.log")), 1U);
    EXPECT_NE(m_directory.read("Renamed.log").find("new"), std::string::npos);
}

TEST_F(SupportLogTest, AppendsToAnExistingFile)
{
    {
        CBoundLog log("Again");
        log.write("one");
    }
    {
        CBoundLog log("Again");
        log.write("two");
    }
    EXPECT_EQ(linesIn(m_directory.read("Again.log")), 2U);
}

TEST_F(SupportLogTest, AFullQueueMakesTheWriterWait)
{
    {
        CBoundLog log("Full", {.ulQueueLines = 2});
        for (int n = 0; n < 2000; ++n)
            log.write("%d", n);
    }
    EXPECT_EQ(linesIn(m_directory.read("Full.log")), 2000U);
}

TEST_F(SupportLogTest, AFullQueueMayDropTheOldestAndSaysSo)
{
    std::size_t uDropped = 0;
    {
        CBoundLog log("Dropping", {.ulDropWhenFull = 1, .ulQueueLines = 8});
        for (int n = 0; n < 50'000; ++n)
            log.write("%d", n);
    }
    const std::string sContent = m_directory.read("Dropping.log");
    std::size_t uNotes = 0;
    std::istringstream stream(sContent);
    for (std::string sLine; std::getline(stream, sLine);)
    {
        unsigned long ulDropped = 0;
        if (sLine.find(" lines were dropped: the queue was full") == std::string::npos)
            continue;
        ASSERT_EQ(std::sscanf(sLine.c_str() + sLine.find("] "), "] %lu lines", &ulDropped), 1) << sLine;
        uDropped += ulDropped;
        ++uNotes;
    }
    EXPECT_GT(uDropped, 0U);
    EXPECT_EQ(linesIn(sContent) - uNotes + uDropped, 50'000U);
    EXPECT_NE(sContent.find("] 49999\n"), std::string::npos) << "the newest stays";
}

TEST_F(SupportLogTest, LostLinesAreCountedAndReportedOnce)
{
    const std::string sGone = m_directory.file("gone");
    std::filesystem::create_directory(sGone);
    CDSSupport::setLogDirectory(sGone);
    CBoundLog log("Lost");
    std::filesystem::remove_all(sGone);
    m_directory.write("gone", "a file where the directory was");
    EXPECT_LT(CDSSupport::reopenLogs(), 0);
    for (int nBatch = 0; nBatch < 3; ++nBatch)
    {
        for (int nLine = 0; nLine < 7; ++nLine)
            log.write("lost");
        CDSSupport::flushLogs();
    }
    ASSERT_EQ(CSystemLogSpy::messages().size(), 1U);
    EXPECT_NE(CSystemLogSpy::messages()[0].second.find("trace lines are lost"), std::string::npos);
    std::filesystem::remove(sGone);
    std::filesystem::create_directory(sGone);
    log.write("found");
    CDSSupport::flushLogs();
    const std::string sContent = m_directory.read("gone/Lost.log");
    EXPECT_NE(sContent.find("] 21 lines could not be stored\n"), std::string::npos) << sContent;
    EXPECT_NE(sContent.find("] found\n"), std::string::npos) << sContent;
    EXPECT_EQ(linesIn(sContent), 2U);
}

TEST_F(SupportLogTest, OutlivesARotationThatFails)
{
    const std::string sGone = m_directory.file("gone");
    std::filesystem::create_directory(sGone);
    CDSSupport::setLogDirectory(sGone);
    CBoundLog log("Rotated", {.ulMaxFiles = 3, .ulMaxFileKB = 16});
    log.write("%s", std::string(1500, 'x').c_str());
    CDSSupport::flushLogs();
    std::filesystem::remove_all(sGone); // the open file lives on until it is full
    m_directory.write("gone", "a file where the directory was");
    for (int n = 0; n < 40; ++n)
    {
        log.write("%s", std::string(1500, 'x').c_str());
        CDSSupport::flushLogs();
    }
    log.write("short");
    CDSSupport::flushLogs();
    EXPECT_EQ(CSystemLogSpy::messages().size(), 1U);
    std::filesystem::remove(sGone);
    std::filesystem::create_directory(sGone);
    log.write("found");
    CDSSupport::flushLogs();
    EXPECT_NE(m_directory.read("gone/Rotated.log").find("] found\n"), std::string::npos);
}

TEST_F(SupportLogTest, ALogThatCannotBeMadeIsRefusedAtOnce)
{
    std::filesystem::create_directory(m_directory.file("Directory.log"));
    const unsigned long ulBefore = CPortable::GetTickCount();
    for (int n = 0; n < 100; ++n)
        EXPECT_THROW(CLogFile("Directory", nullptr, false, true, false), KRException);
    // Not a claim of speed: one that is tried again and again takes fifty milliseconds each time.
    EXPECT_LT(CPortable::GetTickCount() - ulBefore, 2500U);
}

TEST_F(SupportLogTest, LinesOfAProcessThatJustExitsAreStored)
{
    EXPECT_EXIT(
        {
            auto* const pLog = new CBoundLog("Exit"); // never destroyed
            for (int n = 0; n < 100; ++n)
                pLog->write("line %d", n);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(linesIn(m_directory.read("Exit.log")), 100U);
}
