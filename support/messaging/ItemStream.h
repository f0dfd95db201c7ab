#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

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
    /// @param fnRelieved  called, on the thread that fetches, when a budget that was exceeded has room again: 32 KiB,
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

/// Items for the thread that fetches them: of each peer in the order in which they were added, and the peers by turns,
/// so that one that sends more than is handled holds up nobody else. What an item holds counts against its connection's
/// budget until it is fetched or dropped.
///
/// Threads    any.
/// Errors     without memory an item is not added: std::bad_alloc, and nothing has happened.
///
/// @tparam TItem  has a dwPeer, a body, and a pBudget that it counts against; null: it counts against none
template <typename TItem> class CItemStream
{
public:
    CItemStream() = default;
    ~CItemStream() { close(); }
    CItemStream(const CItemStream&) = delete;
    CItemStream& operator=(const CItemStream&) = delete;

    /// From now on things are kept for fetching.
    void open()
    {
        const std::lock_guard lock(m_mtx);
        m_bOpen = true;
    }
    /// Drops everything and releases whoever waits.
    void close()
    {
        std::map<std::uint32_t, CItems> mapItems;
        {
            const std::lock_guard lock(m_mtx);
            m_bOpen = false;
            mapItems.swap(m_mapItems);
            m_uItems = 0;
        }
        m_cv.notify_all();
        for (const auto& [dwPeer, lstItems] : mapItems)
            std::for_each(lstItems.begin(), lstItems.end(), release);
    }
    bool isOpen() const
    {
        const std::lock_guard lock(m_mtx);
        return m_bOpen;
    }
    /// @return false when the stream is closed
    bool add(TItem item)
    {
        const std::uint32_t dwPeer = item.dwPeer;
        CItems lstNew;
        lstNew.push_back(std::move(item));
        return change(dwPeer, [&](CItems& lstItems) {
            if (const TItem& added = lstNew.front(); added.pBudget)
                added.pBudget->add(costOf(added));
            lstItems.splice(lstItems.end(), lstNew);
        });
    }
    /// Waits for the next item. @return false when the stream is closed
    bool fetch(TItem* pItem)
    {
        {
            CItems lstTaken; // freed outside the lock
            std::unique_lock lock(m_mtx);
            m_cv.wait(lock, [this] { return m_uItems != 0 || !m_bOpen; });
            if (!m_bOpen)
                return false;
            auto it = m_mapItems.upper_bound(m_dwLastServed);
            if (it == m_mapItems.end())
                it = m_mapItems.begin();
            m_dwLastServed = it->first;
            lstTaken.splice(lstTaken.begin(), it->second, it->second.begin());
            --m_uItems;
            if (it->second.empty())
                m_mapItems.erase(it);
            lock.unlock();
            *pItem = std::move(lstTaken.front());
        }
        release(*pItem);
        return true;
    }
    std::size_t size() const
    {
        const std::lock_guard lock(m_mtx);
        return m_uItems;
    }

protected:
    using CItems = std::list<TItem>;

    /// Changes a peer's items in an open stream, under its lock.
    ///
    /// @param action  takes the items; does not throw
    /// @return false when the stream is closed
    template <typename TAction> bool change(std::uint32_t dwPeer, TAction action)
    {
        {
            const std::lock_guard lock(m_mtx);
            if (!m_bOpen)
                return false;
            const auto it = m_mapItems.try_emplace(dwPeer).first;
            m_uItems -= it->second.size();
            action(it->second);
            m_uItems += it->second.size();
            if (it->second.empty())
                m_mapItems.erase(it);
        }
        m_cv.notify_one();
        return true;
    }
    /// An item is out of the stream. Not under its lock: the budget's user may have something to do.
    static void release(const TItem& item)
    {
        if (item.pBudget)
            item.pBudget->remove(costOf(item));
    }

private:
    static std::size_t costOf(const TItem& item) { return item.body.uSize + sizeof(TItem); }

    mutable std::mutex m_mtx;
    std::condition_variable m_cv;
    // Guarded by m_mtx.
    std::map<std::uint32_t, CItems> m_mapItems; // peer -> its items; none is empty
    std::uint32_t m_dwLastServed = 0;           // the next one is that with the next address
    std::size_t m_uItems = 0;                   // of all peers
    bool m_bOpen = false;
};

} // namespace Messaging
