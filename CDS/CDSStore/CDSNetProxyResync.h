#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

class CCDSNetProxy;

/// Heals what a failure between two servers would lose for good. While nothing fails it does nothing.
///
/// A call's changes go to each peer as differences, once. Whoever did not get one, because its exchange failed or
/// because an unreachable peer was in line before it, never gets it again by itself. The proxy tells this class when
/// that happens; it remembers the call as stale at that peer, and when the peer's state changes it asks the store for
/// the call's whole data, of which each peer is sent what it lacks.
///
/// Threads    worker thread only.
/// Bounded    remembers at most one mark for a call and peer that share a distribution entry; it goes with the entry.
class CCDSNetProxyResync
{
public:
    explicit CCDSNetProxyResync(CCDSNetProxy* pProxy) noexcept : m_pProxy(pProxy) {}

    /// A call's data may not have reached a peer although its entry says so: the entry forgets what the peer has.
    void exchangeFailed(const std::string& sCallID, std::uint32_t dwPeer);

    /// A call's data has reached a peer: what did not before may do so now.
    void exchangeSucceeded(const std::string& sCallID, std::uint32_t dwPeer) { entryRemoved(sCallID, dwPeer); }
    bool isAnythingStale() const noexcept { return !m_mapStale.empty(); }

    /// A call's change was not sent to a peer.
    void notReached(const std::string& sCallID, std::uint32_t dwPeer);

    /// The exchange of an unregistration has ended and its entry is gone. A registration may have come in meanwhile:
    /// then the entry is set up again, without call data.
    void unregistrationEnded(const std::string& sCallID, std::uint32_t dwServer);

    /// A registration is about to be sent again: the entry stands before the owner can answer with data.
    void beforeReregistration(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer);

    /// A registration was sent again while its unregistration was under way: the owner is told once more.
    void reregisteredInVain(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer);

    /// A peer has disconnected. When one of its registrations was unknown its entries stay. They would keep others from
    /// getting a call's changes, and the peer's next registrations from being made: they go when they are found in
    /// the way, or when the peer connects again.
    void peerLeft(std::uint32_t dwPeer, bool bEntriesStay);
    void peerConnected(std::uint32_t dwPeer) { (void)dropLeftBehind(dwPeer); }
    /// A peer cannot be served. When its entries are of an earlier connection they go.
    ///
    /// @return whether they were
    bool dropLeftBehind(std::uint32_t dwPeer);

    /// A connection event of a peer: what is stale there is distributed again.
    void connectionChanged(std::uint32_t dwPeer) { redistribute(dwPeer); }

    /// A peer's entry is gone: whom it kept from getting the call's changes gets them.
    void entryRemoved(const std::string& sCallID, std::uint32_t dwPeer);

private:
    void redistribute(std::uint32_t dwPeer);

    CCDSNetProxy* const m_pProxy;
    std::map<std::uint32_t, std::set<std::string>> m_mapStale; // peer -> calls
    std::set<std::uint32_t> m_setLeftBehind;                   // peers whose entries stayed
};
