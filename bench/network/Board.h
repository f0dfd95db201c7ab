#pragma once

#include "SampleCall.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>

/// What the processes of one measurement share: what they are to do next, and what they have seen.
///
/// Threads    any, of every process; lies in memory that they share.
struct CBoard
{
    static constexpr std::size_t cMostSamples = 1'000'000;

    enum EStep : std::uint32_t
    {
        step_start, ///< the owner starts, then the watcher
        step_fill,  ///< every call gets its first data
        step_watch, ///< the watcher asks for all calls and gets their data
        step_pace,  ///< updates at a fixed rate, each timed
        step_flood, ///< updates as fast as they are taken
        step_end
    };

    std::atomic<std::uint32_t> dwStep = step_start;
    std::atomic<std::uint32_t> dwOwnerDone = 0;   // the last step that it has done, counted from 1
    std::atomic<std::uint32_t> dwWatcherDone = 0; // the same
    std::atomic<bool> bFailed = false;

    std::atomic<std::uint64_t> ullArrived = 0; // changes that the watcher's registrant got
    std::atomic<std::uint64_t> ullFirst = 0;   // first states among them
    std::atomic<std::uint64_t> ullSamples = 0; // of the step in progress
    std::array<std::atomic<std::uint32_t>, cMostSamples> aNanoseconds{};

    // Bytes of heap in use.
    std::atomic<std::uint64_t> ullOwnerEmpty = 0;
    std::atomic<std::uint64_t> ullOwnerFull = 0;
    std::atomic<std::uint64_t> ullOwnerShared = 0;
    std::atomic<std::uint64_t> ullWatcherEmpty = 0;
    std::atomic<std::uint64_t> ullWatcherFull = 0;
};

/// How much is done.
struct CPlan
{
    std::uint64_t ullCalls = 1000;
    std::uint64_t ullPaced = 10'000;
    std::uint64_t ullFlood = 200'000;
    std::uint64_t ullMostUnderWay = 4096; // updates that the watcher does not have yet
    bool bFirstStates = true;             // whether the watcher gets what there is when it asks
};

/// The text that travels in the first property of each update: when it was made, and whether it is a first state.
struct CUpdateMark
{
    std::uint64_t ullNanoseconds = 0; // 0: a first state
    std::uint64_t ullNumber = 0;

    static std::uint64_t now()
    {
        return static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
                .count());
    }
    /// @param pBytes  room for one property of the sample call
    void write(unsigned char* pBytes) const
    {
        std::memcpy(pBytes, SampleCall::bytes(), SampleCall::cPropertyBytes);
        std::memcpy(pBytes, &ullNanoseconds, sizeof ullNanoseconds);
        std::memcpy(pBytes + sizeof ullNanoseconds, &ullNumber, sizeof ullNumber);
    }
    static CUpdateMark read(const unsigned char* pBytes)
    {
        CUpdateMark mark;
        std::memcpy(&mark.ullNanoseconds, pBytes, sizeof mark.ullNanoseconds);
        std::memcpy(&mark.ullNumber, pBytes + sizeof mark.ullNanoseconds, sizeof mark.ullNumber);
        return mark;
    }
};

/// Counts a change that has reached the watcher's registrant.
void noteArrival(CBoard& board, const CUpdateMark& mark);

/// One way to get updates from one server to another.
///
/// An object of it is made in each of the two processes, and plays one part there.
///
/// Threads    one, its process's main thread; arrivals are noted from any.
class CContender
{
public:
    explicit CContender(CBoard& board, const CPlan& plan) : m_board(board), m_plan(plan) {}
    virtual ~CContender() = default;
    CContender(const CContender&) = delete;
    CContender& operator=(const CContender&) = delete;

    // The owner's part. What throws fails the measurement.
    virtual void startOwner() = 0;
    virtual void update(std::uint64_t ullCall, const CUpdateMark& mark) = 0;
    /// Updates that wait to be sent together go now.
    virtual void flush() = 0;

    // The watcher's part: every arrival is noted on the board.
    virtual void startWatcher() = 0;
    virtual void watchAll() = 0;

    /// Bytes in use by whoever keeps the calls at one end; the process's own heap, unless servers of their own do.
    virtual std::uint64_t bytesInUse() const;

protected:
    CBoard& m_board;
    const CPlan m_plan;
};
