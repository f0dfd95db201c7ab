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
    unsigned long ulTimeout = 0;
    const CCMLibraryX* pChannel = nullptr;
    bool bRunning = false;
    CStream requests{};
    CStream responses{};
    std::size_t uInside = 0; // threads in a receive
};

/// The network's view of two servers. One connection carries the requests of both.
struct CConnection
{
    bool bUp = false;
    unsigned long ulEpoch = 0;
    std::set<std::string> setWanting{}; // who of them connects again when it can
};

struct CExchange
{
    std::string sFrom;
    std::string sTo;
    unsigned long ulRequestID = 0;
    unsigned long ulEpoch = 0;
    unsigned long long ullDeadline = 0; // in ticks
};

struct CPeerClock
{
    std::optional<unsigned long long> optTimestamp{};
    std::uint32_t dwResult = 0;
};

using CLink = std::pair<std::string, std::string>; // the lesser first

struct CFakeChannelWorld
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

CFakeChannelWorld& channelWorld();

/// The running channel of a server, or null. The caller holds the world's mutex, here and below.
CFakeChannel* findChannel(CFakeChannelWorld& world, const std::string& sOwner, bool bServer);
void deliver(CFakeChannelWorld& world, const std::string& sOwner, bool bServer, bool bResponse, CDelivery delivery);

// What the network does when channels are used.
std::uint32_t networkSend(CFakeChannelWorld& world, const CFakeChannels::CSent& sent, unsigned long ulTimeout);
std::uint32_t networkAnswer(CFakeChannelWorld& world, const CFakeChannels::CAnswer& answer);
bool networkReaches(CFakeChannelWorld& world, const std::string& sFrom, const std::string& sTo);
void networkStarted(CFakeChannelWorld& world, const CFakeChannel& channel);
void networkStopped(CFakeChannelWorld& world, const CFakeChannel& channel);
void networkTimePassed(); // takes the world's mutex
