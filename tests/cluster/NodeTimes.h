#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <time.h>
#include <utility>

/// How long a node's calls into the store took at the most, and how much the machine delayed a thread that had nothing
/// to do with the store, but woke up and worked like one that has. A call is late by itself only beyond that.
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
        const char* pszLongest = "none";
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
    template <class TCall> auto measured(const char* pszName, TCall call)
    {
        const auto begin = CClock::now();
        const auto result = call();
        const auto took = CClock::now() - begin;
        const std::lock_guard guard(m_mutex);
        ++m_reading.ulCalls;
        if (took > m_reading.longest)
        {
            m_reading.longest = took;
            m_reading.pszLongest = pszName;
        }
        return result;
    }

    /// What was measured since the last reading.
    CReading read()
    {
        const std::lock_guard guard(m_mutex);
        return std::exchange(m_reading, {});
    }

private:
    static std::chrono::nanoseconds worked()
    {
        timespec time{};
        (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time); // always there
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    }
    void watchMachine()
    {
        constexpr auto cPause = std::chrono::milliseconds(5);
        constexpr auto cWork = std::chrono::microseconds(300);
        std::unique_lock lock(m_mutex);
        while (!m_bStopping)
        {
            const auto begin = CClock::now();
            (void)m_stopping.wait_for(lock, cPause, [this] { return m_bStopping; });
            lock.unlock();
            for (const auto until = worked() + cWork; worked() < until;)
                continue;
            const auto delay = CClock::now() - begin - cPause - cWork;
            lock.lock();
            m_reading.machine = std::max<CClock::duration>(m_reading.machine, delay);
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_stopping;
    CReading m_reading;
    bool m_bStopping = false;
    std::thread m_thread; // last: it uses the others
};
