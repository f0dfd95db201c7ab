// The table's versions, and the statements that both databases are given.
#include "cdr/CdrSchema.h"

// Text columns but the key have no index: what comes from the network may be longer than an index takes.
const std::array<CdrSchema::CMigration, CCdrDatabase::cSchemaVersion> CdrSchema::g_aMigrations = {
    {{"CREATE TABLE cdr (call_id TEXT NOT NULL, origin TEXT NOT NULL, received_at TEXT NOT NULL, caller TEXT,"
      " caller_name TEXT, called TEXT, called_name TEXT, connected TEXT, originator_ip TEXT, relation TEXT,"
      " related_call_id TEXT, comment TEXT, started_at TEXT, answered_at TEXT, ended_at TEXT, outcome TEXT NOT NULL,"
      " properties TEXT NOT NULL, log_entries TEXT NOT NULL, record BLOB NOT NULL, PRIMARY KEY (call_id, origin));",
      "CREATE TABLE cdr (call_id text NOT NULL, origin text NOT NULL, received_at timestamptz NOT NULL, caller text,"
      " caller_name text, called text, called_name text, connected text, originator_ip text, relation text,"
      " related_call_id text, comment text, started_at timestamptz, answered_at timestamptz, ended_at timestamptz,"
      " outcome text NOT NULL, properties jsonb NOT NULL, log_entries jsonb NOT NULL, record bytea NOT NULL,"
      " PRIMARY KEY (call_id, origin));"},
     // What records weigh, and the order in which they are shown.
     {"ALTER TABLE cdr ADD COLUMN record_bytes INTEGER NOT NULL DEFAULT 0;"
      "UPDATE cdr SET record_bytes = length(record);"
      "CREATE INDEX cdr_started_at ON cdr (started_at);",
      "ALTER TABLE cdr ADD COLUMN record_bytes bigint NOT NULL DEFAULT 0;"
      "UPDATE cdr SET record_bytes = octet_length(record);"
      "CREATE INDEX cdr_started_at ON cdr (started_at);"}}};

const char* const CdrSchema::g_pszOutcomes = "SELECT outcome, count(*) FROM cdr GROUP BY outcome ORDER BY outcome";

std::string CdrSchema::insertText(const std::function<std::string(std::size_t, const CCdrColumn*)>& fnPlaceholder,
                                  const std::string& sByteCount)
{
    std::string sColumns;
    std::string sValues;
    std::size_t uNumber = 0;
    for (const CCdrColumn& column : g_aCdrColumns)
    {
        sColumns += std::string(column.pszName) + ", ";
        sValues += fnPlaceholder(++uNumber, &column) + ", ";
    }
    return "INSERT INTO cdr (" + sColumns + "record, record_bytes) VALUES (" + sValues +
           fnPlaceholder(++uNumber, nullptr) + ", " + sByteCount + ") ON CONFLICT (call_id, origin) DO NOTHING";
}

std::string CdrSchema::callsText(std::size_t uLimit, const std::function<std::string(const char*)>& fnTime)
{
    return "SELECT call_id, origin, " + fnTime("started_at") + ", " + fnTime("ended_at") +
           ", caller, called, outcome FROM cdr ORDER BY started_at, call_id, origin LIMIT " + std::to_string(uLimit);
}

std::string CdrSchema::versionComplaint(int nVersion)
{
    const std::string sOurs = std::to_string(CCdrDatabase::cSchemaVersion);
    if (nVersion > CCdrDatabase::cSchemaVersion)
        return "the database has schema version " + std::to_string(nVersion) + ", this program knows versions up to " +
               sOurs + ": use the newer program";
    if (nVersion <= 0)
        return "the database has no table of CDRs";
    return "the database has schema version " + std::to_string(nVersion) + ", older than " + sOurs +
           ": cdscollect serve brings it forward";
}
