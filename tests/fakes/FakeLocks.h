#pragma once

#include <cstddef>
#include <string>
#include <thread>
#include <vector>

/// The fake locks: real ones, which leave a record while recording is on. It is off at first, and then costs one
/// relaxed test.
///
/// Threads    every operation may be called from any thread. Switch recording on while nobody holds a lock.
class CFakeLocks
{
public:
    /// A lock that was made.
    struct CCreation
    {
        std::string sName;
        int nFlag = 0;
        const void* pLock = nullptr;
    };

    /// One enter or leave. Noted while the lock is held, so that each lock's own entries stand in their true order.
    struct CEntry
    {
        bool bEnter = false;
        std::string sName;
        const void* pLock = nullptr;
        long lPlace = 0;
        std::thread::id idThread{};
    };

    /// Starts or stops recording; what is recorded stays.
    static void record(bool bOn);

    static std::vector<CCreation> creations();
    static std::vector<CEntry> entries();
    /// Those of locks of that name.
    static std::vector<CEntry> entries(const std::string& sName);

    /// Locks made minus locks destroyed, while recording.
    static long alive();

    /// Names of the locks that the calling thread holds, by the record, in the order it entered them; a lock entered
    /// twice is named twice. For callbacks that check under which lock they run.
    static std::vector<std::string> heldByThisThread();

    /// Whether every enter on record has been given back by its thread.
    static bool balanced();

    /// The next creation, after uSkip good ones, throws KRException(lCode, pszSource, nLine).
    static void failNextCreation(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CPCritSec",
                                 int nLine = 1);

    /// Recording off, records empty.
    static void reset();
};
