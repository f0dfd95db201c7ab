// Copies of another server's calls.
#include "share/CallMirror.h"

#include "CDSCallData.h"
#include "calls/RecordValues.h"

#include <algorithm>
#include <utility>

namespace {

constexpr unsigned long cTraceID = 0x3A7D;

std::string registrationOf(const std::string& sRecordID)
{
    return "mirror " + sRecordID;
}

} // namespace

CCallMirror::CCallMirror(CCDSAPI& store, std::string sOwnerIP) : m_store(store), m_sOwnerIP(std::move(sOwnerIP)) {}

CCallMirror::~CCallMirror()
{
    for (const std::string& sRecordID : m_setWatched)
        (void)m_store.Unregister(registrationOf(sRecordID)); // it was registered, so it is found
}

long CCallMirror::watch(const std::string& sRecordID)
{
    if (m_setWatched.contains(sRecordID))
        return 0;
    const long lResult = m_store.Register(reinterpret_cast<unsigned long>(this), registrationOf(sRecordID), m_sOwnerIP,
                                          sRecordID, "*", onMessage, cTraceID);
    if (lResult >= 0)
        m_setWatched.insert(sRecordID);
    return lResult;
}

long CCallMirror::onMessage(CCallbackMsg* pMessage)
{
    auto* const pData = dynamic_cast<CCallData*>(pMessage->getCallbackData());
    if (pData != nullptr)
        reinterpret_cast<CCallMirror*>(pMessage->getReqHandle())->take(*pData);
    return 0;
}

/// Changes a copy and keeps the number of those that differ; m_mutex is held.
template <class TChange> void CCallMirror::change(const std::string& sRecordID, const TChange& fnChange)
{
    const auto [it, bNew] = m_mapCopies.try_emplace(sRecordID);
    const bool bDiffered = !bNew && !it->second.same();
    fnChange(it->second);
    m_uDifferent += it->second.same() ? 0 : 1;
    m_uDifferent -= bDiffered ? 1 : 0;
    m_delivered.notify_all();
}

void CCallMirror::take(CCallData& data)
{
    std::string sRecordID;
    std::string sChange;
    (void)data.getCallID(&sRecordID); // always 0
    (void)data.serialize(&sChange);   // without memory the copy stays different, here and below
    const std::lock_guard guard(m_mutex);
    change(sRecordID, [&](CCopy& copy) {
        if (copy.pData == nullptr)
            copy.pData = std::make_unique<CCallData>(sRecordID);
        bool bChanged = false;
        (void)copy.pData->merge(&data, &bChanged);
        (void)copy.pData->serialize(&copy.sText);
        ++m_traffic.ullDeliveries;
        m_traffic.ullChangeBytes += sChange.size();
        m_traffic.ullWholeBytes += copy.sText.size();
    });
    m_tpLast = std::chrono::steady_clock::now();
}

void CCallMirror::expect(const std::string& sRecordID, const std::string& sText)
{
    const std::lock_guard guard(m_mutex);
    change(sRecordID, [&](CCopy& copy) { copy.sExpected = sText; });
}

void CCallMirror::awaitExpected(std::chrono::seconds limit)
{
    const auto begin = std::chrono::steady_clock::now();
    std::unique_lock lock(m_mutex);
    while (m_uDifferent != 0 && std::chrono::steady_clock::now() < std::max(begin, m_tpLast) + limit)
        m_delivered.wait_until(lock, std::max(begin, m_tpLast) + limit);
}

std::size_t CCallMirror::expected() const
{
    const std::lock_guard guard(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_mapCopies.begin(), m_mapCopies.end(),
                                                  [](const auto& item) { return !item.second.sExpected.empty(); }));
}

std::size_t CCallMirror::equal() const
{
    const std::lock_guard guard(m_mutex);
    return static_cast<std::size_t>(std::count_if(m_mapCopies.begin(), m_mapCopies.end(), [](const auto& item) {
        return !item.second.sExpected.empty() && item.second.same();
    }));
}

std::vector<std::string> CCallMirror::different() const
{
    const std::lock_guard guard(m_mutex);
    std::vector<std::string> vecDifferent;
    for (const auto& [sRecordID, copy] : m_mapCopies)
        if (!copy.same())
            vecDifferent.push_back(sRecordID);
    return vecDifferent;
}

CCallMirror::CTraffic CCallMirror::traffic() const
{
    const std::lock_guard guard(m_mutex);
    return m_traffic;
}

std::chrono::steady_clock::time_point CCallMirror::lastDelivery() const
{
    const std::lock_guard guard(m_mutex);
    return m_tpLast;
}

CRecordBook CCallMirror::records() const
{
    const std::lock_guard guard(m_mutex);
    CRecordBook mapRecords;
    for (const auto& [sRecordID, copy] : m_mapCopies)
        if (copy.pData != nullptr)
            (void)takeValues(*copy.pData, &mapRecords[sRecordID]); // how many there are is of no interest
    return mapRecords;
}
