#include "EventStream.h"

#include "ChannelResults.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Messaging {
namespace {
/// Reading goes on for so many bytes: enough that it does not stop and go with each message, and soon enough that a
/// peer with a full queue to us sees it move before it takes us for stuck.
constexpr std::size_t cRoom = 1'048'576;
} // namespace

CBody::CBody(std::span<const char> bytes)
    : pBytes(new char[std::max<std::size_t>(bytes.size(), 1)]), uSize(bytes.size())
{
    if (!bytes.empty())
        std::memcpy(pBytes.get(), bytes.data(), bytes.size());
}

void CInboundBudget::add(std::size_t uBytes)
{
    const std::lock_guard lock(m_mtx);
    m_uBytes += uBytes;
}

void CInboundBudget::remove(std::size_t uBytes)
{
    {
        const std::lock_guard lock(m_mtx);
        m_uBytes -= uBytes;
        if (!m_bWaiting || m_uBytes + std::min(cRoom, m_uLimit / 2) > m_uLimit)
            return;
        m_bWaiting = false;
    }
    m_fnRelieved();
}

bool CInboundBudget::exceeded()
{
    const std::lock_guard lock(m_mtx);
    m_bWaiting = m_uBytes > m_uLimit;
    return m_bWaiting;
}

std::size_t CInboundBudget::bytes() const
{
    const std::lock_guard lock(m_mtx);
    return m_uBytes;
}

CEventStream::CEventStream(std::uint32_t dwConnected, std::uint32_t dwDisconnected)
    : m_lConnected(resultOf(dwConnected)), m_lDisconnected(resultOf(dwDisconnected))
{
}

CEventStream::~CEventStream()
{
    close();
}

void CEventStream::open()
{
    const std::lock_guard lock(m_mtx);
    m_bOpen = true;
}

void CEventStream::close()
{
    decltype(m_mapItems) mapItems;
    {
        const std::lock_guard lock(m_mtx);
        m_bOpen = false;
        mapItems.swap(m_mapItems);
        m_lstTurns.clear();
        m_uItems = 0;
    }
    m_cv.notify_all();
    for (const auto& [dwPeer, lstItems] : mapItems)
        std::for_each(lstItems.begin(), lstItems.end(), release);
}

/// A new last item of a peer. Under m_mtx.
CEventStream::CItem& CEventStream::append(std::uint32_t dwPeer)
{
    const auto [it, bFirst] = m_mapItems.try_emplace(dwPeer);
    try
    {
        if (bFirst)
            m_lstTurns.push_back(dwPeer);
        CItem& item = it->second.emplace_back();
        item.dwPeer = dwPeer;
        ++m_uItems;
        return item;
    }
    catch (...) // without memory nothing has happened
    {
        if (bFirst)
        {
            if (!m_lstTurns.empty() && m_lstTurns.back() == dwPeer)
                m_lstTurns.pop_back();
            m_mapItems.erase(it);
        }
        throw;
    }
}

bool CEventStream::isOpen() const
{
    const std::lock_guard lock(m_mtx);
    return m_bOpen;
}

void CEventStream::connected(std::uint32_t dwPeer, std::uint32_t dwSession)
{
    {
        const std::lock_guard lock(m_mtx);
        if (!m_bOpen)
            return;
        CItem& item = append(dwPeer);
        item.lResult = m_lConnected;
        item.dwSession = dwSession;
    }
    m_cv.notify_one();
}

void CEventStream::disconnected(std::uint32_t dwPeer, std::uint32_t dwSession)
{
    std::deque<CItem> lstDropped;
    {
        const std::lock_guard lock(m_mtx);
        if (!m_bOpen)
            return;
        bool bBeginningUnseen = false;
        if (const auto it = m_mapItems.find(dwPeer); it != m_mapItems.end())
        {
            std::deque<CItem> lstKept;
            for (CItem& item : it->second)
            {
                const bool bLeftOver = item.dwSession == dwSession;
                bBeginningUnseen |= bLeftOver && item.lResult == m_lConnected;
                (bLeftOver ? lstDropped : lstKept).push_back(std::move(item));
            }
            m_uItems -= lstDropped.size();
            it->second = std::move(lstKept);
            if (it->second.empty())
            {
                m_mapItems.erase(it);
                std::erase(m_lstTurns, dwPeer);
            }
        }
        // Its session is none: the end of a connection is no left-over of it.
        if (!bBeginningUnseen)
            append(dwPeer).lResult = m_lDisconnected;
    }
    m_cv.notify_one();
    std::for_each(lstDropped.begin(), lstDropped.end(), release);
}

bool CEventStream::request(CItem item)
{
    {
        const std::lock_guard lock(m_mtx);
        if (!m_bOpen)
            return false;
        const std::uint32_t dwPeer = item.dwPeer;
        CItem& last = append(dwPeer);
        last = std::move(item);
        last.pBudget->add(last.body.uSize + sizeof(CItem));
    }
    m_cv.notify_one();
    return true;
}

bool CEventStream::fetch(CItem* pItem)
{
    {
        std::unique_lock lock(m_mtx);
        m_cv.wait(lock, [this] { return m_uItems != 0 || !m_bOpen; });
        if (!m_bOpen)
            return false;
        const auto it = m_mapItems.find(m_lstTurns.front());
        *pItem = std::move(it->second.front());
        it->second.pop_front();
        --m_uItems;
        if (it->second.empty())
        {
            m_lstTurns.pop_front();
            m_mapItems.erase(it);
        }
        else if (m_lstTurns.size() > 1)
        {
            m_lstTurns.push_back(m_lstTurns.front());
            m_lstTurns.pop_front();
        }
    }
    release(*pItem);
    return true;
}

std::size_t CEventStream::size() const
{
    const std::lock_guard lock(m_mtx);
    return m_uItems;
}

void CEventStream::release(const CItem& item)
{
    if (item.pBudget)
        item.pBudget->remove(item.body.uSize + sizeof(CItem));
}

} // namespace Messaging
