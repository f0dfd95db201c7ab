// What tests see of the fake log; FakeLogFile.cpp holds what the code under test sees.
#include "FakeLog.h"

#include "AllocationPause.h"
#include "FakeLives.h"
#include "FakeLogState.h"

#include <algorithm>

CFakeLogState& CFakeLogState::get()
{
    CAllocationPause pause;
    static CFakeLogState* const pState = new CFakeLogState;
    return *pState;
}

CFakeLogState::CMask& CFakeLogState::mask(const std::string& sLog)
{
    std::unique_ptr<CMask>& pMask = mapMasks[sLog];
    if (!pMask)
        pMask = std::make_unique<CMask>();
    return *pMask;
}

namespace {
template <typename Action> auto locked(Action action)
{
    CAllocationPause pause;
    CFakeLogState& log = CFakeLogState::get();
    const std::lock_guard lock(log.mtx);
    return action(log);
}
} // namespace

std::vector<CFakeLog::CLine> CFakeLog::lines()
{
    return locked([](CFakeLogState& log) { return log.vecLines; });
}

std::vector<std::string> CFakeLog::texts()
{
    return locked([](CFakeLogState& log) {
        std::vector<std::string> vecTexts;
        for (const CLine& line : log.vecLines)
            vecTexts.push_back(line.sText);
        return vecTexts;
    });
}

std::vector<CFakeLog::CEvent> CFakeLog::events()
{
    return locked([](CFakeLogState& log) { return log.vecEvents; });
}

std::size_t CFakeLog::countContaining(const std::string& sPart)
{
    return locked([&sPart](CFakeLogState& log) {
        return static_cast<std::size_t>(
            std::count_if(log.vecLines.begin(), log.vecLines.end(),
                          [&sPart](const CLine& line) { return line.sText.find(sPart) != std::string::npos; }));
    });
}

std::size_t CFakeLog::countExactly(const std::string& sText)
{
    return locked([&sText](CFakeLogState& log) {
        return static_cast<std::size_t>(std::count_if(log.vecLines.begin(), log.vecLines.end(),
                                                      [&sText](const CLine& line) { return line.sText == sText; }));
    });
}

bool CFakeLog::contains(const std::string& sPart)
{
    return countContaining(sPart) > 0;
}

std::string CFakeLog::find(const std::string& sPart)
{
    return locked([&sPart](CFakeLogState& log) {
        const auto it = std::find_if(log.vecLines.begin(), log.vecLines.end(), [&sPart](const CLine& line) {
            return line.sText.find(sPart) != std::string::npos;
        });
        return it == log.vecLines.end() ? std::string() : it->sText;
    });
}

void CFakeLog::clear()
{
    locked([](CFakeLogState& log) {
        log.vecLines.clear();
        log.vecEvents.clear();
    });
}

void CFakeLog::setTraceMask(const std::string& sLog, std::uint32_t dwMask)
{
    locked([&](CFakeLogState& log) {
        CFakeLogState::CMask& mask = log.mask(sLog);
        mask.bOverridden = true;
        mask.dwMask.store(dwMask);
    });
}

std::uint32_t CFakeLog::traceMask(const std::string& sLog)
{
    return locked([&sLog](CFakeLogState& log) { return log.mask(sLog).dwMask.load(); });
}

void CFakeLog::setTraceable(bool bTraceable)
{
    locked([bTraceable](CFakeLogState& log) { log.optTraceable = bTraceable; });
}

std::vector<int> CFakeLog::traceableQueries()
{
    return locked([](CFakeLogState& log) { return log.vecTraceableQueries; });
}

void CFakeLog::setReportResult(long lResult)
{
    locked([lResult](CFakeLogState& log) { log.lReportResult = lResult; });
}

void CFakeLog::failNextCreation(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    CFakeLogState::get().logConstruction.failNext(lCode, uSkip, pszSource, nLine);
}

void CFakeLog::failNextRegistry(long lCode, std::size_t uSkip, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    CFakeLogState::get().registryConstruction.failNext(lCode, uSkip, pszSource, nLine);
}

std::vector<CFakeLog::CLogArguments> CFakeLog::creations()
{
    return locked([](CFakeLogState& log) { return log.vecCreations; });
}

std::vector<CFakeLog::CRegistryArguments> CFakeLog::registries()
{
    return locked([](CFakeLogState& log) { return log.vecRegistries; });
}

std::size_t CFakeLog::alive()
{
    return locked([](CFakeLogState& log) { return log.uLogsAlive; });
}

std::size_t CFakeLog::registriesAlive()
{
    return locked([](CFakeLogState& log) { return log.uRegistriesAlive; });
}

std::vector<std::string> CFakeLog::lifeCycle()
{
    std::vector<std::string> vecEntries = CFakeLives::all();
    std::erase_if(vecEntries, [](const std::string& sEntry) { return sEntry.find("CLogFile") == std::string::npos; });
    return vecEntries;
}

void CFakeLog::reset()
{
    CFakeLogState::get().logConstruction.reset();
    CFakeLogState::get().registryConstruction.reset();
    locked([](CFakeLogState& log) {
        log.vecLines.clear();
        log.vecEvents.clear();
        log.vecCreations.clear();
        log.vecRegistries.clear();
        log.vecTraceableQueries.clear();
        log.optTraceable.reset();
        log.lReportResult = 0;
        for (auto& [sName, pMask] : log.mapMasks) // the words stay where they are: somebody may hold one
        {
            pMask->bOverridden = false;
            pMask->dwMask.store(pMask->dwBound);
        }
    });
}
