#include "EventStream.h"

#include "ChannelResults.h"

namespace Messaging {

CEventStream::CEventStream(std::uint32_t dwConnected, std::uint32_t dwDisconnected)
    : m_lConnected(resultOf(dwConnected)), m_lDisconnected(resultOf(dwDisconnected))
{
}

void CEventStream::connected(std::uint32_t dwPeer, std::uint32_t dwSession)
{
    (void)add({m_lConnected, dwPeer, dwSession, 0, {}, nullptr}); // a closed stream keeps nothing
}

void CEventStream::disconnected(std::uint32_t dwPeer, std::uint32_t dwSession)
{
    std::deque<CReceivedItem> lstDropped;
    (void)change([&](std::deque<CReceivedItem>& lstItems) { // a closed stream keeps nothing
        bool bBeginningUnseen = false;
        std::deque<CReceivedItem> lstKept;
        for (CReceivedItem& item : lstItems)
        {
            const bool bLeftOver = item.dwPeer == dwPeer && item.dwSession == dwSession;
            bBeginningUnseen |= bLeftOver && item.lResult == m_lConnected;
            (bLeftOver ? lstDropped : lstKept).push_back(std::move(item));
        }
        lstItems = std::move(lstKept);
        // The end is no left-over of its session, so it carries no number of one.
        if (!bBeginningUnseen)
            lstItems.push_back({m_lDisconnected, dwPeer, 0, 0, {}, nullptr});
    });
    std::for_each(lstDropped.begin(), lstDropped.end(), release);
}

} // namespace Messaging
