#pragma once

#include "replay/ReplaySession.h"

#include <map>
#include <ostream>
#include <string>

/// Two captures of the same calls, compared.
struct CComparison
{
    std::string sOther; ///< path of the other capture
    std::string sOtherFormat;
    std::size_t uRecords = 0; ///< of the first
    std::size_t uOtherRecords = 0;
    std::size_t uEqual = 0; ///< same properties, same log entries in the same order; stamps are not compared
    std::vector<std::string> vecDifferent; ///< record IDs, those only one side has included

    bool same() const noexcept { return vecDifferent.empty(); }
};
[[nodiscard]] CComparison compareRecords(const CSessionResult& first, const CSessionResult& other);

/// What went wrong although the replay came to its end, a sentence each: a damaged capture, a call to watch that is not
/// there, operations that the store refused.
///
/// @param sWatch  Call-ID that was to be watched; empty: none in particular
[[nodiscard]] std::vector<std::string> complaints(const CSessionResult& result, const std::string& sWatch);

/// Writes the result for people.
///
/// @param pComparison  may be null
void writeReport(std::ostream& out, const CSessionResult& result, const CComparison* pComparison);

/// Writes the result as one JSON object.
void writeJson(std::ostream& out, const CSessionResult& result, const CComparison* pComparison);

/// How many calls went how.
[[nodiscard]] std::map<std::string, std::size_t> outcomes(const CRecordBook& mapRecords);

/// A file time as "2026-11-21 00:10:10.061349", UTC.
[[nodiscard]] std::string timeText(std::uint64_t ullFileTime);
