// The project's own captures: what each call was meant to do is in calls_plan.csv, what a third party's dissector saw
// in calls_seen.csv.

#include "CaptureRun.h"
#include "CsvFile.h"
#include "CutCapture.h"

#include <gmock/gmock.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;

const std::string s_sFolder = CDS_TEST_DATA "/sip/generated/";

const CCaptureRun& sipRun()
{
    static const CCaptureRun s_run(s_sFolder + "sip.pcap");
    return s_run;
}

const CCaptureRun& hepRun()
{
    static const CCaptureRun s_run(s_sFolder + "hep3.pcap");
    return s_run;
}

const CCallRecord& recordOf(const CCsvRow& row)
{
    return sipRun().records().at("sip:" + column(row, "call_id"));
}

/// Number and name as asserted by the network, where the plan has the caller assert one, else as the caller gives them.
std::string plannedCaller(const CCsvRow& plan)
{
    const std::string sHeader = column(plan, "extra_header");
    const std::size_t uNumber = sHeader.find("<sip:");
    if (!sHeader.starts_with("P-Asserted-Identity:") || uNumber == std::string::npos)
        return column(plan, "caller");
    return sHeader.substr(uNumber + 5, sHeader.find('@', uNumber) - uNumber - 5);
}

std::string outcomeOf(const std::string& sIntended)
{
    if (sIntended.find("answered") != std::string::npos)
        return "answered";
    if (sIntended.find("486") != std::string::npos || sIntended.find("busy") != std::string::npos)
        return "busy";
    return sIntended.find("404") != std::string::npos ? "failed 404" : "cancelled";
}

TEST(GeneratedCapturesTest, HasAllCallsOfThePlan)
{
    const auto vecPlan = readCsv(s_sFolder + "calls_plan.csv");
    ASSERT_EQ(vecPlan.size(), 200U);
    EXPECT_EQ(sipRun().records().size(), 200U);
    EXPECT_EQ(sipRun().sink.ended(), 200U);
    for (const CCsvRow& plan : vecPlan)
    {
        SCOPED_TRACE(column(plan, "call_id"));
        const CCallRecord& record = recordOf(plan);
        EXPECT_EQ(record.property(CDSPROP_CALLERID), plannedCaller(plan));
        EXPECT_EQ(record.property(CDSPROP_CALLERID_NAME), plainName(column(plan, "display_name")));
        EXPECT_EQ(record.property(CDSPROP_CALLEDID), column(plan, "callee"));
        EXPECT_EQ(record.outcome(), outcomeOf(column(plan, "intended"))) << column(plan, "intended");
    }
}

TEST(GeneratedCapturesTest, SeesWhatTheDissectorSaw)
{
    const auto vecSeen = readCsv(s_sFolder + "calls_seen.csv");
    ASSERT_EQ(vecSeen.size(), 200U);
    for (const CCsvRow& seen : vecSeen)
    {
        SCOPED_TRACE(column(seen, "call_id"));
        const CCallRecord& record = recordOf(seen);
        EXPECT_EQ(record.outcome(), column(seen, "outcome"));
        EXPECT_EQ(firstTime(record, CDSLOG_TUPLE_ROUTING_ENTRY), column(seen, "begin"));
        // Where a final response came before the answer, the table takes the answer's second sighting, our record the
        // first: the proxy stands between them.
        if (column(seen, "call_id").starts_with("fwd-"))
        {
            EXPECT_NEAR(std::stod(firstTime(record, CDSLOG_CONNECT_ENTRY)), std::stod(column(seen, "answer")), 0.001);
        }
        else
        {
            EXPECT_EQ(firstTime(record, CDSLOG_CONNECT_ENTRY), column(seen, "answer"));
        }
        EXPECT_EQ(firstTime(record, CDSLOG_DISCONNECT_ENTRY), column(seen, "end"));
        EXPECT_EQ(record.property(CDSPROP_CALL_ORIGINATOR_IP), column(seen, "originator"));
        const std::string sEndBy = column(seen, "end_by");
        EXPECT_EQ(endedBy(record), sEndBy == "final 487" ? "cancel" : sEndBy.starts_with("final") ? "failed" : sEndBy);
    }
}

TEST(GeneratedCapturesTest, ReadsEveryMessage)
{
    EXPECT_EQ(sipRun().summary.ullMessages, 2370U);
    EXPECT_EQ(hepRun().summary.ullMessages, 2375U);
    EXPECT_EQ(sipRun().summary.format(), "SIP");
    EXPECT_EQ(hepRun().summary.format(), "HEPv3");
    for (const CCaptureRun* pRun : {&sipRun(), &hepRun()})
    {
        EXPECT_TRUE(pRun->summary.counts.refused().empty());
        EXPECT_TRUE(pRun->summary.counts.warnings().empty());
    }
    EXPECT_EQ(hepRun().summary.ullRepeats, 5U) << "the ACKs that the tracer sends twice";
}

TEST(GeneratedCapturesTest, MakesTheSameRecordsOfBothCopies)
{
    ASSERT_EQ(hepRun().records().size(), sipRun().records().size());
    for (const auto& [sRecordID, record] : sipRun().records())
        EXPECT_TRUE(record.sameValues(hepRun().records().at(sRecordID))) << sRecordID;
}

TEST(GeneratedCapturesTest, StampsTheHepCopyAtMostMillisecondsLater)
{
    for (const auto& [sRecordID, record] : sipRun().records())
    {
        const std::int64_t llLater = static_cast<std::int64_t>(hepRun().records().at(sRecordID).ullFirst) -
                                     static_cast<std::int64_t>(record.ullFirst);
        EXPECT_GT(llLater, 0) << sRecordID;
        EXPECT_LT(llLater, 30'000) << sRecordID; // 100 ns
    }
}

TEST(GeneratedCapturesTest, EveryAnsweredCallHasMediaAndAConnectedParty)
{
    for (const auto& [sRecordID, record] : sipRun().records())
    {
        const bool bAnswered = record.outcome() == "answered";
        EXPECT_EQ(record.entries(CDSLOG_MEDIASTREAM_ENTRY).size(), bAnswered ? 1U : 0U) << sRecordID;
        EXPECT_EQ(record.property(CDSPROP_L_CONNECTEDID).empty(), !bAnswered) << sRecordID;
        EXPECT_EQ(record.property(CDSPROP_COMMENT).empty(), bAnswered) << sRecordID;
    }
}

TEST(GeneratedCapturesTest, ForwardedCallsAreAnsweredByTheSecondTarget)
{
    const CCallRecord& record = sipRun().records().at("sip:fwd-1@127.0.0.7");
    EXPECT_EQ(record.property(CDSPROP_L_CONNECTEDID), "+4930231251099");
    EXPECT_EQ(record.property(CDSPROP_CALL_RELATION), "forward");
    EXPECT_THAT(
        record.entries(CDSLOG_TUPLE_ROUTING_ENTRY),
        ElementsAre(
            "sip:4930231251489@tel.example;127.0.0.1:5060;-", "sip:4930231251489@tel.example;127.0.0.12:5070;-",
            "sip:4930231251489@tel.example;127.0.0.12:5070;486", "sip:4930231251489@tel.example;127.0.0.1:5060;486",
            "sip:+4930231251099@tel.example;127.0.0.11:5070;-", "sip:+4930231251099@tel.example;127.0.0.11:5070;200",
            "sip:4930231251489@tel.example;127.0.0.1:5060;200"));
}

TEST(GeneratedCapturesTest, LinksEveryTransferInBothCopies)
{
    for (const char* pszCapture : {"transfer/sip.pcap", "transfer/hep3.pcap"})
    {
        SCOPED_TRACE(pszCapture);
        const CCaptureRun run(s_sFolder + pszCapture);
        const auto vecSeen = readCsv(s_sFolder + "transfer/calls_seen.csv");
        ASSERT_EQ(vecSeen.size(), 10U);
        for (std::size_t u = 0; u < vecSeen.size(); u += 2) // the referring call, then the one that it made
        {
            const std::string sOld = "sip:" + column(vecSeen[u], "call_id");
            const std::string sNew = "sip:" + column(vecSeen[u + 1], "call_id");
            EXPECT_EQ(run.records().at(sNew).property(CDSPROP_RELATED_CALLID), sOld);
            EXPECT_EQ(run.records().at(sNew).property(CDSPROP_CALL_RELATION), "transfer");
            EXPECT_EQ(run.records().at(sOld).property(CDSPROP_RELATED_CALLID), sNew);
            EXPECT_EQ(run.records().at(sOld).property(CDSPROP_CALL_RELATION), "transferred");
        }
    }
}

TEST(GeneratedCapturesTest, ReadsCallsOverTcp)
{
    const CCaptureRun run(s_sFolder + "corr/sip.pcap");
    const auto vecSeen = readCsv(s_sFolder + "corr/calls_seen.csv");
    ASSERT_EQ(vecSeen.size(), 13U);
    for (const CCsvRow& seen : vecSeen)
    {
        SCOPED_TRACE(column(seen, "call_id"));
        const CCallRecord& record = run.records().at("sip:" + column(seen, "call_id"));
        EXPECT_EQ(record.outcome(), column(seen, "outcome"));
        EXPECT_EQ(firstTime(record, CDSLOG_CONNECT_ENTRY), column(seen, "answer"));
        EXPECT_EQ(firstTime(record, CDSLOG_DISCONNECT_ENTRY), column(seen, "end"));
    }
}

// The feed with correlation leaves the requests inside a dialog out: no call that was answered is seen to end.
TEST(GeneratedCapturesTest, LeavesCallsOpenWhoseEndIsNotInTheFeed)
{
    const CCaptureRun run(s_sFolder + "corr/hep3.pcap");
    ASSERT_EQ(run.records().size(), 13U);
    std::map<std::string, int> mapOutcomes;
    for (const auto& [sRecordID, record] : run.records())
        ++mapOutcomes[record.outcome()];
    EXPECT_THAT(mapOutcomes, ElementsAre(std::pair("answered, open", 9), std::pair("busy", 4)));
}

TEST(GeneratedCapturesTest, ClosesOpenCallsIfAskedFor)
{
    const CCaptureRun run(s_sFolder + "corr/hep3.pcap", true);
    EXPECT_EQ(run.sink.ended(), 13U);
    EXPECT_THAT(run.records().at("sip:corr-1@127.0.0.41").entries(CDSLOG_DISCONNECT_ENTRY),
                ElementsAre("timeout;-;capture ended"));
}

TEST(CaptureFileTest, SaysWhyAFileCannotBeRead)
{
    CRecordBookSink sink;
    CCaptureReplay replay(sink, {});
    std::string sError;
    EXPECT_FALSE(replay.add("no/such/file.pcap", &sError));
    EXPECT_THAT(sError, EndsWith("No such file or directory"));
    sError.clear();
    EXPECT_FALSE(replay.add(s_sFolder + "calls_plan.csv", &sError));
    EXPECT_NE(sError, "");
}

TEST(CaptureFileTest, TakesFilesThatFollowEachOtherForOne)
{
    for (const char* pszCapture : {"sip.pcap", "hep3.pcap", "corr/sip.pcap"}) // calls and TCP connections are cut
    {
        SCOPED_TRACE(pszCapture);
        const CCaptureRun whole(s_sFolder + pszCapture);
        for (const double dPart : {0.3, 0.5})
        {
            const CCutCapture cut(s_sFolder + pszCapture, dPart);
            const CCaptureRun parts(cut.paths());
            ASSERT_EQ(parts.records().size(), whole.records().size());
            EXPECT_EQ(parts.sink.ended(), whole.sink.ended());
            for (const auto& [sRecordID, record] : whole.records())
                EXPECT_TRUE(record.sameValues(parts.records().at(sRecordID))) << sRecordID;
            EXPECT_LT(parts.summary.ullMessages, whole.summary.ullMessages) << "each file has its own counts";
        }
    }
}

TEST(CaptureFileTest, BelievesTheClockOfEachFile)
{
    const CCutCapture cut(s_sFolder + "sip.pcap", 0.5, 100 * 86'400);
    const CCaptureRun run(cut.paths());
    EXPECT_TRUE(run.summary.counts.warnings().empty());
}

} // namespace
