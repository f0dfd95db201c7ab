// Reports to the operators' event log.

#include "CDSEventLog.h"
#include "CDSLogging.h"
#include "CDSResults.h"
#include "Fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned long cEvent = 0x81170A31UL;

class EventLogTest : public testing::Test
{
protected:
    EventLogTest()
        : m_pHelp(
              std::make_unique<CEventLogHelp>("Veltrane", CEventLogHelp::EFacility(279), CEventLogHelp::ESeverity(-2)))
    {
    }

    /// The one event that was reported.
    static CFakeLog::CEvent theEvent()
    {
        const auto vecEvents = CFakeLog::events();
        EXPECT_EQ(vecEvents.size(), 1U);
        return vecEvents.size() == 1 ? vecEvents[0] : CFakeLog::CEvent{};
    }
    long logVLA(unsigned long ulEventID, unsigned long ulCount, ...) const
    {
        va_list args;
        va_start(args, ulCount);
        const long lResult = m_pHelp->LogEventVLA(ulEventID, ulCount, args);
        va_end(args);
        return lResult;
    }
    long logVLW(unsigned long ulEventID, unsigned long ulCount, ...) const
    {
        va_list args;
        va_start(args, ulCount);
        const long lResult = m_pHelp->LogEventVLW(ulEventID, ulCount, args);
        va_end(args);
        return lResult;
    }

    CFakeWorld m_world;
    std::unique_ptr<CEventLogHelp> m_pHelp;
    const char* m_ppszTexts[2] = {"sip:1", "second"};
    const wchar_t* m_ppszWide[2] = {L"sip:1", L"zw\u00F6lf"};
};

// Life.

TEST_F(EventLogTest, ItsSourceIsItsOwnWhateverItIsGiven)
{
    const auto vecLogs = CFakeLog::creations();
    ASSERT_EQ(vecLogs.size(), 1U);
    EXPECT_EQ(vecLogs[0].sName, "OvnNTLog");
    EXPECT_TRUE(vecLogs[0].bSecondNameNull);
    EXPECT_FALSE(vecLogs[0].bAppendOnly);
    EXPECT_TRUE(vecLogs[0].bCreate);
    EXPECT_TRUE(vecLogs[0].bEvents);
}

TEST_F(EventLogTest, ConstructionInitializes)
{
    EXPECT_TRUE(m_pHelp->isInitialized());
}

TEST_F(EventLogTest, InitAndUninitSucceed)
{
    EXPECT_EQ(m_pHelp->Uninit(), 0);
    EXPECT_EQ(m_pHelp->Init(), 0);
    EXPECT_EQ(CFakeLog::alive(), 1U);
}

TEST_F(EventLogTest, UninitEndsTheLog)
{
    m_pHelp->Uninit();
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(EventLogTest, UninitSucceedsTwice)
{
    m_pHelp->Uninit();
    EXPECT_EQ(m_pHelp->Uninit(), 0);
}

TEST_F(EventLogTest, DestructionEndsTheLog)
{
    m_pHelp.reset();
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

// What every report passes on.

TEST_F(EventLogTest, CodeCountAndTextsArePassedOn)
{
    m_pHelp->LogEvent(CEventLogHelp::severity_error, CEventLogHelp::facility_none, cEvent, 2, m_ppszTexts, nullptr, 0);
    const auto event = theEvent();
    EXPECT_EQ(event.sLog, "OvnNTLog");
    EXPECT_EQ(event.dwEventID, 0x81170A31U);
    EXPECT_EQ(event.wCount, 2);
    EXPECT_EQ(event.wCategory, 0);
    EXPECT_EQ(event.pRawData, nullptr);
    EXPECT_THAT(event.vecStrings, ElementsAre("sip:1", "second"));
}

TEST_F(EventLogTest, NegativeCodesKeepTheirThirtyTwoBits)
{
    m_pHelp->LogEventA(static_cast<long>(static_cast<std::int32_t>(0x81170A31U)), 0, nullptr);
    EXPECT_EQ(theEvent().dwEventID, 0x81170A31U);
}

TEST_F(EventLogTest, CountsAreCutToSixteenBits)
{
    m_pHelp->LogEvent(cEvent, 65537, m_ppszTexts);
    EXPECT_EQ(theEvent().wCount, 1);
}

TEST_F(EventLogTest, CountsOfSimpleReportsAreCutToSixteenBits)
{
    m_pHelp->LogEventStrA(cEvent, 65537, m_ppszTexts);
    EXPECT_EQ(theEvent().wCount, 1);
}

TEST_F(EventLogTest, CountsOfTypedReportsAreCutToSixteenBits)
{
    m_pHelp->LogSwitchEvent(cEvent, CEventLogHelp::event_error, 65537, m_ppszTexts);
    EXPECT_EQ(theEvent().wCount, 1);
}

TEST_F(EventLogTest, EveryReportReturnsTheLogsResult)
{
    constexpr long cResult = -77;
    CFakeLog::setReportResult(cResult);
    EXPECT_EQ(
        m_pHelp->LogEvent(CEventLogHelp::severity_none, CEventLogHelp::facility_none, cEvent, 0, nullptr, nullptr, 0),
        cResult);
    EXPECT_EQ(
        m_pHelp->LogEvent(CEventLogHelp::severity_none, CEventLogHelp::facility_none, cEvent, 0, nullptr, nullptr, 1),
        cResult);
    EXPECT_EQ(m_pHelp->LogEventA(1, 0, nullptr), cResult);
    EXPECT_EQ(m_pHelp->LogEventW(1, 0, nullptr), cResult);
    EXPECT_EQ(m_pHelp->LogEvent(cEvent, 0, nullptr), cResult);
    EXPECT_EQ(m_pHelp->LogEventStrA(cEvent, 0, nullptr), cResult);
    EXPECT_EQ(m_pHelp->LogEventVA(1, 0), cResult);
    EXPECT_EQ(m_pHelp->LogEventVA(1, 1, "x"), cResult);
    EXPECT_EQ(m_pHelp->LogEventVW(1, 0), cResult);
    EXPECT_EQ(m_pHelp->LogEventV(1, 1, L"x"), cResult);
    EXPECT_EQ(m_pHelp->LogSwitchEvent(cEvent, CEventLogHelp::event_error, 0, nullptr), cResult);
}

// With severity.

TEST_F(EventLogTest, NarrowTextsUnlessWideOnesAreAskedFor)
{
    m_pHelp->LogEvent(CEventLogHelp::severity_none, CEventLogHelp::facility_none, cEvent, 1, m_ppszTexts, m_ppszWide,
                      0);
    EXPECT_FALSE(theEvent().bWide);
}

TEST_F(EventLogTest, WideTextsWhenTheyAreAskedFor)
{
    m_pHelp->LogEvent(CEventLogHelp::severity_none, CEventLogHelp::facility_none, cEvent, 2, m_ppszTexts, m_ppszWide,
                      7);
    const auto event = theEvent();
    EXPECT_TRUE(event.bWide);
    EXPECT_THAT(event.vecWide, ElementsAre(L"sip:1", L"zw\u00F6lf"));
}

TEST_F(EventLogTest, SeveritiesAreTheLogsUpToError)
{
    const std::pair<int, int> cSeverities[] = {{1, 1}, {2, 2}, {3, 3}, {4, 3}, {1000, 3}, {0, 0}, {-1, 0}, {-2, 0}};
    for (const auto& [nGiven, nPassed] : cSeverities)
        for (const unsigned long ulWide : {0UL, 1UL})
        {
            CFakeLog::clear();
            m_pHelp->LogEvent(CEventLogHelp::ESeverity(nGiven), CEventLogHelp::EFacility(nGiven), cEvent, 1,
                              m_ppszTexts, m_ppszWide, ulWide);
            EXPECT_TRUE(theEvent().bSeverity);
            EXPECT_EQ(theEvent().nSeverity, nPassed) << nGiven;
        }
}

TEST_F(EventLogTest, ShortFormsHaveNoSeverityToSpeakOf)
{
    m_pHelp->LogEventA(1, 1, m_ppszTexts);
    m_pHelp->LogEventW(1, 1, m_ppszWide);
    m_pHelp->LogEvent(cEvent, 1, m_ppszTexts);
    const auto vecEvents = CFakeLog::events();
    ASSERT_EQ(vecEvents.size(), 3U);
    for (const auto& event : vecEvents)
    {
        EXPECT_TRUE(event.bSeverity);
        EXPECT_EQ(event.nSeverity, 0);
    }
    EXPECT_FALSE(vecEvents[0].bWide);
    EXPECT_TRUE(vecEvents[1].bWide);
    EXPECT_FALSE(vecEvents[2].bWide);
}

TEST_F(EventLogTest, TypesHaveSeverities)
{
    const std::pair<int, int> cTypes[] = {{2, 1}, {3, 2}, {4, 3}, {5, 0}, {99, 0}};
    for (const auto& [nType, nSeverity] : cTypes)
    {
        CFakeLog::clear();
        m_pHelp->LogSwitchEvent(cEvent, CEventLogHelp::EVENT_TYPE(nType), 1, m_ppszTexts);
        EXPECT_TRUE(theEvent().bSeverity);
        EXPECT_EQ(theEvent().nSeverity, nSeverity) << nType;
    }
}

TEST_F(EventLogTest, TheLowestTypesAreNotReported)
{
    CFakeLog::setReportResult(-1);
    EXPECT_EQ(m_pHelp->LogSwitchEvent(cEvent, CEventLogHelp::EVENT_TYPE(0), 1, m_ppszTexts), 0);
    EXPECT_EQ(m_pHelp->LogSwitchEvent(cEvent, CEventLogHelp::EVENT_TYPE(1), 1, m_ppszTexts), 0);
    EXPECT_THAT(CFakeLog::events(), IsEmpty());
}

// Without severity.

TEST_F(EventLogTest, SimpleReportsHaveNoSeverityAtAll)
{
    m_pHelp->LogEventStrA(cEvent, 1, m_ppszTexts);
    logVLA(cEvent, 1, "x");
    logVLW(cEvent, 1, L"x");
    m_pHelp->LogEventVA(1, 1, "x");
    m_pHelp->LogEventVW(1, 1, L"x");
    m_pHelp->LogEventV(1, 1, L"x");
    EXPECT_EQ(CFakeLog::events().size(), 6U);
    for (const auto& event : CFakeLog::events())
        EXPECT_FALSE(event.bSeverity);
}

TEST_F(EventLogTest, ArgumentsKeepTheirOrder)
{
    m_pHelp->LogEventVA(static_cast<long>(cEvent), 3, "one", "two", "three");
    const auto event = theEvent();
    EXPECT_FALSE(event.bWide);
    EXPECT_EQ(event.dwEventID, 0x81170A31U);
    EXPECT_THAT(event.vecStrings, ElementsAre("one", "two", "three"));
}

TEST_F(EventLogTest, ArgumentListsKeepTheirOrder)
{
    logVLA(cEvent, 3, "one", "two", "three");
    EXPECT_THAT(theEvent().vecStrings, ElementsAre("one", "two", "three"));
}

TEST_F(EventLogTest, WideArgumentListsKeepTheirOrder)
{
    logVLW(cEvent, 3, L"one", L"two", L"three");
    EXPECT_TRUE(theEvent().bWide);
    EXPECT_THAT(theEvent().vecWide, ElementsAre(L"one", L"two", L"three"));
}

TEST_F(EventLogTest, WideArgumentsKeepTheirOrder)
{
    m_pHelp->LogEventVW(1, 2, L"one", L"two");
    EXPECT_TRUE(theEvent().bWide);
    EXPECT_THAT(theEvent().vecWide, ElementsAre(L"one", L"two"));
}

TEST_F(EventLogTest, TheUnsuffixedFormIsTheWideOne)
{
    m_pHelp->LogEventV(1, 2, L"one", L"two");
    EXPECT_TRUE(theEvent().bWide);
    EXPECT_THAT(theEvent().vecWide, ElementsAre(L"one", L"two"));
}

TEST_F(EventLogTest, WithoutArgumentsThereAreNoTexts)
{
    m_pHelp->LogEventVA(static_cast<long>(cEvent), 0);
    const auto event = theEvent();
    EXPECT_EQ(event.wCount, 0);
    EXPECT_TRUE(event.bStringsNull);
}

TEST_F(EventLogTest, WithoutWideArgumentsThereAreNoTexts)
{
    m_pHelp->LogEventVW(static_cast<long>(cEvent), 0);
    EXPECT_EQ(theEvent().wCount, 0);
    EXPECT_TRUE(theEvent().bStringsNull);
}

TEST_F(EventLogTest, AnImpossibleNumberOfArgumentsIsRefused)
{
    EXPECT_EQ(m_pHelp->LogEventVA(1, ~0UL), E_OUTOFMEMORY);
    EXPECT_THAT(CFakeLog::events(), IsEmpty());
}

} // namespace
