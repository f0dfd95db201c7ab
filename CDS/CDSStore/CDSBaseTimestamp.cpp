// The time stamp: taking the current one, and its text forms.

#include "CDSParams.h"
#include "CDSParamsText.h"
#include "CDSTimestamp.h"
#include "CPortable.h"

#include <cstdio>

CCDSTimestamp::CCDSTimestamp() : m_ullValue(0), m_lIncrement(0)
{
    getCurrent(this);
}

void CCDSTimestamp::increment() noexcept
{
    m_lIncrement = static_cast<std::int32_t>(static_cast<std::uint32_t>(m_lIncrement) + 1U);
}

void CCDSTimestamp::getCurrent(CCDSTimestamp* ptsStamp)
{
    // Shared by all threads without lock or atomic operation: two threads may take the same stamp within one clock
    // tick. The store tells stamps apart by record and name, and taking one stays as cheap as reading the clock.
    static unsigned long long ullPrevFileTime = 0;
    static std::int32_t lIncrement = 0;

    unsigned long long ullNow = 0;
    CPortable::GetCurrentULLFileTimeUTC(&ullNow);
    if (ullNow != ullPrevFileTime)
    {
        ullPrevFileTime = ullNow;
        lIncrement = 0;
    }
    else
        lIncrement = static_cast<std::int32_t>(static_cast<std::uint32_t>(lIncrement) + 1U); // wraps
    ptsStamp->m_ullValue = ullNow;
    ptsStamp->m_lIncrement = lIncrement;
}

std::string CCDSTimestamp::toString() const
{
    CPSystemTime stTime;
    CPortable::FileTimeToSystemTime(m_ullValue, &stTime);
    char szText[128];
    (void)std::snprintf(szText, sizeof szText, "%04d/%02d/%02d %02d:%02d:%02d.%d+%d", int{stTime.wYear},
                        int{stTime.wMonth}, int{stTime.wDay}, int{stTime.wHour}, int{stTime.wMinute},
                        int{stTime.wSecond}, int{stTime.wMilliseconds}, int{m_lIncrement}); // never as long as the room
    return szText;
}

long CCDSTimestamp::serialize(std::string* psText) const
{
    CParamsX list(64L); // with room for an element's announcement, as the list asks for it
    cdsAddU64(list, m_ullValue);
    cdsAddLong(list, m_lIncrement);
    *psText = std::move(list).paramList();
    return 0;
}

long CCDSTimestamp::deserialize(const std::string& sText)
{
    return deserializeView(sText);
}

long CCDSTimestamp::deserializeView(std::string_view text)
{
    const CParamsHead<2> list(text);
    m_ullValue = cdsReadU64(list.at(0));
    m_lIncrement = list.longAt(1);
    return 0;
}
