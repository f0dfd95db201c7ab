#include "Fakes.h"

CFakeWorld::CFakeWorld()
{
    reset();
}

CFakeWorld::~CFakeWorld()
{
    reset();
}

void CFakeWorld::reset()
{
    CFakeChannels::reset();
    CFakeClock::reset();
    CFakeConfiguration::reset();
    CFakeEvents::reset();
    CFakeGuid::reset();
    CFakeLives::reset();
    CFakeLocks::reset();
    CFakeLog::reset();
    CFakeThreads::reset();
}
