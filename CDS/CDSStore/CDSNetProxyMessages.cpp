// The proxy: names and checks of what crosses the network, and how a refused buffer looks in the trace log.

#include "CDSNetProxyMessages.h"

#include "CCMLibraryX.h"
#include "CDSLogging.h"
#include "CDSResults.h"
#include "CDSTraceText.h"

#include <algorithm>
#include <array>
#include <cstring>

const char* const g_pszCallbackMsgRequest = "NETREQ_CLIENT_CCALLBACKMSG";
const char* const g_pszStatusResponse = "NETRSP_CLIENT_STATUS";

namespace {

/// Bytes of one line about a refused buffer.
constexpr unsigned long cSlice = 128;
/// Lines about one refused buffer: 1 MiB, which no message exceeds.
constexpr unsigned long cMostSlices = 8192;

} // namespace

bool cdsIsTooLong(long lResult) noexcept
{
    return lResult == E_FAIL;
}

bool cdsFailedByMessage(long lResult) noexcept
{
    const auto dwCode = static_cast<std::uint32_t>(lResult);
    return dwCode == CMLIB_TOO_LARGE || dwCode == CMLIB_NO_MEMORY;
}

bool checkMessage(const char* pBuffer, unsigned long ulSize)
{
    struct SAllowed
    {
        const char* pszPrefix;
        unsigned long ulNameLength;
    };
    // The names as the first element of a list. What follows a name is not looked at.
    static constexpr std::array<SAllowed, 4> mhAllowed{{{"26;NETREQ_CLIENT_CCALLBACKMSG", 26},
                                                        {"18;NETREQ_CLIENT_PING", 18},
                                                        {"21;NETREQ_CLIENT_IMALIVE", 21},
                                                        {"20;NETRSP_CLIENT_STATUS", 20}}};
    return std::any_of(mhAllowed.begin(), mhAllowed.end(), [&](const SAllowed& allowed) {
        return ulSize > allowed.ulNameLength && pBuffer != nullptr &&
               std::strncmp(pBuffer, allowed.pszPrefix, std::strlen(allowed.pszPrefix)) == 0;
    });
}

std::string hexasciiMessage(const char* pBuffer, unsigned long ulSize)
{
    // A line of hexadecimal pairs and characters was meant, of which each pair's second digit became the end of text.
    if (pBuffer == nullptr || ulSize == 0)
        return std::string(386, ' ');
    // A byte of 0x80 or more counts as negative: eight digits that begin with F.
    const auto uByte = static_cast<unsigned char>(*pBuffer);
    return std::string(1, uByte >= 0x80U ? 'F' : cdsHexDigit(uByte >> 4U));
}

std::string cdsReceivedText(const char* pBuffer, unsigned long ulSize)
{
    return pBuffer == nullptr ? std::string() : std::string(pBuffer, strnlen(pBuffer, ulSize));
}

void cdsLogBogusRequest(unsigned long ulPeer, const char* pBuffer, unsigned long ulSize, int nErrorPos)
{
    CCDSLogging::logAlways(
        "(Error) CCDSNetProxy::xpServerRequestThreadFunc, bogus receive buffer at %d, ipaddr 0x%08X, "
        "buf 0x%08X, size %d",
        nErrorPos, cdsCode(ulPeer), cdsIdentity(pBuffer), cdsInt(ulSize));
    unsigned long ulPos = std::min(static_cast<unsigned long>(std::max(nErrorPos, 0)), ulSize);
    for (unsigned long ulSlice = 0; ulPos < ulSize && ulSlice < cMostSlices; ++ulSlice, ulPos += cSlice)
        CCDSLogging::logAlways("(Error) buf 0x%08X \"%s\"", cdsIdentity(pBuffer + ulPos),
                               hexasciiMessage(pBuffer + ulPos, std::min(cSlice, ulSize - ulPos)).c_str());
}
