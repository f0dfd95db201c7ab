// CDRs in an SQLite file.
#include "cdr/CdrSqlite.h"

#include "cdr/CdrSchema.h"

#include <sys/stat.h>

namespace {

constexpr int cBusyMs = 250;
/// Another program may be bringing the schema forward.
constexpr int cOpenBusyMs = 5000;

std::string columnOf(sqlite3_stmt* pStatement, int nColumn)
{
    const auto* const pText = reinterpret_cast<const char*>(sqlite3_column_text(pStatement, nColumn));
    return pText != nullptr ? std::string(pText, static_cast<std::size_t>(sqlite3_column_bytes(pStatement, nColumn)))
                            : std::string();
}

/// The bytes stay the caller's, who keeps them until the statement is reset.
void bindText(sqlite3_stmt* pStatement, int nParameter, const std::string& sText)
{
    (void)sqlite3_bind_text64(pStatement, nParameter, sText.data(), sText.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void bindBlob(sqlite3_stmt* pStatement, int nParameter, const std::string& sBytes)
{
    (void)sqlite3_bind_blob64(pStatement, nParameter, sBytes.data(), sBytes.size(), SQLITE_STATIC);
}

std::string numbered(std::size_t uNumber, const CCdrColumn* pColumn)
{
    const std::string sParameter = "?" + std::to_string(uNumber);
    const bool bMayBeAbsent = pColumn != nullptr && pColumn->eKind != CCdrColumn::EKind::key;
    return bMayBeAbsent ? "NULLIF(" + sParameter + ", '')" : sParameter;
}

} // namespace

/// A statement for one use, or a prepared one that is ready again afterwards.
class CSqliteCdrDatabase::CStatement
{
public:
    CStatement(sqlite3* pConnection, const std::string& sSql) : m_bOwned(true)
    {
        (void)sqlite3_prepare_v2(pConnection, sSql.c_str(), -1, &m_pStatement, nullptr); // null then, and steps fail
    }
    explicit CStatement(sqlite3_stmt* pPrepared) : m_pStatement(pPrepared), m_bOwned(false) {}
    ~CStatement()
    {
        if (m_bOwned)
            (void)sqlite3_finalize(m_pStatement);
        else
            (void)sqlite3_reset(m_pStatement); // it repeats the code of the step
    }
    CStatement(const CStatement&) = delete;
    CStatement& operator=(const CStatement&) = delete;

    int step() { return m_pStatement != nullptr ? sqlite3_step(m_pStatement) : SQLITE_ERROR; }
    sqlite3_stmt* get() const { return m_pStatement; }

private:
    sqlite3_stmt* m_pStatement = nullptr;
    bool m_bOwned;
};

CSqliteCdrDatabase::CSqliteCdrDatabase(std::string sPath) : m_sPath(std::move(sPath)) {}

CSqliteCdrDatabase::~CSqliteCdrDatabase()
{
    close();
}

void CSqliteCdrDatabase::close()
{
    (void)sqlite3_finalize(std::exchange(m_pInsert, nullptr));
    (void)sqlite3_finalize(std::exchange(m_pCompare, nullptr));
    (void)sqlite3_close(std::exchange(m_pConnection, nullptr));
}

std::string CSqliteCdrDatabase::complaint() const
{
    return m_sPath + ": " + (m_pConnection != nullptr ? sqlite3_errmsg(m_pConnection) : "no memory");
}

bool CSqliteCdrDatabase::execute(const char* pszSql)
{
    return sqlite3_exec(m_pConnection, pszSql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool CSqliteCdrDatabase::open(ECdrOpen eOpen, std::string* psError)
{
    return openWaiting(eOpen, cOpenBusyMs, psError);
}

/// @param nBusyMs  how long each statement waits for a lock
bool CSqliteCdrDatabase::openWaiting(ECdrOpen eOpen, int nBusyMs, std::string* psError)
{
    close();
    const int nFlags = eOpen == ECdrOpen::write ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READWRITE;
    int nVersion = 0;
    if (sqlite3_open_v2(m_sPath.c_str(), &m_pConnection, nFlags, nullptr) != SQLITE_OK ||
        sqlite3_busy_timeout(m_pConnection, nBusyMs) != SQLITE_OK)
        *psError = complaint();
    else if (eOpen == ECdrOpen::write && sqlite3_db_readonly(m_pConnection, "main") != 0)
        *psError = m_sPath + ": this user may not write to it";
    else if (!readVersion(&nVersion))
        *psError = complaint();
    else if (eOpen == ECdrOpen::read && nVersion != cSchemaVersion)
        *psError = m_sPath + ": " + CdrSchema::versionComplaint(nVersion);
    else if (eOpen == ECdrOpen::read)
        return true;
    else if (migrate(psError))
    {
        struct stat status = {};
        if (prepare() && stat(m_sPath.c_str(), &status) == 0)
        {
            m_device = status.st_dev;
            m_inode = status.st_ino;
            return true;
        }
        *psError = complaint();
    }
    close();
    return false;
}

/// @param pnVersion  out: 0 when there is no table yet
bool CSqliteCdrDatabase::readVersion(int* pnVersion)
{
    CStatement exists(m_pConnection, "SELECT count(*) FROM sqlite_master WHERE name = 'cds_schema'");
    if (exists.step() != SQLITE_ROW)
        return false;
    *pnVersion = 0;
    if (sqlite3_column_int(exists.get(), 0) == 0)
        return true;
    CStatement version(m_pConnection, "SELECT max(version) FROM cds_schema");
    if (version.step() != SQLITE_ROW)
        return false;
    *pnVersion = sqlite3_column_int(version.get(), 0);
    return true;
}

bool CSqliteCdrDatabase::migrate(std::string* psError)
{
    int nVersion = 0;
    // A write-ahead log lets readers read while it is written to; whoever is told that a record is stored may lose
    // power.
    const bool bDone = execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; BEGIN IMMEDIATE") &&
                       readVersion(&nVersion) && (nVersion > cSchemaVersion || bringForward(&nVersion)) &&
                       execute("COMMIT");
    if (!bDone)
        *psError = complaint();
    else if (nVersion > cSchemaVersion)
        *psError = m_sPath + ": " + CdrSchema::versionComplaint(nVersion);
    return psError->empty();
}

bool CSqliteCdrDatabase::bringForward(int* pnVersion)
{
    if (*pnVersion == cSchemaVersion)
        return true;
    if (*pnVersion == 0 && !execute("CREATE TABLE cds_schema (version INTEGER NOT NULL);"
                                    "INSERT INTO cds_schema VALUES (0)"))
        return false;
    for (; *pnVersion < cSchemaVersion; ++*pnVersion)
        if (!execute(CdrSchema::g_aMigrations.at(static_cast<std::size_t>(*pnVersion)).pszSqlite))
            return false;
    return execute(("UPDATE cds_schema SET version = " + std::to_string(cSchemaVersion)).c_str());
}

bool CSqliteCdrDatabase::prepare()
{
    const std::string sRecord = "?" + std::to_string(g_aCdrColumns.size() + 1);
    const std::string sInsert = CdrSchema::insertText(numbered, "length(" + sRecord + ")");
    return sqlite3_busy_timeout(m_pConnection, cBusyMs) == SQLITE_OK &&
           sqlite3_prepare_v3(m_pConnection, sInsert.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &m_pInsert, nullptr) ==
               SQLITE_OK &&
           sqlite3_prepare_v3(m_pConnection,
                              "SELECT record = ?1 AND properties = ?2 AND log_entries = ?3 FROM cdr"
                              " WHERE call_id = ?4 AND origin = ?5",
                              -1, SQLITE_PREPARE_PERSISTENT, &m_pCompare, nullptr) == SQLITE_OK;
}

bool CSqliteCdrDatabase::isMoved() const
{
    struct stat status = {};
    return stat(m_sPath.c_str(), &status) != 0 || status.st_dev != m_device || status.st_ino != m_inode;
}

void CSqliteCdrDatabase::bind(sqlite3_stmt* pStatement, const CCdrRow& row) const
{
    int nParameter = 0;
    for (const CCdrColumn& column : g_aCdrColumns)
        bindText(pStatement, ++nParameter, row.*column.psValue);
    bindBlob(pStatement, ++nParameter, row.sRecord);
}

ECdrWrite CSqliteCdrDatabase::write(const CCdrRow& row, std::string* psError)
{
    if (m_pConnection == nullptr || isMoved())
    {
        std::string sWhy;
        if (!openWaiting(ECdrOpen::write, m_bLocked ? 0 : cBusyMs, &sWhy))
        {
            *psError = sWhy;
            return ECdrWrite::failed;
        }
    }
    (void)sqlite3_busy_timeout(m_pConnection, m_bLocked ? 0 : cBusyMs); // it cannot fail
    CStatement insert(m_pInsert);
    bind(m_pInsert, row);
    const int nResult = insert.step(); // a statement alone is a transaction, on disk when it returns
    m_bLocked = (nResult & 0xFF) == SQLITE_BUSY;
    auto eWrite = nResult != SQLITE_DONE                ? ECdrWrite::failed
                  : sqlite3_changes(m_pConnection) != 0 ? ECdrWrite::stored
                                                        : compare(row);
    if (eWrite == ECdrWrite::failed)
        *psError = complaint();
    return eWrite;
}

ECdrWrite CSqliteCdrDatabase::compare(const CCdrRow& row)
{
    CStatement compare(m_pCompare);
    bindBlob(m_pCompare, 1, row.sRecord);
    bindText(m_pCompare, 2, row.sProperties);
    bindText(m_pCompare, 3, row.sLogEntries);
    bindText(m_pCompare, 4, row.sCallID);
    bindText(m_pCompare, 5, row.sOrigin);
    if (compare.step() != SQLITE_ROW)
        return ECdrWrite::failed;
    return sqlite3_column_int(m_pCompare, 0) != 0 ? ECdrWrite::present : ECdrWrite::differs;
}

bool CSqliteCdrDatabase::list(std::size_t uLimit, CCdrListing* pListing, std::string* psError)
{
    CCdrListing listing;
    CStatement outcomes(m_pConnection, CdrSchema::g_pszOutcomes);
    int nResult = SQLITE_ROW;
    while ((nResult = outcomes.step()) == SQLITE_ROW)
    {
        const auto ullRows = static_cast<std::uint64_t>(sqlite3_column_int64(outcomes.get(), 1));
        listing.vecOutcomes.emplace_back(columnOf(outcomes.get(), 0), ullRows);
        listing.ullRows += ullRows;
    }
    CStatement calls(m_pConnection, CdrSchema::callsText(uLimit, [](const char* pszTime) { return pszTime; }));
    while (nResult == SQLITE_DONE && calls.step() == SQLITE_ROW)
    {
        const auto text = [&](int nColumn) { return columnOf(calls.get(), nColumn); };
        listing.vecCalls.push_back({text(0), text(1), text(2), text(3), text(4), text(5), text(6)});
    }
    const bool bRead = nResult == SQLITE_DONE && sqlite3_errcode(m_pConnection) == SQLITE_DONE;
    if (bRead)
        *pListing = std::move(listing);
    else
        *psError = complaint();
    return bRead;
}
