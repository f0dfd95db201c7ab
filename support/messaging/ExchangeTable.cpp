#include "ExchangeTable.h"

#include <algorithm>

namespace Messaging {

std::uint32_t CExchangeTable::add(unsigned long ulRequestID, CTimePoint tpDeadline)
{
    m_lstExchanges.push_back({ulRequestID, tpDeadline, true});
    ++m_uOpen;
    m_tpNext = std::min(m_tpNext, tpDeadline);
    return m_dwFirst + static_cast<std::uint32_t>(m_lstExchanges.size() - 1);
}

void CExchangeTable::takeBack()
{
    m_lstExchanges.pop_back();
    --m_uOpen;
}

std::optional<unsigned long> CExchangeTable::take(std::uint32_t dwExchange)
{
    const std::uint32_t dwIndex = dwExchange - m_dwFirst;
    if (dwIndex >= m_lstExchanges.size() || !m_lstExchanges[dwIndex].bOpen)
        return std::nullopt;
    m_lstExchanges[dwIndex].bOpen = false;
    --m_uOpen;
    const unsigned long ulRequestID = m_lstExchanges[dwIndex].ulRequestID;
    dropEnded();
    return ulRequestID;
}

std::vector<unsigned long> CExchangeTable::takeExpired(CTimePoint tpNow)
{
    std::vector<unsigned long> vecExpired;
    if (tpNow < m_tpNext)
        return vecExpired;
    m_tpNext = CTimePoint::max();
    for (CExchange& exchange : m_lstExchanges)
    {
        if (!exchange.bOpen)
            continue;
        if (exchange.tpDeadline > tpNow)
        {
            m_tpNext = std::min(m_tpNext, exchange.tpDeadline);
            continue;
        }
        vecExpired.push_back(exchange.ulRequestID);
        exchange.bOpen = false;
        --m_uOpen;
    }
    dropEnded();
    return vecExpired;
}

std::vector<unsigned long> CExchangeTable::takeAll()
{
    std::vector<unsigned long> vecAll;
    for (const CExchange& exchange : m_lstExchanges)
    {
        if (exchange.bOpen)
            vecAll.push_back(exchange.ulRequestID);
    }
    m_dwFirst += static_cast<std::uint32_t>(m_lstExchanges.size());
    m_lstExchanges.clear();
    m_uOpen = 0;
    m_tpNext = CTimePoint::max();
    return vecAll;
}

void CExchangeTable::dropEnded()
{
    while (!m_lstExchanges.empty() && !m_lstExchanges.front().bOpen)
    {
        m_lstExchanges.pop_front();
        ++m_dwFirst;
    }
}

} // namespace Messaging
