// Calls of this server that others registered for.
#include "share/SharedCalls.h"

#include "CDSCallData.h"
#include "share/RecordLines.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned long cTraceID = 0x5A7E;
constexpr const char* cNotices = "notices of shared calls";
constexpr const char* cReader = "reader of shared calls";

} // namespace

CSharedCalls::CSharedCalls(CCDSAPI& store, std::string sServerIP) : m_store(store), m_sServerIP(std::move(sServerIP)) {}

CSharedCalls::~CSharedCalls()
{
    (void)m_store.Unregister(cNotices); // either may be unknown
    (void)m_store.Unregister(cReader);
}

long CSharedCalls::start()
{
    const auto ulThis = reinterpret_cast<unsigned long>(this);
    // The reader comes first, and so is not in the notices. It wants nothing but what it asks for.
    const long lResult = m_store.Register(ulThis, cReader, m_sServerIP, "*", "none", onRecord, cTraceID);
    return lResult < 0 ? lResult : m_store.Register(ulThis, cNotices, m_sServerIP, "*", "@", onNotice, cTraceID);
}

bool CSharedCalls::exchanging() const
{
    const std::lock_guard guard(m_mutex);
    const auto it = m_mapRegistered.find("*"); // the exchange registers for everything when it has started
    return it != m_mapRegistered.end() && std::any_of(it->second.begin(), it->second.end(),
                                                      [](const std::string& sRegID) { return sRegID != cNotices; });
}

long CSharedCalls::onNotice(CCallbackMsg* pMessage)
{
    const auto* const pNotice = dynamic_cast<CRegistrationData*>(pMessage->getCallbackData());
    if (pNotice == nullptr)
        return 0; // a change: it comes with the notices
    auto& self = *reinterpret_cast<CSharedCalls*>(pMessage->getReqHandle());
    std::string sRegID;
    std::string sRecordID;
    bool bRegister = false;
    (void)pNotice->getRegID(&sRegID); // always 0, here and below
    (void)pNotice->getCallID(&sRecordID);
    (void)pNotice->getRegister(&bRegister);
    const std::lock_guard guard(self.m_mutex);
    auto& setRegIDs = self.m_mapRegistered[sRecordID];
    if (bRegister)
        setRegIDs.insert(sRegID);
    else
        setRegIDs.erase(sRegID);
    if (setRegIDs.empty())
        self.m_mapRegistered.erase(sRecordID);
    self.m_changed.notify_all();
    return 0;
}

long CSharedCalls::onRecord(CCallbackMsg* pMessage)
{
    auto& self = *reinterpret_cast<CSharedCalls*>(pMessage->getReqHandle());
    if (auto* const pData = pMessage->getCallbackData(); pData != nullptr)
    {
        const std::lock_guard guard(self.m_mutex);
        (void)pData->serialize(&self.m_sRecord); // without memory the record's line is missing
    }
    return 0;
}

bool CSharedCalls::awaitRegistered(const std::vector<std::string>& vecRecordIDs, std::chrono::seconds limit)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] {
        return std::all_of(vecRecordIDs.begin(), vecRecordIDs.end(), [this](const auto& s) { return isRegistered(s); });
    });
}

bool CSharedCalls::awaitLeft(const std::vector<std::string>& vecRecordIDs, std::chrono::seconds limit)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] {
        return std::none_of(vecRecordIDs.begin(), vecRecordIDs.end(),
                            [this](const auto& s) { return isRegistered(s); });
    });
}

void CSharedCalls::writeRecords(std::ostream& out, const std::vector<std::string>& vecRecordIDs)
{
    std::size_t uRecords = 0;
    for (const std::string& sRecordID : vecRecordIDs)
    {
        (void)m_store.GetCallData(cReader, sRecordID); // a call without data leaves the text empty
        const std::lock_guard guard(m_mutex);
        if (const std::string sText = std::exchange(m_sRecord, {}); !sText.empty())
        {
            out << "record " << RecordLines::escaped(sRecordID) << ' ' << RecordLines::escaped(sText) << '\n';
            ++uRecords;
        }
    }
    out << "end " << uRecords << '\n' << std::flush;
}
