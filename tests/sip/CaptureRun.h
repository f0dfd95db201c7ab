#pragma once

#include "CDSNames.h"
#include "calls/RecordBook.h"
#include "replay/Replay.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Captures replayed without a store.
struct CCaptureRun
{
    explicit CCaptureRun(const std::string& sPath, bool bCloseOpen = false)
        : CCaptureRun(std::vector<std::string>{sPath}, bCloseOpen)
    {
    }
    explicit CCaptureRun(const std::vector<std::string>& vecPaths, bool bCloseOpen = false)
    {
        CCaptureReplay replay(sink, {});
        std::string sError;
        for (const std::string& sPath : vecPaths)
            EXPECT_TRUE(replay.add(sPath, &sError)) << sPath << ": " << sError;
        replay.finish(bCloseOpen);
        for (const CCaptureSummary& capture : replay.captures())
        {
            EXPECT_EQ(capture.sDamage, "");
            summary = capture;
        }
    }

    const CRecordBook& records() const { return sink.records(); }

    CRecordBookSink sink;
    CCaptureSummary summary; // of the last
};

/// The first stamp of a log as seconds since 1970 with six decimals, as the tables of expected calls write it; empty
/// when the log is.
inline std::string firstTime(const CCallRecord& record, const std::string& sLog)
{
    const auto it = record.mapLogs.find(sLog);
    if (it == record.mapLogs.end())
        return "";
    const auto ullMicros = it->second.begin()->first.first / 10 - 11'644'473'600ULL * 1'000'000ULL;
    const std::string sFraction = std::to_string(1'000'000ULL + ullMicros % 1'000'000ULL).substr(1);
    return std::to_string(ullMicros / 1'000'000ULL) + "." + sFraction;
}

/// Who ended a call: the first field of its disconnect entry.
inline std::string endedBy(const CCallRecord& record)
{
    const auto vecEnds = record.entries(CDSLOG_DISCONNECT_ENTRY);
    return vecEnds.empty() ? "" : vecEnds[0].substr(0, vecEnds[0].find(';'));
}

/// A display name as the tables write it (as it stood in the message) without its quotes and escapes.
inline std::string plainName(std::string sName)
{
    if (sName.size() < 2 || sName.front() != '"')
        return sName;
    std::string sPlain;
    for (std::size_t u = 1; u + 1 < sName.size(); ++u)
        sPlain.push_back(sName[u] == '\\' ? sName[++u] : sName[u]);
    return sPlain;
}
