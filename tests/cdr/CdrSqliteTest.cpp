// What befalls an SQLite file: no room, no rights, no file.
#include "CdrWorld.h"
#include "cdr/CdrSink.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using testing::HasSubstr;

class CdrSqliteTest : public testing::Test
{
protected:
    std::unique_ptr<CCdrDatabase> opened()
    {
        return openCdrDatabase(m_directory.file("cdr.db"), ECdrOpen::write, &m_sError);
    }

    CTemporaryDirectory m_directory;
    std::string m_sError;
};

/// While it lives no file of this process grows beyond so many bytes: the disk is full.
class CFullDisk
{
public:
    explicit CFullDisk(rlim_t ulBytes)
    {
        (void)std::signal(SIGXFSZ, SIG_IGN); // the write fails instead
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limit{ulBytes, m_before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~CFullDisk() { setrlimit(RLIMIT_FSIZE, &m_before); }
    CFullDisk(const CFullDisk&) = delete;
    CFullDisk& operator=(const CFullDisk&) = delete;

private:
    rlimit m_before{};
};

TEST_F(CdrSqliteTest, AFullDiskRefusesWholeRecordsAndTakesThemLater)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    CRefusedCdrs refused(m_directory.file("refused"), {});
    ASSERT_TRUE(refused.open(&m_sError)) << m_sError;
    std::atomic<int> nRefused = 0;
    CCdrSink sink(
        *pDatabase, refused, [&](ECdrEvent eEvent, const std::string&) { nRefused += eEvent == ECdrEvent::refused; },
        std::chrono::milliseconds{20});
    const auto give = [&](const std::string& sCallID) {
        auto* const pRecord = new CCallData(sCallID);
        fillSample(*pRecord, std::string(30'000, 'x'));
        auto* const pMsg = new CCallbackMsg(0UL, "", ccbr_cdrcalldata, pRecord, 0, "10.0.0.1");
        const long lResult = sink.take(pMsg);
        if (lResult < 0)
        {
            delete pRecord;
            delete pMsg;
        }
        return lResult;
    };
    constexpr int cRecords = 20;
    int nTaken = 0;
    {
        const CFullDisk full(300'000);
        for (int n = 0; n < cRecords; ++n)
            nTaken += give("sip:" + std::to_string(n)) >= 0;
        EXPECT_GT(nTaken, 0);
        EXPECT_LT(nTaken, cRecords);
        EXPECT_EQ(nRefused, cRecords - nTaken);
        EXPECT_EQ(sink.counts().ullWaiting, static_cast<std::uint64_t>(cRecords - nTaken));
        CCdrListing listing;
        ASSERT_TRUE(
            openCdrDatabase(m_directory.file("cdr.db"), ECdrOpen::read, &m_sError)->list(0, &listing, &m_sError));
        EXPECT_EQ(listing.ullRows, static_cast<std::uint64_t>(nTaken)); // nothing half-written
    }
    ASSERT_TRUE(sink.awaitRecovered(std::chrono::seconds{20}));
    CCdrListing listing;
    ASSERT_TRUE(pDatabase->list(0, &listing, &m_sError)) << m_sError;
    EXPECT_EQ(listing.ullRows, static_cast<std::uint64_t>(cRecords));
    EXPECT_EQ(sink.counts().ullLost, 0U);
}

TEST_F(CdrSqliteTest, AFileThatMayNotBeWrittenToIsRefused)
{
    ASSERT_NE(opened(), nullptr) << m_sError;
    const std::string sPath = m_directory.file("cdr.db");
    ASSERT_EQ(chmod(sPath.c_str(), 0444), 0);
    ASSERT_EQ(chmod(m_directory.path().c_str(), 0755), 0);
    const pid_t nChild = fork();
    if (nChild == 0)
    {
        if (geteuid() == 0 && setresuid(65534, 65534, 65534) != 0) // root may do anything
            _exit(2);
        std::string sError;
        const bool bRefused = openCdrDatabase(sPath, ECdrOpen::write, &sError) == nullptr;
        _exit(bRefused && sError.find("may not write") != std::string::npos ? 0 : 1);
    }
    int nStatus = 0;
    ASSERT_EQ(waitpid(nChild, &nStatus, 0), nChild);
    EXPECT_EQ(nStatus, 0);
}

TEST_F(CdrSqliteTest, AFileThatWasMovedAwayIsMadeAnew)
{
    const auto pDatabase = opened();
    ASSERT_NE(pDatabase, nullptr) << m_sError;
    ASSERT_EQ(pDatabase->write(sampleRow("sip:1"), &m_sError), ECdrWrite::stored);
    for (const char* const pszEnd : {"", "-wal", "-shm"})
        std::filesystem::rename(m_directory.file("cdr.db") + pszEnd, m_directory.file("old.db") + pszEnd);
    ASSERT_EQ(pDatabase->write(sampleRow("sip:2"), &m_sError), ECdrWrite::stored) << m_sError;
    for (const char* const pszName : {"cdr.db", "old.db"})
    {
        CCdrListing listing;
        const auto pAgain = openCdrDatabase(m_directory.file(pszName), ECdrOpen::read, &m_sError);
        ASSERT_NE(pAgain, nullptr) << m_sError;
        ASSERT_TRUE(pAgain->list(10, &listing, &m_sError)) << m_sError;
        ASSERT_EQ(listing.vecCalls.size(), 1U);
        EXPECT_EQ(listing.vecCalls[0].sCallID, pszName == std::string("cdr.db") ? "sip:2" : "sip:1");
    }
}

TEST_F(CdrSqliteTest, AFileThatIsNoDatabaseIsRefused)
{
    m_directory.write("cdr.db", "this is certainly no database, however long one looks at it");
    EXPECT_EQ(opened(), nullptr);
    EXPECT_THAT(m_sError, HasSubstr("not a database"));
    EXPECT_EQ(openCdrDatabase(m_directory.path(), ECdrOpen::write, &m_sError), nullptr);
    EXPECT_EQ(openCdrDatabase(m_directory.file("no/such/cdr.db"), ECdrOpen::write, &m_sError), nullptr);
}

} // namespace
