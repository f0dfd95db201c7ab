#pragma once

#include "CDSCallData.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// A finished call's record as one row of a database. All but the record's own text is UTF-8 without a zero byte; an
/// empty text is no value, and times are ISO 8601 in UTC.
struct CCdrRow
{
    std::string sCallID;     ///< the record's ID; \xHH for bytes that are no text and for backslashes
    std::string sOrigin;     ///< address of the server that sent it
    std::string sReceivedAt; ///< by this server's clock
    std::string sCaller;
    std::string sCallerName;
    std::string sCalled;
    std::string sCalledName;
    std::string sConnected; ///< who answered
    std::string sOriginatorIP;
    std::string sRelation; ///< to another call: "forward", ...
    std::string sRelatedCallID;
    std::string sComment;
    std::string sStartedAt; ///< earliest stamp in the record
    std::string sAnsweredAt;
    std::string sEndedAt;
    std::string sOutcome; ///< "answered", "busy", "cancelled", "failed 404", ...
    /// {"CALLERID": {"value": "alice", "time": "2026-11-21T00:10:10.0613490Z", "increment": 0}, ...}; "base64" stands
    /// instead of "value" when that is no text. The zero byte that ends a text is left out.
    std::string sProperties;
    /// {"CONNECT_ENTRY": [the same for each entry, in time order], ...}
    std::string sLogEntries;
    std::string sRecord; ///< the record's own text form, any bytes: all of the record can be read from it again
};

/// A column of the table, but for the record's own text.
struct CCdrColumn
{
    enum class EKind
    {
        key, ///< never absent
        text,
        time,
        json
    };

    const char* pszName;
    std::string CCdrRow::*psValue;
    EKind eKind = EKind::text;
};

/// All of them, in the table's order.
extern const std::array<CCdrColumn, 18> g_aCdrColumns;

/// Makes a row of a record.
///
/// @param data         not changed, but for what iterations change
/// @param sOrigin      the sender's address
/// @param ullReceived  file time
/// @throws std::bad_alloc
[[nodiscard]] CCdrRow makeCdrRow(CCallData& data, const std::string& sOrigin, std::uint64_t ullReceived);
