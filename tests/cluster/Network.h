#pragma once

#include <string>
#include <vector>

/// Three servers' places in a network that a test may cut: each has a network namespace of its own, and a link to a
/// switch in the test's namespace. Nothing is left of it when the process ends, however it does.
///
/// Where the machine does not allow that, three loopback addresses that no other test has at the same time.
///
/// Threads  one thread, of a process that has no other when this is made.
class CNetwork
{
public:
    CNetwork();
    ~CNetwork();
    CNetwork(const CNetwork&) = delete;
    CNetwork& operator=(const CNetwork&) = delete;

    static constexpr unsigned cServers = 3;

    /// @param uServer  from 1
    std::string address(unsigned uServer) const;
    /// Namespace of a server; negative: this process's.
    int network(unsigned uServer) const { return m_vecNetworks.empty() ? -1 : m_vecNetworks[uServer - 1]; }

    /// Why links cannot be cut; empty when they can.
    const std::string& lacks() const { return m_sLacks; }

    /// Cuts a server off, or joins it again. Neither side is told: what they send is lost.
    void cut(unsigned uServer);
    void mend(unsigned uServer);
    /// Ends the connections between two servers; both are told.
    void reset(unsigned uServer, unsigned uOther);

private:
    std::string isolate();
    static bool run(std::vector<std::string> vecCommand, int nNetwork = -1);

    std::vector<int> m_vecNetworks; // descriptors
    std::string m_sLacks;
};
