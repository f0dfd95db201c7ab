// The proxy: what makes servers whole again after a failure between them.

#include "CDSNetProxyResync.h"

#include "CDSLogging.h"
#include "CDSNetProxy.h"

#include <algorithm>
#include <utility>

namespace {

/// Longer than the store keeps the data of a call without registrants.
constexpr std::uint64_t cOwedMs = 120'000;
constexpr std::size_t cFewDebts = 1'000;

} // namespace

void CCDSNetProxyResync::exchangeFailed(const std::string& sCallID, std::uint32_t dwPeer)
{
    if (m_pProxy->forgetPeerData(sCallID, dwPeer))
        notReached(sCallID, dwPeer);
}

void CCDSNetProxyResync::notReached(const std::string& sCallID, std::uint32_t dwPeer)
{
    m_setDisturbed.insert(dwPeer);
    if (m_mapStale[dwPeer].insert(sCallID).second)
        CCDSLogging::logWarning("CCDSNetProxyResync: call %s is stale, ipaddr 0x%08X", sCallID.c_str(), dwPeer);
}

void CCDSNetProxyResync::unregistrationEnded(const std::string& sCallID, std::uint32_t dwServer, bool bFailed)
{
    std::string sRegID;
    m_pProxy->withClientCalls([&](const CClientCallTable& calls) {
        const auto pCall = calls.find(sCallID);
        if (pCall != nullptr && pCall->m_lCount > 0 && pCall->m_dwServer == dwServer)
            sRegID = pCall->m_sRegID;
    });
    if (sRegID.empty())
    {
        ownerEntryRemoved(sCallID, dwServer, bFailed);
        return;
    }
    if (m_pProxy->reserveDistribution(true, sCallID, sRegID, dwServer))
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
    sentToOwner(sCallID, dwServer, false); // it dropped what came before it was told again
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

void CCDSNetProxyResync::ownerEntryRemoved(const std::string& sCallID, std::uint32_t dwServer, bool bFailed)
{
    m_mapRefused.erase(sCallID); // the next registration brings everything
    if (entryRemoved(sCallID, dwServer) || bFailed)
        owe(sCallID, dwServer);
}

bool CCDSNetProxyResync::entryRemoved(const std::string& sCallID, std::uint32_t dwPeer)
{
    const auto it = m_mapStale.find(dwPeer);
    if (it == m_mapStale.end() || it->second.erase(sCallID) == 0)
        return false;
    if (it->second.empty())
        m_mapStale.erase(it);
    distributeAgain(sCallID);
    return true;
}

void CCDSNetProxyResync::sentToOwner(const std::string& sCallID, std::uint32_t dwServer, bool bAny)
{
    if (m_setDisturbed.contains(dwServer) && !(bAny && m_pProxy->isAskedFor(sCallID)))
        owe(sCallID, dwServer);
}

void CCDSNetProxyResync::dataRefused(const std::string& sCallID, CCallData& data)
{
    bool bChanged = false;
    if (const auto it = m_mapRefused.find(sCallID); it != m_mapRefused.end())
        (void)it->second->merge(&data, &bChanged); // without memory some of it is lost
    else if (std::unique_ptr<CCallData> pRefused(data.clone()); pRefused != nullptr)
        m_mapRefused.emplace(sCallID, std::move(pRefused));
}

void CCDSNetProxyResync::somebodyRegistered(const std::string& sCallID, std::uint32_t dwServer)
{
    if (auto node = m_mapRefused.extract(sCallID); !node.empty())
    {
        CCDSLogging::logWarning("CCDSNetProxyResync: call %s is taken up, ipaddr 0x%08X", sCallID.c_str(), dwServer);
        if (m_pProxy->giveToStore(node.mapped().get()) < 0)
            m_mapRefused.insert(std::move(node)); // they are gone again
    }
    if (!m_mapOwed.contains(sCallID) || !m_pProxy->isAskedFor(sCallID))
        return;
    (void)m_pProxy->forgetPeerData(sCallID, dwServer); // what it says may have come behind an unregistration
    if (m_pProxy->requestCallData(sCallID) < 0)
        return;
    m_mapOwed.erase(sCallID);
    CCDSLogging::logWarning("CCDSNetProxyResync: call %s is made good, ipaddr 0x%08X", sCallID.c_str(), dwServer);
}

/// Has the store give a call's data for all peers, one of which has failed.
void CCDSNetProxyResync::distributeAgain(const std::string& sCallID)
{
    const bool bGiven = m_pProxy->requestCallData(sCallID) >= 0;
    if (const auto pCall = m_pProxy->getClientCall(sCallID); pCall != nullptr)
        sentToOwner(sCallID, pCall->m_dwServer, bGiven);
}

/// Notes that a call's owner may lack what is here.
void CCDSNetProxyResync::owe(const std::string& sCallID, std::uint32_t dwServer)
{
    m_setDisturbed.insert(dwServer);
    const std::uint64_t ullNow = CPortable::GetTickCountULL();
    m_mapOwed[sCallID] = ullNow;
    forgetOldDebts(ullNow);
}

void CCDSNetProxyResync::forgetOldDebts(std::uint64_t ullNow)
{
    if (m_mapOwed.size() < m_uForgetAt)
        return;
    std::erase_if(m_mapOwed, [&](const auto& debt) { return ullNow - debt.second > cOwedMs; });
    m_uForgetAt = std::max(2 * m_mapOwed.size(), cFewDebts); // each is looked at a few times only
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
        distributeAgain(sCallID);
    }
}
