// Messages by time.
#include "capture/MessageReorder.h"

void CMessageReorder::add(CCapturedMessage&& message)
{
    const std::int64_t llMicros = message.llMicros;
    m_uHeldBytes += message.sBytes.size();
    m_mmapHeld.emplace(llMicros, std::move(message));
    while (m_mmapHeld.size() > cMaxHeld || m_uHeldBytes > cMaxHeldBytes ||
           m_mmapHeld.rbegin()->first - m_mmapHeld.begin()->first > cHoldMicros)
        release();
}

void CMessageReorder::flush()
{
    while (!m_mmapHeld.empty())
        release();
}

void CMessageReorder::release()
{
    CCapturedMessage message = std::move(m_mmapHeld.begin()->second);
    m_mmapHeld.erase(m_mmapHeld.begin());
    m_uHeldBytes -= message.sBytes.size();
    m_fnMessage(std::move(message));
}
