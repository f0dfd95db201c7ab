#pragma once

#include "CPExport.h"

#include <memory>

class CPEvent;

/// A thread that is told to stop through an event.
///
/// Threads    started by the constructor, possibly running before it returns; the destructor sets the stop event and
///            waits until the thread has returned, so it must not run on that thread.
/// Ownership  the event stays the caller's and outlives the object.
/// Errors     the constructor throws KRException when no thread can be started.
class CP_API CPThread
{
public:
    CPThread(const char* pszName, void (*pfnEntry)(void*), void* pArg, CPEvent* pStopEvent);
    ~CPThread();
    CPThread(const CPThread&) = delete;
    CPThread& operator=(const CPThread&) = delete;

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};
