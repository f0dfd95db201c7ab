// Two servers as processes of their own: one takes a capture's calls, the other gets them through the network.

#include "CutCapture.h"
#include "Program.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/socket.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string s_sCapture = CDS_TEST_DATA "/sip/generated/sip.pcap";

class SharedCallsTest : public testing::Test
{
protected:
    SharedCallsTest()
    {
        (void)signal(SIGPIPE, SIG_IGN); // a program that has ended is no reason to end
        // Addresses that no other test has at the same time; all of these are this machine's.
        const auto uID = static_cast<unsigned>(getpid());
        const std::string sNet = "127." + std::to_string(64 + uID / 256 % 128) + '.' + std::to_string(uID % 256) + '.';
        m_sOwner = sNet + "1";
        m_sWatcher = sNet + "2";
    }

    std::unique_ptr<CProgram> startOwner(const std::string& sCapture) const
    {
        return std::make_unique<CProgram>(std::vector<std::string>{
            CDS_REPLAY_PROGRAM, sCapture, "--server", m_sOwner, "--share", "/dev/stdout", "--no-wait-eoc", "--json"});
    }
    std::unique_ptr<CProgram> startWatcher(const std::string& sLimit) const
    {
        return std::make_unique<CProgram>(std::vector<std::string>{CDS_WATCH_PROGRAM, "--server", m_sWatcher, "--owner",
                                                                   m_sOwner, "--json", "--limit", sLimit});
    }

    /// Hands the owner's lines to the watcher up to the first that begins so, which is returned and not handed over.
    static std::string forwardUntil(CProgram& owner, CProgram& watcher, const std::string& sBegin)
    {
        std::string sLine;
        while (owner.readLine(&sLine) && !sLine.starts_with(sBegin))
            watcher.writeLine(sLine);
        return sLine;
    }

    std::string m_sOwner;
    std::string m_sWatcher;
};

TEST_F(SharedCallsTest, BothServersHaveTheSameRecords)
{
    const auto pWatcher = startWatcher("60");
    const auto pOwner = startOwner(s_sCapture);
    pWatcher->writeLine(forwardUntil(*pOwner, *pWatcher, "end "));
    const auto watched = nlohmann::json::parse(pWatcher->readRest());
    const auto owned = nlohmann::json::parse(pOwner->readRest());
    EXPECT_EQ(pWatcher->exitStatus(), 0);
    EXPECT_EQ(pOwner->exitStatus(), 0);
    EXPECT_EQ(watched["calls"], 200);
    EXPECT_EQ(watched["equal"], 200);
    EXPECT_THAT(watched["different"], IsEmpty());
    EXPECT_EQ(watched["outcomes"], owned["outcomes"]);
    EXPECT_EQ(watched["deliveries"], owned["updates"]); // each change crosses once
    EXPECT_LT(watched["change_bytes"], watched["whole_bytes"]);
    EXPECT_GT(watched["change_bytes"], 0);
}

TEST_F(SharedCallsTest, TheWatcherSaysWhichRecordDiffers)
{
    const auto pWatcher = startWatcher("5");
    const auto pOwner = startOwner(s_sCapture);
    std::string sRecord = forwardUntil(*pOwner, *pWatcher, "record ");
    sRecord.back() = sRecord.back() == '0' ? '1' : '0';
    pWatcher->writeLine(sRecord);
    pWatcher->writeLine(forwardUntil(*pOwner, *pWatcher, "end "));
    const auto watched = nlohmann::json::parse(pWatcher->readRest());
    EXPECT_EQ(pWatcher->exitStatus(), 1);
    EXPECT_EQ(watched["equal"], 199);
    EXPECT_THAT(watched["different"], ElementsAre(sRecord.substr(7, sRecord.find(' ', 7) - 7)));
}

TEST_F(SharedCallsTest, TheWatcherIsWholeAgainAfterTheOwnerWasKilled)
{
    const auto pWatcher = startWatcher("60");
    {
        const CCutCapture half(s_sCapture, 0.5);
        const auto pOwner = startOwner(half.paths()[0]);
        ASSERT_THAT(forwardUntil(*pOwner, *pWatcher, "record "), testing::StartsWith("record ")); // has replayed
        pOwner->kill();
    }
    // The new one replays only when all calls are registered for, those of its predecessor's time included.
    const auto pOwner = startOwner(s_sCapture);
    pWatcher->writeLine(forwardUntil(*pOwner, *pWatcher, "end "));
    const auto watched = nlohmann::json::parse(pWatcher->readRest());
    EXPECT_EQ(pWatcher->exitStatus(), 0);
    EXPECT_EQ(watched["equal"], 200);
    (void)pOwner->readRest();
    EXPECT_EQ(pOwner->exitStatus(), 0);
}

TEST_F(SharedCallsTest, TheOwnerGoesOnWhenTheWatcherWasKilled)
{
    const auto pWatcher = startWatcher("60");
    const auto pOwner = startOwner(s_sCapture);
    (void)forwardUntil(*pOwner, *pWatcher, "record ");
    pWatcher->kill();
    (void)forwardUntil(*pOwner, *pWatcher, "end ");
    EXPECT_EQ(nlohmann::json::parse(pOwner->readRest())["calls"], 200);
    EXPECT_EQ(pOwner->exitStatus(), 0);
}

TEST_F(SharedCallsTest, BothFailWhenTheirAddressIsTaken)
{
    for (const std::string& sAddress : {m_sOwner, m_sWatcher})
    {
        const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int nReuse = 1; // connections of the tests before may linger there
        ASSERT_EQ(setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nReuse, sizeof nReuse), 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(27350);
        ASSERT_EQ(inet_pton(AF_INET, sAddress.c_str(), &address.sin_addr), 1);
        ASSERT_EQ(bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(listen(nSocket, 1), 0);
        EXPECT_EQ((sAddress == m_sOwner ? startOwner(s_sCapture) : startWatcher("60"))->exitStatus(), 1);
        close(nSocket);
    }
}

TEST_F(SharedCallsTest, TheWatcherFailsWhenTheOwnerSaysNothingMore)
{
    const auto pEnded = startWatcher("60");
    pEnded->writeLine("call sip:1");
    pEnded->closeInput();
    EXPECT_EQ(pEnded->exitStatus(), 1);
    const auto pSilent = startWatcher("1");
    pSilent->writeLine("call sip:1");
    EXPECT_EQ(pSilent->exitStatus(), 1);
}

} // namespace
