#pragma once

#include "Program.h"
#include "SampleRecord.h"
#include "TemporaryDirectory.h"
#include "cdr/CdrDatabase.h"

#include <functional>
#include <memory>
#include <string>

/// A PostgreSQL server of the test's own: its data in a temporary directory, reached through a socket there.
class CPostgresServer
{
public:
    /// Why there can be none; empty when there can.
    static std::string whyNot();

    CPostgresServer();

    /// Starts it, and waits until it is ready.
    void start();
    /// Kills it, and waits until all its processes have ended.
    void kill();
    std::string url() const;

private:
    CTemporaryDirectory m_directory;
    std::unique_ptr<CProgram> m_pServer;
};

/// One kind of database, as a test sees it.
class CCdrWorld
{
public:
    virtual ~CCdrWorld() = default;
    virtual std::string url() const = 0;
    /// Runs statements on a connection of the test's own.
    ///
    /// @return the first column of the first row; empty without one
    virtual std::string query(const std::string& sSql) = 0;
    /// Keeps the table from being written to, until the lock is let go.
    virtual std::shared_ptr<void> lockTable() = 0;
    virtual bool isPostgres() const = 0;

    /// A field of the JSON columns.
    std::string jsonValue(const std::string& sColumn, const std::string& sName, const std::string& sField);
    /// The record's own text of the one row.
    std::string record();
};

/// @param pServer  null: SQLite
std::unique_ptr<CCdrWorld> makeCdrWorld(CPostgresServer* pServer);

CCdrRow sampleRow(const std::string& sCallID, const std::string& sCaller = "alice",
                  const std::string& sOrigin = "10.0.0.1");
