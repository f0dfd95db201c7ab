#pragma once

#include "EventStream.h"

namespace Messaging {

/// Ends of exchanges, for the thread that fetches them. What bounds it: every end is one of a request that was
/// accepted, and its body counts against its connection.
///
/// Threads    any.
class CEndStream
{
public:
    struct CItem
    {
        long lResult = 0;
        std::uint32_t dwPeer = 0;
        unsigned long ulRequestID = 0;
        CBody body;
        std::shared_ptr<CInboundBudget> pBudget; ///< null: nothing counts
    };

    ~CEndStream() { close(); }

    void open();
    /// Drops everything and releases whoever waits.
    void close();
    void add(CItem item);
    /// Waits for the next item. @return false when the stream is closed
    bool fetch(CItem* pItem);
    std::size_t size() const;

private:
    static void release(const CItem& item);

    mutable std::mutex m_mtx;
    std::condition_variable m_cv;
    std::deque<CItem> m_lstItems; // guarded by m_mtx
    bool m_bOpen = false;         // guarded by m_mtx
};

} // namespace Messaging
