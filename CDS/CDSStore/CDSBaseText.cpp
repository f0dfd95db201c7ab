// The record's text form.

#include "CDSBase.h"
#include "CDSLogging.h"
#include "CDSParams.h"
#include "CDSParamsText.h"

namespace {

// A text that repeats a property name stays at that element for all the properties it announces. Each round writes a
// line; a count from a hostile peer must not write two thousand million.
constexpr std::int64_t cMaxReplacedLines = 1000;

/// The characters of an element at a 64-bit position; empty when there is none.
std::string_view viewAt(const CParamsX& list, std::int64_t llPosition)
{
    return llPosition < list.count() ? list.getViewParamAt(static_cast<int>(llPosition)) : std::string_view();
}

CCDSTimestamp stampOf(std::string_view text)
{
    CCDSTimestamp tsStamp(0, 0);
    (void)tsStamp.deserializeView(text); // always 0
    return tsStamp;
}

} // namespace

long CCallData::serialize(std::string* psText)
{
    return cdsGuarded([&] {
        std::string sName;
        std::string sPart;
        const auto addValue = [&](CParamsX& list, const CValue& value) {
            sName = value.name();
            cdsWriteValue(sName, value.data(), value.length(), value.timestamp(), &sPart);
            cdsAddText(list, sPart);
        };
        CParamsX list(static_cast<long>(2 * getsize() + 64 * (m_mapProperties.size() + m_mapLogEntries.size() + 1)));
        cdsAddText(list, m_sCallID);
        cdsAddLong(list, static_cast<std::int32_t>(m_mapProperties.size()));
        for (const auto& pValue : m_mapProperties)
            addValue(list, *pValue);
        cdsAddLong(list, static_cast<std::int32_t>(m_mapLogEntries.size()));
        for (const auto& pLog : m_mapLogEntries)
        {
            cdsAddText(list, pLog->name());
            (void)pLog->m_tsLastAppend.serialize(&sPart); // always 0
            cdsAddText(list, sPart);
            cdsAddLong(list, static_cast<std::int32_t>(pLog->m_mapEntries.size()));
            for (const auto& pValue : pLog->m_mapEntries)
                addValue(list, *pValue);
        }
        *psText = std::move(list).paramList();
        return 0L;
    });
}

long CCallData::deserialize(const std::string& sText)
{
    return cdsGuarded([&] {
        const CParamsX list(sText);
        m_sCallID = list.getViewParamAt(0);
        readLogs(list, readProperties(list));
        return 0L;
    });
}

/// Reads the properties.
///
/// @return the position behind them
std::int64_t CCallData::readProperties(const CParamsX& list)
{
    const long lCount = list.getLongParamAt(1);
    std::int64_t llPosition = 2;
    CMapLoader<CPropertyMap> loader(m_mapProperties);
    for (long i = 0; i < lCount; ++i)
    {
        CValuePtr pValue = CValue::read(viewAt(list, llPosition));
        const long lLength = pValue->length();
        const CValue* const pHeld = loader.add(pValue);
        if (pHeld == nullptr)
        {
            addSize(lLength);
            ++llPosition;
            continue;
        }
        // The position is not advanced behind a replaced value, so every further round reads this same element.
        addSize(lLength - pHeld->length());
        loader.replace(pHeld, std::move(pValue));
        for (std::int64_t llRound = i; llRound < lCount && llRound - i < cMaxReplacedLines; ++llRound)
            CCDSLogging::logError("CCallData::deserialize - Deleting OldBLOB");
        break;
    }
    return llPosition;
}

/// Reads the logs. Elements that are not there read as a log named "" without entries; counts that promise more than
/// the text holds therefore change nothing once the text is used up.
void CCallData::readLogs(const CParamsX& list, std::int64_t llPosition)
{
    const long lCount = cdsReadLong(viewAt(list, llPosition));
    std::int64_t llPos = llPosition + 1;
    CMapLoader<CLogMap> loader(m_mapLogEntries);
    for (long i = 0; i < lCount; ++i)
    {
        const bool bUsedUp = llPos >= list.count();
        auto pLog = std::make_unique<CLogEntries>(std::string(viewAt(list, llPos)), stampOf(viewAt(list, llPos + 1)));
        const std::int32_t lEntries = cdsReadLong(viewAt(list, llPos + 2));
        const std::uint32_t dwSize = readEntries(list, llPos + 3, lEntries, pLog.get());
        if (loader.add(pLog) == nullptr) // the first of two logs of one name stays
            addSize(static_cast<long>(dwSize));
        llPos += 3 + std::max<std::int64_t>(lEntries, 0);
        if (bUsedUp)
            break;
    }
}

/// Reads the entries of one log.
///
/// @return the bytes of their values
std::uint32_t CCallData::readEntries(const CParamsX& list, std::int64_t llPosition, long lCount, CLogEntries* pLog)
{
    std::uint32_t dwSize = 0;
    CMapLoader<decltype(pLog->m_mapEntries)> loader(pLog->m_mapEntries);
    for (long i = 0; i < lCount; ++i)
    {
        CValuePtr pEntry = CValue::read(viewAt(list, llPosition + i));
        const auto dwLength = static_cast<std::uint32_t>(pEntry->length());
        if (loader.add(pEntry) == nullptr) // the first of two entries of one stamp stays
            dwSize += dwLength;
        if (llPosition + i >= list.count())
            break;
    }
    return dwSize;
}
