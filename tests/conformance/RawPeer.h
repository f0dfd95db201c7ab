#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// A peer of the support library's channels that speaks the protocol by hand, well or badly. It knows the bytes from
/// docs/wire-format.md and nothing of the library's inside.
class CRawPeer
{
public:
    static constexpr std::chrono::seconds cPatience{20};

    /// Connects from 127.0.0.<nServer> to 127.0.0.<nTo>.
    static CRawPeer connect(int nServer, int nTo, std::uint16_t wPort);
    /// The same with addresses as texts.
    static CRawPeer connect(const std::string& sFrom, const std::string& sTo, std::uint16_t wPort);
    /// A socket that is connected already.
    explicit CRawPeer(int nSocket) : m_nSocket(nSocket) {}
    ~CRawPeer();
    CRawPeer(CRawPeer&& other) noexcept;
    CRawPeer(const CRawPeer&) = delete;
    CRawPeer& operator=(const CRawPeer&) = delete;

    /// Greets and waits for the answer. @return whether it came
    bool greet(std::uint32_t dwNumber = 1, char cInstance = 'i');

    /// Sends all of it; false when the other side has ended the connection.
    bool send(const std::string& sBytes);
    /// Sends as much as the connection takes without waiting. @return how much
    std::size_t sendWhatFits(std::string_view sBytes);
    /// The next frame, type first; nothing when the connection ends or nothing comes.
    std::optional<std::string> receive(std::chrono::milliseconds patience = cPatience);
    /// The next frame of a type, others are skipped.
    std::optional<std::string> receive(char cType);
    /// Whether the other side ends the connection, whatever it sends before.
    bool isEnded();
    void close();
    int socket() const { return m_nSocket; }

    // The protocol.
    static std::string number(std::uint64_t ullNumber, int nBytes);
    static std::string frame(char cType, const std::string& sBody);
    static std::string hello(std::uint32_t dwNumber = 1, char cInstance = 'i');
    static std::string request(std::uint32_t dwExchange, const std::string& sBody);
    static std::string response(std::uint32_t dwExchange, const std::string& sBody);
    static std::uint64_t serviceOfStore();

private:
    bool await(short nEvents, std::chrono::steady_clock::time_point tpDeadline) const;

    int m_nSocket;
    std::string m_sReceived;
};

/// Listens on 127.0.0.<nServer>, for peers that are connected to.
class CRawListener
{
public:
    CRawListener(int nServer, std::uint16_t wPort);
    ~CRawListener();
    CRawListener(const CRawListener&) = delete;
    CRawListener& operator=(const CRawListener&) = delete;
    /// Waits for the next connection.
    CRawPeer accept() const;

private:
    int m_nSocket;
};
