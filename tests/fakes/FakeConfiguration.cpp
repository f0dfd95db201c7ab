#include "FakeConfiguration.h"

#include "AllocationPause.h"
#include "FakeConstruction.h"
#include "KRRegLib.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <variant>

namespace {
using CValue = std::variant<unsigned long, std::string>;

constexpr long cNotFound = static_cast<std::int32_t>(0x80070002U);
constexpr long cInvalid = static_cast<std::int32_t>(0x80070057U);

struct CConfigurationState
{
    std::mutex mtx;
    std::map<std::string, std::map<std::string, CValue>> mapKeys; // key path -> value name -> value
    std::vector<std::string> vecOperations;
    long lKeyResult = 0;
    long lQueryResult = 0;
    long lWriteResult = 0;
    CFakeConstruction construction;
};

CConfigurationState& state()
{
    CAllocationPause pause;
    static CConfigurationState* const pState = new CConfigurationState;
    return *pState;
}

bool isKeyName(const std::string& sName)
{
    return !sName.empty() && sName.front() != '\\' && sName.back() != '\\' && sName.find("\\\\") == std::string::npos &&
           sName.find('\0') == std::string::npos;
}

std::string joined(const std::string& sPath, const std::string& sName)
{
    return sPath.empty() ? sName : sPath + '\\' + sName;
}

void makeKey(CConfigurationState& configuration, const std::string& sPath)
{
    for (std::size_t uEnd = sPath.find('\\'); uEnd != std::string::npos; uEnd = sPath.find('\\', uEnd + 1))
        configuration.mapKeys.try_emplace(sPath.substr(0, uEnd));
    configuration.mapKeys.try_emplace(sPath);
}

template <typename Value> void put(const std::string& sKey, const std::string& sName, const Value& value)
{
    CAllocationPause pause;
    const std::lock_guard lock(state().mtx);
    makeKey(state(), sKey);
    state().mapKeys[sKey].insert_or_assign(sName, CValue(value));
}

template <typename Value>
std::optional<Value> look(CConfigurationState& configuration, const std::string& sKey, const std::string& sName)
{
    const auto itKey = configuration.mapKeys.find(sKey);
    if (itKey == configuration.mapKeys.end())
        return std::nullopt;
    const auto itValue = itKey->second.find(sName);
    if (itValue == itKey->second.end() || !std::holds_alternative<Value>(itValue->second))
        return std::nullopt;
    return std::get<Value>(itValue->second);
}

template <typename Value> std::optional<Value> lookLocked(const std::string& sKey, const std::string& sName)
{
    CAllocationPause pause;
    const std::lock_guard lock(state().mtx);
    return look<Value>(state(), sKey, sName);
}

template <typename Value> long query(const std::string& sPath, const std::string& sName, Value* pValue)
{
    CAllocationPause pause;
    CConfigurationState& configuration = state();
    const std::lock_guard lock(configuration.mtx);
    configuration.vecOperations.push_back("query " + joined(sPath, sName));
    if (configuration.lQueryResult < 0)
        return configuration.lQueryResult;
    const std::optional<Value> optValue = look<Value>(configuration, sPath, sName);
    if (!optValue)
        return cNotFound;
    *pValue = *optValue;
    return 0;
}

template <typename Value> long set(const std::string& sPath, const std::string& sName, const Value& value)
{
    CAllocationPause pause;
    CConfigurationState& configuration = state();
    const std::lock_guard lock(configuration.mtx);
    configuration.vecOperations.push_back("set " + joined(sPath, sName));
    if (configuration.lWriteResult < 0)
        return configuration.lWriteResult;
    makeKey(configuration, sPath);
    configuration.mapKeys[sPath].insert_or_assign(sName, CValue(value));
    return 0;
}
} // namespace

namespace KRRegLib {
struct CRegKey::CState
{
    std::string sPath;
};

CRegKey::CRegKey() = default;
CRegKey::~CRegKey() = default;
CRegKey::CRegKey(CRegKey&&) noexcept = default;
CRegKey& CRegKey::operator=(CRegKey&&) noexcept = default;

long CRegKey::createOrOpenKey(const std::string& sName, CRegKey* pKey)
{
    CAllocationPause pause;
    if (!m_pState || !pKey || !isKeyName(sName))
        return cInvalid;
    CConfigurationState& configuration = state();
    const std::lock_guard lock(configuration.mtx);
    const std::string sPath = joined(m_pState->sPath, sName);
    configuration.vecOperations.push_back("key " + sPath);
    if (configuration.lKeyResult < 0)
        return configuration.lKeyResult;
    makeKey(configuration, sPath);
    pKey->m_pState = std::make_shared<CState>(CState{sPath});
    return 0;
}

long CRegKey::queryValue(const std::string& sName, unsigned long* pulValue) const
{
    return m_pState && pulValue ? query(m_pState->sPath, sName, pulValue) : cInvalid;
}

long CRegKey::queryValue(const std::string& sName, std::string* psValue) const
{
    return m_pState && psValue ? query(m_pState->sPath, sName, psValue) : cInvalid;
}

long CRegKey::setValue(const std::string& sName, unsigned long ulValue)
{
    const bool bFits = ulValue <= 0xFFFFFFFFUL;
    return m_pState && bFits && !sName.empty() ? set(m_pState->sPath, sName, ulValue) : cInvalid;
}

long CRegKey::setValue(const std::string& sName, const std::string& sValue)
{
    return m_pState && !sName.empty() ? set(m_pState->sPath, sName, sValue) : cInvalid;
}

CRegLib::CRegLib()
{
    CAllocationPause pause;
    state().construction.enter();
    const std::lock_guard lock(state().mtx);
    state().vecOperations.emplace_back("open");
    m_keyRoot.m_pState = std::make_shared<CRegKey::CState>();
}

CRegLib::~CRegLib() = default;

CRegKey& CRegLib::rootKey() noexcept
{
    return m_keyRoot;
}
} // namespace KRRegLib

void CFakeConfiguration::setNumber(const std::string& sKey, const std::string& sName, unsigned long ulValue)
{
    put(sKey, sName, ulValue);
}

void CFakeConfiguration::setText(const std::string& sKey, const std::string& sName, const std::string& sValue)
{
    put(sKey, sName, sValue);
}

std::optional<unsigned long> CFakeConfiguration::number(const std::string& sKey, const std::string& sName)
{
    return lookLocked<unsigned long>(sKey, sName);
}

std::optional<std::string> CFakeConfiguration::text(const std::string& sKey, const std::string& sName)
{
    return lookLocked<std::string>(sKey, sName);
}

bool CFakeConfiguration::hasKey(const std::string& sKey)
{
    const std::lock_guard lock(state().mtx);
    return state().mapKeys.contains(sKey);
}

std::vector<std::string> CFakeConfiguration::operations()
{
    CAllocationPause pause;
    const std::lock_guard lock(state().mtx);
    return state().vecOperations;
}

void CFakeConfiguration::failNextOpen(long lCode, const char* pszSource, int nLine)
{
    CAllocationPause pause;
    state().construction.failNext(lCode, 0, pszSource, nLine);
}

void CFakeConfiguration::failKeys(long lResult)
{
    const std::lock_guard lock(state().mtx);
    state().lKeyResult = lResult;
}

void CFakeConfiguration::failQueries(long lResult)
{
    const std::lock_guard lock(state().mtx);
    state().lQueryResult = lResult;
}

void CFakeConfiguration::failWrites(long lResult)
{
    const std::lock_guard lock(state().mtx);
    state().lWriteResult = lResult;
}

void CFakeConfiguration::reset()
{
    state().construction.reset();
    const std::lock_guard lock(state().mtx);
    state().mapKeys.clear();
    state().vecOperations.clear();
    state().lKeyResult = state().lQueryResult = state().lWriteResult = 0;
}
