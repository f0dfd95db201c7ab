#pragma once

#include <functional>
#include <string>

/// Replaces a file's content in one step: a reader, or a crash, finds the old or the new content, never a part.
///
/// The file keeps its permissions and, where allowed, its owner; a symbolic link stays one.
///
/// @param fnStillWished  asked when the new content is ready, just before it takes the old one's place
/// @return false when the system refused, or it is not wished any more: the file is as it was
bool replaceFile(const std::string& sPath, const std::string& sContent, const std::function<bool()>& fnStillWished);
