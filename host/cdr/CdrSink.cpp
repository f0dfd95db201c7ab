// CDRs from the network into the database.
#include "cdr/CdrSink.h"

#include "CDSResults.h"
#include "cdr/CdrText.h"

#include <exception>
#include <memory>

namespace {

/// A database that refuses so many, one after the other, is down.
constexpr int cMostFailures = 16;

std::string callOf(CCallData& data)
{
    std::string sCallID;
    (void)data.getCallID(&sCallID); // always 0
    return CdrText::keyOf(sCallID);
}

/// @return false when its text is no record's
bool readRow(const CRefusedCdr& cdr, CCdrRow* pRow)
{
    try
    {
        CCallData data(cdr.sRecord, false);
        *pRow = makeCdrRow(data, cdr.sOrigin, cdr.ullReceived);
        return true;
    }
    catch (unsigned long) // how text that is none is refused
    {
        return false;
    }
}

} // namespace

std::atomic<CCdrSink*> CCdrSink::s_pSink = nullptr;

CCdrSink::CCdrSink(CCdrDatabase& database, CRefusedCdrs& refused, CReport fnReport,
                   std::chrono::milliseconds retryPause)
    : m_fnReport(std::move(fnReport)), m_retryPause(retryPause), m_database(database), m_refused(refused)
{
    m_thread = std::thread([this] { recover(); });
    s_pSink = this;
}

CCdrSink::~CCdrSink()
{
    s_pSink = nullptr;
    {
        const std::lock_guard guard(m_mutex);
        m_bStop = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

long CCdrSink::onCdr(CCallbackMsg* pMsg)
{
    CCdrSink* const pSink = s_pSink;
    return pSink != nullptr ? pSink->take(pMsg) : E_FAIL;
}

long CCdrSink::take(CCallbackMsg* pMsg) noexcept
{
    auto* const pData = dynamic_cast<CCallData*>(pMsg->getCallbackData());
    if (pData == nullptr)
        return E_CDS_NULLDATA;
    try
    {
        if (!write(*pData, *pMsg))
            return E_FAIL;
    }
    catch (...) // no memory, or no lock for what is made of it
    {
        const std::lock_guard guard(m_mutex);
        ++m_counts.ullRefused;
        ++m_counts.ullLost;
        reportLoss();
        return E_CDS_OUTOFMEMORY;
    }
    delete pData;
    delete pMsg;
    return 0;
}

/// @return whether the database has it
bool CCdrSink::write(CCallData& data, const CCallbackMsg& msg)
{
    CRefusedCdr cdr{msg.getCDSIPAddr(), CdrText::now(), ""};
    CCdrRow row = makeCdrRow(data, cdr.sOrigin, cdr.ullReceived);
    std::string sWhy;
    const std::lock_guard guard(m_mutex);
    ++m_counts.ullReceived;
    const auto eWrite = m_database.write(row, &sWhy);
    if (eWrite != ECdrWrite::failed)
    {
        count(eWrite, row);
        if (std::exchange(m_bFailing, false) && m_refused.count() != 0)
        {
            m_bRecoverNow = true;
            m_changed.notify_all();
        }
        return true;
    }
    m_bFailing = true;
    cdr.sRecord = std::move(row.sRecord);
    refuse(data, cdr, sWhy);
    return false;
}

void CCdrSink::count(ECdrWrite eWrite, const CCdrRow& row)
{
    if (eWrite == ECdrWrite::stored)
        ++m_counts.ullStored;
    else if (eWrite == ECdrWrite::present)
        ++m_counts.ullPresent;
    else
    {
        ++m_counts.ullDiffering;
        report(ECdrEvent::differs,
               row.sCallID + " of " + row.sOrigin + " came again with other content; the first stays");
    }
}

void CCdrSink::refuse(CCallData& data, const CRefusedCdr& cdr, const std::string& sWhy)
{
    ++m_counts.ullRefused;
    const std::string sWhich = callOf(data) + " of " + CdrText::keyOf(cdr.sOrigin);
    std::string sWhyNotKept;
    if (m_refused.keep(cdr, &sWhyNotKept))
        report(ECdrEvent::refused, sWhich + " is kept in " + m_refused.directory() + ": " + sWhy);
    else
    {
        ++m_counts.ullLost;
        report(ECdrEvent::lost, sWhich + ": " + sWhy + "; " + sWhyNotKept);
    }
}

void CCdrSink::report(ECdrEvent eEvent, const std::string& sText) noexcept
{
    m_fnReport(eEvent, sText);
}

/// Tells of a record that could not even be read; when that needs memory that is not there, the count says it.
void CCdrSink::reportLoss() noexcept
{
    try
    {
        m_fnReport(ECdrEvent::lost, "no memory to keep a record");
    }
    catch (...)
    {
    }
}

CCdrSink::CCounts CCdrSink::counts() const
{
    const std::lock_guard guard(m_mutex);
    CCounts counts = m_counts;
    counts.ullWaiting = m_refused.count();
    return counts;
}

bool CCdrSink::awaitRecovered(std::chrono::milliseconds limit)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_refused.count() == 0; });
}

/// The thread that writes refused records.
void CCdrSink::recover()
{
    std::unique_lock lock(m_mutex);
    while (!m_bStop)
    {
        m_bRecoverNow = false;
        try
        {
            recoverRound(lock);
        }
        catch (...) // no memory, or no lock for a record: the files are still there, for the next round
        {
        }
        (void)m_changed.wait_for(lock, m_retryPause, [this] { return m_bStop || m_bRecoverNow; });
    }
}

void CCdrSink::recoverRound(std::unique_lock<std::mutex>& lock)
{
    int nFailures = 0;
    // Each once, beginning behind those that the last round ended with: some that are always refused hold nobody up.
    for (auto ullLeft = m_refused.count(); !m_bStop && ullLeft != 0 && nFailures < cMostFailures; --ullLeft)
    {
        std::string sName = m_refused.next(m_sLastTried);
        if (sName.empty())
            sName = m_refused.next("");
        if (sName.empty())
            break;
        nFailures = recoverNext(sName) ? 0 : nFailures + 1;
        m_sLastTried = sName;
        if (m_refused.count() == 0)
            break;
        // Records that come may have their turn in between.
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
    }
    if (m_refused.count() != 0)
        return;
    if (m_ullRecoveredUntold != 0)
        report(ECdrEvent::recovered,
               "the database has " + std::to_string(m_ullRecoveredUntold) + " records now that it had refused");
    m_ullRecoveredUntold = 0;
    m_changed.notify_all();
}

/// Tries one record.
///
/// @return false when the database refuses it
bool CCdrSink::recoverNext(const std::string& sName)
{
    CRefusedCdr cdr;
    CCdrRow row;
    const auto eRead = m_refused.read(sName, &cdr);
    if (eRead == CRefusedCdrs::ERead::failed)
        return false; // the system is short of something: later
    if (eRead == CRefusedCdrs::ERead::noRecord || !readRow(cdr, &row))
    {
        m_refused.putAside(sName);
        report(ECdrEvent::unreadable, m_refused.directory() + "/" + sName + " is no refused record; it is put aside");
        return true;
    }
    std::string sWhy;
    const auto eWrite = m_database.write(row, &sWhy);
    if (eWrite == ECdrWrite::failed)
        return false;
    if (eWrite == ECdrWrite::differs)
    {
        ++m_counts.ullDiffering;
        report(ECdrEvent::differs, row.sCallID + " of " + row.sOrigin + " differs from what is there; the first stays");
    }
    m_refused.remove(sName);
    ++m_counts.ullRecovered;
    ++m_ullRecoveredUntold;
    return true;
}
