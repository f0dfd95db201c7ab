#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace Messaging {

/// What is configured under the key "Orvane\CDS\Messaging", each value under the name of the member's comment.
struct CChannelSettings
{
    std::uint32_t dwAddress = 0x7F000001;          ///< LocalAddress, text: this server's address
    std::uint16_t wPort = 27350;                   ///< Port: of all servers
    std::string sCertificateFile;                  ///< CertificateFile: this server's, PEM, with its chain
    std::string sPrivateKeyFile;                   ///< PrivateKeyFile
    std::string sAuthorityFile;                    ///< AuthorityFile: who signs servers' certificates
    bool bAllowUnencrypted = false;                ///< AllowUnencrypted: no certificates beyond loopback
    std::chrono::milliseconds heartbeat{2000};     ///< HeartbeatMs
    std::chrono::milliseconds silenceLimit{6000};  ///< SilenceLimitMs
    std::chrono::milliseconds connectLimit{3000};  ///< ConnectLimitMs: until the peer has taken the connection
    std::chrono::milliseconds greetingLimit{3000}; ///< GreetingLimitMs: and then until it has answered the greeting
    std::chrono::milliseconds reconnectFirst{100}; ///< ReconnectFirstMs: pause after the first failure; doubles
    std::chrono::milliseconds reconnectMost{2000}; ///< ReconnectMostMs: the longest pause
    std::uint32_t dwMessageBytes = 4U << 20;       ///< MessageBytes: the largest message
    std::uint32_t dwSendQueueBytes = 16U << 20;    ///< SendQueueBytes: what may wait for one peer
    std::uint32_t dwReceiveQueueBytes = 16U << 20; ///< ReceiveQueueBytes: what may wait from one peer
    std::uint32_t dwPeers = 1024;                  ///< Peers: so many at the most

    bool encrypted() const { return !sCertificateFile.empty(); }

    /// Reads the configuration.
    ///
    /// @param psError  out: on failure what is wrong, with the value's name and what it may be
    /// @return false when it cannot be used; the settings are then in no state to use
    bool read(std::string* psError);
};

/// Whether an address never leaves the machine.
constexpr bool isLoopback(std::uint32_t dwAddress)
{
    return dwAddress >> 24 == 127;
}

std::string addressText(std::uint32_t dwAddress);
/// 0 for a text that is no address.
std::uint32_t addressOf(const std::string& sText);

} // namespace Messaging
