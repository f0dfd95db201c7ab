#pragma once

#include <sched.h>

/// Has the calling thread serve in the background: when it wakes up it waits for a processor instead of taking one from
/// a thread that is running. Its share of the processors stays the same.
///
/// Work passes through several of the system's threads, one piece at a time. While there are more of them awake than
/// processors, each wake-up would otherwise cut short the thread it came from, and every piece would cost a switch at
/// each step; so pieces gather, and each thread deals with many at its turn. With a processor to spare a thread runs as
/// soon as it is woken.
///
/// Does nothing where the process was given another policy than the system's usual one: whoever chose that has reasons.
///
/// Threads    any; concerns the calling one, and the threads that it makes afterwards
inline void serveInBackground() noexcept
{
    const sched_param parameters{};
    if (sched_getscheduler(0) == SCHED_OTHER)
        (void)sched_setscheduler(0, SCHED_BATCH, &parameters); // a convenience
}
