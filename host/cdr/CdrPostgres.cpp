// CDRs in a PostgreSQL database.
#include "cdr/CdrPostgres.h"

#include "cdr/CdrSchema.h"

#include <algorithm>
#include <exception>
#include <pqxx/pqxx>
#include <sys/socket.h>

namespace {

constexpr std::chrono::seconds cFirstPause{1};
constexpr std::chrono::seconds cLongestPause{30};
/// Longer than the server's own limits, so that it is asked first.
constexpr std::chrono::seconds cLongestWait{4};
constexpr const char* cInsert = "cds_insert";
constexpr const char* cCompare = "cds_compare";
/// One program at a time brings the schema forward.
constexpr const char* cSchemaLock = "SELECT pg_advisory_xact_lock(4346213)";

/// The caller's settings come first; what they leave open gets a limit.
std::string withConnectLimit(const std::string& sUrl)
{
    if (sUrl.find("connect_timeout=") != std::string::npos)
        return sUrl;
    return sUrl + (sUrl.find('?') == std::string::npos ? "?" : "&") + "connect_timeout=3";
}

/// What may be shown: a password stays out of logs.
std::string withoutPassword(const std::string& sUrl)
{
    const std::size_t uUser = sUrl.find("://") + 3;
    const std::size_t uPlace = sUrl.find_first_of("/?", uUser);
    const std::size_t uAt = sUrl.rfind('@', uPlace);
    const std::size_t uColon = sUrl.find(':', uUser);
    std::string sShown = sUrl.substr(0, sUrl.find('?'));
    if (uAt != std::string::npos && uAt > uUser && uColon < uAt)
        sShown.erase(uColon, uAt - uColon);
    return sShown;
}

std::string placeholderOf(std::size_t uNumber, const CCdrColumn* pColumn)
{
    const std::string sParameter = "$" + std::to_string(uNumber);
    if (pColumn == nullptr)
        return sParameter + "::bytea";
    switch (pColumn->eKind)
    {
    case CCdrColumn::EKind::time: return "NULLIF(" + sParameter + "::text, '')::timestamptz";
    case CCdrColumn::EKind::json: return sParameter + "::jsonb";
    case CCdrColumn::EKind::text: return "NULLIF(" + sParameter + "::text, '')";
    default: return sParameter + "::text";
    }
}

/// Bytes as PostgreSQL reads them in a text.
std::string hexOf(const std::string& sBytes)
{
    static constexpr char cDigits[] = "0123456789abcdef";
    std::string sHex = "\\x";
    sHex.reserve(2 + 2 * sBytes.size());
    for (const char c : sBytes)
    {
        sHex += cDigits[static_cast<unsigned char>(c) >> 4U];
        sHex += cDigits[static_cast<unsigned char>(c) & 0x0FU];
    }
    return sHex;
}

/// Whether an error is the server's or the table's state, which the next row would meet too: connection, resources,
/// read-only transactions, locks, time limits, shutdown, the system.
bool isAboutAll(const std::string& sState)
{
    for (const char* const pszClass : {"08", "25", "53", "55", "57", "58", "XX"})
        if (sState.starts_with(pszClass))
            return true;
    return false;
}

std::string lineOf(std::string sText)
{
    while (!sText.empty() && sText.back() == '\n')
        sText.pop_back();
    std::replace(sText.begin(), sText.end(), '\n', ' ');
    return sText;
}

std::string textOf(const pqxx::field& field)
{
    return field.is_null() ? std::string() : std::string(field.c_str(), field.size());
}

} // namespace

CPostgresCdrDatabase::CWaitLimit::CWaitLimit() : m_thread([this] { watch(); }) {}

CPostgresCdrDatabase::CWaitLimit::~CWaitLimit()
{
    {
        const std::lock_guard guard(m_mutex);
        m_bStop = true;
    }
    m_changed.notify_one();
    m_thread.join();
}

void CPostgresCdrDatabase::CWaitLimit::begin(int nSocket)
{
    const std::lock_guard guard(m_mutex);
    m_nSocket = nSocket;
    m_tpLimit = CClock::now() + cLongestWait;
    m_changed.notify_one();
}

void CPostgresCdrDatabase::CWaitLimit::end()
{
    const std::lock_guard guard(m_mutex);
    m_tpLimit.reset(); // the thread wakes at the old limit at the latest, and finds none or a later one
}

void CPostgresCdrDatabase::CWaitLimit::watch()
{
    std::unique_lock lock(m_mutex);
    while (!m_bStop)
    {
        if (!m_tpLimit)
            m_changed.wait(lock);
        else if (const auto tpLimit = *m_tpLimit; CClock::now() < tpLimit)
            m_changed.wait_until(lock, tpLimit);
        else
        {
            (void)shutdown(m_nSocket, SHUT_RDWR); // whoever waits there finds it closed
            m_tpLimit.reset();
        }
    }
}

CPostgresCdrDatabase::CPostgresCdrDatabase(std::string sUrl) : m_sUrl(std::move(sUrl)) {}

CPostgresCdrDatabase::~CPostgresCdrDatabase() = default;

/// Does work on the connection. What goes wrong with the server or the connection puts the next try off.
///
/// @return false when it failed; the error says why
template <class TWork> bool CPostgresCdrDatabase::guarded(const TWork& fnWork, std::string* psError)
{
    const auto complain = [&](const std::string& sWhat) { *psError = withoutPassword(m_sUrl) + ": " + lineOf(sWhat); };
    if (CClock::now() < m_tpRetry)
    {
        *psError = m_sLastComplaint;
        return false;
    }
    try
    {
        connect();
        m_limit.begin(m_pConnection->sock());
        const bool bDone = fnWork();
        m_limit.end();
        m_pause = std::chrono::seconds{0};
        return bDone;
    }
    catch (const std::bad_alloc&)
    {
        m_limit.end();
        complain("no memory");
    }
    catch (const std::exception& failure)
    {
        m_limit.end();
        complain(failure.what());
        const auto* const pRefused = dynamic_cast<const pqxx::sql_error*>(&failure);
        const std::string sState = pRefused != nullptr ? pRefused->sqlstate() : "";
        // The refusal of one row says nothing about the next.
        if (m_bReady && !sState.empty() && !isAboutAll(sState))
            return false;
        if (!m_bReady || sState.empty() || sState.starts_with("57P") || sState.starts_with("08"))
        {
            m_pConnection.reset();
            m_bReady = false;
        }
        m_pause = std::clamp(2 * m_pause, cFirstPause, cLongestPause);
        m_tpRetry = CClock::now() + m_pause;
        m_sLastComplaint = *psError;
    }
    return false;
}

void CPostgresCdrDatabase::connect()
{
    if (m_pConnection != nullptr && m_pConnection->is_open())
        return;
    m_bReady = false;
    m_pConnection = std::make_shared<pqxx::connection>(withConnectLimit(m_sUrl));
    m_limit.begin(m_pConnection->sock());
    pqxx::nontransaction work(*m_pConnection);
    (void)work.exec("SET synchronous_commit = on; SET lock_timeout = 250; SET statement_timeout = 3000;"
                    "SET client_min_messages = error; SET TimeZone = 'UTC'; SET client_encoding = 'UTF8'");
}

bool CPostgresCdrDatabase::open(ECdrOpen eOpen, std::string* psError)
{
    std::string sWhy;
    const bool bDone = guarded(
        [&] {
            if (eOpen == ECdrOpen::write)
                return migrate(&sWhy);
            pqxx::nontransaction work(*m_pConnection);
            if (const int nVersion = readVersion(work); nVersion != cSchemaVersion)
                sWhy = CdrSchema::versionComplaint(nVersion);
            return sWhy.empty();
        },
        psError);
    if (!sWhy.empty())
        *psError = withoutPassword(m_sUrl) + ": " + sWhy;
    return bDone;
}

/// 0 when there is no table yet.
int CPostgresCdrDatabase::readVersion(pqxx::nontransaction& work)
{
    if (work.exec1("SELECT to_regclass('cds_schema')")[0].is_null())
        return 0;
    return work.exec1("SELECT max(version) FROM cds_schema")[0].as<int>(0);
}

bool CPostgresCdrDatabase::migrate(std::string* psError)
{
    pqxx::nontransaction work(*m_pConnection);
    (void)work.exec("BEGIN");
    (void)work.exec(cSchemaLock);
    int nVersion = readVersion(work);
    if (nVersion > cSchemaVersion)
    {
        (void)work.exec("ROLLBACK");
        *psError = CdrSchema::versionComplaint(nVersion);
        return false;
    }
    if (nVersion == 0)
        (void)work.exec("CREATE TABLE cds_schema (version integer NOT NULL); INSERT INTO cds_schema VALUES (0)");
    if (nVersion < cSchemaVersion)
    {
        // Filling a column of a large table takes as long as it takes; nothing else happens yet.
        (void)work.exec("SET LOCAL statement_timeout = 0");
        m_limit.end();
        for (; nVersion < cSchemaVersion; ++nVersion)
            (void)work.exec(CdrSchema::g_aMigrations.at(static_cast<std::size_t>(nVersion)).pszPostgres);
        (void)work.exec("UPDATE cds_schema SET version = " + std::to_string(cSchemaVersion));
    }
    (void)work.exec("COMMIT");
    prepare();
    return true;
}

void CPostgresCdrDatabase::prepare()
{
    const std::string sRecord = "$" + std::to_string(g_aCdrColumns.size() + 1) + "::bytea";
    m_pConnection->prepare(cInsert, CdrSchema::insertText(placeholderOf, "octet_length(" + sRecord + ")"));
    m_pConnection->prepare(cCompare, "SELECT record = $1::bytea AND properties = $2::jsonb AND log_entries = $3::jsonb"
                                     " FROM cdr WHERE call_id = $4 AND origin = $5");
    m_bReady = true;
}

ECdrWrite CPostgresCdrDatabase::write(const CCdrRow& row, std::string* psError)
{
    auto eWrite = ECdrWrite::failed;
    std::string sWhy;
    const bool bDone = guarded(
        [&] {
            if (!m_bReady && !migrate(&sWhy))
                return false; // somebody has brought it forward meanwhile
            eWrite = insert(row);
            if (eWrite == ECdrWrite::failed)
                sWhy = "somebody deletes rows meanwhile";
            return eWrite != ECdrWrite::failed;
        },
        psError);
    if (!bDone && !sWhy.empty())
        *psError = sWhy;
    return bDone ? eWrite : ECdrWrite::failed;
}

ECdrWrite CPostgresCdrDatabase::insert(const CCdrRow& row)
{
    const std::string sRecord = hexOf(row.sRecord);
    std::vector<std::string> vecValues;
    vecValues.reserve(g_aCdrColumns.size() + 1);
    for (const CCdrColumn& column : g_aCdrColumns)
        vecValues.push_back(row.*column.psValue);
    vecValues.push_back(sRecord);
    pqxx::nontransaction work(*m_pConnection);
    // A statement alone is a transaction, on disk when its result is here.
    if (work.exec_prepared(cInsert, pqxx::prepare::make_dynamic_params(vecValues)).affected_rows() != 0)
        return ECdrWrite::stored;
    const pqxx::result same =
        work.exec_prepared(cCompare, sRecord, row.sProperties, row.sLogEntries, row.sCallID, row.sOrigin);
    return same.empty() ? ECdrWrite::failed : same[0][0].as<bool>() ? ECdrWrite::present : ECdrWrite::differs;
}

bool CPostgresCdrDatabase::list(std::size_t uLimit, CCdrListing* pListing, std::string* psError)
{
    return guarded(
        [&] {
            pqxx::nontransaction work(*m_pConnection);
            CCdrListing listing;
            for (const auto& row : work.exec(CdrSchema::g_pszOutcomes))
            {
                listing.vecOutcomes.emplace_back(textOf(row[0]), row[1].as<std::uint64_t>());
                listing.ullRows += listing.vecOutcomes.back().second;
            }
            const auto time = [](const char* pszTime) {
                return "to_char(" + std::string(pszTime) + " AT TIME ZONE 'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS.US\"Z\"')";
            };
            for (const auto& row : work.exec(CdrSchema::callsText(uLimit, time)))
                listing.vecCalls.push_back({textOf(row[0]), textOf(row[1]), textOf(row[2]), textOf(row[3]),
                                            textOf(row[4]), textOf(row[5]), textOf(row[6])});
            *pListing = std::move(listing);
            return true;
        },
        psError);
}
