// A network of three servers that a test may cut.
#include "Network.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::string failure(const std::string& sWhat)
{
    return sWhat + ": " + std::strerror(errno);
}

std::string portOf(unsigned uServer)
{
    return "port" + std::to_string(uServer);
}

/// A new network namespace, which lives as long as the descriptor. Negative when there is none.
int makeNetwork()
{
    int nNetwork = -1;
    std::thread([&] {
        if (unshare(CLONE_NEWNET) == 0)
            nNetwork = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    }).join();
    return nNetwork;
}

} // namespace

CNetwork::CNetwork()
{
    const int nBefore = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
    const std::string sLacks = isolate();
    if (!sLacks.empty())
    {
        m_sLacks = sLacks;
        m_vecNetworks.clear(); // their descriptors live on for the little while that the process does
        (void)setns(nBefore, CLONE_NEWNET);
    }
    close(nBefore);
}

CNetwork::~CNetwork()
{
    for (const int nNetwork : m_vecNetworks)
        close(nNetwork);
}

/// @return why it was not possible
std::string CNetwork::isolate()
{
    if (access("/usr/sbin/ip", X_OK) != 0 && access("/sbin/ip", X_OK) != 0 && access("/usr/bin/ip", X_OK) != 0)
        return "there is no program ip (Debian package iproute2)";
    if (unshare(CLONE_NEWNET) != 0)
        return failure("a network namespace needs the rights of root");
    if (!run({"ip", "link", "set", "lo", "up"}) || !run({"ip", "link", "add", "switch", "type", "bridge"}) ||
        !run({"ip", "link", "set", "switch", "up"}))
        return "the system has no network bridges";
    for (unsigned uServer = 1; uServer <= cServers; ++uServer)
    {
        const int nNetwork = makeNetwork();
        if (nNetwork < 0)
            return failure("a second network namespace");
        m_vecNetworks.push_back(nNetwork);
        const std::string sPath = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(nNetwork);
        if (!run({"ip", "link", "add", portOf(uServer), "type", "veth", "peer", "name", "uplink", "netns", sPath}) ||
            !run({"ip", "link", "set", portOf(uServer), "master", "switch", "up"}) ||
            !run({"ip", "address", "add", address(uServer) + "/24", "dev", "uplink"}, nNetwork) ||
            !run({"ip", "link", "set", "uplink", "up"}, nNetwork) || !run({"ip", "link", "set", "lo", "up"}, nNetwork))
            return "the system has no pairs of virtual links";
    }
    return "";
}

/// @return whether it succeeded
bool CNetwork::run(std::vector<std::string> vecCommand, int nNetwork)
{
    std::vector<char*> vecArguments;
    for (std::string& sArgument : vecCommand)
        vecArguments.push_back(sArgument.data());
    vecArguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
    {
        if (nNetwork >= 0 && setns(nNetwork, CLONE_NEWNET) != 0)
            _exit(126);
        const int nNull = open("/dev/null", O_WRONLY);
        (void)dup2(nNull, STDOUT_FILENO); // ss lists what it ends, on either
        (void)dup2(nNull, STDERR_FILENO);
        execvp(vecArguments[0], vecArguments.data());
        _exit(127);
    }
    int nStatus = 0;
    return pid > 0 && waitpid(pid, &nStatus, 0) == pid && WIFEXITED(nStatus) && WEXITSTATUS(nStatus) == 0;
}

std::string CNetwork::address(unsigned uServer) const
{
    if (m_sLacks.empty()) // also while the network is being made
        return "10.77.0." + std::to_string(uServer);
    const auto uID = static_cast<unsigned>(getpid());
    return "127." + std::to_string(64 + uID / 256 % 128) + '.' + std::to_string(uID % 256) + '.' +
           std::to_string(uServer);
}

void CNetwork::cut(unsigned uServer)
{
    if (!run({"ip", "link", "set", portOf(uServer), "nomaster"})) // the links stay up: nobody sees it
        throw std::runtime_error("the link cannot be cut");
}

void CNetwork::mend(unsigned uServer)
{
    if (!run({"ip", "link", "set", portOf(uServer), "master", "switch"}))
        throw std::runtime_error("the link cannot be mended");
}

void CNetwork::reset(unsigned uServer, unsigned uOther)
{
    if (!run({"ss", "--kill", "--tcp", "dst", address(uOther)}, network(uServer)))
        throw std::runtime_error("the connection cannot be ended");
}
