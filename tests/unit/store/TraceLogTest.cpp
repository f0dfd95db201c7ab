// The trace log: its life, its levels, its lines.

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSResults.h"
#include "Fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TraceLogTest : public testing::Test
{
protected:
    TraceLogTest() { CCDSLogging::finalizeLogger(); }
    ~TraceLogTest() override { CCDSLogging::finalizeLogger(); }

    static void trace(std::uint32_t dwMask) { CFakeLog::setTraceMask("OvnCDS", dwMask); }
    static void writeOneLineOfEachLevel()
    {
        CCDSLogging::logError("error");
        CCDSLogging::logWarning("warning");
        CCDSLogging::logTimePlusWarning("timed warning");
        CCDSLogging::logInfo("information");
        CCDSLogging::log(CCDSLogging::level_detail, "detail");
        CCDSLogging::logAlways("always");
    }

    CFakeWorld m_world;
};

// Life.

TEST_F(TraceLogTest, IsNotThereBeforeItIsUsed)
{
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
    EXPECT_EQ(CCDSLogging::pCDSLogReg, nullptr);
}

TEST_F(TraceLogTest, IsMadeWithItsNameAndFlags)
{
    CCDSLogging::initLogger();
    const auto vecLogs = CFakeLog::creations();
    ASSERT_EQ(vecLogs.size(), 1U);
    EXPECT_EQ(vecLogs[0].sName, "OvnCDS");
    EXPECT_TRUE(vecLogs[0].bSecondNameNull);
    EXPECT_FALSE(vecLogs[0].bAppendOnly);
    EXPECT_TRUE(vecLogs[0].bCreate);
    EXPECT_FALSE(vecLogs[0].bEvents);
}

TEST_F(TraceLogTest, IsBoundToItsConfigurationKeyWithItsDefaults)
{
    CCDSLogging::initLogger();
    const auto vecRegistries = CFakeLog::registries();
    ASSERT_EQ(vecRegistries.size(), 1U);
    EXPECT_EQ(vecRegistries[0].sLog, "OvnCDS");
    EXPECT_EQ(vecRegistries[0].sKey, "Orvane");
    EXPECT_EQ(vecRegistries[0].sSubKey, "CDS");
    EXPECT_TRUE(vecRegistries[0].bReserved1Null);
    EXPECT_TRUE(vecRegistries[0].bReserved2Null);
    EXPECT_THAT(vecRegistries[0].arrNumbers,
                ElementsAre(0, 1, 100, 1000, 3, 1023, 0, 1023, 0, 10000, 0, 1, 40000, 1, 0));
}

TEST_F(TraceLogTest, BothPartsAreThereOnceMade)
{
    CCDSLogging::initLogger();
    EXPECT_NE(CCDSLogging::pCDSLog, nullptr);
    EXPECT_NE(CCDSLogging::pCDSLogReg, nullptr);
}

TEST_F(TraceLogTest, IsMadeOnce)
{
    CCDSLogging::initLogger();
    const auto* const pLog = CCDSLogging::pCDSLog;
    CCDSLogging::initLogger();
    EXPECT_EQ(CCDSLogging::pCDSLog, pLog);
    EXPECT_EQ(CFakeLog::creations().size(), 1U);
}

TEST_F(TraceLogTest, ItsBindingEndsBeforeTheLog)
{
    CCDSLogging::initLogger();
    CCDSLogging::finalizeLogger();
    EXPECT_THAT(CFakeLog::lifeCycle(), ElementsAre("CLogFile OvnCDS", "CLogFileRegistry OvnCDS",
                                                   "~CLogFileRegistry OvnCDS", "~CLogFile OvnCDS"));
}

TEST_F(TraceLogTest, NeitherPartIsThereAfterwards)
{
    CCDSLogging::initLogger();
    CCDSLogging::finalizeLogger();
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
    EXPECT_EQ(CCDSLogging::pCDSLogReg, nullptr);
}

TEST_F(TraceLogTest, EndsTwiceWithoutHarm)
{
    CCDSLogging::initLogger();
    CCDSLogging::finalizeLogger();
    CCDSLogging::finalizeLogger();
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(TraceLogTest, TheFirstLineMakesIt)
{
    trace(1);
    CCDSLogging::logError("hello");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("hello"));
}

TEST_F(TraceLogTest, TheFirstLineAfterItsEndMakesItAgain)
{
    trace(1);
    CCDSLogging::initLogger();
    CCDSLogging::finalizeLogger();
    CCDSLogging::logError("hello");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("hello"));
    EXPECT_NE(CCDSLogging::pCDSLog, nullptr);
}

TEST_F(TraceLogTest, ManyThreadsMakeItOnce)
{
    constexpr int cThreads = 8;
    trace(1);
    std::barrier barStart(cThreads);
    std::vector<std::jthread> vecThreads;
    for (int i = 0; i < cThreads; ++i)
        vecThreads.emplace_back([&barStart, i] {
            barStart.arrive_and_wait();
            if (i % 2 == 0)
                CCDSLogging::initLogger();
            CCDSLogging::logError("from %d", i);
        });
    vecThreads.clear();
    EXPECT_EQ(CFakeLog::creations().size(), 1U);
    EXPECT_EQ(CFakeLog::lines().size(), std::size_t{cThreads});
}

TEST_F(TraceLogTest, WithoutItNothingIsWritten)
{
    trace(0xFFFFFFFF);
    char szText[80];
    const unsigned char cByte = 'x';
    void (*const aWriters[])() = {
        [] { CCDSLogging::initLogger(); },
        [] { CCDSLogging::logError("error %d", 1); },
        [] { CCDSLogging::logWarning("warning %d", 1); },
        [] { CCDSLogging::logTimePlusWarning("timed warning %d", 1); },
        [] { CCDSLogging::logInfo("information %d", 1); },
        [] { CCDSLogging::logAlways("always %d", 1); },
        [] { CCDSLogging::log(CCDSLogging::level_detail, "detail %d", 1); },
        [] { CCDSLogging::logHRESULT(E_FAIL, "failed %d", 1); },
        [] { EXPECT_FALSE(CCDSLogging::checkTraceLevel(CCDSLogging::level_error)); },
    };
    for (const auto pfnWrite : aWriters)
    {
        CFakeLog::failNextCreation(E_FAIL);
        pfnWrite();
        EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
    }
    CCDSLogging::hexascii(&cByte, 1, szText, sizeof szText);
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr); // it has no use for one
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
    EXPECT_THAT(CFakeLog::creations(), IsEmpty());
}

TEST_F(TraceLogTest, ALineThatFindsNoLogIsDropped)
{
    trace(1);
    CFakeLog::failNextCreation(E_FAIL);
    CCDSLogging::logError("lost");
    CCDSLogging::logError("kept");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("kept"));
}

TEST_F(TraceLogTest, WithoutItsBindingItIsNotThereEither)
{
    CFakeLog::failNextRegistry(E_FAIL);
    CCDSLogging::initLogger();
    EXPECT_EQ(CCDSLogging::pCDSLog, nullptr);
    EXPECT_EQ(CCDSLogging::pCDSLogReg, nullptr);
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

// Levels.

TEST_F(TraceLogTest, ByDefaultErrorsAndWarningsAreWritten)
{
    writeOneLineOfEachLevel();
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("error", "warning", "timed warning", "always"));
}

TEST_F(TraceLogTest, WithoutAnyLevelNothingIsWritten)
{
    trace(0);
    writeOneLineOfEachLevel();
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
}

TEST_F(TraceLogTest, EachLevelHasItsOwnBit)
{
    const std::pair<std::uint32_t, std::vector<std::string>> cLevels[] = {
        {1, {"error", "always"}},       {2, {"warning", "timed warning", "always"}},
        {4, {"information", "always"}}, {8, {"always"}},
        {16, {"detail", "always"}},     {0x80000000U, {"always"}},
    };
    for (const auto& [dwMask, vecTexts] : cLevels)
    {
        CFakeLog::clear();
        trace(dwMask);
        writeOneLineOfEachLevel();
        EXPECT_EQ(CFakeLog::texts(), vecTexts) << "mask " << dwMask;
    }
}

TEST_F(TraceLogTest, LevelsMayBeCombined)
{
    trace(4);
    CCDSLogging::log(6, "one of two");
    CCDSLogging::log(3, "neither");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("one of two"));
}

TEST_F(TraceLogTest, TheMaskMayChangeWhileRunning)
{
    trace(1);
    CCDSLogging::logInfo("off");
    trace(4);
    CCDSLogging::logInfo("on");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("on"));
}

TEST_F(TraceLogTest, ALevelIsCheckedAgainstTheMask)
{
    trace(5);
    EXPECT_TRUE(CCDSLogging::checkTraceLevel(1));
    EXPECT_FALSE(CCDSLogging::checkTraceLevel(2));
    EXPECT_TRUE(CCDSLogging::checkTraceLevel(4));
    EXPECT_FALSE(CCDSLogging::checkTraceLevel(16));
}

TEST_F(TraceLogTest, ALevelThatIsOnIsCheckedWithTheLogToo)
{
    trace(1);
    CFakeLog::setTraceable(false);
    EXPECT_FALSE(CCDSLogging::checkTraceLevel(1));
    EXPECT_THAT(CFakeLog::traceableQueries(), ElementsAre(0x3FF));
}

TEST_F(TraceLogTest, ALevelThatIsOffIsNotCheckedWithTheLog)
{
    trace(1);
    CFakeLog::setTraceable(true);
    EXPECT_FALSE(CCDSLogging::checkTraceLevel(4));
    EXPECT_THAT(CFakeLog::traceableQueries(), IsEmpty());
}

TEST_F(TraceLogTest, CheckingALevelMakesTheLog)
{
    EXPECT_TRUE(CCDSLogging::checkTraceLevel(1)); // the default mask
    EXPECT_NE(CCDSLogging::pCDSLog, nullptr);
}

TEST_F(TraceLogTest, NoLevelIsOnWithoutLog)
{
    trace(0xFFFFFFFF);
    CFakeLog::failNextCreation(E_FAIL);
    EXPECT_FALSE(CCDSLogging::checkTraceLevel(1));
}

// Lines.

TEST_F(TraceLogTest, EveryLineGoesToTheLogWithAllPrioritiesAndNothingElse)
{
    trace(0xFFFFFFFF);
    writeOneLineOfEachLevel();
    CCDSLogging::CDSDbgOut(1, L"wide");
    const auto vecLines = CFakeLog::lines();
    ASSERT_EQ(vecLines.size(), 7U);
    for (const auto& line : vecLines)
    {
        EXPECT_EQ(line.sLog, "OvnCDS");
        EXPECT_EQ(line.nPriority, 0x3FF);
        EXPECT_TRUE(line.bReservedNull);
    }
}

TEST_F(TraceLogTest, NoFormatNoLine)
{
    trace(1);
    // Through pointers, whose types carry no format check: a compiler that sees the call would refuse it.
    void (*const pfnWrite)(unsigned long, const char*, va_list) noexcept = &CCDSLogging::CDSDbgOutX;
    void (*const pfnResult)(long, const char*, ...) noexcept = &CCDSLogging::logHRESULT;
    va_list args{};
    pfnWrite(1, nullptr, args);
    pfnResult(E_CDS_NOTFOUND, nullptr);
    EXPECT_THAT(CFakeLog::lines(), IsEmpty());
}

TEST_F(TraceLogTest, ArgumentsOfEveryWidthAreFormatted)
{
    trace(1);
    CCDSLogging::CDSDbgOut(1, "%d %s %llu %08X %c", -7, "text", 18446744073709551615ULL, 0xC1170A28U, 'x');
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("-7 text 18446744073709551615 C1170A28 x"));
}

TEST_F(TraceLogTest, WideLinesStayWide)
{
    trace(1);
    CCDSLogging::CDSDbgOut(1, L"%d %llu", -7, 18446744073709551615ULL);
    const auto vecLines = CFakeLog::lines();
    ASSERT_EQ(vecLines.size(), 1U);
    EXPECT_TRUE(vecLines[0].bWide);
    EXPECT_EQ(vecLines[0].sText, "-7 18446744073709551615");
}

TEST_F(TraceLogTest, NarrowLinesStayNarrow)
{
    trace(1);
    CCDSLogging::CDSDbgOut(1, "%d", 7);
    ASSERT_EQ(CFakeLog::lines().size(), 1U);
    EXPECT_FALSE(CFakeLog::lines()[0].bWide);
}

TEST_F(TraceLogTest, WideLinesHaveLevelsToo)
{
    trace(1);
    CCDSLogging::CDSDbgOut(2, L"off");
    EXPECT_THAT(CFakeLog::lines(), IsEmpty());
}

TEST_F(TraceLogTest, AHookDoesNotRedirectOutput)
{
    static std::atomic<int> s_nHooked = 0;
    trace(1);
    CCDSNetProxy::SetDbgOutHook([](unsigned long, const char*, va_list) { ++s_nHooked; });
    CCDSLogging::logError("hello");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("hello"));
    EXPECT_EQ(s_nHooked, 0);
}

TEST_F(TraceLogTest, ManyThreadsLoseNoLine)
{
    constexpr int cThreads = 4;
    constexpr int cLines = 500;
    trace(1);
    std::vector<std::jthread> vecThreads;
    for (int i = 0; i < cThreads; ++i)
        vecThreads.emplace_back([i] {
            for (int n = 0; n < cLines; ++n)
                CCDSLogging::logError("%d.%d", i, n);
        });
    vecThreads.clear();
    const auto vecTexts = CFakeLog::texts();
    EXPECT_EQ(vecTexts.size(), std::size_t{cThreads * cLines});
    for (int i = 0; i < cThreads; ++i)
        for (int n = 0; n < cLines; n += 100)
            EXPECT_EQ(CFakeLog::countExactly(std::to_string(i) + "." + std::to_string(n)), 1U);
}

// Failures.

TEST_F(TraceLogTest, SuccessIsNoError)
{
    CCDSLogging::logHRESULT(0, "Send");
    CCDSLogging::logHRESULT(1, "Send");
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
}

TEST_F(TraceLogTest, FailureIsAnError)
{
    trace(1);
    CCDSLogging::logHRESULT(E_FAIL, "Send");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("(Error) Send failed: 0x80004005"));
}

TEST_F(TraceLogTest, FailureIsAnErrorLevelLine)
{
    trace(~1U);
    CCDSLogging::logHRESULT(E_FAIL, "Send");
    EXPECT_THAT(CFakeLog::texts(), IsEmpty());
}

TEST_F(TraceLogTest, ABareCodeIsAFailureWhateverTheWidthOfLong)
{
    CCDSLogging::logHRESULT(static_cast<long>(0x80004005UL), "Send");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("(Error) Send failed: 0x80004005"));
}

TEST_F(TraceLogTest, FailureFormatsItsArguments)
{
    CCDSLogging::logHRESULT(E_FAIL, "Send %s.%d", "CDSStore", 52);
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("(Error) Send CDSStore.52 failed: 0x80004005"));
}

TEST_F(TraceLogTest, LongTextsOfFailuresAreCut)
{
    const std::string sLong(300, 'x');
    CCDSLogging::logHRESULT(E_FAIL, "%s", sLong.c_str());
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("(Error) " + std::string(255, 'x') + " failed: 0x80004005"));
}

TEST_F(TraceLogTest, APercentSignInATextOfAFailureIsJustThat)
{
    CCDSLogging::logHRESULT(E_FAIL, "%s", "100%s %n");
    EXPECT_THAT(CFakeLog::texts(), ElementsAre("(Error) 100%s %n failed: 0x80004005"));
}

} // namespace
