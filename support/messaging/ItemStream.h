#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
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

/// Items in the order in which they were added, for the thread that fetches them. What an item holds counts against its
/// connection's budget until it is fetched or dropped.
///
/// Threads    any.
///
/// @tparam TItem  has a body, and a pBudget that it counts against; null: it counts against none
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
        std::deque<TItem> lstItems;
        {
            const std::lock_guard lock(m_mtx);
            m_bOpen = false;
            lstItems.swap(m_lstItems);
        }
        m_cv.notify_all();
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
        return change([&](std::deque<TItem>& lstItems) {
            lstItems.push_back(std::move(item));
            if (const TItem& added = lstItems.back(); added.pBudget)
                added.pBudget->add(costOf(added));
        });
    }
    /// Waits for the next item. @return false when the stream is closed
    bool fetch(TItem* pItem)
    {
        {
            std::unique_lock lock(m_mtx);
            m_cv.wait(lock, [this] { return !m_lstItems.empty() || !m_bOpen; });
            if (!m_bOpen)
                return false;
            *pItem = std::move(m_lstItems.front());
            m_lstItems.pop_front();
        }
        release(*pItem);
        return true;
    }
    std::size_t size() const
    {
        const std::lock_guard lock(m_mtx);
        return m_lstItems.size();
    }

protected:
    /// Changes the items of an open stream under its lock.
    ///
    /// @return false when the stream is closed
    template <typename TAction> bool change(TAction action)
    {
        {
            const std::lock_guard lock(m_mtx);
            if (!m_bOpen)
                return false;
            action(m_lstItems);
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
    std::deque<TItem> m_lstItems; // guarded by m_mtx
    bool m_bOpen = false;         // guarded by m_mtx
};

} // namespace Messaging
