#include "EndStream.h"

#include <algorithm>
#include <utility>

namespace Messaging {

void CEndStream::open()
{
    const std::lock_guard lock(m_mtx);
    m_bOpen = true;
}

void CEndStream::close()
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

void CEndStream::add(CItem item)
{
    {
        const std::lock_guard lock(m_mtx);
        if (!m_bOpen)
            return;
        if (item.pBudget)
            item.pBudget->add(item.body.uSize + sizeof(CItem));
        m_lstItems.push_back(std::move(item));
    }
    m_cv.notify_one();
}

bool CEndStream::fetch(CItem* pItem)
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

std::size_t CEndStream::size() const
{
    const std::lock_guard lock(m_mtx);
    return m_lstItems.size();
}

void CEndStream::release(const CItem& item)
{
    if (item.pBudget)
        item.pBudget->remove(item.body.uSize + sizeof(CItem));
}

} // namespace Messaging
