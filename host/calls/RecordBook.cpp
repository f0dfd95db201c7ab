// Records as plain values, and how a call went.
#include "calls/RecordBook.h"

#include "CDSNames.h"

#include <algorithm>

void CCallRecord::take(const CCallChange& change)
{
    std::string sText = change.sValue;
    if (!sText.empty() && sText.back() == '\0')
        sText.pop_back();
    const CValue value{change.tsStamp, std::move(sText)};
    ullFirst = ullFirst == 0 ? change.tsStamp.value() : std::min<std::uint64_t>(ullFirst, change.tsStamp.value());
    if (change.bLogEntry)
    {
        mapLogs[change.sName].try_emplace({change.tsStamp.value(), change.tsStamp.incrementValue()}, value);
        return;
    }
    const auto [it, bNew] = mapProperties.try_emplace(change.sName, value);
    if (!bNew && change.tsStamp > it->second.tsStamp)
        it->second = value;
}

std::string CCallRecord::property(const std::string& sName) const
{
    const auto it = mapProperties.find(sName);
    return it != mapProperties.end() ? it->second.sText : "";
}

std::vector<std::string> CCallRecord::entries(const std::string& sName) const
{
    std::vector<std::string> vecTexts;
    if (const auto it = mapLogs.find(sName); it != mapLogs.end())
        for (const auto& [stamp, value] : it->second)
            vecTexts.push_back(value.sText);
    return vecTexts;
}

std::string CCallRecord::outcome() const
{
    const bool bAnswered = mapLogs.contains(CDSLOG_CONNECT_ENTRY);
    const auto vecEnds = entries(CDSLOG_DISCONNECT_ENTRY);
    if (vecEnds.empty())
        return bAnswered ? "answered, open" : "open";
    const std::string& sEnd = vecEnds.front();
    const std::string sWho = sEnd.substr(0, sEnd.find(';'));
    if (sWho == "timeout")
        return bAnswered ? "answered, closed" : "closed";
    if (bAnswered)
        return "answered";
    if (sWho != "failed")
        return "cancelled"; // a BYE before the answer cancels as well
    const std::size_t uCode = sEnd.find(';') + 1;
    const std::string sCode = sEnd.substr(uCode, sEnd.find(';', uCode) - uCode);
    return sCode == "486" || sCode == "600" ? "busy" : "failed " + sCode;
}

bool CCallRecord::sameValues(const CCallRecord& other) const
{
    const auto sameText = [](const auto& left, const auto& right) { return left.second.sText == right.second.sText; };
    const auto sameProperty = [&](const auto& left, const auto& right) {
        return left.first == right.first && sameText(left, right);
    };
    const auto sameLog = [&](const auto& left, const auto& right) {
        return left.first == right.first &&
               std::equal(left.second.begin(), left.second.end(), right.second.begin(), right.second.end(), sameText);
    };
    return std::equal(mapProperties.begin(), mapProperties.end(), other.mapProperties.begin(),
                      other.mapProperties.end(), sameProperty) &&
           std::equal(mapLogs.begin(), mapLogs.end(), other.mapLogs.begin(), other.mapLogs.end(), sameLog);
}

bool CRecordBookSink::onCallBegin(const std::string& sRecordID)
{
    if (m_setEnded.contains(sRecordID))
        return false;
    m_mapRecords.try_emplace(sRecordID);
    return true;
}

void CRecordBookSink::onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges)
{
    ++m_ullUpdates;
    CCallRecord& record = m_mapRecords[sRecordID];
    for (const CCallChange& change : vecChanges)
        record.take(change);
}

void CRecordBookSink::onCallEnd(const std::string& sRecordID)
{
    m_setEnded.insert(sRecordID);
}
