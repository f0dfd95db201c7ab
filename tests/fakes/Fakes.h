#pragma once

#include "AllocationPause.h"
#include "FakeChannel.h"
#include "FakeClock.h"
#include "FakeConfiguration.h"
#include "FakeEvents.h"
#include "FakeGuid.h"
#include "FakeLives.h"
#include "FakeLocks.h"
#include "FakeLog.h"
#include "FakeThreads.h"

/// All fakes, as at first while it lives: for fixtures, declared before what is tested.
///
/// Objects that exist already keep working; a log that stays alive gets back the trace mask it was bound with.
class CFakeWorld
{
public:
    CFakeWorld();
    ~CFakeWorld();
    CFakeWorld(const CFakeWorld&) = delete;
    CFakeWorld& operator=(const CFakeWorld&) = delete;

    static void reset();
};
