#include "BareStore.h"

#include "SampleCall.h"

namespace {

/// Takes over what is later than what there is.
void takeProperties(CBareRecord& stored, const CBareRecord& incoming, CBareRecord& change)
{
    for (const auto& [sName, value] : incoming.mapProperties)
    {
        const auto it = stored.mapProperties.lower_bound(sName);
        if (it == stored.mapProperties.end() || it->first != sName)
            stored.mapProperties.emplace_hint(it, sName, value);
        else if (it->second.tsStamp < value.tsStamp)
            it->second = value; // into the bytes that the old value had
        else
            continue;
        change.mapProperties.emplace_hint(change.mapProperties.end(), sName, value);
    }
}

void takeEntries(CBareRecord& stored, const CBareRecord& incoming, CBareRecord& change)
{
    for (const auto& [sName, entries] : incoming.mapLogs)
    {
        auto& mapStored = stored.mapLogs[sName];
        for (const auto& [tsStamp, vecBytes] : entries)
            if (mapStored.try_emplace(tsStamp, vecBytes).second)
                change.mapLogs[sName].emplace(tsStamp, vecBytes);
    }
}

} // namespace

void CBareRecord::setProperty(const std::string& sName, const unsigned char* pData, int nLength,
                              const CCDSTimestamp& tsStamp)
{
    mapProperties.insert_or_assign(sName, CBareValue{{pData, pData + nLength}, tsStamp});
}

void CBareRecord::appendLogEntry(const std::string& sName, const unsigned char* pData, int nLength,
                                 const CCDSTimestamp& tsStamp)
{
    mapLogs[sName].try_emplace(tsStamp, pData, pData + nLength);
}

void CBareStore::watch(const std::string& sCallID, CBareCallback pfnCallback)
{
    m_mapCalls[sCallID].vecWatchers.push_back(pfnCallback);
}

void CBareStore::watchAll(CBareCallback pfnCallback)
{
    m_vecWatchers.push_back(pfnCallback);
}

void CBareStore::update(const std::string& sCallID, const CBareRecord& incoming)
{
    CCall& call = m_mapCalls[sCallID];
    CBareRecord change;
    takeProperties(call.record, incoming, change);
    takeEntries(call.record, incoming, change);
    if (change.mapProperties.empty() && change.mapLogs.empty())
        return;
    for (const CBareCallback pfnCallback : call.vecWatchers)
        pfnCallback(sCallID, change);
    for (const CBareCallback pfnCallback : m_vecWatchers)
        pfnCallback(sCallID, change);
}

void fillBare(CBareRecord& record, std::uint64_t ullUpdate)
{
    const CCDSTimestamp tsStamp = SampleCall::stamp(ullUpdate);
    for (const std::string* const psName : SampleCall::propertyNames())
        record.setProperty(*psName, SampleCall::bytes(), SampleCall::cPropertyBytes, tsStamp);
    record.appendLogEntry(SampleCall::logName(), SampleCall::bytes(), SampleCall::cEntryBytes, tsStamp);
}
