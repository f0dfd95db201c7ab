#include "FakeGuid.h"

#include "AllocationPause.h"
#include "CPortable.h"

#include <array>
#include <cstdio>
#include <deque>
#include <mutex>
#include <random>

namespace {
struct CGuidState
{
    std::mutex mtx;
    std::deque<std::string> deqScripted;
    std::size_t uCalls = 0;
    std::random_device random; // the system's source
};

CGuidState& state()
{
    CAllocationPause pause;
    static CGuidState* const pState = new CGuidState;
    return *pState;
}

void appendHex(std::string& sText, unsigned uBits, unsigned uDigits)
{
    for (unsigned uDigit = uDigits; uDigit > 0; --uDigit)
        sText.push_back("0123456789abcdef"[(uBits >> (4 * (uDigit - 1))) & 0xFU]);
}
} // namespace

std::string CPortable::newPUUID()
{
    std::string sIdentifier;
    sIdentifier.reserve(36); // the caller's text, counted as the caller's allocation
    CGuidState& guids = state();
    const std::lock_guard lock(guids.mtx);
    ++guids.uCalls;
    if (!guids.deqScripted.empty())
    {
        sIdentifier = guids.deqScripted.front();
        guids.deqScripted.pop_front();
        return sIdentifier;
    }
    std::array<unsigned, 4> arrBits{};
    for (unsigned& uBits : arrBits)
        uBits = guids.random();
    appendHex(sIdentifier, arrBits[0], 8);
    sIdentifier += '-';
    appendHex(sIdentifier, arrBits[1] >> 16, 4);
    sIdentifier += "-4"; // says "random"
    appendHex(sIdentifier, arrBits[1], 3);
    sIdentifier += '-';
    appendHex(sIdentifier, (arrBits[2] >> 16 & 0x3FFFU) | 0x8000U, 4);
    sIdentifier += '-';
    appendHex(sIdentifier, arrBits[2], 4);
    appendHex(sIdentifier, arrBits[3], 8);
    return sIdentifier;
}

void CFakeGuid::script(std::vector<std::string> vecIdentifiers)
{
    CAllocationPause pause;
    const std::lock_guard lock(state().mtx);
    state().deqScripted.assign(vecIdentifiers.begin(), vecIdentifiers.end());
}

std::size_t CFakeGuid::calls()
{
    const std::lock_guard lock(state().mtx);
    return state().uCalls;
}

void CFakeGuid::reset()
{
    const std::lock_guard lock(state().mtx);
    state().deqScripted.clear();
    state().uCalls = 0;
}
