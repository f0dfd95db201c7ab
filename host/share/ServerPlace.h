#pragma once

#include <cstdint>
#include <string>

/// Where a server listens for others. All servers that talk to one another use one port, each on its own address.
struct CServerAddress
{
    std::string sAddress;        ///< IPv4; empty: as configured, without sharing calls
    std::uint16_t wPort = 27350; ///< of all servers

    std::string text() const { return sAddress + ":" + std::to_string(wPort); }
};

/// The directory of a server's trace log and configuration: the one asked for, or one that is gone when the program is.
///
/// Threads  one thread.
class CServerPlace
{
public:
    /// @param sProgram       names the temporary directory
    /// @param sLogDirectory  where the trace log stays; empty: in the temporary directory
    CServerPlace(const std::string& sProgram, const std::string& sLogDirectory);
    ~CServerPlace();
    CServerPlace(const CServerPlace&) = delete;
    CServerPlace& operator=(const CServerPlace&) = delete;

    /// Has the stores that are started from now on listen there.
    ///
    /// @param psError  out: why not
    [[nodiscard]] bool configure(const CServerAddress& server, std::string* psError);

private:
    std::string m_sTemporary;
};
