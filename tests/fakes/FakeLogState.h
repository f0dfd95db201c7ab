#pragma once

#include "FakeConstruction.h"
#include "FakeLog.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

/// What the fake log remembers. For the fakes only.
struct CFakeLogState
{
    /// A log name's trace mask. Made once and never moved or destroyed, so that whoever reads it needs no lock.
    struct CMask
    {
        std::atomic<std::uint32_t> dwMask{0};
        std::uint32_t dwBound = 0; ///< what a living CLogFileRegistry brought, else 0
        bool bOverridden = false;  ///< the test has set it
    };

    static CFakeLogState& get();

    /// The caller holds mtx.
    CMask& mask(const std::string& sLog);

    std::mutex mtx; // guards all below, save the constructions, which guard themselves
    std::map<std::string, std::unique_ptr<CMask>> mapMasks;
    std::vector<CFakeLog::CLine> vecLines;
    std::vector<CFakeLog::CEvent> vecEvents;
    std::vector<CFakeLog::CLogArguments> vecCreations;
    std::vector<CFakeLog::CRegistryArguments> vecRegistries;
    std::vector<int> vecTraceableQueries;
    std::size_t uLogsAlive = 0;
    std::size_t uRegistriesAlive = 0;
    std::optional<bool> optTraceable;
    long lReportResult = 0;
    CFakeConstruction logConstruction;
    CFakeConstruction registryConstruction;
};
