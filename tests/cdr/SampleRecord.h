#pragma once

#include "CDSCallData.h"

#include <string>

/// Stamps of tests: so many ticks after 2025-11-21 00:00 UTC.
constexpr std::uint64_t cSampleTime = 134'081'568'000'000'000ULL;

inline void setValue(CCallData& record, const std::string& sName, std::string sValue, std::uint64_t ullTicks = 0)
{
    bool bTaken = false;
    auto* const pBytes = reinterpret_cast<unsigned char*>(sValue.data());
    (void)record.setProperty(sName, pBytes, static_cast<int>(sValue.size()), {cSampleTime + ullTicks, 0}, true,
                             &bTaken);
}

inline void appendEntry(CCallData& record, const std::string& sName, std::string sValue, std::uint64_t ullTicks)
{
    bool bTaken = false;
    auto* const pBytes = reinterpret_cast<unsigned char*>(sValue.data());
    (void)record.appendLogEntry(sName, pBytes, static_cast<int>(sValue.size()), {cSampleTime + ullTicks, 0}, true,
                                &bTaken);
}

/// A text as the call mapper writes it.
inline std::string text(const std::string& sText)
{
    return sText + '\0';
}

/// An answered call.
inline void fillSample(CCallData& record, const std::string& sCaller = "alice")
{
    setValue(record, CDSPROP_CALLERID, text(sCaller));
    setValue(record, CDSPROP_CALLEDID, text("bob"), 10);
    appendEntry(record, CDSLOG_CONNECT_ENTRY, text("answered;bob;x"), 20'000'000);
    appendEntry(record, CDSLOG_DISCONNECT_ENTRY, text("caller;-;BYE"), 30'000'001);
}

inline std::string textOf(CCallData& record)
{
    std::string sText;
    (void)record.serialize(&sText);
    return sText;
}
