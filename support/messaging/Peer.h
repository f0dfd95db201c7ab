#pragma once

#include "ExchangeTable.h"
#include "PeerClock.h"
#include "Session.h"

#include <condition_variable>
#include <random>
#include <string>

#include <asio/steady_timer.hpp>

namespace Messaging {

/// One peer: whether it is up, the connection to it, the requests under way, its clock.
///
/// There is one connection for both directions, so that a peer is up or down as a whole. Either side makes it. When
/// both try at once, the side with the higher address lets its own attempt go as soon as the other's greeting arrives;
/// the side with the lower address lets the other's wait until its own attempt has ended.
///
/// Threads    sendRequest, sendResponse, readClock and describe: any. All others: the I/O thread.
class CPeer final : private CSession::IOwner
{
public:
    using CClock = std::chrono::steady_clock;

    CPeer(CNodeParts& parts, std::uint32_t dwPeer);

    long sendRequest(unsigned long ulRequestID, std::span<const char> body, std::chrono::seconds limit);
    long sendResponse(std::uint32_t dwSession, std::uint32_t dwExchange, std::span<const char> body);
    /// What the peer's clocks show, after 250 ms at the most.
    long readClock(CPeerClock::CReading* pReading);
    std::string describe();

    /// A connection that the peer made has brought its greeting.
    void admit(const std::shared_ptr<CSession>& pSession);
    void tick(CClock::time_point tpNow);
    /// Ends what there is and makes no connection until somebody asks for one.
    void drop(const char* pszWhy);
    /// Announces the running connection in a stream that was just opened.
    void announce(CEventStream* pStream);

private:
    enum EState
    {
        idle,       ///< nobody asked for it
        connecting, ///< on the way up; requests wait
        up,
        down ///< the last attempt has failed
    };
    struct CWaiting
    {
        unsigned long ulRequestID;
        CClock::time_point tpDeadline;
        std::string sBody;
    };

    void onGreeted(const std::shared_ptr<CSession>& pSession) override;
    void onEnded(const std::shared_ptr<CSession>& pSession, const char* pszWhy) override;
    void onRequest(CSession& session, const CFrame& frame) override;
    void onAnswer(CSession& session, const CFrame& frame) override;
    void onPong(CSession& session, const CPong& pong) override;

    void goUp(const std::shared_ptr<CSession>& pSession);
    void begin(const std::shared_ptr<CSession>& pSession);
    void lose(const char* pszWhy);
    void attempt();
    void attemptFailed(const char* pszWhy);
    void attemptAfter(std::chrono::milliseconds pause);
    std::chrono::milliseconds jittered(std::chrono::milliseconds pause);
    void endAll(const std::vector<unsigned long>& vecRequests, long lResult);
    long refuseForNow(CClock::time_point tpNow, std::size_t uBytes);
    bool isStuck(CClock::time_point tpNow);
    void askForConnection();
    std::vector<unsigned long> takeWaiting();

    CNodeParts& m_parts;
    const std::uint32_t m_dwPeer;
    const std::string m_sName;

    // I/O thread only.
    std::shared_ptr<CSession> m_pAttempt;
    std::shared_ptr<CSession> m_pParked;
    asio::steady_timer m_timer;
    std::chrono::milliseconds m_pause{0}; // after the last failure
    std::minstd_rand m_random;
    int m_nAnnounced = 0; // streams that were told of the session

    // Guarded by m_mtx; the session is set on the I/O thread only, which reads it without the lock.
    std::mutex m_mtx;
    std::condition_variable m_cvClock;
    EState m_eState = idle;
    bool m_bKeep = false; // try until it is up
    std::shared_ptr<CSession> m_pSession;
    CExchangeTable m_exchanges;
    std::deque<CWaiting> m_lstWaiting;
    std::size_t m_uWaitingBytes = 0;
    CPeerClock m_clock;
    CClock::time_point m_tpClockPause{}; // until then nobody waits for the clock
    CClock::time_point m_tpPinged{};
    CClock::time_point m_tpAsked{};                 // for a connection
    std::optional<CClock::time_point> m_optRefused; // first refusal since a request was last taken
    std::size_t m_uRefusedBytes = 0;                // the most that was refused since
    CClock::time_point m_tpAnswered{};              // the last answer of the peer
};

} // namespace Messaging
