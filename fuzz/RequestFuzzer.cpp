// What a peer's request may do to a server: the bytes that its server channel receives, from the check to the answer.
//
// The server has a call of its own that a local registrant follows, a call of the peer's, and the peer's registration.

#include "CDSAPI.h"
#include "CDSParams.h"
#include "Fakes.h"
#include "FuzzCheck.h"

#include <memory>
#include <string>

namespace {

// A message's structure shows in little; longer inputs only take longer.
constexpr std::size_t cMaxInput = 8192;
constexpr unsigned long cWorkersWait = 0xFFFFFFFFUL;
const std::string cPeer = "10.0.0.2";

long onMessage(CCallbackMsg* /*pMsg*/)
{
    return 0;
}

void settle()
{
    FUZZ_CHECK(CFakeChannels::awaitReceivers());
    FUZZ_CHECK(CFakeClock::awaitWaiters(1, cWorkersWait));
}

/// A server that lives as long as the program, begun anew from time to time so that what peers registered goes.
class CTarget
{
public:
    CTarget()
    {
        CFakeClock::setSleepAdvances(true);
        m_pStore = std::make_unique<CCDSAPI>();
        FUZZ_CHECK(m_pStore->Initialize("10.0.0.1", 0) == 0);
        FUZZ_CHECK(m_pStore->Register(0, "ann", "10.0.0.1", "sip:1", "*", onMessage, 1) == 0);
        FUZZ_CHECK(m_pStore->Register(0, "bob", cPeer, "sip:2", "*", onMessage, 1) == 0);
        settle();
        CFakeChannels::forgetTraffic();
    }
    ~CTarget() { FUZZ_CHECK(m_pStore->Finalize() == 0); }
    CTarget(const CTarget&) = delete;
    CTarget& operator=(const CTarget&) = delete;

private:
    const CFakeWorld m_world;
    std::unique_ptr<CCDSAPI> m_pStore;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize > cMaxInput)
        return 0;
    static std::unique_ptr<CTarget> s_pTarget;
    static unsigned int s_uRuns = 0;
    if (s_pTarget == nullptr || ++s_uRuns % 256 == 0)
    {
        s_pTarget.reset();
        s_pTarget = std::make_unique<CTarget>();
    }
    const std::string sBytes(reinterpret_cast<const char*>(pData), uSize);

    CFakeChannels::serverReceives(0, cPeer, &sBytes); // as it is, often without a terminator
    settle();
    const std::size_t uAnswers = CFakeChannels::answers().size();
    FUZZ_CHECK(uAnswers <= 1);

    // As a message whose frame is right, so that the inner lists are reached; it is always answered.
    CParamsX list;
    FUZZ_CHECK(list.addParam(std::string("NETREQ_CLIENT_CCALLBACKMSG"), 0.0F) == 0);
    FUZZ_CHECK(list.addParam(sBytes.c_str(), 0.0F) == 0);
    CFakeChannels::request(cPeer, list.paramList());
    settle();
    FUZZ_CHECK(CFakeChannels::answers().size() == uAnswers + 1);
    for (const auto& answer : CFakeChannels::answers())
        FUZZ_CHECK(answer.sBytes == std::string("20;NETRSP_CLIENT_STATUS;1;0\0", 28));

    CFakeChannels::forgetTraffic();
    CFakeLog::clear(); // it keeps every line, for as long as the fuzzer runs
    return 0;
}
