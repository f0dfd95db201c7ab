#pragma once

#include "CDSCallData.h"
#include "CDSResults.h"
#include "CPCritSec.h"
#include "KRException.h"

#include <algorithm>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

// What the sources of the data model share.

/// Holds a critical section for a scope.
class CDS_SCOPED_CAPABILITY CCritSecLock
{
public:
    /// @param lEnterPlace, lLeavePlace  name the calling place for the lock's diagnostics
    CCritSecLock(CPCritSec& critsec, long lEnterPlace, long lLeavePlace) CDS_ACQUIRE(critsec)
        : m_critsec(critsec), m_lLeavePlace(lLeavePlace)
    {
        m_critsec.enter(lEnterPlace);
    }
    ~CCritSecLock() CDS_RELEASE() { m_critsec.leave(m_lLeavePlace); }
    CCritSecLock(const CCritSecLock&) = delete;
    CCritSecLock& operator=(const CCritSecLock&) = delete;

private:
    CPCritSec& m_critsec;
    const long m_lLeavePlace;
};

/// Runs an operation that reports results, and makes results of what the machine may refuse on the way. A text's parse
/// failure is not among them: operations that read texts let it pass.
template <class TOperation> long cdsGuarded(TOperation operation)
{
    try
    {
        return operation();
    }
    catch (const std::bad_alloc&)
    {
        return E_CDS_OUTOFMEMORY;
    }
    catch (const KRException& refusal)
    {
        return refusal.code();
    }
}

/// A record, or null when it cannot be made.
inline std::unique_ptr<CCallData> cdsMakeRecord(CBaseCDSAPI* pOwner, const std::string& sCallID)
{
    std::unique_ptr<CCallData> pRecord;
    (void)cdsGuarded([&] {
        pRecord = std::make_unique<CCallData>(pOwner, sCallID);
        return 0L;
    }); // null tells
    return pRecord;
}

/// The zero stamp, which forces a property's value in.
inline bool cdsIsZero(const CCDSTimestamp& tsStamp) noexcept
{
    return tsStamp.value() == 0 && tsStamp.incrementValue() == 0;
}

/// Whether a property's value takes the place of the one held.
inline bool cdsIsNewer(const CCDSTimestamp& tsStamp, const CCDSTimestamp& tsHeld) noexcept
{
    return cdsIsZero(tsStamp) || tsStamp > tsHeld;
}

/// Replaces *psText by a named value's text form: name, value, time stamp. Null data are no bytes, here and below.
void cdsWriteValue(const std::string& sName, const unsigned char* pData, int nLength, const CCDSTimestamp& tsStamp,
                   std::string* psText);

/// Replaces sDump by a named value's dump.
void cdsDumpValue(const char* pszName, const unsigned char* pData, int nLength, std::string& sDump);

/// What the index iterations walk over: snapshots that keep their values, so that an iteration goes on with what it
/// began with when a property is replaced.
struct CCallData::CCursors
{
    CPropertyMap::CItems m_vecPropertyCursor;
    std::vector<std::string> m_vecLogNameCursor;
    CEntryMap::CItems m_vecLogEntryCursor;
    std::string m_sLogEntryCursorName; // name or partial name that the log-entry snapshot was taken for
};

/// Adds many items to a map in any order: a text in key order, as records write it, is added item by item at the end;
/// anything else is sorted once when the loader goes, so that no order of items makes loading slow.
template <class TMap> class CMapLoader
{
public:
    using CItems = typename TMap::CItems;
    using CPointer = typename CItems::value_type;
    using CItem = typename TMap::CItem;

    explicit CMapLoader(TMap& map) : m_map(map), m_vecItems(map.takeItems()) {}
    ~CMapLoader()
    {
        if (!m_bInOrder)
            std::sort(m_vecItems.begin(), m_vecItems.end(),
                      [](const auto& pLeft, const auto& pRight) { return TMap::keyOf(*pLeft) < TMap::keyOf(*pRight); });
        m_map.giveItems(std::move(m_vecItems));
    }
    CMapLoader(const CMapLoader&) = delete;
    CMapLoader& operator=(const CMapLoader&) = delete;

    /// Takes the item over, unless there is one with its key already: then that one is returned.
    CItem* add(CPointer& pItem)
    {
        const auto& key = TMap::keyOf(*pItem);
        if (m_bInOrder && (m_vecItems.empty() || TMap::keyOf(*m_vecItems.back()) < key))
        {
            if (!m_setSeen.empty())
                m_setSeen.insert(pItem.get());
            m_vecItems.push_back(std::move(pItem));
            return nullptr;
        }
        if (m_setSeen.empty())
            for (const auto& pHeld : m_vecItems)
                m_setSeen.insert(pHeld.get());
        if (const auto [it, bNew] = m_setSeen.insert(pItem.get()); !bNew)
            return *it;
        m_vecItems.push_back(std::move(pItem));
        m_bInOrder = false;
        return nullptr;
    }

    /// Puts another item with the same key into an item's place.
    void replace(const CItem* pOld, CPointer pItem)
    {
        m_setSeen.clear(); // points to the old one; filled again when needed
        const auto it = std::find_if(m_vecItems.begin(), m_vecItems.end(),
                                     [pOld](const auto& pHeld) { return pHeld.get() == pOld; });
        it->swap(pItem);
    }

private:
    struct CLess
    {
        bool operator()(const CItem* pLeft, const CItem* pRight) const
        {
            return TMap::keyOf(*pLeft) < TMap::keyOf(*pRight);
        }
    };

    TMap& m_map;
    CItems m_vecItems;
    std::set<CItem*, CLess> m_setSeen; // empty while the items come in order
    bool m_bInOrder = true;
};
