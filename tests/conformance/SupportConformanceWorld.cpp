#include "CDSSupport.h"
#include "CPortable.h"
#include "ConformanceWorld.h"
#include "SystemLogSpy.h"
#include "TemporaryDirectory.h"

#include <sstream>

#include <syslog.h>

struct CConformanceWorld::CState
{
    CTemporaryDirectory directory;
};

CConformanceWorld::CConformanceWorld() : m_pState(std::make_unique<CState>())
{
    CSystemLogSpy::clear();
    CDSSupport::setLogDirectory(m_pState->directory.path());
    (void)CDSSupport::setConfigurationFile(m_pState->directory.file("cds.toml"), nullptr, true);
}

CConformanceWorld::~CConformanceWorld()
{
    (void)CDSSupport::setConfigurationFile("", nullptr);
}

std::vector<std::string> CConformanceWorld::storedLines(const std::string& sLog)
{
    CDSSupport::flushLogs();
    std::istringstream stream(m_pState->directory.read(sLog + ".log"));
    std::vector<std::string> vecTexts;
    for (std::string sLine; std::getline(stream, sLine);)
    {
        const std::size_t uText = sLine.find("] "); // after the stamp and the thread
        vecTexts.push_back(uText == std::string::npos ? "torn: " + sLine : sLine.substr(uText + 2));
    }
    return vecTexts;
}

std::vector<CConformanceWorld::CStoredEvent> CConformanceWorld::storedEvents()
{
    std::vector<CStoredEvent> vecEvents;
    for (const auto& [nPriority, sText] : CSystemLogSpy::messages())
    {
        const char cSeverity = nPriority == LOG_INFO      ? 'i'
                               : nPriority == LOG_WARNING ? 'w'
                               : nPriority == LOG_ERR     ? 'e'
                                                          : '?';
        vecEvents.push_back({cSeverity, sText});
    }
    return vecEvents;
}

void CConformanceWorld::refuseLogs()
{
    CDSSupport::setLogDirectory(m_pState->directory.file("not-there"));
}

unsigned long CConformanceWorld::waitWhileTimePasses(CPEvent* pEvent, unsigned long ulMs)
{
    return pEvent->wait(ulMs, nullptr);
}

void CConformanceWorld::sleepWhileTimePasses(unsigned long ulMs)
{
    CPortable::Sleep(ulMs);
}

void CConformanceWorld::restartConfiguration()
{
    (void)CDSSupport::setConfigurationFile("", nullptr);
    (void)CDSSupport::setConfigurationFile(m_pState->directory.file("cds.toml"), nullptr, true);
}

void CConformanceWorld::breakConfiguration()
{
    m_pState->directory.write("cds.toml", "[Orvane\n");
}
