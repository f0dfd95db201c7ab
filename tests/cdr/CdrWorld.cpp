// Databases for tests, and a PostgreSQL server.
#include "CdrWorld.h"

#include <filesystem>
#include <sqlite3.h>
#ifdef CDS_HAVE_POSTGRES
#include <pqxx/pqxx>
#endif

namespace {

/// The newest that is installed; empty when there is none.
std::string postgresPrograms()
{
    std::string sNewest;
    std::error_code ignored; // no directory, no server
    for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/postgresql", ignored))
        if (std::filesystem::exists(entry.path() / "bin/initdb") && entry.path().string() > sNewest)
            sNewest = entry.path().string();
    return sNewest.empty() ? "" : sNewest + "/bin/";
}

/// It refuses to run as root.
std::vector<std::string> asPostgres(std::vector<std::string> vecCommand)
{
    if (geteuid() == 0)
        vecCommand.insert(vecCommand.begin(), {"/usr/bin/setpriv", "--reuid=postgres", "--regid=postgres",
                                               "--init-groups", "--pdeathsig=QUIT", "--"});
    return vecCommand;
}

class CSqliteWorld final : public CCdrWorld
{
public:
    std::string url() const override { return "sqlite://" + m_directory.file("cdr.db"); }
    bool isPostgres() const override { return false; }
    std::string query(const std::string& sSql) override
    {
        const auto pConnection = connection();
        return run(*pConnection, sSql);
    }
    std::shared_ptr<void> lockTable() override
    {
        const auto pConnection = connection();
        (void)run(*pConnection, "BEGIN IMMEDIATE");
        return pConnection;
    }

private:
    std::shared_ptr<sqlite3> connection() const
    {
        sqlite3* pConnection = nullptr;
        if (sqlite3_open(m_directory.file("cdr.db").c_str(), &pConnection) != SQLITE_OK)
            throw std::runtime_error("no database");
        return {pConnection, [](sqlite3* p) { (void)sqlite3_close(p); }}; // what it still holds goes with it
    }
    static std::string run(sqlite3& connection, const std::string& sSql)
    {
        std::string sValue;
        const auto take = [](void* pValue, int, char** ppszValues, char**) {
            auto& sTaken = *static_cast<std::string*>(pValue);
            if (sTaken.empty() && ppszValues[0] != nullptr)
                sTaken = ppszValues[0];
            return 0;
        };
        if (sqlite3_exec(&connection, sSql.c_str(), take, &sValue, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(&connection));
        return sValue;
    }

    CTemporaryDirectory m_directory;
};

#ifdef CDS_HAVE_POSTGRES
class CPostgresWorld final : public CCdrWorld
{
public:
    explicit CPostgresWorld(const CPostgresServer& server) : m_server(server)
    {
        (void)query("DROP TABLE IF EXISTS cdr, cds_schema");
    }
    std::string url() const override { return m_server.url(); }
    bool isPostgres() const override { return true; }
    std::string query(const std::string& sSql) override
    {
        pqxx::connection connection(m_server.url());
        pqxx::nontransaction work(connection);
        const pqxx::result result = work.exec(sSql);
        return result.empty() || result[0][0].is_null() ? "" : result[0][0].as<std::string>();
    }
    std::shared_ptr<void> lockTable() override
    {
        struct CLock
        {
            explicit CLock(const std::string& sUrl) : connection(sUrl), work(connection) {}
            pqxx::connection connection;
            pqxx::work work;
        };
        const auto pLock = std::make_shared<CLock>(m_server.url());
        (void)pLock->work.exec("LOCK TABLE cdr IN ACCESS EXCLUSIVE MODE");
        return pLock;
    }

private:
    const CPostgresServer& m_server;
};
#endif

} // namespace

std::string CPostgresServer::whyNot()
{
#ifdef CDS_HAVE_POSTGRES
    return postgresPrograms().empty() ? "no PostgreSQL server is installed (package postgresql)" : "";
#else
    return "built without libpqxx (package libpqxx-dev)";
#endif
}

CPostgresServer::CPostgresServer()
{
    if (geteuid() == 0)
        std::filesystem::permissions(m_directory.path(), std::filesystem::perms::all);
    CProgram initdb(asPostgres({postgresPrograms() + "initdb", "-D", m_directory.file("data"), "-A", "trust", "-U",
                                "cds", "-E", "UTF8", "--locale=C", "--no-sync"}));
    const std::string sOutput = initdb.readRest();
    if (initdb.exitStatus() != 0)
        throw std::runtime_error("initdb failed: " + sOutput);
    start();
}

void CPostgresServer::start()
{
    m_pServer = std::make_unique<CProgram>(
        asPostgres({"/bin/sh", "-c",
                    "exec \"$0\" -D \"$1\" -k \"$2\" -c listen_addresses= -c log_min_messages=log "
                    "-c log_checkpoints=off -c log_min_error_statement=panic 2>&1",
                    postgresPrograms() + "postgres", m_directory.file("data"), m_directory.path()}));
    std::string sOutput;
    for (std::string sLine; sLine.find("ready to accept connections") == std::string::npos; sOutput += sLine + '\n')
        if (!m_pServer->readLine(&sLine))
            throw std::runtime_error("the PostgreSQL server does not start: " + sOutput);
}

void CPostgresServer::kill()
{
    m_pServer->kill();
    (void)m_pServer->readRest(); // ends with the last of its processes
}

std::string CPostgresServer::url() const
{
    return "postgresql://cds@/postgres?host=" + m_directory.path();
}

std::string CCdrWorld::jsonValue(const std::string& sColumn, const std::string& sName, const std::string& sField)
{
    return query(isPostgres() ? "SELECT " + sColumn + "->'" + sName + "'->>'" + sField + "' FROM cdr"
                              : "SELECT json_extract(" + sColumn + ", '$." + sName + "." + sField + "') FROM cdr");
}

std::string CCdrWorld::record()
{
    const std::string sHex =
        query(isPostgres() ? "SELECT encode(record, 'hex') FROM cdr" : "SELECT hex(record) FROM cdr");
    std::string sRecord;
    for (std::size_t u = 0; u + 1 < sHex.size(); u += 2)
        sRecord += static_cast<char>(std::stoi(sHex.substr(u, 2), nullptr, 16));
    return sRecord;
}

std::unique_ptr<CCdrWorld> makeCdrWorld(CPostgresServer* pServer)
{
#ifdef CDS_HAVE_POSTGRES
    if (pServer != nullptr)
        return std::make_unique<CPostgresWorld>(*pServer);
#endif
    (void)pServer; // null where there is no other
    return std::make_unique<CSqliteWorld>();
}

CCdrRow sampleRow(const std::string& sCallID, const std::string& sCaller, const std::string& sOrigin)
{
    CCallData record(sCallID);
    fillSample(record, sCaller);
    return makeCdrRow(record, sOrigin, cSampleTime + 40'000'000);
}
