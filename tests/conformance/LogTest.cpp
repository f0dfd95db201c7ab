// The trace log and the operator events.
#include "ConformanceWorld.h"
#include "KRException.h"
#include "KRLogLib.h"

#include <map>
#include <optional>
#include <string>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using KRLogLib::CLogFile;
using KRLogLib::CLogFileRegistry;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {
/// Level 4 is never set in these tests' masks.
constexpr unsigned long cMask = 3;
constexpr int cAll = CLogFile::priority_all;

void log(CLogFile& file, int nPriority, const char* pszFormat, ...) __attribute__((format(printf, 3, 4)));

void log(CLogFile& file, int nPriority, const char* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    file.LogStringArgListX(nPriority, nullptr, pszFormat, args);
    va_end(args);
}

void logWide(CLogFile& file, const wchar_t* pszFormat, ...)
{
    va_list args;
    va_start(args, pszFormat);
    file.LogStringArgListX(cAll, nullptr, pszFormat, args);
    va_end(args);
}

/// A trace log with its binding, as the store makes them.
struct CBoundLog
{
    explicit CBoundLog(const char* pszName, unsigned long ulEnabled = 1, unsigned long ulPriorityMask = 1023)
        : log(pszName, nullptr, false, true, false),
          registry(&log, "Orvane", "CDS", nullptr, nullptr, 0, ulEnabled, 100, 100000, cMask, ulPriorityMask, 0, 1023,
                   0, 10000, 0, 1, 40000, 1, 0)
    {
    }

    CLogFile log;
    CLogFileRegistry registry;
};
} // namespace

class LogTest : public testing::Test
{
protected:
    CConformanceWorld m_world;
};

TEST_F(LogTest, StoresLinesInOrder)
{
    CBoundLog bound("LogTestOrder");
    log(bound.log, cAll, "first");
    log(bound.log, cAll, "second %d %s", 2, "two");
    log(bound.log, cAll, "%s", "");
    EXPECT_THAT(m_world.storedLines("LogTestOrder"), ElementsAre("first", "second 2 two", ""));
}

TEST_F(LogTest, LinesAreStoredWhenTheLogIsGone)
{
    {
        CBoundLog bound("LogTestGone");
        for (int n = 0; n < 3000; ++n)
            log(bound.log, cAll, "line %d", n);
    }
    const auto vecLines = m_world.storedLines("LogTestGone");
    ASSERT_EQ(vecLines.size(), 3000U);
    EXPECT_EQ(vecLines.back(), "line 2999");
}

TEST_F(LogTest, StoresLongLinesWhole)
{
    CBoundLog bound("LogTestLong");
    for (const std::size_t uLength : {1023U, 1024U, 1025U, 70'000U, 300'000U})
        log(bound.log, cAll, "%s.", std::string(uLength, 'x').c_str());
    const auto vecLines = m_world.storedLines("LogTestLong");
    ASSERT_EQ(vecLines.size(), 5U);
    EXPECT_EQ(vecLines[0], std::string(1023, 'x') + '.');
    EXPECT_EQ(vecLines[1], std::string(1024, 'x') + '.');
    EXPECT_EQ(vecLines[2], std::string(1025, 'x') + '.');
    EXPECT_EQ(vecLines[3], std::string(70'000, 'x') + '.');
    EXPECT_EQ(vecLines[4], std::string(300'000, 'x') + '.');
}

TEST_F(LogTest, StoresUtf8AndTabsAsTheyCome)
{
    CBoundLog bound("LogTestBytes");
    log(bound.log, cAll, "a\tb \xC3\xA4 %%");
    EXPECT_THAT(m_world.storedLines("LogTestBytes"), ElementsAre("a\tb \xC3\xA4 %"));
}

TEST_F(LogTest, StoresWideLinesAsUtf8)
{
    CBoundLog bound("LogTestWide");
    logWide(bound.log, L"a %d \u00E4\u20AC\U0001F600 %ls", 7, L"\u00FC");
    logWide(bound.log, L"%ls", std::wstring(5000, L'w').c_str());
    EXPECT_THAT(m_world.storedLines("LogTestWide"),
                ElementsAre("a 7 \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80 \xC3\xBC", std::string(5000, 'w')));
}

TEST_F(LogTest, NoLineOfManyThreadsIsTornOrLost)
{
    constexpr int cThreads = 4;
    constexpr int cLines = 6000; // together more than the queue holds
    CBoundLog bound("LogTestThreads");
    std::vector<std::thread> vecThreads;
    for (int nThread = 0; nThread < cThreads; ++nThread)
    {
        vecThreads.emplace_back([&bound, nThread] {
            for (int n = 0; n < cLines; ++n)
                log(bound.log, cAll, "<%d %d>", nThread, n);
        });
    }
    for (std::thread& thread : vecThreads)
        thread.join();
    std::map<int, int> mapNext; // thread -> number of its next line
    for (const std::string& sLine : m_world.storedLines("LogTestThreads"))
    {
        int nThread = -1;
        int nLine = -1;
        char cEnd = 0;
        ASSERT_EQ(std::sscanf(sLine.c_str(), "<%d %d%c", &nThread, &nLine, &cEnd), 3) << sLine;
        ASSERT_EQ(cEnd, '>');
        ASSERT_EQ(nLine, mapNext[nThread]++) << "of thread " << nThread;
    }
    for (int nThread = 0; nThread < cThreads; ++nThread)
        EXPECT_EQ(mapNext[nThread], cLines);
}

TEST_F(LogTest, MaskComesWithTheBinding)
{
    CBoundLog bound("LogTestMask");
    EXPECT_EQ(bound.log.traceMask().load(), cMask);
}

TEST_F(LogTest, MaskStaysReadableWhenTheLogIsGone)
{
    const std::atomic<std::uint32_t>* pdwMask = nullptr;
    {
        CBoundLog bound("LogTestMaskGone");
        pdwMask = &bound.log.traceMask();
    }
    EXPECT_EQ(pdwMask->load(), cMask);
    CBoundLog again("LogTestMaskGone");
    EXPECT_EQ(&again.log.traceMask(), pdwMask) << "the name has one word";
}

TEST_F(LogTest, PriorityClassesDecideWhatIsStored)
{
    CBoundLog bound("LogTestPriority", 1, 0x2);
    EXPECT_TRUE(bound.log.IsTraceable(cAll));
    EXPECT_TRUE(bound.log.IsTraceable(0x2));
    EXPECT_FALSE(bound.log.IsTraceable(0x1));
    log(bound.log, 0x1, "not this");
    log(bound.log, 0x3, "but this");
    EXPECT_THAT(m_world.storedLines("LogTestPriority"), ElementsAre("but this"));
}

TEST_F(LogTest, ALogThatIsOffStoresNothing)
{
    CBoundLog bound("LogTestOff", 0);
    EXPECT_FALSE(bound.log.IsTraceable(cAll));
    log(bound.log, cAll, "nothing");
    EXPECT_THAT(m_world.storedLines("LogTestOff"), IsEmpty());
}

TEST_F(LogTest, ThrowsWhenTheLogCannotBeMade)
{
    m_world.refuseLogs();
    try
    {
        const CLogFile file("LogTestRefused", nullptr, false, true, false);
        FAIL() << "it was made";
    }
    catch (const KRException& exception)
    {
        EXPECT_LT(exception.code(), 0);
        EXPECT_STRNE(exception.location(), "");
    }
}

TEST_F(LogTest, ReportsOperatorEvents)
{
    CLogFile events("LogTestEvents", nullptr, false, true, true);
    const char* strings[] = {"one", "two"};
    EXPECT_GE(events.ReportEventToWIN32Log(0xC0000001U, 2, 0, strings, nullptr), 0);
    EXPECT_GE(events.ReportEventToWIN32Log(0x12U, 0, 0, static_cast<const char**>(nullptr), nullptr), 0);
    using CEvent = CConformanceWorld::CStoredEvent;
    EXPECT_THAT(m_world.storedEvents(),
                ElementsAre(CEvent{'i', "event 0xC0000001: one, two"}, CEvent{'i', "event 0x00000012"}));
}

TEST_F(LogTest, ReportsOperatorEventsWithTheirSeverity)
{
    CLogFile events("LogTestSeverity", nullptr, false, true, true);
    const char* strings[] = {"x"};
    for (const auto eSeverity : {CLogFile::re_none, CLogFile::re_information, CLogFile::re_warning, CLogFile::re_error})
        EXPECT_GE(events.ReportEventToWIN32LogX(1, 1, 0, strings, nullptr, eSeverity), 0);
    std::string sSeverities;
    for (const auto& event : m_world.storedEvents())
        sSeverities += event.cSeverity;
    EXPECT_EQ(sSeverities, "iiwe");
}

TEST_F(LogTest, ReportsWideOperatorEvents)
{
    CLogFile events("LogTestWideEvents", nullptr, false, true, true);
    const wchar_t* strings[] = {L"\u00E4", L"b"};
    EXPECT_GE(events.ReportEventToWIN32Log(1, 2, 0, strings, nullptr), 0);
    EXPECT_GE(events.ReportEventToWIN32LogX(2, 1, 0, strings, nullptr, CLogFile::re_error), 0);
    using CEvent = CConformanceWorld::CStoredEvent;
    EXPECT_THAT(m_world.storedEvents(),
                ElementsAre(CEvent{'i', "event 0x00000001: \xC3\xA4, b"}, CEvent{'e', "event 0x00000002: \xC3\xA4"}));
}
