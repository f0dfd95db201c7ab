#pragma once

#include "Program.h"
#include "TemporaryDirectory.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

/// A ShareNode: a server as a process of its own, with a directory of its own.
///
/// Threads    the test's own.
class CShareServer
{
public:
    /// Only a failing test waits so long.
    static constexpr std::chrono::seconds cPatience{20};

    /// @param sProgram   the node's program
    /// @param sSettings  more lines of the configuration, with dotted keys from the top
    CShareServer(const std::string& sProgram, std::string sAddress, std::uint16_t wPort,
                 const std::string& sSettings = "");
    ~CShareServer();
    CShareServer(const CShareServer&) = delete;
    CShareServer& operator=(const CShareServer&) = delete;

    const std::string& address() const { return m_sAddress; }

    /// Sends a command; the fields are escaped.
    void tell(std::initializer_list<std::string> fields);
    /// Waits for a line of that kind; others stay for later. @return its one field, nothing when none comes
    std::optional<std::string> hears(const std::string& sKind, std::chrono::milliseconds patience = cPatience);
    /// A command and the line of that kind that follows. @return as hears
    std::optional<std::string> asks(std::initializer_list<std::string> fields, const std::string& sKind);

    /// Whether the process has not ended.
    bool lives() const;
    /// Kilobytes of memory that it has now.
    long residentKB() const;
    /// Bytes of its files whose names begin so, when all lines are written.
    std::uintmax_t logBytes(const std::string& sName);
    std::string log(const std::string& sName) const { return m_directory.read(sName); }
    /// Waits until the trace log says so. @return whether it did, before the time ran out
    bool awaitLog(const std::string& sText, std::chrono::milliseconds patience = cPatience);

private:
    void read();

    const CTemporaryDirectory m_directory;
    const std::string m_sAddress;
    std::optional<CProgram> m_optProgram;
    std::mutex m_mtx;
    std::condition_variable m_cv;
    std::deque<std::pair<std::string, std::string>> m_lstLines; // guarded by m_mtx: kind, field
    bool m_bEnded = false;                                      // guarded by m_mtx
    std::thread m_thread;
};

/// A net of addresses that no other test has at the same time; all of them are this machine's.
std::string ownNet();
