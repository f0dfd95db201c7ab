// Addresses and endpoints: their text forms.
#include "capture/Endpoint.h"

#include <algorithm>
#include <arpa/inet.h>

CIpAddress::CIpAddress(std::span<const std::uint8_t> bytes) noexcept
{
    if (bytes.size() != 4 && bytes.size() != 16)
        return;
    m_bV6 = bytes.size() == 16;
    std::copy(bytes.begin(), bytes.end(), m_bytes.begin());
}

std::string CIpAddress::toString() const
{
    char szText[INET6_ADDRSTRLEN] = "";
    (void)inet_ntop(m_bV6 ? AF_INET6 : AF_INET, m_bytes.data(), szText, sizeof szText); // the buffer is large enough
    return szText;
}

std::string CEndpoint::toString() const
{
    const std::string sAddress = address.toString();
    return (address.isV6() ? "[" + sAddress + "]" : sAddress) + ":" + std::to_string(wPort);
}
