// The smallest host: one component watches a call, another writes to it, and the watcher is told what changed.

#include <CDSAPI.h>
#include <CDSSupport.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

constexpr const char* g_pszThisServer = "127.0.0.1";
const std::string g_sCallID = "sip:4711@example.org";

int g_nChanges = 0;

/// Runs on the thread that updates the call, with the store locked; the message lives until it returns.
long onChange(CCallbackMsg* pMessage)
{
    auto* const pCall = dynamic_cast<CCallData*>(pMessage->getCallbackData());
    if (pCall == nullptr)
        return 0;
    ++g_nChanges;
    int nIndex = 0;
    std::string sName;
    unsigned char* pValue = nullptr;
    int nLength = 0;
    CCDSTimestamp tsChange(0, 0);
    while (pCall->getProperty(&nIndex, &sName, &pValue, &nLength, CCDSTimestamp(0, 0), &tsChange) == 0)
        std::printf("%s = %.*s (%s)\n", sName.c_str(), nLength, reinterpret_cast<const char*>(pValue),
                    tsChange.toString().c_str());
    return 0;
}

bool setText(CCallData& call, const std::string& sName, std::string sText)
{
    unsigned char* const pText = reinterpret_cast<unsigned char*>(sText.data());
    return call.setProperty(sName, pText, static_cast<int>(sText.size()) + 1) == 0; // with its zero byte
}

/// Two updates of one call; the second brings one new value, so the watcher gets that value alone.
bool useStore(CCDSAPI& store)
{
    CCallData call(&store, g_sCallID);
    return store.Register(0, "watcher", g_pszThisServer, g_sCallID, "*", onChange, 1) == 0 &&
           store.Register(0, "writer", g_pszThisServer, g_sCallID, "none", nullptr, 2) == 0 &&
           setText(call, CDSPROP_CALLERID, "+441632960123") && store.Update("writer", &call, true) == 0 &&
           setText(call, CDSPROP_COMMENT, "first call of the day") && store.Update("writer", &call, true) == 0 &&
           store.Unregister("writer") == 0 && store.Unregister("watcher") == 0;
}

} // namespace

int main()
{
    CDSSupport::setLogDirectory("."); // the trace log, OvnCDS.log
    CCDSAPI::initLogger();
    auto pStore = std::make_unique<CCDSAPI>();
    if (pStore->Initialize(g_pszThisServer, 0) < 0)
    {
        std::fprintf(stderr, "the store did not start: see OvnCDS.log\n");
        return 1;
    }
    const bool bUsed = useStore(*pStore);
    (void)pStore->Finalize(); // always 0
    std::printf("%d changes\n", g_nChanges);
    return bUsed && g_nChanges == 2 ? 0 : 1;
}
