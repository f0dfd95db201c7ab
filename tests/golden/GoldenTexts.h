#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace model {

/// What a text is the text of.
enum class EGolden
{
    List,         ///< a parameter list
    Stamp,        ///< a time stamp
    Record,       ///< call data
    Registration, ///< registration data
    Message       ///< a callback message
};

/// A text that is kept in a file.
struct SGolden
{
    const char* pszName; ///< of the file, without ".txt"
    EGolden eKind;
    std::function<std::string()> fnMake; ///< writes the text from values
};

/// All of them.
const std::vector<SGolden>& goldenTexts();

/// Reads a text into what it is the text of and writes that again.
std::string writtenAgain(EGolden eKind, const std::string& sText);

std::filesystem::path goldenDirectory();
std::filesystem::path goldenFile(const SGolden& golden);

/// Null when there is no such file.
bool readGolden(const SGolden& golden, std::string* psText);

/// Writes every file anew.
void regenerateGolden();

} // namespace model
