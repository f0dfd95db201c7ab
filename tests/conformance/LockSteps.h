#pragma once

#include "CPCritSec.h"

/// Single steps on a lock, for tests that enter it again: clang's analysis takes every lock for one that may not be.
CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) inline void enterStep(CPCritSec& cs, long lPlace)
{
    cs.enter(lPlace);
}

CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) inline void leaveStep(CPCritSec& cs, long lPlace)
{
    cs.leave(lPlace);
}
