#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// Where CPortable::newPUUID takes its identifiers: random ones, unless the test says what comes next.
///
/// Threads    every operation may be called from any thread.
class CFakeGuid
{
public:
    /// The next calls give these texts, one each; afterwards random identifiers again.
    static void script(std::vector<std::string> vecIdentifiers);

    /// Calls so far.
    static std::size_t calls();

    static void reset();
};
