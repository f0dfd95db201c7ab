// Records of finished calls to the server that collects them.
#include "cdr/CdrSender.h"

#include "CDSCallData.h"

#include <thread>
#include <utility>

namespace {

constexpr unsigned long cTraceID = 0xCD2;
constexpr const char* cReader = "reader of finished calls";
/// The store does not say when one is acknowledged, only how many are left.
constexpr std::chrono::milliseconds cLookAgain{20};
constexpr std::chrono::seconds cProgressInterval{5};

} // namespace

CCdrSender::CCdrSender(CCDSAPI& store, std::string sServerIP, CHeadQuarters headQuarters)
    : m_store(store), m_sServerIP(std::move(sServerIP)), m_headQuarters(std::move(headQuarters))
{
    m_store.SetCDRDataCacheSize(m_headQuarters.ulCacheBytes);
    m_store.SetCDRDataExpiration(m_headQuarters.ulExpiryMinutes);
}

CCdrSender::~CCdrSender()
{
    (void)m_store.Unregister(cReader); // it may be unknown
}

long CCdrSender::start()
{
    // It wants nothing but what it asks for.
    return m_store.Register(reinterpret_cast<unsigned long>(this), cReader, m_sServerIP, "*", "none", onRecord,
                            cTraceID);
}

long CCdrSender::onRecord(CCallbackMsg* pMessage)
{
    auto& self = *reinterpret_cast<CCdrSender*>(pMessage->getReqHandle());
    if (auto* const pData = dynamic_cast<CCallData*>(pMessage->getCallbackData()); pData != nullptr)
        self.m_pRecord.reset(dynamic_cast<CCallData*>(pData->clone())); // the store is locked: it is sent afterwards
    return 0;
}

void CCdrSender::send(const std::string& sRecordID)
{
    (void)m_store.GetCallData(cReader, sRecordID); // a call without data leaves no copy
    const std::unique_ptr<CCallData> pRecord = std::move(m_pRecord);
    if (pRecord == nullptr)
    {
        ++m_counts.ullFailed;
        complain(sRecordID, "the store has no data of it");
        return;
    }
    // The store would wait for room that never comes, and exchange nothing more with any server.
    if (const unsigned long ulBytes = pRecord->getsize(); ulBytes > m_headQuarters.ulCacheBytes)
    {
        ++m_counts.ullTooLarge;
        complain(sRecordID, "its values have " + std::to_string(ulBytes) + " bytes, and no more than " +
                                std::to_string(m_headQuarters.ulCacheBytes) + " may wait to be sent");
        return;
    }
    if (m_store.SendCDRDataToHQ(m_headQuarters.sAddress, sRecordID, pRecord.get()) >= 0)
        ++m_counts.ullSent;
    else
    {
        ++m_counts.ullFailed;
        complain(sRecordID, "the store does not take it");
    }
}

void CCdrSender::complain(const std::string& sRecordID, const std::string& sWhy)
{
    if (m_counts.sFirstComplaint.empty())
        m_counts.sFirstComplaint = sRecordID + ": " + sWhy;
}

bool CCdrSender::awaitSent(std::chrono::seconds limit, const std::function<void(unsigned long)>& fnProgress)
{
    using CClock = std::chrono::steady_clock;
    unsigned long ulWaiting = m_store.GetCDRDataCacheCount();
    auto tpProgress = CClock::now() + cProgressInterval;
    for (auto tpLimit = CClock::now() + limit; ulWaiting != 0 && CClock::now() < tpLimit;)
    {
        std::this_thread::sleep_for(cLookAgain);
        const unsigned long ulBefore = std::exchange(ulWaiting, m_store.GetCDRDataCacheCount());
        if (ulWaiting < ulBefore)
            tpLimit = CClock::now() + limit;
        if (ulWaiting != 0 && CClock::now() >= tpProgress)
        {
            fnProgress(ulWaiting);
            tpProgress += cProgressInterval;
        }
    }
    return ulWaiting == 0;
}
