#include "ItemStream.h"

#include <cstring>

namespace Messaging {
namespace {
/// Reading goes on for so many bytes: enough that it does not stop and go with each message, and soon enough that a
/// peer with a full queue to us sees it move, also when each message takes us a while, before it takes us for stuck.
constexpr std::size_t cRoom = 32'768;
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

} // namespace Messaging
