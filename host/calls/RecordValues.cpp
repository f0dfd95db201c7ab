// From the store's call data to records as plain values.
#include "calls/RecordValues.h"

namespace {

std::string textOf(const unsigned char* pData, int nLength)
{
    return pData != nullptr && nLength > 0
               ? std::string(reinterpret_cast<const char*>(pData), static_cast<std::size_t>(nLength))
               : std::string();
}

} // namespace

std::size_t takeValues(CCallData& data, CCallRecord* pRecord)
{
    const CCDSTimestamp tsAll(0, 0);
    CCDSTimestamp ts(0, 0);
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    std::size_t uValues = 0;
    const auto take = [&](bool bLogEntry) {
        pRecord->take(CCallChange{bLogEntry, sName, textOf(pData, nLength), ts});
        ++uValues;
    };
    for (int nIndex = 0; data.getProperty(&nIndex, &sName, &pData, &nLength, tsAll, &ts) == 0;)
        take(false);
    for (int nLog = 0; data.getLogName(nLog, &sName) == 0; ++nLog)
        for (int nIndex = 0; data.getLogEntry(sName, &nIndex, &pData, &nLength, tsAll, &ts) == 0;)
            take(true);
    return uValues;
}
