#pragma once

#include "CDSExport.h"

#include <cstdint>
#include <string>
#include <string_view>

/// The time stamp that orders everything in the store: a clock value, and an increment that tells apart stamps taken
/// within one clock tick.
///
/// Stamps order by value, unsigned, then by increment, signed: a strict total order, fit for the key of a map.
///
/// Threads    a plain value; one object belongs to one thread at a time.
/// Errors     text operations throw std::bad_alloc.
/// Units      the value is UTC file time: 100-nanosecond intervals since 1601-01-01 00:00.
class CDS_API CCDSTimestamp
{
public:
    /// Takes the current time, as getCurrent does.
    CCDSTimestamp();

    /// @param lIncrement  its low 32 bits are kept
    CCDSTimestamp(unsigned long long ullValue, long lIncrement) noexcept
        : m_ullValue(ullValue), m_lIncrement(static_cast<std::int32_t>(lIncrement))
    {
    }

    void set(unsigned long long ullValue, long lIncrement) noexcept { *this = CCDSTimestamp(ullValue, lIncrement); }
    void set(const CCDSTimestamp& tsOther) noexcept { *this = tsOther; }

    /// Adds 1 to the increment, which wraps from the largest to the smallest 32-bit number.
    void increment() noexcept;

    /// Takes the current time: the clock's value with increment 0 when it differs from the value of the stamp taken
    /// last in this process, else that stamp's increment plus 1. When the clock steps back the new stamps order before
    /// those already taken.
    ///
    /// Threads: takes no lock, on purpose; two threads in one clock tick may take the same stamp.
    static void getCurrent(CCDSTimestamp* ptsStamp);

    unsigned long long value() const noexcept { return m_ullValue; }
    long incrementValue() const noexcept { return m_lIncrement; }

    bool operator==(const CCDSTimestamp& tsOther) const noexcept
    {
        return m_ullValue == tsOther.m_ullValue && m_lIncrement == tsOther.m_lIncrement;
    }
    bool operator<(const CCDSTimestamp& tsOther) const noexcept
    {
        return m_ullValue != tsOther.m_ullValue ? m_ullValue < tsOther.m_ullValue : m_lIncrement < tsOther.m_lIncrement;
    }
    bool operator>(const CCDSTimestamp& tsOther) const noexcept { return tsOther < *this; }
    bool operator>=(const CCDSTimestamp& tsOther) const noexcept { return !(*this < tsOther); }

    // "a != b" would otherwise be made of == by the compiler; the interface has no such operator, nor <=.
    bool operator!=(const CCDSTimestamp& tsOther) const = delete;

    /// "2009/03/04 05:06:07.89+2": UTC, milliseconds without leading zeros, the increment behind a plus sign.
    std::string toString() const;

    /// Replaces *psText by the stamp's text form: a parameter list of the value and the increment.
    ///
    /// @return 0
    long serialize(std::string* psText) const;

    /// Reads the text form; a missing or malformed element reads as 0.
    ///
    /// @return 0
    /// @throws unsigned long  the code of E_FAIL, when the text is no parameter list
    long deserialize(const std::string& sText);
    /// The same from a part of a text.
    long deserializeView(std::string_view text);

private:
    std::uint64_t m_ullValue;
    std::int32_t m_lIncrement;
};
