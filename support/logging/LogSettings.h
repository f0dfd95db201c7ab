#pragma once

#include <cstdint>

/// A trace log's settings, as CLogFileRegistry explains them.
struct CLogSettings
{
    std::uint32_t dwEnabled = 1;
    std::uint32_t dwMaxFiles = 100;
    std::uint32_t dwMaxFileKB = 1000;
    std::uint32_t dwTraceMask = 0;
    std::uint32_t dwPriorityMask = 0x3FF;
    std::uint32_t dwConsoleTraceMask = 0;
    std::uint32_t dwConsolePriorityMask = 0x3FF;
    std::uint32_t dwDropWhenFull = 0;
    std::uint32_t dwQueueLines = 10000;
    std::uint32_t dwFollowConfiguration = 0;
    std::uint32_t dwFollowIntervalMs = 40000;
    std::uint32_t dwUtc = 1;
};
