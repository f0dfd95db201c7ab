#pragma once

#include <string>

/// Replaces a file's content in one step: a reader, or a crash, finds the old or the new content, never a part.
///
/// The file keeps its permissions and, where allowed, its owner; a symbolic link stays one.
///
/// @return false when the system refused: the file is as it was
bool replaceFile(const std::string& sPath, const std::string& sContent);
