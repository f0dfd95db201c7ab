#pragma once

#include "cdr/CdrDatabase.h"

#include <sqlite3.h>
#include <sys/types.h>

/// CDRs in an SQLite file, with a write-ahead log that is synchronized with every write.
///
/// A file that somebody moves or deletes while it is open is noticed with the next write, which makes it anew: else
/// records would go where nobody finds them.
class CSqliteCdrDatabase final : public CCdrDatabase
{
public:
    explicit CSqliteCdrDatabase(std::string sPath);
    ~CSqliteCdrDatabase() override;
    CSqliteCdrDatabase(const CSqliteCdrDatabase&) = delete;
    CSqliteCdrDatabase& operator=(const CSqliteCdrDatabase&) = delete;

    /// @return false when it cannot be used
    [[nodiscard]] bool open(ECdrOpen eOpen, std::string* psError);

    [[nodiscard]] ECdrWrite write(const CCdrRow& row, std::string* psError) override;
    [[nodiscard]] bool list(std::size_t uLimit, CCdrListing* pListing, std::string* psError) override;

private:
    bool openWaiting(ECdrOpen eOpen, int nBusyMs, std::string* psError);
    class CStatement;

    void close();
    std::string complaint() const;
    bool execute(const char* pszSql);
    bool readVersion(int* pnVersion);
    bool migrate(std::string* psError);
    bool bringForward(int* pnVersion);
    bool prepare();
    bool isMoved() const;
    void bind(sqlite3_stmt* pStatement, const CCdrRow& row) const;
    ECdrWrite compare(const CCdrRow& row);

    const std::string m_sPath;
    sqlite3* m_pConnection = nullptr;
    sqlite3_stmt* m_pInsert = nullptr;
    sqlite3_stmt* m_pCompare = nullptr;
    dev_t m_device = 0; // of the file that is open, as the next
    ino_t m_inode = 0;
    bool m_bLocked = false; // the last write found it locked: the next does not wait for that again
};
