#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

/// What one peer may have this server keep for it: so many calls that it is registered for ...
constexpr std::size_t cPeerEntries = 250'000;
/// ... with IDs of so many bytes, of the call and of the registration each.
constexpr std::size_t cPeerIDBytes = 1'024;

/// Counts what peers were refused, so that the log tells it in bounded volume: the first refusal of a peer, the second,
/// the fourth, the eighth and so on.
///
/// Threads    worker thread only.
/// Bounded    a number for each peer, of which the channel lets in a limited number.
class CPeerRefusals
{
public:
    /// Counts a refusal, and writes its line when it is due.
    void note(std::uint32_t dwPeer, const char* pszWhy);

private:
    std::map<std::uint32_t, std::uint64_t> m_mapRefusals; // peer -> how many so far
};
