#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Where the head of a message ends: the position behind its empty line.
///
/// @param uFrom  nothing before this position ends the head
/// @return std::string_view::npos when the empty line is not there
[[nodiscard]] std::size_t findEndOfHead(std::string_view sMessage, std::size_t uFrom = 0) noexcept;

/// Reads Content-Length from a head.
///
/// @param puLength  out: the length, 0 without one
/// @param pbGiven   out: whether there is one
/// @return false when it is no number, or there are two that differ
[[nodiscard]] bool readContentLength(std::string_view sHead, std::size_t* puLength, bool* pbGiven);

/// A message cut into first line, header fields and body. Folded lines are joined, and compact header names have become
/// the long ones.
///
/// The parser proper refuses a whole message for a header field that nobody here reads, for a second To, or for a body
/// shorter than announced. Equipment sends all of these. So the message is cut up here, and the parser gets the fields
/// that matter one by one.
///
/// Bounded: fields beyond cMaxFields are left out.
class CSipHead
{
public:
    static constexpr std::size_t cMaxFields = 256;

    explicit CSipHead(std::string_view sMessage);

    const std::string& startLine() const noexcept { return m_sStartLine; }
    /// The body, cut to Content-Length where that is a number and smaller.
    const std::string& body() const noexcept { return m_sBody; }

    /// The first field of this name, in lower case; null when there is none.
    const std::string* field(std::string_view sName) const noexcept;
    /// All values of a field that may hold several, over all its lines.
    std::vector<std::string> values(std::string_view sName) const;

private:
    struct CField
    {
        std::string sName; // lower case, long form
        std::string sValue;
    };
    std::string m_sStartLine;
    std::vector<CField> m_vecFields;
    std::string m_sBody;
};
