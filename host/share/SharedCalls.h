#pragma once

#include "CDSAPI.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <vector>

/// The calls of this server as other servers see them: which are registered for, and what their records are.
///
/// Threads    notices come on the store's threads; everything may be called from any.
/// Ownership  the store calls back until the destructor has taken the registrations back.
class CSharedCalls
{
public:
    /// @param store  not initialized yet, so that the exchange with other servers is seen to start; outlives this
    CSharedCalls(CCDSAPI& store, std::string sServerIP);
    ~CSharedCalls();
    CSharedCalls(const CSharedCalls&) = delete;
    CSharedCalls& operator=(const CSharedCalls&) = delete;

    /// Registers for the notices of registrations.
    ///
    /// @return 0, or the store's negative code
    [[nodiscard]] long start();

    /// Whether the store exchanges calls with other servers; asked when it has been initialized.
    bool exchanging() const;

    /// Waits until other servers have registered for all these calls. Registrations made on this server count too:
    /// ask before it makes any.
    ///
    /// @return whether they have, before the time ran out
    bool awaitRegistered(const std::vector<std::string>& vecRecordIDs, std::chrono::seconds limit);
    /// Waits until nobody is registered for any of these calls any more.
    bool awaitLeft(const std::vector<std::string>& vecRecordIDs, std::chrono::seconds limit);

    /// Writes what the store holds of these calls, as record lines and the end line. A call of which it holds nothing
    /// has no line.
    void writeRecords(std::ostream& out, const std::vector<std::string>& vecRecordIDs);

private:
    static long onNotice(CCallbackMsg* pMessage);
    static long onRecord(CCallbackMsg* pMessage);
    bool isRegistered(const std::string& sRecordID) const { return m_mapRegistered.contains(sRecordID); }

    CCDSAPI& m_store;
    const std::string m_sServerIP;

    // Guarded by m_mutex, which is taken last: the store is locked while it delivers.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<std::string, std::set<std::string>> m_mapRegistered; // record ID, or "*" -> registration IDs
    std::string m_sRecord;                                        // text of the record asked for
};
