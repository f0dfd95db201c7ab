// The sink by itself: what it does with a database that takes records, or does not.
#include "cdr/CdrSink.h"
#include "CDSResults.h"
#include "Fakes.h"
#include "SampleRecord.h"
#include "TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <map>
#include <set>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::chrono::seconds cLong{20};
constexpr std::chrono::hours cNever{1};

/// Keeps rows in memory, or refuses them.
class CScriptedDatabase final : public CCdrDatabase
{
public:
    [[nodiscard]] ECdrWrite write(const CCdrRow& row, std::string* psError) override
    {
        const std::lock_guard guard(m_mutex);
        if (m_bDown || m_setHated.contains(row.sCallID))
        {
            *psError = "down";
            return ECdrWrite::failed;
        }
        const auto [it, bNew] = m_mapRows.try_emplace(row.sCallID, row.sRecord);
        return bNew ? ECdrWrite::stored : it->second == row.sRecord ? ECdrWrite::present : ECdrWrite::differs;
    }
    [[nodiscard]] bool list(std::size_t, CCdrListing*, std::string*) override { return false; }

    void setDown(bool bDown)
    {
        const std::lock_guard guard(m_mutex);
        m_bDown = bDown;
    }
    void hate(const std::string& sCallID) { m_setHated.insert(sCallID); }
    std::size_t rows()
    {
        const std::lock_guard guard(m_mutex);
        return m_mapRows.size();
    }

private:
    std::mutex m_mutex;
    std::map<std::string, std::string> m_mapRows; // call ID -> record
    bool m_bDown = false;
    std::set<std::string> m_setHated;
};

/// Counts those that are alive.
class CCountedRecord final : public CCallData
{
public:
    explicit CCountedRecord(const std::string& sCallID) : CCallData(sCallID) { ++s_nAlive; }
    ~CCountedRecord() override { --s_nAlive; }
    static int s_nAlive;
};
int CCountedRecord::s_nAlive = 0;

class CdrSinkTest : public testing::Test
{
protected:
    void starts(std::chrono::milliseconds retryPause = cNever, CRefusedCdrs::CLimits limits = {})
    {
        m_pSink.reset();
        m_pRefused.reset();
        m_pRefused = std::make_unique<CRefusedCdrs>(m_directory.file("refused"), limits);
        std::string sError;
        ASSERT_TRUE(m_pRefused->open(&sError)) << sError;
        m_pSink = std::make_unique<CCdrSink>(
            m_database, *m_pRefused,
            [this](ECdrEvent eEvent, const std::string& sText) {
                const std::lock_guard guard(m_mutex);
                m_vecEvents.push_back(eEvent);
                m_sLastEvent = sText;
            },
            retryPause);
    }
    /// Starts, and lets the look pass that comes with the start, so that it finds nothing of what comes later.
    void startsAndHasLookedForRefused()
    {
        starts();
        m_database.setDown(true);
        EXPECT_LT(gives("sip:before"), 0);
        m_database.setDown(false);
        starts();
        EXPECT_TRUE(m_pSink->awaitRecovered(cLong));
        const auto tpLimit = std::chrono::steady_clock::now() + cLong;
        while (events().size() < 2 && std::chrono::steady_clock::now() < tpLimit)
            std::this_thread::yield();
        const std::lock_guard guard(m_mutex);
        m_vecEvents.clear();
    }
    /// Gives the sink a record, as the store does: what it does not take goes.
    long gives(const std::string& sCallID, const std::string& sCaller = "alice")
    {
        auto* const pRecord = new CCountedRecord(sCallID);
        fillSample(*pRecord, sCaller);
        auto* const pMsg = new CCallbackMsg(0UL, "", ccbr_cdrcalldata, pRecord, 0, "10.0.0.1");
        const long lResult = m_pSink->take(pMsg);
        if (lResult < 0)
        {
            EXPECT_EQ(CCountedRecord::s_nAlive, 1);
            delete pRecord;
            delete pMsg;
        }
        EXPECT_EQ(CCountedRecord::s_nAlive, 0); // whoever had to let it go did
        return lResult;
    }
    std::vector<ECdrEvent> events()
    {
        const std::lock_guard guard(m_mutex);
        return m_vecEvents;
    }

    CFakeWorld m_world;
    CTemporaryDirectory m_directory;
    CScriptedDatabase m_database;
    std::mutex m_mutex;
    std::vector<ECdrEvent> m_vecEvents;
    std::string m_sLastEvent;
    std::unique_ptr<CRefusedCdrs> m_pRefused;
    std::unique_ptr<CCdrSink> m_pSink;
};

TEST_F(CdrSinkTest, ARecordIsInTheDatabaseWhenItIsTaken)
{
    starts();
    EXPECT_EQ(gives("sip:1"), 0);
    EXPECT_EQ(m_database.rows(), 1U);
    EXPECT_EQ(gives("sip:1"), 0);
    EXPECT_EQ(m_pSink->counts().ullReceived, 2U);
    EXPECT_EQ(m_pSink->counts().ullStored, 1U);
    EXPECT_EQ(m_pSink->counts().ullPresent, 1U);
    EXPECT_THAT(events(), IsEmpty());
}

TEST_F(CdrSinkTest, OtherContentIsCountedAndTold)
{
    starts();
    EXPECT_EQ(gives("sip:1"), 0);
    EXPECT_EQ(gives("sip:1", "mallory"), 0);
    EXPECT_EQ(m_pSink->counts().ullDiffering, 1U);
    EXPECT_THAT(events(), ElementsAre(ECdrEvent::differs));
    EXPECT_THAT(m_sLastEvent, testing::HasSubstr("sip:1 of 10.0.0.1"));
}

TEST_F(CdrSinkTest, ARefusedRecordIsKeptAndWrittenAfterTheNextSuccess)
{
    startsAndHasLookedForRefused();
    const auto ullRecovered = m_pSink->counts().ullRecovered; // the one of before, unless the sink of before did it
    m_database.setDown(true);
    EXPECT_LT(gives("sip:1"), 0);
    EXPECT_LT(gives("sip:2"), 0);
    EXPECT_THAT(events(), ElementsAre(ECdrEvent::refused, ECdrEvent::refused));
    EXPECT_EQ(m_pSink->counts().ullWaiting, 2U);
    m_database.setDown(false);
    EXPECT_EQ(gives("sip:3"), 0);
    ASSERT_TRUE(m_pSink->awaitRecovered(cLong));
    EXPECT_EQ(m_database.rows(), 4U); // with the one of before
    EXPECT_EQ(m_pSink->counts().ullRecovered, ullRecovered + 2);
    EXPECT_EQ(m_pSink->counts().ullLost, 0U);
    EXPECT_THAT(events(), ElementsAre(ECdrEvent::refused, ECdrEvent::refused, ECdrEvent::recovered));
    EXPECT_TRUE(std::filesystem::is_empty(m_directory.file("refused")));
}

TEST_F(CdrSinkTest, ARefusedRecordIsWrittenByTheNextStart)
{
    starts();
    m_database.setDown(true);
    EXPECT_LT(gives("sip:1"), 0);
    m_database.setDown(false);
    starts();
    ASSERT_TRUE(m_pSink->awaitRecovered(cLong));
    EXPECT_EQ(m_database.rows(), 1U);
}

TEST_F(CdrSinkTest, ARefusedRecordIsWrittenAfterAWhile)
{
    starts(std::chrono::milliseconds{5});
    m_database.setDown(true);
    EXPECT_LT(gives("sip:1"), 0);
    m_database.setDown(false);
    ASSERT_TRUE(m_pSink->awaitRecovered(cLong));
    EXPECT_EQ(m_database.rows(), 1U);
}

TEST_F(CdrSinkTest, ARecordThatIsAlwaysRefusedKeepsNoOtherBack)
{
    starts();
    m_database.hate("sip:1");
    m_database.setDown(true);
    EXPECT_LT(gives("sip:1"), 0);
    EXPECT_LT(gives("sip:2"), 0);
    m_database.setDown(false);
    starts(std::chrono::milliseconds{5});
    const auto tpLimit = std::chrono::steady_clock::now() + cLong;
    while (m_pSink->counts().ullWaiting != 1 && std::chrono::steady_clock::now() < tpLimit)
        std::this_thread::yield();
    EXPECT_EQ(m_database.rows(), 1U);
    EXPECT_EQ(m_pSink->counts().ullWaiting, 1U);
}

TEST_F(CdrSinkTest, ManyThatAreAlwaysRefusedKeepNoOtherBack)
{
    starts();
    m_database.setDown(true);
    constexpr unsigned cHated = 20; // more than make a round give up
    for (unsigned u = 0; u < cHated; ++u)
    {
        m_database.hate("sip:" + std::to_string(u));
        EXPECT_LT(gives("sip:" + std::to_string(u)), 0);
    }
    EXPECT_LT(gives("sip:last"), 0);
    m_database.setDown(false);
    starts(std::chrono::milliseconds{5});
    const auto tpLimit = std::chrono::steady_clock::now() + cLong;
    while (m_pSink->counts().ullWaiting != cHated && std::chrono::steady_clock::now() < tpLimit)
        std::this_thread::yield();
    EXPECT_EQ(m_database.rows(), 1U);
}

TEST_F(CdrSinkTest, BeyondTheLimitRecordsAreLostAndTold)
{
    starts(cNever, {1, 1'000'000});
    m_database.setDown(true);
    EXPECT_LT(gives("sip:1"), 0);
    EXPECT_LT(gives("sip:2"), 0);
    EXPECT_THAT(events(), ElementsAre(ECdrEvent::refused, ECdrEvent::lost));
    EXPECT_THAT(m_sLastEvent, testing::HasSubstr("sip:2"));
    EXPECT_EQ(m_pSink->counts().ullRefused, 2U);
    EXPECT_EQ(m_pSink->counts().ullLost, 1U);
}

TEST_F(CdrSinkTest, AFileThatIsNoRecordIsPutAside)
{
    std::filesystem::create_directory(m_directory.file("refused"));
    m_directory.write("refused/1.cdr", "cds-refused-cdr 1\norigin h\nreceived 1\nbytes 3\n\nabc");
    m_directory.write("refused/2.cdr", "something");
    starts();
    ASSERT_TRUE(m_pSink->awaitRecovered(cLong));
    EXPECT_THAT(events(), ElementsAre(ECdrEvent::unreadable, ECdrEvent::unreadable));
    EXPECT_TRUE(std::filesystem::exists(m_directory.file("refused/2.cdr.unreadable")));
}

TEST_F(CdrSinkTest, WithoutARecordNothingIsTaken)
{
    starts();
    CCallbackMsg msg(0UL, "", ccbr_cdrcalldata, nullptr, 0);
    EXPECT_EQ(m_pSink->take(&msg), E_CDS_NULLDATA);
    m_pSink.reset();
    EXPECT_LT(CCdrSink::onCdr(&msg), 0);
}

} // namespace
