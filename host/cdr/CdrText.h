#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// How bytes and times of a record stand in a database.
namespace CdrText {

/// Whether a database takes it as text: valid UTF-8 without a zero byte.
[[nodiscard]] bool isText(std::string_view sBytes) noexcept;

/// Bytes that are no text, as text. What isText and has no backslash stays as it is; else every backslash, and every
/// byte that belongs to no valid UTF-8, becomes \xHH. Different bytes stay different.
[[nodiscard]] std::string escaped(std::string_view sBytes);

/// The key that stands for a name of any length: its escaped form; of one longer than an index takes the beginning, and
/// a digest of all of it.
[[nodiscard]] std::string keyOf(std::string_view sBytes);

[[nodiscard]] std::string base64(std::string_view sBytes);

/// A file time as ISO 8601 in UTC, "2026-11-21T00:10:10.0613490Z". Years beyond 9999 have a plus sign and five digits.
[[nodiscard]] std::string timeText(std::uint64_t ullFileTime);

/// The system's clock as file time.
[[nodiscard]] std::uint64_t now();

} // namespace CdrText
