#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What the fake objects note of their beginning and end, all in one list, so that a test sees the order in which
/// objects of different kinds come and go.
///
/// Logs and their registries, events and threads note themselves always, as "CLogFile OvnCDS", "~CPEvent" or
/// "CPThread <name>"; locks as "CPCritSec <name>" while locks are recorded, since every record has one. Constructions
/// that fail are not among them.
///
/// Threads    every operation may be called from any thread.
class CFakeLives
{
public:
    static std::vector<std::string> all();
    static std::size_t count();

    /// For the fakes.
    static void note(const std::string& sEntry);

    static void reset();
};
