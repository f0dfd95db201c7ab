#include "SupportChannel.h"

#include "CDSSupport.h"

#include <filesystem>
#include <random>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {
bool isFree(std::uint16_t wPort)
{
    bool bFree = true;
    for (int nServer = 1; nServer <= 4 && bFree; ++nServer)
    {
        const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(wPort);
        address.sin_addr.s_addr = htonl(CSupportChannels::address(nServer));
        bFree = bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        (void)close(nSocket);
    }
    return bFree;
}

/// A port that is free on all addresses, and none of those that the system gives to connections.
std::uint16_t freePort()
{
    std::random_device random;
    for (int nTry = 0; nTry < 1000; ++nTry)
    {
        const auto wPort = static_cast<std::uint16_t>(10'000 + random() % 20'000);
        if (isFree(wPort))
            return wPort;
    }
    throw std::runtime_error("no free port");
}

std::uint32_t addressAt(int nSocket, int (*pfnName)(int, sockaddr*, socklen_t*))
{
    sockaddr_in address{};
    socklen_t uLength = sizeof address;
    if (pfnName(nSocket, reinterpret_cast<sockaddr*>(&address), &uLength) != 0 || address.sin_family != AF_INET)
        return 0;
    return ntohl(address.sin_addr.s_addr);
}
} // namespace

CSupportChannels::CSupportChannels(CTemporaryDirectory& directory) : m_directory(directory), m_wPort(freePort()) {}

std::unique_ptr<CCMLibraryX> CSupportChannels::make(CMLIB_MODE eMode)
{
    const bool bServer = eMode == cmlib_mode_server;
    return std::make_unique<CCMLibraryX>("5F3A9C21-7B4E-4D08-9A6C-2E81D04B7F13", "CDS",
                                         "8C2D6E47-1A93-4F5B-B0D2-6A7F39E1C845", 60UL, bServer ? 1 : 0,
                                         bServer ? 2UL : 1UL, eMode);
}

void CSupportChannels::configure(int nServer, const std::string& sSettings)
{
    m_directory.write("cds.toml", "[Orvane.CDS.Messaging]\nLocalAddress = \"" + addressText(nServer) +
                                      "\"\nPort = " + std::to_string(m_wPort) + "\n" + m_sSettings + sSettings);
    std::string sError;
    if (CDSSupport::setConfigurationFile(m_directory.file("cds.toml"), &sError) < 0)
        throw std::runtime_error(sError);
}

int CSupportChannels::breakConnection(int nServer, int nOther)
{
    int nBroken = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        const int nSocket = std::stoi(entry.path().filename().string());
        const std::uint32_t dwHere = addressAt(nSocket, getsockname);
        const std::uint32_t dwThere = addressAt(nSocket, getpeername);
        const bool bBetween = (dwHere == address(nServer) && dwThere == address(nOther)) ||
                              (dwHere == address(nOther) && dwThere == address(nServer));
        if (bBetween && shutdown(nSocket, SHUT_RDWR) == 0)
            ++nBroken;
    }
    return nBroken;
}
