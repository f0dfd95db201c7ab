// Filter, merge, change detection and clone: how two states of a call are compared and combined.

#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSTraceText.h"

#include <algorithm>

namespace {

/// Room for what a map lacks of another, in it and in the vector that collects it, so that merging it in cannot fail.
template <class TMap> void makeRoom(TMap* pmap, const TMap& from, typename TMap::CItems* pvecNew)
{
    const auto lacks = [pmap](const auto& pItem) { return pmap->find(TMap::keyOf(*pItem)) == nullptr; };
    const auto uNew = static_cast<std::size_t>(std::count_if(from.begin(), from.end(), lacks));
    if (uNew == 0)
        return;
    pvecNew->reserve(uNew);
    pmap->reserve(pmap->size() + uNew);
}

} // namespace

/// Copies into target what pOther lacks: everything when it is null.
long CCallData::copyNewInto(CCallData& target, CCallData* pOther, bool* pbFound) const
{
    bool bChanged = false;
    for (const auto& pBlob : m_mapProperties)
    {
        CCDSTimestamp tsOther(0, 0);
        const bool bHeld = pOther != nullptr && pOther->getPropertyUpdateTimestamp(pBlob->name(), &tsOther) >= 0;
        if (bHeld && !(pBlob->timestamp() > tsOther))
            continue;
        const long lResult =
            target.setProperty(pBlob->name(), pBlob->m_pData, pBlob->m_nLength, pBlob->timestamp(), false, &bChanged);
        if (lResult < 0)
            return lResult;
        *pbFound = true;
    }
    for (const auto& pLog : m_mapLogEntries)
        for (const auto& pBlob : pLog->m_mapEntries)
        {
            if (pOther != nullptr && pOther->getLogEntryExists(pLog->name(), pBlob->timestamp()) >= 0)
                continue;
            const long lResult = target.appendLogEntry(pLog->name(), pBlob->m_pData, pBlob->m_nLength,
                                                       pBlob->timestamp(), false, &bChanged);
            if (lResult < 0)
                return lResult;
            *pbFound = *pbFound || bChanged;
        }
    return 0;
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
        pResult->m_mapProperties.reserve(m_mapProperties.size());
        return copyNewInto(*pResult, pOther, &bFound);
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
        // A clone is what the store keeps: its maps take no more room than they need.
        pCopy->m_mapProperties.reserve(m_mapProperties.size());
        pCopy->m_mapLogEntries.reserve(m_mapLogEntries.size());
        bool bFound = false;
        return copyNewInto(*pCopy, nullptr, &bFound);
    });
    return lResult < 0 ? nullptr : pCopy.release();
}

/// Takes the other's properties, as setProperty would one by one, in time linear in both records.
long CCallData::mergeProperties(const CCallData& from, bool* pbChanged)
{
    CPropertyMap::CItems vecNew;
    long lResult = 0;
    for (auto it = from.m_mapProperties.begin(); lResult >= 0 && it != from.m_mapProperties.end(); ++it)
    {
        const CCDSBlob& blob = **it;
        m_dwSetPropertiesCount.fetch_add(1, std::memory_order_relaxed);
        lResult = makingBlob([&] {
            if (it == from.m_mapProperties.begin())
                makeRoom(&m_mapProperties, from.m_mapProperties, &vecNew);
            takeProperty(blob.name(), blob.m_pData, blob.m_nLength, blob.timestamp(), &vecNew, pbChanged);
        });
    }
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
        }
        else if (pLog->m_mapEntries.lowerBound((*itFirst)->timestamp()) != pLog->m_mapEntries.end())
            makeRoom(&pLog->m_mapEntries, fromLog.m_mapEntries, &vecLate);
    };
    long lResult = 0;
    for (auto it = itFirst; lResult >= 0 && it != fromLog.m_mapEntries.end(); ++it)
    {
        const CCDSBlob& blob = **it;
        m_dwAppendLogEntriesCount.fetch_add(1, std::memory_order_relaxed);
        lResult = makingBlob([&] {
            if (it == itFirst)
                prepare();
            takeEntry(*pLog, blob.m_pData, blob.m_nLength, blob.timestamp(), &vecLate, pbChanged);
        });
    }
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
    for (const auto& pBlob : m_mapProperties)
    {
        const CCDSBlob* const pOldBlob = pOld->m_mapProperties.find(pBlob->name());
        if (pOldBlob == nullptr)
        {
            CCDSLogging::logInfo("CCDSAPI::CCallData::changedProperties, prop not in old=%s", pBlob->name().c_str());
            return true;
        }
        if (!pBlob->identical(pOldBlob))
            return true;
    }
    return false;
}
