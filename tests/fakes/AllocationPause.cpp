#include "AllocationPause.h"

namespace {
constinit thread_local int t_nPauses = 0;
}

CAllocationPause::CAllocationPause() noexcept
{
    ++t_nPauses;
}

CAllocationPause::~CAllocationPause()
{
    --t_nPauses;
}

bool CAllocationPause::active() noexcept
{
    return t_nPauses > 0;
}
