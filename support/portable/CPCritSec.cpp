#include "CPCritSec.h"

CPCritSec::CPCritSec(const char* pszName, int /*nFlag*/) : m_pszName(pszName) {}

CPCritSec::~CPCritSec() = default;

// The analysis cannot know that m_mutex is what the class as a whole stands for.
CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) void CPCritSec::enter(long /*lPlace*/)
{
    m_mutex.lock();
}

CDS_THREAD_ATTRIBUTE(no_thread_safety_analysis) void CPCritSec::leave(long /*lPlace*/)
{
    m_mutex.unlock();
}
