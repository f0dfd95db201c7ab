#include "ConformanceWorld.h"

#include "CPortable.h"
#include "Fakes.h"

#include <cstdio>
#include <thread>

struct CConformanceWorld::CState
{
    CFakeWorld fakes;
};

CConformanceWorld::CConformanceWorld() : m_pState(std::make_unique<CState>()) {}

CConformanceWorld::~CConformanceWorld() = default;

std::vector<std::string> CConformanceWorld::storedLines(const std::string& sLog)
{
    std::vector<std::string> vecTexts;
    for (const CFakeLog::CLine& line : CFakeLog::lines())
    {
        if (line.sLog == sLog && line.bStored)
            vecTexts.push_back(line.sText);
    }
    return vecTexts;
}

std::vector<CConformanceWorld::CStoredEvent> CConformanceWorld::storedEvents()
{
    std::vector<CStoredEvent> vecEvents;
    for (const CFakeLog::CEvent& event : CFakeLog::events())
    {
        char szText[32];
        (void)std::snprintf(szText, sizeof szText, "event 0x%08X", event.dwEventID); // fits
        CStoredEvent stored{"iiwe"[event.nSeverity], szText};
        for (const std::string& sString : event.vecStrings)
            stored.sText += (stored.sText == szText ? ": " : ", ") + sString;
        vecEvents.push_back(stored);
    }
    return vecEvents;
}

void CConformanceWorld::refuseLogs()
{
    CFakeLog::failNextCreation(-5);
}

unsigned long CConformanceWorld::waitWhileTimePasses(CPEvent* pEvent, unsigned long ulMs)
{
    std::thread time([ulMs] {
        if (CFakeClock::awaitWaiters(1))
            CFakeClock::advance(ulMs);
    });
    const unsigned long ulResult = pEvent->wait(ulMs, nullptr);
    time.join();
    return ulResult;
}

void CConformanceWorld::sleepWhileTimePasses(unsigned long ulMs)
{
    std::thread time([ulMs] {
        if (CFakeClock::awaitWaiters(1))
            CFakeClock::advance(ulMs);
    });
    CPortable::Sleep(ulMs);
    time.join();
}

void CConformanceWorld::restartConfiguration()
{
    // The map outlives every CRegLib: there is nothing to forget.
}

void CConformanceWorld::breakConfiguration()
{
    CFakeConfiguration::failNextOpen(-11);
}
