// What a peer's response may do: bytes, transport result and request ID of what the client channel receives.
//
// The first four bytes are the transport result and the fifth picks the exchange; the rest is the response.

#include "CDSAPI.h"
#include "CDSNetProxy.h"
#include "Fakes.h"
#include "FuzzCheck.h"

#include <cstring>
#include <iterator>
#include <string>

namespace {

constexpr std::size_t cMaxInput = 1024;
constexpr std::size_t cHead = 5;
constexpr unsigned long cWorkersWait = 0xFFFFFFFFUL;

void settle()
{
    FUZZ_CHECK(CFakeChannels::awaitReceivers());
    FUZZ_CHECK(CFakeClock::awaitWaiters(1, cWorkersWait));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize < cHead || uSize > cMaxInput)
        return 0;
    std::uint32_t dwResult = 0;
    std::memcpy(&dwResult, pData, sizeof dwResult);
    const std::string sBytes(reinterpret_cast<const char*>(pData) + cHead, uSize - cHead);

    const CFakeWorld world;
    CFakeClock::setSleepAdvances(true);
    CCDSAPI store;
    FUZZ_CHECK(store.Initialize("10.0.0.1", 0) == 0);
    FUZZ_CHECK(store.Register(0, "bob", "10.0.0.2", "sip:2", "none", nullptr, 1) == 0);
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2"); // registers once more
    settle();
    CCallData call(&store, "sip:2");
    unsigned char szValue[] = "value";
    unsigned char* const pValue = szValue;
    FUZZ_CHECK(call.setProperty("CALLERID", pValue, sizeof szValue) == 0);
    FUZZ_CHECK(store.Update("bob", &call, false) == 0);
    settle();
    FUZZ_CHECK(store.SendCDRDataToHQ("10.0.0.2", "sip:2", &call) == 0);
    settle();
    FUZZ_CHECK(store.Unregister("bob") == 0);
    settle();
    const auto vecSent = CFakeChannels::sent();
    FUZZ_CHECK(vecSent.size() == 5);
    // A registration, a repeated one, an unregistration, call data, a finished call.
    static constexpr std::size_t cExchanges[] = {0, 1, 4, 2, 3};
    const bool bWaits = pData[4] < std::size(cExchanges);
    const unsigned long ulRequestID = bWaits ? vecSent[cExchanges[pData[4]]].ulRequestID : pData[4] + 1000UL;

    for (int nTimes = 0; nTimes < 2; ++nTimes) // the second is late
        CFakeChannels::response(ulRequestID, dwResult, &sBytes);
    settle();
    if (bWaits)
        FUZZ_CHECK(g_pCDSNetProxy->getCCDSWork(ulRequestID) == nullptr);

    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2"); // what failed is made up for
    settle();
    CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING"); // the server lives on
    settle();
    FUZZ_CHECK(CFakeChannels::answers().size() == 1);
    FUZZ_CHECK(store.Finalize() == 0);
    return 0;
}
