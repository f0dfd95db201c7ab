#pragma once

#include "CDSAPI.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

/// One registration.
class CCDSAPI::CRegIDData : public std::enable_shared_from_this<CRegIDData>
{
public:
    /// Whether a delivery with this event is for this registrant.
    bool receives(const std::string& sDeliveredEvent) const
    {
        return m_pfnCallback != nullptr && (m_sEvent == "*" || m_sEvent == "@" || m_sEvent == sDeliveredEvent);
    }
    /// Whether it hears of registrations and unregistrations.
    bool hearsOfRegistrations() const { return m_pfnCallback != nullptr && m_sEvent == "@"; }

    unsigned long m_ulReqHandle = 0;
    std::string m_sCallID; // or "*" for every call
    std::string m_sIP;     // of the server that holds the call's data
    std::string m_sRegID;
    std::string m_sEvent;
    long (*m_pfnCallback)(CCallbackMsg*) = nullptr; // may be null
    std::uint32_t m_dwTraceID = 0;

    // What this registrant has sent.
    std::uint32_t m_dwUpdates = 0;
    std::uint32_t m_dwSetProperties = 0;
    std::uint32_t m_dwAppendedLogEntries = 0;

private:
    friend class CTables;
    CRegIDData* m_pPrevious = nullptr; // among the registrations of the same call, oldest first
    CRegIDData* m_pNext = nullptr;
    std::uint64_t m_ullSequence = 0;
    bool m_bRegistered = false;
};

/// The data of a call whose last registrant has left.
class CCDSAPI::CUnregData
{
public:
    std::string m_sCallID;
    std::string m_sServerIP;     // of the server that holds the call's data
    std::uint64_t m_ullTime = 0; // tick count when the record was made, milliseconds
    std::unique_ptr<CCallData> m_pCallData;

private:
    friend class CTables;
    CUnregData* m_pOlder = nullptr;
    CUnregData* m_pNewer = nullptr;
};

/// The store's tables, each with the index that its users need, so that an operation costs time in proportion to the
/// registrants it concerns. Guarded by the store's lock as a whole.
///
/// Errors  operations that add may throw std::bad_alloc and have changed nothing then.
class CCDSAPI::CTables
{
public:
    using CRegistrant = std::shared_ptr<CRegIDData>;

    CTables();

    /// Null when there is none.
    CRegIDData* findRegistration(const std::string& sRegID) const;
    void addRegistration(CRegistrant pData);
    /// Takes the registration out of all tables. Cannot fail.
    CRegistrant removeRegistration(CRegIDData* pData);

    static bool isOnlyRegistrant(const CRegIDData& data)
    {
        return data.m_pPrevious == nullptr && data.m_pNext == nullptr;
    }
    bool hasOtherRegistrants(const std::string& sCallID, const std::string& sRegID) const;
    /// The registrants of one call (or of "*") that receive an event, in the order of their registration.
    std::vector<CRegistrant> receivers(const std::string& sCallID, const std::string& sEvent) const;
    /// Those that hear of registrations: by call ID, then in the order of their registration.
    std::vector<CRegistrant> registrationListeners() const;
    /// A callback that breaks its rules may have unregistered the next ones.
    static bool isRegistered(const CRegIDData& data) { return data.m_bRegistered; }

    /// Null when there is none.
    CCallData* findCallData(const std::string& sCallID) const;
    /// Takes the record over, unless it throws.
    void addCallData(std::unique_ptr<CCallData>&& pData);
    /// Null when there was none.
    std::unique_ptr<CCallData> removeCallData(const std::string& sCallID);
    /// The calls of all stored records, in order.
    std::vector<std::string> storedCallIDs() const;

    /// Keeps the stored data of a call whose last registrant has left.
    void keepUnregData(const std::string& sCallID, const std::string& sServerIP, std::uint64_t ullTime);
    /// Puts kept data of a call back among the stored data, unless there is newer data.
    void reviveUnregData(const std::string& sCallID);
    /// The calls of kept records older than ullMaxAge, in order.
    std::vector<std::string> expiredCallIDs(std::uint64_t ullNow, std::uint64_t ullMaxAge) const;
    /// Null when there was none.
    std::unique_ptr<CUnregData> removeUnregData(std::string_view sCallID) noexcept;

    /// Frees stored and kept records, each in call-ID order as far as memory allows to sort; registrations stay.
    void freeCallData() noexcept;

private:
    /// Entries for each bucket at the most, where new names are looked for: among a million an empty bucket saves a
    /// walk through memory that no cache holds, for some 35 bytes each.
    static constexpr float cLoad = 0.2F;

    struct CRegistrants
    {
        CRegIDData* m_pFirst = nullptr;
        CRegIDData* m_pLast = nullptr;
    };

    // Stored records are found by the call ID that they carry.
    static const std::string& callIDOf(const CCallData& data) { return data.m_sCallID; }
    struct CHash
    {
        using is_transparent = void;
        // Not noexcept, so that the table keeps each hash and never has to read a record anew.
        std::size_t operator()(const std::string& sCallID) const { return std::hash<std::string_view>()(sCallID); }
        std::size_t operator()(const std::unique_ptr<CCallData>& pData) const { return (*this)(callIDOf(*pData)); }
    };
    struct CEqual
    {
        using is_transparent = void;
        bool operator()(const std::unique_ptr<CCallData>& pLeft, const std::unique_ptr<CCallData>& pRight) const
        {
            return callIDOf(*pLeft) == callIDOf(*pRight);
        }
        bool operator()(const std::string& sCallID, const std::unique_ptr<CCallData>& pData) const
        {
            return sCallID == callIDOf(*pData);
        }
        bool operator()(const std::unique_ptr<CCallData>& pData, const std::string& sCallID) const
        {
            return sCallID == callIDOf(*pData);
        }
    };

    std::unordered_map<std::string_view, CRegistrant> m_mapRegIDs; // registration ID (the record's own) -> record
    std::unordered_map<std::string, CRegistrants> m_mapCalls;      // call ID -> its registrations
    std::map<std::pair<std::string_view, std::uint64_t>, CRegIDData*>
        m_mapListeners; // (call ID, the record's own; sequence) -> "@" registrant
    std::uint64_t m_ullNextSequence = 0;
    std::unordered_set<std::unique_ptr<CCallData>, CHash, CEqual> m_setCallData;
    std::unordered_map<std::string_view, std::unique_ptr<CUnregData>>
        m_mapUnregData; // call ID (the record's own) -> it
    CUnregData* m_pOldestUnreg = nullptr;
    CUnregData* m_pNewestUnreg = nullptr;
};
