// The channels' entry points.
#include "CCMLibraryX.h"

#include "ChannelResults.h"
#include "KRException.h"
#include "Node.h"

#include <algorithm>
#include <mutex>
#include <new>

using Messaging::CNode;
using Messaging::CPeerClock;

struct CCMLibraryX::CState
{
    std::string sService;
    CNode::ERole eRole{};
    unsigned long ulTimeout = 0;
    std::mutex mtx;
    std::shared_ptr<CNode> pNode; // guarded by mtx; null while the channel is stopped

    std::shared_ptr<CNode> node()
    {
        const std::lock_guard lock(mtx);
        return pNode;
    }
};

namespace {
/// A request may take no longer, whatever its sender grants.
constexpr unsigned long cLongestExchange = 30;

/// Runs an operation; no exception leaves a channel.
template <typename Operation> long guarded(Operation operation) noexcept
{
    try
    {
        return operation();
    }
    catch (const std::bad_alloc&)
    {
        return Messaging::E_CHANNEL_MEMORY;
    }
    catch (...) // a lock or a thread that the system refuses
    {
        return Messaging::E_CHANNEL_SYSTEM;
    }
}

void handOut(Messaging::CBody* pBody, char** ppBuffer, unsigned long* pulSize)
{
    *pulSize = static_cast<unsigned long>(pBody->uSize);
    *ppBuffer = pBody->pBytes.release();
}

/// Hands out what a peer's clocks show, if it can be told.
template <typename HandOut> long readClock(const std::shared_ptr<CNode>& pNode, unsigned long ulPeer, HandOut handOut)
{
    if (!pNode)
        return Messaging::E_CHANNEL_STOPPED;
    CPeerClock::CReading reading;
    const long lResult = pNode->readClock(static_cast<std::uint32_t>(ulPeer), &reading);
    if (lResult >= 0)
        handOut(reading);
    return lResult;
}

bool isBuffer(const char* pBuffer, unsigned long ulLength)
{
    return pBuffer || ulLength == 0;
}
} // namespace

CCMLibraryX::CCMLibraryX(const std::string& sChannelID, const std::string& sService, const std::string& sPeerChannelID,
                         unsigned long ulTimeout, int /*nRole*/, unsigned long /*ulCount*/, CMLIB_MODE eMode)
    : m_pState(new (std::nothrow) CState)
{
    if (!m_pState)
        throw KRException(Messaging::E_CHANNEL_MEMORY, "support/messaging/CCMLibraryX", __LINE__);
    try
    {
        // Which of the two identities is a side's own does not matter: both sides name the same pair.
        m_pState->sService =
            sService + '\n' + std::min(sChannelID, sPeerChannelID) + '\n' + std::max(sChannelID, sPeerChannelID);
        m_pState->eRole = eMode == cmlib_mode_server ? CNode::server : CNode::client;
        m_pState->ulTimeout = std::clamp(ulTimeout, 1UL, cLongestExchange);
    }
    catch (const std::bad_alloc&)
    {
        delete m_pState;
        throw KRException(Messaging::E_CHANNEL_MEMORY, "support/messaging/CCMLibraryX", __LINE__);
    }
}

CCMLibraryX::~CCMLibraryX()
{
    (void)CCMLibraryX::uninitialize(); // always 0
    delete m_pState;
}

long CCMLibraryX::initialize()
{
    return guarded([this] {
        if (m_pState->node())
            return 0L;
        std::string sError;
        std::shared_ptr<CNode> pNode;
        const long lResult = CNode::join(m_pState->eRole, m_pState->sService, &pNode, &sError);
        if (lResult < 0)
        {
            Messaging::CChannelLog::get()->event(Messaging::cEventSettings, KRLogLib::CLogFile::re_error,
                                                 "messaging channel not started: " + sError);
            return lResult;
        }
        const std::lock_guard lock(m_pState->mtx);
        m_pState->pNode = std::move(pNode);
        return 0L;
    });
}

long CCMLibraryX::uninitialize()
{
    return guarded([this] {
        std::shared_ptr<CNode> pNode;
        {
            const std::lock_guard lock(m_pState->mtx);
            pNode.swap(m_pState->pNode);
        }
        if (pNode)
            pNode->leave(m_pState->eRole);
        return 0L;
    });
}

long CCMLibraryX::sendRequest(unsigned long ulRequestID, unsigned long ulPeer, unsigned long /*ulReserved*/,
                              const char* pBuffer, unsigned long ulLength, unsigned long /*ulFlags*/,
                              unsigned long ulTimeout)
{
    return guarded([&] {
        const auto pNode = m_pState->node();
        if (!pNode)
            return Messaging::E_CHANNEL_STOPPED;
        if (m_pState->eRole != CNode::client || !isBuffer(pBuffer, ulLength))
            return Messaging::E_CHANNEL_ARGUMENT;
        if (ulLength > pNode->parts().settings.dwMessageBytes)
            return Messaging::E_CHANNEL_TOO_LARGE;
        const auto pPeer = pNode->findPeer(static_cast<std::uint32_t>(ulPeer), true);
        if (!pPeer)
            return Messaging::E_CHANNEL_ARGUMENT;
        const unsigned long ulLimit = ulTimeout == 0 ? m_pState->ulTimeout : std::min(ulTimeout, m_pState->ulTimeout);
        return pPeer->sendRequest(ulRequestID, {pBuffer, ulLength}, std::chrono::seconds(ulLimit));
    });
}

long CCMLibraryX::receiveResponse(unsigned long* pulPeer, unsigned long* pulRequestID, char** ppBuffer,
                                  unsigned long* pulSize)
{
    return guarded([&] {
        const auto pNode = m_pState->node();
        Messaging::CExchangeEnd item;
        if (!pNode || m_pState->eRole != CNode::client || !pNode->parts().ends.fetch(&item))
            return Messaging::resultOf(CMLIB_NOTHING);
        *pulPeer = item.dwPeer;
        *pulRequestID = item.ulRequestID;
        handOut(&item.body, ppBuffer, pulSize);
        return item.lResult;
    });
}

long CCMLibraryX::receiveRequest(unsigned long* pulPeer, unsigned long* pulContext1, unsigned long* pulContext2,
                                 char** ppBuffer, unsigned long* pulSize)
{
    return guarded([&] {
        const auto pNode = m_pState->node();
        if (!pNode)
            return Messaging::resultOf(CMLIB_NOTHING);
        Messaging::CNodeParts& parts = pNode->parts();
        Messaging::CReceivedItem item;
        if (!(m_pState->eRole == CNode::server ? parts.requests : parts.changes).fetch(&item))
            return Messaging::resultOf(CMLIB_NOTHING);
        *pulPeer = item.dwPeer;
        if (item.lResult == 0)
        {
            *pulContext1 = item.dwSession;
            *pulContext2 = item.dwExchange;
            handOut(&item.body, ppBuffer, pulSize);
        }
        return item.lResult;
    });
}

long CCMLibraryX::sendResponse(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2,
                               const char* pBuffer, unsigned long ulLength, unsigned long /*ulFlags*/)
{
    return guarded([&] {
        const auto pNode = m_pState->node();
        if (!pNode)
            return Messaging::E_CHANNEL_STOPPED;
        if (!isBuffer(pBuffer, ulLength))
            return Messaging::E_CHANNEL_ARGUMENT;
        if (ulLength > pNode->parts().settings.dwMessageBytes)
            return Messaging::E_CHANNEL_TOO_LARGE;
        const auto pPeer = pNode->findPeer(static_cast<std::uint32_t>(ulPeer), false);
        if (!pPeer)
            return Messaging::E_CHANNEL_LOST;
        return pPeer->sendResponse(static_cast<std::uint32_t>(ulContext1), static_cast<std::uint32_t>(ulContext2),
                                   {pBuffer, ulLength});
    });
}

long CCMLibraryX::getServerTimestamp(unsigned long ulPeer, unsigned long long* pullTimestamp)
{
    return guarded([&] {
        return readClock(m_pState->node(), ulPeer,
                         [&](const CPeerClock::CReading& reading) { *pullTimestamp = reading.ullFileTime; });
    });
}

long CCMLibraryX::getServerTickCount(unsigned long ulPeer, unsigned long* pulTickCount)
{
    return guarded([&] {
        return readClock(m_pState->node(), ulPeer, [&](const CPeerClock::CReading& reading) {
            *pulTickCount = static_cast<std::uint32_t>(reading.ullTicks);
        });
    });
}

std::string CCMLibraryX::ipAddrToString(unsigned long ulPeer)
{
    return Messaging::addressText(static_cast<std::uint32_t>(ulPeer));
}

unsigned long CCMLibraryX::stringToIpAddr(const std::string& sAddr)
{
    return Messaging::addressOf(sAddr);
}

void CCMLibraryX::dump()
{
    (void)guarded([this] { // nobody to tell
        if (const auto pNode = m_pState->node())
            pNode->dump();
        return 0L;
    });
}
