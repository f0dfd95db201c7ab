// Replaces the global allocation functions of the test it is linked into. Everything is in this one source, so that
// whoever takes one function of it takes all.
#include "FailingAllocator.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>

extern "C" {
// The linker's --wrap option sends the test's own calls here; a sanitizer's allocator, if any, is the real one.
void* __real_malloc(std::size_t uSize);
void* __real_calloc(std::size_t uCount, std::size_t uSize);
void* __real_realloc(void* pMemory, std::size_t uSize);
void* __wrap_malloc(std::size_t uSize);
void* __wrap_calloc(std::size_t uCount, std::size_t uSize);
void* __wrap_realloc(void* pMemory, std::size_t uSize);
}

namespace {
struct CAllocationState
{
    bool bArmed = false;
    bool bHit = false;
    CFailingAllocator::Mode eMode = CFailingAllocator::Mode::RefuseAllLater;
    std::size_t uGranted = 0;
    std::size_t uSeen = 0;
};
constinit thread_local CAllocationState t_state;

bool refused() noexcept
{
    if (!t_state.bArmed || CAllocationPause::active())
        return false;
    const std::size_t uIndex = t_state.uSeen++;
    const bool bRefused =
        t_state.eMode == CFailingAllocator::Mode::RefuseOne ? uIndex == t_state.uGranted : uIndex >= t_state.uGranted;
    t_state.bHit = t_state.bHit || bRefused;
    return bRefused;
}

void* allocate(std::size_t uSize) noexcept
{
    return refused() ? nullptr : __real_malloc(std::max<std::size_t>(uSize, 1));
}

void* allocate(std::size_t uSize, std::align_val_t eAlign) noexcept
{
    if (refused())
        return nullptr;
    const auto uAlign = std::max(static_cast<std::size_t>(eAlign), sizeof(void*));
    void* pMemory = nullptr;
    return ::posix_memalign(&pMemory, uAlign, std::max<std::size_t>(uSize, 1)) == 0 ? pMemory : nullptr;
}

void* orThrow(void* pMemory)
{
    if (!pMemory)
        throw std::bad_alloc();
    return pMemory;
}
} // namespace

CFailingAllocator::CFailingAllocator(std::size_t uGranted, Mode eMode) noexcept
{
    t_state = {.bArmed = true, .bHit = false, .eMode = eMode, .uGranted = uGranted, .uSeen = 0};
}

CFailingAllocator::~CFailingAllocator()
{
    t_state = {};
}

bool CFailingAllocator::hit() const noexcept
{
    return t_state.bHit;
}

std::size_t CFailingAllocator::seen() const noexcept
{
    return t_state.uSeen;
}

CSweepResult sweepAllocations(const std::function<bool()>& fnOperation, std::size_t uMaxRounds)
{
    CSweepResult result;
    while (result.uRounds < uMaxRounds && !result.bCompleted)
    {
        bool bDone = false;
        bool bHit = false;
        {
            CFailingAllocator failing(result.uRounds++);
            try
            {
                bDone = fnOperation();
            }
            catch (const std::bad_alloc&)
            {
                bDone = false;
            }
            bHit = failing.hit();
        }
        result.uRefused += bHit ? 1 : 0;
        result.uSurvived += bHit && bDone ? 1 : 0;
        if (!bHit && !bDone)
            return result; // failed with all the memory it asked for: more rounds would not help
        result.bCompleted = !bHit;
    }
    return result;
}

void* __wrap_malloc(std::size_t uSize)
{
    if (refused())
    {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_malloc(uSize);
}

void* __wrap_calloc(std::size_t uCount, std::size_t uSize)
{
    if (refused())
    {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(uCount, uSize);
}

void* __wrap_realloc(void* pMemory, std::size_t uSize)
{
    if (refused())
    {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_realloc(pMemory, uSize);
}

void* operator new(std::size_t uSize)
{
    return orThrow(allocate(uSize));
}

void* operator new[](std::size_t uSize)
{
    return orThrow(allocate(uSize));
}

void* operator new(std::size_t uSize, const std::nothrow_t&) noexcept
{
    return allocate(uSize);
}

void* operator new[](std::size_t uSize, const std::nothrow_t&) noexcept
{
    return allocate(uSize);
}

void* operator new(std::size_t uSize, std::align_val_t eAlign)
{
    return orThrow(allocate(uSize, eAlign));
}

void* operator new[](std::size_t uSize, std::align_val_t eAlign)
{
    return orThrow(allocate(uSize, eAlign));
}

void* operator new(std::size_t uSize, std::align_val_t eAlign, const std::nothrow_t&) noexcept
{
    return allocate(uSize, eAlign);
}

void* operator new[](std::size_t uSize, std::align_val_t eAlign, const std::nothrow_t&) noexcept
{
    return allocate(uSize, eAlign);
}

void operator delete(void* pMemory) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, std::size_t) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, std::size_t) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, std::align_val_t) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, std::align_val_t) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, std::size_t, std::align_val_t) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, std::size_t, std::align_val_t) noexcept
{
    std::free(pMemory);
}

void operator delete(void* pMemory, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}

void operator delete[](void* pMemory, std::align_val_t, const std::nothrow_t&) noexcept
{
    std::free(pMemory);
}
