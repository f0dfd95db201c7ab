#include "Session.h"

#include "CPortable.h"

#include <asio/post.hpp>

namespace Messaging {
namespace {
/// A peer that does not read what it asked for is not answered any more.
constexpr std::size_t cPongQueue = 65'536;
} // namespace

CSession::CSession(CNodeParts& parts, std::uint32_t dwPeer, IOwner* pOwner)
    : m_parts(parts),
      m_dwPeer(dwPeer),
      m_dwNumber(++parts.dwLastSession),
      m_pConnection(
          std::make_shared<CConnection>(parts.io, parts.pTls.get(), dwPeer, static_cast<CConnection::IUser*>(this))),
      m_pOwner(pOwner)
{
    m_pBudget = std::make_shared<CInboundBudget>(parts.settings.dwReceiveQueueBytes,
                                                 [&io = parts.io, pWeak = std::weak_ptr<CConnection>(m_pConnection)] {
                                                     if (const auto pConnection = pWeak.lock())
                                                         asio::post(io, [pConnection] { pConnection->resume(); });
                                                 });
}

CSession::~CSession()
{
    m_pConnection->close();
}

void CSession::accept(asio::ip::tcp::socket socket)
{
    m_bAccepted = true;
    m_pConnection->accept(std::move(socket));
}

void CSession::connect()
{
    m_pConnection->connect(m_parts.settings.dwAddress, m_parts.settings.wPort);
}

void CSession::onOpen()
{
    m_eStage = greeting;
    m_tpStage = CClock::now();
    if (!m_bAccepted)
        greet(EFrame::hello, m_dwNumber);
}

void CSession::greet(EFrame eType, std::uint32_t dwNumber)
{
    const CHello hello{cProtocolVersion, m_parts.ullService, m_parts.instance, dwNumber};
    (void)m_pConnection->send([&](std::string* psOut) { appendHello(psOut, eType, hello); });
}

void CSession::start()
{
    if (m_bAccepted)
        greet(EFrame::welcome, m_parts.dwLastSession);
    m_eStage = running;
    m_pConnection->setFrameLimit(static_cast<std::uint32_t>(cExchangeHead) + m_parts.settings.dwMessageBytes);
    m_pConnection->resume(); // when it was parked
}

void CSession::end()
{
    m_eStage = over;
    m_pOwner = nullptr;
    m_pConnection->close();
}

void CSession::checkLimits(CClock::time_point tpNow)
{
    const CChannelSettings& settings = m_parts.settings;
    switch (m_eStage)
    {
    case opening:
        if (tpNow - m_tpStage > settings.connectLimit)
            onBroken("not connected in time");
        break;
    case greeting:
    case parked:
        if (tpNow - m_tpStage > settings.greetingLimit)
            onBroken("no greeting in time");
        break;
    case running:
        if (!m_pConnection->paused() && tpNow - m_pConnection->lastReceived() > settings.silenceLimit)
            onBroken("the peer is silent");
        else if (tpNow - m_pConnection->lastTaken() > settings.silenceLimit)
            onBroken("the peer does not read");
        break;
    case over: break;
    }
}

bool CSession::sendExchange(EFrame eType, std::uint32_t dwExchange, std::span<const char> body)
{
    return m_pConnection->send([&](std::string* psOut) { appendExchange(psOut, eType, dwExchange, body); });
}

bool CSession::sendPing(std::uint64_t ullStamp)
{
    return m_pConnection->send([&](std::string* psOut) { appendPing(psOut, ullStamp); });
}

bool CSession::onFrame(const CFrame& frame)
{
    return m_eStage == running ? onMessage(frame) : onGreeting(frame);
}

bool CSession::onGreeting(const CFrame& frame)
{
    if (m_eStage != greeting || frame.eType != (m_bAccepted ? EFrame::hello : EFrame::welcome) ||
        !readHello(frame.body, &m_helloOfPeer))
        return fail("no greeting");
    if (m_helloOfPeer.ullService != m_parts.ullService)
        return fail("the peer means another service");
    if (!m_bAccepted && m_helloOfPeer.wVersion != cProtocolVersion)
        return fail("the peer speaks another version");
    if (m_bAccepted)
        m_eStage = parked; // so far there is one version, and whoever speaks a newer one speaks it too
    const auto pSelf = shared_from_this();
    m_pOwner->onGreeted(pSelf);
    return m_eStage != over;
}

bool CSession::onMessage(const CFrame& frame)
{
    std::uint64_t ullStamp = 0;
    CPong pong;
    switch (frame.eType)
    {
    case EFrame::request: m_pOwner->onRequest(*this, frame); break;
    case EFrame::response:
    case EFrame::refusal: m_pOwner->onAnswer(*this, frame); break;
    case EFrame::ping:
        if (!readPing(frame.body, &ullStamp))
            return fail("a ping that is none");
        answerPing(ullStamp);
        break;
    case EFrame::pong:
        if (!readPong(frame.body, &pong))
            return fail("a pong that is none");
        m_pOwner->onPong(*this, pong);
        break;
    case EFrame::hello:
    case EFrame::welcome: return fail("a second greeting");
    }
    return m_eStage != over;
}

void CSession::answerPing(std::uint64_t ullStamp)
{
    if (queued() > cPongQueue)
        return;
    CPong pong;
    pong.ullStamp = ullStamp;
    unsigned long long ullFileTime = 0;
    CPortable::GetCurrentULLFileTimeUTC(&ullFileTime);
    pong.ullFileTime = ullFileTime;
    pong.ullTicks = CPortable::GetTickCountULL();
    (void)m_pConnection->send([&](std::string* psOut) { appendPong(psOut, pong); });
}

bool CSession::mayRead()
{
    return m_eStage != parked && !m_pBudget->exceeded();
}

bool CSession::fail(const char* pszWhy)
{
    onBroken(pszWhy);
    return false;
}

void CSession::onBroken(const char* pszWhy)
{
    const auto pSelf = shared_from_this(); // the owner lets go
    IOwner* const pOwner = m_pOwner;
    end();
    if (pOwner)
        pOwner->onEnded(pSelf, pszWhy);
}

} // namespace Messaging
