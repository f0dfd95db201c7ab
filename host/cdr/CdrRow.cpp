// From a record to a row.
#include "cdr/CdrRow.h"

#include "calls/RecordValues.h"
#include "cdr/CdrText.h"

#include <new>
#include <nlohmann/json.hpp>

namespace {

using CJson = nlohmann::ordered_json;
using EKind = CCdrColumn::EKind;

CJson valueJson(const CCallRecord::CValue& value)
{
    CJson json;
    if (CdrText::isText(value.sText))
        json["value"] = value.sText;
    else
        json["base64"] = CdrText::base64(value.sText);
    json["time"] = CdrText::timeText(value.tsStamp.value());
    json["increment"] = value.tsStamp.incrementValue();
    return json;
}

/// Adds a member that is not there yet. Looking for it, as operator[] does, takes a time that grows with all of them.
void append(CJson& object, const std::string& sName, CJson value)
{
    object.get_ref<CJson::object_t&>().emplace_back(CdrText::escaped(sName), std::move(value));
}

std::string propertiesText(const CCallRecord& record)
{
    CJson json = CJson::object();
    for (const auto& [sName, value] : record.mapProperties)
        append(json, sName, valueJson(value));
    return json.dump();
}

std::string logEntriesText(const CCallRecord& record)
{
    CJson json = CJson::object();
    for (const auto& [sName, entries] : record.mapLogs)
    {
        CJson log = CJson::array();
        for (const auto& [stamp, value] : entries)
            log.push_back(valueJson(value));
        append(json, sName, std::move(log));
    }
    return json.dump();
}

/// A value for a column: the text itself, or something to look at. The JSON columns have its bytes.
std::string columnText(const std::string& sBytes)
{
    return CdrText::isText(sBytes) ? sBytes : CdrText::escaped(sBytes);
}

/// Empty when nothing was logged, and for a time that no database has.
std::string columnTime(std::uint64_t ullFileTime)
{
    std::string sTime = ullFileTime != 0 ? CdrText::timeText(ullFileTime) : "";
    return sTime.starts_with('+') ? "" : sTime;
}

std::string timeOfFirst(const CCallRecord& record, const std::string& sLog)
{
    const auto it = record.mapLogs.find(sLog);
    return it != record.mapLogs.end() && !it->second.empty() ? columnTime(it->second.begin()->first.first) : "";
}

} // namespace

const std::array<CCdrColumn, 18> g_aCdrColumns = {{{"call_id", &CCdrRow::sCallID, EKind::key},
                                                   {"origin", &CCdrRow::sOrigin, EKind::key},
                                                   {"received_at", &CCdrRow::sReceivedAt, EKind::time},
                                                   {"caller", &CCdrRow::sCaller},
                                                   {"caller_name", &CCdrRow::sCallerName},
                                                   {"called", &CCdrRow::sCalled},
                                                   {"called_name", &CCdrRow::sCalledName},
                                                   {"connected", &CCdrRow::sConnected},
                                                   {"originator_ip", &CCdrRow::sOriginatorIP},
                                                   {"relation", &CCdrRow::sRelation},
                                                   {"related_call_id", &CCdrRow::sRelatedCallID},
                                                   {"comment", &CCdrRow::sComment},
                                                   {"started_at", &CCdrRow::sStartedAt, EKind::time},
                                                   {"answered_at", &CCdrRow::sAnsweredAt, EKind::time},
                                                   {"ended_at", &CCdrRow::sEndedAt, EKind::time},
                                                   {"outcome", &CCdrRow::sOutcome},
                                                   {"properties", &CCdrRow::sProperties, EKind::json},
                                                   {"log_entries", &CCdrRow::sLogEntries, EKind::json}}};

CCdrRow makeCdrRow(CCallData& data, const std::string& sOrigin, std::uint64_t ullReceived)
{
    CCallRecord record;
    (void)takeValues(data, &record); // how many there are is no matter
    CCdrRow row;
    std::string sCallID;
    (void)data.getCallID(&sCallID); // always 0
    if (data.serialize(&row.sRecord) < 0)
        throw std::bad_alloc(); // its only reason
    row.sCallID = CdrText::keyOf(sCallID);
    row.sOrigin = CdrText::keyOf(sOrigin);
    row.sReceivedAt = columnTime(ullReceived);
    row.sCaller = columnText(record.property(CDSPROP_CALLERID));
    row.sCallerName = columnText(record.property(CDSPROP_CALLERID_NAME));
    row.sCalled = columnText(record.property(CDSPROP_CALLEDID));
    row.sCalledName = columnText(record.property(CDSPROP_CALLEDID_NAME));
    row.sConnected = columnText(record.property(CDSPROP_L_CONNECTEDID));
    row.sOriginatorIP = columnText(record.property(CDSPROP_CALL_ORIGINATOR_IP));
    row.sRelation = columnText(record.property(CDSPROP_CALL_RELATION));
    row.sRelatedCallID = columnText(record.property(CDSPROP_RELATED_CALLID));
    row.sComment = columnText(record.property(CDSPROP_COMMENT));
    row.sStartedAt = columnTime(record.ullFirst);
    row.sAnsweredAt = timeOfFirst(record, CDSLOG_CONNECT_ENTRY);
    row.sEndedAt = timeOfFirst(record, CDSLOG_DISCONNECT_ENTRY);
    row.sOutcome = columnText(record.outcome());
    row.sProperties = propertiesText(record);
    row.sLogEntries = logEntriesText(record);
    return row;
}
