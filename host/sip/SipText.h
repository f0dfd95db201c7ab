#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

[[nodiscard]] std::string toLower(std::string_view sText);

/// Without blanks and tabs around it.
[[nodiscard]] std::string_view trim(std::string_view sText) noexcept;

/// Cuts at a separator that stands outside quotes and angle brackets. Pieces are trimmed; empty ones are left out.
[[nodiscard]] std::vector<std::string_view> splitList(std::string_view sText, char cSeparator);

/// Valid UTF-8 in any case: each byte that belongs to no valid sequence, and each control character, becomes U+FFFD. A
/// text longer than the limit is cut before the character that would pass it.
[[nodiscard]] std::string toUtf8(std::string_view sText, std::size_t uMaxBytes);

/// Replaces what a terminal would obey: what comes from the network is shown as toUtf8 makes it, however long.
[[nodiscard]] std::string printable(std::string_view sText);

/// Takes quotes and backslash escapes away. A text that is not quoted stays as it is: a backslash means nothing there.
[[nodiscard]] std::string unquote(std::string_view sText);

/// "a%20b" is "a b". A percent sign that begins no escape stays.
[[nodiscard]] std::string percentDecode(std::string_view sText);

/// An address header field's value, cut in two.
struct CNameAddr
{
    std::string sName;         ///< display name, unquoted and unescaped; empty when there is none
    std::string_view sAddress; ///< the rest: "<uri>;parameters", or "uri;parameters"
};
[[nodiscard]] CNameAddr splitNameAddr(std::string_view sValue);
