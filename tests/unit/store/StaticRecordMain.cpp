// A host that leaves its store as it is and has records that live as long as the program: they end after main, when
// they still take locks and write lines. The program says by its status whether that went well.

#include "CDSAPI.h"
#include "Fakes.h"

#include <cstdlib>

namespace {

/// Ends after everything that was made later, thus after the records.
struct CLastLook
{
    ~CLastLook()
    {
        if (CFakeLog::countContaining("CCallData Free: ") != 2)
            std::_Exit(1);
    }
};

CLastLook g_lastLook;
CCallData g_record("sip:1");
CCDSAPI* g_pStore = nullptr; // never destroyed

} // namespace

int main()
{
    static CCallData s_record("sip:2");
    CFakeClock::setSleepAdvances(true); // the proxy sleeps while its threads end
    CFakeLog::setTraceMask("OvnCDS", 4);
    CCDSAPI::initLogger();
    g_pStore = new CCDSAPI;
    unsigned char aBytes[] = {'x'};
    unsigned char* const pBytes = aBytes;
    for (CCallData* const pRecord : {&g_record, &s_record})
        if (pRecord->setProperty("CALLERID", pBytes, 1) < 0 || pRecord->appendLogEntry("CONNECT_ENTRY", pBytes, 1) < 0)
            return 2;
    const bool bServed = g_pStore->Initialize("10.0.0.1", 0) == 0 &&
                         g_pStore->Register(0, "ann", "10.0.0.1", "sip:1", "*", nullptr, 1) == 0 &&
                         g_pStore->Update("ann", &g_record, false) == 0 && g_pStore->Finalize() == 0;
    CFakeLog::clear();
    return bServed ? 0 : 3;
}
