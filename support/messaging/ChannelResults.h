#pragma once

#include "CCMLibraryX.h"

#include <cstdint>

namespace Messaging {

/// A result or event code as the operations return it: negative on every ABI.
constexpr long resultOf(std::uint32_t dwCode)
{
    return static_cast<std::int32_t>(dwCode);
}

// None of these is worth a retry.
constexpr long E_CHANNEL_STOPPED = resultOf(0xC1200E01U);  ///< the channel is not running
constexpr long E_CHANNEL_DOWN = resultOf(0xC1200E02U);     ///< the peer is known to be down
constexpr long E_CHANNEL_LOST = resultOf(0xC1200E03U);     ///< the connection was lost before the answer came
constexpr long E_CHANNEL_TIMEOUT = resultOf(0xC1200E04U);  ///< no answer in time
constexpr long E_CHANNEL_ARGUMENT = resultOf(0xC1200E05U); ///< an argument is not usable
constexpr long E_CHANNEL_TOO_LARGE = resultOf(CMLIB_TOO_LARGE);
constexpr long E_CHANNEL_REFUSED = resultOf(0xC1200E07U);  ///< the peer takes no requests
constexpr long E_CHANNEL_NO_CLOCK = resultOf(0xC1200E08U); ///< the peer's clock could not be asked in time
constexpr long E_CHANNEL_SETTINGS = resultOf(0xC1200E09U); ///< the settings cannot be used
constexpr long E_CHANNEL_ADDRESS = resultOf(0xC1200E0AU);  ///< the local address cannot be listened on
constexpr long E_CHANNEL_MEMORY = resultOf(CMLIB_NO_MEMORY);
constexpr long E_CHANNEL_SYSTEM = resultOf(0xC1200E0CU); ///< the system refused
constexpr long E_CHANNEL_FULL = resultOf(0xC1200E0DU);   ///< too much waits for a connection that is being made
static_assert(E_CHANNEL_STOPPED < 0 && resultOf(CMLIB_NOTHING) < 0);

} // namespace Messaging
