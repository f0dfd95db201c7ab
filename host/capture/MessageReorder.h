#pragma once

#include "capture/Endpoint.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

/// A SIP message as it was captured.
struct CCapturedMessage
{
    std::int64_t llMicros = 0; ///< when, microseconds since 1970: believable
    CEndpoint source;
    CEndpoint destination;
    std::string sBytes;
};

/// Brings messages of several capturing processes into the order of their time stamps: each process sends what it saw
/// when it gets to it. Messages of the same microsecond keep their order.
///
/// Bounded: holds a second of messages, and not more than cMaxHeld of them nor cMaxHeldBytes.
///
/// Threads  one thread.
class CMessageReorder
{
public:
    static constexpr std::int64_t cHoldMicros = 1'000'000;
    static constexpr std::size_t cMaxHeld = 4096;
    static constexpr std::size_t cMaxHeldBytes = std::size_t{16} << 20;

    explicit CMessageReorder(std::function<void(CCapturedMessage&&)> fnMessage) : m_fnMessage(std::move(fnMessage)) {}

    void add(CCapturedMessage&& message);
    /// Hands on everything that is held.
    void flush();

private:
    void release();

    std::function<void(CCapturedMessage&&)> m_fnMessage;
    std::multimap<std::int64_t, CCapturedMessage> m_mmapHeld; // time -> message
    std::size_t m_uHeldBytes = 0;
};
