#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include <toml++/toml.h>

/// Sets a value in the text of a configuration without touching anything else: comments, order and blank lines stay.
///
/// toml++ can write a table but forgets its comments, so the value is changed in the text itself. Each way of doing
/// that is only a proposal: one that does not read back as exactly the wished values is dropped for the next, and the
/// last is the table as toml++ writes it.
///
/// @param psText  in and out: the text
/// @param pTable  in and out: what the text reads as, with its places in the text (which a copy of a table has not)
/// @return false when a level of the path is a value and not a table, or the value cannot be written: both untouched
bool setInConfigurationText(std::string* psText, toml::table* pTable, const std::vector<std::string>& path,
                            const std::string& sName, const std::variant<std::uint32_t, std::string>& value);
