// What a replay shows.
#include "replay/ReplayReport.h"

#include "CDSNames.h"
#include "sip/SipText.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <tuple>

namespace {

using CJson = nlohmann::ordered_json;

constexpr std::uint64_t cSecondsFrom1601To1970 = 11'644'473'600ULL;

/// An item of a record's time line. Within one microsecond the logs stand in the order in which things happen.
struct CTimeLineItem
{
    CCDSTimestamp tsStamp;
    int nRank;
    std::string sName;
    std::string sText;
};

int rankOf(const std::string& sLog)
{
    const std::array<const std::string*, 4> order = {&CDSLOG_TUPLE_ROUTING_ENTRY, &CDSLOG_CONNECT_ENTRY,
                                                     &CDSLOG_MEDIASTREAM_ENTRY, &CDSLOG_DISCONNECT_ENTRY};
    return static_cast<int>(std::find_if(order.begin(), order.end(), [&](const auto* ps) { return *ps == sLog; }) -
                            order.begin());
}

std::vector<CTimeLineItem> timeLine(const CCallRecord& record)
{
    std::vector<CTimeLineItem> vecItems;
    for (const auto& [sName, entries] : record.mapLogs)
        for (const auto& [stamp, value] : entries)
            vecItems.push_back({value.tsStamp, rankOf(sName), sName, value.sText});
    std::stable_sort(vecItems.begin(), vecItems.end(), [](const CTimeLineItem& left, const CTimeLineItem& right) {
        return std::make_tuple(left.tsStamp.value(), left.nRank, left.tsStamp.incrementValue()) <
               std::make_tuple(right.tsStamp.value(), right.nRank, right.tsStamp.incrementValue());
    });
    return vecItems;
}

double seconds(std::chrono::nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

std::uint64_t rate(std::uint64_t ullCount, std::chrono::nanoseconds time)
{
    return time.count() > 0 ? static_cast<std::uint64_t>(static_cast<double>(ullCount) / seconds(time)) : 0;
}

void writeRow(std::ostream& out, const std::string& sLabel, std::uint64_t ullValue, const std::string& sNote = "")
{
    out << "  " << std::left << std::setw(46) << sLabel << std::right << std::setw(10) << ullValue;
    if (!sNote.empty())
        out << "  " << sNote;
    out << '\n';
}

void writeCounts(std::ostream& out, const char* pszKind, const CIntakeCounts::CCounts& counts)
{
    for (const auto& [sReason, ullCount] : counts)
        writeRow(out, std::string(pszKind) + ": " + std::string(sReason), ullCount);
}

void writeCapture(std::ostream& out, const CCaptureSummary& capture)
{
    out << "\nCapture " << printable(capture.sPath) << " (" << capture.format() << ")\n";
    writeRow(out, "packets", capture.ullPackets);
    writeRow(out, "SIP messages", capture.ullSip + capture.ullHep);
    writeRow(out, "read", capture.ullMessages);
    writeRow(out, "repeats dropped", capture.ullRepeats);
    writeCounts(out, "refused", capture.counts.refused());
    writeCounts(out, "ignored", capture.counts.ignored());
    writeCounts(out, "warning", capture.counts.warnings());
    writeRow(out, "calls still open at the end", capture.ullOpen);
    if (!capture.sDamage.empty())
        out << "  the file is damaged, what came before was taken: " << printable(capture.sDamage) << '\n';
}

void writeDeliveries(std::ostream& out, const CSessionResult& result)
{
    out << "\nRegistrants\n"
        << "  " << std::left << std::setw(46) << "" << std::right << std::setw(10) << "deliveries" << std::setw(10)
        << "changes" << '\n';
    const auto row = [&](const std::string& sLabel, std::uint64_t ullDeliveries, std::uint64_t ullChanges) {
        out << "  " << std::left << std::setw(46) << sLabel << std::right << std::setw(10) << ullDeliveries
            << std::setw(10) << ullChanges << '\n';
    };
    row("one call", result.ullOneDeliveries, result.ullOneChanges);
    row("all calls", result.ullAllDeliveries, result.ullAllChanges);
    row("end of call only", result.ullEndDeliveries, result.ullEndChanges);
    if (!result.bWaited && result.ullEnded != 0)
        out << "  (last deliveries come 30 to 40 seconds after a call's end; they were not waited for)\n";
    if (result.bWaited)
        out << "  (the registrant of all calls gets the last deliveries too, each with the call's whole record)\n";
}

void writeSpeed(std::ostream& out, const CSessionResult& result)
{
    out << "\nSpeed\n";
    writeRow(out, "updates", result.ullUpdates);
    writeRow(out, "updates per second, all work", rate(result.ullUpdates, result.replayTime),
             "capture, SIP, mapping, update, delivery");
    writeRow(out, "updates per second, store alone", rate(result.ullUpdates, result.updateTime), "update, delivery");
    if (result.ullFailures != 0)
        writeRow(out, "operations that the store refused", result.ullFailures,
                 "the first with " + codeText(result.lFirstFailure));
}

void writeHeadQuarters(std::ostream& out, const CSessionResult& result)
{
    out << "\nRecords of finished calls, to server " << result.sHeadQuarters << '\n';
    writeRow(out, "sent", result.cdrs.ullSent, "none is waiting any more");
    if (result.cdrs.ullTooLarge != 0)
        writeRow(out, "refused, larger than all that may wait", result.cdrs.ullTooLarge);
    if (result.cdrs.ullFailed != 0)
        writeRow(out, "refused by the store", result.cdrs.ullFailed);
}

void writeRecord(std::ostream& out, const std::string& sRecordID, const CCallRecord& record)
{
    out << "\nRecord " << printable(sRecordID) << ": " << record.outcome() << " (times in UTC)\n";
    for (const auto& [sName, value] : record.mapProperties)
        out << "  " << timeText(value.tsStamp.value()) << "  " << std::left << std::setw(22) << printable(sName)
            << printable(value.sText) << '\n';
    out << "  time line\n";
    for (const CTimeLineItem& item : timeLine(record))
        out << "  " << timeText(item.tsStamp.value()) << "  " << std::left << std::setw(22) << printable(item.sName)
            << printable(item.sText) << '\n';
}

void writeComparison(std::ostream& out, const CComparison& comparison)
{
    constexpr std::size_t cShown = 10;
    out << "\nCompared with " << printable(comparison.sOther) << " (" << comparison.sOtherFormat << ")\n"
        << "  " << comparison.uEqual << " of " << comparison.uRecords << " records equal";
    if (comparison.uOtherRecords != comparison.uRecords)
        out << " (the other has " << comparison.uOtherRecords << ")";
    out << '\n';
    for (std::size_t u = 0; u < comparison.vecDifferent.size() && u < cShown; ++u)
        out << "  different: " << printable(comparison.vecDifferent[u]) << '\n';
    if (comparison.vecDifferent.size() > cShown)
        out << "  and " << comparison.vecDifferent.size() - cShown << " more\n";
}

CJson countsJson(const CIntakeCounts::CCounts& counts)
{
    CJson json = CJson::object();
    for (const auto& [sReason, ullCount] : counts)
        json[std::string(sReason)] = ullCount;
    return json;
}

CJson captureJson(const CCaptureSummary& capture)
{
    return {{"path", capture.sPath},
            {"format", capture.format()},
            {"packets", capture.ullPackets},
            {"messages", capture.ullSip + capture.ullHep},
            {"messages_read", capture.ullMessages},
            {"repeats_dropped", capture.ullRepeats},
            {"refused", countsJson(capture.counts.refused())},
            {"ignored", countsJson(capture.counts.ignored())},
            {"warnings", countsJson(capture.counts.warnings())},
            {"calls_open", capture.ullOpen},
            {"damage", capture.sDamage}};
}

CJson valueJson(const std::string& sName, const CCDSTimestamp& tsStamp, const std::string& sText)
{
    return {{"name", sName},
            {"value", sText},
            {"time", timeText(tsStamp.value())},
            {"file_time", tsStamp.value()},
            {"increment", tsStamp.incrementValue()}};
}

CJson recordJson(const std::string& sRecordID, const CCallRecord& record)
{
    CJson properties = CJson::array();
    for (const auto& [sName, value] : record.mapProperties)
        properties.push_back(valueJson(sName, value.tsStamp, value.sText));
    CJson entries = CJson::array();
    for (const CTimeLineItem& item : timeLine(record))
        entries.push_back(valueJson(item.sName, item.tsStamp, item.sText));
    return {{"id", sRecordID},
            {"outcome", record.outcome()},
            {"properties", std::move(properties)},
            {"time_line", std::move(entries)}};
}

CJson deliveryJson(std::uint64_t ullDeliveries, std::uint64_t ullChanges)
{
    return {{"deliveries", ullDeliveries}, {"changes", ullChanges}};
}

} // namespace

std::map<std::string, std::size_t> outcomes(const CRecordBook& mapRecords)
{
    std::map<std::string, std::size_t> mapOutcomes;
    for (const auto& [sRecordID, record] : mapRecords)
        ++mapOutcomes[record.outcome()];
    return mapOutcomes;
}

std::string timeText(std::uint64_t ullFileTime)
{
    const std::uint64_t ullMicros = ullFileTime / 10;
    const auto when =
        static_cast<std::time_t>(ullMicros / 1'000'000) - static_cast<std::time_t>(cSecondsFrom1601To1970);
    std::tm parts{};
    (void)gmtime_r(&when, &parts); // the year fits: stamps are checked on their way in
    char szText[80] = "";
    (void)std::snprintf(szText, sizeof szText, "%04d-%02d-%02d %02d:%02d:%02d.%06u", parts.tm_year + 1900,
                        parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                        static_cast<unsigned>(ullMicros % 1'000'000));
    return szText;
}

CComparison compareRecords(const CSessionResult& first, const CSessionResult& other)
{
    CComparison comparison;
    comparison.uRecords = first.mapRecords.size();
    comparison.uOtherRecords = other.mapRecords.size();
    for (const CCaptureSummary& capture : other.vecCaptures)
    {
        comparison.sOther = capture.sPath;
        comparison.sOtherFormat = capture.format();
    }
    for (const auto& [sRecordID, record] : first.mapRecords)
    {
        const auto it = other.mapRecords.find(sRecordID);
        if (it != other.mapRecords.end() && it->second.sameValues(record))
            ++comparison.uEqual;
        else
            comparison.vecDifferent.push_back(sRecordID);
    }
    for (const auto& [sRecordID, record] : other.mapRecords)
        if (!first.mapRecords.contains(sRecordID))
            comparison.vecDifferent.push_back(sRecordID);
    return comparison;
}

std::vector<std::string> complaints(const CSessionResult& result, const std::string& sWatch)
{
    std::vector<std::string> vecComplaints;
    for (const CCaptureSummary& capture : result.vecCaptures)
        if (!capture.sDamage.empty())
            vecComplaints.push_back("the capture " + printable(capture.sPath) +
                                    " is damaged, what came before was taken: " + printable(capture.sDamage));
    if (!sWatch.empty() && result.sWatched.empty())
        vecComplaints.push_back("no call with the Call-ID " + printable(sWatch) + " was seen to begin");
    if (result.ullFailures != 0)
        vecComplaints.push_back("the store refused " + std::to_string(result.ullFailures) +
                                " operations, the first with " + codeText(result.lFirstFailure) +
                                "; the trace log (--log-dir) says more");
    if (const std::uint64_t ullNotSent = result.cdrs.ullTooLarge + result.cdrs.ullFailed; ullNotSent != 0)
        vecComplaints.push_back(std::to_string(ullNotSent) + " records of finished calls were not sent; the first is " +
                                printable(result.cdrs.sFirstComplaint));
    return vecComplaints;
}

void writeReport(std::ostream& out, const CSessionResult& result, const CComparison* pComparison)
{
    out << result.mapRecords.size() << " calls\n";
    for (const auto& [sOutcome, uCount] : outcomes(result.mapRecords))
        writeRow(out, sOutcome, uCount);
    for (const CCaptureSummary& capture : result.vecCaptures)
        writeCapture(out, capture);
    writeDeliveries(out, result);
    if (!result.sHeadQuarters.empty())
        writeHeadQuarters(out, result);
    writeSpeed(out, result);
    if (!result.sWatched.empty())
        writeRecord(out, result.sWatched, result.watched);
    if (pComparison != nullptr)
        writeComparison(out, *pComparison);
}

void writeJson(std::ostream& out, const CSessionResult& result, const CComparison* pComparison)
{
    CJson json;
    json["calls"] = result.mapRecords.size();
    json["outcomes"] = outcomes(result.mapRecords);
    json["captures"] = CJson::array();
    for (const CCaptureSummary& capture : result.vecCaptures)
        json["captures"].push_back(captureJson(capture));
    json["updates"] = result.ullUpdates;
    json["store_refusals"] = result.ullFailures;
    json["first_store_refusal"] = result.ullFailures == 0 ? CJson() : CJson(codeText(result.lFirstFailure));
    json["registrants"] = {{"one_call", deliveryJson(result.ullOneDeliveries, result.ullOneChanges)},
                           {"all_calls", deliveryJson(result.ullAllDeliveries, result.ullAllChanges)},
                           {"end_of_call", deliveryJson(result.ullEndDeliveries, result.ullEndChanges)}};
    json["waited_for_end_of_call"] = result.bWaited;
    if (!result.sHeadQuarters.empty())
        json["head_quarters"] = {{"address", result.sHeadQuarters},
                                 {"sent", result.cdrs.ullSent},
                                 {"too_large", result.cdrs.ullTooLarge},
                                 {"failed", result.cdrs.ullFailed}};
    json["replay_seconds"] = seconds(result.replayTime);
    json["updates_per_second"] = rate(result.ullUpdates, result.replayTime);
    json["store_seconds"] = seconds(result.updateTime);
    json["store_updates_per_second"] = rate(result.ullUpdates, result.updateTime);
    json["record"] = result.sWatched.empty() ? CJson() : recordJson(result.sWatched, result.watched);
    if (pComparison != nullptr)
        json["comparison"] = {{"path", pComparison->sOther},      {"format", pComparison->sOtherFormat},
                              {"records", pComparison->uRecords}, {"other_records", pComparison->uOtherRecords},
                              {"equal", pComparison->uEqual},     {"different", pComparison->vecDifferent}};
    // Record IDs are as the network sent them.
    out << json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}
