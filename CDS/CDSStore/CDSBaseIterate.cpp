// Index iterations over a record, each over a snapshot of its own.

#include "CDSBase.h"

CCallData::CCursors& CCallData::cursors()
{
    if (m_pCursors == nullptr)
        m_pCursors = std::make_unique<CCursors>();
    return *m_pCursors;
}

long CCallData::nextOfSnapshot(const std::vector<CValuePtr>& vecSnapshot, int* pIndex, unsigned char** ppData,
                               int* pLength, const CCDSTimestamp& tsSince, CCDSTimestamp* pts,
                               std::string* psName) const
{
    const int nSize = static_cast<int>(vecSnapshot.size());
    while (*pIndex < nSize && vecSnapshot[static_cast<std::size_t>(*pIndex)]->timestamp() < tsSince)
        ++*pIndex;
    if (*pIndex >= nSize)
        return E_CDS_NOTFOUND;
    const CValue& value = *vecSnapshot[static_cast<std::size_t>(*pIndex)];
    if (psName != nullptr)
        *psName = value.name(); // what may fail comes first, so that nothing is skipped then
    ++*pIndex;
    *ppData = value.data();
    *pLength = value.length();
    if (pts != nullptr)
        pts->set(value.timestamp());
    return 0;
}

long CCallData::getProperty(int* pIndex, std::string* psName, unsigned char** ppData, int* pLength,
                            const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0)
        {
            // Complete before it replaces the old one, here and below.
            CPropertyMap::CItems vecSnapshot(m_mapProperties.begin(), m_mapProperties.end());
            all.m_vecPropertyCursor.swap(vecSnapshot);
        }
        return nextOfSnapshot(all.m_vecPropertyCursor, pIndex, ppData, pLength, tsSince, pts, psName);
    });
}

long CCallData::getLogEntry(std::string sName, int* pIndex, unsigned char** ppData, int* pLength,
                            const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0 || sName != all.m_sLogEntryCursorName)
        {
            CEntryMap::CItems vecSnapshot;
            if (const CLogEntries* const pLog = m_mapLogEntries.find(sName); pLog != nullptr)
                takeEntries(*pLog, &vecSnapshot);
            all.m_vecLogEntryCursor.swap(vecSnapshot);
            all.m_sLogEntryCursorName = std::move(sName);
        }
        return nextOfSnapshot(all.m_vecLogEntryCursor, pIndex, ppData, pLength, tsSince, pts, nullptr);
    });
}

long CCallData::getLogEntryByPartialName(std::string sPartialName, int* pIndex, unsigned char** ppData, int* pLength,
                                         const CCDSTimestamp& tsSince, CCDSTimestamp* pts)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    if (*pIndex < 0)
        return E_CDS_NOTFOUND;
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (*pIndex == 0 || sPartialName != all.m_sLogEntryCursorName)
        {
            CEntryMap::CItems vecSnapshot;
            for (auto it = m_mapLogEntries.lowerBound(sPartialName);
                 it != m_mapLogEntries.end() && (*it)->name().compare(0, sPartialName.size(), sPartialName) == 0; ++it)
                takeEntries(**it, &vecSnapshot);
            all.m_vecLogEntryCursor.swap(vecSnapshot);
            all.m_sLogEntryCursorName = std::move(sPartialName);
        }
        return nextOfSnapshot(all.m_vecLogEntryCursor, pIndex, ppData, pLength, tsSince, pts, nullptr);
    });
}

void CCallData::takeEntries(const CLogEntries& log, CEntryMap::CItems* pvecSnapshot)
{
    pvecSnapshot->insert(pvecSnapshot->end(), log.m_mapEntries.begin(), log.m_mapEntries.end());
}

long CCallData::getLogName(int nIndex, std::string* psName)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        CCursors& all = cursors();
        if (nIndex == 0)
        {
            std::vector<std::string> vecSnapshot;
            vecSnapshot.reserve(m_mapLogEntries.size());
            for (const auto& pLog : m_mapLogEntries)
                vecSnapshot.push_back(pLog->name());
            all.m_vecLogNameCursor.swap(vecSnapshot);
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
