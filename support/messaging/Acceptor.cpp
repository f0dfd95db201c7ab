#include "Acceptor.h"

#include <algorithm>
#include <vector>

namespace Messaging {
namespace {
constexpr std::size_t cPending = 256;
constexpr std::ptrdiff_t cPendingOfOne = 8;
} // namespace

CAcceptor::CAcceptor(CNodeParts& parts, std::function<void(const std::shared_ptr<CSession>&)> fnGreeted)
    : m_parts(parts), m_fnGreeted(std::move(fnGreeted)), m_acceptor(parts.io)
{
}

bool CAcceptor::listen(std::string* psError)
{
    using asio::ip::tcp;
    const tcp::endpoint endpoint(asio::ip::address_v4(m_parts.settings.dwAddress), m_parts.settings.wPort);
    asio::error_code error;
    m_acceptor.open(tcp::v4(), error);
    if (!error)
        m_acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error)
        m_acceptor.bind(endpoint, error);
    if (!error)
        m_acceptor.listen(tcp::acceptor::max_listen_connections, error);
    if (!error)
        return true;
    *psError = "cannot listen on " + addressText(m_parts.settings.dwAddress) + ":" +
               std::to_string(m_parts.settings.wPort) + ": " + error.message();
    asio::error_code ignored; // it was of no use anyway
    m_acceptor.close(ignored);
    return false;
}

void CAcceptor::start()
{
    acceptNext();
}

void CAcceptor::stop()
{
    asio::error_code ignored; // closed is closed
    m_acceptor.close(ignored);
    for (const auto& pSession : m_setPending)
        pSession->end();
    m_setPending.clear();
}

void CAcceptor::acceptNext()
{
    m_bAccepting = true;
    m_acceptor.async_accept([pSelf = shared_from_this()](const asio::error_code& error, asio::ip::tcp::socket socket) {
        pSelf->m_bAccepting = false;
        if (error || !pSelf->m_acceptor.is_open()) // no descriptors left, perhaps: the next tick tries again
            return;
        pSelf->accepted(std::move(socket));
        pSelf->acceptNext();
    });
}

void CAcceptor::accepted(asio::ip::tcp::socket socket)
{
    asio::error_code error;
    const auto endpoint = socket.remote_endpoint(error);
    if (error)
        return;
    const std::uint32_t dwPeer = endpoint.address().to_v4().to_uint();
    if (dwPeer == m_parts.settings.dwAddress)
        return refuse(addressText(dwPeer), "it has our own address");
    if (m_setPending.size() >= cPending ||
        std::count_if(m_setPending.begin(), m_setPending.end(),
                      [dwPeer](const auto& pSession) { return pSession->peer() == dwPeer; }) >= cPendingOfOne)
        return refuse(addressText(dwPeer), "too many connections without a greeting");
    const auto pSession = std::make_shared<CSession>(m_parts, dwPeer, static_cast<CSession::IOwner*>(this));
    m_setPending.insert(pSession);
    pSession->accept(std::move(socket));
}

void CAcceptor::onGreeted(const std::shared_ptr<CSession>& pSession)
{
    m_setPending.erase(pSession);
    m_fnGreeted(pSession);
}

void CAcceptor::onEnded(const std::shared_ptr<CSession>& pSession, const char* pszWhy)
{
    m_setPending.erase(pSession);
    refuse(addressText(pSession->peer()), pszWhy);
}

void CAcceptor::refuse(const std::string& sPeer, const char* pszWhy)
{
    m_parts.pLog->event(cEventRefused, KRLogLib::CLogFile::re_warning,
                        "connection from " + sPeer + " refused: " + pszWhy);
}

void CAcceptor::tick(CSession::CClock::time_point tpNow)
{
    // Those whose time is over leave the set.
    const std::vector<std::shared_ptr<CSession>> vecPending(m_setPending.begin(), m_setPending.end());
    for (const auto& pSession : vecPending)
        pSession->checkLimits(tpNow);
    if (!m_bAccepting && m_acceptor.is_open())
        acceptNext();
}

} // namespace Messaging
