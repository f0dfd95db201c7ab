#include "LogQueue.h"

#include <algorithm>
#include <new>
#include <utility>

void CLogQueue::setLimits(std::size_t uLines, bool bDropWhenFull)
{
    const std::lock_guard lock(m_mtx);
    m_uMaxLines = std::max<std::size_t>(uLines, 1);
    m_bDropWhenFull = bDropWhenFull;
    m_cvSpace.notify_all();
}

bool CLogQueue::full(std::size_t uBytes) const
{
    const std::size_t uHeld = m_pending.m_vecBytes.size() - m_pending.m_uFront;
    return m_pending.m_uLines >= m_uMaxLines || (m_pending.m_uLines > 0 && uHeld + uBytes > cMaxBytes);
}

bool CLogQueue::worthWriting() const
{
    return m_pending.m_uLines > m_uMaxLines / 2 || m_pending.m_vecBytes.size() > cMaxBytes / 2;
}

void CLogQueue::dropOldest()
{
    std::vector<char>& vecBytes = m_pending.m_vecBytes;
    CHeader header;
    std::memcpy(&header, vecBytes.data() + m_pending.m_uFront, sizeof header);
    m_pending.m_uFront += sizeof header + header.dwLength;
    --m_pending.m_uLines;
    ++m_pending.m_ullDropped;
    if (m_pending.m_uFront > vecBytes.size() / 2)
    {
        vecBytes.erase(vecBytes.begin(), vecBytes.begin() + static_cast<std::ptrdiff_t>(m_pending.m_uFront));
        m_pending.m_uFront = 0;
    }
}

void CLogQueue::push(std::int64_t llStampNs, std::uint32_t dwThread, bool bConsole, std::string_view sText) noexcept
{
    const CHeader header{llStampNs, dwThread, static_cast<std::uint32_t>(sText.size()), bConsole};
    const std::size_t uBytes = sizeof header + sText.size();
    bool bWake = false;
    {
        std::unique_lock lock(m_mtx);
        while (full(uBytes))
        {
            if (m_bDropWhenFull)
            {
                dropOldest();
                continue;
            }
            ++m_uBlocked;
            m_cvWriter.notify_one();
            m_cvSpace.wait(lock);
            --m_uBlocked;
        }
        std::vector<char>& vecBytes = m_pending.m_vecBytes;
        const std::size_t uAt = vecBytes.size();
        try
        {
            vecBytes.resize(uAt + uBytes);
        }
        catch (const std::bad_alloc&)
        {
            ++m_pending.m_ullDropped;
            return;
        }
        std::memcpy(vecBytes.data() + uAt, &header, sizeof header);
        if (!sText.empty())
            std::memcpy(vecBytes.data() + uAt + sizeof header, sText.data(), sText.size());
        ++m_pending.m_uLines;
        bWake = m_bWriterIdle || (m_bWriterGathers && worthWriting());
        if (bWake)
            m_bWriterIdle = m_bWriterGathers = false; // told once
    }
    if (bWake)
        m_cvWriter.notify_one();
}

void CLogQueue::collect(CBatch* pBatch, CTimePoint tpUntil)
{
    const auto fnUrged = [this] {
        return m_bWake || m_pending.m_bStop || m_uBlocked > 0 || m_ullRequested > m_ullCompleted;
    };
    pBatch->m_vecBytes.clear(); // keeps its memory: the two blocks serve by turns
    std::unique_lock lock(m_mtx);
    const auto fnSomething = [&] { return m_pending.m_uLines > 0 || fnUrged(); };
    if (!fnSomething())
    {
        m_bWriterIdle = true;
        if (tpUntil == CTimePoint::max())
            m_cvWriter.wait(lock, fnSomething);
        else
            (void)m_cvWriter.wait_until(lock, tpUntil, fnSomething); // an empty batch says that the time has come
        m_bWriterIdle = false;
    }
    const auto fnEnough = [&] { return worthWriting() || fnUrged(); };
    if (m_pending.m_uLines > 0 && !fnEnough())
    {
        m_bWriterGathers = true;
        (void)m_cvWriter.wait_for(lock, cGather, fnEnough); // either way there is something to write
        m_bWriterGathers = false;
    }
    m_bWake = false;
    m_pending.m_ullRequest = m_ullRequested;
    std::swap(*pBatch, m_pending);
    m_pending.m_uFront = m_pending.m_uLines = 0;
    m_pending.m_ullDropped = 0;
    m_pending.m_bReopen = false;
    m_pending.m_bStop = pBatch->m_bStop;
    if (m_uBlocked > 0)
        m_cvSpace.notify_all();
}

void CLogQueue::complete(const CBatch& batch)
{
    const std::lock_guard lock(m_mtx);
    if (m_ullCompleted == batch.m_ullRequest)
        return;
    m_ullCompleted = batch.m_ullRequest;
    m_cvCompleted.notify_all();
}

void CLogQueue::request(bool bReopen)
{
    std::unique_lock lock(m_mtx);
    const std::uint64_t ullRequest = ++m_ullRequested;
    m_pending.m_bReopen = m_pending.m_bReopen || bReopen;
    m_cvWriter.notify_one();
    m_cvCompleted.wait(lock, [&] { return m_ullCompleted >= ullRequest; });
}

void CLogQueue::wake()
{
    const std::lock_guard lock(m_mtx);
    m_bWake = true;
    m_cvWriter.notify_one();
}

void CLogQueue::stop()
{
    const std::lock_guard lock(m_mtx);
    m_pending.m_bStop = true;
    m_cvWriter.notify_one();
}
