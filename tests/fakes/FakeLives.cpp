#include "FakeLives.h"

#include "AllocationPause.h"

#include <mutex>

namespace {
struct CLives
{
    std::mutex mtx;
    std::vector<std::string> vecEntries; // guarded by mtx
};

CLives& lives()
{
    CAllocationPause pause;
    static CLives* const pLives = new CLives;
    return *pLives;
}
} // namespace

std::vector<std::string> CFakeLives::all()
{
    CAllocationPause pause;
    const std::lock_guard lock(lives().mtx);
    return lives().vecEntries;
}

std::size_t CFakeLives::count()
{
    const std::lock_guard lock(lives().mtx);
    return lives().vecEntries.size();
}

void CFakeLives::note(const std::string& sEntry)
{
    CAllocationPause pause;
    const std::lock_guard lock(lives().mtx);
    lives().vecEntries.push_back(sEntry);
}

void CFakeLives::reset()
{
    const std::lock_guard lock(lives().mtx);
    lives().vecEntries.clear();
}
