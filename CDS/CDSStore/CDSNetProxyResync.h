#pragma once

#include "CDSCallData.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

class CCDSNetProxy;

/// Heals what a failure between two servers, or a registrant that leaves at the wrong moment, would lose for good.
/// While nothing is lost it does nothing.
///
/// A call's changes go to each peer as differences, once. Whoever did not get one, because its exchange failed or
/// because an unreachable peer was in line before it, never gets it again by itself. The proxy tells this class when
/// that happens; it remembers the call as stale at that peer, and when the peer's state changes it asks the store for
/// the call's whole data, of which each peer is sent what it lacks.
///
/// While nobody is registered for a call the store neither gives its data nor takes any, but keeps what it has for the
/// next registrant. Nor does an owner take any from a server that it knows no registration of. What it may lack by this
/// is owed, and sent whole when somebody has come; what the store has refused is handed to it again.
///
/// Threads    worker thread only.
/// Bounded    remembers at most one mark for a call and peer that share a distribution entry, and goes with the entry;
///            what was refused, which goes with the client call; one mark for a call that is owed. That is kept for two
///            minutes at least, longer than the store keeps the data of a call without registrants, and goes when as
///            many new ones have come. And a mark for each server with which anything ever failed.
class CCDSNetProxyResync
{
public:
    explicit CCDSNetProxyResync(CCDSNetProxy* pProxy) noexcept : m_pProxy(pProxy) {}

    /// A call's data may not have reached a peer although its entry says so: the entry forgets what the peer has.
    void exchangeFailed(const std::string& sCallID, std::uint32_t dwPeer);

    /// A call's data has reached a peer: what did not before may do so now.
    void exchangeSucceeded(const std::string& sCallID, std::uint32_t dwPeer)
    {
        (void)entryRemoved(sCallID, dwPeer);
    } // stale or not
    bool isAnythingStale() const noexcept { return !m_mapStale.empty(); }

    /// The connection to a server was lost: it may know less of our calls than their entries say.
    void connectionLost(std::uint32_t dwServer) { m_setDisturbed.insert(dwServer); }
    /// Data of a call is on its way to its owner. It counts there only between our registration and the end of it.
    ///
    /// @param bAny  false: nobody was registered here, so that there was nothing to send
    void sentToOwner(const std::string& sCallID, std::uint32_t dwServer, bool bAny);
    /// The store did not take a call's data, since nobody is registered for it here, while the owner's entry for us
    /// says that we have it.
    void dataRefused(const std::string& sCallID, CCallData& data);
    /// Somebody is registered for a call here, and as far as we know its owner knows of it.
    void somebodyRegistered(const std::string& sCallID, std::uint32_t dwServer);

    /// A call's change was not sent to a peer.
    void notReached(const std::string& sCallID, std::uint32_t dwPeer);

    /// The exchange of an unregistration has ended and its entry is gone. A registration may have come in meanwhile:
    /// then the entry is set up again, without call data.
    ///
    /// @param bFailed  the owner may not have heard of it
    void unregistrationEnded(const std::string& sCallID, std::uint32_t dwServer, bool bFailed);

    /// A registration is about to be sent again: the entry stands before the owner can answer with data.
    void beforeReregistration(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer);

    /// A registration was sent again while its unregistration was under way: the owner is told once more.
    void reregisteredInVain(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer);

    /// There is no entry for a call's owner, since nobody waits for the call here any more.
    ///
    /// @param bFailed  the owner could not be told
    void ownerEntryRemoved(const std::string& sCallID, std::uint32_t dwServer, bool bFailed);

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
    ///
    /// @return whether the call was stale there
    bool entryRemoved(const std::string& sCallID, std::uint32_t dwPeer);

private:
    void redistribute(std::uint32_t dwPeer);
    void distributeAgain(const std::string& sCallID);
    void owe(const std::string& sCallID, std::uint32_t dwServer);
    void forgetOldDebts(std::uint64_t ullNow);

    CCDSNetProxy* const m_pProxy;
    std::map<std::uint32_t, std::set<std::string>> m_mapStale;      // peer -> calls
    std::set<std::uint32_t> m_setLeftBehind;                        // peers whose entries stayed
    std::set<std::uint32_t> m_setDisturbed;                         // servers with which anything ever failed
    std::map<std::string, std::unique_ptr<CCallData>> m_mapRefused; // call -> all that was refused
    std::map<std::string, std::uint64_t> m_mapOwed;                 // call -> tick count in ms, when it was last noted
    std::size_t m_uForgetAt = 0;                                    // so many debts are worth a look for old ones
};
