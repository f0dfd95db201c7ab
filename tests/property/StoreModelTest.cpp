// The store against a model of it made of maps: whatever commands come in whatever order, both say the same to the same
// registrants in the same order.

#include "StoreStory.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// What commands are made of. Few names, so that they meet often.
const std::vector<std::string> cParties = {"ann", "bob", "carl", "dora"};
const std::vector<std::string> cCalls = {"*", "sip:1", "sip:2", "sip:3"};
const std::vector<std::string> cEvents = {"*", "*", "@", "EOC", "none", ""};
const std::vector<std::string> cServers = {CStoreStory::cHere, CStoreStory::cThere};
const std::vector<std::string> cNames = {"CALLERID", "CALLEDID", "COMMENT"};

struct CItem
{
    bool bEntry = false; // of a log, else a property
    std::size_t uName = 0;
    unsigned long long ullStamp = 0; // 0 forces a property in
};

struct CCommand
{
    enum class EKind
    {
        registers,
        unregisters,
        updates,
        asks,
        lets,
        stops,
        starts
    };

    EKind eKind = EKind::registers;
    std::size_t uParty = 0;
    std::size_t uCall = 0;
    std::size_t uEvent = 0;
    std::size_t uServer = 0;
    bool bFlag = false; // without callback; for others only
    unsigned long long ullMs = 0;
    std::vector<CItem> vecItems{};
};

void showValue(const CCommand& command, std::ostream& os)
{
    const std::string& sParty = cParties[command.uParty];
    const std::string& sCall = cCalls[command.uCall];
    switch (command.eKind)
    {
    case CCommand::EKind::registers:
        os << sParty << " registers for " << sCall << " event \"" << cEvents[command.uEvent] << "\" at "
           << cServers[command.uServer] << (command.bFlag ? " without callback" : "");
        break;
    case CCommand::EKind::unregisters: os << sParty << " unregisters"; break;
    case CCommand::EKind::updates:
        os << sParty << " updates " << sCall << (command.bFlag ? " for others:" : ":");
        for (const CItem& item : command.vecItems)
            os << " " << cNames[item.uName] << (item.bEntry ? "+" : "=") << item.ullStamp;
        break;
    case CCommand::EKind::asks: os << sParty << " asks for " << sCall; break;
    case CCommand::EKind::lets: os << "time goes on " << command.ullMs << " ms"; break;
    case CCommand::EKind::stops: os << "the store stops"; break;
    case CCommand::EKind::starts: os << "the store starts at " << cServers[command.uServer]; break;
    }
}

/// A call's record: names to values, and logs of entries in time order. A value is its own stamp's number.
struct CModelRecord
{
    std::map<std::string, std::pair<unsigned long long, std::string>> mapProperties;
    std::map<std::string, std::map<unsigned long long, std::string>> mapLogs;

    bool empty() const { return mapProperties.empty() && mapLogs.empty(); }

    /// @return whether it was taken
    bool set(const std::string& sName, unsigned long long ullStamp, const std::string& sValue)
    {
        const auto it = mapProperties.find(sName);
        if (it != mapProperties.end() && ullStamp != 0 && ullStamp <= it->second.first)
            return false;
        mapProperties[sName] = {ullStamp, sValue};
        return true;
    }
    bool append(const std::string& sName, unsigned long long ullStamp, const std::string& sValue)
    {
        return mapLogs[sName].emplace(ullStamp, sValue).second;
    }

    /// What is new in this record against another.
    CModelRecord newAgainst(const CModelRecord& other) const
    {
        CModelRecord difference;
        for (const auto& [sName, value] : mapProperties)
            if (const auto it = other.mapProperties.find(sName);
                it == other.mapProperties.end() || value.first > it->second.first)
                difference.mapProperties[sName] = value;
        for (const auto& [sName, mapEntries] : mapLogs)
            for (const auto& [ullStamp, sValue] : mapEntries)
                if (const auto it = other.mapLogs.find(sName);
                    it == other.mapLogs.end() || !it->second.contains(ullStamp))
                    difference.mapLogs[sName][ullStamp] = sValue;
        return difference;
    }

    /// @return whether anything was taken
    bool merge(const CModelRecord& other)
    {
        bool bChanged = false;
        for (const auto& [sName, value] : other.mapProperties)
            bChanged = set(sName, value.first, value.second) || bChanged;
        for (const auto& [sName, mapEntries] : other.mapLogs)
            for (const auto& [ullStamp, sValue] : mapEntries)
                bChanged = append(sName, ullStamp, sValue) || bChanged;
        return bChanged;
    }

    std::string described(const std::string& sCallID) const
    {
        std::string sText = sCallID;
        for (const auto& [sName, value] : mapProperties)
            sText += " " + sName + "=" + value.second;
        for (const auto& [sName, mapEntries] : mapLogs)
            for (const auto& [ullStamp, sValue] : mapEntries)
                sText += " " + sName + "+" + sValue;
        return sText;
    }
};

/// The store as a plain mind sees it. Each operation returns the store's result and adds what is heard.
class CModel
{
public:
    long registers(const CCommand& command)
    {
        const CRegistration registration{cParties[command.uParty], cCalls[command.uCall], cEvents[command.uEvent],
                                         cServers[command.uServer], command.bFlag};
        const bool bKnown = find(registration.sWho) != nullptr;
        if (!bKnown)
            m_vecRegistrations.push_back(registration);
        if (const auto it = m_mapKept.find(registration.sCallID); it != m_mapKept.end())
        {
            m_mapStored.emplace(registration.sCallID, it->second.record); // newer data wins
            m_mapKept.erase(it);
        }
        if (bKnown)
            return E_CDS_EXISTS;
        notify(registration, " registered for ");
        if (registration.sEvent == "*")
            for (const auto& [sCallID, record] : m_mapStored)
                if (registration.sCallID == "*" || registration.sCallID == sCallID)
                    hear(registration, record.described(sCallID));
        return 0;
    }

    long unregisters(const CCommand& command)
    {
        const CRegistration* const pFound = find(cParties[command.uParty]);
        if (pFound == nullptr)
            return E_CDS_NOTFOUND;
        const CRegistration registration = *pFound;
        m_vecRegistrations.erase(m_vecRegistrations.begin() + (pFound - m_vecRegistrations.data()));
        const auto it = m_mapStored.find(registration.sCallID);
        if (!isAnybodyRegistered(registration.sCallID) && it != m_mapStored.end())
        {
            m_mapKept[registration.sCallID] = {it->second, registration.sServer, m_ullNow};
            m_mapStored.erase(it);
        }
        notify(registration, " unregistered for ");
        return 0;
    }

    long updates(const CCommand& command, const CModelRecord& data)
    {
        const std::string& sWho = cParties[command.uParty];
        const std::string& sCallID = cCalls[command.uCall];
        bool bOthers = false;
        for (const CRegistration& registration : m_vecRegistrations)
            bOthers = bOthers || (registration.sCallID == sCallID && registration.sWho != sWho);
        if ((command.bFlag && !bOthers) || find(sWho) == nullptr)
            return E_CDS_NOTFOUND;
        const auto it = m_mapStored.find(sCallID);
        if (it == m_mapStored.end())
        {
            m_mapStored[sCallID] = data;
            deliver(sCallID, "*", data.described(sCallID));
            return 0;
        }
        const CModelRecord difference = data.newAgainst(it->second);
        it->second.merge(data);
        if (!difference.empty())
            deliver(sCallID, "*", difference.described(sCallID));
        return 0;
    }

    long asks(const CCommand& command)
    {
        const CRegistration* const pFound = find(cParties[command.uParty]);
        const auto it = m_mapStored.find(cCalls[command.uCall]);
        if (pFound == nullptr || it == m_mapStored.end())
            return E_CDS_NOTFOUND;
        hear(*pFound, it->second.described(it->first));
        return 0;
    }

    void lets(unsigned long long ullMs)
    {
        m_ullNow += ullMs;
        if (!m_optNextPass || m_ullNow < *m_optNextPass)
            return;
        m_optNextPass = m_ullNow + 10000;
        for (auto it = m_mapKept.begin(); it != m_mapKept.end();)
        {
            if (m_ullNow - it->second.ullTime <= 30000)
            {
                ++it;
                continue;
            }
            if (it->second.sServer == m_sServer)
                deliver(it->first, "EOC", it->second.record.described(it->first));
            it = m_mapKept.erase(it);
        }
    }

    void stops()
    {
        m_mapStored.clear();
        m_mapKept.clear();
        m_optNextPass.reset();
    }

    void starts(const std::string& sServer)
    {
        m_sServer = sServer;
        m_optNextPass = m_ullNow + 10000;
    }

    std::vector<std::string> hears() { return std::exchange(m_vecHeard, {}); }

private:
    struct CRegistration
    {
        std::string sWho;
        std::string sCallID;
        std::string sEvent;
        std::string sServer;
        bool bMute;
    };
    struct CKept
    {
        CModelRecord record;
        std::string sServer;
        unsigned long long ullTime;
    };

    const CRegistration* find(const std::string& sWho) const
    {
        for (const CRegistration& registration : m_vecRegistrations)
            if (registration.sWho == sWho)
                return &registration;
        return nullptr;
    }
    bool isAnybodyRegistered(const std::string& sCallID) const
    {
        for (const CRegistration& registration : m_vecRegistrations)
            if (registration.sCallID == sCallID)
                return true;
        return false;
    }
    void hear(const CRegistration& registration, const std::string& sText)
    {
        if (!registration.bMute)
            m_vecHeard.push_back(registration.sWho + ": " + sText);
    }
    void notify(const CRegistration& concerned, const char* pszWhat)
    {
        for (const std::string& sCallID : cCalls) // in order
            for (const CRegistration& registration : m_vecRegistrations)
                if (registration.sEvent == "@" && registration.sCallID == sCallID)
                    hear(registration, concerned.sWho + pszWhat + concerned.sCallID + " at " + concerned.sServer);
    }
    void deliver(const std::string& sCallID, const std::string& sEvent, const std::string& sText)
    {
        for (const CRegistration& registration : m_vecRegistrations)
            if (registration.sCallID == sCallID &&
                (registration.sEvent == "*" || registration.sEvent == "@" || registration.sEvent == sEvent))
                hear(registration, sText);
        if (sCallID != "*")
            deliver("*", sEvent, sText);
    }

    std::vector<CRegistration> m_vecRegistrations; // in the order they came
    std::map<std::string, CModelRecord> m_mapStored;
    std::map<std::string, CKept> m_mapKept;
    std::string m_sServer;
    unsigned long long m_ullNow = CFakeClock::cInitialTicks;
    std::optional<unsigned long long> m_optNextPass; // while the timing thread runs
    std::vector<std::string> m_vecHeard;
};

/// Runs commands on both.
class CComparison
{
public:
    void run(const CCommand& command)
    {
        const auto [lStore, lModel] = runOnBoth(command);
        RC_ASSERT(lStore == lModel);
        RC_ASSERT(m_story.hears() == m_model.hears());
    }

private:
    std::pair<long, long> runOnBoth(const CCommand& command)
    {
        const std::string& sWho = cParties[command.uParty];
        const std::string& sCallID = cCalls[command.uCall];
        const std::string& sServer = cServers[command.uServer];
        switch (command.eKind)
        {
        case CCommand::EKind::registers:
            return {command.bFlag ? m_story.registersMute(sWho, sCallID, cEvents[command.uEvent], sServer)
                                  : m_story.registers(sWho, sCallID, cEvents[command.uEvent], sServer),
                    m_model.registers(command)};
        case CCommand::EKind::unregisters: return {m_story.unregisters(sWho), m_model.unregisters(command)};
        case CCommand::EKind::updates: return update(command);
        case CCommand::EKind::asks: return {m_story.asksFor(sWho, sCallID), m_model.asks(command)};
        case CCommand::EKind::lets:
            m_story.lets(command.ullMs);
            m_model.lets(command.ullMs);
            return {0, 0};
        case CCommand::EKind::stops: m_model.stops(); return {m_story.stops(), 0};
        case CCommand::EKind::starts: m_model.starts(sServer); return {m_story.starts(sServer), 0};
        }
        return {0, -1};
    }

    std::pair<long, long> update(const CCommand& command)
    {
        CNews news(cCalls[command.uCall]);
        CModelRecord data;
        for (const CItem& item : command.vecItems)
        {
            const std::string& sName = cNames[item.uName];
            const std::string sValue = std::to_string(++m_nValues);
            const CCDSTimestamp tsStamp(item.ullStamp, 0);
            if (item.bEntry)
            {
                news.appends(sName, sValue, tsStamp);
                data.append(sName, item.ullStamp, sValue);
            }
            else
            {
                news.sets(sName, sValue, tsStamp);
                data.set(sName, item.ullStamp, sValue);
            }
        }
        const std::string& sWho = cParties[command.uParty];
        return {command.bFlag ? m_story.updatesForOthers(sWho, news) : m_story.updates(sWho, news),
                m_model.updates(command, data)};
    }

    CStoreStory m_story;
    CModel m_model;
    int m_nValues = 0;
};

} // namespace

namespace rc {

template <> struct Arbitrary<CItem>
{
    static Gen<CItem> arbitrary()
    {
        return gen::build<CItem>(gen::set(&CItem::bEntry),
                                 gen::set(&CItem::uName, gen::inRange<std::size_t>(0, cNames.size())),
                                 gen::set(&CItem::ullStamp, gen::inRange<unsigned long long>(0, 8)));
    }
};

template <> struct Arbitrary<CCommand>
{
    static Gen<CCommand> arbitrary()
    {
        using EKind = CCommand::EKind;
        return gen::build<CCommand>(
            gen::set(&CCommand::eKind, gen::weightedElement<EKind>({{8, EKind::registers},
                                                                    {6, EKind::unregisters},
                                                                    {10, EKind::updates},
                                                                    {2, EKind::asks},
                                                                    {4, EKind::lets},
                                                                    {1, EKind::stops},
                                                                    {2, EKind::starts}})),
            gen::set(&CCommand::uParty, gen::inRange<std::size_t>(0, cParties.size())),
            gen::set(&CCommand::uCall, gen::inRange<std::size_t>(0, cCalls.size())),
            gen::set(&CCommand::uEvent, gen::inRange<std::size_t>(0, cEvents.size())),
            gen::set(&CCommand::uServer, gen::inRange<std::size_t>(0, cServers.size())),
            gen::set(&CCommand::bFlag, gen::weightedElement<bool>({{3, false}, {1, true}})),
            gen::set(&CCommand::ullMs, gen::element(1ULL, 5000ULL, 10000ULL, 20000ULL, 30000ULL, 30001ULL)),
            gen::set(&CCommand::vecItems));
    }
};

} // namespace rc

RC_GTEST_PROP(StoreModelTest, StoreAndModelSayTheSame, (const std::vector<CCommand>& vecCommands))
{
    CComparison comparison;
    for (const CCommand& command : vecCommands)
        comparison.run(command);
}
