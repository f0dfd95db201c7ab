#pragma once

#include <cstdint>
#include <map>
#include <string_view>

/// What the intake met, by reason: refused packets and messages, and those it had no use for.
///
/// Threads    none of its own; belongs to the thread that replays.
/// Ownership  reasons are literals: the key is the text itself and is never copied.
class CIntakeCounts
{
public:
    using CCounts = std::map<std::string_view, std::uint64_t>;

    /// Something that should have been readable and was not.
    void refuse(std::string_view sReason) { ++m_mapRefused[sReason]; }
    /// Something readable that means nothing to the call data store.
    void ignore(std::string_view sReason) { ++m_mapIgnored[sReason]; }
    /// Something that was believed only in part.
    void warn(std::string_view sReason) { ++m_mapWarnings[sReason]; }

    const CCounts& refused() const noexcept { return m_mapRefused; }
    const CCounts& ignored() const noexcept { return m_mapIgnored; }
    const CCounts& warnings() const noexcept { return m_mapWarnings; }

    /// How often a reason was given in any of the three kinds.
    std::uint64_t count(std::string_view sReason) const
    {
        std::uint64_t ullCount = 0;
        for (const CCounts* pCounts : {&m_mapRefused, &m_mapIgnored, &m_mapWarnings})
            if (const auto it = pCounts->find(sReason); it != pCounts->end())
                ullCount += it->second;
        return ullCount;
    }

private:
    CCounts m_mapRefused;  // reason -> count
    CCounts m_mapIgnored;  // reason -> count
    CCounts m_mapWarnings; // reason -> count
};
