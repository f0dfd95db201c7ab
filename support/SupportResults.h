#pragma once

#include <cstdint>

// Results of the support library's own operations. Each passes through a signed 32-bit type, so that it is negative
// on every ABI.
constexpr long E_SUPPORT_NOTFOUND = static_cast<std::int32_t>(0x80070002U); ///< no such file, key or value
constexpr long E_SUPPORT_INVALID = static_cast<std::int32_t>(0x80070057U);  ///< an argument or a value is not usable
constexpr long E_SUPPORT_SYNTAX = static_cast<std::int32_t>(0x8007000BU);   ///< the configuration file is broken
constexpr long E_SUPPORT_SYSTEM = static_cast<std::int32_t>(0x80004005U);   ///< the system refused
constexpr long E_SUPPORT_MEMORY = static_cast<std::int32_t>(0x8007000EU);   ///< out of memory
static_assert(E_SUPPORT_NOTFOUND < 0 && E_SUPPORT_INVALID < 0 && E_SUPPORT_SYNTAX < 0 && E_SUPPORT_SYSTEM < 0 &&
              E_SUPPORT_MEMORY < 0);
