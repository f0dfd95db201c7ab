#pragma once

#include "CPExport.h"

#include <cstdint>
#include <string>

/// What a messaging channel is for.
enum CMLIB_MODE : int
{
    cmlib_mode_client = 2, ///< sends requests, receives responses and connection events
    cmlib_mode_server = 3  ///< receives requests and connection events, sends responses
};

/// Result and event codes of a channel, as unsigned 32-bit numbers. Results are compared in that width, since their
/// sign as a long differs between ABIs.
constexpr std::uint32_t CMLIB_CLIENT_CONNECTED = 0xC1200DB0U;    ///< client channel: a connection to a peer came up
constexpr std::uint32_t CMLIB_CLIENT_DISCONNECTED = 0xC1200DB1U; ///< client channel: it went down
constexpr std::uint32_t CMLIB_SERVER_CONNECTED = 0xC1200DB2U;    ///< server channel: a peer connected
constexpr std::uint32_t CMLIB_SERVER_DISCONNECTED = 0xC1200DB3U; ///< server channel: a peer disconnected
constexpr std::uint32_t CMLIB_NOTHING = 0xC1200DB5U; ///< receive: nothing to report; send: the queue is full for now
constexpr std::uint32_t CMLIB_NOTHING_YET = 0xC1200DD3U;       ///< receive: nothing to report
constexpr std::uint32_t CMLIB_TRANSIENT_FAILURE = 0xC1200DC3U; ///< send: failed for now, worth another attempt
// These say something of one message and nothing of its peer, which no event announces afterwards.
constexpr std::uint32_t CMLIB_TOO_LARGE = 0xC1200E06U; ///< send: the message is larger than a message may be
constexpr std::uint32_t CMLIB_NO_MEMORY = 0xC1200E0BU; ///< send: there is no memory for it

/// A channel between servers: requests with responses, connection events, and the peers' clocks.
///
/// Guarantees, for all operations:
/// - Order. Requests of one peer arrive in the order sent. A connection event stands in the same stream: "peer
///   disconnected" comes after the last request of the old connection and before the first of the new one, "peer
///   connected" before that first one.
/// - Epochs. Every connection is a session of its own; when a peer comes back before its old connection was seen to
///   die, the old session ends first. Leftovers of an ended session are dropped.
/// - No silent loss. A request that was accepted ends in exactly one of its response or a negative transport result,
///   after 30 s at the most. Where a message is lost, its connection is torn down and both sides get their events.
/// - Prompt death. A killed peer is noticed at once, a silent one within a few heartbeats; reconnection is automatic.
/// - Bounded. Queues have limits in bytes; a peer that cannot keep up is disconnected.
/// - Identity. The peer address handed up is the one that the connection proves.
/// - Shared fate. When the connection in one direction is lost, the other direction's is ended too.
///
/// Threads    receive operations block on a thread of their own each; all others may be called from any thread.
/// Ownership  buffers given to a send are borrowed for the call; buffers returned by a receive were made with new[]
///            and are the caller's, who releases them with delete[].
/// Units      addresses are IPv4 as 32-bit numbers, first byte highest; time-outs are seconds; time stamps are file
///            time (100 ns since 1601), tick counts milliseconds.
class CP_API CCMLibraryX
{
public:
    /// @param sChannelID      this channel's identity
    /// @param sService        service name
    /// @param sPeerChannelID  the identity that peers present
    /// @param ulTimeout       seconds an exchange may take at the most, 60
    /// @param nRole           1: server, 0: client
    /// @param ulCount         receive streams: 2 on a server, 1 on a client
    /// @param eMode           as the role
    /// @throws KRException when the channel cannot be made
    CCMLibraryX(const std::string& sChannelID, const std::string& sService, const std::string& sPeerChannelID,
                unsigned long ulTimeout, int nRole, unsigned long ulCount, CMLIB_MODE eMode);
    virtual ~CCMLibraryX();
    CCMLibraryX(const CCMLibraryX&) = delete;
    CCMLibraryX& operator=(const CCMLibraryX&) = delete;

    /// Starts the channel. 0, or a negative code: the address is taken, the certificates cannot be read.
    virtual long initialize();

    /// Stops the channel and makes every blocked receive return. Afterwards every operation fails. 0.
    virtual long uninitialize();

    /// Queues a request to a peer.
    ///
    /// While a connection is being made requests wait; when too much waits, or the peer is known to be down, the call
    /// fails at once with a code that is not worth a retry. CMLIB_NOTHING or CMLIB_TRANSIENT_FAILURE say that the
    /// queue is full for now and drains.
    /// A result of 0 or more promises that receiveResponse will report this request ID exactly once.
    virtual long sendRequest(unsigned long ulRequestID, unsigned long ulPeer, unsigned long ulReserved,
                             const char* pBuffer, unsigned long ulLength, unsigned long ulFlags,
                             unsigned long ulTimeout);

    /// Blocks until an exchange has ended, and returns its transport result: 0 or more with the response's bytes, or
    /// negative without. CMLIB_NOTHING when the channel is being stopped.
    virtual long receiveResponse(unsigned long* pulPeer, unsigned long* pulRequestID, char** ppBuffer,
                                 unsigned long* pulSize);

    /// Blocks until there is a request or a connection event, and returns 0 with the request's bytes, one of the
    /// event codes with the peer's address, or CMLIB_NOTHING when the channel is being stopped.
    ///
    /// @param pulContext1, pulContext2  out: name the exchange for sendResponse
    virtual long receiveRequest(unsigned long* pulPeer, unsigned long* pulContext1, unsigned long* pulContext2,
                                char** ppBuffer, unsigned long* pulSize);

    /// Answers a request. Negative when its connection is gone: the peer has been told already.
    virtual long sendResponse(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2,
                              const char* pBuffer, unsigned long ulLength, unsigned long ulFlags);

    /// A peer's clock, answered from a fresh measurement or by one exchange of 250 ms at the most, else negative with
    /// the out-argument untouched.
    virtual long getServerTimestamp(unsigned long ulPeer, unsigned long long* pullTimestamp);
    virtual long getServerTickCount(unsigned long ulPeer, unsigned long* pulTickCount);

    /// "127.0.0.1" for 0x7F000001, and back; 0 for a text that is no address.
    virtual std::string ipAddrToString(unsigned long ulPeer);
    virtual unsigned long stringToIpAddr(const std::string& sAddr);

    /// Writes the channel's connections and queues to the trace log.
    virtual void dump();

private:
    struct CState;
    CState* m_pState;
};
