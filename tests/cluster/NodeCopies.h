#pragma once

#include "CDSAPI.h"
#include "CallSet.h"
#include "NodeTimes.h"

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// A number that records have in common when they are the same: the sum over the records of a number made of each one's
/// values and entries, so that the order does not count.
class CRecordDigest
{
public:
    /// A record's text form. That of a record itself also says which of a log's entries came last, which differs
    /// between servers that got the same entries in another order; a copy gets them in the order of their stamps.
    static std::string text(CCallData& data)
    {
        std::string sText;
        std::string sCallID;
        bool bChanged = false;
        (void)data.getCallID(&sCallID); // always 0
        CCallData copy(sCallID);
        (void)copy.merge(&data, &bChanged); // without memory the digest is another one, here and below
        (void)copy.serialize(&sText);
        return sText;
    }
    static std::uint64_t of(const std::string& sText)
    {
        std::uint64_t ullHash = 0xCBF29CE484222325ULL; // FNV-1a
        for (const char c : sText)
            ullHash = (ullHash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
        ullHash ^= ullHash >> 32; // sums of plain FNV values are too much alike
        return ullHash * 0xD6E8FEB86659FD93ULL;
    }
};

/// Registrants of one name for calls of another server, each with a copy that its callbacks made.
///
/// Threads    deliveries come on the store's threads; registering is one thread's.
/// Ownership  the store calls back until the destructor has taken the registrations back.
class CNodeCopies
{
public:
    CNodeCopies(CCDSAPI& store, CNodeTimes& times, std::string sName, std::string sOwnerIP)
        : m_store(store), m_times(times), m_sName(std::move(sName)), m_sOwnerIP(std::move(sOwnerIP))
    {
    }
    ~CNodeCopies()
    {
        for (const auto& [uNumber, pCopy] : m_mapCopies)
            (void)m_store.Unregister(registrationOf(uNumber)); // registered, so found
    }
    CNodeCopies(const CNodeCopies&) = delete;
    CNodeCopies& operator=(const CNodeCopies&) = delete;

    bool watches(unsigned uNumber) const { return m_mapCopies.contains(uNumber); }

    /// @return the store's result
    long watch(unsigned uNumber)
    {
        auto& pCopy = m_mapCopies[uNumber];
        pCopy = std::make_unique<CCopy>(*this);
        const long lResult = m_times.measured("Register", [&] {
            return m_store.Register(reinterpret_cast<unsigned long>(pCopy.get()), registrationOf(uNumber), m_sOwnerIP,
                                    CallSet::callID(uNumber), "*", onMessage, 1);
        });
        if (lResult < 0)
            m_mapCopies.erase(uNumber);
        return lResult;
    }
    long leave(unsigned uNumber)
    {
        const long lResult =
            m_times.measured("Unregister", [&] { return m_store.Unregister(registrationOf(uNumber)); });
        const std::lock_guard guard(m_mutex);
        if (const auto node = m_mapCopies.extract(uNumber); !node.empty())
            count(*node.mapped(), 0);
        return lResult;
    }
    std::vector<unsigned> members() const
    {
        std::vector<unsigned> vecNumbers;
        for (const auto& [uNumber, pCopy] : m_mapCopies)
            vecNumbers.push_back(uNumber);
        return vecNumbers;
    }

    /// Waits until so many copies have data, and all together the digest.
    bool await(std::size_t uCopies, std::uint64_t ullDigest, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_uWithData == uCopies && m_ullDigest == ullDigest; });
    }
    /// Waits until so many deliveries more have come.
    bool awaitDeliveries(unsigned long ulMore, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(m_mutex);
        const unsigned long ulUntil = m_ulDeliveries + ulMore;
        return m_changed.wait_for(lock, limit, [&] { return m_ulDeliveries >= ulUntil; });
    }
    std::pair<std::size_t, std::uint64_t> state() const
    {
        const std::lock_guard guard(m_mutex);
        return {m_uWithData, m_ullDigest};
    }
    /// Text forms of the copies; a call's that has none is empty.
    std::string textOf(unsigned uNumber) const
    {
        const std::lock_guard guard(m_mutex);
        std::string sText;
        if (const auto it = m_mapCopies.find(uNumber); it != m_mapCopies.end() && it->second->pData != nullptr)
            sText = CRecordDigest::text(*it->second->pData);
        return sText;
    }

private:
    struct CCopy
    {
        explicit CCopy(CNodeCopies& copies) : group(copies) {}
        CNodeCopies& group;
        std::unique_ptr<CCallData> pData; // null until the first delivery
        std::uint64_t ullDigest = 0;
    };

    std::string registrationOf(unsigned uNumber) const { return m_sName + ' ' + std::to_string(uNumber); }

    static long onMessage(CCallbackMsg* pMessage)
    {
        auto* const pData = dynamic_cast<CCallData*>(pMessage->getCallbackData());
        auto& copy = *reinterpret_cast<CCopy*>(pMessage->getReqHandle());
        const std::lock_guard guard(copy.group.m_mutex);
        bool bChanged = false;
        if (copy.pData == nullptr)
            copy.pData.reset(pData->clone());
        else
            (void)copy.pData->merge(pData, &bChanged); // without memory the copy stays different
        ++copy.group.m_ulDeliveries;
        copy.group.count(copy, CRecordDigest::of(CRecordDigest::text(*copy.pData)));
        return 0;
    }

    /// m_mutex is held.
    void count(CCopy& copy, std::uint64_t ullDigest)
    {
        m_uWithData += ullDigest != 0 ? 1 : 0;
        m_uWithData -= copy.ullDigest != 0 ? 1 : 0;
        m_ullDigest += ullDigest - copy.ullDigest;
        copy.ullDigest = ullDigest;
        m_changed.notify_all();
    }

    CCDSAPI& m_store;
    CNodeTimes& m_times;
    const std::string m_sName;
    const std::string m_sOwnerIP;

    // Guarded by m_mutex, which is taken last: the store is locked while it delivers. The map itself is one thread's.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<unsigned, std::unique_ptr<CCopy>> m_mapCopies; // number of the call -> copy
    std::size_t m_uWithData = 0;
    std::uint64_t m_ullDigest = 0;
    unsigned long m_ulDeliveries = 0;
};
