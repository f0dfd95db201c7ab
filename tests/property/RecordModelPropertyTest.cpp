// The record against a plain one of maps, command by command.

#include "ModelGenerators.h"

#include <map>
#include <tuple>

using namespace model;

namespace {

enum class ECommand
{
    Set,
    Append,
    Clear,
    Merge,
    NextProperty,
    NextEntry,
    NextPartial,
    LogName,
    LookUp,
    Clone,
    Reload
};

struct SCommand
{
    ECommand eKind = ECommand::Set;
    SWrite write;
    int nIndex = 0;
    std::vector<SWrite> vecMore; // what is merged
};

std::ostream& operator<<(std::ostream& out, const SCommand& command)
{
    return out << static_cast<int>(command.eKind) << ' ' << command.write << " index " << command.nIndex << " and "
               << command.vecMore.size() << " more";
}

/// What a call gave: the result, the index afterwards, and what came out.
using CAnswer = std::tuple<long, int, SItem>;

/// The plain record.
class CPlainRecord
{
public:
    bool set(const SWrite& write)
    {
        ++m_ulSets;
        const auto it = m_mapProperties.find(write.sName);
        if (it != m_mapProperties.end() && !(write.tsStamp == at(0)) && !(write.tsStamp > it->second.tsStamp))
            return false;
        m_mapProperties[write.sName] = {write.sName, write.sValue, write.tsStamp};
        return true;
    }

    bool append(const SWrite& write)
    {
        ++m_ulAppends;
        auto& [mapEntries, tsLast] = m_mapLogs.try_emplace(write.sName).first->second;
        const SItem item{write.sName, write.sValue, write.tsStamp};
        if (!mapEntries.emplace(keyOf(write.tsStamp), item).second)
            return false;
        tsLast = write.tsStamp;
        return true;
    }

    void clear()
    {
        m_mapProperties.clear();
        m_mapLogs.clear();
        m_vecPropertySnapshot.clear();
        m_vecNameSnapshot.clear();
        m_vecEntrySnapshot.clear();
    }

    CAnswer nextProperty(int nIndex, const CCDSTimestamp& tsSince)
    {
        if (nIndex == 0)
        {
            m_vecPropertySnapshot.clear();
            for (const auto& [sName, item] : m_mapProperties)
                m_vecPropertySnapshot.push_back(item);
        }
        return next(m_vecPropertySnapshot, nIndex, tsSince);
    }

    CAnswer nextEntry(const std::string& sName, bool bPartial, int nIndex, const CCDSTimestamp& tsSince)
    {
        if (nIndex == 0 || (nIndex > 0 && sName != m_sEntrySnapshotName))
        {
            m_vecEntrySnapshot.clear();
            for (const auto& [sLog, log] : m_mapLogs)
                if (bPartial ? sLog.substr(0, sName.size()) == sName : sLog == sName)
                    for (const auto& [key, item] : log.mapEntries)
                        m_vecEntrySnapshot.push_back({sName, item.sValue, item.tsStamp});
            m_sEntrySnapshotName = sName;
        }
        return next(m_vecEntrySnapshot, nIndex, tsSince);
    }

    CAnswer logName(int nIndex)
    {
        if (nIndex == 0)
        {
            m_vecNameSnapshot.clear();
            for (const auto& [sName, log] : m_mapLogs)
                m_vecNameSnapshot.push_back(sName);
        }
        if (nIndex < 0 || nIndex >= static_cast<int>(m_vecNameSnapshot.size()))
            return {E_CDS_NOTFOUND, nIndex, {}};
        return {0, nIndex, {m_vecNameSnapshot[static_cast<std::size_t>(nIndex)], {}, at(0)}};
    }

    /// The text form, by the rules of the encoding and nothing of the library.
    std::string text() const
    {
        std::vector<std::string> vecElements{"sip:4711", std::to_string(m_mapProperties.size())};
        for (const auto& [sName, item] : m_mapProperties)
            vecElements.push_back(textOfItem(item));
        vecElements.push_back(std::to_string(m_mapLogs.size()));
        for (const auto& [sName, log] : m_mapLogs)
        {
            vecElements.insert(vecElements.end(),
                               {sName, textOfStamp(log.tsLast), std::to_string(log.mapEntries.size())});
            for (const auto& [key, item] : log.mapEntries)
                vecElements.push_back(textOfItem(item));
        }
        return joined(vecElements);
    }

    /// As a clone of the record is: with counters of its own, and the latest entry for the one appended last.
    CPlainRecord cloned() const
    {
        CPlainRecord copy;
        copy.m_mapProperties = m_mapProperties;
        copy.m_mapLogs = m_mapLogs;
        copy.m_ulSets = m_mapProperties.size();
        for (auto& [sName, log] : copy.m_mapLogs)
        {
            copy.m_ulAppends += log.mapEntries.size();
            log.tsLast = log.mapEntries.rbegin()->second.tsStamp;
        }
        return copy;
    }

    /// As one read from the text is.
    CPlainRecord reloaded() const
    {
        CPlainRecord copy;
        copy.m_mapProperties = m_mapProperties;
        copy.m_mapLogs = m_mapLogs;
        return copy;
    }

    struct SLog
    {
        std::map<std::pair<unsigned long long, long>, SItem> mapEntries;
        CCDSTimestamp tsLast{0, 0};
    };

    std::map<std::string, SItem> m_mapProperties;
    std::map<std::string, SLog> m_mapLogs;
    unsigned long m_ulSets = 0;
    unsigned long m_ulAppends = 0;

    static std::pair<unsigned long long, long> keyOf(const CCDSTimestamp& tsStamp)
    {
        return {tsStamp.value(), tsStamp.incrementValue()};
    }

private:
    static CAnswer next(const std::vector<SItem>& vecSnapshot, int nIndex, const CCDSTimestamp& tsSince)
    {
        if (nIndex < 0)
            return {E_CDS_NOTFOUND, nIndex, {}};
        for (; nIndex < static_cast<int>(vecSnapshot.size()); ++nIndex)
            if (const SItem& item = vecSnapshot[static_cast<std::size_t>(nIndex)]; !(item.tsStamp < tsSince))
                return {0, nIndex + 1, item};
        return {E_CDS_NOTFOUND, nIndex, {}};
    }

    static std::string joined(const std::vector<std::string>& vecElements)
    {
        std::string sText;
        for (const std::string& sElement : vecElements)
            sText += (sText.empty() ? "" : ";") + std::to_string(sElement.size()) + ";" + sElement;
        return sText;
    }

    static std::string textOfStamp(const CCDSTimestamp& tsStamp)
    {
        return joined({std::to_string(tsStamp.value()), std::to_string(tsStamp.incrementValue())});
    }

    static std::string textOfItem(const SItem& item)
    {
        std::string sHex;
        for (const char c : item.sValue)
            for (const unsigned int uDigit : {static_cast<unsigned char>(c) / 16U, static_cast<unsigned char>(c) % 16U})
                sHex += "0123456789ABCDEF"[uDigit];
        return joined({item.sName, sHex, textOfStamp(item.tsStamp)});
    }

    std::vector<SItem> m_vecPropertySnapshot;
    std::vector<std::string> m_vecNameSnapshot;
    std::vector<SItem> m_vecEntrySnapshot;
    std::string m_sEntrySnapshotName;
};

/// The record and the plain one, given the same commands.
class CPair
{
public:
    void run(const SCommand& command)
    {
        const SWrite& write = command.write;
        switch (command.eKind)
        {
        case ECommand::Set:
            RC_ASSERT(put(*m_pRecord, write.sName, write.sValue, write.tsStamp) == m_plain.set(write));
            break;
        case ECommand::Append:
            RC_ASSERT(add(*m_pRecord, write.sName, write.sValue, write.tsStamp) == m_plain.append(write));
            break;
        case ECommand::Clear:
            RC_ASSERT(m_pRecord->clear() == 0);
            m_plain.clear();
            break;
        case ECommand::Merge: merge(command.vecMore); break;
        case ECommand::NextProperty:
            RC_ASSERT(nextProperty(command.nIndex, write.tsStamp) ==
                      m_plain.nextProperty(command.nIndex, write.tsStamp));
            break;
        case ECommand::NextEntry: nextEntry(command, false); break;
        case ECommand::NextPartial: nextEntry(command, true); break;
        case ECommand::LogName: RC_ASSERT(logName(command.nIndex) == m_plain.logName(command.nIndex)); break;
        case ECommand::LookUp: lookUp(write); break;
        case ECommand::Clone:
            m_pRecord.reset(m_pRecord->clone());
            m_plain = m_plain.cloned();
            break;
        case ECommand::Reload:
            m_pRecord = std::make_unique<CCallData>(serialized(*m_pRecord), true);
            m_plain = m_plain.reloaded();
            break;
        }
    }

    void compare() const
    {
        RC_ASSERT(serialized(*m_pRecord) == m_plain.text());
        RC_ASSERT(m_pRecord->getSetPropertiesCount() == m_plain.m_ulSets);
        RC_ASSERT(m_pRecord->getAppendLogEntriesCount() == m_plain.m_ulAppends);
        RC_ASSERT(m_pRecord->getLogNameCount() == static_cast<long>(m_plain.m_mapLogs.size()));
    }

private:
    void merge(const std::vector<SWrite>& vecMore)
    {
        const auto pFrom = recordOf(vecMore);
        CPlainRecord from;
        for (const SWrite& write : vecMore)
            (void)(write.bLog ? from.append(write) : from.set(write));
        bool bExpected = false;
        for (const auto& [sName, item] : from.m_mapProperties)
            bExpected |= m_plain.set({false, item.sName, item.sValue, item.tsStamp});
        for (const auto& [sName, log] : from.m_mapLogs)
            for (const auto& [key, item] : log.mapEntries)
                bExpected |= m_plain.append({true, item.sName, item.sValue, item.tsStamp});
        bool bChanged = false;
        RC_ASSERT(m_pRecord->merge(pFrom.get(), &bChanged) == 0);
        RC_ASSERT(bChanged == bExpected);
    }

    CAnswer nextProperty(int nIndex, const CCDSTimestamp& tsSince)
    {
        SItem item;
        unsigned char* pData = nullptr;
        int nLength = 0;
        const long lResult = m_pRecord->getProperty(&nIndex, &item.sName, &pData, &nLength, tsSince, &item.tsStamp);
        item.sValue = textOf(pData, nLength);
        return {lResult, nIndex, lResult < 0 ? SItem{} : item};
    }

    void nextEntry(const SCommand& command, bool bPartial)
    {
        const std::string& sName = command.write.sName;
        const CCDSTimestamp& tsSince = command.write.tsStamp;
        SItem item{sName, {}, at(0)};
        unsigned char* pData = nullptr;
        int nLength = 0;
        int nIndex = command.nIndex;
        const long lResult =
            bPartial ? m_pRecord->getLogEntryByPartialName(sName, &nIndex, &pData, &nLength, tsSince, &item.tsStamp)
                     : m_pRecord->getLogEntry(sName, &nIndex, &pData, &nLength, tsSince, &item.tsStamp);
        item.sValue = textOf(pData, nLength);
        RC_ASSERT(CAnswer(lResult, nIndex, lResult < 0 ? SItem{} : item) ==
                  m_plain.nextEntry(sName, bPartial, command.nIndex, tsSince));
    }

    CAnswer logName(int nIndex)
    {
        SItem item;
        const long lResult = m_pRecord->getLogName(nIndex, &item.sName);
        return {lResult, nIndex, item};
    }

    void lookUp(const SWrite& write)
    {
        const auto it = m_plain.m_mapProperties.find(write.sName);
        const auto itLog = m_plain.m_mapLogs.find(write.sName);
        unsigned char* pData = nullptr;
        int nLength = 0;
        SItem item{write.sName, {}, at(0)};
        const long lResult = m_pRecord->getProperty(write.sName, &pData, &nLength, &item.tsStamp);
        item.sValue = textOf(pData, nLength);
        RC_ASSERT((lResult == 0) == (it != m_plain.m_mapProperties.end()));
        if (lResult == 0)
            RC_ASSERT(item == it->second);
        const bool bLog = itLog != m_plain.m_mapLogs.end();
        RC_ASSERT(m_pRecord->getLogEntryCount(write.sName) ==
                  (bLog ? static_cast<long>(itLog->second.mapEntries.size()) : 0));
        RC_ASSERT((m_pRecord->getLogEntryExists(write.sName, write.tsStamp) == 0) ==
                  (bLog && itLog->second.mapEntries.count(CPlainRecord::keyOf(write.tsStamp)) > 0));
    }

    std::unique_ptr<CCallData> m_pRecord = std::make_unique<CCallData>("sip:4711");
    CPlainRecord m_plain;
};

rc::Gen<SCommand> genCommand()
{
    const auto genKind = rc::gen::weightedElement<ECommand>({{8, ECommand::Set},
                                                             {8, ECommand::Append},
                                                             {1, ECommand::Clear},
                                                             {3, ECommand::Merge},
                                                             {5, ECommand::NextProperty},
                                                             {4, ECommand::NextEntry},
                                                             {4, ECommand::NextPartial},
                                                             {3, ECommand::LogName},
                                                             {4, ECommand::LookUp},
                                                             {1, ECommand::Clone},
                                                             {1, ECommand::Reload}});
    return rc::gen::build<SCommand>(
        rc::gen::set(&SCommand::eKind, genKind), rc::gen::set(&SCommand::write),
        rc::gen::set(&SCommand::nIndex, rc::gen::inRange(-1, 6)),
        rc::gen::set(&SCommand::vecMore, rc::gen::resize(10, rc::gen::arbitrary<std::vector<SWrite>>())));
}

} // namespace

RC_GTEST_PROP(RecordModel, TheRecordAnswersLikeAPlainOneOfMaps, ())
{
    const auto vecCommands = *rc::gen::container<std::vector<SCommand>>(genCommand());
    CPair pair;
    for (const SCommand& command : vecCommands)
    {
        pair.run(command);
        pair.compare();
    }
}
