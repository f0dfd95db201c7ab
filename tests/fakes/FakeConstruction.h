#pragma once

#include <mutex>
#include <optional>
#include <string>

/// Makes the construction of a fake object fail: the n-th from now throws a KRException.
///
/// Threads    any.
class CFakeConstruction
{
public:
    /// @param lCode      the exception's code
    /// @param uSkip      constructions that still succeed before
    /// @param sSource, nLine  the exception's location
    void failNext(long lCode, std::size_t uSkip, std::string sSource, int nLine);

    /// Called by the constructor concerned. Throws when it is its turn.
    void enter();

    void reset();

private:
    struct CFailure
    {
        long lCode;
        std::size_t uSkip;
        std::string sSource;
        int nLine;
    };

    std::mutex m_mtx;
    std::optional<CFailure> m_optFailure; // guarded by m_mtx
};
