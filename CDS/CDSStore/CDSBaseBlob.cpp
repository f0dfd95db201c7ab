// The blob: a named value with its time stamp.

#include "CDSBase.h"
#include "CDSParams.h"
#include "CDSParamsText.h"
#include "CDSTraceText.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

using CCDSBlob = CCallData::CCDSBlob;

namespace {

/// A copy from malloc; null when there is nothing to copy or no memory.
unsigned char* copyOf(const unsigned char* pData, int nLength) noexcept
{
    if (pData == nullptr || nLength < 1)
        return nullptr;
    auto* const pCopy = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(nLength)));
    if (pCopy != nullptr)
        std::memcpy(pCopy, pData, static_cast<std::size_t>(nLength));
    return pCopy;
}

std::size_t readableBytes(const unsigned char* pData, int nLength) noexcept
{
    return pData != nullptr && nLength > 0 ? static_cast<std::size_t>(nLength) : 0;
}

} // namespace

CCDSBlob::CCDSBlob(const std::string& sName, unsigned char* const& pData, int nLength, const CCDSTimestamp& tsStamp)
    : m_sName(sName),
      m_pData(copyOf(pData, nLength)),
      m_tsStamp(tsStamp),
      m_nLength(pData != nullptr && nLength >= 1 ? nLength : 0)
{
    if (m_nLength > 0 && m_pData == nullptr)
        throw static_cast<unsigned long>(0xC1170A28UL);
}

// A blob begins with the current time, which takes one of the process's stamps, before the text's stamp is read.
CCDSBlob::CCDSBlob(const std::string& sText) : CCDSBlob()
{
    readFrom(sText);
}

CCDSBlob::CCDSBlob(const CCDSBlob& other)
    : m_sName(other.m_sName),
      m_pData(copyOf(other.m_pData, other.m_nLength)),
      m_tsStamp(other.m_tsStamp),
      m_nLength(other.m_nLength)
{
}

CCDSBlob& CCDSBlob::operator=(const CCDSBlob& other)
{
    if (this == &other)
        return *this;
    m_sName = other.m_sName;
    m_tsStamp = other.m_tsStamp;
    m_nLength = other.m_nLength;
    std::free(m_pData);
    m_pData = copyOf(other.m_pData, other.m_nLength);
    return *this;
}

CCDSBlob::~CCDSBlob()
{
    std::free(m_pData);
}

CCDSBlob* CCDSBlob::clone() const
{
    return new CCDSBlob(m_sName, m_pData, m_nLength, m_tsStamp);
}

long CCDSBlob::serialize(std::string* psText) const
{
    cdsWriteValue(m_sName, m_pData, m_nLength, m_tsStamp, psText);
    return 0;
}

long CCDSBlob::deserialize(const std::string& sText)
{
    readFrom(sText);
    return 0;
}

void CCDSBlob::readFrom(const std::string& sText)
{
    const CParamsHead<3> list(sText);
    m_sName = list.at(0);
    std::free(m_pData);
    m_pData = cdsReadBytes(list.at(1), &m_nLength);
    (void)m_tsStamp.deserializeView(list.at(2)); // always 0
}

std::string CCDSBlob::toString() const
{
    constexpr std::size_t cShown = 32;
    std::string sText = "name" + m_sName + ", val ";
    for (std::size_t i = 0; i < std::min(readableBytes(m_pData, m_nLength), cShown); ++i)
        sText += cdsPrintable(m_pData[i]);
    return sText;
}

void CCDSBlob::DumpContent(std::string& sDump) const
{
    cdsDumpValue(m_sName.c_str(), m_pData, m_nLength, sDump);
}

void cdsWriteValue(const std::string& sName, const unsigned char* pData, int nLength, const CCDSTimestamp& tsStamp,
                   std::string* psText)
{
    std::string sStamp;
    (void)tsStamp.serialize(&sStamp); // always 0
    CParamsX list(static_cast<long>(sName.size() + 2 * readableBytes(pData, nLength) + sStamp.size() + 48));
    cdsAddText(list, sName);
    cdsAddBytes(list, pData, nLength);
    cdsAddText(list, sStamp);
    *psText = std::move(list).paramList();
}

void cdsDumpValue(const char* pszName, const unsigned char* pData, int nLength, std::string& sDump)
{
    constexpr std::size_t cRow = 16;
    char szLine[257];
    (void)std::snprintf(szLine, sizeof szLine, "\t\tName: %s, DataLen: %d, Value:\n", pszName,
                        nLength); // a cut line is meant
    sDump = szLine;
    const std::size_t uBytes = readableBytes(pData, nLength);
    for (std::size_t uRow = 0; uRow < uBytes; uRow += cRow)
    {
        const std::size_t uEnd = std::min(uRow + cRow, uBytes);
        std::string sHex = "\t\t\t";
        std::string sText;
        for (std::size_t i = uRow; i < uEnd; ++i)
        {
            sHex += cdsHexDigit(pData[i] >> 4U); // the high digit alone, on purpose: readers of dumps know it so
            sText += cdsPrintable(pData[i]);
        }
        if (uEnd - uRow == cRow)
            sDump += sHex + sText + '\n';
        else
        {
            (void)std::snprintf(szLine, sizeof szLine, "%-49s\t%s\n", sHex.c_str(), sText.c_str()); // fits
            sDump += szLine;
        }
    }
}
