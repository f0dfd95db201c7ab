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
    std::deque<CItem> lstItems;
    {
        const std::lock_guard lock(m_mtx);
        m_bOpen = false;
        lstItems.swap(m_lstItems);
    }
    m_cv.notify_all();
    std::for_each(lstItems.begin(), lstItems.end(), release);
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
        CItem& item = m_lstItems.emplace_back();
        item.lResult = m_lConnected;
        item.dwPeer = dwPeer;
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
        std::deque<CItem> lstKept;
        for (CItem& item : m_lstItems)
        {
            const bool bLeftOver = item.dwPeer == dwPeer && item.dwSession == dwSession;
            bBeginningUnseen |= bLeftOver && item.lResult == m_lConnected;
            (bLeftOver ? lstDropped : lstKept).push_back(std::move(item));
        }
        m_lstItems = std::move(lstKept);
        if (!bBeginningUnseen)
        {
            CItem& item = m_lstItems.emplace_back();
            item.lResult = m_lDisconnected;
            item.dwPeer = dwPeer;
            // A session of its own: the end of a connection is no left-over of it.
        }
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
        item.pBudget->add(item.body.uSize + sizeof(CItem));
        m_lstItems.push_back(std::move(item));
    }
    m_cv.notify_one();
    return true;
}

bool CEventStream::fetch(CItem* pItem)
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

std::size_t CEventStream::size() const
{
    const std::lock_guard lock(m_mtx);
    return m_lstItems.size();
}

void CEventStream::release(const CItem& item)
{
    if (item.pBudget)
        item.pBudget->remove(item.body.uSize + sizeof(CItem));
}

} // namespace Messaging
