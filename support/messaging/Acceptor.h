#pragma once

#include "Session.h"

#include <functional>
#include <set>

namespace Messaging {

/// Takes connections and keeps them until they have greeted. Strangers get little: so many at once, so many from one
/// address, so much time.
///
/// Threads    listen: any, before the others. All others: the I/O thread.
class CAcceptor final : public std::enable_shared_from_this<CAcceptor>, private CSession::IOwner
{
public:
    /// @param fnGreeted  takes over a session that has greeted
    CAcceptor(CNodeParts& parts, std::function<void(const std::shared_ptr<CSession>&)> fnGreeted);

    /// Listens on the local address. @return false, with the reason, when it cannot
    bool listen(std::string* psError);
    void start();
    void stop();
    void tick(CSession::CClock::time_point tpNow);
    std::size_t pending() const { return m_setPending.size(); }

private:
    void onGreeted(const std::shared_ptr<CSession>& pSession) override;
    void onEnded(const std::shared_ptr<CSession>& pSession, const char* pszWhy) override;
    void onRequest(CSession&, const CFrame&) override {}
    void onAnswer(CSession&, const CFrame&) override {}
    void onPong(CSession&, const CPong&) override {}
    void acceptNext();
    void accepted(asio::ip::tcp::socket socket);
    void refuse(const std::string& sPeer, const char* pszWhy);

    CNodeParts& m_parts;
    const std::function<void(const std::shared_ptr<CSession>&)> m_fnGreeted;
    asio::ip::tcp::acceptor m_acceptor;
    bool m_bAccepting = false;
    std::set<std::shared_ptr<CSession>> m_setPending;
};

} // namespace Messaging
