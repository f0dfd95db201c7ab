#include "ConfigurationText.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <sstream>
#include <utility>

namespace {
using CPath = std::vector<std::string>;

/// Byte offset of a position that toml++ gives in lines and characters, both from 1.
std::optional<std::size_t> offsetOf(const std::string& sText, const toml::source_position& position)
{
    if (position.line == 0 || position.column == 0)
        return std::nullopt;
    std::size_t uOffset = 0;
    for (toml::source_index uLine = 1; uLine < position.line; ++uLine)
    {
        uOffset = sText.find('\n', uOffset);
        if (uOffset == std::string::npos)
            return std::nullopt;
        ++uOffset;
    }
    for (toml::source_index uColumn = 1; uColumn < position.column; ++uColumn)
    {
        if (uOffset >= sText.size())
            return uOffset;
        ++uOffset;
        while (uOffset < sText.size() && (static_cast<unsigned char>(sText[uOffset]) & 0xC0U) == 0x80U)
            ++uOffset; // the rest of one character
    }
    return uOffset;
}

std::string written(const toml::table& table)
{
    std::ostringstream stream;
    stream << table;
    return stream.str();
}

toml::table* descend(toml::table& root, const CPath& path)
{
    toml::table* pTable = &root;
    for (const std::string& sName : path)
    {
        if (!pTable->contains(sName))
            pTable->insert(sName, toml::table{});
        pTable = (*pTable)[sName].as_table();
        if (!pTable)
            return nullptr;
    }
    return pTable;
}

void insert(toml::table& table, const std::string& sName, const std::variant<std::uint32_t, std::string>& value)
{
    if (const auto* pdwNumber = std::get_if<std::uint32_t>(&value))
        table.insert_or_assign(sName, static_cast<std::int64_t>(*pdwNumber));
    else
        table.insert_or_assign(sName, std::get<std::string>(value));
}

/// The text with one value's characters replaced by another value's.
std::optional<std::string> withValueReplaced(const std::string& sText, const toml::node& old, const std::string& sNew)
{
    const auto optBegin = offsetOf(sText, old.source().begin);
    const auto optEnd = offsetOf(sText, old.source().end);
    if (!optBegin || !optEnd || *optEnd < *optBegin || *optEnd > sText.size())
        return std::nullopt;
    return sText.substr(0, *optBegin) + sNew + sText.substr(*optEnd);
}

/// The text with a line inserted after the last value that the table's section holds, or after its header.
std::optional<std::string> withLineInserted(const std::string& sText, const toml::table& table,
                                            const std::string& sLine)
{
    toml::source_index uLine = table.source().begin.line;
    for (const auto& [key, node] : table)
    {
        if (!node.is_table() || node.as_table()->is_inline())
            uLine = std::max(uLine, node.source().end.line);
    }
    const auto optStart = offsetOf(sText, {uLine, 1});
    if (!optStart)
        return std::nullopt;
    const std::size_t uEnd = sText.find('\n', *optStart);
    if (uEnd == std::string::npos)
        return sText + '\n' + sLine + '\n';
    return sText.substr(0, uEnd + 1) + sLine + '\n' + sText.substr(uEnd + 1);
}

/// A name as it stands before the dot or the equals sign.
std::string keyText(const std::string& sName)
{
    const std::string sLine = written(toml::table{{sName, 0}});
    return sLine.substr(0, sLine.rfind(" = "));
}

/// The text with "name = value" put before the brace that closes an inline table.
std::optional<std::string> withItemInserted(const std::string& sText, const toml::table& table,
                                            const std::string& sItem)
{
    const auto optEnd = offsetOf(sText, table.source().end);
    if (!table.is_inline() || !optEnd)
        return std::nullopt;
    const std::size_t uBrace = sText.rfind('}', *optEnd);
    if (uBrace == std::string::npos || uBrace == 0)
        return std::nullopt;
    const std::size_t uLast = sText.find_last_not_of(" \t", uBrace - 1);
    return sText.substr(0, uLast + 1) + (table.empty() ? " " : ", ") + sItem + ' ' + sText.substr(uBrace);
}

std::string withSectionAppended(const std::string& sText, const std::string& sSection)
{
    std::string sNew = sText;
    if (!sNew.empty() && sNew.back() != '\n')
        sNew += '\n';
    if (!sNew.empty())
        sNew += '\n';
    return sNew + sSection + '\n';
}

bool readsAs(const std::string& sText, const toml::table& wished, toml::table* pRead)
{
    try
    {
        *pRead = toml::parse(sText);
        return *pRead == wished;
    }
    catch (const toml::parse_error&)
    {
        return false;
    }
}
} // namespace

bool setInConfigurationText(std::string* psText, toml::table* pTable, const CPath& path, const std::string& sName,
                            const std::variant<std::uint32_t, std::string>& value)
{
    toml::table wished = *pTable;
    toml::table* const pTarget = descend(wished, path);
    if (!pTarget)
        return false;
    insert(*pTarget, sName, value);

    // What toml++ writes for the value alone, and in its section.
    toml::table line;
    insert(line, sName, value);
    const std::string sLine = written(line);
    std::ostringstream streamValue;
    streamValue << toml::node_view<toml::node>(line.get(sName));
    toml::table section;
    insert(*descend(section, path), sName, value);

    const toml::table* pOld = pTable;
    for (const std::string& sLevel : path)
        pOld = pOld ? (*pOld)[sLevel].as_table() : nullptr;

    std::vector<std::function<std::optional<std::string>()>> vecProposals;
    if (const toml::node* pValue = pOld ? pOld->get(sName) : nullptr)
        vecProposals.emplace_back([&, pValue] { return withValueReplaced(*psText, *pValue, streamValue.str()); });
    else if (pOld)
    {
        vecProposals.emplace_back([&] { return withItemInserted(*psText, *pOld, sLine); });
        vecProposals.emplace_back([&] { return withLineInserted(*psText, *pOld, sLine); });
        // Where the table is written with dots the line needs some of them too: how many depends on the section.
        std::string sDotted = sLine;
        for (auto it = path.rbegin(); it != path.rend(); ++it)
        {
            sDotted.insert(0, keyText(*it) + '.');
            vecProposals.emplace_back([&, sDotted] { return withLineInserted(*psText, *pOld, sDotted); });
        }
    }
    vecProposals.emplace_back([&] { return withSectionAppended(*psText, written(section)); });
    vecProposals.emplace_back([&] { return written(wished) + '\n'; });
    for (const auto& fnProposal : vecProposals)
    {
        const std::optional<std::string> optText = fnProposal();
        toml::table read;
        if (optText && readsAs(*optText, wished, &read))
        {
            *psText = *optText;
            *pTable = std::move(read);
            return true;
        }
    }
    return false;
}
