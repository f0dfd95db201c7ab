#pragma once

#include "FailingAllocator.h"
#include "ModelSupport.h"

#include <new>

namespace model {

/// How an operation ended.
struct SOutcome
{
    long lResult = 0;           ///< what it returned
    bool bBadAlloc = false;     ///< or threw: std::bad_alloc
    unsigned long ulThrown = 0; ///< or threw: a code

    bool succeeded() const { return lResult >= 0 && !bBadAlloc && ulThrown == 0; }
};

/// Runs an operation that may run out of memory.
template <class TOperation> SOutcome attempted(const TOperation& operation)
{
    SOutcome outcome;
    try
    {
        outcome.lResult = operation();
    }
    catch (const std::bad_alloc&)
    {
        outcome.bBadAlloc = true;
    }
    catch (unsigned long ulCode)
    {
        outcome.ulThrown = ulCode;
    }
    return outcome;
}

/// Runs an operation on a fresh object with 0, 1, 2, ... allocations granted until none is refused: once with all later
/// ones refused too, once with one refused and the rest granted.
///
/// Whatever is refused, the operation has given back every lock that it took.
///
/// @param make     makes the object
/// @param operate  takes it, returns a result
/// @param check    takes the object and the outcome; told also when nothing was refused
template <class TMake, class TOperate, class TCheck>
void sweep(const TMake& make, const TOperate& operate, const TCheck& check)
{
    using Mode = CFailingAllocator::Mode;
    for (const Mode eMode : {Mode::RefuseAllLater, Mode::RefuseOne})
    {
        bool bHit = true;
        std::size_t uGranted = 0;
        for (; bHit && uGranted < 5000; ++uGranted)
        {
            SCOPED_TRACE((eMode == Mode::RefuseOne ? "one refused after " : "refused from ") +
                         std::to_string(uGranted));
            auto object = make();
            SOutcome outcome;
            CFakeLocks::reset();
            CFakeLocks::record(true);
            {
                const CFailingAllocator failing(uGranted, eMode);
                outcome = attempted([&] { return operate(object); });
                bHit = failing.hit();
            }
            CFakeLocks::record(false);
            EXPECT_TRUE(CFakeLocks::balanced());
            EXPECT_TRUE(outcome.ulThrown == 0 || outcome.ulThrown == cBlobRefused) << outcome.ulThrown;
            check(object, outcome);
            EXPECT_TRUE(bHit || outcome.succeeded()) << "failed with all the memory it asked for";
        }
        EXPECT_FALSE(bHit) << "never comes to an end";
        EXPECT_GT(uGranted, 1U) << "never allocates: nothing was tried";
    }
}

} // namespace model
