#include "FakeChannel.h"

#include "AllocationPause.h"
#include "ClockWaits.h"
#include "FakeChannelState.h"
#include "FakeClock.h"
#include "KRException.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

namespace {

/// Real time that only a hanging test reaches.
constexpr std::chrono::seconds cHangLimit(30);

/// The seconds that an exchange may take at the most, whatever was asked for.
constexpr unsigned long cLongestExchange = 30;

long asResult(std::uint32_t dwCode)
{
    return static_cast<long>(static_cast<std::int32_t>(dwCode));
}

template <class TAction> auto locked(TAction action)
{
    const CAllocationPause pause;
    CFakeChannelWorld& world = channelWorld();
    const std::lock_guard lock(world.mtx);
    return action(world);
}

const char* nameOf(const CFakeChannel& channel)
{
    return channel.bServer ? "server" : "client";
}

bool idle(const CFakeChannelWorld& world)
{
    const auto taken = [](const CStream& stream) { return stream.deqDeliveries.empty() && stream.uWaiting > 0; };
    return std::all_of(world.lstChannels.begin(), world.lstChannels.end(), [&](const auto& pChannel) {
        return !pChannel->bRunning || (taken(pChannel->requests) && (pChannel->bServer || taken(pChannel->responses)));
    });
}

/// Blocks until there is something to take, or the channel stops.
long receive(CFakeChannel& channel, CStream& stream, bool bResponse, unsigned long* pulPeer, unsigned long* pulContext1,
             unsigned long* pulContext2, char** ppBuffer, unsigned long* pulSize)
{
    CFakeChannelWorld& world = channelWorld();
    std::unique_lock lock(world.mtx);
    world.vecPresets.push_back({channel.bServer, bResponse, *pulPeer, *pulContext1,
                                pulContext2 != nullptr ? *pulContext2 : 0, *ppBuffer == nullptr, *pulSize});
    ++stream.uWaiting;
    ++channel.uInside;
    world.cv.notify_all();
    world.cv.wait(lock, [&] { return !channel.bRunning || !stream.deqDeliveries.empty(); });
    --stream.uWaiting;
    --channel.uInside;
    world.cv.notify_all();
    if (!channel.bRunning)
        return asResult(CMLIB_NOTHING);
    const CDelivery delivery = std::move(stream.deqDeliveries.front());
    stream.deqDeliveries.pop_front();
    *pulPeer = delivery.ulPeer;
    *pulContext1 = delivery.ulContext1;
    if (pulContext2 != nullptr)
        *pulContext2 = delivery.ulContext2;
    if (delivery.optBytes)
    {
        // Not a byte more than there are, so that whoever reads on is caught.
        *ppBuffer = new char[delivery.optBytes->size()];
        std::memcpy(*ppBuffer, delivery.optBytes->data(), delivery.optBytes->size());
        *pulSize = static_cast<unsigned long>(delivery.optBytes->size());
    }
    return asResult(delivery.dwResult);
}

/// Whether, or why not, a server's clock can be asked.
std::uint32_t clockResult(CFakeChannelWorld& world, const CFakeChannel& channel, const std::string& sPeer)
{
    if (!channel.bRunning)
        return CFakeChannels::cStopped;
    if (const auto it = world.mapClocks.find(sPeer); it != world.mapClocks.end())
        return it->second.dwResult;
    return !world.bNetwork || networkReaches(world, channel.sOwner, sPeer) ? 0 : CFakeChannels::cNoClock;
}

std::optional<std::string> optional(const std::string* psBytes)
{
    return psBytes != nullptr ? std::optional(*psBytes) : std::nullopt;
}

} // namespace

CFakeChannelWorld& channelWorld()
{
    const CAllocationPause pause;
    static CFakeChannelWorld* const pWorld = [] {
        CClockWaits::afterMove(networkTimePassed);
        return new CFakeChannelWorld;
    }();
    return *pWorld;
}

CFakeChannel* findChannel(CFakeChannelWorld& world, const std::string& sOwner, bool bServer)
{
    for (const auto& pChannel : world.lstChannels)
        if (pChannel->bRunning && pChannel->bServer == bServer && pChannel->sOwner == sOwner)
            return pChannel.get();
    return nullptr;
}

void deliver(CFakeChannelWorld& world, const std::string& sOwner, bool bServer, bool bResponse, CDelivery delivery)
{
    CFakeChannel* const pChannel = findChannel(world, sOwner, bServer);
    if (pChannel == nullptr)
        return;
    (bResponse ? pChannel->responses : pChannel->requests).deqDeliveries.push_back(std::move(delivery));
    ++world.uActivity;
    world.cv.notify_all();
}

struct CCMLibraryX::CState
{
    std::shared_ptr<CFakeChannel> pChannel;
};

CCMLibraryX::CCMLibraryX(const std::string& sChannelID, const std::string& sService, const std::string& sPeerChannelID,
                         unsigned long ulTimeout, int nRole, unsigned long ulCount, CMLIB_MODE eMode)
{
    const CAllocationPause pause;
    channelWorld().construction.enter();
    m_pState = new CState;
    locked([&](CFakeChannelWorld& world) {
        m_pState->pChannel =
            std::make_shared<CFakeChannel>(CFakeChannel{.sOwner = world.sMaker,
                                                        .bServer = eMode == cmlib_mode_server,
                                                        .ulTimeout = std::clamp(ulTimeout, 1UL, cLongestExchange),
                                                        .pChannel = this});
        world.lstChannels.push_back(m_pState->pChannel);
        world.vecCreations.push_back(
            {world.sMaker, sChannelID, sService, sPeerChannelID, ulTimeout, nRole, ulCount, eMode});
        world.vecLifeCycle.push_back(std::string(nameOf(*m_pState->pChannel)) + " new");
    });
}

CCMLibraryX::~CCMLibraryX()
{
    const CAllocationPause pause;
    locked([&](CFakeChannelWorld& world) {
        world.vecLifeCycle.push_back(std::string(nameOf(*m_pState->pChannel)) + " delete");
        if (m_pState->pChannel->uInside != 0)
        {
            (void)std::fprintf(stderr, "a channel is deleted while a thread receives on it\n");
            std::abort();
        }
        world.lstChannels.remove(m_pState->pChannel);
        if (world.bNetwork && m_pState->pChannel->bRunning)
            networkStopped(world, *m_pState->pChannel);
    });
    delete m_pState;
}

long CCMLibraryX::initialize()
{
    return locked([&](CFakeChannelWorld& world) {
        world.vecLifeCycle.push_back(std::string(nameOf(*m_pState->pChannel)) + " initialize");
        if (world.optInitialize && world.optInitialize->first-- == 0)
            return std::exchange(world.optInitialize, std::nullopt)->second;
        m_pState->pChannel->bRunning = true;
        if (world.bNetwork)
            networkStarted(world, *m_pState->pChannel);
        return 0L;
    });
}

long CCMLibraryX::uninitialize()
{
    return locked([&](CFakeChannelWorld& world) {
        world.vecLifeCycle.push_back(std::string(nameOf(*m_pState->pChannel)) + " uninitialize");
        m_pState->pChannel->bRunning = false;
        if (world.bNetwork)
            networkStopped(world, *m_pState->pChannel);
        m_pState->pChannel->requests.deqDeliveries.clear();
        m_pState->pChannel->responses.deqDeliveries.clear();
        world.cv.notify_all();
        return 0L;
    });
}

long CCMLibraryX::sendRequest(unsigned long ulRequestID, unsigned long ulPeer, unsigned long ulReserved,
                              const char* pBuffer, unsigned long ulLength, unsigned long ulFlags,
                              unsigned long ulTimeout)
{
    const CAllocationPause pause;
    CFakeChannels::CSent sent{m_pState->pChannel->sOwner,     ulRequestID, ulPeer,    ulReserved,
                              std::string(pBuffer, ulLength), ulFlags,     ulTimeout, 0};
    const auto fnDuring = locked([](CFakeChannelWorld& world) { return world.fnDuring; });
    if (fnDuring)
        fnDuring(sent);
    return locked([&](CFakeChannelWorld& world) {
        const CFakeChannel& channel = *m_pState->pChannel;
        std::uint32_t dwResult = world.dwSendResult;
        if (!channel.bRunning)
            dwResult = CFakeChannels::cStopped;
        else if (ulLength > CFakeChannels::cLargestMessage)
            dwResult = CFakeChannels::cTooLarge;
        else if (!world.deqSendResults.empty())
        {
            dwResult = world.deqSendResults.front();
            world.deqSendResults.pop_front();
        }
        if (world.bNetwork && dwResult == 0)
            dwResult =
                networkSend(world, sent, ulTimeout == 0 ? channel.ulTimeout : std::min(ulTimeout, channel.ulTimeout));
        sent.lResult = asResult(dwResult);
        world.vecSent.push_back(sent);
        return sent.lResult;
    });
}

long CCMLibraryX::receiveResponse(unsigned long* pulPeer, unsigned long* pulRequestID, char** ppBuffer,
                                  unsigned long* pulSize)
{
    const CAllocationPause pause;
    return receive(*m_pState->pChannel, m_pState->pChannel->responses, true, pulPeer, pulRequestID, nullptr, ppBuffer,
                   pulSize);
}

long CCMLibraryX::receiveRequest(unsigned long* pulPeer, unsigned long* pulContext1, unsigned long* pulContext2,
                                 char** ppBuffer, unsigned long* pulSize)
{
    const CAllocationPause pause;
    return receive(*m_pState->pChannel, m_pState->pChannel->requests, false, pulPeer, pulContext1, pulContext2,
                   ppBuffer, pulSize);
}

long CCMLibraryX::sendResponse(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2,
                               const char* pBuffer, unsigned long ulLength, unsigned long ulFlags)
{
    return locked([&](CFakeChannelWorld& world) {
        if (!m_pState->pChannel->bRunning)
            return asResult(CFakeChannels::cStopped);
        if (ulLength > CFakeChannels::cLargestMessage)
            return asResult(CFakeChannels::cTooLarge);
        const CFakeChannels::CAnswer answer{m_pState->pChannel->sOwner,     ulPeer, ulContext1, ulContext2,
                                            std::string(pBuffer, ulLength), ulFlags};
        world.vecAnswers.push_back(answer);
        if (world.bNetwork && world.dwAnswerResult == 0)
            return asResult(networkAnswer(world, answer));
        return asResult(world.dwAnswerResult);
    });
}

long CCMLibraryX::getServerTimestamp(unsigned long ulPeer, unsigned long long* pullTimestamp)
{
    return locked([&](CFakeChannelWorld& world) {
        const std::string sPeer = CFakeChannels::addressText(ulPeer);
        world.vecTimeQueries.push_back(sPeer);
        const std::uint32_t dwResult = clockResult(world, *m_pState->pChannel, sPeer);
        if (dwResult != 0)
            return asResult(dwResult);
        const auto it = world.mapClocks.find(sPeer);
        *pullTimestamp =
            it != world.mapClocks.end() && it->second.optTimestamp ? *it->second.optTimestamp : CFakeClock::fileTime();
        return 0L;
    });
}

long CCMLibraryX::getServerTickCount(unsigned long ulPeer, unsigned long* pulTickCount)
{
    return locked([&](CFakeChannelWorld& world) {
        const std::uint32_t dwResult = clockResult(world, *m_pState->pChannel, CFakeChannels::addressText(ulPeer));
        if (dwResult != 0)
            return asResult(dwResult);
        *pulTickCount = static_cast<unsigned long>(CFakeClock::ticks() & 0xFFFFFFFFULL);
        return 0L;
    });
}

std::string CCMLibraryX::ipAddrToString(unsigned long ulPeer)
{
    return CFakeChannels::addressText(ulPeer);
}

unsigned long CCMLibraryX::stringToIpAddr(const std::string& sAddr)
{
    return CFakeChannels::address(sAddr);
}

void CCMLibraryX::dump()
{
    locked([](CFakeChannelWorld& world) { ++world.uDumps; });
}

unsigned long CFakeChannels::address(const std::string& sAddress)
{
    // Leading zeros pass, so that one address has several texts, and a test can see which one was kept.
    unsigned long ulAddress = 0;
    const char* p = sAddress.data();
    const char* const pEnd = p + sAddress.size();
    for (int nPart = 0; nPart < 4; ++nPart)
    {
        if (nPart != 0 && (p == pEnd || *p++ != '.'))
            return 0;
        std::uint8_t uPart = 0;
        const auto [pNext, error] = std::from_chars(p, pEnd, uPart);
        if (error != std::errc() || pNext - p > 3)
            return 0;
        ulAddress = (ulAddress << 8U) | uPart;
        p = pNext;
    }
    return p == pEnd ? ulAddress : 0;
}

std::string CFakeChannels::addressText(unsigned long ulAddress)
{
    const CAllocationPause pause;
    char szText[16];
    (void)std::snprintf(szText, sizeof szText, "%u.%u.%u.%u", static_cast<unsigned int>((ulAddress >> 24U) & 0xFFU),
                        static_cast<unsigned int>((ulAddress >> 16U) & 0xFFU),
                        static_cast<unsigned int>((ulAddress >> 8U) & 0xFFU),
                        static_cast<unsigned int>(ulAddress & 0xFFU));
    return szText;
}

void CFakeChannels::setMaker(const std::string& sAddress)
{
    locked([&](CFakeChannelWorld& world) { world.sMaker = sAddress; });
}

void CFakeChannels::setOwner(const CCMLibraryX& channel, const std::string& sAddress)
{
    locked([&](CFakeChannelWorld& world) {
        for (const auto& pChannel : world.lstChannels)
            if (pChannel->pChannel == &channel)
                pChannel->sOwner = sAddress;
    });
}

std::vector<CFakeChannels::CCreation> CFakeChannels::creations()
{
    return locked([](CFakeChannelWorld& world) { return world.vecCreations; });
}

std::size_t CFakeChannels::alive()
{
    return locked([](CFakeChannelWorld& world) { return world.lstChannels.size(); });
}

std::vector<std::string> CFakeChannels::lifeCycle()
{
    return locked([](CFakeChannelWorld& world) { return world.vecLifeCycle; });
}

void CFakeChannels::failNextCreation(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    const CAllocationPause pause;
    channelWorld().construction.failNext(lCode, uSkip, pszSource, nLine);
}

void CFakeChannels::failNextInitialize(long lResult, std::size_t uSkip)
{
    locked([&](CFakeChannelWorld& world) { world.optInitialize = std::pair(uSkip, lResult); });
}

void CFakeChannels::request(const std::string& sPeer, const std::string& sText, unsigned long ulContext1,
                            unsigned long ulContext2, const std::string& sOwner)
{
    locked([&](CFakeChannelWorld& world) {
        deliver(world, sOwner, true, false,
                {0, address(sPeer), ulContext1, ulContext2, std::string(sText.c_str(), sText.size() + 1)});
    });
}

void CFakeChannels::serverReceives(std::uint32_t dwResult, const std::string& sPeer, const std::string* psBytes,
                                   const std::string& sOwner)
{
    locked([&](CFakeChannelWorld& world) {
        deliver(world, sOwner, true, false,
                {.dwResult = dwResult, .ulPeer = address(sPeer), .optBytes = optional(psBytes)});
    });
}

void CFakeChannels::clientReceives(std::uint32_t dwResult, const std::string& sPeer, const std::string* psBytes,
                                   const std::string& sOwner)
{
    locked([&](CFakeChannelWorld& world) {
        deliver(world, sOwner, false, false,
                {.dwResult = dwResult, .ulPeer = address(sPeer), .optBytes = optional(psBytes)});
    });
}

void CFakeChannels::response(unsigned long ulRequestID, std::uint32_t dwResult, const std::string* psBytes,
                             const std::string& sPeer, const std::string& sOwner)
{
    locked([&](CFakeChannelWorld& world) {
        deliver(world, sOwner, false, true, {dwResult, address(sPeer), ulRequestID, 0, optional(psBytes)});
    });
}

void CFakeChannels::confirm(unsigned long ulRequestID, const std::string& sOwner)
{
    static const std::string s_sStatus("20;NETRSP_CLIENT_STATUS;1;0\0", 28);
    response(ulRequestID, 0, &s_sStatus, "10.0.0.2", sOwner);
}

std::vector<CFakeChannels::CPreset> CFakeChannels::presets()
{
    return locked([](CFakeChannelWorld& world) { return world.vecPresets; });
}

std::vector<CFakeChannels::CSent> CFakeChannels::sent(const std::string& sOwner)
{
    return locked([&](CFakeChannelWorld& world) {
        std::vector<CSent> vecSent;
        std::copy_if(world.vecSent.begin(), world.vecSent.end(), std::back_inserter(vecSent),
                     [&](const CSent& one) { return one.sOwner == sOwner; });
        return vecSent;
    });
}

std::vector<std::string> CFakeChannels::sentTexts(const std::string& sOwner)
{
    std::vector<std::string> vecTexts;
    for (const CSent& one : sent(sOwner))
        if (one.lResult >= 0)
            vecTexts.emplace_back(one.sBytes.c_str());
    return vecTexts;
}

std::vector<CFakeChannels::CAnswer> CFakeChannels::answers(const std::string& sOwner)
{
    return locked([&](CFakeChannelWorld& world) {
        std::vector<CAnswer> vecAnswers;
        std::copy_if(world.vecAnswers.begin(), world.vecAnswers.end(), std::back_inserter(vecAnswers),
                     [&](const CAnswer& one) { return one.sOwner == sOwner; });
        return vecAnswers;
    });
}

void CFakeChannels::forgetTraffic()
{
    locked([](CFakeChannelWorld& world) {
        world.vecSent.clear();
        world.vecAnswers.clear();
        world.uNetworkBytes = 0;
    });
}

void CFakeChannels::scriptSends(std::vector<std::uint32_t> vecResults)
{
    locked([&](CFakeChannelWorld& world) { world.deqSendResults.assign(vecResults.begin(), vecResults.end()); });
}

void CFakeChannels::setSendResult(std::uint32_t dwResult)
{
    locked([&](CFakeChannelWorld& world) { world.dwSendResult = dwResult; });
}

void CFakeChannels::setAnswerResult(std::uint32_t dwResult)
{
    locked([&](CFakeChannelWorld& world) { world.dwAnswerResult = dwResult; });
}

void CFakeChannels::whileSending(std::function<void(const CSent&)> fnDuring)
{
    locked([&](CFakeChannelWorld& world) { world.fnDuring = std::move(fnDuring); });
}

void CFakeChannels::setPeerTime(const std::string& sPeer, unsigned long long ullTimestamp)
{
    locked([&](CFakeChannelWorld& world) { world.mapClocks[sPeer] = {ullTimestamp, 0}; });
}

void CFakeChannels::failPeerTime(const std::string& sPeer, std::uint32_t dwResult)
{
    locked([&](CFakeChannelWorld& world) { world.mapClocks[sPeer].dwResult = dwResult; });
}

std::vector<std::string> CFakeChannels::timeQueries()
{
    return locked([](CFakeChannelWorld& world) { return world.vecTimeQueries; });
}

std::size_t CFakeChannels::dumps()
{
    return locked([](CFakeChannelWorld& world) { return world.uDumps; });
}

bool CFakeChannels::awaitReceivers()
{
    CFakeChannelWorld& world = channelWorld();
    std::unique_lock lock(world.mtx);
    return world.cv.wait_for(lock, cHangLimit, [&] { return idle(world); });
}

std::size_t CFakeChannels::activity()
{
    return locked([](CFakeChannelWorld& world) { return world.uActivity; });
}

void CFakeChannels::reset()
{
    locked([](CFakeChannelWorld& world) {
        world.construction.reset();
        world.sMaker = cHere;
        world.vecCreations.clear();
        world.vecLifeCycle.clear();
        world.optInitialize.reset();
        world.vecPresets.clear();
        world.vecSent.clear();
        world.vecAnswers.clear();
        world.deqSendResults.clear();
        world.dwSendResult = world.dwAnswerResult = 0;
        world.fnDuring = nullptr;
        world.mapClocks.clear();
        world.vecTimeQueries.clear();
        world.uDumps = 0;
        world.bNetwork = false;
        world.mapConnections.clear();
        world.setCut.clear();
        world.setSilent.clear();
        world.mapExchanges.clear();
        world.mapHeldResponses.clear();
        world.mapHeldRequests.clear();
        world.uNetworkBytes = 0;
        for (const auto& pChannel : world.lstChannels)
        {
            pChannel->requests.deqDeliveries.clear();
            pChannel->responses.deqDeliveries.clear();
        }
    });
}
