// The record: its making, its writers and the look-ups by name.

#include "CDSAPI.h"
#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSTraceText.h"
#include "CPortable.h"

CCallData::CLogEntries::CLogEntries(std::string sName, const CCDSTimestamp& tsLastAppend)
    : m_sName(std::move(sName)), m_tsLastAppend(tsLastAppend)
{
}

CCallData::CCallData(const std::string& sCallID) : CCallData(nullptr, sCallID) {}

CCallData::CCallData(CBaseCDSAPI* pOwner, const std::string& sCallID)
    : m_sCallID(sCallID), m_pOwner(pOwner), m_pCritsec(std::make_unique<CPCritSec>("CCallData::m_pCritsec", 1))
{
    CCDSLogging::logInfo("CCallData Malloc: 0x%08X", cdsIdentity(this));
    CPSystemTime stNow;
    CPortable::GetSystemTime(&stNow);
    m_stCreated = {stNow.wYear, stNow.wMonth,  stNow.wDayOfWeek, stNow.wDay,
                   stNow.wHour, stNow.wMinute, stNow.wSecond,    stNow.wMilliseconds};
}

CCallData::CCallData(const std::string& sText, bool /*bReserved*/) : CCallData(nullptr, std::string())
{
    if (CCallData::deserialize(sText) < 0) // no half record is handed out
        throw std::bad_alloc();
}

CCallData::~CCallData()
{
    CCDSLogging::logInfo("CCallData Free: 0x%08X", cdsIdentity(this));
    (void)CCallData::clear(); // always 0
}

long CCallData::addRef()
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return ++m_lRefCount;
}

long CCallData::decRef()
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return --m_lRefCount;
}

long CCallData::setCallID(const std::string& sCallID)
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        m_sCallID = sCallID;
        return 0L;
    });
}

long CCallData::getCallID(std::string& sCallID) const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return cdsGuarded([&] {
        sCallID = m_sCallID;
        return 0L;
    });
}

long CCallData::getCallID(std::string* psCallID) const
{
    return getCallID(*psCallID);
}

void CCallData::addSize(long lDifference) noexcept
{
    m_ulSize.fetch_add(static_cast<unsigned long>(lDifference), std::memory_order_relaxed);
}

unsigned long CCallData::getsize()
{
    return m_ulSize.load(std::memory_order_relaxed);
}

long CCallData::setProperty(const std::string& sName, unsigned char* const& pData, int nLength,
                            const CCDSTimestamp& tsStamp, bool /*bReserved*/, bool* pbChanged)
{
    *pbChanged = false;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    m_dwSetPropertiesCount.fetch_add(1, std::memory_order_relaxed);
    return cdsGuarded([&] {
        const auto it = m_mapProperties.lowerBound(sName);
        const bool bHeld = m_mapProperties.holdsAt(it, sName);
        if (bHeld && !cdsIsNewer(tsStamp, (*it)->timestamp()))
            return 0L;
        CValuePtr pValue = CValue::make(sName, pData, nLength, tsStamp);
        const long lLength = pValue->length();
        if (bHeld)
            replaceProperty(it, std::move(pValue));
        else
        {
            m_mapProperties.insertAt(it, std::move(pValue));
            addSize(lLength);
        }
        *pbChanged = true;
        return 0L;
    });
}

void CCallData::replaceProperty(CPropertyMap::CItems::const_iterator it, CValuePtr pValue) noexcept
{
    addSize(long{pValue->length()} - (*it)->length());
    m_mapProperties.replaceAt(it, std::move(pValue));
}

long CCallData::appendLogEntry(const std::string& sName, unsigned char* const& pData, int nLength,
                               const CCDSTimestamp& tsStamp, bool /*bReserved*/, bool* pbChanged)
{
    *pbChanged = false;
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    m_dwAppendLogEntriesCount.fetch_add(1, std::memory_order_relaxed);
    return cdsGuarded([&] {
        const auto itLog = m_mapLogEntries.lowerBound(sName);
        const bool bHeld = m_mapLogEntries.holdsAt(itLog, sName);
        std::unique_ptr<CLogEntries> pNewLog;
        if (!bHeld)
        {
            pNewLog = std::make_unique<CLogEntries>(sName, tsStamp);
            m_mapLogEntries.growForOne(); // so that the log, once it has its entry, gets its place
        }
        CLogEntries& log = bHeld ? **itLog : *pNewLog;
        const auto it = log.m_mapEntries.lowerBound(tsStamp);
        if (log.m_mapEntries.holdsAt(it, tsStamp))
            return 0L;
        takeEntry(log, it, CValue::make(log.name(), pData, nLength, tsStamp), nullptr, pbChanged);
        if (!bHeld)
            m_mapLogEntries.insertAt(m_mapLogEntries.lowerBound(sName), std::move(pNewLog));
        return 0L;
    });
}

/// Takes an entry into its place in a log that lacks its stamp.
///
/// @param pvecLate  takes an entry that does not go behind all others, for the caller to merge in with the rest of
///                  them; null when there is only this one
void CCallData::takeEntry(CLogEntries& log, CEntryMap::CItems::const_iterator it, CValuePtr pEntry,
                          CEntryMap::CItems* pvecLate, bool* pbChanged)
{
    const CCDSTimestamp tsStamp = pEntry->timestamp();
    const long lLength = pEntry->length();
    if (pvecLate != nullptr && it != log.m_mapEntries.end())
        pvecLate->push_back(std::move(pEntry));
    else
        log.m_mapEntries.insertAt(it, std::move(pEntry));
    log.m_tsLastAppend = tsStamp;
    addSize(lLength);
    *pbChanged = true;
}

/// A stamp for this call, now: the owner's, or the local clock's. Asked without the record's lock, since the owner may
/// ask another server.
long CCallData::ownStamp(CCDSTimestamp* ptsStamp) const
{
    ptsStamp->set(0, 0);
    if (m_pOwner == nullptr)
    {
        CCDSTimestamp::getCurrent(ptsStamp);
        return 0;
    }
    std::string sCallID;
    const long lResult = getCallID(sCallID);
    return lResult < 0 ? lResult
                       : cdsResult(static_cast<unsigned long>(m_pOwner->GetCallIDCDSTimestamp(sCallID, ptsStamp)));
}

long CCallData::setProperty(const std::string& sName, unsigned char* const& pData, int nLength)
{
    CCDSTimestamp tsStamp(0, 0);
    const long lResult = ownStamp(&tsStamp);
    bool bChanged = false;
    return lResult < 0 ? lResult : setProperty(sName, pData, nLength, tsStamp, true, &bChanged);
}

long CCallData::appendLogEntry(const std::string& sName, unsigned char* const& pData, int nLength)
{
    CCDSTimestamp tsStamp(0, 0);
    const long lResult = ownStamp(&tsStamp);
    bool bChanged = false;
    return lResult < 0 ? lResult : appendLogEntry(sName, pData, nLength, tsStamp, true, &bChanged);
}

long CCallData::clear()
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    if (m_pCursors != nullptr)
    {
        m_pCursors->m_vecPropertyCursor.clear();
        m_pCursors->m_vecLogNameCursor.clear();
        m_pCursors->m_vecLogEntryCursor.clear();
    }
    m_mapProperties.clear();
    m_mapLogEntries.clear();
    m_ulSize.store(0, std::memory_order_relaxed);
    return 0;
}

long CCallData::getProperty(const std::string& sName, unsigned char** ppData, int* pLength, CCDSTimestamp* pts) const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const CValue* const pValue = m_mapProperties.find(sName);
    if (pValue == nullptr)
        return E_CDS_NOTFOUND;
    *ppData = pValue->data();
    *pLength = pValue->length();
    if (pts != nullptr)
        pts->set(pValue->timestamp());
    return 0;
}

long CCallData::getPropertyUpdateTimestamp(const std::string& sName, CCDSTimestamp* pts) const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const CValue* const pValue = m_mapProperties.find(sName);
    pts->set(pValue != nullptr ? pValue->timestamp() : CCDSTimestamp(0, 0));
    return pValue != nullptr ? 0 : E_CDS_NOTFOUND;
}

long CCallData::getLogEntryExists(const std::string& sName, const CCDSTimestamp& tsStamp) const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const CLogEntries* const pLog = m_mapLogEntries.find(sName);
    return pLog != nullptr && pLog->m_mapEntries.find(tsStamp) != nullptr ? 0 : E_CDS_NOTFOUND;
}

long CCallData::getLogEntryCount(std::string sName) const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const CLogEntries* const pLog = m_mapLogEntries.find(sName);
    return pLog != nullptr ? static_cast<long>(pLog->m_mapEntries.size()) : 0;
}

long CCallData::getLogNameCount() const
{
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    return static_cast<long>(m_mapLogEntries.size());
}
