// The value that a record holds: how it is made, read from text, and freed.

#include "CDSCallData.h"
#include "CDSParamsText.h"

#include <cstring>
#include <limits>
#include <new>

/// A value with its name.
///
/// @param bBytes  whether there is room for the bytes, which the caller fills in
CCallData::CValue* CCallData::CValue::allocate(std::string_view name, bool bBytes, std::size_t uLength,
                                               const CCDSTimestamp& tsStamp)
{
    const std::size_t uRoom = bBytes ? uLength : 0;
    // Neither too long for its number nor, both together, for the machine's addresses.
    constexpr std::size_t cMost = std::numeric_limits<std::int32_t>::max();
    if (name.size() > cMost || uRoom + name.size() > std::numeric_limits<std::size_t>::max() - sizeof(CValue) - 1)
        throw std::bad_alloc();
    void* const pBlock = ::operator new(sizeof(CValue) + uRoom + name.size() + 1);
    auto* const pValue =
        new (pBlock) CValue(static_cast<std::uint32_t>(name.size()), uRoom > 0, static_cast<int>(uLength), tsStamp);
    auto* const pName = reinterpret_cast<char*>(pValue->bytes() + uRoom);
    pName[name.copy(pName, name.size())] = '\0';
    return pValue;
}

void CCallData::CValue::destroy(const CValue* pValue) noexcept
{
    pValue->~CValue();
    ::operator delete(const_cast<CValue*>(pValue));
}

CCallData::CValuePtr CCallData::CValue::make(std::string_view name, const unsigned char* pData, int nLength,
                                             const CCDSTimestamp& tsStamp)
{
    const std::size_t uLength = pData != nullptr && nLength > 0 ? static_cast<std::size_t>(nLength) : 0;
    CValue* const pValue = allocate(name, true, uLength, tsStamp);
    if (uLength > 0)
        std::memcpy(pValue->bytes(), pData, uLength);
    return CValuePtr(pValue);
}

CCallData::CValuePtr CCallData::CValue::read(std::string_view text)
{
    CCDSTimestamp tsStamp; // as a blob does, takes one of the process's stamps before the text's stamp is read
    const CParamsHead<3> list(text);
    (void)tsStamp.deserializeView(list.at(2)); // always 0
    try
    {
        CValue* const pValue = allocate(list.at(0), true, cdsByteCount(list.at(1)), tsStamp);
        cdsReadBytesInto(list.at(1), pValue->bytes());
        return CValuePtr(pValue);
    }
    catch (const std::bad_alloc&)
    {
        return CValuePtr(allocate(list.at(0), false, cdsByteCount(list.at(1)), tsStamp));
    }
}
