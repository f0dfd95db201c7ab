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
    CItems lstDropped;
    // The end is no left-over of its session, so it carries no number of one.
    CItems lstEnd;
    lstEnd.push_back({m_lDisconnected, dwPeer, 0, 0, {}, nullptr});
    (void)change(dwPeer, [&](CItems& lstItems) { // a closed stream keeps nothing
        bool bBeginningUnseen = false;
        for (auto it = lstItems.begin(); it != lstItems.end();)
        {
            const auto itItem = it++;
            if (itItem->dwSession != dwSession)
                continue;
            bBeginningUnseen |= itItem->lResult == m_lConnected;
            lstDropped.splice(lstDropped.end(), lstItems, itItem);
        }
        if (!bBeginningUnseen)
            lstItems.splice(lstItems.end(), lstEnd);
    });
    std::for_each(lstDropped.begin(), lstDropped.end(), release);
}

} // namespace Messaging
