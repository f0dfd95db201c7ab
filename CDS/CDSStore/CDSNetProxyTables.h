#pragma once

#include "CDSCallData.h"
#include "CDSTimestamp.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

class CCDSNetProxy;

/// A call whose data another server owns and local registrants wait for.
///
/// Threads    guarded by the proxy's m_csCalls, but for what never changes.
class CClientCall
{
public:
    /// Makes the ID under which this server registers at the owner.
    CClientCall(CCDSNetProxy* pProxy, unsigned long ulIPAddr, const std::string& sCallID);
    ~CClientCall();
    CClientCall(const CClientCall&) = delete;
    CClientCall& operator=(const CClientCall&) = delete;

    /// Writes it to the trace log; nothing while there is no server channel.
    void dump(int nFull) const;

    CCDSNetProxy* const m_pProxy;
    const std::string m_sCallID;
    const std::string m_sRegID;
    std::int32_t m_lCount = 0; // local registrations
    bool m_bAsked = false;     // the last thing sent to the owner for it was a registration
    const std::uint32_t m_dwServer;
    // The last times given out for the call; they never go back.
    unsigned long long m_ullTimestamp = 0;
    CCDSTimestamp m_tsStamp{0, 0};
};

/// A peer that gets a call's changes, and what it has of the call already.
///
/// Threads    the ID is guarded by the proxy's m_csCalls; call data and the store's ID belong to the worker.
class CCalldataDistribution
{
public:
    CCalldataDistribution(CCDSNetProxy* pProxy, bool bClient, unsigned long ulIPAddr, const std::string& sCallID,
                          const std::string& sRegID);

    /// Writes it to the trace log; nothing while there is no server channel.
    void dump(int nFull) const;

    const bool m_bClient; // we registered at the peer, which owns the call; else it registered here
    const std::uint32_t m_dwPeer;
    const std::string m_sCallID;
    std::string m_sRegID; // under which the peer knows the call
    CCDSNetProxy* const m_pProxy;
    std::unique_ptr<CCallData> m_pLastData; // as last exchanged with the peer; null before
    // Under which the store holds the peer's registration; "" when it holds none. Another one than the peer's when that
    // has taken a new ID since, and none when the ID that the peer chose was taken: then it is somebody else's.
    std::string m_sStoreRegID;

private:
    friend class CDistributionTable;
    std::uint64_t m_ullSequence = 0;
};

/// The client calls by call ID, and by server beside.
///
/// Threads    guarded by the proxy's m_csCalls.
class CClientCallTable
{
public:
    using CEntry = std::shared_ptr<CClientCall>;

    /// Null when there is none.
    CEntry find(const std::string& sCallID) const;
    void add(const CEntry& pCall);
    void remove(const std::string& sCallID) noexcept;
    /// In the order of their call IDs.
    std::vector<CEntry> ofServer(std::uint32_t dwServer) const;
    const std::map<std::string_view, CEntry>& all() const noexcept { return m_mapCalls; }
    void clear() noexcept;

private:
    std::map<std::string_view, CEntry> m_mapCalls;                             // call ID (the entry's own) -> entry
    std::map<std::pair<std::uint32_t, std::string_view>, CEntry> m_mapServers; // (server, call ID) -> entry
};

/// The distributions by call ID, those of one call in the order they were added, and by peer beside.
///
/// Threads    guarded by the proxy's m_csCalls.
class CDistributionTable
{
public:
    using CEntry = std::shared_ptr<CCalldataDistribution>;
    using CKey = std::pair<std::string_view, std::uint64_t>; // call ID (the entry's own), sequence
    using CEntries = std::map<CKey, CEntry>;

    /// The first of a call for a peer, whatever its client flag; null when there is none.
    CEntry find(const std::string& sCallID, std::uint32_t dwPeer) const;
    std::vector<CEntry> ofCall(const std::string& sCallID) const;
    /// By call ID, then as added.
    std::vector<CEntry> ofPeer(bool bClient, std::uint32_t dwPeer) const;
    std::size_t countOfPeer(bool bClient, std::uint32_t dwPeer) const;
    void add(const CEntry& pEntry);
    /// The first of a call with this flag and peer, taken out; null when there is none.
    CEntry remove(bool bClient, const std::string& sCallID, std::uint32_t dwPeer) noexcept;
    /// @param pRemoved  takes the entries
    void removeOfPeer(bool bClient, std::uint32_t dwPeer, CEntries* pRemoved) noexcept;
    const CEntries& all() const noexcept { return m_mapEntries; }
    void clear() noexcept;

private:
    using CPeerKey = std::tuple<bool, std::uint32_t, std::string_view, std::uint64_t>;

    static CPeerKey peerKeyOf(const CCalldataDistribution& entry);
    void uncount(bool bClient, std::uint32_t dwPeer) noexcept;

    CEntries m_mapEntries;
    std::map<CPeerKey, CEntry> m_mapPeers;
    std::map<std::pair<bool, std::uint32_t>, std::size_t> m_mapCounts; // side and peer -> entries, never 0
    std::uint64_t m_ullNextSequence = 0;
};

/// Which peers can be reached: 1, or 0 since a send to it failed.
///
/// Threads    any; its lock is a leaf that is never held while anything is called.
class CServerStates
{
public:
    using CSnapshot = std::vector<std::pair<std::uint32_t, std::int32_t>>;

    /// The peer's state; 1 is noted for one that is not known yet.
    std::int32_t findOrAdd(std::uint32_t dwServer);
    void set(std::uint32_t dwServer, std::int32_t lState);
    /// A number that changes whenever the peer is said to be reachable.
    std::uint64_t epoch(std::uint32_t dwServer) const;
    /// Notes that a send failed, unless the peer was said to be reachable since the epoch in which it began: whoever
    /// waits for the next event would wait in vain then.
    void setUnreachable(std::uint32_t dwServer, std::uint64_t ullEpoch);
    /// Forgets all of them.
    void clear();
    /// By ascending address.
    CSnapshot all() const;

private:
    struct SState
    {
        std::int32_t lState = 1;
        std::uint64_t ullEpoch = 0;
    };

    mutable std::mutex m_mtx;
    std::map<std::uint32_t, SState> m_mapServerState; // guarded by m_mtx, as the next
    std::uint64_t m_ullLastEpoch = 0;
};
