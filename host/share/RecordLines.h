#pragma once

#include <string>
#include <vector>

/// What an owner of calls tells a watcher beside the network, line by line, so that their records can be compared:
///
///     call <record ID>                           one that the owner is going to have; register for it
///     record <record ID> <text of the record>    what the owner has of it in the end
///     end <number of record lines>
///
/// Blanks, backslashes and bytes outside of printable ASCII stand as \xHH in the fields, so lines compare as bytes do.
namespace RecordLines {

[[nodiscard]] std::string escaped(const std::string& sField);

/// The fields of a line; the bytes of each as they were before escaped().
[[nodiscard]] std::vector<std::string> fields(const std::string& sLine);

} // namespace RecordLines
