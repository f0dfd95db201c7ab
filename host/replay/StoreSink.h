#pragma once

#include "CDSAPI.h"
#include "calls/CallSink.h"

#include <chrono>
#include <cstdint>
#include <set>
#include <string>

/// Writes calls into the store: a registration for each while its signalling lasts, and one update for what each
/// message changed. This server owns the records, so the store delivers a call's data a last time some while after the
/// registration has gone. A replay runs faster than that: a call that has ended does not begin again, else two calls of
/// the same Call-ID would become one record with two ends.
///
/// Not bounded: remembers every call that has ended, as the registrants of a replay do.
///
/// Threads  one thread.
class CStoreSink final : public CCallSink
{
public:
    /// @param store      initialized, outlives the sink
    /// @param sServerIP  the address the store was initialized with
    CStoreSink(CCDSAPI& store, std::string sServerIP);
    /// Takes back the registrations of calls that are still open.
    ~CStoreSink();
    CStoreSink(const CStoreSink&) = delete;
    CStoreSink& operator=(const CStoreSink&) = delete;

    [[nodiscard]] bool onCallBegin(const std::string& sRecordID) override;
    void onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges) override;
    void onCallEnd(const std::string& sRecordID) override;

    std::uint64_t updates() const noexcept { return m_ullUpdates; }
    std::uint64_t failures() const noexcept { return m_ullFailures; }
    /// Calls that have ended: so many last deliveries are to come.
    std::uint64_t ended() const noexcept { return m_setEnded.size(); }
    /// Code of the first failure; 0 when there was none.
    long firstFailure() const noexcept { return m_lFirstFailure; }
    /// Time spent in the store's update operation, deliveries included.
    std::chrono::nanoseconds updateTime() const noexcept { return m_updateTime; }

private:
    void note(long lResult);

    CCDSAPI& m_store;
    const std::string m_sServerIP;
    std::set<std::string> m_setOpen;  // record IDs
    std::set<std::string> m_setEnded; // record IDs
    std::uint64_t m_ullUpdates = 0;
    std::uint64_t m_ullFailures = 0;
    long m_lFirstFailure = 0;
    std::chrono::nanoseconds m_updateTime{0};
};
