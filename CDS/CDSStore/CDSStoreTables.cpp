// The store's tables and their indexes.

#include "CDSStoreTables.h"

#include <algorithm>
#include <new>
#include <set>

CCDSAPI::CTables::CTables()
{
    m_mapRegIDs.max_load_factor(cLoad);
    m_mapCalls.max_load_factor(cLoad);
}

CCDSAPI::CRegIDData* CCDSAPI::CTables::findRegistration(const std::string& sRegID) const
{
    const auto it = m_mapRegIDs.find(sRegID);
    return it != m_mapRegIDs.end() ? it->second.get() : nullptr;
}

void CCDSAPI::CTables::addRegistration(CRegistrant pData)
{
    CRegIDData& data = *pData;
    data.m_ullSequence = m_ullNextSequence++;
    const auto itCall = m_mapCalls.try_emplace(data.m_sCallID).first;
    try
    {
        if (data.hearsOfRegistrations())
            m_mapListeners.emplace(std::pair(std::string_view(data.m_sCallID), data.m_ullSequence), &data);
        m_mapRegIDs.emplace(data.m_sRegID, std::move(pData));
    }
    catch (...)
    {
        m_mapListeners.erase({data.m_sCallID, data.m_ullSequence});
        if (itCall->second.m_pFirst == nullptr)
            m_mapCalls.erase(itCall);
        throw;
    }
    CRegistrants& registrants = itCall->second;
    data.m_pPrevious = registrants.m_pLast;
    (registrants.m_pLast != nullptr ? registrants.m_pLast->m_pNext : registrants.m_pFirst) = &data;
    registrants.m_pLast = &data;
    data.m_bRegistered = true;
}

CCDSAPI::CTables::CRegistrant CCDSAPI::CTables::removeRegistration(CRegIDData* pData)
{
    const auto it = m_mapRegIDs.find(pData->m_sRegID);
    CRegistrant pHeld = std::move(it->second);
    m_mapRegIDs.erase(it);
    if (pData->hearsOfRegistrations())
        m_mapListeners.erase({pData->m_sCallID, pData->m_ullSequence});

    const auto itCall = m_mapCalls.find(pData->m_sCallID);
    CRegistrants& registrants = itCall->second;
    (pData->m_pPrevious != nullptr ? pData->m_pPrevious->m_pNext : registrants.m_pFirst) = pData->m_pNext;
    (pData->m_pNext != nullptr ? pData->m_pNext->m_pPrevious : registrants.m_pLast) = pData->m_pPrevious;
    pData->m_pPrevious = pData->m_pNext = nullptr;
    if (registrants.m_pFirst == nullptr)
        m_mapCalls.erase(itCall);
    pData->m_bRegistered = false;
    return pHeld;
}

bool CCDSAPI::CTables::hasOtherRegistrants(const std::string& sCallID, const std::string& sRegID) const
{
    const auto it = m_mapCalls.find(sCallID);
    if (it == m_mapCalls.end())
        return false;
    const CRegIDData* const pFirst = it->second.m_pFirst;
    return pFirst->m_sRegID != sRegID || pFirst->m_pNext != nullptr; // registration IDs are unique
}

std::vector<CCDSAPI::CTables::CRegistrant> CCDSAPI::CTables::receivers(const std::string& sCallID,
                                                                       const std::string& sEvent) const
{
    std::vector<CRegistrant> vecReceivers;
    const auto it = m_mapCalls.find(sCallID);
    if (it == m_mapCalls.end())
        return vecReceivers;
    for (CRegIDData* pData = it->second.m_pFirst; pData != nullptr; pData = pData->m_pNext)
        if (pData->receives(sEvent))
            vecReceivers.push_back(pData->shared_from_this());
    return vecReceivers;
}

std::vector<CCDSAPI::CTables::CRegistrant> CCDSAPI::CTables::registrationListeners() const
{
    std::vector<CRegistrant> vecListeners;
    vecListeners.reserve(m_mapListeners.size());
    for (const auto& [key, pData] : m_mapListeners)
        vecListeners.push_back(pData->shared_from_this());
    return vecListeners;
}

CCallData* CCDSAPI::CTables::findCallData(const std::string& sCallID) const
{
    const auto it = m_setCallData.find(sCallID);
    return it != m_setCallData.end() ? it->get() : nullptr;
}

void CCDSAPI::CTables::addCallData(std::unique_ptr<CCallData>&& pData)
{
    // A set that fails to grow has let go what it was handed, so it grows before.
    constexpr std::size_t cFewest = 12;
    if (const std::size_t uCount = m_setCallData.size() + 1; uCount >= m_setCallData.bucket_count())
        m_setCallData.reserve(std::max(2 * uCount, cFewest));
    m_setCallData.insert(std::move(pData));
}

std::unique_ptr<CCallData> CCDSAPI::CTables::removeCallData(const std::string& sCallID)
{
    const auto it = m_setCallData.find(sCallID);
    return it != m_setCallData.end() ? std::move(m_setCallData.extract(it).value()) : nullptr;
}

std::vector<std::string> CCDSAPI::CTables::storedCallIDs() const
{
    std::vector<std::string> vecCallIDs;
    vecCallIDs.reserve(m_setCallData.size());
    for (const auto& pData : m_setCallData)
        vecCallIDs.push_back(callIDOf(*pData));
    std::sort(vecCallIDs.begin(), vecCallIDs.end());
    return vecCallIDs;
}

void CCDSAPI::CTables::keepUnregData(const std::string& sCallID, const std::string& sServerIP, std::uint64_t ullTime)
{
    auto pKept = std::make_unique<CUnregData>();
    pKept->m_sCallID = sCallID;
    pKept->m_sServerIP = sServerIP;
    pKept->m_ullTime = ullTime;
    CUnregData& kept = *pKept;
    m_mapUnregData.emplace(kept.m_sCallID, std::move(pKept));
    kept.m_pCallData = removeCallData(sCallID);
    kept.m_pOlder = m_pNewestUnreg;
    (m_pNewestUnreg != nullptr ? m_pNewestUnreg->m_pNewer : m_pOldestUnreg) = &kept;
    m_pNewestUnreg = &kept;
}

void CCDSAPI::CTables::reviveUnregData(const std::string& sCallID)
{
    const auto it = m_mapUnregData.find(sCallID);
    if (it == m_mapUnregData.end())
        return;
    if (findCallData(sCallID) == nullptr)
        addCallData(std::move(it->second->m_pCallData));
    (void)removeUnregData(sCallID); // freed here
}

std::vector<std::string> CCDSAPI::CTables::expiredCallIDs(std::uint64_t ullNow, std::uint64_t ullMaxAge) const
{
    std::vector<std::string> vecCallIDs;
    for (const CUnregData* pKept = m_pOldestUnreg; pKept != nullptr && ullNow - pKept->m_ullTime > ullMaxAge;
         pKept = pKept->m_pNewer)
        vecCallIDs.push_back(pKept->m_sCallID);
    std::sort(vecCallIDs.begin(), vecCallIDs.end());
    return vecCallIDs;
}

std::unique_ptr<CCDSAPI::CUnregData> CCDSAPI::CTables::removeUnregData(std::string_view sCallID) noexcept
{
    const auto it = m_mapUnregData.find(sCallID);
    if (it == m_mapUnregData.end())
        return nullptr;
    std::unique_ptr<CUnregData> pHeld = std::move(it->second);
    m_mapUnregData.erase(it);
    (pHeld->m_pOlder != nullptr ? pHeld->m_pOlder->m_pNewer : m_pOldestUnreg) = pHeld->m_pNewer;
    (pHeld->m_pNewer != nullptr ? pHeld->m_pNewer->m_pOlder : m_pNewestUnreg) = pHeld->m_pOlder;
    return pHeld;
}

void CCDSAPI::CTables::freeCallData() noexcept
{
    try
    {
        for (const std::string& sCallID : storedCallIDs())
            (void)removeCallData(sCallID); // freed here, and below
        std::set<std::string> setKept;
        for (const auto& [sCallID, pKept] : m_mapUnregData)
            setKept.emplace(sCallID);
        for (const std::string& sCallID : setKept)
            (void)removeUnregData(sCallID);
    }
    catch (const std::bad_alloc&)
    {
        // Without memory to sort, whatever is left goes in any order.
    }
    while (m_pOldestUnreg != nullptr)
        (void)removeUnregData(m_pOldestUnreg->m_sCallID);
    m_setCallData.clear();
}
