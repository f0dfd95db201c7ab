#pragma once

#include "FakeChannel.h"
#include "FakeConstruction.h"

#include <condition_variable>
#include <deque>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

// What the sources of the fake channels share.

/// One thing before a receiver.
struct CDelivery
{
    std::uint32_t dwResult = 0;
    unsigned long ulPeer = 0;
    unsigned long ulContext1 = 0xFFFFFFFFUL; // of a response: the request ID
    unsigned long ulContext2 = 0xFFFFFFFFUL;
    std::optional<std::string> optBytes{};
};

/// What one receive operation of a channel takes from.
struct CStream
{
    std::deque<CDelivery> deqDeliveries{};
    std::size_t uWaiting = 0;
};

struct CFakeChannel
{
    std::string sOwner;
    bool bServer = false;
    bool bRunning = false;
    CStream requests{};
    CStream responses{};
    std::size_t uInside = 0; // threads in a receive
};

/// The network's view of one direction between two servers: from the first's client channel to the second's server
/// channel.
struct CConnection
{
    bool bUp = false;
    unsigned long ulEpoch = 0;
};

struct CExchange
{
    std::string sFrom;
    std::string sTo;
    unsigned long ulRequestID = 0;
    unsigned long ulEpoch = 0;
};

struct CPeerClock
{
    std::optional<unsigned long long> optTimestamp{};
    std::uint32_t dwResult = 0;
};

using CLink = std::pair<std::string, std::string>; // of a connection: from, to; of a link: the lesser first

struct CChannelWorld
{
    std::mutex mtx;
    std::condition_variable cv;
    std::string sMaker = CFakeChannels::cHere;
    std::list<std::shared_ptr<CFakeChannel>> lstChannels;
    std::vector<CFakeChannels::CCreation> vecCreations;
    std::vector<std::string> vecLifeCycle;
    CFakeConstruction construction;
    std::optional<std::pair<std::size_t, long>> optInitialize;
    std::vector<CFakeChannels::CPreset> vecPresets;
    std::vector<CFakeChannels::CSent> vecSent;
    std::vector<CFakeChannels::CAnswer> vecAnswers;
    std::deque<std::uint32_t> deqSendResults;
    std::uint32_t dwSendResult = 0;
    std::uint32_t dwAnswerResult = 0;
    std::function<void(const CFakeChannels::CSent&)> fnDuring;
    std::map<std::string, CPeerClock> mapClocks;
    std::vector<std::string> vecTimeQueries;
    std::size_t uDumps = 0;
    std::size_t uActivity = 0;

    // The network.
    bool bNetwork = false;
    std::map<CLink, CConnection> mapConnections;
    std::set<CLink> setCut;
    std::set<CLink> setSilent;
    std::map<unsigned long, CExchange> mapExchanges; // number -> exchange
    unsigned long ulNextExchange = 1;
    std::map<std::string, std::deque<CDelivery>> mapHeldResponses; // of servers whose responses are held
    std::map<std::string, std::deque<CDelivery>> mapHeldRequests;
    std::size_t uNetworkBytes = 0;
};

CChannelWorld& channelWorld();

/// The running channel of a server, or null. The caller holds the world's mutex, here and below.
CFakeChannel* findChannel(CChannelWorld& world, const std::string& sOwner, bool bServer);
void deliver(CChannelWorld& world, const std::string& sOwner, bool bServer, bool bResponse, CDelivery delivery);

// What the network does when channels are used.
std::uint32_t networkSend(CChannelWorld& world, const CFakeChannels::CSent& sent);
std::uint32_t networkAnswer(CChannelWorld& world, const CFakeChannels::CAnswer& answer);
void networkStarted(CChannelWorld& world, const std::string& sOwner);
void networkStopped(CChannelWorld& world, const std::string& sOwner);
