#pragma once

#include "CDSCallbackReason.h"
#include "CDSExport.h"
#include "CDSTimestamp.h"

#include <cstdint>
#include <string>

/// What a callback message carries.
///
/// Threads    none of these classes locks by itself (CCallData does); a message and its payload are used by one thread
///            at a time.
/// Errors     operations that copy texts throw std::bad_alloc, those that make a CCallData from text also KRException;
///            clone and CCallbackMsg::serialize report want of memory instead.
class CDS_API CCallbackData
{
public:
    virtual ~CCallbackData();

    /// A new, independent copy that the caller deletes; null when it cannot be made.
    virtual CCallbackData* clone() = 0;

    /// Fills the payload from its text form.
    ///
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed
    virtual long deserialize(const std::string& sText) = 0;

    /// Writes the payload's text form.
    virtual long serialize(std::string* psText) = 0;

    /// Writes the payload to the trace log whatever the trace level, under a label of 22 characters at the most.
    virtual void trace(const char* pszLabel) = 0;

    /// trace, when warnings, respectively information, are traced.
    virtual void traceWarning(const char* pszLabel);
    virtual void traceInfo(const char* pszLabel);

    /// The payload's size for memory accounting, in bytes.
    virtual unsigned long getsize() = 0;
};

/// An envelope: which registration it answers, why it was sent, and one payload.
///
/// A registrant's callback gets one by pointer. It may read message and payload on the calling thread until it
/// returns, and copies what it wants to keep; the store deletes the message afterwards.
///
/// Ownership  a message never deletes its payload. Whoever attached the payload deletes it after the message; the
///            payload that the text constructor, deserialize or a clone makes belongs to whoever holds the message.
class CDS_API CCallbackMsg
{
public:
    /// @param ulReqHandle  the handle given at registration, handed back unchanged, wide enough for a pointer
    /// @param pData        may be null
    /// @param ulTraceID    32 bits
    /// @param sCDSIPAddr   address of the server that owns the call's data
    CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sRegID, const CDSCALLBACKREASON& eReason,
                 CCallbackData* pData, unsigned long ulTraceID, const std::string& sCDSIPAddr);
    CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sRegID, const CDSCALLBACKREASON& eReason,
                 CCallbackData* pData, unsigned long ulTraceID);

    /// From a text, as deserialize reads it; its result is not reported. A text with an unknown reason leaves a
    /// message without payload.
    ///
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed
    CCallbackMsg(const unsigned long& ulReqHandle, const std::string& sMsg);

    virtual ~CCallbackMsg();
    CCallbackMsg(const CCallbackMsg&) = delete;
    CCallbackMsg& operator=(const CCallbackMsg&) = delete;

    /// A copy with a copy of the payload; the caller deletes both. Null when either cannot be made.
    CCallbackMsg* clone() const;
    /// A copy with a copy of pData instead of this message's payload. pData stays the caller's.
    CCallbackMsg* clone(CCallbackData* pData) const;

    /// Writes the text form: trace ID, registration ID, reason, payload. The request handle and the address are local
    /// and not part of it.
    ///
    /// @param psMsg  out: the text; untouched on failure
    /// @return 0, E_FAIL when the payload's text is longer than an element may be, or E_CDS_OUTOFMEMORY
    long serialize(std::string* psMsg);

    /// Reads the text form. A payload that the message had is let go, not deleted.
    ///
    /// @return 0, or E_CDS_UNKNOWNREASON: the message then has no payload
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed; the message then has no payload
    long deserialize(const std::string& sMsg);

    /// Writes the message and its payload to the trace log: always, or when warnings or information are traced.
    void trace(const char* pszLabel);
    void traceInfo(const char* pszLabel);
    void traceWarning(const char* pszLabel);

    unsigned long getReqHandle() const noexcept { return m_ulReqHandle; }
    unsigned long getTraceID() const noexcept { return m_dwTraceID; }
    /// 0 when the message was read from a text without a reason.
    CDSCALLBACKREASON getCallbackReason() const noexcept { return m_eReason; }
    /// May be null.
    CCallbackData* getCallbackData() const noexcept { return m_pData; }

    // The operations below return 0 where they return a result.
    long getRegID(std::string* psRegID) const;
    std::string getRegID() const { return m_sRegID; }
    long getCDSIPAddr(std::string& sCDSIPAddr) const;
    long getCDSIPAddr(std::string* psCDSIPAddr) const;
    std::string getCDSIPAddr() const { return m_sCDSIPAddr; }
    long setRegID(const std::string& sRegID);
    long setCDSIPAddr(const std::string& sCDSIPAddr);

private:
    unsigned long m_ulReqHandle;
    std::uint32_t m_dwTraceID = 0;
    std::string m_sRegID;
    std::string m_sCDSIPAddr;
    CDSCALLBACKREASON m_eReason = CDSCALLBACKREASON{};
    CCallbackData* m_pData = nullptr; // not owned
};

/// The payload of a registration notice: who registered or unregistered interest in which call.
class CDS_API CRegistrationData : public CCallbackData
{
public:
    /// @param sCDSIPAddr  address of the server that holds the call's data
    /// @param tsUpdate    when the registration was made or last changed
    CRegistrationData(const std::string& sRegID, const std::string& sCDSIPAddr, const std::string& sCallID,
                      bool bRegister, const CCDSTimestamp& tsUpdate);

    /// From the text form; elements that are missing read as empty, false and the zero stamp.
    ///
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed
    explicit CRegistrationData(const std::string& sData);

    /// A copy with the zero time stamp, deliberately: whoever needs the first object's stamp reads it there.
    CRegistrationData* clone() override;
    long deserialize(const std::string& sText) override;
    long serialize(std::string* psText) override;
    void trace(const char* pszLabel) override;
    /// 0: registration payloads are not counted in memory accounting.
    unsigned long getsize() override;

    // Copy a field in or out; each returns 0.
    long setRegID(const std::string& sRegID);
    long getRegID(std::string* psRegID) const;
    long setCDSIPAddr(std::string sCDSIPAddr);
    long getCDSIPAddr(std::string* psCDSIPAddr) const;
    long getCallID(std::string* psCallID) const;
    long getRegister(bool* pbRegister) const;
    long getUpdateTimestamp(CCDSTimestamp* ptsUpdate) const;

private:
    std::string m_sRegID;
    std::string m_sCDSIPAddr;
    std::string m_sCallID;
    bool m_bRegister = false;
    CCDSTimestamp m_tsUpdate{0, 0};
};
