// A store, its three registrants, and the captures replayed into it.
#include "replay/ReplaySession.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

constexpr const char* cServerIP = "127.0.0.1";
/// Kept for 30 s, looked at every 10 s, and a machine under load.
constexpr std::chrono::seconds cLastDeliveryLimit{60};
constexpr std::chrono::seconds cProgressInterval{5};

} // namespace

std::string codeText(long lCode)
{
    char szText[16] = "";
    (void)std::snprintf(szText, sizeof szText, "0x%08lX", static_cast<unsigned long>(lCode) & 0xFFFFFFFFUL);
    return szText;
}

CReplaySession::CReplaySession(std::string sWatch) : m_sWatched(std::move(sWatch))
{
    if (!m_sWatched.empty() && !m_sWatched.starts_with("sip:"))
        m_sWatched.insert(0, "sip:");
}

CReplaySession::~CReplaySession()
{
    m_pSink.reset();
    m_pOne.reset();
    m_pAll.reset();
    m_pEnds.reset();
    if (m_pStore != nullptr)
        (void)m_pStore->Finalize(); // cannot fail
}

bool CReplaySession::start(std::string* psError)
{
    CCDSAPI::initLogger();
    m_pStore = std::make_unique<CCDSAPI>();
    if (const long lResult = m_pStore->Initialize(cServerIP, 0); lResult < 0)
    {
        *psError = "the store cannot be started: " + codeText(lResult);
        return false;
    }
    m_pSink = std::make_unique<CStoreSink>(*m_pStore, cServerIP);
    m_pOne = std::make_unique<CWatcher>(*m_pStore, "watcher of one call");
    m_pAll = std::make_unique<CWatcher>(*m_pStore, "watcher of all calls");
    m_pEnds = std::make_unique<CWatcher>(*m_pStore, "watcher of ends");
    long lResult = m_pAll->start(cServerIP, "*", "*");
    if (lResult >= 0)
        lResult = m_pEnds->start(cServerIP, "*", "EOC");
    if (lResult >= 0 && !m_sWatched.empty())
        lResult = m_pOne->start(cServerIP, m_sWatched, "*");
    if (lResult >= 0)
        return true;
    *psError = "the store refuses a registration: " + codeText(lResult);
    return false;
}

bool CReplaySession::replay(const std::vector<std::string>& vecPaths, const CCallMapperSettings& settings,
                            bool bCloseOpen, std::string* psError)
{
    const auto begin = std::chrono::steady_clock::now();
    CCaptureReplay replay(*this, settings);
    for (const std::string& sPath : vecPaths)
        if (!replay.add(sPath, psError))
        {
            psError->insert(0, sPath + ": ");
            return false;
        }
    replay.finish(bCloseOpen);
    m_replayTime += std::chrono::steady_clock::now() - begin;
    m_vecCaptures = replay.captures();
    return true;
}

bool CReplaySession::onCallBegin(const std::string& sRecordID)
{
    if (!m_pSink->onCallBegin(sRecordID))
        return false;
    if (m_sWatched.empty())
    {
        m_sWatched = sRecordID;
        (void)m_pOne->start(cServerIP, sRecordID, "*"); // a refusal shows as a registrant that got nothing
    }
    return true;
}

void CReplaySession::onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges)
{
    m_pSink->onCallUpdate(sRecordID, vecChanges);
}

void CReplaySession::onCallEnd(const std::string& sRecordID)
{
    // A call's data lives as long as anybody is registered for it: the watcher leaves too, or the end would never come.
    if (sRecordID == m_sWatched)
        m_pOne->stop();
    m_pSink->onCallEnd(sRecordID);
}

bool CReplaySession::awaitLastDeliveries(const std::function<void(std::uint64_t, std::uint64_t)>& fnProgress)
{
    m_bWaited = true;
    const std::uint64_t ullExpected = m_pSink->ended();
    const auto limit = std::chrono::steady_clock::now() + cLastDeliveryLimit;
    while (!m_pEnds->waitFor(ullExpected, cProgressInterval))
    {
        if (std::chrono::steady_clock::now() >= limit)
            return false;
        fnProgress(m_pEnds->deliveries(), ullExpected);
    }
    return true;
}

CSessionResult CReplaySession::result() const
{
    CSessionResult result;
    result.vecCaptures = m_vecCaptures;
    result.mapRecords = m_pAll->records();
    const CRecordBook mapWatched = m_pOne->records();
    if (const auto it = mapWatched.find(m_sWatched); it != mapWatched.end())
    {
        result.sWatched = m_sWatched;
        result.watched = it->second;
    }
    result.ullUpdates = m_pSink->updates();
    result.ullFailures = m_pSink->failures();
    result.lFirstFailure = m_pSink->firstFailure();
    result.ullEnded = m_pSink->ended();
    result.ullOneDeliveries = m_pOne->deliveries();
    result.ullOneChanges = m_pOne->changes();
    result.ullAllDeliveries = m_pAll->deliveries();
    result.ullAllChanges = m_pAll->changes();
    result.ullEndDeliveries = m_pEnds->deliveries();
    result.ullEndChanges = m_pEnds->changes();
    result.bWaited = m_bWaited;
    result.replayTime = m_replayTime;
    result.updateTime = m_pSink->updateTime();
    return result;
}
