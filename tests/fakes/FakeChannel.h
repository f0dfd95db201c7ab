#pragma once

#include "CCMLibraryX.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// The fake channels: everything that comes in is injected by the test, everything that goes out is recorded.
///
/// A server is named by its address; its two channels are those that are made while it is the maker. With the network
/// switched on, the channels of all servers are connected with each other inside the process, as the channel's contract
/// says: in order, with events between requests, each accepted request ending exactly once. Exchanges run out on the
/// fake clock, when the test moves it.
///
/// Threads    every operation may be called from any thread.
/// Units      addresses are IPv4 as 32-bit numbers; bytes are given and kept with their terminating zero byte.
class CFakeChannels
{
public:
    static constexpr const char* cHere = "10.0.0.1"; ///< the maker at first

    /// What sendRequest returns when the peer is known to be down, and how an exchange ends whose connection is lost.
    static constexpr std::uint32_t cPeerDown = 0xC1200DC8U;
    static constexpr std::uint32_t cConnectionLost = 0xC1200DC9U;
    /// How an exchange ends that is not answered in time.
    static constexpr std::uint32_t cTimedOut = 0xC1200DCAU;
    /// What a channel returns that is not running.
    static constexpr std::uint32_t cStopped = 0xC1200DCBU;
    /// What a message beyond the largest gets, and the largest that passes.
    static constexpr std::uint32_t cTooLarge = CMLIB_TOO_LARGE;
    static constexpr std::size_t cLargestMessage = 4U << 20U;
    /// What the clock of a server that the network does not reach gives.
    static constexpr std::uint32_t cNoClock = 0xC1200DCDU;

    /// Arguments of a construction.
    struct CCreation
    {
        std::string sOwner;
        std::string sChannelID;
        std::string sService;
        std::string sPeerChannelID;
        unsigned long ulTimeout = 0;
        int nRole = -1;
        unsigned long ulCount = 0;
        CMLIB_MODE eMode{};
    };

    /// A request that was sent, accepted or not.
    struct CSent
    {
        std::string sOwner;
        unsigned long ulRequestID = 0;
        unsigned long ulPeer = 0;
        unsigned long ulReserved = 1;
        std::string sBytes;
        unsigned long ulFlags = 0;
        unsigned long ulTimeout = 0;
        long lResult = 0;
    };

    /// A response that was sent.
    struct CAnswer
    {
        std::string sOwner;
        unsigned long ulPeer = 0;
        unsigned long ulContext1 = 0;
        unsigned long ulContext2 = 0;
        std::string sBytes;
        unsigned long ulFlags = 0;
    };

    /// What a receive operation's out-arguments held when it was called.
    struct CPreset
    {
        bool bServer = false;
        bool bResponse = false;
        unsigned long ulPeer = 0;
        unsigned long ulContext1 = 0; ///< of a response: the request ID
        unsigned long ulContext2 = 0;
        bool bBufferNull = true;
        unsigned long ulSize = 0;
    };

    /// Whose channels are made from now on.
    static void setMaker(const std::string& sAddress);
    /// Makes a channel that is not running another server's.
    static void setOwner(const CCMLibraryX& channel, const std::string& sAddress);

    // The channels' lives.
    static std::vector<CCreation> creations();
    static std::size_t alive();
    /// "server new", "server initialize", "server uninitialize", "server delete", "client ..." and so on, in order.
    static std::vector<std::string> lifeCycle();
    /// The next construction, after uSkip good ones, throws KRException(lCode, pszSource, nLine).
    static void failNextCreation(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CCMLibraryX",
                                 int nLine = 1);
    /// The next initialize, after uSkip good ones, returns this.
    static void failNextInitialize(long lResult, std::size_t uSkip = 0);

    // What comes in. The peer is an address as text.
    static void request(const std::string& sPeer, const std::string& sText, unsigned long ulContext1 = 1,
                        unsigned long ulContext2 = 2, const std::string& sOwner = cHere);
    /// Any result of receiveRequest on the server channel, with bytes as they are.
    static void serverReceives(std::uint32_t dwResult, const std::string& sPeer, const std::string* psBytes = nullptr,
                               const std::string& sOwner = cHere);
    /// The same on the client channel.
    static void clientReceives(std::uint32_t dwResult, const std::string& sPeer, const std::string* psBytes = nullptr,
                               const std::string& sOwner = cHere);
    static void response(unsigned long ulRequestID, std::uint32_t dwResult, const std::string* psBytes,
                         const std::string& sPeer = "10.0.0.2", const std::string& sOwner = cHere);
    /// The good response to a request.
    static void confirm(unsigned long ulRequestID, const std::string& sOwner = cHere);
    static std::vector<CPreset> presets();

    // What goes out.
    static std::vector<CSent> sent(const std::string& sOwner = cHere);
    /// Those that were accepted, as texts without their terminator.
    static std::vector<std::string> sentTexts(const std::string& sOwner = cHere);
    static std::vector<CAnswer> answers(const std::string& sOwner = cHere);
    static void forgetTraffic();
    /// The results of the next sends, one each; afterwards what setSendResult says, 0 at first.
    static void scriptSends(std::vector<std::uint32_t> vecResults);
    static void setSendResult(std::uint32_t dwResult);
    static void setAnswerResult(std::uint32_t dwResult);
    /// Runs on the sender's thread while a request is being sent.
    static void whileSending(std::function<void(const CSent&)> fnDuring);

    // Clocks. A server that was given none answers with the fake clock's.
    static void setPeerTime(const std::string& sPeer, unsigned long long ullTimestamp);
    static void failPeerTime(const std::string& sPeer, std::uint32_t dwResult);
    /// The servers asked for time stamps so far, as texts.
    static std::vector<std::string> timeQueries();
    static std::size_t dumps();

    // The network.
    static void setNetwork(bool bOn);
    /// Takes the connections between two servers down at once; sends fail until the link is restored.
    static void cutLink(const std::string& sOne, const std::string& sOther);
    /// Swallows what is sent between two servers from now on. They notice with cutLink, or when an answer is overdue.
    static void silenceLink(const std::string& sOne, const std::string& sOther);
    static void restoreLink(const std::string& sOne, const std::string& sOther);
    /// Keeps the responses that are for this server's requests back, and lets them go in order.
    static void holdResponses(const std::string& sOwner, bool bHold);
    /// The same for requests to this server.
    static void holdRequests(const std::string& sOwner, bool bHold);
    /// Bytes that arrived as requests, of all servers.
    static std::size_t networkBytes();

    /// Blocks until each running channel's receive threads have taken what there is and wait for more.
    ///
    /// @return false when a generous real time has passed in vain
    [[nodiscard]] static bool awaitReceivers();
    /// Grows with everything that is put before a receiver.
    static std::size_t activity();

    /// Everything as at first. Channels that exist stay, without what was put before them.
    static void reset();

    static unsigned long address(const std::string& sAddress);
    static std::string addressText(unsigned long ulAddress);
};
