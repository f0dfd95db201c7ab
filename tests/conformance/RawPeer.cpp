#include "RawPeer.h"

#include "SupportChannel.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
using CClock = std::chrono::steady_clock;

sockaddr_in endpoint(const std::string& sAddress, std::uint16_t wPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wPort);
    if (inet_pton(AF_INET, sAddress.c_str(), &address.sin_addr) != 1)
        throw std::runtime_error("no address: " + sAddress);
    return address;
}

int boundSocket(const std::string& sAddress, std::uint16_t wPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int nOn = 1;
    const sockaddr_in address = endpoint(sAddress, wPort);
    if (setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn) != 0 ||
        bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot bind");
    return nSocket;
}
} // namespace

CRawPeer CRawPeer::connect(int nServer, int nTo, std::uint16_t wPort)
{
    return connect(CSupportChannels::addressText(nServer), CSupportChannels::addressText(nTo), wPort);
}

CRawPeer CRawPeer::connect(const std::string& sFrom, const std::string& sTo, std::uint16_t wPort)
{
    CRawPeer peer(boundSocket(sFrom, 0));
    const sockaddr_in address = endpoint(sTo, wPort);
    if (::connect(peer.m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot connect");
    return peer;
}

CRawPeer::~CRawPeer()
{
    close();
}

CRawPeer::CRawPeer(CRawPeer&& other) noexcept
    : m_nSocket(std::exchange(other.m_nSocket, -1)), m_sReceived(std::move(other.m_sReceived))
{
}

void CRawPeer::close()
{
    if (m_nSocket >= 0)
        (void)::close(std::exchange(m_nSocket, -1));
}

bool CRawPeer::greet(std::uint32_t dwNumber, char cInstance)
{
    const bool bSent = send(hello(dwNumber, cInstance));
    const auto optWelcome = receive();
    return bSent && optWelcome && optWelcome->at(0) == 2;
}

bool CRawPeer::await(short nEvents, CClock::time_point tpDeadline) const
{
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(tpDeadline - CClock::now()).count();
    pollfd wanted{m_nSocket, nEvents, 0};
    return poll(&wanted, 1, static_cast<int>(std::max<std::int64_t>(left, 0))) > 0;
}

std::size_t CRawPeer::sendWhatFits(std::string_view sBytes)
{
    const ssize_t nSent = ::send(m_nSocket, sBytes.data(), sBytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return nSent < 0 ? 0 : static_cast<std::size_t>(nSent);
}

bool CRawPeer::send(const std::string& sBytes)
{
    const CClock::time_point tpDeadline = CClock::now() + cPatience;
    for (std::size_t uSent = 0; uSent < sBytes.size();)
    {
        if (!await(POLLOUT, tpDeadline))
            return false;
        const ssize_t nSent =
            ::send(m_nSocket, sBytes.data() + uSent, sBytes.size() - uSent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (nSent < 0 && errno != EAGAIN)
            return false;
        uSent += static_cast<std::size_t>(std::max<ssize_t>(nSent, 0));
    }
    return true;
}

std::optional<std::string> CRawPeer::receive(std::chrono::milliseconds patience)
{
    const CClock::time_point tpDeadline = CClock::now() + patience;
    for (;;)
    {
        if (m_sReceived.size() >= 4)
        {
            std::size_t uLength = 0;
            for (int n = 0; n < 4; ++n)
                uLength = uLength << 8 | static_cast<std::uint8_t>(m_sReceived[static_cast<std::size_t>(n)]);
            if (m_sReceived.size() >= 4 + uLength)
            {
                std::string sFrame = m_sReceived.substr(4, uLength);
                m_sReceived.erase(0, 4 + uLength);
                return sFrame;
            }
        }
        char szBytes[4096];
        if (!await(POLLIN, tpDeadline))
            return std::nullopt;
        const ssize_t nReceived = recv(m_nSocket, szBytes, sizeof szBytes, 0);
        if (nReceived <= 0)
            return std::nullopt;
        m_sReceived.append(szBytes, static_cast<std::size_t>(nReceived));
    }
}

std::optional<std::string> CRawPeer::receive(char cType)
{
    for (;;)
    {
        std::optional<std::string> optFrame = receive();
        if (!optFrame || optFrame->at(0) == cType)
            return optFrame;
    }
}

bool CRawPeer::isEnded()
{
    const CClock::time_point tpDeadline = CClock::now() + cPatience;
    char szBytes[4096];
    while (await(POLLIN, tpDeadline))
    {
        if (recv(m_nSocket, szBytes, sizeof szBytes, 0) <= 0)
            return true;
    }
    return false;
}

std::string CRawPeer::number(std::uint64_t ullNumber, int nBytes)
{
    std::string sBytes;
    for (int nShift = 8 * nBytes - 8; nShift >= 0; nShift -= 8)
        sBytes.push_back(static_cast<char>(static_cast<std::uint8_t>(ullNumber >> nShift)));
    return sBytes;
}

std::string CRawPeer::frame(char cType, const std::string& sBody)
{
    return number(1 + sBody.size(), 4) + cType + sBody;
}

std::uint64_t CRawPeer::serviceOfStore()
{
    std::uint64_t ullHash = 0xCBF29CE484222325ULL;
    for (const char c : std::string("CDS\n5F3A9C21-7B4E-4D08-9A6C-2E81D04B7F13\n8C2D6E47-1A93-4F5B-B0D2-6A7F39E1C845"))
        ullHash = (ullHash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3ULL;
    return ullHash;
}

std::string CRawPeer::hello(std::uint32_t dwNumber, char cInstance)
{
    return frame(1, "CDSM" + number(1, 2) + number(serviceOfStore(), 8) + std::string(16, cInstance) +
                        number(dwNumber, 4));
}

std::string CRawPeer::request(std::uint32_t dwExchange, const std::string& sBody)
{
    return frame(3, number(dwExchange, 4) + sBody);
}

std::string CRawPeer::response(std::uint32_t dwExchange, const std::string& sBody)
{
    return frame(4, number(dwExchange, 4) + sBody);
}

CRawListener::CRawListener(int nServer, std::uint16_t wPort)
    : m_nSocket(boundSocket(CSupportChannels::addressText(nServer), wPort))
{
    if (listen(m_nSocket, 16) != 0)
        throw std::runtime_error("cannot listen");
}

CRawListener::~CRawListener()
{
    (void)close(m_nSocket);
}

CRawPeer CRawListener::accept() const
{
    pollfd wanted{m_nSocket, POLLIN, 0};
    const int nReady = poll(&wanted, 1, 20'000);
    const int nSocket = nReady > 0 ? accept4(m_nSocket, nullptr, nullptr, SOCK_CLOEXEC) : -1;
    if (nSocket < 0)
        throw std::runtime_error("nobody connects");
    return CRawPeer(nSocket);
}
