// The network between fake channels.
//
// A connection joins two servers whose server channels run, and carries the requests of both. It is made when the first
// request is sent, or when a server that was wanted comes up; all channels of both get their events, in the stream of
// requests, a channel that starts later when it does. When the connection is lost, every exchange that is under way on
// it ends, and all channels get their events again.

#include "AllocationPause.h"
#include "FakeChannelState.h"
#include "FakeClock.h"

#include <algorithm>

namespace {

CLink linkOf(const std::string& sOne, const std::string& sOther)
{
    return std::minmax(sOne, sOther);
}

void deliverRequest(CFakeChannelWorld& world, const std::string& sTo, CDelivery delivery)
{
    if (const auto it = world.mapHeldRequests.find(sTo); it != world.mapHeldRequests.end())
        it->second.push_back(std::move(delivery));
    else
        deliver(world, sTo, true, false, std::move(delivery));
}

void deliverResponse(CFakeChannelWorld& world, const CExchange& exchange, std::uint32_t dwResult,
                     std::optional<std::string> optBytes)
{
    CDelivery delivery{dwResult, CFakeChannels::address(exchange.sTo), exchange.ulRequestID, 0, std::move(optBytes)};
    if (const auto it = world.mapHeldResponses.find(exchange.sFrom); it != world.mapHeldResponses.end())
        it->second.push_back(std::move(delivery));
    else
        deliver(world, exchange.sFrom, false, true, std::move(delivery));
}

/// Tells both channels of a server, as far as they run.
void announce(CFakeChannelWorld& world, const std::string& sTo, const std::string& sPeer, bool bUp)
{
    const unsigned long ulPeer = CFakeChannels::address(sPeer);
    deliverRequest(world, sTo,
                   {.dwResult = bUp ? CMLIB_SERVER_CONNECTED : CMLIB_SERVER_DISCONNECTED, .ulPeer = ulPeer});
    deliver(world, sTo, false, false,
            {.dwResult = bUp ? CMLIB_CLIENT_CONNECTED : CMLIB_CLIENT_DISCONNECTED, .ulPeer = ulPeer});
}

/// Makes the connection, if it can be made and does not stand yet.
///
/// @return whether it stands
bool connect(CFakeChannelWorld& world, const CLink& link)
{
    CConnection& connection = world.mapConnections[link];
    if (connection.bUp)
        return true;
    if (world.setCut.contains(link) || world.setSilent.contains(link) ||
        findChannel(world, link.first, true) == nullptr || findChannel(world, link.second, true) == nullptr)
        return false;
    connection.bUp = true;
    ++connection.ulEpoch;
    connection.setWanting = {link.first, link.second};
    announce(world, link.first, link.second, true);
    announce(world, link.second, link.first, true);
    return true;
}

void disconnect(CFakeChannelWorld& world, const CLink& link)
{
    // Also without a connection there may be exchanges that wait for one.
    for (auto it = world.mapExchanges.begin(); it != world.mapExchanges.end();)
    {
        const CExchange exchange = it->second;
        if (linkOf(exchange.sFrom, exchange.sTo) != link)
        {
            ++it;
            continue;
        }
        it = world.mapExchanges.erase(it);
        deliverResponse(world, exchange, CFakeChannels::cConnectionLost, std::nullopt);
    }
    CConnection& connection = world.mapConnections[link];
    if (!connection.bUp)
        return;
    connection.bUp = false;
    announce(world, link.first, link.second, false);
    announce(world, link.second, link.first, false);
}

std::vector<CLink> linksOf(const CFakeChannelWorld& world, const std::string& sOwner)
{
    std::vector<CLink> vecLinks;
    for (const auto& [link, connection] : world.mapConnections)
        if (link.first == sOwner || link.second == sOwner)
            vecLinks.push_back(link);
    return vecLinks;
}

/// Connects again whoever wants to reach this server, or it them.
void reconnect(CFakeChannelWorld& world, const std::string& sOwner)
{
    for (const CLink& link : linksOf(world, sOwner))
        if (!world.mapConnections[link].setWanting.empty())
            (void)connect(world, link); // or later
}

template <class TAction> auto locked(TAction action)
{
    const CAllocationPause pause;
    CFakeChannelWorld& world = channelWorld();
    const std::lock_guard lock(world.mtx);
    return action(world);
}

void hold(std::map<std::string, std::deque<CDelivery>>& mapHeld, const std::string& sOwner, bool bHold,
          const std::function<void(CDelivery)>& fnDeliver)
{
    if (bHold)
    {
        mapHeld.try_emplace(sOwner);
        return;
    }
    const auto node = mapHeld.extract(sOwner);
    if (node.empty())
        return;
    for (CDelivery& delivery : node.mapped())
        fnDeliver(std::move(delivery));
}

} // namespace

std::uint32_t networkSend(CFakeChannelWorld& world, const CFakeChannels::CSent& sent, unsigned long ulTimeout)
{
    const std::string sTo = CFakeChannels::addressText(sent.ulPeer);
    const CLink link = linkOf(sent.sOwner, sTo);
    const bool bSilent = world.setSilent.contains(link);
    world.mapConnections[link].setWanting.insert(sent.sOwner);
    if (!bSilent && !connect(world, link))
        return CFakeChannels::cPeerDown;
    const unsigned long ulExchange = world.ulNextExchange++;
    const unsigned long ulEpoch = world.mapConnections[link].ulEpoch;
    world.mapExchanges[ulExchange] = {sent.sOwner, sTo, sent.ulRequestID, ulEpoch,
                                      CFakeClock::ticks() + 1000ULL * ulTimeout};
    if (bSilent)
        return 0;
    world.uNetworkBytes += sent.sBytes.size();
    deliverRequest(world, sTo, {0, CFakeChannels::address(sent.sOwner), ulExchange, ulEpoch, sent.sBytes});
    return 0;
}

std::uint32_t networkAnswer(CFakeChannelWorld& world, const CFakeChannels::CAnswer& answer)
{
    const auto it = world.mapExchanges.find(answer.ulContext1);
    if (it == world.mapExchanges.end() || it->second.ulEpoch != answer.ulContext2)
        return CFakeChannels::cConnectionLost;
    const CExchange exchange = it->second;
    if (world.setSilent.contains(linkOf(exchange.sFrom, exchange.sTo)))
        return 0;
    world.mapExchanges.erase(it);
    deliverResponse(world, exchange, 0, answer.sBytes);
    return 0;
}

bool networkReaches(CFakeChannelWorld& world, const std::string& sFrom, const std::string& sTo)
{
    const CLink link = linkOf(sFrom, sTo);
    return sFrom == sTo || (findChannel(world, sTo, true) != nullptr && !world.setCut.contains(link) &&
                            !world.setSilent.contains(link));
}

void networkStarted(CFakeChannelWorld& world, const CFakeChannel& channel)
{
    for (const CLink& link : linksOf(world, channel.sOwner))
    {
        if (!world.mapConnections[link].bUp)
            continue;
        // The server's other channel has heard of it already.
        const unsigned long ulPeer = CFakeChannels::address(link.first == channel.sOwner ? link.second : link.first);
        deliver(world, channel.sOwner, channel.bServer, false,
                {.dwResult = channel.bServer ? CMLIB_SERVER_CONNECTED : CMLIB_CLIENT_CONNECTED, .ulPeer = ulPeer});
    }
    reconnect(world, channel.sOwner);
}

void networkStopped(CFakeChannelWorld& world, const CFakeChannel& channel)
{
    for (const CLink& link : linksOf(world, channel.sOwner))
    {
        disconnect(world, link);
        world.mapConnections[link].setWanting.erase(channel.sOwner); // who starts anew wants nobody yet
    }
    auto& mapHeld = channel.bServer ? world.mapHeldRequests : world.mapHeldResponses;
    if (const auto it = mapHeld.find(channel.sOwner); it != mapHeld.end())
        it->second.clear(); // nobody is left to take them
}

void networkTimePassed()
{
    locked([](CFakeChannelWorld& world) {
        const unsigned long long ullNow = CFakeClock::ticks();
        std::set<CLink> setOverdue;
        for (auto it = world.mapExchanges.begin(); it != world.mapExchanges.end();)
        {
            if (it->second.ullDeadline > ullNow)
            {
                ++it;
                continue;
            }
            const CExchange exchange = it->second;
            it = world.mapExchanges.erase(it);
            deliverResponse(world, exchange, CFakeChannels::cTimedOut, std::nullopt);
            setOverdue.insert(linkOf(exchange.sFrom, exchange.sTo));
        }
        // Nobody knows whether the peer has dealt with them: both sides start afresh.
        for (const CLink& link : setOverdue)
        {
            if (world.setSilent.erase(link) != 0)
                world.setCut.insert(link); // until it is restored
            disconnect(world, link);
            (void)connect(world, link); // or later
        }
    });
}

void CFakeChannels::setNetwork(bool bOn)
{
    locked([&](CFakeChannelWorld& world) { world.bNetwork = bOn; });
}

void CFakeChannels::cutLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CFakeChannelWorld& world) {
        world.setSilent.erase(linkOf(sOne, sOther));
        world.setCut.insert(linkOf(sOne, sOther));
        disconnect(world, linkOf(sOne, sOther));
    });
}

void CFakeChannels::silenceLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CFakeChannelWorld& world) { world.setSilent.insert(linkOf(sOne, sOther)); });
}

void CFakeChannels::restoreLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CFakeChannelWorld& world) {
        world.setCut.erase(linkOf(sOne, sOther));
        world.setSilent.erase(linkOf(sOne, sOther));
        reconnect(world, sOne);
    });
}

void CFakeChannels::holdResponses(const std::string& sOwner, bool bHold)
{
    locked([&](CFakeChannelWorld& world) {
        hold(world.mapHeldResponses, sOwner, bHold,
             [&](CDelivery delivery) { deliver(world, sOwner, false, true, std::move(delivery)); });
    });
}

void CFakeChannels::holdRequests(const std::string& sOwner, bool bHold)
{
    locked([&](CFakeChannelWorld& world) {
        hold(world.mapHeldRequests, sOwner, bHold,
             [&](CDelivery delivery) { deliver(world, sOwner, true, false, std::move(delivery)); });
    });
}

std::size_t CFakeChannels::networkBytes()
{
    return locked([](CFakeChannelWorld& world) { return world.uNetworkBytes; });
}
