#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace Messaging {

/// The requests of one connection that wait for their answer, in the order sent. Whoever is taken out is ended: that is
/// what makes each end exactly once.
///
/// Threads    one at a time: guarded by the peer that owns it.
class CExchangeTable
{
public:
    using CTimePoint = std::chrono::steady_clock::time_point;

    explicit CExchangeTable(std::size_t uLimit) : m_uLimit(uLimit) {}

    /// Whether there is no room: the oldest unanswered request counts all that came after it.
    bool full() const { return m_lstExchanges.size() >= m_uLimit; }
    std::size_t size() const { return m_uOpen; }

    /// Notes a request. @return its exchange number
    std::uint32_t add(unsigned long ulRequestID, CTimePoint tpDeadline);
    /// Takes back the request added last.
    void takeBack();

    /// Takes out an exchange. Nothing when there is none of that number.
    std::optional<unsigned long> take(std::uint32_t dwExchange);
    /// Takes out those whose time is over.
    std::vector<unsigned long> takeExpired(CTimePoint tpNow);
    /// Takes out all.
    std::vector<unsigned long> takeAll();

private:
    struct CExchange
    {
        unsigned long ulRequestID;
        CTimePoint tpDeadline;
        bool bOpen;
    };
    void dropEnded();

    const std::size_t m_uLimit;
    std::deque<CExchange> m_lstExchanges; // the first is open
    std::uint32_t m_dwFirst = 1;          // number of the first
    std::size_t m_uOpen = 0;
    CTimePoint m_tpNext = CTimePoint::max(); // no deadline is before it
};

} // namespace Messaging
