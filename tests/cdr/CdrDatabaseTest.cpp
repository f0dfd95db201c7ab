// What every database does, SQLite's file and a PostgreSQL server alike.
#include "CdrWorld.h"
#include "cdr/CdrSink.h"

#include <gmock/gmock.h>

namespace {

using std::string_literals::operator""s;
using testing::HasSubstr;

/// The table as the first version made it, with a row.
constexpr const char* cFirstSqlite =
    "CREATE TABLE cds_schema (version INTEGER NOT NULL); INSERT INTO cds_schema VALUES (1);"
    "CREATE TABLE cdr (call_id TEXT NOT NULL, origin TEXT NOT NULL, received_at TEXT NOT NULL, caller TEXT,"
    " caller_name TEXT, called TEXT, called_name TEXT, connected TEXT, originator_ip TEXT, relation TEXT,"
    " related_call_id TEXT, comment TEXT, started_at TEXT, answered_at TEXT, ended_at TEXT, outcome TEXT NOT NULL,"
    " properties TEXT NOT NULL, log_entries TEXT NOT NULL, record BLOB NOT NULL, PRIMARY KEY (call_id, origin));"
    "INSERT INTO cdr (call_id, origin, received_at, outcome, properties, log_entries, record)"
    " VALUES ('sip:old', '10.0.0.1', '2025-11-21T00:00:00.0000000Z', 'answered', '{}', '{}', x'C3A400FF')";
constexpr const char* cFirstPostgres =
    "CREATE TABLE cds_schema (version integer NOT NULL); INSERT INTO cds_schema VALUES (1);"
    "CREATE TABLE cdr (call_id text NOT NULL, origin text NOT NULL, received_at timestamptz NOT NULL, caller text,"
    " caller_name text, called text, called_name text, connected text, originator_ip text, relation text,"
    " related_call_id text, comment text, started_at timestamptz, answered_at timestamptz, ended_at timestamptz,"
    " outcome text NOT NULL, properties jsonb NOT NULL, log_entries jsonb NOT NULL, record bytea NOT NULL,"
    " PRIMARY KEY (call_id, origin));"
    "INSERT INTO cdr (call_id, origin, received_at, outcome, properties, log_entries, record)"
    " VALUES ('sip:old', '10.0.0.1', '2025-11-21T00:00:00.0000000Z', 'answered', '{}', '{}', '\\xC3A400FF')";

class CdrDatabaseTest : public testing::TestWithParam<std::string>
{
protected:
    static void TearDownTestSuite() { s_pServer.reset(); }
    void SetUp() override
    {
        if (GetParam() == "PostgreSQL")
        {
            if (const std::string sWhyNot = CPostgresServer::whyNot(); !sWhyNot.empty())
                GTEST_SKIP() << sWhyNot;
            if (s_pServer == nullptr)
                s_pServer = std::make_unique<CPostgresServer>();
            m_pWorld = makeCdrWorld(s_pServer.get());
        }
        else
            m_pWorld = makeCdrWorld(nullptr);
    }
    std::unique_ptr<CCdrDatabase> opened(ECdrOpen eOpen = ECdrOpen::write)
    {
        m_sError.clear();
        return openCdrDatabase(m_pWorld->url(), eOpen, &m_sError);
    }
    ECdrWrite writes(CCdrDatabase& database, const CCdrRow& row)
    {
        m_sError.clear();
        return database.write(row, &m_sError);
    }
    std::string rows() { return m_pWorld->query("SELECT count(*) FROM cdr"); }

    static std::unique_ptr<CPostgresServer> s_pServer; // one for all cases, which begin with an empty database
    std::unique_ptr<CCdrWorld> m_pWorld;
    std::string m_sError;
};
std::unique_ptr<CPostgresServer> CdrDatabaseTest::s_pServer;

TEST_P(CdrDatabaseTest, ARowCanBeAskedFor)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    ASSERT_EQ(writes(*pDatabase, sampleRow("sip:1")), ECdrWrite::stored) << m_sError;
    EXPECT_EQ(m_pWorld->query("SELECT caller FROM cdr WHERE call_id = 'sip:1' AND origin = '10.0.0.1'"), "alice");
    EXPECT_EQ(m_pWorld->query("SELECT outcome FROM cdr WHERE started_at >= '2025-11-21'"), "answered");
    EXPECT_EQ(m_pWorld->query("SELECT count(*) FROM cdr WHERE comment IS NULL"), "1");
    EXPECT_EQ(m_pWorld->jsonValue("properties", "CALLEDID", "value"), "bob");
    EXPECT_EQ(m_pWorld->query(m_pWorld->isPostgres()
                                  ? "SELECT log_entries->'CONNECT_ENTRY'->0->>'time' FROM cdr"
                                  : "SELECT json_extract(log_entries, '$.CONNECT_ENTRY[0].time') FROM cdr"),
              "2025-11-21T00:00:02.0000000Z");
    EXPECT_EQ(m_pWorld->query("SELECT record_bytes FROM cdr"), std::to_string(sampleRow("sip:1").sRecord.size()));
}

TEST_P(CdrDatabaseTest, TheSameRowAgainChangesNothing)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    CCdrRow row = sampleRow("sip:1");
    ASSERT_EQ(writes(*pDatabase, row), ECdrWrite::stored);
    const std::string sReceived = m_pWorld->query("SELECT received_at FROM cdr");
    row.sReceivedAt = "2025-11-22T00:00:00.0000000Z"; // later, this time
    EXPECT_EQ(writes(*pDatabase, row), ECdrWrite::present);
    EXPECT_EQ(writes(*opened(), row), ECdrWrite::present); // also by another program
    EXPECT_EQ(m_pWorld->query("SELECT received_at FROM cdr"), sReceived);
    EXPECT_EQ(rows(), "1");
}

TEST_P(CdrDatabaseTest, OtherContentDiffersAndTheFirstStays)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    ASSERT_EQ(writes(*pDatabase, sampleRow("sip:1")), ECdrWrite::stored);
    EXPECT_EQ(writes(*pDatabase, sampleRow("sip:1", "mallory")), ECdrWrite::differs);
    EXPECT_EQ(m_pWorld->query("SELECT caller FROM cdr"), "alice");
    EXPECT_EQ(rows(), "1");
    EXPECT_EQ(writes(*pDatabase, sampleRow("sip:1", "mallory", "10.0.0.2")), ECdrWrite::stored); // another server's
    EXPECT_EQ(rows(), "2");
}

TEST_P(CdrDatabaseTest, HostileValuesSurvive)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    CCallData record("sip:'; DROP TABLE cdr; --\0\xFF\\\""s);
    setValue(record, CDSPROP_CALLERID, "a\0b\0"s);
    setValue(record, CDSPROP_CALLEDID, "\xFF\xFE'\"\\"s);
    setValue(record, CDSPROP_COMMENT, text("$1 ?1 %s {} \\x00 \\u0000 \xE2\x82\xAC"));
    setValue(record, "", "");
    setValue(record, "\0'\""s, "x");
    appendEntry(record, "LOG\xC3", "\0"s, 5);
    const CCdrRow row = makeCdrRow(record, "10.0.0.1", cSampleTime);
    ASSERT_EQ(writes(*pDatabase, row), ECdrWrite::stored) << m_sError;
    EXPECT_EQ(m_pWorld->record(), textOf(record));
    EXPECT_EQ(m_pWorld->query("SELECT call_id FROM cdr"), "sip:'; DROP TABLE cdr; --\\x00\\xFF\\x5C\"");
    EXPECT_EQ(m_pWorld->query("SELECT comment FROM cdr"), "$1 ?1 %s {} \\x00 \\u0000 \xE2\x82\xAC");
    EXPECT_EQ(m_pWorld->jsonValue("properties", "CALLERID", "base64"), "YQBi");
    EXPECT_EQ(writes(*pDatabase, row), ECdrWrite::present);
}

TEST_P(CdrDatabaseTest, LargeValuesSurvive)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    const std::string sLarge(1'000'000, 'x');
    CCallData record("sip:" + std::string(100'000, 'y'));
    setValue(record, CDSPROP_CALLERID, text(sLarge));
    setValue(record, CDSPROP_CALLEDID, std::string(400'000, '\0'));
    CCdrRow row = makeCdrRow(record, "10.0.0.1", cSampleTime);
    ASSERT_EQ(writes(*pDatabase, row), ECdrWrite::stored) << m_sError;
    EXPECT_EQ(m_pWorld->query("SELECT length(caller) FROM cdr"), "1000000");
    EXPECT_EQ(writes(*pDatabase, row), ECdrWrite::present);
    // Too large for the record's own text, so the difference is in the columns alone.
    setValue(record, CDSPROP_CALLERID, text(std::string(1'000'000, 'z')), 1);
    row.sProperties = makeCdrRow(record, "10.0.0.1", cSampleTime).sProperties;
    EXPECT_EQ(writes(*pDatabase, row), ECdrWrite::differs);
}

TEST_P(CdrDatabaseTest, AnOlderSchemaIsBroughtForward)
{
    (void)m_pWorld->query(m_pWorld->isPostgres() ? cFirstPostgres : cFirstSqlite);
    EXPECT_EQ(opened(ECdrOpen::read), nullptr);
    EXPECT_THAT(m_sError, HasSubstr("schema version 1, older than 2"));
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    EXPECT_EQ(m_pWorld->query("SELECT version FROM cds_schema"), "2");
    EXPECT_EQ(m_pWorld->query("SELECT record_bytes FROM cdr WHERE call_id = 'sip:old'"), "4");
    EXPECT_EQ(writes(*pDatabase, sampleRow("sip:1")), ECdrWrite::stored) << m_sError;
    EXPECT_EQ(rows(), "2");
    EXPECT_NE(opened(), nullptr) << m_sError; // and stays as it is
    EXPECT_EQ(rows(), "2");
}

TEST_P(CdrDatabaseTest, ANewerSchemaIsRefused)
{
    ASSERT_NE(opened(), nullptr) << m_sError;
    (void)m_pWorld->query("UPDATE cds_schema SET version = 3");
    for (const ECdrOpen eOpen : {ECdrOpen::write, ECdrOpen::read})
    {
        EXPECT_EQ(opened(eOpen), nullptr);
        EXPECT_THAT(m_sError, HasSubstr("schema version 3, this program knows versions up to 2"));
    }
    EXPECT_EQ(m_pWorld->query("SELECT version FROM cds_schema"), "3");
}

TEST_P(CdrDatabaseTest, ReadingMakesNothing)
{
    EXPECT_EQ(opened(ECdrOpen::read), nullptr);
    EXPECT_NE(m_sError, "");
}

TEST_P(CdrDatabaseTest, ALockedTableRefusesInTimeAndIsThereAgain)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    ASSERT_EQ(writes(*pDatabase, sampleRow("sip:0")), ECdrWrite::stored) << m_sError;
    const auto begin = std::chrono::steady_clock::now();
    {
        const auto pLock = m_pWorld->lockTable();
        for (int n = 1; n <= 100; ++n)
            ASSERT_EQ(writes(*pDatabase, sampleRow("sip:" + std::to_string(n))), ECdrWrite::failed);
        EXPECT_THAT(m_sError, HasSubstr("lock"));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{5}); // a hundred waits would be 25
    const auto limit = begin + std::chrono::seconds{30};
    while (writes(*pDatabase, sampleRow("sip:1")) != ECdrWrite::stored)
        ASSERT_LT(std::chrono::steady_clock::now(), limit) << m_sError;
    EXPECT_EQ(rows(), "2");
}

TEST_P(CdrDatabaseTest, WhatIsThereIsListed)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    for (const char* const pszCall : {"sip:2", "sip:1", "sip:3"})
        ASSERT_EQ(writes(*pDatabase, sampleRow(pszCall)), ECdrWrite::stored) << m_sError;
    CCallData open("sip:4");
    ASSERT_EQ(writes(*pDatabase, makeCdrRow(open, "10.0.0.1", cSampleTime)), ECdrWrite::stored) << m_sError;
    CCdrListing listing;
    ASSERT_TRUE(opened(ECdrOpen::read)->list(10, &listing, &m_sError)) << m_sError;
    EXPECT_EQ(listing.ullRows, 4U);
    EXPECT_THAT(listing.vecOutcomes, testing::ElementsAre(testing::Pair("answered", 3), testing::Pair("open", 1)));
    ASSERT_EQ(listing.vecCalls.size(), 4U);
    const auto it = std::find_if(listing.vecCalls.begin(), listing.vecCalls.end(),
                                 [](const auto& call) { return call.sCallID == "sip:1"; });
    ASSERT_NE(it, listing.vecCalls.end());
    EXPECT_EQ(it->sStartedAt.substr(0, 26), "2025-11-21T00:00:00.000000");
    EXPECT_EQ(it->sEndedAt.substr(0, 26), "2025-11-21T00:00:03.000000");
    EXPECT_EQ(it->sCalled, "bob");
    ASSERT_TRUE(pDatabase->list(1, &listing, &m_sError)) << m_sError;
    EXPECT_EQ(listing.ullRows, 4U);
    EXPECT_EQ(listing.vecCalls.size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Databases, CdrDatabaseTest, testing::Values("SQLite", "PostgreSQL"),
                         [](const auto& database) { return database.param; });

TEST(CdrDatabaseUrlTest, SaysWhatAUrlNames)
{
    EXPECT_EQ(cdrFilePath("sqlite:///var/cdr.db"), "/var/cdr.db");
    EXPECT_EQ(cdrFilePath("cdr.db"), "cdr.db");
    EXPECT_EQ(cdrFilePath("postgresql://h/d"), "");
    std::string sError;
    EXPECT_EQ(openCdrDatabase("mysql://h/d", ECdrOpen::write, &sError), nullptr);
    EXPECT_THAT(sError, HasSubstr("no database is named by"));
#ifndef CDS_HAVE_POSTGRES
    EXPECT_EQ(openCdrDatabase("postgresql://h/d", ECdrOpen::write, &sError), nullptr);
    EXPECT_THAT(sError, HasSubstr("built without PostgreSQL"));
#endif
}

} // namespace
