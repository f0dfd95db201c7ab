#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

/// A record that a database refused, as it came.
struct CRefusedCdr
{
    std::string sOrigin;           ///< the sender's address
    std::uint64_t ullReceived = 0; ///< file time
    std::string sRecord;           ///< the record's own text form
};

/// Records that a database refused, one file for each in a directory, until the database has them. A file is there
/// whole or not at all, also after a crash or a power failure:
///
///     cds-refused-cdr 1
///     origin 127.0.0.1
///     received 134081610600000000
///     bytes 1234
///     <empty line>
///     <the record's text, so many bytes>
///
/// Threads    one at a time.
/// Errors     results say what failed; nothing throws but std::bad_alloc.
class CRefusedCdrs
{
public:
    struct CLimits
    {
        std::uint64_t ullCount = 100'000;
        std::uint64_t ullBytes = 1ULL << 30U; ///< of all files
    };

    CRefusedCdrs(std::string sDirectory, CLimits limits);
    ~CRefusedCdrs();
    CRefusedCdrs(const CRefusedCdrs&) = delete;
    CRefusedCdrs& operator=(const CRefusedCdrs&) = delete;

    /// Makes the directory, takes it for this process alone, and looks what is in it.
    [[nodiscard]] bool open(std::string* psError);

    /// Keeps a record. When this returns it outlives a power failure.
    ///
    /// @param psError  out: why it is not kept; the limits are a reason
    [[nodiscard]] bool keep(const CRefusedCdr& cdr, std::string* psError);

    /// The name that comes first behind this one, in the order in which they were kept; empty: there is none.
    std::string next(const std::string& sAfter) const;

    enum class ERead
    {
        record,
        noRecord, ///< the file is none
        failed    ///< it cannot be read now
    };

    /// Reads a record.
    [[nodiscard]] ERead read(const std::string& sName, CRefusedCdr* pCdr) const;

    /// Leaves a file that is no record to people: it gets ".unreadable" behind its name and is not looked at again.
    void putAside(const std::string& sName);

    /// Lets a record go.
    void remove(const std::string& sName);

    std::size_t count() const noexcept { return m_mapFiles.size(); }
    const std::string& directory() const noexcept { return m_sDirectory; }

private:
    std::string path(const std::string& sName) const { return m_sDirectory + '/' + sName; }
    bool takeLock(std::string* psError);
    bool writeWhole(const std::string& sName, const std::string& sContent);
    void forget(const std::string& sName);

    const std::string m_sDirectory;
    const CLimits m_limits;
    int m_nDirectory = -1;                           // open, to be synchronized and locked
    std::uint64_t m_ullNumber = 0;                   // tells files of one moment apart
    std::map<std::string, std::uint64_t> m_mapFiles; // name -> bytes
    std::uint64_t m_ullBytes = 0;
};
