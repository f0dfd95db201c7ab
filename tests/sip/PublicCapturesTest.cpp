// Captures of other people's equipment. They are not part of this tree: CDS_PUBLIC_CAPTURES names the folder they are
// in, each with a table of its calls beside it ("x.pcap", "x.calls.csv") as a dissector shows them.

#include "CaptureRun.h"
#include "CsvFile.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <set>

namespace {

namespace fs = std::filesystem;

/// Where our reading differs from the table's, and why. The test fails when one of these is not found, too.
struct CDifference
{
    std::string sCapture;
    std::string sCallID; // its beginning
    std::string sField;
    std::string sTable;
    std::string sOurs;
    const char* pszWhy;
};

const std::vector<CDifference>& explainedDifferences()
{
    static const std::vector<CDifference> s_vecDifferences = {
        {"heplify-ipv6", "c3eF6f58-363", "answer", "1530001712.251758", "1328589362.251758",
         "the capture's clock jumps by years from packet to packet: only its first stamp is believed"},
        {"heplify-ipv6", "c3eF6f58-363", "end", "3215500952.251758", "1328589362.251758",
         "as before: the packet claims to be of the year 2071"},
        {"heplify-tcp-segmented-a", "85b939c9-8f0", "caller", "sip:@voice.lan", "voice.lan",
         "an identity without user: we take the host, the table the whole URI"},
        {"suricata-incomplete", "12013223@200", "caller", "sip:200.57.7.195:55061;user=phone", "200.57.7.195:55061",
         "as before"},
    };
    return s_vecDifferences;
}

std::string expectedOutcome(const std::string& sTable)
{
    if (sTable == "answered, no BYE seen")
        return "answered, open";
    return sTable == "no final seen" ? "open" : sTable;
}

/// Both empty, or times less than 10 ms apart: a message that is seen on two sides may be timed on either.
bool sameTime(const std::string& sTable, const std::string& sOurs)
{
    if (sTable.empty() || sOurs.empty())
        return sTable == sOurs;
    return std::fabs(std::stod(sTable) - std::stod(sOurs)) < 0.010;
}

using CFound = std::set<std::string>; // "capture|call|field|table|ours"

std::string key(const std::string& sCapture, const std::string& sCallID, const std::string& sField,
                const std::string& sTable, const std::string& sOurs)
{
    return sCapture + "|" + sCallID.substr(0, 12) + "|" + sField + "|" + sTable + "|" + sOurs;
}

void compareCall(const std::string& sCapture, const CCsvRow& row, const CRecordBook& records, CFound* pFound)
{
    const std::string sCallID = column(row, "call_id");
    const auto it = records.find("sip:" + sCallID);
    if (it == records.end())
    {
        pFound->insert(key(sCapture, sCallID, "call", "there", "missing"));
        return;
    }
    const CCallRecord& record = it->second;
    const auto text = [&](const std::string& sField, const std::string& sTable, const std::string& sOurs) {
        if (sTable != sOurs)
            pFound->insert(key(sCapture, sCallID, sField, sTable, sOurs));
    };
    const auto time = [&](const std::string& sField, const std::string& sLog) {
        const std::string sOurs = firstTime(record, sLog);
        if (!sameTime(column(row, sField), sOurs))
            pFound->insert(key(sCapture, sCallID, sField, column(row, sField), sOurs));
    };
    const std::string sAsserted = column(row, "pai");
    text("outcome", expectedOutcome(column(row, "outcome")), record.outcome());
    text("caller", sAsserted.empty() ? column(row, "caller") : sAsserted, record.property(CDSPROP_CALLERID));
    text("caller_name", plainName(column(row, "caller_name")), record.property(CDSPROP_CALLERID_NAME));
    text("callee", column(row, "callee"), record.property(CDSPROP_CALLEDID));
    text("originator", column(row, "originator"), record.property(CDSPROP_CALL_ORIGINATOR_IP));
    const std::string sEndBy = column(row, "end_by");
    text("end_by", sEndBy == "final 487" ? "cancel" : sEndBy.starts_with("final") ? "failed" : sEndBy, endedBy(record));
    time("begin", CDSLOG_TUPLE_ROUTING_ENTRY);
    time("answer", CDSLOG_CONNECT_ENTRY);
    time("end", CDSLOG_DISCONNECT_ENTRY);
}

TEST(PublicCapturesTest, SeesWhatTheDissectorSaw)
{
    const char* pszFolder = std::getenv("CDS_PUBLIC_CAPTURES");
    if (pszFolder == nullptr || *pszFolder == '\0')
        GTEST_SKIP() << "CDS_PUBLIC_CAPTURES names no folder with captures";
    CFound found;
    std::size_t uCalls = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(pszFolder))
    {
        if (entry.path().extension() != ".pcap" && entry.path().extension() != ".pcapng")
            continue;
        const std::string sCapture = entry.path().stem().string();
        SCOPED_TRACE(sCapture);
        const CCaptureRun run(entry.path().string());
        fs::path table = entry.path();
        const auto vecRows = readCsv(table.replace_extension(".calls.csv").string());
        for (const CCsvRow& row : vecRows)
            compareCall(sCapture, row, run.records(), &found);
        if (!vecRows.empty())
        {
            EXPECT_EQ(run.records().size(), vecRows.size());
        }
        uCalls += vecRows.size();
    }
    EXPECT_GT(uCalls, 0U) << pszFolder;
    CFound expected;
    for (const CDifference& difference : explainedDifferences())
        if (fs::exists(fs::path(pszFolder) / (difference.sCapture + ".pcap")))
            expected.insert(
                key(difference.sCapture, difference.sCallID, difference.sField, difference.sTable, difference.sOurs));
    EXPECT_THAT(found, testing::ContainerEq(expected));
}

} // namespace
