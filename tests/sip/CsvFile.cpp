#include "CsvFile.h"

#include <fstream>
#include <iterator>

namespace {

std::vector<std::vector<std::string>> readFields(const std::string& sText)
{
    std::vector<std::vector<std::string>> vecLines(1, {""});
    bool bQuoted = false;
    for (std::size_t u = 0; u < sText.size(); ++u)
    {
        const char c = sText[u];
        if (bQuoted && c == '"' && u + 1 < sText.size() && sText[u + 1] == '"')
            vecLines.back().back().push_back(sText[++u]);
        else if (c == '"')
            bQuoted = !bQuoted;
        else if (!bQuoted && c == ',')
            vecLines.back().emplace_back();
        else if (!bQuoted && c == '\n')
            vecLines.push_back({""});
        else if (c != '\r')
            vecLines.back().back().push_back(c);
    }
    return vecLines;
}

} // namespace

std::vector<CCsvRow> readCsv(const std::string& sPath)
{
    std::ifstream file(sPath, std::ios::binary);
    const auto vecLines = readFields({std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()});
    std::vector<CCsvRow> vecRows;
    for (std::size_t u = 1; u < vecLines.size(); ++u)
    {
        if (vecLines[u].size() != vecLines[0].size())
            continue; // the end of the file
        CCsvRow& row = vecRows.emplace_back();
        for (std::size_t uField = 0; uField < vecLines[u].size(); ++uField)
            row[vecLines[0][uField]] = vecLines[u][uField];
    }
    return vecRows;
}

std::string column(const CCsvRow& row, const std::string& sName)
{
    const auto it = row.find(sName);
    return it != row.end() ? it->second : "";
}
