#pragma once

#include "CCMLibraryX.h"
#include "ChannelLog.h"
#include "ChannelSettings.h"
#include "Connection.h"
#include "EndStream.h"
#include "EventStream.h"

#include <memory>

namespace Messaging {

/// What the parts of a node share. Constant while the node runs.
struct CNodeParts
{
    CChannelSettings settings;
    std::uint64_t ullService = 0;
    CInstance instance{};              ///< tells this start of the server from every other
    std::unique_ptr<CTlsContext> pTls; ///< null: in the clear
    std::shared_ptr<CChannelLog> pLog;
    asio::io_context io{1};
    CEventStream requests{CMLIB_SERVER_CONNECTED, CMLIB_SERVER_DISCONNECTED}; ///< the server channel's
    CEventStream changes{CMLIB_CLIENT_CONNECTED, CMLIB_CLIENT_DISCONNECTED};  ///< the client channel's
    CEndStream ends;                                                          ///< the client channel's
    std::uint32_t dwLastSession = 0;                                          ///< I/O thread only
};

/// One connection to a peer from the greeting to its end: an epoch.
///
/// Threads    send, queued, lastTaken, endSoon and what is constant: any. All others: the I/O thread, on which the
/// owner is called.
class CSession final : public std::enable_shared_from_this<CSession>, private CConnection::IUser
{
public:
    using CClock = std::chrono::steady_clock;

    enum EStage
    {
        opening,  ///< connecting, proving who is who
        greeting, ///< connected; the greeting or its answer is due
        parked,   ///< greeted by the peer, not answered yet
        running,
        over
    };

    /// Who is told what happens.
    class IOwner
    {
    public:
        /// The peer greeted, or answered the greeting. The owner calls start or end, now or later.
        virtual void onGreeted(const std::shared_ptr<CSession>& pSession) = 0;
        /// Called once, unless the owner ended it.
        virtual void onEnded(const std::shared_ptr<CSession>& pSession, const char* pszWhy) = 0;
        // Of a running session.
        virtual void onRequest(CSession& session, const CFrame& frame) = 0;
        virtual void onAnswer(CSession& session, const CFrame& frame) = 0;
        virtual void onPong(CSession& session, const CPong& pong) = 0;

    protected:
        ~IOwner() = default;
    };

    CSession(CNodeParts& parts, std::uint32_t dwPeer, IOwner* pOwner);
    ~CSession();
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;

    void accept(asio::ip::tcp::socket socket);
    void connect();
    void setOwner(IOwner* pOwner) { m_pOwner = pOwner; }
    /// The greeting is done: answers it if it was the peer's, and lets messages pass. The owner is not called before
    /// this returns.
    void start();
    /// Ends the session; the owner is not told.
    void end();
    /// Ends it when something takes too long. Then the owner is told.
    void checkLimits(CClock::time_point tpNow);

    EStage stage() const { return m_eStage; }
    bool accepted() const { return m_bAccepted; }
    std::uint32_t peer() const { return m_dwPeer; }
    std::uint32_t number() const { return m_dwNumber; }
    /// Whether another connection's greeting was sent before this connection was made, by the same start of the peer:
    /// the peer has given that one up.
    bool isNewerThan(const CSession& other) const
    {
        return m_helloOfPeer.instance == other.m_helloOfPeer.instance &&
               m_helloOfPeer.dwNumber >= other.m_helloOfPeer.dwNumber;
    }
    const std::shared_ptr<CInboundBudget>& budget() const { return m_pBudget; }

    bool sendExchange(EFrame eType, std::uint32_t dwExchange, std::span<const char> body);
    bool sendPing(std::uint64_t ullStamp);
    std::size_t queued() { return m_pConnection->queued(); }
    CClock::time_point lastTaken() { return m_pConnection->lastTaken(); }
    void endSoon(const char* pszWhy) { m_pConnection->endSoon(pszWhy); }

private:
    void onOpen() override;
    bool onFrame(const CFrame& frame) override;
    bool mayRead() override;
    void onBroken(const char* pszWhy) override;
    bool onGreeting(const CFrame& frame);
    bool onMessage(const CFrame& frame);
    bool fail(const char* pszWhy);
    void greet(EFrame eType, std::uint32_t dwNumber);
    void answerPing(std::uint64_t ullStamp);

    CNodeParts& m_parts;
    const std::uint32_t m_dwPeer;
    const std::uint32_t m_dwNumber;
    const std::shared_ptr<CConnection> m_pConnection;
    std::shared_ptr<CInboundBudget> m_pBudget;

    // I/O thread only.
    IOwner* m_pOwner;
    EStage m_eStage = opening;
    bool m_bAccepted = false;
    CHello m_helloOfPeer;
    CClock::time_point m_tpStage = CClock::now();
};

} // namespace Messaging
