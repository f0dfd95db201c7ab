#include "cdr/CdrRow.h"
#include "Fakes.h"
#include "SampleRecord.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using std::string_literals::operator""s;

class CdrRowTest : public testing::Test
{
protected:
    static CCdrRow rowOf(CCallData& record) { return makeCdrRow(record, "10.0.0.1", cSampleTime + 50'000'000); }

    CFakeWorld m_world;
};

TEST_F(CdrRowTest, WellKnownValuesHaveColumns)
{
    CCallData record("sip:1");
    fillSample(record);
    for (const auto& [sName, pszValue] : {std::pair{CDSPROP_CALLERID_NAME, "Alice"},
                                          {CDSPROP_CALLEDID_NAME, "Bob"},
                                          {CDSPROP_L_CONNECTEDID, "carol"},
                                          {CDSPROP_CALL_ORIGINATOR_IP, "10.1.1.1"},
                                          {CDSPROP_CALL_RELATION, "forward"},
                                          {CDSPROP_RELATED_CALLID, "sip:0"},
                                          {CDSPROP_COMMENT, "none"}})
        setValue(record, sName, text(pszValue), 40);
    const CCdrRow row = rowOf(record);
    EXPECT_EQ(row.sCallID, "sip:1");
    EXPECT_EQ(row.sOrigin, "10.0.0.1");
    EXPECT_EQ(row.sReceivedAt, "2025-11-21T00:00:05.0000000Z");
    EXPECT_EQ(row.sCaller, "alice");
    EXPECT_EQ(row.sCallerName, "Alice");
    EXPECT_EQ(row.sCalled, "bob");
    EXPECT_EQ(row.sCalledName, "Bob");
    EXPECT_EQ(row.sConnected, "carol");
    EXPECT_EQ(row.sOriginatorIP, "10.1.1.1");
    EXPECT_EQ(row.sRelation, "forward");
    EXPECT_EQ(row.sRelatedCallID, "sip:0");
    EXPECT_EQ(row.sComment, "none");
    EXPECT_EQ(row.sStartedAt, "2025-11-21T00:00:00.0000000Z");
    EXPECT_EQ(row.sAnsweredAt, "2025-11-21T00:00:02.0000000Z");
    EXPECT_EQ(row.sEndedAt, "2025-11-21T00:00:03.0000001Z");
    EXPECT_EQ(row.sOutcome, "answered");
    EXPECT_EQ(row.sRecord, textOf(record));
}

TEST_F(CdrRowTest, TensOfThousandsOfValuesTakeTheirTimeOnce)
{
    // In a time that grows with their square these would reach the test's limit: the sender's network waits for a row.
    constexpr unsigned cValues = 60'000;
    CCallData record("sip:1");
    for (unsigned u = 0; u < cValues; ++u)
        setValue(record, "P" + std::to_string(100'000 + u), "");
    EXPECT_EQ(json::parse(rowOf(record).sProperties).size(), cValues);
}

TEST_F(CdrRowTest, AllValuesAreInJson)
{
    CCallData record("sip:1");
    fillSample(record);
    appendEntry(record, CDSLOG_CONNECT_ENTRY, text("again"), 25'000'000);
    const CCdrRow row = rowOf(record);
    EXPECT_EQ(json::parse(row.sProperties),
              json::parse(R"({"CALLERID": {"value": "alice", "time": "2025-11-21T00:00:00.0000000Z", "increment": 0},
                              "CALLEDID": {"value": "bob", "time": "2025-11-21T00:00:00.0000010Z", "increment": 0}})"));
    const json logs = json::parse(row.sLogEntries);
    ASSERT_EQ(logs["CONNECT_ENTRY"].size(), 2U);
    EXPECT_EQ(logs["CONNECT_ENTRY"][1]["value"], "again");
    EXPECT_EQ(logs["DISCONNECT_ENTRY"][0]["value"], "caller;-;BYE");
}

TEST_F(CdrRowTest, ValuesThatAreNoTextSurvive)
{
    CCallData record("sip:\xFF\\\0"s);
    setValue(record, CDSPROP_CALLERID, "a\0b\0"s);
    setValue(record, CDSPROP_CALLEDID, "\xC3\x28"s);
    setValue(record, "\xFE", "x");
    const CCdrRow row = rowOf(record);
    EXPECT_EQ(row.sCallID, "sip:\\xFF\\x5C\\x00");
    const json properties = json::parse(row.sProperties);
    EXPECT_EQ(properties["CALLERID"]["base64"], "YQBi");
    EXPECT_FALSE(properties["CALLERID"].contains("value"));
    EXPECT_EQ(properties["CALLEDID"]["base64"], "wyg=");
    EXPECT_EQ(properties["\\xFE"]["value"], "x");
    EXPECT_EQ(row.sCaller, "a\\x00b");
    EXPECT_EQ(row.sCalled, "\\xC3(");
    CCallData again(row.sRecord, false);
    EXPECT_EQ(textOf(again), textOf(record));
}

TEST_F(CdrRowTest, AnEmptyRecordIsARow)
{
    CCallData record("sip:1");
    const CCdrRow row = rowOf(record);
    EXPECT_EQ(row.sProperties, "{}");
    EXPECT_EQ(row.sLogEntries, "{}");
    EXPECT_EQ(row.sStartedAt, "");
    EXPECT_EQ(row.sEndedAt, "");
    EXPECT_EQ(row.sOutcome, "open");
}

TEST_F(CdrRowTest, ATimeThatNoDatabaseHasIsNoColumn)
{
    CCallData record("sip:1");
    setValue(record, CDSPROP_CALLERID, "x", ~0ULL - cSampleTime);
    const CCdrRow row = rowOf(record);
    EXPECT_EQ(row.sStartedAt, "");
    EXPECT_EQ(json::parse(row.sProperties)["CALLERID"]["time"].get<std::string>().substr(0, 6), "+60056");
}

} // namespace
