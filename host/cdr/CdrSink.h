#pragma once

#include "CDSCallbackMsg.h"
#include "cdr/CdrDatabase.h"
#include "cdr/RefusedCdrs.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// What operators are told of.
enum class ECdrEvent
{
    refused,    ///< the database does not take a record; it is kept in a file
    lost,       ///< nor could it be kept
    differs,    ///< a record came again with other content, which is dropped
    recovered,  ///< the database has all records again that it refused
    unreadable, ///< a file of a refused record is none
};

/// Writes the CDRs that come from other servers into a database, each before its sender is answered. The sender takes
/// every answer for a yes and forgets its record, so one that the database refuses is kept in a file: it is tried again
/// with the program's start, as soon as the database takes another, and every few seconds.
///
/// Threads    the callback comes on the store's worker thread, which does nothing else meanwhile: a database's waits
/// are
///            bounded. Refused records are written by a thread of the sink's own.
/// Ownership  database and refused records outlive the sink; the sink outlives the store's exchange with others.
class CCdrSink
{
public:
    using CReport = std::function<void(ECdrEvent, const std::string&)>;

    struct CCounts
    {
        std::uint64_t ullReceived = 0;
        std::uint64_t ullStored = 0;    ///< of those that came
        std::uint64_t ullPresent = 0;   ///< came again, the same
        std::uint64_t ullDiffering = 0; ///< came again, with other content
        std::uint64_t ullRefused = 0;   ///< by the database
        std::uint64_t ullLost = 0;      ///< of those refused
        std::uint64_t ullRecovered = 0; ///< written later
        std::uint64_t ullWaiting = 0;   ///< in files now
    };

    /// Starts with the refused records that are there.
    ///
    /// @param fnReport     called on any thread, one at a time; does not throw, and takes no time
    /// @param retryPause   between tries to write what was refused
    CCdrSink(CCdrDatabase& database, CRefusedCdrs& refused, CReport fnReport,
             std::chrono::milliseconds retryPause = std::chrono::seconds{10});
    ~CCdrSink();
    CCdrSink(const CCdrSink&) = delete;
    CCdrSink& operator=(const CCdrSink&) = delete;

    /// What CCDSAPI::SetCDRDataCallBack gets. Hands the message to the process's one sink.
    static long onCdr(CCallbackMsg* pMsg);

    /// Writes a record.
    ///
    /// @return 0: the database has it, and message and payload are deleted; negative: it has not, and they are still
    /// the
    ///         caller's
    long take(CCallbackMsg* pMsg) noexcept;

    CCounts counts() const;
    /// Waits until no refused record is left.
    ///
    /// @return whether there is none, before the time ran out
    bool awaitRecovered(std::chrono::milliseconds limit);

private:
    bool write(CCallData& data, const CCallbackMsg& msg);
    void count(ECdrWrite eWrite, const CCdrRow& row);
    void refuse(CCallData& data, const CRefusedCdr& cdr, const std::string& sWhy);
    void report(ECdrEvent eEvent, const std::string& sText) noexcept;
    void reportLoss() noexcept;
    void recover();
    bool recoverNext(const std::string& sName);
    void recoverRound(std::unique_lock<std::mutex>& lock);

    static std::atomic<CCdrSink*> s_pSink;

    const CReport m_fnReport;
    const std::chrono::milliseconds m_retryPause;

    // Guarded by m_mutex.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    CCdrDatabase& m_database;
    CRefusedCdrs& m_refused;
    CCounts m_counts;
    std::uint64_t m_ullRecoveredUntold = 0; // since the last event
    std::string m_sLastTried;               // where the last round ended
    bool m_bFailing = false;                // the last write of a record that came failed
    bool m_bRecoverNow = true;
    bool m_bStop = false;
    std::thread m_thread;
};
