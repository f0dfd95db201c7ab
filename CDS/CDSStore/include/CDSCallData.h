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
/// Limits     a value of more than about 499,000 bytes can be held but not serialized: its bytes, or the value as a
///            whole, are left out of the text with an error line in the trace log, and whoever reads the text gets
///            something else in their place, or nothing at all. Keep values below that, and a call's whole record below
///            499,000 bytes too when it is shared: a longer one reaches nobody who lacks all of it.
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
        CCDSBlob() = default;
        void readFrom(const std::string& sText);

        std::string m_sName;
        unsigned char* m_pData = nullptr; // from malloc
        CCDSTimestamp m_tsStamp;
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
    class CValuePtr;

    /// A named value with its stamp, as a record holds it: made once and never changed. One block of memory holds it
    /// all: the bytes stand behind the object, then the name. The record's map refers to it, and a snapshot that is to
    /// keep it when it is replaced.
    ///
    /// Threads    references are counted under the record's lock.
    class CValue
    {
    public:
        /// Copies nLength bytes; null or a length below 1 gives an empty value.
        ///
        /// @throws std::bad_alloc
        static CValuePtr make(std::string_view name, const unsigned char* pData, int nLength,
                              const CCDSTimestamp& tsStamp);
        /// From the text form of a blob. When the bytes find no room the value has its length without them: its stamp
        /// is known, and a newer value takes its place.
        ///
        /// @throws std::bad_alloc
        /// @throws unsigned long  the code of E_FAIL, when the text is malformed
        static CValuePtr read(std::string_view text);

        CValue(const CValue&) = delete;
        CValue& operator=(const CValue&) = delete;

        /// A zero byte follows it.
        std::string_view name() const noexcept
        {
            return {reinterpret_cast<const char*>(bytes()) + (m_bBytes != 0 ? m_nLength : 0), m_dwNameLength};
        }
        /// Null when the value is empty, or its bytes found no room. Nobody writes there: the type is that of the
        /// record's operations.
        unsigned char* data() const noexcept { return m_bBytes != 0 ? bytes() : nullptr; }
        int length() const noexcept { return m_nLength; }
        const CCDSTimestamp& timestamp() const noexcept { return m_tsStamp; }

        void addReference() const noexcept { ++m_dwReferences; }
        void release() const noexcept
        {
            if (--m_dwReferences == 0)
                destroy(this);
        }

    private:
        CValue(std::uint32_t dwNameLength, bool bBytes, int nLength, const CCDSTimestamp& tsStamp) noexcept
            : m_tsStamp(tsStamp), m_nLength(nLength), m_dwNameLength(dwNameLength & 0x7FFFFFFFU), m_bBytes(bBytes)
        {
        }
        ~CValue() = default;
        static CValue* allocate(std::string_view name, bool bBytes, std::size_t uLength, const CCDSTimestamp& tsStamp);
        static void destroy(const CValue* pValue) noexcept;
        unsigned char* bytes() const noexcept
        {
            return reinterpret_cast<unsigned char*>(const_cast<CValue*>(this + 1));
        }

        // The length stands in the stamp's padding.
        [[no_unique_address]] const CCDSTimestamp m_tsStamp;
        const std::int32_t m_nLength;
        const std::uint32_t m_dwNameLength : 31;
        const std::uint32_t m_bBytes : 1; // 0: there are none, or they found no room
        mutable std::uint32_t m_dwReferences = 1;
    };

    /// Holds a reference to a value. Null when it was moved from.
    class CValuePtr
    {
    public:
        using element_type = const CValue;

        /// Takes over the reference that a value is made with.
        explicit CValuePtr(const CValue* pValue) noexcept : m_pValue(pValue) {}
        CValuePtr(const CValuePtr& other) noexcept : m_pValue(other.m_pValue) { m_pValue->addReference(); }
        CValuePtr(CValuePtr&& other) noexcept : m_pValue(std::exchange(other.m_pValue, nullptr)) {}
        CValuePtr& operator=(CValuePtr other) noexcept
        {
            swap(other);
            return *this;
        }
        ~CValuePtr()
        {
            if (m_pValue != nullptr)
                m_pValue->release();
        }

        void swap(CValuePtr& other) noexcept { std::swap(m_pValue, other.m_pValue); }
        const CValue* get() const noexcept { return m_pValue; }
        const CValue& operator*() const noexcept { return *m_pValue; }
        const CValue* operator->() const noexcept { return m_pValue; }

    private:
        const CValue* m_pValue;
    };

    /// A map kept as a vector in key order: records hold few items, mostly added at the end, and pay no node for each.
    /// The key is read from the item, to which the map holds an owning pointer.
    template <class TPointer, auto pfnKey> class CSortedMap
    {
    public:
        using CItem = typename TPointer::element_type;
        using CItems = std::vector<TPointer>; // in key order
        static decltype(auto) keyOf(const CItem& item) { return (item.*pfnKey)(); }
        template <class TKey> typename CItems::const_iterator lowerBound(const TKey& key) const
        {
            return lowerBoundFrom(m_vecItems.begin(), key);
        }
        /// For keys that are asked for in order: all of them together cost at most one walk through the map, and fewer
        /// steps when there are few.
        ///
        /// @param first  what the key before gave; begin() for the first one
        template <class TKey>
        typename CItems::const_iterator lowerBoundFrom(typename CItems::const_iterator first, const TKey& key) const
        {
            // Most writes go behind everything there is, and most questions are about what came last.
            if (first == m_vecItems.end() || keyOf(*m_vecItems.back()) < key)
                return m_vecItems.end();
            if (!(key < keyOf(*m_vecItems.back())))
                return m_vecItems.end() - 1;
            std::ptrdiff_t nLeft = m_vecItems.end() - first;
            std::ptrdiff_t nStep = 1;
            for (; nStep <= nLeft && keyOf(**(first + (nStep - 1))) < key; nStep *= 2)
            {
                first += nStep;
                nLeft -= nStep;
            }
            return lowerBoundAmong(first, std::min(nStep - 1, nLeft), key);
        }
        template <class TKey> bool holdsAt(typename CItems::const_iterator it, const TKey& key) const
        {
            return it != m_vecItems.end() && keyOf(**it) == key;
        }
        /// Null when there is none.
        template <class TKey> CItem* find(const TKey& key) const
        {
            const auto it = lowerBound(key);
            return holdsAt(it, key) ? it->get() : nullptr;
        }
        void insertAt(typename CItems::const_iterator it, TPointer pItem) { m_vecItems.insert(it, std::move(pItem)); }
        /// Adds an item whose key is behind all others.
        void append(TPointer pItem) { m_vecItems.push_back(std::move(pItem)); }
        /// Puts another item with the same key into an item's place.
        void replaceAt(typename CItems::const_iterator it, TPointer pItem) noexcept
        {
            m_vecItems[static_cast<std::size_t>(it - m_vecItems.begin())].swap(pItem);
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
            for (auto& pItem : vecNew)
                m_vecItems.push_back(std::move(pItem));
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
        template <class TKey>
        static typename CItems::const_iterator lowerBoundAmong(typename CItems::const_iterator first, std::ptrdiff_t n,
                                                               const TKey& key)
        {
            while (n > 0)
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

        CItems m_vecItems;
    };
    using CPropertyMap = CSortedMap<CValuePtr, &CValue::name>;
    using CEntryMap = CSortedMap<CValuePtr, &CValue::timestamp>;

public:
    /// The entries of one log name. Part of the record; no operation hands one out.
    class CLogEntries
    {
    public:
        CLogEntries(std::string sName, const CCDSTimestamp& tsLastAppend);
        const std::string& name() const noexcept { return m_sName; }

        std::string m_sName;
        CEntryMap m_mapEntries;
        CCDSTimestamp m_tsLastAppend; // stamp of the entry appended last, not necessarily the latest
    };

private:
    using CLogMap = CSortedMap<std::unique_ptr<CLogEntries>, &CLogEntries::name>;
    friend class CCDSAPI; // finds stored records by their call ID

    long ownStamp(CCDSTimestamp* ptsStamp) const;
    void replaceProperty(CPropertyMap::CItems::const_iterator it, CValuePtr pValue) noexcept;
    void takeEntry(CLogEntries& log, CEntryMap::CItems::const_iterator it, CValuePtr pEntry,
                   CEntryMap::CItems* pvecLate, bool* pbChanged);
    void addSize(long lDifference) noexcept;

    static CValuePtr copyOfValue(std::string_view name, const CValue& value);
    static std::unique_ptr<CLogEntries> newEntries(const CLogEntries& log, const CLogEntries* pOther);
    bool copyNew(const CPropertyMap& mapOther, const CLogMap& mapOtherLogs, CCallData* pTarget) const;
    long mergeProperties(const CCallData& from, bool* pbChanged);
    long mergeLogs(const CCallData& from, long lPropertiesResult, bool* pbChanged);
    long mergeLog(const CCallData& from, const CLogEntries& fromLog, CLogMap::CItems* pvecNewLogs, bool* pbChanged);

    std::int64_t readProperties(const CParamsX& list);
    void readLogs(const CParamsX& list, std::int64_t llPosition);
    static std::uint32_t readEntries(const CParamsX& list, std::int64_t llPosition, long lCount, CLogEntries* pLog);

    CCursors& cursors();
    static void takeEntries(const CLogEntries& log, CEntryMap::CItems* pvecSnapshot);
    long nextOfSnapshot(const std::vector<CValuePtr>& vecSnapshot, int* pIndex, unsigned char** ppData, int* pLength,
                        const CCDSTimestamp& tsSince, CCDSTimestamp* pts, std::string* psName) const;

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
