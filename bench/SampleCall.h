#pragma once

#include "CDSCallData.h"
#include "CDSNames.h"
#include "CDSTimestamp.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

/// The call that the benchmarks deal with, and what an update of it brings.
namespace SampleCall {

constexpr std::size_t cCallIDLength = 36;
constexpr int cPropertyBytes = 24;
constexpr int cEntryBytes = 80;
constexpr std::size_t cProperties = 3;

inline const std::array<const std::string*, cProperties>& propertyNames()
{
    static const std::array<const std::string*, cProperties> names = {&CDSPROP_CALLERID, &CDSPROP_CALLEDID,
                                                                      &CDSPROP_L_CONNECTEDID};
    return names;
}
inline const std::string& logName()
{
    return CDSLOG_CONNECT_ENTRY;
}

/// What the values are copied from.
inline unsigned char* bytes()
{
    static std::array<unsigned char, cEntryBytes> aBytes = [] {
        std::array<unsigned char, cEntryBytes> aFilled{};
        for (std::size_t i = 0; i < aFilled.size(); ++i)
            aFilled[i] = static_cast<unsigned char>('0' + i % 75);
        return aFilled;
    }();
    return aBytes.data();
}

/// The call ID with a number: 36 characters, scattered so that neighbours are no neighbours in any order.
inline std::string callID(std::uint64_t ullNumber)
{
    std::string sCallID(cCallIDLength, '-');
    std::uint64_t ullBits = 0;
    for (std::size_t i = 0; i < sCallID.size(); ++i)
    {
        if (i % 16 == 0)
        {
            ullNumber += 0x9E3779B97F4A7C15ULL;
            ullBits = (ullNumber ^ (ullNumber >> 30U)) * 0xBF58476D1CE4E5B9ULL;
            ullBits = (ullBits ^ (ullBits >> 27U)) * 0x94D049BB133111EBULL;
            ullBits ^= ullBits >> 31U;
        }
        if (i != 8 && i != 13 && i != 18 && i != 23)
            sCallID[i] = "0123456789abcdef"[ullBits >> (4 * (i % 16)) & 0x0FU];
    }
    return sCallID;
}

/// Stamps of the updates of one call: each later than the one before.
inline CCDSTimestamp stamp(std::uint64_t ullUpdate)
{
    return {133'000'000'000'000'000ULL + ullUpdate * 10'000, 0};
}

/// Puts an update into a record: every property anew, and one log entry more.
inline void fill(CCallData& record, std::uint64_t ullUpdate)
{
    const CCDSTimestamp tsStamp = stamp(ullUpdate);
    bool bChanged = false;
    for (const std::string* const psName : propertyNames())
        (void)record.setProperty(*psName, bytes(), cPropertyBytes, tsStamp, true, &bChanged);
    (void)record.appendLogEntry(logName(), bytes(), cEntryBytes, tsStamp, true, &bChanged);
}

} // namespace SampleCall
