#pragma once

/// Keeps what the calling thread allocates out of an allocation test, while it lives.
///
/// The fakes hold one whenever they record: a test that grants the code under test n allocations must not find that a
/// log line took one of them. Nests.
class CAllocationPause
{
public:
    CAllocationPause() noexcept;
    ~CAllocationPause();
    CAllocationPause(const CAllocationPause&) = delete;
    CAllocationPause& operator=(const CAllocationPause&) = delete;

    /// Whether the calling thread holds one.
    static bool active() noexcept;
};
