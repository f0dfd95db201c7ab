// Readable renderings of a record: the content dump and the trace.

#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSTraceText.h"

#include <cstdio>

void CCallData::DumpContent(std::string& sDump) const
{
    char szHeader[513];
    // The date always reads 0000/00/00: a dump shows when on a day the record was made.
    (void)std::snprintf(szHeader, sizeof szHeader,
                        "*** CCallData Content Dump ***\n\tm_sCallID = %s\n\tm_stCreated = %04d/%02d/%02d "
                        "%02d:%02d:%02d.%d\n\tm_dwSetPropertiesCount = %d\n\tm_dwAppendLogEntriesCount = %d\n"
                        "\tPROPERTIES:\n",
                        m_sCallID.c_str(), 0, 0, 0, int{m_stCreated.wHour}, int{m_stCreated.wMinute},
                        int{m_stCreated.wSecond}, int{m_stCreated.wMilliseconds}, cdsInt(getSetPropertiesCount()),
                        cdsInt(getAppendLogEntriesCount())); // a cut header is meant
    sDump = szHeader;
    std::string sValue;
    const auto addValue = [&](const CValue& value) {
        cdsDumpValue(value.name().data(), value.data(), value.length(), sValue);
        sDump += sValue;
    };
    for (const auto& pValue : m_mapProperties)
        addValue(*pValue);
    sDump += "\tLOG ENTRIES:\n";
    for (const auto& pLog : m_mapLogEntries)
        for (const auto& pValue : pLog->m_mapEntries)
            addValue(*pValue);
}

void CCallData::trace(const char* pszTitle)
{
    // Held all the while: a value that another thread clears must not go between finding and writing it.
    const CCritSecLock lock(*m_pCritsec, __LINE__, __LINE__);
    const CCDSTimestamp tsAll(0, 0);
    if (*pszTitle != '\0')
        CCDSLogging::logAlways("CCallData::trace: %s", CFittedLabel(pszTitle).text());
    (void)cdsGuarded([&] { // a trace that memory does not suffice for ends early
        std::string sName;
        (void)getCallID(&sName); // empty when it fails
        CCDSLogging::logAlways("CCallData=0x%08X,callID=\"%s\"", cdsIdentity(this), sName.c_str());

        char szValue[80];
        unsigned char* pData = nullptr;
        int nLength = 0;
        CCDSTimestamp tsStamp(0, 0);
        int nIndex = 0;
        while (getProperty(&nIndex, &sName, &pData, &nLength, tsAll, &tsStamp) >= 0)
        {
            CCDSLogging::hexascii(pData, nLength, szValue, sizeof szValue);
            CCDSLogging::logAlways("\t: prop=%d,name=%s,ts=%s,val=%s", nIndex - 1, sName.c_str(),
                                   tsStamp.toString().c_str(), szValue);
        }
        for (int nLog = 0; getLogName(nLog, &sName) >= 0; ++nLog)
        {
            nIndex = 0;
            while (getLogEntry(sName, &nIndex, &pData, &nLength, tsAll, &tsStamp) >= 0)
            {
                CCDSLogging::hexascii(pData, nLength, szValue, sizeof szValue);
                CCDSLogging::logAlways("\t: log (%d.%d),name=%s,ts=%s,val=%s", nLog, nIndex - 1, sName.c_str(),
                                       tsStamp.toString().c_str(), szValue);
            }
        }
        return 0L;
    });
}
