#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The fake events: real ones, whose time-outs run on the fake clock.
///
/// Threads    every operation may be called from any thread.
class CFakeEvents
{
public:
    /// Arguments of one construction.
    struct CCreation
    {
        int nAutoReset = 0;
        std::string sName;
        int nClear = 0;
    };

    /// Constructions so far, in order.
    static std::vector<CCreation> creations();

    /// Events that exist now.
    static std::size_t alive();

    /// The next construction, after uSkip good ones, throws KRException(lCode, pszSource, nLine).
    static void failNextCreation(long lCode, std::size_t uSkip = 0, const char* pszSource = "fakes/CPEvent",
                                 int nLine = 1);

    static void reset();
};
