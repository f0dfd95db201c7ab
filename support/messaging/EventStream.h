#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <unordered_map>

namespace Messaging {

/// A buffer as the channel hands it out.
struct CBody
{
    std::unique_ptr<char[]> pBytes;
    std::size_t uSize = 0;

    CBody() = default;
    /// Copies the bytes.
    explicit CBody(std::span<const char> bytes);
};

/// How many received bytes of one connection nobody has fetched yet.
///
/// Threads    any.
class CInboundBudget
{
public:
    /// @param fnRelieved  called, on the thread that fetches, when a budget that was exceeded has room again: a MiB,
    ///                    or half of it when that is less
    CInboundBudget(std::size_t uLimit, std::function<void()> fnRelieved)
        : m_uLimit(uLimit), m_fnRelieved(std::move(fnRelieved))
    {
    }
    void add(std::size_t uBytes);
    void remove(std::size_t uBytes);
    /// Whether reading has to pause; if so fnRelieved will be called once.
    bool exceeded();
    std::size_t bytes() const;

private:
    mutable std::mutex m_mtx;
    const std::size_t m_uLimit;
    std::size_t m_uBytes = 0; // guarded by m_mtx
    bool m_bWaiting = false;  // guarded by m_mtx
    const std::function<void()> m_fnRelieved;
};

/// Requests and connection events, for the thread that fetches them: of each peer in the order in which they happened,
/// and the peers by turns, so that one that sends more than is handled holds up nobody else.
///
/// What nobody has fetched when its connection ends is dropped, the event of its beginning included: the stream holds
/// at most the end of one connection and the beginning of another for each peer, however often peers come and go.
///
/// Threads    any.
class CEventStream
{
public:
    struct CItem
    {
        long lResult = 0; ///< 0: a request, else the event's code
        std::uint32_t dwPeer = 0;
        std::uint32_t dwSession = 0;
        std::uint32_t dwExchange = 0;
        CBody body;
        std::shared_ptr<CInboundBudget> pBudget; ///< whom the body counts against
    };

    CEventStream(std::uint32_t dwConnected, std::uint32_t dwDisconnected);
    ~CEventStream();
    CEventStream(const CEventStream&) = delete;
    CEventStream& operator=(const CEventStream&) = delete;

    /// From now on things are kept for fetching.
    void open();
    /// Drops everything and releases whoever waits.
    void close();
    bool isOpen() const;

    void connected(std::uint32_t dwPeer, std::uint32_t dwSession);
    void disconnected(std::uint32_t dwPeer, std::uint32_t dwSession);
    /// @return false when the stream is closed
    bool request(CItem item);

    /// Waits for the next item. @return false when the stream is closed
    bool fetch(CItem* pItem);
    std::size_t size() const;

private:
    CItem& append(std::uint32_t dwPeer);
    static void release(const CItem& item);

    const long m_lConnected;
    const long m_lDisconnected;
    mutable std::mutex m_mtx;
    std::condition_variable m_cv;
    // Guarded by m_mtx.
    std::unordered_map<std::uint32_t, std::deque<CItem>> m_mapItems; // peer -> its items; none is empty
    std::deque<std::uint32_t> m_lstTurns;                            // the peers that have items, each once
    std::size_t m_uItems = 0;                                        // of all peers
    bool m_bOpen = false;
};

} // namespace Messaging
