#pragma once

#include "CDSNetProxyWork.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <vector>

class CCDSNetProxy;

/// A CDR on its way to one server, kept until that server has acknowledged it.
///
/// Threads    worker thread only.
class CCDRCallData
{
public:
    /// Takes the next object ID.
    CCDRCallData(CCDSNetProxy* pProxy, unsigned long ulServer, const std::string& sCallID, CSharedMessage pMsg);

    /// Writes it to the trace log; nothing while there is no server channel.
    void dump(int nFull) const;

    /// Bytes of its call data's values, asked anew each time.
    std::uint32_t size() const;

    CCDSNetProxy* const m_pProxy;
    const std::uint32_t m_dwServerIPAddr;
    const std::string m_sCallID;
    const std::string m_sRegID; // always empty
    const std::uint64_t m_ullCreated;
    const CSharedMessage m_pMsg; // an exchange under way holds it too, so its address stays its own
    const std::uint32_t m_dwObjectID;

    static std::atomic<std::uint32_t> s_dwCurObjectID; // the next entry's
};

/// The CDRs on their way, by object ID; by call ID, message and destination beside.
///
/// Threads    worker thread only.
class CCDRCache
{
public:
    using CEntry = std::shared_ptr<const CCDRCallData>;

    /// False when its object ID is taken: there have been 2^32 entries since.
    bool add(const CEntry& pEntry);
    void remove(const CCDRCallData& entry) noexcept;
    bool contains(const std::string& sCallID) const { return m_mapCallIDs.contains(sCallID); }
    /// Null when there is none, here and below.
    CEntry find(const CCallbackMsg* pMsg) const;
    /// The one with the highest object ID.
    CEntry newest() const;
    CEntry oldestOf(std::uint32_t dwServer) const;
    /// Oldest first.
    std::vector<CEntry> ofServer(std::uint32_t dwServer) const;
    const std::map<std::uint32_t, CEntry>& all() const noexcept { return m_mapCDRCallData; }
    std::size_t count() const noexcept { return m_mapCDRCallData.size(); }
    /// The sum of the entries' sizes. Wider than a size, so that no number of entries makes it small again.
    std::uint64_t bytes() const noexcept { return m_ullBytes; }

private:
    using CServerKey = std::tuple<std::uint32_t, std::uint64_t, std::uint32_t>; // server, creation, object ID

    static CServerKey serverKeyOf(const CCDRCallData& entry);
    void forget(const CCDRCallData& entry) noexcept;

    std::map<std::uint32_t, CEntry> m_mapCDRCallData;                     // object ID -> entry
    std::unordered_map<std::string_view, std::uint32_t> m_mapCallIDs;     // call ID (the entry's own) -> object ID
    std::unordered_map<const CCallbackMsg*, std::uint32_t> m_mapMessages; // message -> object ID
    std::set<CServerKey> m_setServers;
    std::uint64_t m_ullBytes = 0;
};
