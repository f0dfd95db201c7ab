#pragma once

#include "CCMLibraryX.h"
#include "TemporaryDirectory.h"

#include <cstdint>
#include <memory>
#include <string>

/// The support library's channels of several servers in one process, on 127.0.0.1, 127.0.0.2, …
class CSupportChannels
{
public:
    explicit CSupportChannels(CTemporaryDirectory& directory);

    static std::uint32_t address(int nServer) { return 0x7F000000U + static_cast<std::uint32_t>(nServer); }
    static std::string addressText(int nServer) { return "127.0.0." + std::to_string(nServer); }
    static std::unique_ptr<CCMLibraryX> make(CMLIB_MODE eMode);

    /// Writes the configuration of a server, which its channels read when they are initialized.
    ///
    /// @param sSettings  lines beyond the address, the port and those given to setSettings
    void configure(int nServer, const std::string& sSettings = "");
    /// Lines for every server.
    void setSettings(const std::string& sSettings) { m_sSettings = sSettings; }

    std::uint16_t port() const { return m_wPort; }

    /// Shuts the sockets of this process down that connect the two. @return how many there were
    static int breakConnection(int nServer, int nOther);

private:
    CTemporaryDirectory& m_directory;
    std::string m_sSettings;
    const std::uint16_t m_wPort;
};
