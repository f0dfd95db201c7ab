// The proxy: CDRs wait here until the server that they are for has acknowledged them.

#include "CDSNetProxyCdr.h"

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSTraceText.h"

#include <limits>

namespace {

constexpr std::uint32_t cNoLimit = 0xFFFFFFFFU;
constexpr std::uint32_t cMsPerMinute = 60000;
constexpr unsigned long cFullPauseMs = 200;

CCallData* recordOf(const CCallbackMsg& msg)
{
    return dynamic_cast<CCallData*>(msg.getCallbackData());
}

/// The server that a CDR is for, as its message names it.
std::string destinationOf(const CCDRCallData& entry)
{
    std::string sDestination;
    (void)entry.m_pMsg->getCDSIPAddr(&sDestination); // always 0
    return sDestination;
}

} // namespace

std::atomic<std::uint32_t> CCDRCallData::s_dwCurObjectID = 1;

CCDRCallData::CCDRCallData(CCDSNetProxy* pProxy, unsigned long ulServer, const std::string& sCallID,
                           CSharedMessage pMsg)
    : m_pProxy(pProxy),
      m_dwServerIPAddr(static_cast<std::uint32_t>(ulServer)),
      m_sCallID(sCallID),
      m_ullCreated(CPortable::GetTickCountULL()),
      m_pMsg(std::move(pMsg)),
      m_dwObjectID(s_dwCurObjectID++)
{
}

void CCDRCallData::dump(int /*nFull*/) const
{
    if (const auto pChannel = m_pProxy->serverChannel(); pChannel != nullptr)
        CCDSLogging::logAlways("   objid %d, callid %s, regid %s, server %s", cdsInt(m_dwObjectID), m_sCallID.c_str(),
                               m_sRegID.c_str(), pChannel->ipAddrToString(m_dwServerIPAddr).c_str());
}

std::uint32_t CCDRCallData::size() const
{
    return static_cast<std::uint32_t>(recordOf(*m_pMsg)->getsize());
}

CCDRCache::CServerKey CCDRCache::serverKeyOf(const CCDRCallData& entry)
{
    return {entry.m_dwServerIPAddr, entry.m_ullCreated, entry.m_dwObjectID};
}

bool CCDRCache::add(const CEntry& pEntry)
{
    if (!m_mapCDRCallData.try_emplace(pEntry->m_dwObjectID, pEntry).second)
        return false;
    try
    {
        m_mapCallIDs.emplace(pEntry->m_sCallID, pEntry->m_dwObjectID);
        m_mapMessages.emplace(pEntry->m_pMsg.get(), pEntry->m_dwObjectID);
        m_setServers.insert(serverKeyOf(*pEntry));
    }
    catch (...)
    {
        forget(*pEntry);
        throw;
    }
    m_ullBytes += pEntry->size();
    return true;
}

void CCDRCache::remove(const CCDRCallData& entry) noexcept
{
    m_ullBytes -= entry.size();
    forget(entry);
}

void CCDRCache::forget(const CCDRCallData& entry) noexcept
{
    m_setServers.erase(serverKeyOf(entry));
    m_mapMessages.erase(entry.m_pMsg.get());
    m_mapCallIDs.erase(entry.m_sCallID);
    m_mapCDRCallData.erase(entry.m_dwObjectID); // last: it may free the entry
}

CCDRCache::CEntry CCDRCache::find(const CCallbackMsg* pMsg) const
{
    const auto it = m_mapMessages.find(pMsg);
    return it != m_mapMessages.end() ? m_mapCDRCallData.at(it->second) : nullptr;
}

CCDRCache::CEntry CCDRCache::newest() const
{
    return m_mapCDRCallData.empty() ? nullptr : m_mapCDRCallData.rbegin()->second;
}

CCDRCache::CEntry CCDRCache::oldestOf(std::uint32_t dwServer) const
{
    const auto it = m_setServers.lower_bound({dwServer, 0, 0});
    return it != m_setServers.end() && std::get<0>(*it) == dwServer ? m_mapCDRCallData.at(std::get<2>(*it)) : nullptr;
}

std::vector<CCDRCache::CEntry> CCDRCache::ofServer(std::uint32_t dwServer) const
{
    std::vector<CEntry> vecEntries;
    for (auto it = m_setServers.lower_bound({dwServer, 0, 0}); it != m_setServers.end() && std::get<0>(*it) == dwServer;
         ++it)
        vecEntries.push_back(m_mapCDRCallData.at(std::get<2>(*it)));
    return vecEntries;
}

void CCDSNetProxy::SetCDRDataCacheSize(unsigned long ulBytes)
{
    constexpr unsigned long cMost = std::numeric_limits<std::uint32_t>::max();
    m_dwMaxCDRDataCacheSize = static_cast<std::uint32_t>(ulBytes < cMost ? ulBytes : cMost);
    CCDSLogging::logInfo("SetCDRDataCacheSize: Max CDR cache size= %d bytes.", cdsInt(m_dwMaxCDRDataCacheSize));
    m_evWork.set(); // the worker may be waiting for room
}

void CCDSNetProxy::SetCDRDataExpiration(unsigned long ulMinutes)
{
    // The product has 32 bits and wraps from 71,583 minutes on: hosts know it so.
    const std::uint32_t dwMs = static_cast<std::uint32_t>(ulMinutes) * cMsPerMinute;
    m_ullCDRDataExpiration = dwMs;
}

unsigned long CCDSNetProxy::waitingCDRs() const noexcept
{
    // In the order in which one moves on, so that none is missed; one may count twice.
    const unsigned long ulQueued = m_ulCDRsQueued;
    return ulQueued + m_ulCDRsKept;
}

bool CCDSNetProxy::findCDRCallDataByCallID(const std::string& sCallID) const
{
    return m_cdrCache.contains(sCallID);
}

long CCDSNetProxy::addCDRCallData(const CSharedMessage& pMsg)
{
    return cdsGuarded([&] {
        CCallData* const pRecord = recordOf(*pMsg);
        CCDSLogging::logWarning("addCDRCallData: pcallbackmsg=0x%08X,pcalldata=0x%08X", cdsIdentity(pMsg.get()),
                                cdsIdentity(pRecord));
        if (pRecord == nullptr)
            return E_CDS_NULLDATA;
        std::string sCallID;
        std::string sDestination;
        if (const long lResult = pRecord->getCallID(&sCallID); lResult < 0)
            return lResult;
        (void)pMsg->getCDSIPAddr(&sDestination); // always 0
        const auto pChannel = clientChannel();
        if (pChannel == nullptr)
            return E_CDS_NOCHANNEL;
        const unsigned long ulServer = pChannel->stringToIpAddr(sDestination);
        if (findCDRCallDataByCallID(sCallID))
            return E_FAIL; // one CDR for a call: the second is neither merged nor sent
        if (!makeRoomForCDR(static_cast<std::uint32_t>(pRecord->getsize())))
            return E_FAIL;
        CWorkHold hold(newWork());
        if (!hold)
            return E_CDS_OUTOFMEMORY;
        const auto pEntry = newCDRCallData(ulServer, sCallID, pMsg);
        if (pEntry == nullptr)
        {
            CCDSLogging::logHRESULT(E_CDS_OUTOFMEMORY, "CCDSNetProxy::addCDRCallData");
            return E_CDS_OUTOFMEMORY;
        }
        CCDSLogging::logInfo("addCDRCallData: Adding call data %s of size %d bytes to CDS.", sCallID.c_str(),
                             cdsInt(pEntry->size()));
        CCDSLogging::logInfo("addCDRCallData: Total CDR cache size = %d bytes.", cdsInt(m_cdrCache.bytes()));
        CCDSLogging::logInfo("addCDRCallData: Total number of CDR in cache = %d .", cdsInt(m_cdrCache.count()));
        const long lResult = sendCDR(hold, *pEntry, "addCDRCallData: ");
        CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::addCDRCallData");
        return lResult;
    });
}

/// Evicts until a CDR fits. One that never fits keeps the worker here, however long: until the limit is raised, or the
/// proxy stops.
///
/// @return whether there is room; else the proxy stops
bool CCDSNetProxy::makeRoomForCDR(std::uint32_t dwSize)
{
    for (std::uint32_t dwLimit = m_dwMaxCDRDataCacheSize; dwLimit != cNoLimit && dwSize + m_cdrCache.bytes() > dwLimit;
         dwLimit = m_dwMaxCDRDataCacheSize)
    {
        if (m_cdrCache.count() != 0)
            removeOldestCDRCallData();
        else if (m_bStop != 0)
            return false;
        else
            (void)m_evWork.wait(cFullPauseMs, nullptr); // a set that it takes is for the queue, which is drained next
    }
    return true;
}

/// A new entry in the cache; null without memory.
CCDRCache::CEntry CCDSNetProxy::newCDRCallData(unsigned long ulServer, const std::string& sCallID,
                                               const CSharedMessage& pMsg)
{
    try
    {
        for (;;)
        {
            auto pEntry = std::make_shared<const CCDRCallData>(this, ulServer, sCallID, pMsg);
            (void)pMsg->setRegID(pEntry->m_sRegID); // always 0
            if (m_cdrCache.add(pEntry))
            {
                m_ulCDRsKept = static_cast<unsigned long>(m_cdrCache.count());
                return pEntry;
            }
        }
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

long CCDSNetProxy::sendCDR(CWorkHold& hold, const CCDRCallData& entry, const char* pszPrefix)
{
    hold->m_pMsg = entry.m_pMsg;
    hold->m_eKind = WORK_KIND_SEND_CLIENT_CDRDATA;
    CCDSLogging::logWarning("%spCDRCallData=0x%08X,pcallBackMsg=0x%08X,pCallData=0x%08X", pszPrefix,
                            cdsIdentity(&entry), cdsIdentity(entry.m_pMsg.get()), cdsIdentity(recordOf(*entry.m_pMsg)));
    const long lResult = hold->clientReqSendCallbackMsg(entry.m_dwServerIPAddr);
    if (lResult >= 0)
        hold.letGo();
    return lResult;
}

long CCDSNetProxy::sendPendingCDRCallData(unsigned long ulServer)
{
    return cdsGuarded([&] {
        CCDSLogging::logWarning("sendPendingCDRCallData: ipaddr 0x%08X", cdsCode(ulServer));
        long lNotSent = 0;
        for (const auto& pEntry : m_cdrCache.ofServer(static_cast<std::uint32_t>(ulServer)))
        {
            CWorkHold hold(newWork());
            if (!hold)
                return E_CDS_OUTOFMEMORY;
            const long lResult = sendCDR(hold, *pEntry, "sendPendingCDRCallData: sending ");
            if (cdsIsTooLong(lResult))
                lNotSent = lResult; // until it is too old; it keeps none behind it back
            else if (lResult < 0)
                return lResult; // the rest waits for the next event of that server
        }
        return lNotSent;
    });
}

/// Takes an entry out of the cache.
void CCDSNetProxy::removeCDR(const CCDRCache::CEntry& pEntry, const char* pszOperation)
{
    CCDSLogging::logInfo("%s: Removing call data %s of size %d bytes to CDS.", pszOperation, pEntry->m_sCallID.c_str(),
                         cdsInt(pEntry->size()));
    m_cdrCache.remove(*pEntry);
    m_ulCDRsKept = static_cast<unsigned long>(m_cdrCache.count());
    CCDSLogging::logInfo("%s: Total CDR cache size = %d bytes.", pszOperation, cdsInt(m_cdrCache.bytes()));
}

/// Takes the newest entry, whatever the name says: what waits longest is worth most.
void CCDSNetProxy::removeOldestCDRCallData()
{
    const auto pEntry = m_cdrCache.newest();
    if (pEntry == nullptr)
        return;
    CCDSLogging::logWarning("removeOldestCDRCallData: pCDRCallData=0x%08X,pcallBackMsg=0x%08X,CallID=\"%s\" sent to %s",
                            cdsIdentity(pEntry.get()), cdsIdentity(pEntry->m_pMsg.get()), pEntry->m_sCallID.c_str(),
                            destinationOf(*pEntry).c_str());
    removeCDR(pEntry, "removeOldestCDRCallData");
}

void CCDSNetProxy::removeSentCDRCallData(const CCallbackMsg* pMsg)
{
    const auto pEntry = m_cdrCache.find(pMsg);
    if (pEntry == nullptr)
    {
        CCDSLogging::logWarning("removeSentCDRCallData: Unable to find pCDRCallData for pcallBackMsg=0x%08X",
                                cdsIdentity(pMsg));
        return;
    }
    CCDSLogging::logWarning(
        "removeSentCDRCallData: pCDRCallData=0x%08X,pcallBackMsg=0x%08X,pCallData=0x%08X,CallID=\"%s\" sent to %s",
        cdsIdentity(pEntry.get()), cdsIdentity(pMsg), cdsIdentity(recordOf(*pMsg)), pEntry->m_sCallID.c_str(),
        destinationOf(*pEntry).c_str());
    removeCDR(pEntry, "removeSentCDRCallData");
}

void CCDSNetProxy::removeCDRCallDataIfExpired(unsigned long ulServer)
{
    // The older come first, so the first that stays ends it.
    for (auto pEntry = m_cdrCache.oldestOf(static_cast<std::uint32_t>(ulServer)); pEntry != nullptr;
         pEntry = m_cdrCache.oldestOf(static_cast<std::uint32_t>(ulServer)))
        if (!removeIfExpired(pEntry))
            return;
}

void CCDSNetProxy::removeCDRCallDataIfExpired(const CCallbackMsg* pMsg)
{
    if (const auto pEntry = m_cdrCache.find(pMsg); pEntry != nullptr)
        (void)removeIfExpired(pEntry); // either way it was found
    else
        CCDSLogging::logWarning("removeCDRCallDataIfExpired: Unable to find pCDRCallData for pcallBackMsg=0x%08X",
                                cdsIdentity(pMsg));
}

bool CCDSNetProxy::removeIfExpired(const CCDRCache::CEntry& pEntry)
{
    if (CPortable::GetTickCountULL() - pEntry->m_ullCreated <= m_ullCDRDataExpiration)
        return false;
    const CCallbackMsg* const pMsg = pEntry->m_pMsg.get();
    CCDSLogging::logWarning(
        "removeCDRCallDataIfExpired: pCDRCallData=0x%08X,pcallBackMsg=0x%08X,pCallData=0x%08X,CallID=\"%s\"",
        cdsIdentity(pEntry.get()), cdsIdentity(pMsg), cdsIdentity(recordOf(*pMsg)), pEntry->m_sCallID.c_str());
    m_pCDSAPI->reportExpiredCDR(pEntry->m_sCallID);
    removeCDR(pEntry, "removeCDRCallDataIfExpired");
    return true;
}
