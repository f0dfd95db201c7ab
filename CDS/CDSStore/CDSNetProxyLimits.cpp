// The proxy: what it tells of requests that ask for more than a peer may have.

#include "CDSNetProxyLimits.h"

#include "CDSLogging.h"

#include <bit>
#include <string>

void CPeerRefusals::note(std::uint32_t dwPeer, const char* pszWhy)
{
    const std::uint64_t ullCount = ++m_mapRefusals[dwPeer];
    if (std::has_single_bit(ullCount))
        CCDSLogging::logError("CCDSNetProxy::workerThread, registration refused, ipaddr 0x%08X, %s, %s so far", dwPeer,
                              pszWhy, std::to_string(ullCount).c_str());
}
