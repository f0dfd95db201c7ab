#pragma once

#include "CDSAPI.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Where finished calls' records go, and what of them may wait here.
struct CHeadQuarters
{
    std::string sAddress;                     ///< IPv4; empty: nowhere
    unsigned long ulCacheBytes = 64UL << 20U; ///< of values; when there is no room, what came last is given up
    unsigned long ulExpiryMinutes = 1440;     ///< what could not be sent for so long is given up
};

/// Sends the records of finished calls to the server that collects them.
///
/// Threads  one thread.
class CCdrSender
{
public:
    struct CCounts
    {
        std::uint64_t ullSent = 0;     ///< handed to the store, which sends them until they are acknowledged
        std::uint64_t ullTooLarge = 0; ///< refused: larger than all that may wait
        std::uint64_t ullFailed = 0;   ///< the store had no data, or did not take it
        std::string sFirstComplaint;   ///< about the first that was not sent
    };

    /// @param store      its limits are set; outlives the sender
    /// @param sServerIP  this server's address
    CCdrSender(CCDSAPI& store, std::string sServerIP, CHeadQuarters headQuarters);
    ~CCdrSender();
    CCdrSender(const CCdrSender&) = delete;
    CCdrSender& operator=(const CCdrSender&) = delete;

    /// Registers as who reads records.
    ///
    /// @return 0, or the store's negative code
    [[nodiscard]] long start();

    /// Sends what the store has of a call. Called while somebody is still registered for it: its data is there then.
    /// Must not run in a callback of the store.
    void send(const std::string& sRecordID);

    /// Waits until nothing waits any more.
    ///
    /// @param limit       how long nothing may leave
    /// @param fnProgress  told how many are still waiting, about every five seconds
    /// @return false when some are left
    bool awaitSent(std::chrono::seconds limit, const std::function<void(unsigned long)>& fnProgress);

    const CCounts& counts() const noexcept { return m_counts; }
    const CHeadQuarters& headQuarters() const noexcept { return m_headQuarters; }

private:
    static long onRecord(CCallbackMsg* pMessage);
    void complain(const std::string& sRecordID, const std::string& sWhy);

    CCDSAPI& m_store;
    const std::string m_sServerIP;
    const CHeadQuarters m_headQuarters;
    std::unique_ptr<CCallData> m_pRecord; // copy of the record asked for
    CCounts m_counts;
};
