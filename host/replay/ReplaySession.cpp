// A store, its three registrants, and the captures replayed into it.
#include "replay/ReplaySession.h"

#include "share/RecordLines.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace {

/// Kept for 30 s, looked at every 10 s, and a machine under load.
constexpr std::chrono::seconds cLastDeliveryLimit{60};
constexpr std::chrono::seconds cProgressInterval{5};
constexpr std::chrono::seconds cRegisterLimit{60};
/// While the head-quarters server is started anew, for example.
constexpr std::chrono::seconds cSentLimit{60};
/// Longer than a watcher waits for what it lacks.
constexpr std::chrono::seconds cLeaveLimit{120};

} // namespace

std::string codeText(long lCode)
{
    char szText[16] = "";
    (void)std::snprintf(szText, sizeof szText, "0x%08lX", static_cast<unsigned long>(lCode) & 0xFFFFFFFFUL);
    return szText;
}

CReplaySession::CReplaySession(std::string sWatch, std::string sServerIP, CHeadQuarters headQuarters)
    : m_sServerIP(std::move(sServerIP)), m_headQuarters(std::move(headQuarters)), m_sWatched(std::move(sWatch))
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
    m_pShared.reset();
    m_pSender.reset();
    if (m_pStore != nullptr)
        (void)m_pStore->Finalize(); // cannot fail
}

bool CReplaySession::start(bool bShare, std::string* psError)
{
    CCDSAPI::initLogger();
    m_pStore = std::make_unique<CCDSAPI>();
    const bool bExchange = bShare || !m_headQuarters.sAddress.empty();
    if (bExchange)
        m_pShared = std::make_unique<CSharedCalls>(*m_pStore, m_sServerIP);
    if (!m_headQuarters.sAddress.empty())
        m_pSender = std::make_unique<CCdrSender>(*m_pStore, m_sServerIP, m_headQuarters);
    long lStarted = bExchange ? m_pShared->start() : 0;
    if (lStarted >= 0 && m_pSender != nullptr)
        lStarted = m_pSender->start();
    if (const long lResult = lStarted; lResult < 0)
    {
        *psError = "the store refuses a registration: " + codeText(lResult);
        return false;
    }
    if (const long lResult = m_pStore->Initialize(m_sServerIP, 0); lResult < 0)
    {
        *psError = "the store cannot be started: " + codeText(lResult);
        return false;
    }
    if (bExchange && !m_pShared->exchanging())
    {
        *psError = "cannot listen on " + m_sServerIP +
                   " for other servers (the port is in use, or the address not this machine's)";
        return false;
    }
    m_pSink = std::make_unique<CStoreSink>(*m_pStore, m_sServerIP);
    m_pOne = std::make_unique<CWatcher>(*m_pStore, "watcher of one call");
    m_pAll = std::make_unique<CWatcher>(*m_pStore, "watcher of all calls");
    m_pEnds = std::make_unique<CWatcher>(*m_pStore, "watcher of ends");
    long lResult = m_pAll->start(m_sServerIP, "*", "*");
    if (lResult >= 0)
        lResult = m_pEnds->start(m_sServerIP, "*", "EOC");
    if (lResult >= 0 && !m_sWatched.empty())
        lResult = m_pOne->start(m_sServerIP, m_sWatched, "*");
    if (lResult >= 0)
        return true;
    *psError = "the store refuses a registration: " + codeText(lResult);
    return false;
}

bool CReplaySession::awaitPeers(std::ostream& out, const std::vector<std::string>& vecPaths,
                                const CCallMapperSettings& settings, bool bCloseOpen, std::string* psError)
{
    CRecordBookSink sink;
    CCaptureReplay scan(sink, settings);
    for (const std::string& sPath : vecPaths)
        if (!scan.add(sPath, psError))
        {
            psError->insert(0, "cannot read the capture " + sPath + ": ");
            return false;
        }
    scan.finish(bCloseOpen);
    for (const auto& [sRecordID, record] : sink.records())
    {
        m_vecShared.push_back(sRecordID);
        out << "call " << RecordLines::escaped(sRecordID) << '\n';
    }
    out.flush();
    if (m_pShared->awaitRegistered(m_vecShared, cRegisterLimit))
        return true;
    *psError = "no other server has registered for all calls within a minute";
    return false;
}

bool CReplaySession::showPeers(std::ofstream& out, std::string* psError)
{
    m_pShared->writeRecords(out, m_vecShared);
    out.close();
    if (!out)
        *psError = "the records cannot be written for the other server";
    else if (!m_pShared->awaitLeft(m_vecShared, cLeaveLimit))
        *psError = "the other server has not taken its registrations back within two minutes";
    return psError->empty();
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
        (void)m_pOne->start(m_sServerIP, sRecordID, "*"); // a refusal shows as a registrant that got nothing
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
    if (m_pSender != nullptr)
        m_pSender->send(sRecordID); // while the intake is still registered for it
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

bool CReplaySession::awaitSent(const std::function<void(unsigned long)>& fnProgress)
{
    return m_pSender == nullptr || m_pSender->awaitSent(cSentLimit, fnProgress);
}

CSessionResult CReplaySession::result() const
{
    CSessionResult result;
    if (m_pSender != nullptr)
    {
        result.sHeadQuarters = m_headQuarters.sAddress;
        result.cdrs = m_pSender->counts();
    }
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
