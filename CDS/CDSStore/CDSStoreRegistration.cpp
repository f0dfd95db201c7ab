// Registrations: who is interested in which call.

#include "CDSStore.h"

long CCDSAPI::Register(unsigned long ulReqHandle, const std::string& sRegID, const std::string& sIP,
                       const std::string& sCallID, const std::string& sEvent, long (*pfnCallback)(CCallbackMsg*),
                       unsigned long ulTraceID)
{
    const CSlowWarning slow("Register");
    CCDSLogging::logInfo("CCDSAPI::Register: \"%s\",\"%s\",IP=\"%s\",CCOID=0x%08X, Req=%d, event=%s", sRegID.c_str(),
                         sCallID.c_str(), sIP.c_str(), cdsCode(ulTraceID), cdsInt(ulReqHandle), sEvent.c_str());
    const long lResult = cdsGuarded([&] {
        if (!isWhole())
            return E_CDS_OUTOFMEMORY;
        CRegIDData data;
        data.m_ulReqHandle = ulReqHandle;
        data.m_sCallID = sCallID;
        data.m_sIP = sIP;
        data.m_sRegID = sRegID;
        data.m_sEvent = sEvent;
        data.m_pfnCallback = pfnCallback;
        data.m_dwTraceID = static_cast<std::uint32_t>(ulTraceID);
        const CCritSecLock lock(*m_pcritsec, 326, 433);
        return registerLocked(std::move(data));
    });
    CCDSLogging::logHRESULT(lResult, "CCDSAPI::Register:");
    return lResult;
}

long CCDSAPI::registerLocked(CRegIDData&& data)
{
    const std::string sCallID = data.m_sCallID;
    if (m_pTables->findRegistration(data.m_sRegID) != nullptr)
    {
        m_pTables->reviveUnregData(sCallID); // the call is asked for all the same
        return E_CDS_EXISTS;
    }
    const auto pData = std::make_shared<CRegIDData>(std::move(data));
    CCDSLogging::logError("CCDSAPI::Register: \"%s\",\"%s\", pregiddata - 0x%08X", pData->m_sRegID.c_str(),
                          sCallID.c_str(), cdsIdentity(pData.get()));
    m_pTables->addRegistration(pData);
    try
    {
        m_pTables->reviveUnregData(sCallID);
    }
    catch (...) // without memory the data stays kept, and a call with kept data has no registrant
    {
        (void)m_pTables->removeRegistration(pData.get());
        throw;
    }
    const long lResult = sendRegistration(pData->m_sRegID, pData->m_sIP, sCallID, true);
    if (lResult < 0 || pData->m_sEvent != "*" || pData->m_pfnCallback == nullptr)
        return lResult;
    return sendCurrentData(*pData);
}

/// Sends a new registrant what is stored for its call, or for all calls.
long CCDSAPI::sendCurrentData(const CRegIDData& registrant)
{
    const std::vector<std::string> vecCallIDs =
        registrant.m_sCallID == "*" ? m_pTables->storedCallIDs() : std::vector<std::string>{registrant.m_sCallID};
    long lResult = 0;
    for (const std::string& sCallID : vecCallIDs)
    {
        CCallData* const pStored = m_pTables->findCallData(sCallID);
        if (pStored == nullptr)
            continue;
        CCDSLogging::logInfo("CCDSAPI::Register: Sending current call data");
        if (lResult >= 0) // after a message that could not be made nothing more is sent
            lResult = deliver(registrant, registrant.m_sRegID, ccbr_calldata, pStored);
    }
    return lResult;
}

/// Tells every registrant with event "@" of a registration or unregistration.
long CCDSAPI::sendRegistration(const std::string& sRegID, const std::string& sIP, const std::string& sCallID,
                               bool bRegister)
{
    const CSlowWarning slow("sendRegistration");
    return cdsGuarded([&] {
        CRegistrationData notice(sRegID, sIP, sCallID, bRegister, CCDSTimestamp(0, 0));
        for (const auto& pListener : m_pTables->registrationListeners())
        {
            if (!CTables::isRegistered(*pListener))
                continue;
            const long lResult = deliver(*pListener, sRegID, ccbr_registration, &notice);
            if (lResult < 0)
                return lResult;
        }
        return 0L;
    });
}

long CCDSAPI::Unregister(const std::string& sRegID)
{
    const CSlowWarning slow("Unregister");
    CCDSLogging::logAlways("CCDSAPI::Unregister: RegID=%s", sRegID.c_str());
    const long lResult = cdsGuarded([&] {
        if (!isWhole())
            return E_CDS_OUTOFMEMORY;
        const CCritSecLock lock(*m_pcritsec, 458, 543);
        return unregisterLocked(sRegID);
    });
    CCDSLogging::logHRESULT(lResult, "CCDSAPI::Unregister:");
    return lResult;
}

long CCDSAPI::unregisterLocked(const std::string& sRegID)
{
    CRegIDData* const pFound = m_pTables->findRegistration(sRegID);
    if (pFound == nullptr)
        return E_CDS_NOTFOUND;
    CCDSLogging::logInfo("CCDSAPI::Unregister: \"%s\",CCOID=0x%08X,updates=%d, setprops=%d, applog=%d", sRegID.c_str(),
                         pFound->m_dwTraceID, cdsInt(pFound->m_dwUpdates), cdsInt(pFound->m_dwSetProperties),
                         cdsInt(pFound->m_dwAppendedLogEntries));
    CCDSLogging::logError("CCDSAPI::Unregister: \"%s\",\"%s\", pregiddata - 0x%08X", sRegID.c_str(),
                          pFound->m_sCallID.c_str(), cdsIdentity(pFound));
    // First what may fail: a registration that could not be taken out as a whole stays.
    if (CTables::isOnlyRegistrant(*pFound) && m_pTables->findCallData(pFound->m_sCallID) != nullptr)
        m_pTables->keepUnregData(pFound->m_sCallID, pFound->m_sIP, CPortable::GetTickCountULL());
    const auto pData = m_pTables->removeRegistration(pFound);
    return sendRegistration(pData->m_sRegID, pData->m_sIP, pData->m_sCallID, false);
}
