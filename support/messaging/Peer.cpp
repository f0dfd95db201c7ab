#include "Peer.h"

#include "ChannelResults.h"

#include <algorithm>

#include <asio/post.hpp>

namespace Messaging {
namespace {
constexpr std::size_t cOpenExchanges = 262'144;
/// A caller retries a queue that is full for a second. A queue that is full for longer than this loses its peer before
/// the caller gives up, so that what was refused is known to be lost.
constexpr std::chrono::milliseconds cLongestRefusal{500};
/// A full queue of which nothing was taken for so long, by a peer that answers nothing either, does not drain: its peer
/// is lost at once, since whoever has something to send to others waits meanwhile. Longer than TCP waits before it
/// sends a lost packet again.
constexpr std::chrono::milliseconds cStuck{250};
constexpr std::chrono::milliseconds cClockWait{250};
/// So long after a wait in vain for the clock nobody waits for it.
constexpr std::chrono::seconds cClockPause{1};
} // namespace

CPeer::CPeer(CNodeParts& parts, std::uint32_t dwPeer)
    : m_parts(parts),
      m_dwPeer(dwPeer),
      m_sName(addressText(dwPeer)),
      m_timer(parts.io),
      m_random(std::random_device{}()),
      m_exchanges(cOpenExchanges)
{
}

long CPeer::sendRequest(unsigned long ulRequestID, std::span<const char> body, std::chrono::seconds limit)
{
    const CClock::time_point tpNow = CClock::now();
    const std::lock_guard lock(m_mtx);
    m_bKeep = true;
    switch (m_eState)
    {
    case down: return E_CHANNEL_DOWN;
    case up:
        if (m_pSession->queued() + body.size() > m_parts.settings.dwSendQueueBytes || m_exchanges.full())
            return refuseForNow(tpNow, body.size());
        m_optRefused.reset();
        {
            const std::uint32_t dwExchange = m_exchanges.add(ulRequestID, tpNow + limit);
            try
            {
                // When the connection is already closed, its end is about to end the exchange.
                (void)m_pSession->sendExchange(EFrame::request, dwExchange, body);
            }
            catch (...)
            {
                m_exchanges.takeBack();
                throw;
            }
        }
        return 0;
    case idle:
    case connecting: break;
    }
    // Nothing drains this queue before the connection stands, which is then announced.
    if (m_uWaitingBytes + body.size() > m_parts.settings.dwSendQueueBytes || m_lstWaiting.size() >= cOpenExchanges)
        return E_CHANNEL_FULL;
    if (m_eState == idle)
        askForConnection(); // first: what cannot be asked for does not wait either
    m_lstWaiting.push_back({ulRequestID, tpNow + limit, std::string(body.begin(), body.end())});
    m_uWaitingBytes += body.size();
    return 0;
}

/// Under m_mtx.
long CPeer::refuseForNow(CClock::time_point tpNow, std::size_t uBytes)
{
    if (!m_optRefused)
    {
        m_optRefused = tpNow;
        m_uRefusedBytes = 0;
    }
    m_uRefusedBytes = std::max(m_uRefusedBytes, uBytes);
    if (tpNow - *m_optRefused < cLongestRefusal && !isStuck(tpNow))
        return resultOf(CMLIB_NOTHING);
    m_pSession->endSoon("the peer does not keep up");
    return E_CHANNEL_LOST;
}

/// Under m_mtx.
bool CPeer::isStuck(CClock::time_point tpNow)
{
    return tpNow - std::max(m_pSession->lastTaken(), m_tpAnswered) >= cStuck;
}

/// Under m_mtx.
void CPeer::askForConnection()
{
    asio::post(m_parts.io, [this] { attempt(); }); // which waits for the lock
    m_eState = connecting;
    m_tpAsked = CClock::now();
}

long CPeer::sendResponse(std::uint32_t dwSession, std::uint32_t dwExchange, std::span<const char> body)
{
    const std::lock_guard lock(m_mtx);
    if (!m_pSession || m_pSession->number() != dwSession)
        return E_CHANNEL_LOST;
    // An answer that cannot be sent is lost, and with it the connection. Requests leave it some room.
    if (m_pSession->queued() + body.size() > 2UL * m_parts.settings.dwSendQueueBytes)
    {
        m_pSession->endSoon("the peer does not keep up");
        return E_CHANNEL_LOST;
    }
    return m_pSession->sendExchange(EFrame::response, dwExchange, body) ? 0 : E_CHANNEL_LOST;
}

long CPeer::readClock(CPeerClock::CReading* pReading)
{
    const CClock::time_point tpCalled = CClock::now();
    bool bWaited = false;
    std::unique_lock lock(m_mtx);
    const bool bPause = tpCalled < m_tpClockPause;
    const auto fnInVain = [&] {
        if (bWaited)
            m_tpClockPause = CClock::now() + cClockPause;
        return E_CHANNEL_NO_CLOCK;
    };
    for (CClock::time_point tpNow = tpCalled;; tpNow = CClock::now())
    {
        if (const auto optReading = m_clock.read(tpNow, m_parts.settings.silenceLimit))
        {
            *pReading = *optReading;
            return 0;
        }
        CClock::time_point tpSince = m_tpAsked;
        switch (m_eState)
        {
        case down: return fnInVain();
        case idle:
            askForConnection();
            tpSince = m_tpAsked;
            break;
        case connecting: break;
        case up:
            if (!m_clock.pinged())
                (void)m_pSession->sendPing(m_clock.ping(tpNow));
            tpSince = std::max(tpSince, *m_clock.pinged());
            break;
        }
        // Counted from when the question went out, if that was before the call: one dead peer holds a caller once. A
        // question that is asked anew meanwhile prolongs nothing.
        const CClock::time_point tpUntil = std::min(tpSince, tpCalled) + cClockWait;
        if (tpNow >= tpUntil || bPause)
            return fnInVain();
        m_cvClock.wait_until(lock, tpUntil);
        bWaited = true;
    }
}

void CPeer::admit(const std::shared_ptr<CSession>& pSession)
{
    pSession->setOwner(this);
    if (m_pSession && m_pSession->isNewerThan(*pSession))
    {
        pSession->end(); // the greeting was under way when the peer took our connection instead
        return;
    }
    if (m_pAttempt && m_pAttempt->stage() == CSession::greeting && m_parts.settings.dwAddress < m_dwPeer)
    {
        if (m_pParked)
            m_pParked->end();
        m_pParked = pSession;
        return;
    }
    if (m_pSession)
        lose("the peer has come back");
    goUp(pSession);
}

void CPeer::onGreeted(const std::shared_ptr<CSession>& pSession)
{
    if (m_pSession)
        lose("connected anew");
    goUp(pSession);
}

void CPeer::goUp(const std::shared_ptr<CSession>& pSession)
{
    for (std::shared_ptr<CSession>* const ppOther : {&m_pAttempt, &m_pParked})
    {
        if (*ppOther && *ppOther != pSession)
            (*ppOther)->end();
        ppOther->reset();
    }
    m_timer.cancel();
    m_pause = {};
    m_nAnnounced = 0;
    try
    {
        begin(pSession);
    }
    catch (...) // out of memory half-way: half a beginning is none
    {
        pSession->end();
        const std::lock_guard lock(m_mtx);
        m_pSession = pSession; // as lost, with what was handed over to it, by the next tick
        m_eState = connecting;
        throw;
    }
    m_cvClock.notify_all();
}

/// Lets a session begin. Whoever is waiting is at each moment in one of the two tables.
void CPeer::begin(const std::shared_ptr<CSession>& pSession)
{
    pSession->start();
    m_parts.pLog->line("peer " + m_sName + " connected, session " + std::to_string(pSession->number()) +
                       (pSession->accepted() ? ", by the peer" : ", by us"));
    const CClock::time_point tpNow = CClock::now();
    {
        const std::lock_guard lock(m_mtx);
        m_eState = up;
        m_bKeep = true;
        m_pSession = pSession;
        m_clock.reset();
        m_tpPinged = tpNow;
        (void)pSession->sendPing(m_clock.ping(tpNow));
        while (!m_lstWaiting.empty())
        {
            const std::uint32_t dwExchange =
                m_exchanges.add(m_lstWaiting.front().ulRequestID, m_lstWaiting.front().tpDeadline);
            const CWaiting waiting = std::move(m_lstWaiting.front());
            m_lstWaiting.pop_front();
            m_uWaitingBytes -= waiting.sBody.size();
            (void)pSession->sendExchange(EFrame::request, dwExchange, {waiting.sBody.data(), waiting.sBody.size()});
        }
    }
    // Who hears of it finds it up. What the peer sends comes later on this thread.
    m_parts.requests.connected(m_dwPeer, pSession->number());
    m_nAnnounced = 1;
    m_parts.changes.connected(m_dwPeer, pSession->number());
    m_nAnnounced = 2;
}

void CPeer::onEnded(const std::shared_ptr<CSession>& pSession, const char* pszWhy)
{
    if (pSession == m_pSession)
    {
        lose(pszWhy);
        // Both sides try at once, rarely at the same moment.
        attemptAfter(jittered(m_parts.settings.reconnectFirst) / 2);
    }
    else if (pSession == m_pParked)
    {
        m_pParked.reset();
    }
    else if (pSession == m_pAttempt)
    {
        m_pAttempt.reset();
        if (m_pParked)
            goUp(std::shared_ptr<CSession>(m_pParked));
        else
            attemptFailed(pszWhy);
    }
}

void CPeer::lose(const char* pszWhy)
{
    const std::shared_ptr<CSession> pSession = m_pSession;
    pSession->end();
    std::string sLine;
    std::vector<unsigned long> vecLost;
    {
        const std::lock_guard lock(m_mtx);
        // First what may fail for want of memory: then the next tick begins this once more.
        sLine = "peer " + m_sName + " disconnected, session " + std::to_string(pSession->number()) + ": " + pszWhy +
                ", " + std::to_string(m_exchanges.size()) + " requests unanswered";
        vecLost = m_exchanges.takeAll();
        m_pSession.reset();
        m_eState = connecting;
        m_tpAsked = CClock::now();
        m_clock.reset();
        m_optRefused.reset();
    }
    m_cvClock.notify_all();
    m_parts.pLog->line(sLine);
    endAll(vecLost, E_CHANNEL_LOST);
    if (m_nAnnounced > 0)
        m_parts.requests.disconnected(m_dwPeer, pSession->number());
    if (m_nAnnounced > 1)
        m_parts.changes.disconnected(m_dwPeer, pSession->number());
}

void CPeer::drop(const char* pszWhy)
{
    m_timer.cancel();
    for (std::shared_ptr<CSession>* const ppOther : {&m_pAttempt, &m_pParked})
    {
        if (*ppOther)
            (*ppOther)->end();
        ppOther->reset();
    }
    if (m_pSession)
        lose(pszWhy);
    std::vector<unsigned long> vecLost;
    {
        const std::lock_guard lock(m_mtx);
        m_eState = idle;
        m_bKeep = false;
        vecLost = takeWaiting();
    }
    m_cvClock.notify_all();
    endAll(vecLost, E_CHANNEL_LOST);
}

void CPeer::announce(CEventStream* pStream)
{
    if (m_pSession && m_nAnnounced == 2)
        pStream->connected(m_dwPeer, m_pSession->number());
}

void CPeer::attempt()
{
    if (m_pSession || m_pAttempt)
        return;
    {
        const std::lock_guard lock(m_mtx);
        if (m_eState == idle || (m_eState == down && !m_bKeep))
        {
            m_eState = idle;
            return;
        }
    }
    m_pAttempt = std::make_shared<CSession>(m_parts, m_dwPeer, static_cast<CSession::IOwner*>(this));
    m_pAttempt->connect();
}

void CPeer::attemptFailed(const char* pszWhy)
{
    std::vector<unsigned long> vecLost;
    bool bNews = false;
    {
        const std::lock_guard lock(m_mtx);
        bNews = m_eState != down;
        m_eState = down;
        vecLost = takeWaiting();
    }
    m_cvClock.notify_all();
    if (bNews)
        m_parts.pLog->line("peer " + m_sName + " is down: " + pszWhy);
    endAll(vecLost, E_CHANNEL_DOWN);
    m_pause =
        m_pause.count() == 0 ? m_parts.settings.reconnectFirst : std::min(2 * m_pause, m_parts.settings.reconnectMost);
    attemptAfter(jittered(m_pause));
}

void CPeer::attemptAfter(std::chrono::milliseconds pause)
{
    m_timer.expires_after(pause);
    m_timer.async_wait([this](const asio::error_code& error) {
        if (!error)
            attempt();
    });
}

/// Between a half and the whole.
std::chrono::milliseconds CPeer::jittered(std::chrono::milliseconds pause)
{
    return std::chrono::milliseconds(std::uniform_int_distribution(pause.count() / 2, pause.count())(m_random));
}

void CPeer::tick(CClock::time_point tpNow)
{
    // Each may end on this occasion.
    for (const auto& pSession : {m_pAttempt, m_pParked, m_pSession})
    {
        if (!pSession)
            continue;
        if (pSession->stage() == CSession::over)
            onEnded(pSession, "its end was cut short"); // by a lack of memory: nobody else would end it now
        else
            pSession->checkLimits(tpNow);
    }
    std::vector<unsigned long> vecUnanswered;
    std::vector<unsigned long> vecExpired;
    {
        const std::lock_guard lock(m_mtx);
        vecUnanswered = m_exchanges.takeExpired(tpNow);
        for (auto it = m_lstWaiting.begin(); it != m_lstWaiting.end();)
        {
            if (it->tpDeadline > tpNow)
            {
                ++it;
                continue;
            }
            vecExpired.push_back(it->ulRequestID);
            m_uWaitingBytes -= it->sBody.size();
            it = m_lstWaiting.erase(it);
        }
        if (m_pSession && m_optRefused)
        {
            // Nobody may try again to find out.
            const std::size_t uQueued = m_pSession->queued();
            if (uQueued <= m_parts.settings.dwSendQueueBytes / 2 &&
                uQueued + m_uRefusedBytes <= m_parts.settings.dwSendQueueBytes && !m_exchanges.full())
                m_optRefused.reset();
            else if (isStuck(tpNow))
                m_pSession->endSoon("the peer does not keep up");
        }
        if (m_pSession && tpNow - m_tpPinged >= m_parts.settings.heartbeat)
        {
            m_tpPinged = tpNow;
            (void)m_pSession->sendPing(m_clock.ping(tpNow));
        }
    }
    endAll(vecExpired, E_CHANNEL_TIMEOUT);
    endAll(vecUnanswered, E_CHANNEL_TIMEOUT);
    // Nobody knows whether the peer has dealt with them: both sides start afresh.
    if (!vecUnanswered.empty() && m_pSession)
        m_pSession->endSoon("an answer is overdue");
}

void CPeer::onRequest(CSession& session, const CFrame& frame)
{
    CReceivedItem item;
    item.dwPeer = m_dwPeer;
    item.dwSession = session.number();
    item.dwExchange = frame.dwExchange;
    item.body = CBody(frame.body);
    item.pBudget = session.budget();
    if (!m_parts.requests.add(std::move(item)))
        (void)session.sendExchange(EFrame::refusal, frame.dwExchange, {});
}

void CPeer::onAnswer(CSession& session, const CFrame& frame)
{
    CExchangeEnd item;
    if (frame.eType == EFrame::response)
    {
        item.body = CBody(frame.body); // first: without memory the exchange has not ended
        item.pBudget = session.budget();
    }
    std::optional<unsigned long> optRequestID;
    {
        const std::lock_guard lock(m_mtx);
        m_tpAnswered = CClock::now();
        optRequestID = m_exchanges.take(frame.dwExchange);
    }
    if (!optRequestID) // ended before, by its time limit
        return;
    item.dwPeer = m_dwPeer;
    item.ulRequestID = *optRequestID;
    item.lResult = frame.eType == EFrame::response ? 0 : E_CHANNEL_REFUSED;
    (void)m_parts.ends.add(std::move(item)); // a closed stream keeps nothing
}

void CPeer::onPong(CSession& /*session*/, const CPong& pong)
{
    {
        const std::lock_guard lock(m_mtx);
        m_clock.pong(pong, CClock::now());
    }
    m_cvClock.notify_all();
}

void CPeer::endAll(const std::vector<unsigned long>& vecRequests, long lResult)
{
    for (const unsigned long ulRequestID : vecRequests)
        (void)m_parts.ends.add({lResult, m_dwPeer, ulRequestID, {}, nullptr}); // a closed stream keeps nothing
}

/// Under m_mtx.
std::vector<unsigned long> CPeer::takeWaiting()
{
    std::vector<unsigned long> vecRequests;
    for (const CWaiting& waiting : m_lstWaiting)
        vecRequests.push_back(waiting.ulRequestID);
    m_lstWaiting.clear();
    m_uWaitingBytes = 0;
    return vecRequests;
}

std::string CPeer::describe()
{
    static constexpr const char* cStates[] = {"idle", "connecting", "up", "down"};
    const std::lock_guard lock(m_mtx);
    std::string sText = "peer " + m_sName + " " + cStates[m_eState] + ", " + std::to_string(m_exchanges.size()) +
                        " requests unanswered, " + std::to_string(m_lstWaiting.size()) + " waiting";
    if (m_pSession)
        sText += ", session " + std::to_string(m_pSession->number()) + ", " + std::to_string(m_pSession->queued()) +
                 " bytes to send, " + std::to_string(m_pSession->budget()->bytes()) + " bytes to fetch, round trip " +
                 std::to_string(m_clock.roundTrip().count()) + " us";
    return sText;
}

} // namespace Messaging
