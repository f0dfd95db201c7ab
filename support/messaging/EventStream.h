#pragma once

#include "ItemStream.h"

namespace Messaging {

/// A request, or what became of a connection.
struct CReceivedItem
{
    long lResult = 0; ///< 0: a request, else the event's code
    std::uint32_t dwPeer = 0;
    std::uint32_t dwSession = 0;
    std::uint32_t dwExchange = 0;
    CBody body;
    std::shared_ptr<CInboundBudget> pBudget; ///< whom the body counts against; null: an event
};

/// Requests and connection events, for the thread that fetches them: of each peer in the order in which they happened,
/// and the peers by turns.
///
/// What nobody has fetched when its connection ends is dropped, the event of its beginning included: the stream holds
/// at most the end of one connection and the beginning of another for each peer, however often peers come and go.
///
/// Threads    any.
class CEventStream final : public CItemStream<CReceivedItem>
{
public:
    CEventStream(std::uint32_t dwConnected, std::uint32_t dwDisconnected);

    void connected(std::uint32_t dwPeer, std::uint32_t dwSession);
    void disconnected(std::uint32_t dwPeer, std::uint32_t dwSession);

private:
    const long m_lConnected;
    const long m_lDisconnected;
};

} // namespace Messaging
