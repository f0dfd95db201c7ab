#pragma once

#include "cdr/CdrDatabase.h"

#include <array>
#include <functional>
#include <string>

/// The table, and how it came to be what it is. Both databases have the same columns.
namespace CdrSchema {

/// A step from one version to the next. Steps that have been released are never changed: databases in use went through
/// them.
struct CMigration
{
    const char* pszSqlite;
    const char* pszPostgres;
};
extern const std::array<CMigration, CCdrDatabase::cSchemaVersion> g_aMigrations; // to versions 1, 2, ...

/// The columns, and behind them the record and the number of its bytes, with a placeholder for each but the last.
///
/// @param fnPlaceholder  gives the SQL of a column's value; the argument counts from 1, the last is the record
[[nodiscard]] std::string insertText(const std::function<std::string(std::size_t, const CCdrColumn*)>& fnPlaceholder,
                                     const std::string& sByteCount);

/// Counts of outcomes, and calls, as both databases understand it.
extern const char* const g_pszOutcomes;
[[nodiscard]] std::string callsText(std::size_t uLimit, const std::function<std::string(const char*)>& fnTime);

/// Why a schema cannot be used as it is.
[[nodiscard]] std::string versionComplaint(int nVersion);

} // namespace CdrSchema
