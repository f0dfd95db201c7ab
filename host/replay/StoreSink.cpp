// Calls into the store.
#include "replay/StoreSink.h"

#include "CDSCallData.h"

#include <utility>

namespace {

/// Names the updater in the trace log.
constexpr unsigned long cTraceID = 0x51F;
/// An event of its own, which no delivery has: the updater wants nothing delivered.
constexpr const char* cNoEvent = "none";

std::string registrationOf(const std::string& sRecordID)
{
    return "intake " + sRecordID;
}

} // namespace

CStoreSink::CStoreSink(CCDSAPI& store, std::string sServerIP) : m_store(store), m_sServerIP(std::move(sServerIP)) {}

CStoreSink::~CStoreSink()
{
    for (const std::string& sRecordID : m_setOpen)
        (void)m_store.Unregister(registrationOf(sRecordID)); // on the way out there is nobody to tell
}

bool CStoreSink::onCallBegin(const std::string& sRecordID)
{
    if (m_setEnded.contains(sRecordID))
        return false;
    note(m_store.Register(0, registrationOf(sRecordID), m_sServerIP, sRecordID, cNoEvent, nullptr, cTraceID));
    m_setOpen.insert(sRecordID);
    return true;
}

void CStoreSink::onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges)
{
    CCallData data(sRecordID);
    for (const CCallChange& change : vecChanges)
    {
        std::string sValue = change.sValue;
        auto* const pValue = reinterpret_cast<unsigned char*>(sValue.data());
        const int nLength = static_cast<int>(sValue.size());
        bool bTaken = false;
        note(change.bLogEntry ? data.appendLogEntry(change.sName, pValue, nLength, change.tsStamp, true, &bTaken)
                              : data.setProperty(change.sName, pValue, nLength, change.tsStamp, true, &bTaken));
    }
    // Registrants of all calls do not count as registrants of this one, so the store is not asked to look for any.
    constexpr bool bCheckRegistrants = false;
    const auto begin = std::chrono::steady_clock::now();
    const long lResult = m_store.Update(registrationOf(sRecordID), &data, bCheckRegistrants);
    m_updateTime += std::chrono::steady_clock::now() - begin;
    ++m_ullUpdates;
    note(lResult);
}

void CStoreSink::onCallEnd(const std::string& sRecordID)
{
    m_setEnded.insert(sRecordID);
    m_setOpen.erase(sRecordID);
    note(m_store.Unregister(registrationOf(sRecordID)));
}

void CStoreSink::note(long lResult)
{
    if (lResult >= 0)
        return;
    if (m_ullFailures++ == 0)
        m_lFirstFailure = lResult;
}
