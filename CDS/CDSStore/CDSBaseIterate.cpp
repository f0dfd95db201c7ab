// Index iterations over a record, each over a snapshot of its own.

#include "CDSBase.h"

CCallData::CCursors& CCallData::cursors()
{
    if (m_pCursors == nullptr)
        m_pCursors = std::make_unique<CCursors>();
    return *m_pCursors;
}

long CCallData::nextOfSnapshot(const std::vector<const CCDSBlob*>& vecSnapshot, int* pIndex, unsigned char** ppData,
                               int* pLength, const CCDSTimestamp& tsSince, CCDSTimestamp* pts,
                               const CCDSBlob** ppBlob) const
{
    const int nSize = static_cast<int>(vecSnapshot.size());
    while (*pIndex < nSize && vecSnapshot[static_cast<std::size_t>(*pIndex)]->timestamp() < tsSince)
        ++*pIndex;
    if (*pIndex >= nSize)
        return E_CDS_NOTFOUND;
    const CCDSBlob* const pBlob = vecSnapshot[static_cast<std::size_t>((*pIndex)++)];
    *ppData = pBlob->data();
    *pLength = pBlob->length();
    if (pts != nullptr)
        pts->set(pBlob->timestamp());
    if (ppBlob != nullptr)
        *ppBlob = pBlob;
    return 0;
}

long CCallData::getProperty(int* pIndex, std::string* psName, unsigned char** ppData, int* pLength,
                            const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0)
        {
            all.m_vecPropertyCursor.clear();
            all.m_vecReplaced.clear();
            all.m_vecPropertyCursor.reserve(m_mapProperties.size());
            for (const auto& pBlob : m_mapProperties)
                all.m_vecPropertyCursor.push_back(pBlob.get());
        }
        const CCDSBlob* pBlob = nullptr;
        const long lResult = nextOfSnapshot(all.m_vecPropertyCursor, pIndex, ppData, pLength, tsSince, pts, &pBlob);
        if (lResult >= 0)
            *psName = pBlob->name();
        return lResult;
    });
}

long CCallData::getLogEntry(std::string sName, int* pIndex, unsigned char** ppData, int* pLength,
                            const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0 || sName != all.m_sLogEntryCursorName)
        {
            all.m_vecLogEntryCursor.clear();
            if (const CLogEntries* const pLog = m_mapLogEntries.find(sName); pLog != nullptr)
                takeEntries(*pLog, &all.m_vecLogEntryCursor);
            all.m_sLogEntryCursorName = std::move(sName);
        }
        return nextOfSnapshot(all.m_vecLogEntryCursor, pIndex, ppData, pLength, tsSince, pts, nullptr);
    });
}

long CCallData::getLogEntryByPartialName(std::string sPartialName, int* pIndex, unsigned char** ppData, int* pLength,
                                         const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0 || sPartialName != all.m_sLogEntryCursorName)
        {
            all.m_vecLogEntryCursor.clear();
            for (auto it = m_mapLogEntries.lowerBound(sPartialName);
                 it != m_mapLogEntries.end() && (*it)->name().compare(0, sPartialName.size(), sPartialName) == 0; ++it)
                takeEntries(**it, &all.m_vecLogEntryCursor);
            all.m_sLogEntryCursorName = std::move(sPartialName);
        }
        return nextOfSnapshot(all.m_vecLogEntryCursor, pIndex, ppData, pLength, tsSince, pts, nullptr);
    });
}

void CCallData::takeEntries(const CLogEntries& log, std::vector<const CCDSBlob*>* pvecSnapshot)
{
    pvecSnapshot->reserve(pvecSnapshot->size() + log.m_mapEntries.size());
    for (const auto& pEntry : log.m_mapEntries)
        pvecSnapshot->push_back(pEntry.get());
}

long CCallData::getLogName(int nIndex, std::string* psName)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (nIndex == 0)
        {
            all.m_vecLogNameCursor.clear();
            for (const auto& pLog : m_mapLogEntries)
                all.m_vecLogNameCursor.push_back(pLog->name());
        }
        if (nIndex < 0 || static_cast<std::size_t>(nIndex) >= all.m_vecLogNameCursor.size())
        {
            psName->clear();
            return E_CDS_NOTFOUND;
        }
        *psName = all.m_vecLogNameCursor[static_cast<std::size_t>(nIndex)];
        return 0L;
    });
}
