#pragma once

#include "cdr/CdrRow.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What became of a row that was to be written.
enum class ECdrWrite
{
    stored,  ///< it is on disk
    present, ///< it was there already, the same
    differs, ///< its call and origin are there with other content, which stays
    failed   ///< nothing was written
};

/// What a database has, shown in short.
struct CCdrListing
{
    struct CCall
    {
        std::string sCallID;
        std::string sOrigin;
        std::string sStartedAt;
        std::string sEndedAt;
        std::string sCaller;
        std::string sCalled;
        std::string sOutcome;
    };

    std::uint64_t ullRows = 0;
    std::vector<std::pair<std::string, std::uint64_t>> vecOutcomes; ///< outcome -> rows, by name
    std::vector<CCall> vecCalls;                                    ///< the first that began
};

/// Where the records of finished calls are kept, a row for each call and origin.
///
/// Threads    one at a time.
/// Errors     what the database says goes into a text; nothing throws but std::bad_alloc.
/// Waiting    a write is bounded: 250 ms for a lock, a few seconds for a server that does not answer. After that a
///            database that is down costs nothing until it is time to try it again, 1 to 30 seconds later.
class CCdrDatabase
{
public:
    virtual ~CCdrDatabase() = default;

    /// Writes a row in a transaction of its own. What it says is stored is so after a power failure too.
    ///
    /// @param psError  out: why it failed; untouched else
    [[nodiscard]] virtual ECdrWrite write(const CCdrRow& row, std::string* psError) = 0;

    /// @param uLimit  calls to be shown
    [[nodiscard]] virtual bool list(std::size_t uLimit, CCdrListing* pListing, std::string* psError) = 0;

    /// A number for every change of the table; tables of older versions are brought forward when they are opened.
    static constexpr int cSchemaVersion = 2;
};

/// How a database is opened.
enum class ECdrOpen
{
    write, ///< made or brought forward to the present schema
    read   ///< has to be there, with the present schema
};

/// Opens a database.
///
/// @param sUrl  "postgresql://...", "sqlite:///path", or the path of an SQLite file
/// @return null when it cannot be: it cannot be reached or written to, or its schema is newer than this program
[[nodiscard]] std::unique_ptr<CCdrDatabase> openCdrDatabase(const std::string& sUrl, ECdrOpen eOpen,
                                                            std::string* psError);

/// The path of an SQLite file that a URL names; empty for another database.
[[nodiscard]] std::string cdrFilePath(const std::string& sUrl);
