// The program as a person runs it: exit status, output, errors.

#include <cstdio>
#include <filesystem>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string s_sFolder = CDS_TEST_DATA "/sip/generated/";

struct CRun
{
    int nExit = -1;
    std::string sOutput;
};

/// @param sArguments  as in a shell; standard error is left out unless they say otherwise
CRun run(const std::string& sArguments)
{
    CRun result;
    const std::string sCommand = std::string(CDS_REPLAY_PROGRAM) + " 2>/dev/null " + sArguments;
    FILE* const pPipe = popen(sCommand.c_str(), "r");
    if (pPipe == nullptr)
        return result;
    char szBuffer[4096];
    for (std::size_t u = 0; (u = std::fread(szBuffer, 1, sizeof szBuffer, pPipe)) > 0;)
        result.sOutput.append(szBuffer, u);
    const int nStatus = pclose(pPipe);
    result.nExit = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
    return result;
}

TEST(CdsReplayTest, ShowsCallsByOutcome)
{
    const CRun result = run(s_sFolder + "sip.pcap --no-wait-eoc");
    EXPECT_EQ(result.nExit, 0);
    EXPECT_THAT(result.sOutput, HasSubstr("200 calls\n"));
    EXPECT_THAT(result.sOutput, testing::ContainsRegex("answered +130\n"));
    EXPECT_THAT(result.sOutput, HasSubstr("Record sip:ans-1@127.0.0.2: answered"));
    EXPECT_THAT(result.sOutput, HasSubstr("2026-11-21 00:10:11.780530  DISCONNECT_ENTRY      caller;-;BYE"));
}

TEST(CdsReplayTest, ComparesTwoCapturesOfTheSameCalls)
{
    const CRun result = run(s_sFolder + "sip.pcap --no-wait-eoc --json --compare " + s_sFolder + "hep3.pcap");
    EXPECT_EQ(result.nExit, 0);
    const auto json = nlohmann::json::parse(result.sOutput);
    EXPECT_EQ(json["comparison"]["equal"], 200);
    EXPECT_EQ(json["comparison"]["format"], "HEPv3");
    EXPECT_THAT(json["comparison"]["different"], IsEmpty());
}

TEST(CdsReplayTest, FailsWhenComparedRecordsDiffer)
{
    const CRun result = run(s_sFolder + "corr/sip.pcap --no-wait-eoc --compare " + s_sFolder + "corr/hep3.pcap");
    EXPECT_EQ(result.nExit, 1);
    EXPECT_THAT(result.sOutput, HasSubstr("4 of 13 records equal"));
    EXPECT_THAT(result.sOutput, HasSubstr("different: sip:corr-1@127.0.0.41"));
}

TEST(CdsReplayTest, WritesJsonThatAddsUp)
{
    const CRun result = run(s_sFolder + "sip.pcap --no-wait-eoc --json --watch busy-1@127.0.0.4");
    ASSERT_EQ(result.nExit, 0);
    const auto json = nlohmann::json::parse(result.sOutput);
    EXPECT_EQ(json["calls"], 200);
    EXPECT_EQ(json["outcomes"]["busy"], 35);
    EXPECT_EQ(json["record"]["id"], "sip:busy-1@127.0.0.4");
    EXPECT_EQ(json["record"]["outcome"], "busy");
    EXPECT_EQ(json["store_refusals"], 0);
    EXPECT_EQ(json["registrants"]["all_calls"]["deliveries"], json["updates"]);
    EXPECT_GT(json["registrants"]["one_call"]["deliveries"], 0);
    EXPECT_EQ(json["registrants"]["end_of_call"]["deliveries"], 0);
    EXPECT_EQ(json["captures"][0]["messages_read"], 2370);
}

// Takes the half minute for which the store keeps an ended call: with the real clock there is no shorter way.
TEST(CdsReplayTest, WaitsForTheLastDeliveries)
{
    const CRun result = run(s_sFolder + "transfer/sip.pcap --json");
    ASSERT_EQ(result.nExit, 0);
    const auto json = nlohmann::json::parse(result.sOutput);
    EXPECT_EQ(json["registrants"]["end_of_call"]["deliveries"], 10);
    EXPECT_EQ(json["waited_for_end_of_call"], true);
}

TEST(CdsReplayTest, SaysWhatItCouldNotRead)
{
    const CRun result = run("no/such.pcap 2>&1");
    EXPECT_EQ(result.nExit, 1);
    EXPECT_THAT(result.sOutput, HasSubstr("cannot read the capture no/such.pcap"));
    EXPECT_EQ(run(s_sFolder + "README.md").nExit, 1);
}

TEST(CdsReplayTest, SaysThatTheCallToWatchIsNotThere)
{
    const CRun result = run("2>&1 " + s_sFolder + "sip.pcap --no-wait-eoc --watch nobody@nowhere");
    EXPECT_EQ(result.nExit, 1);
    EXPECT_THAT(result.sOutput, HasSubstr("no call with the Call-ID nobody@nowhere"));
    EXPECT_THAT(result.sOutput, HasSubstr("200 calls\n"));
}

TEST(CdsReplayTest, ShowsWhatADamagedCaptureHeldAndFails)
{
    const std::string sDamaged = testing::TempDir() + "damaged-" + std::to_string(getpid()) + ".pcap";
    std::filesystem::copy_file(s_sFolder + "sip.pcap", sDamaged, std::filesystem::copy_options::overwrite_existing);
    std::filesystem::resize_file(sDamaged, std::filesystem::file_size(sDamaged) - 7);
    for (const std::string& sArguments : {sDamaged, s_sFolder + "sip.pcap --compare " + sDamaged})
    {
        const CRun result = run("2>&1 --no-wait-eoc " + sArguments);
        EXPECT_EQ(result.nExit, 1);
        EXPECT_THAT(result.sOutput, HasSubstr("cdsreplay: the capture " + sDamaged + " is damaged"));
        EXPECT_THAT(result.sOutput, HasSubstr("200 calls\n"));
    }
    std::filesystem::remove(sDamaged);
}

TEST(CdsReplayTest, TellsMisuseFromFailure)
{
    EXPECT_EQ(run("").nExit, 2);
    EXPECT_EQ(run("--no-such-option x.pcap").nExit, 2);
    EXPECT_EQ(run("x.pcap --max-calls 0").nExit, 2);
}

TEST(CdsReplayTest, HelpsOnStandardOutput)
{
    const CRun help = run("--help");
    EXPECT_EQ(help.nExit, 0);
    EXPECT_THAT(help.sOutput, HasSubstr("Exit status: 0 done, 1 refused or failed"));
    EXPECT_THAT(help.sOutput, HasSubstr("the one that would be closed first gives way"));
    const CRun version = run("--version");
    EXPECT_EQ(version.nExit, 0);
    EXPECT_THAT(version.sOutput, testing::StartsWith("cdsreplay "));
}

} // namespace
