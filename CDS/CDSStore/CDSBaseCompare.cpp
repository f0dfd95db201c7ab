// Filter, merge, change detection and clone: how two states of a call are compared and combined.

#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSTraceText.h"

namespace {

/// Room for what a map lacks of another, in it and in the vector that collects it, so that merging it in cannot fail.
template <class TMap> void makeRoom(TMap* pmap, const TMap& from, typename TMap::CItems* pvecNew)
{
    std::size_t uNew = 0;
    auto itHeld = pmap->begin();
    for (const auto& pItem : from)
    {
        itHeld = pmap->lowerBoundFrom(itHeld, TMap::keyOf(*pItem));
        uNew += pmap->holdsAt(itHeld, TMap::keyOf(*pItem)) ? 0U : 1U;
    }
    if (uNew == 0)
        return;
    pvecNew->reserve(uNew);
    pmap->reserve(pmap->size() + uNew);
}

} // namespace

/// A copy of a value, under a name: an entry that was read from a text may have another one than its log, and whoever
/// takes it over knows it under the log's. A value whose bytes found no room is empty from here on.
CCallData::CValuePtr CCallData::copyOfValue(std::string_view name, const CValue& value)
{
    return CValue::make(name, value.data(), value.length(), value.timestamp());
}

/// A log of the entries that another log lacks.
///
/// @param pOther  may be null: then all
/// @return null when there are none
std::unique_ptr<CCallData::CLogEntries> CCallData::newEntries(const CLogEntries& log, const CLogEntries* pOther)
{
    const CEntryMap mapNone;
    const CEntryMap& mapOther = pOther != nullptr ? pOther->m_mapEntries : mapNone;
    std::unique_ptr<CLogEntries> pNew;
    auto itOther = mapOther.begin();
    for (const auto& pEntry : log.m_mapEntries)
    {
        itOther = mapOther.lowerBoundFrom(itOther, pEntry->timestamp());
        if (mapOther.holdsAt(itOther, pEntry->timestamp()))
            continue;
        if (pNew == nullptr)
        {
            pNew = std::make_unique<CLogEntries>(log.name(), pEntry->timestamp());
            if (mapOther.empty())
                pNew->m_mapEntries.reserve(log.m_mapEntries.size());
        }
        pNew->m_mapEntries.append(copyOfValue(log.name(), *pEntry));
        pNew->m_tsLastAppend = pEntry->timestamp();
    }
    return pNew;
}

/// Copies what other properties and logs lack into an empty record. Both sides are in key order: one walk through them
/// finds it all. The target's maps take no more room than they need when it is a clone, which the store keeps.
///
/// @return whether there was anything
bool CCallData::copyNew(const CPropertyMap& mapOther, const CLogMap& mapOtherLogs, CCallData* pTarget) const
{
    long lBytes = 0;
    pTarget->m_mapProperties.reserve(m_mapProperties.size());
    auto itOther = mapOther.begin();
    for (const auto& pValue : m_mapProperties)
    {
        itOther = mapOther.lowerBoundFrom(itOther, pValue->name());
        if (mapOther.holdsAt(itOther, pValue->name()) && !(pValue->timestamp() > (*itOther)->timestamp()))
            continue;
        CValuePtr pCopy = copyOfValue(pValue->name(), *pValue);
        lBytes += pCopy->length();
        pTarget->m_mapProperties.append(std::move(pCopy));
    }
    std::size_t uEntries = 0;
    if (mapOtherLogs.empty())
        pTarget->m_mapLogEntries.reserve(m_mapLogEntries.size());
    auto itOtherLog = mapOtherLogs.begin();
    for (const auto& pLog : m_mapLogEntries)
    {
        itOtherLog = mapOtherLogs.lowerBoundFrom(itOtherLog, pLog->name());
        const bool bOtherHas = mapOtherLogs.holdsAt(itOtherLog, pLog->name());
        std::unique_ptr<CLogEntries> pNew = newEntries(*pLog, bOtherHas ? itOtherLog->get() : nullptr);
        if (pNew == nullptr)
            continue;
        for (const auto& pEntry : pNew->m_mapEntries)
            lBytes += pEntry->length();
        uEntries += pNew->m_mapEntries.size();
        pTarget->m_mapLogEntries.append(std::move(pNew));
    }
    pTarget->addSize(lBytes);
    pTarget->m_dwSetPropertiesCount.store(static_cast<std::uint32_t>(pTarget->m_mapProperties.size()),
                                          std::memory_order_relaxed);
    pTarget->m_dwAppendLogEntriesCount.store(static_cast<std::uint32_t>(uEntries), std::memory_order_relaxed);
    return !pTarget->m_mapProperties.empty() || uEntries > 0;
}

long CCallData::filter(CCallData* pOther, CCallData** ppResult)
{
    *ppResult = nullptr;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    std::unique_ptr<CCallData> pResult = cdsMakeRecord(m_pOwner, m_sCallID);
    if (pResult == nullptr)
        return E_CDS_OUTOFMEMORY;
    bool bFound = false;
    const long lResult = cdsGuarded([&] {
        if (pOther == nullptr)
        {
            bFound = copyNew(CPropertyMap(), CLogMap(), pResult.get());
            return 0L;
        }
        const CCritSecLock otherLock(*pOther->m_pCritsec, __LINE__, __LINE__);
        bFound = copyNew(pOther->m_mapProperties, pOther->m_mapLogEntries, pResult.get());
        return 0L;
    });
    if (lResult >= 0 && bFound)
        *ppResult = pResult.release();
    return lResult;
}

CCallData* CCallData::clone()
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    std::unique_ptr<CCallData> pCopy = cdsMakeRecord(m_pOwner, m_sCallID);
    if (pCopy == nullptr)
        return nullptr;
    const long lResult = cdsGuarded([&] {
        (void)copyNew(CPropertyMap(), CLogMap(), pCopy.get()); // an empty record has an empty clone
        return 0L;
    });
    return lResult < 0 ? nullptr : pCopy.release();
}

/// Takes the other's properties, as setProperty would one by one, in time linear in both records.
long CCallData::mergeProperties(const CCallData& from, bool* pbChanged)
{
    CPropertyMap::CItems vecNew;
    auto itHeld = m_mapProperties.begin();
    std::uint32_t dwOffered = 0;
    const long lResult = cdsGuarded([&] {
        for (const auto& pValue : from.m_mapProperties)
        {
            if (++dwOffered == 1)
            {
                makeRoom(&m_mapProperties, from.m_mapProperties, &vecNew);
                itHeld = m_mapProperties.begin();
            }
            itHeld = m_mapProperties.lowerBoundFrom(itHeld, pValue->name());
            const bool bHeld = m_mapProperties.holdsAt(itHeld, pValue->name());
            if (bHeld && !cdsIsNewer(pValue->timestamp(), (*itHeld)->timestamp()))
                continue;
            CValuePtr pCopy = copyOfValue(pValue->name(), *pValue);
            if (bHeld)
                replaceProperty(itHeld, std::move(pCopy));
            else
            {
                addSize(pCopy->length());
                vecNew.push_back(std::move(pCopy));
            }
            *pbChanged = true;
        }
        return 0L;
    });
    m_dwSetPropertiesCount.fetch_add(dwOffered, std::memory_order_relaxed);
    m_mapProperties.mergeIn(std::move(vecNew)); // also after a failure: what was taken until then stays
    return lResult;
}

/// Takes the other's log entries, as appendLogEntry would one by one, in time linear in both records.
///
/// @return the result of the last entry, lPropertiesResult when there is none
long CCallData::mergeLogs(const CCallData& from, long lPropertiesResult, bool* pbChanged)
{
    CLogMap::CItems vecNewLogs;
    long lResult = lPropertiesResult;
    bool bFailed = false;
    for (auto it = from.m_mapLogEntries.begin(); !bFailed && it != from.m_mapLogEntries.end(); ++it)
    {
        if ((*it)->m_mapEntries.empty())
            continue;
        lResult = mergeLog(from, **it, &vecNewLogs, pbChanged);
        bFailed = lResult < 0;
    }
    m_mapLogEntries.mergeIn(std::move(vecNewLogs)); // also after a failure: what was taken until then stays
    if (bFailed)
        CCDSLogging::logError("CCallData::merge: Error(0x%08X) appendlogEntry", cdsCode(lResult));
    return lResult;
}

/// Takes the entries of one of the other's logs.
///
/// @param pvecNewLogs  takes the log, when this record lacks it
long CCallData::mergeLog(const CCallData& from, const CLogEntries& fromLog, CLogMap::CItems* pvecNewLogs,
                         bool* pbChanged)
{
    const auto itFirst = fromLog.m_mapEntries.begin();
    CLogEntries* pLog = m_mapLogEntries.find(fromLog.name());
    std::unique_ptr<CLogEntries> pNewLog;
    CEntryMap::CItems vecLate;
    const auto prepare = [&] {
        if (pLog == nullptr)
        {
            if (pvecNewLogs->capacity() == 0)
                makeRoom(&m_mapLogEntries, from.m_mapLogEntries, pvecNewLogs);
            pNewLog = std::make_unique<CLogEntries>(fromLog.name(), (*itFirst)->timestamp());
            pLog = pNewLog.get();
            pLog->m_mapEntries.reserve(fromLog.m_mapEntries.size());
        }
        else if (pLog->m_mapEntries.lowerBound((*itFirst)->timestamp()) != pLog->m_mapEntries.end())
            makeRoom(&pLog->m_mapEntries, fromLog.m_mapEntries, &vecLate);
    };
    std::uint32_t dwOffered = 0;
    const long lResult = cdsGuarded([&] {
        for (auto it = itFirst; it != fromLog.m_mapEntries.end(); ++it)
        {
            ++dwOffered;
            if (it == itFirst)
                prepare();
            const auto itHeld = pLog->m_mapEntries.lowerBound((*it)->timestamp());
            if (!pLog->m_mapEntries.holdsAt(itHeld, (*it)->timestamp()))
                takeEntry(*pLog, itHeld, copyOfValue(fromLog.name(), **it), &vecLate, pbChanged);
        }
        return 0L;
    });
    m_dwAppendLogEntriesCount.fetch_add(dwOffered, std::memory_order_relaxed);
    if (pLog != nullptr) // null when there was no memory for it
        pLog->m_mapEntries.mergeIn(std::move(vecLate));
    if (pNewLog != nullptr && !pNewLog->m_mapEntries.empty())
        pvecNewLogs->push_back(std::move(pNewLog));
    return lResult;
}

long CCallData::merge(CCallData* pNew, bool* pbChanged)
{
    *pbChanged = false;
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
    {
        pNew->trace("merge,  new"); // two blanks
        trace("merge, cur");
    }
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const long lPropertiesResult = mergeProperties(*pNew, pbChanged);
    CCDSLogging::logInfo("CCallData::merge: After merging prop(bChanged=%d)", *pbChanged ? 1 : 0);
    const long lResult = mergeLogs(*pNew, lPropertiesResult, pbChanged);
    CCDSLogging::logInfo("CCallData::merge: After merging Logs(bChanged=%d)", *pbChanged ? 1 : 0);
    return lResult;
}

bool CCallData::changed(CCallData* pOld)
{
    if (pOld == nullptr)
        return true;
    for (const auto& pOldLog : pOld->m_mapLogEntries)
    {
        const CLogEntries* const pLog = m_mapLogEntries.find(pOldLog->name());
        if (pLog == nullptr || pLog->m_mapEntries.size() != pOldLog->m_mapEntries.size())
            return true;
    }
    for (const auto& pValue : m_mapProperties)
    {
        const CValue* const pOldValue = pOld->m_mapProperties.find(pValue->name());
        if (pOldValue == nullptr)
        {
            CCDSLogging::logInfo("CCDSAPI::CCallData::changedProperties, prop not in old=%s", pValue->name().data());
            return true;
        }
        if (!(pValue->timestamp() == pOldValue->timestamp()))
            return true;
    }
    return false;
}
