// Updates: what comes in is merged, and what is new goes out.

#include "CDSStore.h"

#include <memory>

long CCDSAPI::Update(const std::string& sRegID, CCallData* pData, bool bCheckRegistrants)
{
    if (pData == nullptr)
        return E_CDS_NULLDATA;
    const CSlowWarning slow("Update");
    CCDSLogging::log(CCDSLogging::level_error, "CCDSAPI::Update: \"%s\"", sRegID.c_str());
    const long lResult = cdsGuarded([&] {
        if (!isWhole())
            return E_CDS_OUTOFMEMORY;
        const CCritSecLock lock(*m_pcritsec, 573, 666);
        return updateLocked(sRegID, pData, bCheckRegistrants);
    });
    CCDSLogging::logHRESULT(lResult, "CCDSAPI::Update:");
    return lResult;
}

long CCDSAPI::updateLocked(const std::string& sRegID, CCallData* pData, bool bCheckRegistrants)
{
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
        pData->trace("Update");
    CRegIDData* const pUpdater = m_pTables->findRegistration(sRegID);
    if (pUpdater != nullptr)
    {
        ++pUpdater->m_dwUpdates;
        pUpdater->m_dwSetProperties += static_cast<std::uint32_t>(pData->getSetPropertiesCount());
        pUpdater->m_dwAppendedLogEntries += static_cast<std::uint32_t>(pData->getAppendLogEntriesCount());
        CCDSLogging::logInfo("CCDSAPI::Update: \"%s\",CCOID=0x%08X, calldata=0x%08X", sRegID.c_str(),
                             pUpdater->m_dwTraceID, cdsIdentity(pData));
    }
    std::string sCallID;
    if (const long lResult = pData->getCallID(&sCallID); lResult < 0)
        return lResult;
    if (bCheckRegistrants && !m_pTables->hasOtherRegistrants(sCallID, sRegID))
    {
        // The misspelling is part of the line.
        CCDSLogging::logAlways("CCDSAPI::Update: callid=\"%s\" no registrants found - ignorning calldata=0x%08X",
                               sCallID.c_str(), cdsIdentity(pData));
        return E_CDS_NOTFOUND;
    }
    if (pUpdater == nullptr)
        return E_CDS_NOTFOUND;

    bool bChanged = false;
    CCallData* pDiff = nullptr;
    CCallData* const pStored = insertCallData(sCallID, pData, &bChanged, &pDiff);
    if (pStored == nullptr)
        return E_CDS_OUTOFMEMORY;
    const std::unique_ptr<CCallData> pOwnDiff(pDiff != pStored ? pDiff : nullptr);
    if (!bChanged || pDiff == nullptr)
    {
        CCDSLogging::logInfo("CCDSAPI::Update: bChanged=%d,Diff=0x%08X", bChanged ? 1 : 0, cdsIdentity(pDiff));
        return 0;
    }
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
        pDiff->trace("Update, difference");
    return sendCallData(sCallID, "*", pDiff);
}

/// Takes data into the call's record, or makes the record.
///
/// @param ppDiff  out: what is new: a record of its own that the caller deletes, the stored record itself when all of
///                it is, or null
/// @return the stored record; null when it, or the difference, could not be made: nothing has changed then
CCallData* CCDSAPI::insertCallData(const std::string& sCallID, CCallData* pData, bool* pbChanged, CCallData** ppDiff)
{
    const CSlowWarning slow("insertCallData");
    *pbChanged = false;
    *ppDiff = nullptr;
    if (CCallData* const pCurrent = m_pTables->findCallData(sCallID); pCurrent != nullptr)
        return changeCallData(pCurrent, pData, pbChanged, ppDiff);

    CCDSLogging::logInfo("CCDSAPI::insCallData: Adding CallData");
    std::unique_ptr<CCallData> pCopy(pData->clone());
    if (pCopy == nullptr)
        return nullptr;
    CCallData* const pStored = pCopy.get();
    m_pTables->addCallData(std::move(pCopy));
    *pbChanged = true;
    *ppDiff = pStored;
    return pStored;
}

CCallData* CCDSAPI::changeCallData(CCallData* pCurrent, CCallData* pData, bool* pbChanged, CCallData** ppDiff)
{
    const bool bTrace = CCDSLogging::checkTraceLevel(CCDSLogging::level_info);
    if (bTrace)
    {
        CCDSLogging::logInfo("CCDSAPI::insCallData: CallData Present(bChanged=%d)", *pbChanged ? 1 : 0);
        pCurrent->trace("insert, cur");
    }
    CCallData* pDiff = nullptr;
    if (pData->filter(pCurrent, &pDiff) < 0) // before the merge: against the record as it was
        return nullptr; // merged but not told, the change would be lost to the registrants for good
    std::unique_ptr<CCallData> pOwnDiff(pDiff);
    if (bTrace)
        pCurrent->trace("insert, after filter");
    const long lResult = pCurrent->merge(pData, pbChanged);
    if (bTrace)
    {
        CCDSLogging::logInfo("CCDSAPI::insCallData: After Merge(bChanged=%d)", *pbChanged ? 1 : 0);
        pCurrent->trace("insert, after merge");
    }
    if (lResult >= 0)
        *ppDiff = pOwnDiff.release();
    return pCurrent;
}

/// Delivers data to the registrants of a call whose event asks for it, then to those of all calls.
long CCDSAPI::sendCallData(const std::string& sCallID, const std::string& sEvent, CCallData* pData)
{
    const CSlowWarning slow("sendCallData");
    // The list is taken first, so that the callbacks see a stable set.
    for (const auto& pReceiver : m_pTables->receivers(sCallID, sEvent))
    {
        if (!CTables::isRegistered(*pReceiver))
            continue;
        const long lResult = deliver(*pReceiver, pReceiver->m_sRegID, ccbr_calldata, pData);
        if (lResult < 0)
            return lResult;
    }
    return sCallID == "*" ? 0 : sendCallData("*", sEvent, pData);
}

long CCDSAPI::GetCallData(const std::string& sRegID, const std::string& sCallID)
{
    const CSlowWarning slow("GetCallData");
    return cdsGuarded([&] {
        if (!isWhole())
            return E_CDS_OUTOFMEMORY;
        const CCritSecLock lock(*m_pcritsec, 789, 825);
        CCallData* const pStored = m_pTables->findCallData(sCallID);
        const CRegIDData* const pRegistrant = m_pTables->findRegistration(sRegID);
        if (pStored == nullptr || pRegistrant == nullptr)
            return E_CDS_NOTFOUND;
        return pRegistrant->m_pfnCallback == nullptr ? 0 : deliver(*pRegistrant, sRegID, ccbr_calldata, pStored);
    });
}

/// Makes one message for one registrant and calls its callback, which is not null.
///
/// @return 0, or E_CDS_OUTOFMEMORY; what the callback returns is only logged
long CCDSAPI::deliver(const CRegIDData& registrant, const std::string& sRegID, CDSCALLBACKREASON eReason,
                      CCallbackData* pPayload)
{
    std::unique_ptr<CCallbackMsg> pMessage;
    const long lResult = cdsGuarded([&] {
        pMessage =
            std::make_unique<CCallbackMsg>(registrant.m_ulReqHandle, sRegID, eReason, pPayload, registrant.m_dwTraceID);
        return 0L;
    });
    if (lResult < 0)
        return lResult;
    (void)callCallback(registrant.m_pfnCallback, pMessage.get());
    return 0;
}

long CCDSAPI::callCallback(long (*pfnCallback)(CCallbackMsg*), CCallbackMsg* pMessage)
{
    const CSlowWarning slow("callCallback");
    const long lResult = cdsResult(static_cast<unsigned long>(pfnCallback(pMessage)));
    CCDSLogging::logHRESULT(lResult, "CCDSAPI::callCallback:");
    return lResult;
}
