// The collecting server as a process of its own: what reaches its database from another process, whatever happens.

#include "Program.h"
#include "SampleRecord.h"
#include "TemporaryDirectory.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <limits>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <sqlite3.h>

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string s_sCapture = CDS_TEST_DATA "/sip/generated/sip.pcap";
constexpr const char* cPort = "27350";

class CollectTest : public testing::Test
{
protected:
    CollectTest()
    {
        (void)signal(SIGPIPE, SIG_IGN); // a program that has ended is no reason to end
        // Addresses that no other test has at the same time; all of these are this machine's.
        const auto uID = static_cast<unsigned>(getpid());
        const std::string sNet = "127." + std::to_string(64 + uID / 256 % 128) + '.' + std::to_string(uID % 256) + '.';
        m_sSender = sNet + "1";
        m_sCollector = sNet + "3";
        m_sDatabase = m_directory.file("cdr.db");
    }

    /// Starts the collecting server, and waits until it is ready.
    void collects()
    {
        m_pCollector = std::make_unique<CProgram>(
            std::vector<std::string>{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", CDS_COLLECT_PROGRAM, "serve",
                                     "--server", m_sCollector, "--port", cPort, "--database", m_sDatabase});
        std::string sLine;
        ASSERT_TRUE(m_pCollector->readLine(&sLine));
        ASSERT_THAT(sLine, StartsWith("ready on " + m_sCollector));
    }
    void startsSender(unsigned uRecords, const std::string& sCacheBytes, const std::string& sExpiryMinutes)
    {
        m_pSender = std::make_unique<CProgram>(std::vector<std::string>{CDS_CDR_SENDER, m_sSender, m_sCollector, cPort,
                                                                        m_directory.path(), std::to_string(uRecords),
                                                                        sCacheBytes, sExpiryMinutes});
        std::string sLine;
        ASSERT_TRUE(m_pSender->readLine(&sLine));
        ASSERT_EQ(sLine, "started 0");
    }
    /// Reads what the sender says, and notes the events, until no more than so many of its records are waiting.
    void awaitLeft(unsigned long ulLeft)
    {
        for (std::string sLine; m_ulLeft > ulLeft && m_pSender->readLine(&sLine);)
        {
            if (const std::size_t uEvent = sLine.find("event 0x81170A31: "); uEvent != std::string::npos)
                m_setExpired.insert(sLine.substr(uEvent + 18, sLine.find(',', uEvent) - uEvent - 18));
            if (sLine.starts_with("left "))
                m_ulLeft = std::strtoul(sLine.c_str() + 5, nullptr, 10);
        }
        ASSERT_LE(m_ulLeft, ulLeft) << "the sender has ended";
    }
    std::set<std::string> evicted() const
    {
        std::set<std::string> setCalls;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory.path()))
        {
            if (!entry.path().filename().string().starts_with("OvnCDS"))
                continue;
            std::ifstream log(entry.path());
            for (std::string sLine; std::getline(log, sLine);)
            {
                const std::size_t uName = sLine.find("CallID=\"");
                if (sLine.find("removeOldestCDRCallData: ") != std::string::npos && uName != std::string::npos)
                    setCalls.insert(sLine.substr(uName + 8, sLine.find('"', uName + 8) - uName - 8));
            }
        }
        return setCalls;
    }
    /// Call ID -> the record's own text.
    std::multimap<std::string, std::string> stored() const
    {
        std::multimap<std::string, std::string> mmapRecords;
        sqlite3* pConnection = nullptr;
        EXPECT_EQ(sqlite3_open(m_sDatabase.c_str(), &pConnection), SQLITE_OK);
        sqlite3_stmt* pStatement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(pConnection, "SELECT call_id, record FROM cdr", -1, &pStatement, nullptr),
                  SQLITE_OK);
        while (sqlite3_step(pStatement) == SQLITE_ROW)
            mmapRecords.emplace(reinterpret_cast<const char*>(sqlite3_column_text(pStatement, 0)),
                                std::string(static_cast<const char*>(sqlite3_column_blob(pStatement, 1)),
                                            static_cast<std::size_t>(sqlite3_column_bytes(pStatement, 1))));
        (void)sqlite3_finalize(pStatement);
        (void)sqlite3_close(pConnection);
        return mmapRecords;
    }
    /// Says of each record what became of it, and that nothing else is there.
    void accountsFor(unsigned uRecords)
    {
        const auto mmapStored = stored();
        const auto setEvicted = evicted();
        std::set<std::string> setMissing;
        std::size_t uStored = 0;
        for (unsigned u = 0; u < uRecords; ++u)
        {
            const std::string sCallID = "sip:" + std::to_string(u);
            CCallData record(sCallID);
            fillSample(record, "caller " + std::to_string(u));
            const auto uRows = mmapStored.count(sCallID);
            uStored += uRows;
            EXPECT_LE(uRows, 1U) << sCallID;
            if (uRows == 1)
                EXPECT_EQ(mmapStored.find(sCallID)->second, textOf(record)) << sCallID;
            else if (m_setExpired.contains(sCallID))
                ++m_uExpired;
            else if (setEvicted.contains(sCallID))
                ++m_uEvicted;
            else
                setMissing.insert(sCallID);
        }
        EXPECT_EQ(mmapStored.size(), uStored); // nothing that was not sent
        EXPECT_THAT(setMissing, IsEmpty());
        std::printf("%u sent: %zu in the database once, %zu expired with an event, %zu evicted with a trace line, "
                    "%zu missing\n",
                    uRecords, uStored, m_uExpired, m_uEvicted, setMissing.size());
        m_uStored = uStored;
    }

    CTemporaryDirectory m_directory;
    std::string m_sSender;
    std::string m_sCollector;
    std::string m_sDatabase;
    std::unique_ptr<CProgram> m_pCollector;
    std::unique_ptr<CProgram> m_pSender;
    std::set<std::string> m_setExpired;                                 // call IDs
    unsigned long m_ulLeft = std::numeric_limits<unsigned long>::max(); // as the sender said last
    std::size_t m_uStored = 0;
    std::size_t m_uExpired = 0;
    std::size_t m_uEvicted = 0;
};

TEST_F(CollectTest, EveryRecordArrivesOnceWhenTheCollectorIsKilled)
{
    constexpr unsigned cRecords = 10'000;
    collects();
    startsSender(cRecords, "1000000000", "1440");
    m_pSender->writeLine("go");
    for (const unsigned long ulLeft : {9'500UL, 7'000UL, 4'000UL, 2'000UL, 300UL})
    {
        awaitLeft(ulLeft);
        m_pCollector->kill();
        collects();
    }
    awaitLeft(0);
    EXPECT_EQ(m_pSender->exitStatus(), 0);
    accountsFor(cRecords);
    EXPECT_EQ(m_uStored, cRecords);
}

TEST_F(CollectTest, WhatTheCacheHasNoRoomForIsAccountedFor)
{
    constexpr unsigned cRecords = 1'000;
    startsSender(cRecords, "10000", "1440"); // a third of them
    m_pSender->writeLine("go");
    awaitLeft(600);
    collects();
    awaitLeft(0);
    EXPECT_EQ(m_pSender->exitStatus(), 0);
    accountsFor(cRecords);
    EXPECT_GT(m_uEvicted, 0U);
    EXPECT_GT(m_uStored, 0U);
}

TEST_F(CollectTest, WhatIsTooOldIsAccountedFor)
{
    constexpr unsigned cRecords = 2'000;
    collects();
    startsSender(cRecords, "1000000000", "0");
    m_pSender->writeLine("go");
    awaitLeft(1'500);
    m_pCollector->kill(); // what is on its way fails, and is too old
    collects();
    awaitLeft(0);
    EXPECT_EQ(m_pSender->exitStatus(), 0);
    accountsFor(cRecords);
    EXPECT_GT(m_uExpired, 0U);
    EXPECT_GT(m_uStored, 0U);
}

TEST_F(CollectTest, AReplayedCapturesCallsAreCollected)
{
    collects();
    CProgram replay({CDS_REPLAY_PROGRAM, s_sCapture, "--server", m_sSender, "--head-quarters", m_sCollector,
                     "--no-wait-eoc", "--json"});
    const auto replayed = nlohmann::json::parse(replay.readRest());
    EXPECT_EQ(replay.exitStatus(), 0);
    EXPECT_EQ(replayed["head_quarters"]["sent"], 200);
    CProgram list({CDS_COLLECT_PROGRAM, "list", "--database", m_sDatabase, "--json", "--limit", "3"});
    const auto listed = nlohmann::json::parse(list.readRest());
    EXPECT_EQ(list.exitStatus(), 0);
    EXPECT_EQ(listed["records"], 200);
    EXPECT_EQ(listed["outcomes"], replayed["outcomes"]);
    EXPECT_EQ(listed["calls"].size(), 3U);
    EXPECT_EQ(listed["calls"][0]["origin"], m_sSender);
    m_pCollector->terminate();
    EXPECT_THAT(m_pCollector->readRest(), HasSubstr("stored 200, "));
    EXPECT_EQ(m_pCollector->exitStatus(), 0);
}

TEST_F(CollectTest, ARecordThatIsTooLargeIsRefusedBeforeTheStoreHasIt)
{
    collects();
    CProgram replay({"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", CDS_REPLAY_PROGRAM, s_sCapture, "--server", m_sSender,
                     "--head-quarters", m_sCollector, "--cdr-cache", "400", "--no-wait-eoc"});
    const std::string sOutput = replay.readRest();
    EXPECT_EQ(replay.exitStatus(), 1);
    EXPECT_THAT(sOutput, HasSubstr("records of finished calls were not sent; the first is sip:"));
    EXPECT_THAT(sOutput, HasSubstr("bytes, and no more than 400 may wait to be sent"));
}

TEST_F(CollectTest, SaysWhyItCannotCollect)
{
    const auto refusal = [&](const std::vector<std::string>& vecMore) {
        std::vector<std::string> vecCommand = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>&1", CDS_COLLECT_PROGRAM};
        vecCommand.insert(vecCommand.end(), vecMore.begin(), vecMore.end());
        CProgram program(vecCommand);
        const std::string sOutput = program.readRest();
        return std::to_string(program.exitStatus()) + ' ' + sOutput;
    };
    EXPECT_THAT(refusal({"serve", "--server", m_sCollector, "--database", m_directory.file("no/such")}),
                StartsWith("1 cdscollect: cannot use the database "));
    EXPECT_THAT(refusal({"serve", "--server", m_sCollector, "--database", "postgresql:///d"}),
                StartsWith("1 cdscollect: say with --refused"));
    EXPECT_THAT(refusal({"serve", "--server", "192.0.2.1", "--database", m_sDatabase}),
                AllOf(StartsWith("1 "), HasSubstr("cdscollect: cannot listen on 192.0.2.1")));
    EXPECT_THAT(refusal({"list", "--database", m_directory.file("none.db")}), StartsWith("1 cdscollect: "));
    EXPECT_THAT(refusal({}), StartsWith("2 "));
    EXPECT_THAT(refusal({"list", "--help"}), StartsWith("0 "));
}

} // namespace
