#pragma once

#include <sstream>
#include <string>
#include <vector>

/// Calls of a cluster test by their numbers, written as "0-999" or "1,4,7-9"; "-" is none.
namespace CallSet {

inline std::vector<unsigned> numbers(const std::string& sText)
{
    std::vector<unsigned> vecNumbers;
    std::istringstream parts(sText == "-" ? "" : sText);
    for (std::string sPart; std::getline(parts, sPart, ',');)
    {
        const std::size_t uDash = sPart.find('-');
        const auto uFirst = static_cast<unsigned>(std::stoul(sPart));
        const auto uLast =
            uDash == std::string::npos ? uFirst : static_cast<unsigned>(std::stoul(sPart.substr(uDash + 1)));
        for (unsigned u = uFirst; u <= uLast; ++u)
            vecNumbers.push_back(u);
    }
    return vecNumbers;
}

inline std::string text(const std::vector<unsigned>& vecNumbers)
{
    std::string sText;
    for (const unsigned uNumber : vecNumbers)
        sText += (sText.empty() ? "" : ",") + std::to_string(uNumber);
    return sText.empty() ? "-" : sText;
}

inline std::string callID(unsigned uNumber)
{
    return "sip:" + std::to_string(uNumber);
}

} // namespace CallSet
