#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <toml++/toml.h>

/// The process's configuration: one TOML file, or a table in memory when there is none.
///
/// Threads    every operation may be called from any thread. Listeners are called on the thread that found the change,
///            under the listeners' lock and no other: they may query, but not subscribe.
/// Ownership  one object, never destroyed: logs and hosts may ask until the process ends.
class CConfiguration
{
public:
    using CPath = std::vector<std::string>; ///< table names from the root
    using CValue = std::variant<std::uint32_t, std::string>;
    using CListener = std::list<std::function<void()>>::iterator;

    static CConfiguration& get();

    /// As CDSSupport::setConfigurationFile.
    long setFile(const std::string& sPath, std::string* psError, bool bMayBeMissing);

    /// As CDSSupport::rereadConfiguration.
    long reread(std::string* psError);

    /// Reads the file anew when it has changed on disk since it was last looked at.
    ///
    /// @return 0 when it had not, or was read; negative when it cannot be read or understood: the values stay as they
    ///         were, and the same broken content is reported once
    long rereadIfChanged(std::string* psError);

    /// Reads the file and keeps what it says. For whoever opens the configuration: a broken file is an error each time.
    long open();

    bool hasFile() const;

    std::optional<CValue> query(const CPath& path, const std::string& sName) const;

    /// Whether the path is a table, or nothing yet.
    bool isKey(const CPath& path) const;

    /// Sets a value and replaces the file at once, in one step: whoever reads it sees the old or the new one whole.
    long set(const CPath& path, const std::string& sName, const CValue& value);

    /// Calls the listener now and after each change of the values from outside, until unsubscribed. What it throws now
    /// ends the subscription.
    CListener subscribe(std::function<void()> fnListener);
    /// Returns when the listener is not running and will not run again.
    void unsubscribe(CListener listener);

private:
    /// Tells one state of a file on disk from another.
    struct CSignature
    {
        bool bExists = false;
        std::uint64_t ullDevice = 0;
        std::uint64_t ullInode = 0;
        std::int64_t llSize = 0;
        std::int64_t llChangedSeconds = 0;
        std::int64_t llChangedNanoseconds = 0;
        bool operator==(const CSignature&) const = default;
    };

    /// A file as it was read.
    struct CSource
    {
        std::string sPath; ///< "" for none
        bool bMayBeMissing = false;
        CSignature signature;
        std::string sText;
        toml::table table;
    };

    CConfiguration() = default;
    static CSignature signatureOf(const std::string& sPath);
    static long load(CSource* pSource, std::string* psError);
    long takeOver(CSource source);
    long refreshLocked();
    void tellListeners();

    mutable std::mutex m_mtx;
    CSource m_source;          // guarded by m_mtx
    CSignature m_lookedAt;     // guarded by m_mtx: the file at the last rereadIfChanged
    std::mutex m_mtxListeners; // before m_mtx
    std::list<std::function<void()>> m_lstListeners;
};
