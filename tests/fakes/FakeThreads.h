#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The fake threads: real ones, which leave a record.
///
/// Threads    every operation may be called from any thread.
class CFakeThreads
{
public:
    /// A thread that was started.
    struct CStart
    {
        std::string sName;
        const void* pArg = nullptr;
        const void* pStopEvent = nullptr; ///< null for CPortable::CreateThread
        bool bCreateThread = false;       ///< by CPortable::CreateThread, else by CPThread
    };

    /// Starts so far, in order; failed ones are not among them.
    static std::vector<CStart> starts();

    /// Names given by CPortable::SetCurrentThreadName, in order.
    static std::vector<std::string> namesSet();

    /// Threads started and not joined yet.
    static std::size_t alive();

    /// The next CPThread, after uSkip good ones, throws KRException(lCode, pszSource, nLine).
    static void failNextThread(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CPThread",
                               int nLine = 1);

    /// The next CPortable::CreateThread, after uSkip good ones, gives 0.
    static void failNextCreateThread(std::size_t uSkip = 0);

    /// Whether every CPortable::CreateThread gives 0. Off at first.
    static void setCreateThreadRefused(bool bRefused);

    static void reset();
};
