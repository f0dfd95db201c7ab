#pragma once

#include "CDSAPI.h"
#include "calls/RecordBook.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

/// A registrant of the store that counts what it gets and puts the changes together to records again.
///
/// Threads    deliveries come on the thread that updates, and on the store's own; everything may be called from any.
/// Ownership  the store calls back until stop() or the destructor has taken the registration back.
class CWatcher
{
public:
    /// @param store    outlives the watcher
    /// @param sName    registration ID
    CWatcher(CCDSAPI& store, std::string sName);
    ~CWatcher();
    CWatcher(const CWatcher&) = delete;
    CWatcher& operator=(const CWatcher&) = delete;

    /// Registers.
    ///
    /// @param sCallID  a record ID, or "*"
    /// @param sEvent   "*" for changes, "EOC" for the last delivery of a call
    /// @return 0, or the store's negative code
    [[nodiscard]] long start(const std::string& sServerIP, const std::string& sCallID, const std::string& sEvent);
    /// Takes the registration back. Must not run in a callback of the store.
    void stop();

    std::uint64_t deliveries() const;
    /// Properties and log entries in them.
    std::uint64_t changes() const;
    /// The records that the deliveries make.
    CRecordBook records() const;
    /// Waits until so many deliveries were made.
    ///
    /// @return whether they were, before the time ran out
    bool waitFor(std::uint64_t ullDeliveries, std::chrono::milliseconds timeout);

private:
    static long onMessage(CCallbackMsg* pMessage);
    void take(CCallData& data);

    CCDSAPI& m_store;
    const std::string m_sName;
    bool m_bStarted = false;

    // Guarded by m_mutex, which is taken last: the store is locked while it delivers.
    mutable std::mutex m_mutex;
    std::condition_variable m_delivered;
    std::uint64_t m_ullDeliveries = 0;
    std::uint64_t m_ullChanges = 0;
    CRecordBook m_mapRecords;
};
