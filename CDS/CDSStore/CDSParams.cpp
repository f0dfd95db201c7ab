// The parameter list.

#include "CDSParams.h"

#include "CDSLogging.h"
#include "CDSParamsText.h"
#include "CDSResults.h"
#include "CDSTraceText.h"
#include "CPortable.h"

#include <cstdio>
#include <cstring>
#include <limits>

namespace {

constexpr std::int64_t cMaxPosition = std::numeric_limits<std::int32_t>::max();

/// A result code from exactly 10 characters; what is not "0x" and hexadecimal digits reads as 0, success.
long scanResult(std::string_view text)
{
    char szText[11] = "";
    (void)text.copy(szText, sizeof szText - 1);
    unsigned int uCode = 0;
    (void)std::sscanf(szText, "0x%08X", &uCode); // nothing scanned leaves 0, as meant
    return cdsResult(uCode);
}

void logAdding()
{
    CCDSLogging::log(CCDSLogging::level_detail, "CParamsX::addParam(const string& sParam, float dummy)");
}

bool isTooLong(std::size_t uSize)
{
    if (uSize <= static_cast<std::size_t>(CParamsX::cMaxElement))
        return false;
    CCDSLogging::logError("ERROR :CParamsX::addParam :parm size %d larger than max permitted size %d", cdsInt(uSize),
                          static_cast<int>(CParamsX::cMaxElement));
    return true;
}

} // namespace

CParamsX::CParamsX(long lReserve)
{
    if (lReserve > 0)
        m_sParamList.reserve(static_cast<std::size_t>(lReserve));
}

CParamsX::CParamsX(const std::string& sParams)
{
    constructor(sParams);
}

void CParamsX::constructor(const std::string& sParams)
{
    m_sParamList = sParams;
    m_lHeaderLength = static_cast<std::int32_t>(cdsHeaderLength(m_sParamList));
    walkFrom(m_lHeaderLength);
}

void CParamsX::walkFrom(long lPos)
{
    const auto llSize = static_cast<std::int64_t>(m_sParamList.size());
    if (llSize > cMaxPosition) // positions are 32-bit
        cdsThrowParseFailure();
    for (std::int64_t llPos = lPos; llPos < llSize;)
    {
        m_paramStarts.add(static_cast<std::int32_t>(llPos));
        const SParamElement element = cdsElementAt(m_sParamList, llPos);
        llPos += element.lPrefixLength + element.llLength + 1;
    }
}

void CParamsX::clear() noexcept
{
    m_lHeaderLength = 0;
    m_sParamList.clear();
    m_paramStarts.clear();
}

void CParamsX::dump() const
{
    for (int i = 0; i < count(); ++i)
        CCDSLogging::logError("CParamsX::dump(), param=%s", getStringParamAt(i).c_str());
}

void CParamsX::beginElement(std::size_t uSize)
{
    char szSize[CPortable::cDecimalBuffer];
    CPortable::ltoa(static_cast<long>(uSize), szSize, 10);
    m_sParamList.reserve(m_sParamList.size() + uSize + sizeof szSize); // what follows cannot fail half-way
    const bool bFirst = m_sParamList.size() <= static_cast<std::size_t>(m_lHeaderLength);
    m_paramStarts.add(static_cast<std::int32_t>(m_sParamList.size() + (bFirst ? 0 : 1)));
    if (!bFirst)
        m_sParamList += ';';
    m_sParamList += szSize;
    m_sParamList += ';';
}

long CParamsX::addParam(const std::string& sParam, float dummy)
{
    if (&sParam == &m_sParamList) // the list's own text, which changes as the element begins
        return addParam(std::string(sParam), dummy);
    logAdding();
    if (isTooLong(sParam.size()))
        return E_FAIL;
    beginElement(sParam.size());
    m_sParamList += sParam;
    return 0;
}

void CParamsX::addParam(long lValue)
{
    char szValue[CPortable::cDecimalBuffer];
    (void)addParam(CPortable::ltoa(static_cast<std::int32_t>(lValue), szValue, 10), 0.0F); // never too long
}

void CParamsX::addParam(unsigned long ulValue)
{
    addParam(static_cast<long>(static_cast<std::int32_t>(static_cast<std::uint32_t>(ulValue))));
}

void CParamsX::addParam(int bValue)
{
    (void)addParam(bValue != 0 ? "T" : "F", 0.0F); // never too long
}

void CParamsX::addParam(unsigned long long ullValue)
{
    char szValue[CPortable::cDecimalBuffer];
    (void)addParam(CPortable::ulltos(ullValue, szValue), 0.0F); // never too long
}

void CParamsX::addParam(unsigned char* const& pData, int nSize)
{
    const std::size_t uBytes = pData == nullptr || nSize <= 0 ? 0 : static_cast<std::size_t>(nSize);
    logAdding();
    if (isTooLong(2 * uBytes))
        return;
    beginElement(2 * uBytes);
    const std::size_t uBegin = m_sParamList.size();
    m_sParamList.resize(uBegin + 2 * uBytes);
    char* pOut = m_sParamList.data() + uBegin;
    for (std::size_t i = 0; i < uBytes; ++i)
    {
        *pOut++ = cdsHexDigit(pData[i] >> 4U);
        *pOut++ = cdsHexDigit(pData[i] & 0x0FU);
    }
}

void CParamsX::addResult(long hr)
{
    char szValue[11];
    (void)std::snprintf(szValue, sizeof szValue, "0x%08X", cdsCode(hr)); // always 10 characters
    (void)addParam(szValue, 0.0F);                                       // never too long
}

void CParamsX::addHeader(std::string sHeader)
{
    if (sHeader.empty())
        return;
    sHeader += ';';
    m_sParamList = std::move(sHeader);
    m_lHeaderLength = static_cast<std::int32_t>(m_sParamList.size());
}

void CParamsX::append(const std::string& sParams)
{
    const std::size_t uAppended = sParams.size(); // before the semicolon, which lengthens the list's own text
    m_sParamList.reserve(m_sParamList.size() + 1 + uAppended);
    if (!m_paramStarts.empty())
        m_sParamList += ';';
    const std::size_t uBegin = m_sParamList.size();
    m_sParamList.append(sParams, 0, uAppended);
    walkFrom(static_cast<long>(uBegin));
}

std::string_view CParamsX::getViewParamAt(int nIndex) const
{
    if (nIndex < 0 || nIndex >= count())
        return {};
    return cdsElementText(m_sParamList, m_paramStarts[static_cast<std::size_t>(nIndex)]);
}

std::string CParamsX::getStringParamAt(int nIndex) const
{
    return std::string(getViewParamAt(nIndex));
}

long CParamsX::getLongParamAt(int nIndex) const
{
    return cdsReadLong(getViewParamAt(nIndex));
}

unsigned long CParamsX::getULONGParamAt(int nIndex) const
{
    return static_cast<std::uint32_t>(cdsReadLong(getViewParamAt(nIndex)));
}

bool CParamsX::getBOOLParamAt(int nIndex) const
{
    return getViewParamAt(nIndex) == "T";
}

unsigned long long CParamsX::getULONGLONGParamAt(int nIndex) const
{
    return cdsReadU64(getViewParamAt(nIndex));
}

unsigned char* CParamsX::getCDSDATAParamAt(int nIndex, int* pnSize) const
{
    return cdsReadBytes(getViewParamAt(nIndex), pnSize);
}

long CParamsX::getHRESULT() const
{
    const std::string_view text = getViewParamAt(0);
    return text.size() == 10 ? scanResult(text) : E_FAIL;
}

std::string CParamsX::getHeader() const
{
    return m_lHeaderLength > 0 ? m_sParamList.substr(0, static_cast<std::size_t>(m_lHeaderLength) - 1) : std::string();
}

long CParamsX::getLength(long lPos, long* plPrefixLength) const
{
    const SParamElement element = cdsElementAt(m_sParamList, lPos);
    *plPrefixLength = element.lPrefixLength;
    return static_cast<long>(element.llLength);
}

long CParamsX::getHRESULT(const std::string& sParams)
{
    const std::string_view text = sParams;
    const std::size_t uBegin = cdsHeaderLength(text);
    const bool bHeader = !text.empty() && (text.front() < '0' || text.front() > '9');
    if ((bHeader && uBegin == 0) || uBegin >= text.size())
        return E_FAIL;
    const std::string_view element = text.substr(uBegin);
    if (cdsReadLong(element) != 10)
        return E_FAIL;
    const std::size_t uSemicolon = element.find(';');
    return scanResult(uSemicolon == std::string_view::npos ? std::string_view() : element.substr(uSemicolon + 1));
}

bool CParamsX::Verify(const std::string& sParams, int nReceived, int* pnErrorPos)
{
    if (static_cast<std::int64_t>(nReceived) - 1 != static_cast<std::int64_t>(sParams.size()))
    {
        *pnErrorPos = 0;
        return false;
    }
    for (std::int64_t llPos = 0; llPos < static_cast<std::int64_t>(sParams.size());)
    {
        long lPrefixLength = 0;
        const long lLength = getSafeLength(sParams.c_str(), static_cast<long>(llPos), &lPrefixLength);
        const std::int64_t llNext = llPos + lPrefixLength + lLength + 1;
        if (lLength < 0 || llNext > cMaxPosition)
        {
            *pnErrorPos = static_cast<int>(llPos);
            return false;
        }
        llPos = llNext;
    }
    return true;
}

long CParamsX::getSafeLength(const char* pszParams, long lPos, long* plPrefixLength) noexcept
{
    const char* const pBegin = pszParams + lPos;
    if (lPos < 0 || *pBegin < '0' || *pBegin > '9')
        return -1;
    const char* const pSemicolon = std::strchr(pBegin, ';');
    if (pSemicolon == nullptr)
        return -1;
    *plPrefixLength = static_cast<long>(pSemicolon - pBegin) + 1;
    return cdsReadLong({pBegin, static_cast<std::size_t>(pSemicolon - pBegin)});
}
