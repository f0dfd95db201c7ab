#include "KRRegLib.h"

#include "Configuration.h"
#include "KRException.h"
#include "SupportResults.h"

#include <new>
#include <utility>

namespace KRRegLib {
struct CRegKey::CState
{
    CConfiguration::CPath path;
};

namespace {
/// Splits a key name at its backslashes. Empty when the name is none.
CConfiguration::CPath levelsOf(const std::string& sName)
{
    CConfiguration::CPath levels;
    std::size_t uBegin = 0;
    for (;;)
    {
        const std::size_t uEnd = sName.find('\\', uBegin);
        levels.push_back(sName.substr(uBegin, uEnd == std::string::npos ? uEnd : uEnd - uBegin));
        if (levels.back().empty() || levels.back().find('\0') != std::string::npos)
            return {};
        if (uEnd == std::string::npos)
            return levels;
        uBegin = uEnd + 1;
    }
}

template <typename Value> std::optional<Value> queryAs(const CConfiguration::CPath& path, const std::string& sName)
{
    const auto optValue = CConfiguration::get().query(path, sName);
    if (!optValue || !std::holds_alternative<Value>(*optValue))
        return std::nullopt;
    return std::get<Value>(*optValue);
}

/// Runs an operation whose only exception is lack of memory.
template <typename Operation> long guarded(Operation operation)
{
    try
    {
        return operation();
    }
    catch (const std::bad_alloc&)
    {
        return E_SUPPORT_MEMORY;
    }
}
} // namespace

CRegKey::CRegKey() = default;
CRegKey::~CRegKey() = default;
CRegKey::CRegKey(CRegKey&&) noexcept = default;
CRegKey& CRegKey::operator=(CRegKey&&) noexcept = default;

long CRegKey::createOrOpenKey(const std::string& sName, CRegKey* pKey)
{
    return guarded([&] {
        const CConfiguration::CPath levels = levelsOf(sName);
        if (!m_pState || !pKey || levels.empty())
            return E_SUPPORT_INVALID;
        CConfiguration::CPath path = m_pState->path;
        path.insert(path.end(), levels.begin(), levels.end());
        if (!CConfiguration::get().isKey(path))
            return E_SUPPORT_INVALID;
        // A key without values needs no place in the file: its table is written with its first value.
        pKey->m_pState = std::make_shared<CState>(CState{std::move(path)});
        return 0L;
    });
}

long CRegKey::queryValue(const std::string& sName, unsigned long* pulValue) const
{
    if (!m_pState || !pulValue)
        return E_SUPPORT_INVALID;
    return guarded([&] {
        const auto optNumber = queryAs<std::uint32_t>(m_pState->path, sName);
        if (!optNumber)
            return E_SUPPORT_NOTFOUND;
        *pulValue = *optNumber;
        return 0L;
    });
}

long CRegKey::queryValue(const std::string& sName, std::string* psValue) const
{
    if (!m_pState || !psValue)
        return E_SUPPORT_INVALID;
    return guarded([&] {
        auto optText = queryAs<std::string>(m_pState->path, sName);
        if (!optText)
            return E_SUPPORT_NOTFOUND;
        *psValue = std::move(*optText);
        return 0L;
    });
}

long CRegKey::setValue(const std::string& sName, unsigned long ulValue)
{
    if (!m_pState || sName.empty() || ulValue > 0xFFFFFFFFUL)
        return E_SUPPORT_INVALID;
    return guarded(
        [&] { return CConfiguration::get().set(m_pState->path, sName, static_cast<std::uint32_t>(ulValue)); });
}

long CRegKey::setValue(const std::string& sName, const std::string& sValue)
{
    if (!m_pState || sName.empty())
        return E_SUPPORT_INVALID;
    return guarded([&] { return CConfiguration::get().set(m_pState->path, sName, sValue); });
}

CRegLib::CRegLib()
{
    const long lResult = CConfiguration::get().open();
    if (lResult < 0)
        throw KRException(lResult, "support/configuration/KRRegLib", __LINE__);
    m_keyRoot.m_pState = std::make_shared<CRegKey::CState>();
}

CRegLib::~CRegLib() = default;

CRegKey& CRegLib::rootKey() noexcept
{
    return m_keyRoot;
}
} // namespace KRRegLib
