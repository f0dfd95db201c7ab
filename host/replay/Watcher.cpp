// Registrants of the store.
#include "replay/Watcher.h"

#include "calls/RecordValues.h"

#include <utility>

namespace {

constexpr unsigned long cTraceID = 0x3A7C;

} // namespace

CWatcher::CWatcher(CCDSAPI& store, std::string sName) : m_store(store), m_sName(std::move(sName)) {}

CWatcher::~CWatcher()
{
    stop();
}

long CWatcher::start(const std::string& sServerIP, const std::string& sCallID, const std::string& sEvent)
{
    const long lResult = m_store.Register(reinterpret_cast<unsigned long>(this), m_sName, sServerIP, sCallID, sEvent,
                                          onMessage, cTraceID);
    m_bStarted = m_bStarted || lResult >= 0;
    return lResult;
}

void CWatcher::stop()
{
    if (std::exchange(m_bStarted, false))
        (void)m_store.Unregister(m_sName); // it was registered, so it is found
}

long CWatcher::onMessage(CCallbackMsg* pMessage)
{
    auto* const pData = dynamic_cast<CCallData*>(pMessage->getCallbackData());
    if (pData != nullptr)
        reinterpret_cast<CWatcher*>(pMessage->getReqHandle())->take(*pData);
    return 0;
}

void CWatcher::take(CCallData& data)
{
    std::string sRecordID;
    (void)data.getCallID(&sRecordID); // always 0
    const std::lock_guard guard(m_mutex);
    m_ullChanges += takeValues(data, &m_mapRecords[sRecordID]);
    ++m_ullDeliveries;
    m_delivered.notify_all();
}

std::uint64_t CWatcher::deliveries() const
{
    const std::lock_guard guard(m_mutex);
    return m_ullDeliveries;
}

std::uint64_t CWatcher::changes() const
{
    const std::lock_guard guard(m_mutex);
    return m_ullChanges;
}

CRecordBook CWatcher::records() const
{
    const std::lock_guard guard(m_mutex);
    return m_mapRecords;
}

bool CWatcher::waitFor(std::uint64_t ullDeliveries, std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    return m_delivered.wait_for(lock, timeout, [&] { return m_ullDeliveries >= ullDeliveries; });
}
