#pragma once

#include "AllocationPause.h"

#include <cstddef>
#include <functional>

/// Grants the calling thread a number of allocations while it lives, and refuses those that follow: operator new
/// throws std::bad_alloc or gives null, malloc, calloc and realloc give null.
///
/// Counted are operator new in every form, wherever it is called, and malloc, calloc and realloc where the calling
/// object is linked into the test itself (a shared library's own are left alone, and so is the memory of exceptions).
/// What the fakes allocate for their records is not counted. A test links CDSFailingAllocator to have this.
///
/// Threads    one at a time per thread, made and destroyed on the thread it concerns; other threads notice nothing.
class CFailingAllocator
{
public:
    /// What happens after the first refusal.
    enum class Mode
    {
        RefuseAllLater, ///< memory has run out and stays so
        RefuseOne       ///< one allocation fails, those after it are granted
    };

    explicit CFailingAllocator(std::size_t uGranted, Mode eMode = Mode::RefuseAllLater) noexcept;
    ~CFailingAllocator();
    CFailingAllocator(const CFailingAllocator&) = delete;
    CFailingAllocator& operator=(const CFailingAllocator&) = delete;

    /// Whether an allocation was refused so far.
    bool hit() const noexcept;

    /// Allocations asked for so far, refused ones included.
    std::size_t seen() const noexcept;
};

/// The outcome of a sweep.
struct CSweepResult
{
    bool bCompleted = false;   ///< the operation succeeded in a round that refused nothing
    std::size_t uRounds = 0;   ///< rounds run
    std::size_t uRefused = 0;  ///< rounds in which an allocation was refused
    std::size_t uSurvived = 0; ///< of these, rounds in which the operation succeeded all the same
};

/// Runs the operation with 0, 1, 2, ... allocations granted, until it succeeds with none refused.
///
/// The operation does its own preparation and clean-up under a CAllocationPause where these are not to be counted, and
/// returns whether it succeeded; std::bad_alloc that leaves it counts as "no success", any other exception passes on.
///
/// @param uMaxRounds  gives up after so many: an operation that never completes is a fault of its own
CSweepResult sweepAllocations(const std::function<bool()>& fnOperation, std::size_t uMaxRounds = 20000);
