#include "TraceMask.h"

#include <map>
#include <memory>

CTraceMask& CTraceMask::of(const std::string& sLogName)
{
    static std::mutex* const pMutex = new std::mutex;
    static auto* const pMasks = new std::map<std::string, std::unique_ptr<CTraceMask>>;
    const std::lock_guard lock(*pMutex);
    std::unique_ptr<CTraceMask>& pMask = (*pMasks)[sLogName];
    if (!pMask)
        pMask = std::make_unique<CTraceMask>();
    return *pMask;
}

void CTraceMask::choose(std::uint32_t dwMask)
{
    const std::lock_guard lock(m_mtx);
    m_bChosen = true;
    m_dwMask.store(dwMask);
}

void CTraceMask::configure(std::uint32_t dwMask)
{
    const std::lock_guard lock(m_mtx);
    const bool bChanged = m_optConfigured && *m_optConfigured != dwMask;
    m_optConfigured = dwMask;
    if (m_bChosen && !bChanged)
        return;
    m_bChosen = false;
    m_dwMask.store(dwMask);
}

void CTraceMask::unbind()
{
    const std::lock_guard lock(m_mtx);
    m_optConfigured.reset();
}
