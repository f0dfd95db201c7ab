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

/// The same for an operation that makes blobs, whose bytes may be refused.
template <class TOperation> long CCallData::makingBlob(TOperation operation)
{
    try
    {
        return cdsGuarded([&] {
            operation();
            return 0L;
        });
    }
    catch (unsigned long ulCode) // a blob whose bytes could not be allocated
    {
        return cdsResult(ulCode);
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

/// What the index iterations walk over.
///
/// Items of the record's maps are pointed to, not copied. They leave the maps only when a property is replaced, whose
/// old value then moves to m_vecReplaced while the property snapshot holds it, and by clear, which empties all of this.
struct CCallData::CCursors
{
    std::vector<const CCDSBlob*> m_vecPropertyCursor;
    std::vector<std::string> m_vecLogNameCursor;
    std::vector<const CCDSBlob*> m_vecLogEntryCursor;
    std::string m_sLogEntryCursorName; // name or partial name that the log-entry snapshot was taken for
    std::vector<std::unique_ptr<CCDSBlob>> m_vecReplaced;
};

/// Adds many items to a map in any order: a text in key order, as records write it, is added item by item at the end;
/// anything else is sorted once when the loader goes, so that no order of items makes loading slow.
template <class TMap> class CMapLoader
{
public:
    using CItems = typename TMap::CItems;
    using CValue = typename CItems::value_type::element_type;

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

    /// Takes the value over, unless there is one with its key already: then that one is returned.
    CValue* add(std::unique_ptr<CValue>& pValue)
    {
        const auto& key = TMap::keyOf(*pValue);
        if (m_bInOrder && (m_vecItems.empty() || TMap::keyOf(*m_vecItems.back()) < key))
        {
            if (!m_setSeen.empty())
                m_setSeen.insert(pValue.get());
            m_vecItems.push_back(std::move(pValue));
            return nullptr;
        }
        if (m_setSeen.empty())
            for (const auto& pItem : m_vecItems)
                m_setSeen.insert(pItem.get());
        if (const auto [it, bNew] = m_setSeen.insert(pValue.get()); !bNew)
            return *it;
        m_vecItems.push_back(std::move(pValue));
        m_bInOrder = false;
        return nullptr;
    }

    /// Puts another value with the same key into an item's place and returns the old one.
    std::unique_ptr<CValue> replace(const CValue* pOld, std::unique_ptr<CValue> pValue)
    {
        m_setSeen.clear(); // points to the old one; filled again when needed
        const auto it = std::find_if(m_vecItems.begin(), m_vecItems.end(),
                                     [pOld](const auto& pItem) { return pItem.get() == pOld; });
        it->swap(pValue);
        return pValue;
    }

private:
    struct CLess
    {
        bool operator()(const CValue* pLeft, const CValue* pRight) const
        {
            return TMap::keyOf(*pLeft) < TMap::keyOf(*pRight);
        }
    };

    TMap& m_map;
    CItems m_vecItems;
    std::set<CValue*, CLess> m_setSeen; // empty while the items come in order
    bool m_bInOrder = true;
};
