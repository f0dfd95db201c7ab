#pragma once

#include "calls/CallSink.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// A call's record as plain values: what a reader of the store can tell of it.
struct CCallRecord
{
    struct CValue
    {
        CCDSTimestamp tsStamp;
        std::string sText; ///< without the zero byte
    };
    using CEntries = std::map<std::pair<std::uint64_t, long>, CValue>; // stamp -> entry

    std::map<std::string, CValue> mapProperties; // name -> value
    std::map<std::string, CEntries> mapLogs;     // name -> entries
    std::uint64_t ullFirst = 0;                  ///< earliest stamp, file time

    /// Takes a change as the store does: the later property stays, the first of two entries with one stamp.
    void take(const CCallChange& change);

    /// A property's text; empty when there is none.
    std::string property(const std::string& sName) const;
    /// A log's texts in time order.
    std::vector<std::string> entries(const std::string& sName) const;

    /// How the call went: "answered", "busy", "cancelled", "failed 404", "closed"; "answered, open" and "open" while
    /// its end was not seen.
    std::string outcome() const;

    /// Whether both hold the same values in the same order, whatever their stamps.
    bool sameValues(const CCallRecord& other) const;
};

/// Records by ID.
using CRecordBook = std::map<std::string, CCallRecord>;

/// Keeps the records itself, without a store. A record that has ended does not begin again.
class CRecordBookSink final : public CCallSink
{
public:
    [[nodiscard]] bool onCallBegin(const std::string& sRecordID) override;
    void onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges) override;
    void onCallEnd(const std::string& sRecordID) override;

    const CRecordBook& records() const noexcept { return m_mapRecords; }
    std::uint64_t updates() const noexcept { return m_ullUpdates; }
    std::uint64_t ended() const noexcept { return m_setEnded.size(); }

private:
    CRecordBook m_mapRecords; // record ID -> record
    std::uint64_t m_ullUpdates = 0;
    std::set<std::string> m_setEnded; // record IDs
};
