#pragma once

#include "CDSCallData.h"
#include "CDSResults.h"
#include "CDSTimestamp.h"
#include "FakeLog.h"
#include "Fakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

// What the tests of the data model share.

/// For failure messages; found by GoogleTest.
inline void PrintTo(const CCDSTimestamp& tsStamp, std::ostream* pOut)
{
    *pOut << '(' << tsStamp.value() << ", " << tsStamp.incrementValue() << ')';
}

namespace model {

/// What a malformed text is reported with.
constexpr unsigned long cParseFailure = 0x80004005UL;

/// What a blob is refused with when there is no memory for its bytes.
constexpr unsigned long cBlobRefused = 0xC1170A28UL;

// Results by their 32 bits, as they appear in trace logs.

inline std::string hexOf(long lResult)
{
    char szText[16];
    (void)std::snprintf(szText, sizeof szText, "0x%08X", static_cast<unsigned int>(lResult));
    return szText;
}

MATCHER(IsOk, "is 0")
{
    *result_listener << "which is " << hexOf(arg);
    return arg == 0;
}

MATCHER_P(FailsWith, lCode, "is the failure " + hexOf(lCode))
{
    *result_listener << "which is " << hexOf(arg);
    return arg == lCode && arg < 0;
}

/// The code that a call throws; 0 when it throws none. Any other exception passes on.
template <class TCall> unsigned long thrownBy(const TCall& call)
{
    try
    {
        call();
    }
    catch (unsigned long ulCode)
    {
        return ulCode;
    }
    return 0;
}

/// The trace lines that a call writes under a trace mask.
template <class TCall> std::vector<std::string> linesUnder(std::uint32_t dwMask, const TCall& call)
{
    CFakeLog::setTraceMask("OvnCDS", dwMask);
    CFakeLog::clear();
    call();
    return CFakeLog::texts();
}

// The mask bits of the trace levels.
constexpr std::uint32_t cError = 1;
constexpr std::uint32_t cWarning = 2;
constexpr std::uint32_t cInfo = 4;
constexpr std::uint32_t cDetail = 16;
constexpr std::uint32_t cAllLevels = cError | cWarning | cInfo | cDetail;

/// An object's identity as trace lines print it.
inline std::string identityOf(const void* pObject)
{
    char szText[16];
    (void)std::snprintf(szText, sizeof szText, "0x%08X",
                        static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pObject)));
    return szText;
}

inline std::string textOf(const unsigned char* pData, int nLength)
{
    return pData == nullptr ? std::string()
                            : std::string(reinterpret_cast<const char*>(pData), static_cast<std::size_t>(nLength));
}

inline std::string bytes(std::initializer_list<int> values)
{
    std::string sBytes;
    for (const int nValue : values)
        sBytes += static_cast<char>(static_cast<unsigned char>(nValue));
    return sBytes;
}

/// A value as the record's writers take it.
class CValue
{
public:
    explicit CValue(std::string sValue)
        : m_sValue(std::move(sValue)), m_pData(reinterpret_cast<unsigned char*>(m_sValue.data()))
    {
    }
    CValue(const CValue&) = delete;
    CValue& operator=(const CValue&) = delete;

    unsigned char* const& data() const noexcept { return m_pData; }
    int length() const noexcept { return static_cast<int>(m_sValue.size()); }

private:
    std::string m_sValue;
    unsigned char* m_pData;
};

/// A stamp from a small number: most tests need only an order.
inline CCDSTimestamp at(unsigned long long ullValue, long lIncrement = 0)
{
    return {ullValue, lIncrement};
}

/// Sets a property.
///
/// @return whether the record says it changed
inline bool put(CCallData& record, const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp)
{
    const CValue value(sValue);
    bool bChanged = false;
    EXPECT_THAT(record.setProperty(sName, value.data(), value.length(), tsStamp, true, &bChanged), IsOk());
    return bChanged;
}

/// Appends a log entry.
///
/// @return whether the record says it changed
inline bool add(CCallData& record, const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp)
{
    const CValue value(sValue);
    bool bChanged = false;
    EXPECT_THAT(record.appendLogEntry(sName, value.data(), value.length(), tsStamp, true, &bChanged), IsOk());
    return bChanged;
}

/// Where a property's bytes are; null when there is no such property or it is empty.
inline const unsigned char* bytesOf(const CCallData& record, const std::string& sName)
{
    unsigned char* pData = nullptr;
    int nLength = 0;
    (void)record.getProperty(sName, &pData, &nLength, nullptr); // null tells
    return pData;
}

/// Where the bytes of a log's first entry are.
inline const unsigned char* entryBytesOf(CCallData& record, const std::string& sLog)
{
    unsigned char* pData = nullptr;
    int nLength = 0;
    int nIndex = 0;
    (void)record.getLogEntry(sLog, &nIndex, &pData, &nLength, at(0), nullptr); // null tells
    return pData;
}

/// What a record holds under a name, as readers see it.
struct SItem
{
    std::string sName;
    std::string sValue;
    CCDSTimestamp tsStamp{0, 0};

    bool operator==(const SItem& other) const
    {
        return sName == other.sName && sValue == other.sValue && tsStamp == other.tsStamp;
    }
};

inline void PrintTo(const SItem& item, std::ostream* pOut)
{
    *pOut << item.sName << '=' << ::testing::PrintToString(item.sValue) << '@';
    ::PrintTo(item.tsStamp, pOut);
}

/// All properties in the order of the iteration.
inline std::vector<SItem> propertiesOf(CCallData& record, const CCDSTimestamp& tsSince = at(0, -2147483647L - 1))
{
    std::vector<SItem> vecItems;
    SItem item;
    unsigned char* pData = nullptr;
    int nLength = 0;
    for (int nIndex = 0; record.getProperty(&nIndex, &item.sName, &pData, &nLength, tsSince, &item.tsStamp) >= 0;)
    {
        item.sValue = textOf(pData, nLength);
        vecItems.push_back(item);
    }
    return vecItems;
}

/// The entries of one log, or with bPartial of all whose name begins with the text.
inline std::vector<SItem> entriesOf(CCallData& record, const std::string& sLog, bool bPartial = false,
                                    const CCDSTimestamp& tsSince = at(0, -2147483647L - 1))
{
    std::vector<SItem> vecItems;
    SItem item{sLog, {}, at(0)};
    unsigned char* pData = nullptr;
    int nLength = 0;
    int nIndex = 0;
    while ((bPartial ? record.getLogEntryByPartialName(sLog, &nIndex, &pData, &nLength, tsSince, &item.tsStamp)
                     : record.getLogEntry(sLog, &nIndex, &pData, &nLength, tsSince, &item.tsStamp)) >= 0)
    {
        item.sValue = textOf(pData, nLength);
        vecItems.push_back(item);
    }
    return vecItems;
}

inline std::vector<std::string> logNamesOf(CCallData& record)
{
    std::vector<std::string> vecNames;
    std::string sName;
    for (int nIndex = 0; record.getLogName(nIndex, &sName) >= 0; ++nIndex)
        vecNames.push_back(sName);
    return vecNames;
}

/// Every property, then every entry log by log.
inline std::vector<SItem> contentOf(CCallData& record)
{
    std::vector<SItem> vecItems = propertiesOf(record);
    for (const std::string& sLog : logNamesOf(record))
        for (SItem& item : entriesOf(record, sLog))
            vecItems.push_back(item);
    return vecItems;
}

inline std::string callIDOf(const CCallData& record)
{
    std::string sCallID;
    EXPECT_THAT(record.getCallID(&sCallID), IsOk());
    return sCallID;
}

/// The text form.
inline std::string serialized(CCallbackData& data)
{
    std::string sText = "what was there before";
    EXPECT_THAT(data.serialize(&sText), IsOk());
    return sText;
}

/// What filter hands out.
struct SFiltered
{
    long lResult = 0;
    std::unique_ptr<CCallData> pRecord; // null when nothing is new

    bool any() const { return pRecord != nullptr; }
};

inline SFiltered filtered(CCallData& record, CCallData* pOther)
{
    // Anything but null, to see that it is overwritten.
    CCallData* pResult = &record;
    const long lResult = record.filter(pOther, &pResult);
    return {lResult, std::unique_ptr<CCallData>(pResult)};
}

/// Fresh fakes for every case.
class CModelTest : public ::testing::Test
{
protected:
    CFakeWorld m_world;
};

} // namespace model
