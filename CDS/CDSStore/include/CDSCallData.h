#pragma once

#include "CDSCallbackMsg.h"
#include "CDSExport.h"
#include "CDSNames.h"
#include "CDSTimestamp.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class CBaseCDSAPI;
class CParamsX;
class CPCritSec;

/// Everything known about one call: named properties, each holding its latest value, and named logs, each holding a
/// series of entries in time order. Every value is a byte string with a time stamp.
///
///     CCallData call("sip:4711");
///     unsigned char* pValue = reinterpret_cast<unsigned char*>(text.data());
///     bool bChanged = false;
///     call.setProperty(CDSPROP_CALLERID, pValue, nLength, tsNow, true, &bChanged);
///     call.appendLogEntry(CDSLOG_CONNECT_ENTRY, pValue, nLength, tsNow, true, &bChanged);
///
/// A property value is taken only when its stamp is later than the one held; the zero stamp forces its value in. A log
/// entry is identified by its stamp: the first of two with the same stamp stays.
///
/// Threads    every operation runs under the record's own re-entrant lock, unless it says so. Two threads that filter
///            two records against each other, or iterate over one record at the same time, must agree on a turn.
/// Ownership  values are copied in. Pointers to bytes that are handed out point into the record and are valid until
///            that value is replaced, or the record cleared or deleted. A record made with an owner may be used in its
///            three-argument writers only while that store lives.
/// Errors     results are 0 or a negative code, E_CDS_OUTOFMEMORY wherever something is copied. The constructors throw
///            std::bad_alloc and KRException, deserialize the parse failure, the dumps and a blob's own operations
///            std::bad_alloc. Pointers to what is filled in are not null, unless said so.
/// Limits     a value of more than about 499,000 bytes can be held but not serialized: its element is left out of the
///            text with an error line in the trace log.
class CDS_API CCallData : public CCallbackData
{
public:
    /// A named value with its time stamp.
    class CDS_API CCDSBlob
    {
    public:
        /// Copies nLength bytes; null or a length below 1 gives an empty value: null, length 0.
        ///
        /// @throws unsigned long  the code of E_CDS_OUTOFMEMORY, when the bytes cannot be allocated
        CCDSBlob(const std::string& sName, unsigned char* const& pData, int nLength, const CCDSTimestamp& tsStamp);

        /// From the serialized text.
        ///
        /// @throws unsigned long  the code of E_FAIL, when the text is malformed
        explicit CCDSBlob(const std::string& sText);

        /// Copies. When the bytes cannot be allocated the copy has null data with the source's length, and no error is
        /// raised; readers take null data for no bytes.
        CCDSBlob(const CCDSBlob& other);
        CCDSBlob& operator=(const CCDSBlob& other);
        ~CCDSBlob();

        /// A new, equal blob that the caller deletes. Throws as the four-argument constructor.
        CCDSBlob* clone() const;

        /// Whether the time stamps are equal: equal stamps mean the same value by definition, so neither names nor
        /// bytes are compared.
        bool identical(const CCDSBlob* pOther) const { return m_tsStamp == pOther->m_tsStamp; }

        const std::string& name() const noexcept { return m_sName; }
        /// Null when the value is empty.
        unsigned char* data() const noexcept { return m_pData; }
        int length() const noexcept { return m_nLength; }
        const CCDSTimestamp& timestamp() const noexcept { return m_tsStamp; }

        /// Writes the text form: name, value, time stamp.
        ///
        /// @return 0
        long serialize(std::string* psText) const;
        /// Replaces name, value and stamp from the text form.
        ///
        /// @return 0
        /// @throws unsigned long  the code of E_FAIL, when the text is malformed
        long deserialize(const std::string& sText);

        /// "nameCALLERID, val 415.": at most 32 bytes, unprintable ones as dots. There is no blank after "name".
        std::string toString() const;

        /// Replaces sDump by the value's dump: a line with name and length, then rows of 16 bytes.
        void DumpContent(std::string& sDump) const;

    private:
        friend class CCallData;
        struct CFromText
        {
        };

        CCDSBlob() = default;
        CCDSBlob(std::string_view text, CFromText tag);
        void readFrom(std::string_view text);
        std::size_t readableBytes() const noexcept
        {
            return m_pData != nullptr ? static_cast<std::size_t>(m_nLength) : 0;
        }

        std::string m_sName;
        unsigned char* m_pData = nullptr; // from malloc
        // The length stands in the stamp's padding, which keeps a blob in a smaller heap block.
        [[no_unique_address]] CCDSTimestamp m_tsStamp;
        std::int32_t m_nLength = 0;
    };

    class CLogEntries;

    /// A record without owner: its three-argument writers take the local clock's stamps.
    explicit CCallData(const std::string& sCallID);

    /// @param pOwner  asked for the stamps of the three-argument writers; not owned, may be null
    CCallData(CBaseCDSAPI* pOwner, const std::string& sCallID);

    /// From the serialized text, without owner.
    ///
    /// @param bReserved  ignored
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed
    CCallData(const std::string& sText, bool bReserved);

    ~CCallData() override;
    CCallData(const CCallData&) = delete;
    CCallData& operator=(const CCallData&) = delete;

    /// Reference count, starting at 0. Neither operation deletes the record: whoever lets the last reference go does.
    ///
    /// @return the count after the change
    long addRef();
    long decRef();

    long setCallID(const std::string& sCallID);
    long getCallID(std::string& sCallID) const;
    long getCallID(std::string* psCallID) const;

    /// Sets a property to a value with a time stamp. An older or equal value than the one held is dropped: no error.
    ///
    /// @param bReserved  ignored
    /// @param pbChanged  out: whether the value was taken
    /// @return 0, or E_CDS_OUTOFMEMORY
    long setProperty(const std::string& sName, unsigned char* const& pData, int nLength, const CCDSTimestamp& tsStamp,
                     bool bReserved, bool* pbChanged);
    /// Sets a property now: with the owner's stamp for this call, or the local clock's without owner.
    ///
    /// @return 0, E_CDS_OUTOFMEMORY, or the owner's negative result when it has no stamp; nothing is written then
    long setProperty(const std::string& sName, unsigned char* const& pData, int nLength);

    /// Appends an entry to a log. One whose stamp the log holds already is dropped: no error.
    long appendLogEntry(const std::string& sName, unsigned char* const& pData, int nLength,
                        const CCDSTimestamp& tsStamp, bool bReserved, bool* pbChanged);
    /// Appends an entry now, stamped as setProperty does.
    long appendLogEntry(const std::string& sName, unsigned char* const& pData, int nLength);

    /// Removes all properties and logs. The call ID, creation time, counters and reference count stay.
    ///
    /// @return 0
    long clear();

    /// @param pts  may be null
    /// @return 0, or E_CDS_NOTFOUND
    long getProperty(const std::string& sName, unsigned char** ppData, int* pLength, CCDSTimestamp* pts) const;

    /// @param pts  out: the property's stamp; the zero stamp when there is no such property
    /// @return 0, or E_CDS_NOTFOUND
    long getPropertyUpdateTimestamp(const std::string& sName, CCDSTimestamp* pts) const;

    // Iterations: the caller starts with index 0 and calls again with the index it got back until E_CDS_NOTFOUND.
    // Index 0 takes a snapshot of the record; later writes are not seen until the next one. Items whose stamp is less
    // than tsSince are skipped. The record keeps one snapshot of properties, one of log names and one of log entries,
    // and trace rebuilds them too.

    /// Properties in name order.
    long getProperty(int* pIndex, std::string* psName, unsigned char** ppData, int* pLength,
                     const CCDSTimestamp& tsSince, CCDSTimestamp* pts);
    /// The entries of one log in time order. Another name than in the call before takes a new snapshot and goes on at
    /// the caller's index.
    long getLogEntry(std::string sName, int* pIndex, unsigned char** ppData, int* pLength, const CCDSTimestamp& tsSince,
                     CCDSTimestamp* pts);
    /// The entries of every log whose name begins with the text, log by log in name order.
    long getLogEntryByPartialName(std::string sPartialName, int* pIndex, unsigned char** ppData, int* pLength,
                                  const CCDSTimestamp& tsSince, CCDSTimestamp* pts);
    /// The log name at an index, in name order; past the end E_CDS_NOTFOUND and an empty name.
    long getLogName(int nIndex, std::string* psName);

    /// @return 0 when the log has an entry with exactly this stamp, else E_CDS_NOTFOUND
    long getLogEntryExists(const std::string& sName, const CCDSTimestamp& tsStamp) const;
    /// @return number of entries; 0 when there is no such log
    long getLogEntryCount(std::string sName) const;
    long getLogNameCount() const;

    /// How many writes were offered, taken or not. Read without the lock.
    unsigned long getSetPropertiesCount() const noexcept
    {
        return m_dwSetPropertiesCount.load(std::memory_order_relaxed);
    }
    unsigned long getAppendLogEntriesCount() const noexcept
    {
        return m_dwAppendLogEntriesCount.load(std::memory_order_relaxed);
    }

    /// What is new in this record against another: a new record that the caller deletes, null when nothing is.
    /// Locks this record, then the other.
    ///
    /// @param pOther    may be null: then everything is new
    /// @param ppResult  out: null on failure
    /// @return 0, or a negative code
    long filter(CCallData* pOther, CCallData** ppResult);

    /// Takes another record's values and entries into this one.
    ///
    /// @param pNew      read without its lock: the caller keeps it still
    /// @param pbChanged out: whether this record changed
    /// @return 0, or a negative code; what was taken until then stays
    long merge(CCallData* pNew, bool* pbChanged);

    /// Whether this record has a property that the earlier state lacks or holds with another stamp, or a log of the
    /// earlier state with another number of entries. One-sided on purpose. Takes no lock: the caller keeps both still.
    ///
    /// @param pOld  may be null: then true
    bool changed(CCallData* pOld);

    /// An equal record that the caller deletes; null when it cannot be made. Its counters count what was copied.
    CCallData* clone() override;

    /// Reads the text form into this record. Takes no lock: the caller keeps the record to itself.
    ///
    /// @return 0, or E_CDS_OUTOFMEMORY: what was read until then stays
    /// @throws unsigned long  the code of E_FAIL, when the text is malformed; what was read whole until then stays, a
    /// log
    ///                        with all its entries
    long deserialize(const std::string& sText) override;

    /// Writes the text form: call ID, properties, logs; nothing of the owner, the creation time or the counters. Takes
    /// no lock: the caller keeps the record still.
    ///
    /// @return 0, or E_CDS_OUTOFMEMORY
    long serialize(std::string* psText) override;

    void trace(const char* pszTitle) override;

    /// Bytes of all values and entries; names and stamps do not count. Read without the lock.
    unsigned long getsize() override;

    /// Replaces sDump by a readable dump of the record. Takes no lock: the caller keeps the record still.
    void DumpContent(std::string& sDump) const;

private:
    struct CCursors;

    /// A map kept as a vector in key order: records hold few items, mostly added at the end, and pay no node for each.
    /// The key is read from the value, which the map owns.
    template <class TValue, auto pfnKey> class CSortedMap
    {
    public:
        using CItems = std::vector<std::unique_ptr<TValue>>; // in key order
        static const auto& keyOf(const TValue& value) { return (value.*pfnKey)(); }
        template <class TKey> typename CItems::const_iterator lowerBound(const TKey& key) const
        {
            // Most writes go behind everything there is.
            if (m_vecItems.empty() || keyOf(*m_vecItems.back()) < key)
                return m_vecItems.end();
            auto first = m_vecItems.begin();
            for (auto n = m_vecItems.end() - first; n > 0;)
            {
                const auto half = n / 2;
                if (keyOf(**(first + half)) < key)
                {
                    first += half + 1;
                    n -= half + 1;
                }
                else
                    n = half;
            }
            return first;
        }
        template <class TKey> bool holdsAt(typename CItems::const_iterator it, const TKey& key) const
        {
            return it != m_vecItems.end() && keyOf(**it) == key;
        }
        /// Null when there is none.
        template <class TKey> TValue* find(const TKey& key) const
        {
            const auto it = lowerBound(key);
            return holdsAt(it, key) ? it->get() : nullptr;
        }
        void insertAt(typename CItems::const_iterator it, std::unique_ptr<TValue> pValue)
        {
            m_vecItems.insert(it, std::move(pValue));
        }
        /// Puts another value with the same key into an item's place and returns the old one.
        std::unique_ptr<TValue> replaceAt(typename CItems::const_iterator it, std::unique_ptr<TValue> pValue)
        {
            m_vecItems[static_cast<std::size_t>(it - m_vecItems.begin())].swap(pValue);
            return pValue;
        }
        void growForOne()
        {
            if (m_vecItems.size() == m_vecItems.capacity())
                m_vecItems.reserve(2 * m_vecItems.size() + 1);
        }
        /// Takes in items whose keys it lacks, themselves in key order, in time linear in both. Has been given room.
        void mergeIn(CItems vecNew) noexcept
        {
            const auto nHeld = static_cast<std::ptrdiff_t>(m_vecItems.size());
            for (auto& pValue : vecNew)
                m_vecItems.push_back(std::move(pValue));
            const auto less = [](const auto& pLeft, const auto& pRight) { return keyOf(*pLeft) < keyOf(*pRight); };
            if (nHeld > 0 && !vecNew.empty() &&
                less(m_vecItems[static_cast<std::size_t>(nHeld)], m_vecItems[static_cast<std::size_t>(nHeld) - 1]))
                std::inplace_merge(m_vecItems.begin(), m_vecItems.begin() + nHeld, m_vecItems.end(), less);
        }
        void clear() noexcept { CItems().swap(m_vecItems); }
        void reserve(std::size_t uCount) { m_vecItems.reserve(uCount); }
        std::size_t size() const noexcept { return m_vecItems.size(); }
        bool empty() const noexcept { return m_vecItems.empty(); }
        /// For loading many at once: the items leave the map, and come back in key order.
        CItems takeItems() noexcept { return std::exchange(m_vecItems, {}); }
        void giveItems(CItems vecItems) noexcept { m_vecItems = std::move(vecItems); }
        typename CItems::const_iterator begin() const noexcept { return m_vecItems.begin(); }
        typename CItems::const_iterator end() const noexcept { return m_vecItems.end(); }

    private:
        CItems m_vecItems;
    };

public:
    /// The entries of one log name. Part of the record; no operation hands one out.
    class CLogEntries
    {
    public:
        CLogEntries(std::string sName, const CCDSTimestamp& tsLastAppend);
        const std::string& name() const noexcept { return m_sName; }

        std::string m_sName;
        CSortedMap<CCDSBlob, &CCDSBlob::timestamp> m_mapEntries;
        CCDSTimestamp m_tsLastAppend; // stamp of the entry appended last, not necessarily the latest
    };

private:
    using CPropertyMap = CSortedMap<CCDSBlob, &CCDSBlob::name>;
    using CEntryMap = CSortedMap<CCDSBlob, &CCDSBlob::timestamp>;
    using CLogMap = CSortedMap<CLogEntries, &CLogEntries::name>;
    friend class CCDSAPI; // finds stored records by their call ID

    long ownStamp(CCDSTimestamp* ptsStamp) const;
    template <class TOperation> static long makingBlob(TOperation operation);
    void replaceProperty(CPropertyMap::CItems::const_iterator it, std::unique_ptr<CCDSBlob> pBlob);
    void takeProperty(const std::string& sName, unsigned char* const& pData, int nLength, const CCDSTimestamp& tsStamp,
                      CPropertyMap::CItems* pvecNew, bool* pbChanged);
    void takeEntry(CLogEntries& log, unsigned char* const& pData, int nLength, const CCDSTimestamp& tsStamp,
                   CEntryMap::CItems* pvecLate, bool* pbChanged);
    void makeRoomToRetire();
    void retire(std::unique_ptr<CCDSBlob> pReplaced);
    void addSize(long lDifference) noexcept;

    long copyNewInto(CCallData& target, CCallData* pOther, bool* pbFound) const;
    long mergeProperties(const CCallData& from, bool* pbChanged);
    long mergeLogs(const CCallData& from, long lPropertiesResult, bool* pbChanged);
    long mergeLog(const CCallData& from, const CLogEntries& fromLog, CLogMap::CItems* pvecNewLogs, bool* pbChanged);

    std::int64_t readProperties(const CParamsX& list);
    void readLogs(const CParamsX& list, std::int64_t llPosition);
    static std::uint32_t readEntries(const CParamsX& list, std::int64_t llPosition, long lCount, CLogEntries* pLog);
    static std::unique_ptr<CCDSBlob> readBlob(const CParamsX& list, std::int64_t llPosition);

    CCursors& cursors();
    static void takeEntries(const CLogEntries& log, std::vector<const CCDSBlob*>* pvecSnapshot);
    long nextOfSnapshot(const std::vector<const CCDSBlob*>& vecSnapshot, int* pIndex, unsigned char** ppData,
                        int* pLength, const CCDSTimestamp& tsSince, CCDSTimestamp* pts, std::string* psName) const;

    std::string m_sCallID;
    CBaseCDSAPI* m_pOwner;
    CPropertyMap m_mapProperties;
    CLogMap m_mapLogEntries;
    std::unique_ptr<CCursors> m_pCursors; // null until the first iteration
    struct
    {
        std::uint16_t wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
    } m_stCreated;
    std::unique_ptr<CPCritSec> m_pCritsec; // guards all the above
    std::int32_t m_lRefCount = 0;
    std::atomic<std::uint32_t> m_dwSetPropertiesCount = 0;
    std::atomic<std::uint32_t> m_dwAppendLogEntriesCount = 0;
    std::atomic<unsigned long> m_ulSize = 0; // bytes of all values, as getsize reports them
};
