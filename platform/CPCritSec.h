#pragma once

#include "CPAnnotations.h"
#include "CPExport.h"

#include <mutex>

/// A re-entrant lock with a name.
///
/// Threads    the thread that entered leaves, as many times as it entered; destroyed only when nobody holds it.
/// Ownership  keeps the pointer to its name: the text outlives the lock (a literal).
/// Errors     the constructor throws KRException when the system has no lock to give.
///
/// The implementation may record who enters from where; the members below are all the state it may keep, so that a
/// record with a lock of its own stays small.
class CP_API CDS_CAPABILITY("mutex") CPCritSec
{
public:
    /// @param pszName  for diagnostics
    /// @param nFlag    1: re-entrant, the only kind there is
    CPCritSec(const char* pszName, int nFlag);
    ~CPCritSec();
    CPCritSec(const CPCritSec&) = delete;
    CPCritSec& operator=(const CPCritSec&) = delete;

    /// Waits for the lock without limit.
    ///
    /// @param lPlace  a number that names the calling place, for diagnostics; never a time-out
    void enter(long lPlace) CDS_ACQUIRE();

    /// Gives back one enter of the calling thread.
    void leave(long lPlace) CDS_RELEASE();

    const char* name() const noexcept { return m_pszName; }

private:
    std::recursive_mutex m_mutex;
    const char* const m_pszName;
};
