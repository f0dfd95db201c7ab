// Lines with records in them.
#include "share/RecordLines.h"

#include <cstdio>

namespace {

int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

} // namespace

std::string RecordLines::escaped(const std::string& sField)
{
    std::string sEscaped;
    for (const char c : sField)
        if (c > ' ' && c <= '~' && c != '\\')
            sEscaped += c;
        else
        {
            char szHex[8] = "";
            (void)std::snprintf(szHex, sizeof szHex, "\\x%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
            sEscaped += szHex;
        }
    return sEscaped;
}

std::vector<std::string> RecordLines::fields(const std::string& sLine)
{
    std::vector<std::string> vecFields(1);
    for (std::size_t u = 0; u < sLine.size(); ++u)
    {
        const bool bEscape = sLine[u] == '\\' && u + 3 < sLine.size() && sLine[u + 1] == 'x';
        const int nHigh = bEscape ? digitValue(sLine[u + 2]) : -1;
        const int nLow = bEscape ? digitValue(sLine[u + 3]) : -1;
        if (sLine[u] == ' ')
            vecFields.emplace_back();
        else if (nHigh < 0 || nLow < 0)
            vecFields.back() += sLine[u];
        else
        {
            vecFields.back() += static_cast<char>(nHigh * 16 + nLow);
            u += 3;
        }
    }
    return vecFields;
}
