#pragma once

#include "CDSAPI.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

/// The registrations that peers have made at this server, as its store tells a registrant with event "@".
///
/// Threads    notices come on the store's threads; everything may be called from any.
/// Ownership  the store calls back until the destructor has taken the registration back.
class CNodeRegistrations
{
public:
    struct CCount
    {
        std::size_t uCalls = 0;         ///< calls that a peer is registered for
        std::size_t uRegistrations = 0; ///< registrations of peers
        std::size_t uEnded = 0;         ///< registrations of peers that have ended, since the start
    };

    /// @param store  not initialized yet, so that the exchange with peers is seen to start
    CNodeRegistrations(CCDSAPI& store, std::string sServerIP) : m_store(store), m_sServerIP(std::move(sServerIP))
    {
        (void)m_store.Register(reinterpret_cast<unsigned long>(this), cNotices, m_sServerIP, "*", "@", onNotice, 1);
    }
    ~CNodeRegistrations() { (void)m_store.Unregister(cNotices); } // registered, so found
    CNodeRegistrations(const CNodeRegistrations&) = delete;
    CNodeRegistrations& operator=(const CNodeRegistrations&) = delete;

    /// Registrations that this server's own components make begin with this.
    static constexpr const char* cLocal = "local ";

    /// Whether the store exchanges calls with peers; asked when it has been initialized.
    bool exchanging() const
    {
        const std::lock_guard guard(m_mutex);
        return m_bExchanging;
    }
    CCount count() const
    {
        const std::lock_guard guard(m_mutex);
        return countLocked();
    }
    /// Waits until peers have exactly so many registrations for exactly so many calls.
    bool await(std::size_t uCalls, std::size_t uRegistrations, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit,
                                  [&] { return m_mapOfPeers.size() == uCalls && m_uRegistrations == uRegistrations; });
    }
    /// Waits until so many registrations of peers have ended since the start.
    bool awaitEnded(std::size_t uEnded, std::chrono::milliseconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_uEnded >= uEnded; });
    }

private:
    static constexpr const char* cNotices = "local notices";

    static long onNotice(CCallbackMsg* pMessage)
    {
        if (const auto* const pNotice = dynamic_cast<CRegistrationData*>(pMessage->getCallbackData());
            pNotice != nullptr)
            reinterpret_cast<CNodeRegistrations*>(pMessage->getReqHandle())->take(*pNotice);
        return 0;
    }
    void take(const CRegistrationData& notice)
    {
        std::string sRegID;
        std::string sCallID;
        std::string sServerIP;
        bool bRegister = false;
        (void)notice.getRegID(&sRegID); // always 0, here and below
        (void)notice.getCallID(&sCallID);
        (void)notice.getCDSIPAddr(&sServerIP);
        (void)notice.getRegister(&bRegister);
        // What a peer asks for is this server's; what this server's components ask for of others is theirs.
        if (sRegID.starts_with(cLocal) || sServerIP != m_sServerIP)
            return;
        const std::lock_guard guard(m_mutex);
        if (sCallID == "*") // the exchange registers for everything when it has started
            m_bExchanging = bRegister;
        else if (bRegister)
            m_uRegistrations += m_mapOfPeers[sCallID].insert(sRegID).second ? 1 : 0;
        else if (const auto it = m_mapOfPeers.find(sCallID); it != m_mapOfPeers.end() && it->second.erase(sRegID) != 0)
        {
            --m_uRegistrations;
            ++m_uEnded;
            if (it->second.empty())
                m_mapOfPeers.erase(it);
        }
        m_changed.notify_all();
    }
    CCount countLocked() const { return {m_mapOfPeers.size(), m_uRegistrations, m_uEnded}; }

    CCDSAPI& m_store;
    const std::string m_sServerIP;

    // Guarded by m_mutex, which is taken last: the store is locked while it delivers.
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_bExchanging = false;
    std::map<std::string, std::set<std::string>> m_mapOfPeers; // record ID -> registration IDs
    std::size_t m_uRegistrations = 0;
    std::size_t m_uEnded = 0;
};
