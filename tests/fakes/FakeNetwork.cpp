// The network between fake channels.
//
// A connection leads from one server's client channel to another's server channel. It is made when the first request
// is sent, or when a server that was wanted comes up; both ends get their events in the stream of requests. When it is
// lost, so is the one that leads back: every exchange that is under way on either ends, and both ends get their events.

#include "AllocationPause.h"
#include "FakeChannelState.h"

#include <algorithm>

namespace {

CLink linkOf(const std::string& sOne, const std::string& sOther)
{
    return std::minmax(sOne, sOther);
}

void deliverRequest(CChannelWorld& world, const std::string& sTo, CDelivery delivery)
{
    if (const auto it = world.mapHeldRequests.find(sTo); it != world.mapHeldRequests.end())
        it->second.push_back(std::move(delivery));
    else
        deliver(world, sTo, true, false, std::move(delivery));
}

void deliverResponse(CChannelWorld& world, const CExchange& exchange, std::uint32_t dwResult,
                     std::optional<std::string> optBytes)
{
    CDelivery delivery{dwResult, CFakeChannels::address(exchange.sTo), exchange.ulRequestID, 0, std::move(optBytes)};
    if (const auto it = world.mapHeldResponses.find(exchange.sFrom); it != world.mapHeldResponses.end())
        it->second.push_back(std::move(delivery));
    else
        deliver(world, exchange.sFrom, false, true, std::move(delivery));
}

/// Makes the connection, if it can be made and does not stand yet.
///
/// @return whether it stands
bool connect(CChannelWorld& world, const std::string& sFrom, const std::string& sTo)
{
    CConnection& connection = world.mapConnections[{sFrom, sTo}]; // wanted from now on
    if (connection.bUp)
        return true;
    if (world.setCut.contains(linkOf(sFrom, sTo)) || findChannel(world, sTo, true) == nullptr ||
        findChannel(world, sFrom, false) == nullptr)
        return false;
    connection.bUp = true;
    ++connection.ulEpoch;
    deliverRequest(world, sTo, {.dwResult = CMLIB_SERVER_CONNECTED, .ulPeer = CFakeChannels::address(sFrom)});
    deliver(world, sFrom, false, false, {.dwResult = CMLIB_CLIENT_CONNECTED, .ulPeer = CFakeChannels::address(sTo)});
    return true;
}

void disconnectOneWay(CChannelWorld& world, const std::string& sFrom, const std::string& sTo)
{
    const auto it = world.mapConnections.find({sFrom, sTo});
    if (it == world.mapConnections.end() || !it->second.bUp)
        return;
    it->second.bUp = false;
    for (auto itExchange = world.mapExchanges.begin(); itExchange != world.mapExchanges.end();)
    {
        const CExchange exchange = itExchange->second;
        if (exchange.sFrom != sFrom || exchange.sTo != sTo)
        {
            ++itExchange;
            continue;
        }
        itExchange = world.mapExchanges.erase(itExchange);
        deliverResponse(world, exchange, CFakeChannels::cConnectionLost, std::nullopt);
    }
    deliver(world, sFrom, false, false, {.dwResult = CMLIB_CLIENT_DISCONNECTED, .ulPeer = CFakeChannels::address(sTo)});
    deliverRequest(world, sTo, {.dwResult = CMLIB_SERVER_DISCONNECTED, .ulPeer = CFakeChannels::address(sFrom)});
}

void disconnect(CChannelWorld& world, const std::string& sOne, const std::string& sOther)
{
    disconnectOneWay(world, sOne, sOther);
    disconnectOneWay(world, sOther, sOne);
}

/// Connects again whoever wants to reach this server, or it them.
void reconnect(CChannelWorld& world, const std::string& sOwner)
{
    std::vector<CLink> vecWanted;
    for (const auto& [link, connection] : world.mapConnections)
        if (link.first == sOwner || link.second == sOwner)
            vecWanted.push_back(link);
    for (const auto& [sFrom, sTo] : vecWanted)
        (void)connect(world, sFrom, sTo); // or later
}

template <class TAction> auto locked(TAction action)
{
    const CAllocationPause pause;
    CChannelWorld& world = channelWorld();
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

std::uint32_t networkSend(CChannelWorld& world, const CFakeChannels::CSent& sent)
{
    const std::string sTo = CFakeChannels::addressText(sent.ulPeer);
    if (!connect(world, sent.sOwner, sTo))
        return CFakeChannels::cPeerDown;
    const unsigned long ulExchange = world.ulNextExchange++;
    const unsigned long ulEpoch = world.mapConnections[{sent.sOwner, sTo}].ulEpoch;
    world.mapExchanges[ulExchange] = {sent.sOwner, sTo, sent.ulRequestID, ulEpoch};
    if (world.setSilent.contains(linkOf(sent.sOwner, sTo)))
        return 0;
    world.uNetworkBytes += sent.sBytes.size();
    deliverRequest(world, sTo, {0, CFakeChannels::address(sent.sOwner), ulExchange, ulEpoch, sent.sBytes});
    return 0;
}

std::uint32_t networkAnswer(CChannelWorld& world, const CFakeChannels::CAnswer& answer)
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

void networkStarted(CChannelWorld& world, const std::string& sOwner)
{
    reconnect(world, sOwner);
}

void networkStopped(CChannelWorld& world, const std::string& sOwner)
{
    std::set<std::string> setPeers;
    for (const auto& [link, connection] : world.mapConnections)
    {
        if (link.first == sOwner)
            setPeers.insert(link.second);
        if (link.second == sOwner)
            setPeers.insert(link.first);
    }
    for (const std::string& sPeer : setPeers)
    {
        disconnect(world, sOwner, sPeer);
        world.mapConnections.erase({sOwner, sPeer}); // who starts anew wants nobody yet
    }
}

void CFakeChannels::setNetwork(bool bOn)
{
    locked([&](CChannelWorld& world) { world.bNetwork = bOn; });
}

void CFakeChannels::cutLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CChannelWorld& world) {
        world.setSilent.erase(linkOf(sOne, sOther));
        world.setCut.insert(linkOf(sOne, sOther));
        disconnect(world, sOne, sOther);
    });
}

void CFakeChannels::silenceLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CChannelWorld& world) { world.setSilent.insert(linkOf(sOne, sOther)); });
}

void CFakeChannels::restoreLink(const std::string& sOne, const std::string& sOther)
{
    locked([&](CChannelWorld& world) {
        world.setCut.erase(linkOf(sOne, sOther));
        world.setSilent.erase(linkOf(sOne, sOther));
        reconnect(world, sOne);
    });
}

void CFakeChannels::holdResponses(const std::string& sOwner, bool bHold)
{
    locked([&](CChannelWorld& world) {
        hold(world.mapHeldResponses, sOwner, bHold,
             [&](CDelivery delivery) { deliver(world, sOwner, false, true, std::move(delivery)); });
    });
}

void CFakeChannels::holdRequests(const std::string& sOwner, bool bHold)
{
    locked([&](CChannelWorld& world) {
        hold(world.mapHeldRequests, sOwner, bHold,
             [&](CDelivery delivery) { deliver(world, sOwner, true, false, std::move(delivery)); });
    });
}

std::size_t CFakeChannels::networkBytes()
{
    return locked([](CChannelWorld& world) { return world.uNetworkBytes; });
}
