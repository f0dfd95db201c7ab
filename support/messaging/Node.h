#pragma once

#include "Acceptor.h"
#include "Peer.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <asio/executor_work_guard.hpp>

namespace Messaging {

/// What the server channel and the client channel of one server share: its address, its peers, the thread that does the
/// reading. The first channel makes it, the last one ends it.
///
/// Threads    any; no operation is called on the I/O thread.
class CNode
{
public:
    enum ERole
    {
        server,
        client
    };

    /// Gives the node of the configured address to a channel, making it for the first.
    ///
    /// @param sService   what both channels have in common; peers must have the same
    /// @param ppNode     out: the node
    /// @param psError    out: on failure what is wrong
    /// @return 0 or a negative result
    static long join(ERole eRole, const std::string& sService, std::shared_ptr<CNode>* ppNode, std::string* psError);
    /// Takes the channel back: its receives return, and so do those of its connections.
    void leave(ERole eRole);

    CNode(const CChannelSettings& settings, std::uint64_t ullService);
    ~CNode();
    CNode(const CNode&) = delete;
    CNode& operator=(const CNode&) = delete;

    /// The peer of an address, or null when it can be none or there are too many.
    std::shared_ptr<CPeer> findPeer(std::uint32_t dwPeer, bool bMake);
    long readClock(std::uint32_t dwPeer, CPeerClock::CReading* pReading);
    CNodeParts& parts() { return m_parts; }
    void dump();

private:
    static std::uint64_t keyOf(const CChannelSettings& settings);
    long prepare(std::string* psError);
    long attach(ERole eRole, std::string* psError);
    void run();
    void onIo(const std::function<void()>& fnTask);
    void tick();
    void greeted(const std::shared_ptr<CSession>& pSession);
    std::vector<std::shared_ptr<CPeer>> peers();

    CNodeParts m_parts;
    std::mutex m_mtxPeers;
    std::map<std::uint32_t, std::shared_ptr<CPeer>> m_mapPeers; // guarded by m_mtxPeers; never erased

    // I/O thread only, but for listening.
    std::shared_ptr<CAcceptor> m_pAcceptor; // null when no server channel is there
    asio::steady_timer m_timer;
    std::chrono::milliseconds m_interval;

    // Guarded by the table of nodes.
    bool m_bServer = false;
    bool m_bClient = false;

    asio::executor_work_guard<asio::io_context::executor_type> m_work;
    std::thread m_thread;
};

} // namespace Messaging
