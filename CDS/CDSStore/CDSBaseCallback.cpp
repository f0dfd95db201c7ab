// Callback messages and registration data.

#include "CDSBase.h"
#include "CDSCallData.h"
#include "CDSCallbackMsg.h"
#include "CDSLogging.h"
#include "CDSParams.h"
#include "CDSParamsText.h"
#include "CDSResults.h"
#include "CDSTraceText.h"

#include <memory>
#include <new>

CCallbackData::~CCallbackData() = default;

void CCallbackData::traceWarning(const char* pszLabel)
{
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_warning))
        trace(pszLabel);
}

void CCallbackData::traceInfo(const char* pszLabel)
{
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
        trace(pszLabel);
}

CCallbackMsg::CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sRegID,
                           const CDSCALLBACKREASON& eReason, CCallbackData* pData, unsigned long ulTraceID,
                           const std::string& sCDSIPAddr)
    : m_ulReqHandle(ulReqHandle),
      m_dwTraceID(static_cast<std::uint32_t>(ulTraceID)),
      m_sRegID(sRegID),
      m_sCDSIPAddr(sCDSIPAddr),
      m_eReason(eReason),
      m_pData(pData)
{
}

CCallbackMsg::CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sRegID,
                           const CDSCALLBACKREASON& eReason, CCallbackData* pData, unsigned long ulTraceID)
    : CCallbackMsg(ulReqHandle, sRegID, eReason, pData, ulTraceID, std::string())
{
}

CCallbackMsg::CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sMsg) : m_ulReqHandle(ulReqHandle)
{
    (void)deserialize(sMsg); // an unknown reason shows in getCallbackReason
}

CCallbackMsg::~CCallbackMsg() = default;

CCallbackMsg* CCallbackMsg::clone() const
{
    return clone(m_pData);
}

CCallbackMsg* CCallbackMsg::clone(CCallbackData* pData) const
{
    try
    {
        std::unique_ptr<CCallbackData> pCopy(pData != nullptr ? pData->clone() : nullptr);
        if (pData != nullptr && pCopy == nullptr)
            return nullptr;
        auto* const pMessage =
            new CCallbackMsg(m_ulReqHandle, m_sRegID, m_eReason, pCopy.get(), m_dwTraceID, m_sCDSIPAddr);
        (void)pCopy.release(); // the holder of the message deletes it
        return pMessage;
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

long CCallbackMsg::serialize(std::string* psMsg)
{
    return cdsGuarded([&] {
        std::string sPayload;
        long lResult = m_pData != nullptr ? m_pData->serialize(&sPayload) : 0;
        CParamsX list(static_cast<long>(sPayload.size() + m_sRegID.size() + 48));
        cdsAddLong(list, static_cast<std::int32_t>(m_dwTraceID));
        cdsAddText(list, m_sRegID);
        cdsAddLong(list, m_eReason);
        if (lResult >= 0)
            lResult = list.addParam(sPayload, 3.14F);
        if (lResult >= 0)
            *psMsg = std::move(list).paramList();
        CCDSLogging::log(CCDSLogging::level_detail, "CCallbackMsg::serialize Return Value: %d",
                         static_cast<int>(lResult));
        return lResult;
    });
}

long CCallbackMsg::deserialize(const std::string& sMsg)
{
    m_pData = nullptr;
    const CParamsHead<4> list(sMsg);
    m_dwTraceID = static_cast<std::uint32_t>(list.longAt(0));
    m_sRegID = list.at(1);
    m_eReason = static_cast<CDSCALLBACKREASON>(list.longAt(2));
    switch (m_eReason)
    {
    case ccbr_calldata:
    case ccbr_cdrcalldata: m_pData = new CCallData(std::string(list.at(3)), true); return 0;
    case ccbr_registration: m_pData = new CRegistrationData(std::string(list.at(3))); return 0;
    }
    return E_CDS_UNKNOWNREASON;
}

void CCallbackMsg::trace(const char* pszLabel)
{
    CCDSLogging::logAlways("CCallbackMsg::trace: %s, \"%s\", 0x%08X", CFittedLabel(pszLabel).text(), m_sRegID.c_str(),
                           cdsIdentity(this));
    const bool bKnownReason =
        m_eReason == ccbr_calldata || m_eReason == ccbr_registration || m_eReason == ccbr_cdrcalldata;
    if (bKnownReason && m_pData != nullptr)
        m_pData->trace("");
}

void CCallbackMsg::traceInfo(const char* pszLabel)
{
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_info))
        trace(pszLabel);
}

void CCallbackMsg::traceWarning(const char* pszLabel)
{
    if (CCDSLogging::checkTraceLevel(CCDSLogging::level_warning))
        trace(pszLabel);
}

long CCallbackMsg::getRegID(std::string* psRegID) const
{
    *psRegID = m_sRegID;
    return 0;
}
long CCallbackMsg::getCDSIPAddr(std::string& sCDSIPAddr) const
{
    sCDSIPAddr = m_sCDSIPAddr;
    return 0;
}
long CCallbackMsg::getCDSIPAddr(std::string* psCDSIPAddr) const
{
    return getCDSIPAddr(*psCDSIPAddr);
}
long CCallbackMsg::setRegID(const std::string& sRegID)
{
    m_sRegID = sRegID;
    return 0;
}
long CCallbackMsg::setCDSIPAddr(const std::string& sCDSIPAddr)
{
    m_sCDSIPAddr = sCDSIPAddr;
    return 0;
}

CRegistrationData::CRegistrationData(const std::string& sRegID, const std::string& sCDSIPAddr,
                                     const std::string& sCallID, bool bRegister, const CCDSTimestamp& tsUpdate)
    : m_sRegID(sRegID), m_sCDSIPAddr(sCDSIPAddr), m_sCallID(sCallID), m_bRegister(bRegister), m_tsUpdate(tsUpdate)
{
}

CRegistrationData::CRegistrationData(const std::string& sData)
{
    (void)CRegistrationData::deserialize(sData); // always 0
}

CRegistrationData* CRegistrationData::clone()
{
    try
    {
        return new CRegistrationData(m_sRegID, m_sCDSIPAddr, m_sCallID, m_bRegister, CCDSTimestamp(0, 0));
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

long CRegistrationData::deserialize(const std::string& sText)
{
    const CParamsHead<5> list(sText);
    m_sRegID = list.at(0);
    m_sCDSIPAddr = list.at(1);
    m_sCallID = list.at(2);
    m_bRegister = list.at(3) == "T";
    return m_tsUpdate.deserializeView(list.at(4));
}

long CRegistrationData::serialize(std::string* psText)
{
    std::string sUpdate;
    (void)m_tsUpdate.serialize(&sUpdate); // always 0
    CParamsX list(static_cast<long>(m_sRegID.size() + m_sCDSIPAddr.size() + m_sCallID.size() + sUpdate.size() + 48));
    cdsAddText(list, m_sRegID);
    cdsAddText(list, m_sCDSIPAddr);
    cdsAddText(list, m_sCallID);
    cdsAddBool(list, m_bRegister);
    cdsAddText(list, sUpdate);
    *psText = std::move(list).paramList();
    return 0;
}

void CRegistrationData::trace(const char* pszLabel)
{
    if (*pszLabel != '\0')
        CCDSLogging::logAlways("CRegistrationData::trace: %s", CFittedLabel(pszLabel).text());
    CCDSLogging::logAlways("\t: 0x%08X,\"%s\",\"%s\", %s, %d", cdsIdentity(this), m_sRegID.c_str(), m_sCallID.c_str(),
                           m_sCDSIPAddr.c_str(), m_bRegister ? 1 : 0);
}

unsigned long CRegistrationData::getsize()
{
    return 0;
}

long CRegistrationData::setRegID(const std::string& sRegID)
{
    m_sRegID = sRegID;
    return 0;
}
long CRegistrationData::getRegID(std::string* psRegID) const
{
    *psRegID = m_sRegID;
    return 0;
}
long CRegistrationData::setCDSIPAddr(std::string sCDSIPAddr)
{
    m_sCDSIPAddr = std::move(sCDSIPAddr);
    return 0;
}
long CRegistrationData::getCDSIPAddr(std::string* psCDSIPAddr) const
{
    *psCDSIPAddr = m_sCDSIPAddr;
    return 0;
}
long CRegistrationData::getCallID(std::string* psCallID) const
{
    *psCallID = m_sCallID;
    return 0;
}
long CRegistrationData::getRegister(bool* pbRegister) const
{
    *pbRegister = m_bRegister;
    return 0;
}
long CRegistrationData::getUpdateTimestamp(CCDSTimestamp* ptsUpdate) const
{
    *ptsUpdate = m_tsUpdate;
    return 0;
}
