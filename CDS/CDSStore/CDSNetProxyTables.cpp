// The proxy: its tables of client calls, distributions and reachable servers, each with the index that its users need.

#include "CDSNetProxyTables.h"

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSTraceText.h"

CClientCall::CClientCall(CCDSNetProxy* pProxy, unsigned long ulIPAddr, const std::string& sCallID)
    : m_pProxy(pProxy),
      m_sCallID(sCallID),
      m_sRegID(CCDSAPI::createGUID()),
      m_dwServer(static_cast<std::uint32_t>(ulIPAddr))
{
    CCDSLogging::logWarning("CClientCall::CClientCall - 0x%08X, ipaddr 0x%08X, callid %s, regid %s", cdsIdentity(this),
                            m_dwServer, m_sCallID.c_str(), m_sRegID.c_str());
}

CClientCall::~CClientCall()
{
    CCDSLogging::logWarning("CClientCall::~CClientCall - 0x%08X, ipaddr 0x%08X, callid %s, regid %s", cdsIdentity(this),
                            m_dwServer, m_sCallID.c_str(), m_sRegID.c_str());
}

void CClientCall::dump(int /*nFull*/) const
{
    if (const auto pChannel = m_pProxy->serverChannel(); pChannel != nullptr)
        CCDSLogging::logAlways("   callid %s, regid %s, regcount %d, server %s", m_sCallID.c_str(), m_sRegID.c_str(),
                               m_lCount, pChannel->ipAddrToString(m_dwServer).c_str());
}

CCalldataDistribution::CCalldataDistribution(CCDSNetProxy* pProxy, bool bClient, unsigned long ulIPAddr,
                                             const std::string& sCallID, const std::string& sRegID)
    : m_bClient(bClient),
      m_dwPeer(static_cast<std::uint32_t>(ulIPAddr)),
      m_sCallID(sCallID),
      m_sRegID(sRegID),
      m_pProxy(pProxy)
{
}

void CCalldataDistribution::dump(int /*nFull*/) const
{
    if (const auto pChannel = m_pProxy->serverChannel(); pChannel != nullptr)
        CCDSLogging::logAlways("   callid %s, regid %s, client %d, server %s", m_sCallID.c_str(), m_sRegID.c_str(),
                               m_bClient ? 1 : 0, pChannel->ipAddrToString(m_dwPeer).c_str());
}

CClientCallTable::CEntry CClientCallTable::find(const std::string& sCallID) const
{
    const auto it = m_mapCalls.find(sCallID);
    return it != m_mapCalls.end() ? it->second : nullptr;
}

void CClientCallTable::add(const CEntry& pCall)
{
    const auto it = m_mapCalls.emplace(pCall->m_sCallID, pCall).first;
    try
    {
        m_mapServers.emplace(std::pair(pCall->m_dwServer, std::string_view(pCall->m_sCallID)), pCall);
    }
    catch (...)
    {
        m_mapCalls.erase(it);
        throw;
    }
}

void CClientCallTable::remove(const std::string& sCallID) noexcept
{
    const auto it = m_mapCalls.find(sCallID);
    if (it == m_mapCalls.end())
        return;
    const CEntry pCall = it->second; // the keys are its own
    m_mapServers.erase({pCall->m_dwServer, pCall->m_sCallID});
    m_mapCalls.erase(it);
}

std::vector<CClientCallTable::CEntry> CClientCallTable::ofServer(std::uint32_t dwServer) const
{
    std::vector<CEntry> vecCalls;
    for (auto it = m_mapServers.lower_bound({dwServer, std::string_view()});
         it != m_mapServers.end() && it->first.first == dwServer; ++it)
        vecCalls.push_back(it->second);
    return vecCalls;
}

void CClientCallTable::clear() noexcept
{
    m_mapServers.clear();
    // In the order of the calls, each entry's end being traced.
    while (!m_mapCalls.empty())
        (void)m_mapCalls.extract(m_mapCalls.begin());
}

CDistributionTable::CPeerKey CDistributionTable::peerKeyOf(const CCalldataDistribution& entry)
{
    return {entry.m_bClient, entry.m_dwPeer, entry.m_sCallID, entry.m_ullSequence};
}

CDistributionTable::CEntry CDistributionTable::find(const std::string& sCallID, std::uint32_t dwPeer) const
{
    for (auto it = m_mapEntries.lower_bound({sCallID, 0}); it != m_mapEntries.end() && it->first.first == sCallID; ++it)
        if (it->second->m_dwPeer == dwPeer)
            return it->second;
    return nullptr;
}

std::vector<CDistributionTable::CEntry> CDistributionTable::ofCall(const std::string& sCallID) const
{
    std::vector<CEntry> vecEntries;
    for (auto it = m_mapEntries.lower_bound({sCallID, 0}); it != m_mapEntries.end() && it->first.first == sCallID; ++it)
        vecEntries.push_back(it->second);
    return vecEntries;
}

std::vector<CDistributionTable::CEntry> CDistributionTable::ofPeer(bool bClient, std::uint32_t dwPeer) const
{
    std::vector<CEntry> vecEntries;
    const auto itEnd = m_mapPeers.end();
    for (auto it = m_mapPeers.lower_bound({bClient, dwPeer, std::string_view(), 0});
         it != itEnd && it->second->m_bClient == bClient && it->second->m_dwPeer == dwPeer; ++it)
        vecEntries.push_back(it->second);
    return vecEntries;
}

std::size_t CDistributionTable::countOfPeer(bool bClient, std::uint32_t dwPeer) const
{
    const auto it = m_mapCounts.find({bClient, dwPeer});
    return it != m_mapCounts.end() ? it->second : 0;
}

void CDistributionTable::uncount(bool bClient, std::uint32_t dwPeer) noexcept
{
    const auto it = m_mapCounts.find({bClient, dwPeer});
    if (--it->second == 0)
        m_mapCounts.erase(it);
}

void CDistributionTable::add(const CEntry& pEntry)
{
    pEntry->m_ullSequence = m_ullNextSequence++;
    ++m_mapCounts[{pEntry->m_bClient, pEntry->m_dwPeer}];
    auto it = m_mapEntries.end();
    try
    {
        it = m_mapEntries.emplace(CKey(pEntry->m_sCallID, pEntry->m_ullSequence), pEntry).first;
        m_mapPeers.emplace(peerKeyOf(*pEntry), pEntry);
    }
    catch (...)
    {
        if (it != m_mapEntries.end())
            m_mapEntries.erase(it);
        uncount(pEntry->m_bClient, pEntry->m_dwPeer);
        throw;
    }
}

CDistributionTable::CEntry CDistributionTable::remove(bool bClient, const std::string& sCallID,
                                                      std::uint32_t dwPeer) noexcept
{
    for (auto it = m_mapEntries.lower_bound({sCallID, 0}); it != m_mapEntries.end() && it->first.first == sCallID; ++it)
    {
        if (it->second->m_bClient != bClient || it->second->m_dwPeer != dwPeer)
            continue;
        CEntry pEntry = it->second; // the keys are its own
        m_mapPeers.erase(peerKeyOf(*pEntry));
        m_mapEntries.erase(it);
        uncount(bClient, dwPeer);
        return pEntry;
    }
    return nullptr;
}

void CDistributionTable::removeOfPeer(bool bClient, std::uint32_t dwPeer, CEntries* pRemoved) noexcept
{
    auto it = m_mapPeers.lower_bound({bClient, dwPeer, std::string_view(), 0});
    while (it != m_mapPeers.end() && it->second->m_bClient == bClient && it->second->m_dwPeer == dwPeer)
    {
        pRemoved->insert(m_mapEntries.extract({it->second->m_sCallID, it->second->m_ullSequence}));
        it = m_mapPeers.erase(it);
        uncount(bClient, dwPeer);
    }
}

void CDistributionTable::clear() noexcept
{
    m_mapPeers.clear();
    m_mapEntries.clear();
    m_mapCounts.clear();
}

std::int32_t CServerStates::findOrAdd(std::uint32_t dwServer)
{
    const std::lock_guard lock(m_mtx);
    return m_mapServerState.try_emplace(dwServer).first->second.lState;
}

void CServerStates::set(std::uint32_t dwServer, std::int32_t lState)
{
    const std::lock_guard lock(m_mtx);
    SState& state = m_mapServerState[dwServer];
    state.lState = lState;
    if (lState != 0)
        state.ullEpoch = ++m_ullLastEpoch;
}

std::uint64_t CServerStates::epoch(std::uint32_t dwServer) const
{
    const std::lock_guard lock(m_mtx);
    const auto it = m_mapServerState.find(dwServer);
    return it != m_mapServerState.end() ? it->second.ullEpoch : 0;
}

void CServerStates::setUnreachable(std::uint32_t dwServer, std::uint64_t ullEpoch)
{
    const std::lock_guard lock(m_mtx);
    SState& state = m_mapServerState[dwServer];
    if (state.ullEpoch == ullEpoch)
        state.lState = 0;
}

void CServerStates::clear()
{
    const std::lock_guard lock(m_mtx);
    m_mapServerState.clear();
}

CServerStates::CSnapshot CServerStates::all() const
{
    const std::lock_guard lock(m_mtx);
    CSnapshot vecStates;
    for (const auto& [dwServer, state] : m_mapServerState)
        vecStates.emplace_back(dwServer, state.lState);
    return vecStates;
}
