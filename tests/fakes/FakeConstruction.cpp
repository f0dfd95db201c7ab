#include "FakeConstruction.h"

#include "AllocationPause.h"
#include "KRException.h"

#include <utility>

void CFakeConstruction::failNext(long lCode, std::size_t uSkip, std::string sSource, int nLine)
{
    CAllocationPause pause;
    const std::lock_guard lock(m_mtx);
    m_optFailure = CFailure{lCode, uSkip, std::move(sSource), nLine};
}

void CFakeConstruction::enter()
{
    CAllocationPause pause;
    std::optional<CFailure> optFailure;
    {
        const std::lock_guard lock(m_mtx);
        if (!m_optFailure || m_optFailure->uSkip-- > 0)
            return;
        optFailure.swap(m_optFailure);
    }
    throw KRException(optFailure->lCode, optFailure->sSource.c_str(), optFailure->nLine);
}

void CFakeConstruction::reset()
{
    const std::lock_guard lock(m_mtx);
    m_optFailure.reset();
}
