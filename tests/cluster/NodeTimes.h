#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

/// How long a node's calls into the store took at the most, and how late the machine let a thread run that had nothing
/// to do with the store. A call is late by itself only beyond that.
///
/// Threads  may be called from any.
class CNodeTimes
{
public:
    using CClock = std::chrono::steady_clock;

    struct CReading
    {
        unsigned long ulCalls = 0;
        CClock::duration longest{};
        CClock::duration machine{};
    };

    CNodeTimes() : m_thread([this] { watchMachine(); }) {}
    ~CNodeTimes()
    {
        {
            const std::lock_guard guard(m_mutex);
            m_bStopping = true;
        }
        m_stopping.notify_all();
        m_thread.join();
    }
    CNodeTimes(const CNodeTimes&) = delete;
    CNodeTimes& operator=(const CNodeTimes&) = delete;

    /// Measures one call into the store.
    template <class TCall> auto measured(TCall call)
    {
        const auto begin = CClock::now();
        const auto result = call();
        const auto took = CClock::now() - begin;
        const std::lock_guard guard(m_mutex);
        ++m_reading.ulCalls;
        m_reading.longest = std::max(m_reading.longest, took);
        return result;
    }

    /// What was measured since the last reading.
    CReading read()
    {
        const std::lock_guard guard(m_mutex);
        return std::exchange(m_reading, {});
    }

private:
    void watchMachine()
    {
        constexpr auto cPeriod = std::chrono::milliseconds(2);
        std::unique_lock lock(m_mutex);
        while (!m_bStopping)
        {
            const auto begin = CClock::now();
            (void)m_stopping.wait_for(lock, cPeriod, [this] { return m_bStopping; });
            m_reading.machine = std::max(m_reading.machine, CClock::now() - begin - cPeriod);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_stopping;
    CReading m_reading;
    bool m_bStopping = false;
    std::thread m_thread; // last: it uses the others
};
