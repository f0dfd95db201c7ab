#pragma once

#include "CDSAPI.h"
#include "calls/RecordBook.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

/// Copies of another server's calls, as a registrant keeps them who merges what its callbacks bring; and what came,
/// counted.
///
/// Threads    deliveries come on the store's threads; everything may be called from any.
/// Ownership  the store calls back until the destructor has taken the registrations back.
class CCallMirror
{
public:
    /// Text forms of call data, in bytes.
    struct CTraffic
    {
        std::uint64_t ullDeliveries = 0;
        std::uint64_t ullChangeBytes = 0; ///< of the changes delivered: what crossed the network, while no fault
                                          ///< makes it bring again what is here already
        std::uint64_t ullWholeBytes = 0;  ///< of the whole records, had each delivery brought one
    };

    /// @param store     outlives the mirror
    /// @param sOwnerIP  server that the calls belong to
    CCallMirror(CCDSAPI& store, std::string sOwnerIP);
    ~CCallMirror();
    CCallMirror(const CCallMirror&) = delete;
    CCallMirror& operator=(const CCallMirror&) = delete;

    /// Registers for a call at its owner, once.
    ///
    /// @return 0, or the store's negative code
    [[nodiscard]] long watch(const std::string& sRecordID);

    /// Says what the owner's record is, as text form. The last word on a call counts.
    void expect(const std::string& sRecordID, const std::string& sText);

    /// Waits until all copies are as expected.
    ///
    /// @param limit  how long nothing may come
    void awaitExpected(std::chrono::seconds limit);

    /// Of how many calls the owner's record is known, and how many copies are equal to it.
    std::size_t expected() const;
    std::size_t equal() const;
    /// Record IDs whose copies are not as expected, and those of copies that nothing was said about.
    std::vector<std::string> different() const;
    CTraffic traffic() const;
    std::chrono::steady_clock::time_point lastDelivery() const;
    /// The copies as values.
    CRecordBook records() const;

private:
    struct CCopy
    {
        std::unique_ptr<CCallData> pData; // null until the first delivery
        std::string sText;
        std::string sExpected; // empty: nothing was said
        bool same() const { return sText == sExpected; }
    };

    static long onMessage(CCallbackMsg* pMessage);
    void take(CCallData& data);
    template <class TChange> void change(const std::string& sRecordID, const TChange& fnChange);

    CCDSAPI& m_store;
    const std::string m_sOwnerIP;
    std::set<std::string> m_setWatched; // record IDs; one thread

    // Guarded by m_mutex, which is taken last: the store is locked while it delivers.
    mutable std::mutex m_mutex;
    std::condition_variable m_delivered;
    std::map<std::string, CCopy> m_mapCopies; // record ID -> copy
    std::size_t m_uDifferent = 0;             // copies that are not the same
    CTraffic m_traffic;
    std::chrono::steady_clock::time_point m_tpLast = std::chrono::steady_clock::now();
};
