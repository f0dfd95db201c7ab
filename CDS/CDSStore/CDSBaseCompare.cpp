// Filter, merge, change detection and clone: how two states of a call are compared and combined.

#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSTraceText.h"

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
        // A clone is what the store keeps: it takes no more room than it needs.
        pCopy->m_mapProperties.reserve(m_mapProperties.size());
        pCopy->m_mapLogEntries.reserve(m_mapLogEntries.size());
        bool bFound = false;
        return copyNewInto(*pCopy, nullptr, &bFound);
    });
    return lResult < 0 ? nullptr : pCopy.release();
}

long CCallData::mergeProperties(const CCallData& from, bool* pbChanged)
{
    for (const auto& pBlob : from.m_mapProperties)
    {
        bool bChanged = false;
        const long lResult =
            setProperty(pBlob->name(), pBlob->m_pData, pBlob->m_nLength, pBlob->timestamp(), false, &bChanged);
        *pbChanged = *pbChanged || bChanged;
        if (lResult < 0)
            return lResult;
    }
    return 0;
}

/// @return the result of the last entry, lPropertiesResult when there is none
long CCallData::mergeLogs(const CCallData& from, long lPropertiesResult, bool* pbChanged)
{
    long lResult = lPropertiesResult;
    for (const auto& pLog : from.m_mapLogEntries)
        for (const auto& pBlob : pLog->m_mapEntries)
        {
            bool bChanged = false;
            lResult =
                appendLogEntry(pLog->name(), pBlob->m_pData, pBlob->m_nLength, pBlob->timestamp(), false, &bChanged);
            *pbChanged = *pbChanged || bChanged;
            if (lResult < 0)
            {
                CCDSLogging::logError("CCallData::merge: Error(0x%08X) appendlogEntry", cdsCode(lResult));
                return lResult;
            }
        }
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
