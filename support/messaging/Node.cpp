#include "Node.h"

#include "BackgroundThread.h"
#include "CPortable.h"
#include "ChannelResults.h"

#include <algorithm>
#include <future>
#include <random>

#include <asio/post.hpp>

namespace Messaging {
namespace {
/// The nodes of this process by address and port. Never destroyed: channels may outlive the statics.
struct CNodes
{
    std::mutex mtx;
    std::map<std::uint64_t, std::weak_ptr<CNode>> mapNodes; // guarded by mtx
};

CNodes& nodes()
{
    static CNodes* const s_pNodes = new CNodes;
    return *s_pNodes;
}

/// A number for a text, the same everywhere (FNV-1a).
std::uint64_t hashOf(const std::string& sText)
{
    std::uint64_t ullHash = 0xCBF29CE484222325ULL;
    for (const char c : sText)
        ullHash = (ullHash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3ULL;
    return ullHash;
}

CInstance freshInstance()
{
    std::random_device random;
    CInstance instance{};
    for (std::uint8_t& byte : instance)
        byte = static_cast<std::uint8_t>(random());
    return instance;
}
} // namespace

long CNode::join(ERole eRole, const std::string& sService, std::shared_ptr<CNode>* ppNode, std::string* psError)
{
    CChannelSettings settings;
    if (!settings.read(psError))
        return E_CHANNEL_SETTINGS;
    CNodes& all = nodes();
    const std::lock_guard lock(all.mtx);
    std::weak_ptr<CNode>& pWeak = all.mapNodes[keyOf(settings)];
    std::shared_ptr<CNode> pNode = pWeak.lock();
    if (pNode && (eRole == server ? pNode->m_bServer : pNode->m_bClient))
    {
        *psError = "there is such a channel already for " + addressText(settings.dwAddress);
        return E_CHANNEL_ADDRESS;
    }
    const bool bNew = !pNode || (!pNode->m_bServer && !pNode->m_bClient);
    if (bNew)
    {
        pNode = std::make_shared<CNode>(settings, hashOf(sService));
        const long lResult = pNode->prepare(psError);
        if (lResult < 0)
            return lResult;
    }
    else if (pNode->m_parts.ullService != hashOf(sService))
    {
        *psError = "the other channel of " + addressText(settings.dwAddress) + " belongs to another service";
        return E_CHANNEL_ARGUMENT;
    }
    const long lResult = pNode->attach(eRole, psError);
    if (lResult < 0)
        return lResult;
    pWeak = pNode;
    *ppNode = std::move(pNode);
    return 0;
}

void CNode::leave(ERole eRole)
{
    const std::lock_guard lock(nodes().mtx);
    // Whoever waits in a receive is released first.
    if (eRole == server)
    {
        m_bServer = false;
        m_parts.requests.close();
    }
    else
    {
        m_bClient = false;
        m_parts.changes.close();
        m_parts.ends.close();
    }
    onIo([&] {
        if (eRole == server)
        {
            m_pAcceptor->stop();
            m_pAcceptor.reset();
        }
        for (const auto& pPeer : peers())
            pPeer->drop("the channel is stopped");
    });
    if (m_bServer || m_bClient)
        return;
    m_parts.io.stop();
    m_thread.join();
}

CNode::CNode(const CChannelSettings& settings, std::uint64_t ullService)
    : m_timer(m_parts.io), m_work(m_parts.io.get_executor())
{
    m_parts.settings = settings;
    m_parts.ullService = ullService;
    m_parts.instance = freshInstance();
    m_parts.pLog = CChannelLog::get();
    m_interval = std::clamp(settings.heartbeat / 5, std::chrono::milliseconds(5), std::chrono::milliseconds(100));
}

CNode::~CNode()
{
    if (!m_thread.joinable())
        return;
    m_parts.io.stop();
    m_thread.join();
}

long CNode::prepare(std::string* psError)
{
    if (m_parts.settings.encrypted())
    {
        m_parts.pTls = CTlsContext::load(m_parts.settings, psError);
        if (!m_parts.pTls)
            return E_CHANNEL_SETTINGS;
    }
    try
    {
        m_thread = std::thread(&CNode::run, this);
    }
    catch (const std::system_error&)
    {
        *psError = "no thread could be started";
        return E_CHANNEL_SYSTEM;
    }
    onIo([this] { tick(); });
    return 0;
}

long CNode::attach(ERole eRole, std::string* psError)
{
    if (eRole == server)
    {
        auto pAcceptor = std::make_shared<CAcceptor>(
            m_parts, [this](const std::shared_ptr<CSession>& pSession) { greeted(pSession); });
        if (!pAcceptor->listen(psError))
            return E_CHANNEL_ADDRESS;
        m_bServer = true;
        onIo([&] {
            m_parts.requests.open();
            for (const auto& pPeer : peers())
                pPeer->announce(&m_parts.requests);
            m_pAcceptor = std::move(pAcceptor);
            m_pAcceptor->start();
        });
        return 0;
    }
    m_bClient = true;
    onIo([&] {
        m_parts.changes.open();
        m_parts.ends.open();
        for (const auto& pPeer : peers())
            pPeer->announce(&m_parts.changes);
    });
    return 0;
}

void CNode::run()
{
    CPortable::SetCurrentThreadName("CDSChannelIO");
    serveInBackground();
    for (;;)
    {
        try
        {
            m_parts.io.run();
            return;
        }
        catch (const std::exception& exception)
        {
            // Out of memory while handling something: what was cut short there times out.
            m_parts.pLog->line(std::string("while handling the network: ") + exception.what());
        }
    }
}

/// Runs a task on the I/O thread and waits for it.
void CNode::onIo(const std::function<void()>& fnTask)
{
    std::promise<void> done;
    asio::post(m_parts.io, [&] {
        try
        {
            fnTask();
            done.set_value();
        }
        catch (...)
        {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

void CNode::tick()
{
    m_timer.expires_after(m_interval);
    m_timer.async_wait([this](const asio::error_code& error) {
        if (!error)
            tick();
    });
    const auto tpNow = CSession::CClock::now();
    if (m_pAcceptor)
        m_pAcceptor->tick(tpNow);
    for (const auto& pPeer : peers())
        pPeer->tick(tpNow);
}

void CNode::greeted(const std::shared_ptr<CSession>& pSession)
{
    if (const auto pPeer = findPeer(pSession->peer(), true))
        pPeer->admit(pSession);
    else
        pSession->end();
}

std::shared_ptr<CPeer> CNode::findPeer(std::uint32_t dwPeer, bool bMake)
{
    if (dwPeer == 0 || dwPeer == m_parts.settings.dwAddress)
        return nullptr;
    const std::lock_guard lock(m_mtxPeers);
    const auto it = m_mapPeers.find(dwPeer);
    if (it != m_mapPeers.end())
        return it->second;
    if (!bMake || m_mapPeers.size() >= m_parts.settings.dwPeers)
        return nullptr;
    return m_mapPeers.emplace(dwPeer, std::make_shared<CPeer>(m_parts, dwPeer)).first->second;
}

std::vector<std::shared_ptr<CPeer>> CNode::peers()
{
    const std::lock_guard lock(m_mtxPeers);
    std::vector<std::shared_ptr<CPeer>> vecPeers;
    vecPeers.reserve(m_mapPeers.size());
    for (const auto& [dwPeer, pPeer] : m_mapPeers)
        vecPeers.push_back(pPeer);
    return vecPeers;
}

long CNode::readClock(std::uint32_t dwPeer, CPeerClock::CReading* pReading)
{
    if (dwPeer == m_parts.settings.dwAddress)
    {
        unsigned long long ullFileTime = 0;
        CPortable::GetCurrentULLFileTimeUTC(&ullFileTime);
        *pReading = {ullFileTime, CPortable::GetTickCountULL()};
        return 0;
    }
    const auto pPeer = findPeer(dwPeer, true);
    return pPeer ? pPeer->readClock(pReading) : E_CHANNEL_NO_CLOCK;
}

void CNode::dump()
{
    m_parts.pLog->dumpLine(
        "channels of " + addressText(m_parts.settings.dwAddress) + ":" + std::to_string(m_parts.settings.wPort) + ", " +
        (m_parts.pTls ? "encrypted" : "in the clear") + ", " + std::to_string(m_parts.requests.size()) +
        " requests and events to fetch, " + std::to_string(m_parts.ends.size()) + " ends of exchanges to fetch");
    for (const auto& pPeer : peers())
        m_parts.pLog->dumpLine(pPeer->describe());
}

std::uint64_t CNode::keyOf(const CChannelSettings& settings)
{
    return std::uint64_t{settings.dwAddress} << 16 | settings.wPort;
}

} // namespace Messaging
