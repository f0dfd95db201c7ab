// The proxy: what makes servers whole again after a failure between them.

#include "CDSNetProxyResync.h"

#include "CDSLogging.h"
#include "CDSNetProxy.h"

#include <utility>

void CCDSNetProxyResync::exchangeFailed(const std::string& sCallID, std::uint32_t dwPeer)
{
    if (m_pProxy->forgetPeerData(sCallID, dwPeer))
        notReached(sCallID, dwPeer);
}

void CCDSNetProxyResync::notReached(const std::string& sCallID, std::uint32_t dwPeer)
{
    if (m_mapStale[dwPeer].insert(sCallID).second)
        CCDSLogging::logWarning("CCDSNetProxyResync: call %s is stale, ipaddr 0x%08X", sCallID.c_str(), dwPeer);
}

void CCDSNetProxyResync::unregistrationEnded(const std::string& sCallID, std::uint32_t dwServer)
{
    std::string sRegID;
    m_pProxy->withClientCalls([&](const CClientCallTable& calls) {
        const auto pCall = calls.find(sCallID);
        if (pCall != nullptr && pCall->m_lCount > 0 && pCall->m_dwServer == dwServer)
            sRegID = pCall->m_sRegID;
    });
    if (sRegID.empty())
        entryRemoved(sCallID, dwServer);
    else if (m_pProxy->reserveDistribution(true, sCallID, sRegID, dwServer))
        CCDSLogging::logWarning("CCDSNetProxyResync: call %s is registered again, ipaddr 0x%08X", sCallID.c_str(),
                                dwServer);
}

void CCDSNetProxyResync::beforeReregistration(const std::string& sCallID, const std::string& sRegID,
                                              std::uint32_t dwServer)
{
    (void)m_pProxy->reserveDistribution(true, sCallID, sRegID, dwServer); // either way there is one now
}

void CCDSNetProxyResync::reregisteredInVain(const std::string& sCallID, const std::string& sRegID,
                                            std::uint32_t dwServer)
{
    CCDSLogging::logWarning("CCDSNetProxyResync: call %s is withdrawn, ipaddr 0x%08X", sCallID.c_str(), dwServer);
    m_pProxy->withdrawRegistration(sCallID, sRegID, dwServer);
}

void CCDSNetProxyResync::peerLeft(std::uint32_t dwPeer, bool bEntriesStay)
{
    if (bEntriesStay)
        m_setLeftBehind.insert(dwPeer);
    else
        redistribute(dwPeer);
}

bool CCDSNetProxyResync::dropLeftBehind(std::uint32_t dwPeer)
{
    if (m_setLeftBehind.erase(dwPeer) == 0)
        return false;
    CCDSLogging::logWarning("CCDSNetProxyResync: entries of an earlier connection go, ipaddr 0x%08X", dwPeer);
    (void)m_pProxy->unregisterClients(dwPeer);              // those that a lack of memory has kept
    (void)m_pProxy->remCallDataDistribution(false, dwPeer); // always 0
    redistribute(dwPeer);
    return true;
}

void CCDSNetProxyResync::entryRemoved(const std::string& sCallID, std::uint32_t dwPeer)
{
    const auto it = m_mapStale.find(dwPeer);
    if (it == m_mapStale.end() || it->second.erase(sCallID) == 0)
        return;
    if (it->second.empty())
        m_mapStale.erase(it);
    (void)m_pProxy->requestCallData(sCallID); // no data, nothing to distribute
}

void CCDSNetProxyResync::redistribute(std::uint32_t dwPeer)
{
    const auto node = m_mapStale.extract(dwPeer);
    if (node.empty())
        return;
    for (const std::string& sCallID : node.mapped())
    {
        CCDSLogging::logWarning("CCDSNetProxyResync: call %s is distributed again, ipaddr 0x%08X", sCallID.c_str(),
                                dwPeer);
        (void)m_pProxy->requestCallData(sCallID); // no data, nothing to distribute
    }
}
