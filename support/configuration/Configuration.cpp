#include "Configuration.h"

#include "ConfigurationText.h"
#include "ReplaceFile.h"
#include "SupportResults.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace {
void put(std::string* psError, const std::string& sText)
{
    if (psError)
        *psError = sText;
}

const toml::table* tableAt(const toml::table& root, const CConfiguration::CPath& path)
{
    const toml::table* pTable = &root;
    for (const std::string& sName : path)
    {
        pTable = (*pTable)[sName].as_table();
        if (!pTable)
            return nullptr;
    }
    return pTable;
}

/// How often a value is written when others change the file at the same time.
constexpr int cAttempts = 10;
} // namespace

CConfiguration& CConfiguration::get()
{
    static CConfiguration* const pConfiguration = new CConfiguration;
    return *pConfiguration;
}

CConfiguration::CSignature CConfiguration::signatureOf(const std::string& sPath)
{
    struct stat status = {};
    if (stat(sPath.c_str(), &status) != 0)
        return {};
    return {true, status.st_dev, status.st_ino, status.st_size, status.st_ctim.tv_sec, status.st_ctim.tv_nsec};
}

long CConfiguration::load(CSource* pSource, std::string* psError)
{
    // Taken before reading: a change in between is then found the next time, at worst for nothing.
    pSource->signature = signatureOf(pSource->sPath);
    pSource->sText.clear();
    pSource->table.clear();
    if (pSource->sPath.empty() || (pSource->bMayBeMissing && !pSource->signature.bExists))
        return 0;
    errno = 0;
    bool bRead = false;
    try
    {
        std::ifstream file(pSource->sPath, std::ios::binary);
        if (file)
            pSource->sText.assign(std::istreambuf_iterator<char>(file), {});
        bRead = file && !file.bad();
    }
    catch (const std::ios_base::failure&) // a directory, or a disk that fails; errno says
    {
    }
    if (!bRead)
    {
        put(psError, pSource->sPath + ": " + std::generic_category().message(errno != 0 ? errno : EIO));
        return pSource->signature.bExists ? E_SUPPORT_SYSTEM : E_SUPPORT_NOTFOUND;
    }
    try
    {
        pSource->table = toml::parse(pSource->sText, pSource->sPath);
    }
    catch (const toml::parse_error& error)
    {
        const toml::source_position& begin = error.source().begin;
        put(psError, pSource->sPath + ':' + std::to_string(begin.line) + ':' + std::to_string(begin.column) + ": " +
                         std::string(error.description()));
        return E_SUPPORT_SYNTAX;
    }
    return 0;
}

long CConfiguration::takeOver(CSource source)
{
    {
        const std::lock_guard lock(m_mtx);
        m_source = std::move(source);
        m_lookedAt = m_source.signature;
    }
    tellListeners();
    return 0;
}

long CConfiguration::setFile(const std::string& sPath, std::string* psError, bool bMayBeMissing)
{
    CSource source;
    std::error_code error;
    source.sPath =
        sPath.empty() ? sPath : std::filesystem::absolute(sPath, error).string(); // wherever the process goes
    if (error)
        source.sPath = sPath;
    source.bMayBeMissing = bMayBeMissing;
    const long lResult = load(&source, psError);
    return lResult < 0 ? lResult : takeOver(std::move(source));
}

long CConfiguration::reread(std::string* psError)
{
    CSource source;
    {
        const std::lock_guard lock(m_mtx);
        if (m_source.sPath.empty())
            return 0;
        source.sPath = m_source.sPath;
        source.bMayBeMissing = m_source.bMayBeMissing;
    }
    const long lResult = load(&source, psError);
    return lResult < 0 ? lResult : takeOver(std::move(source));
}

long CConfiguration::rereadIfChanged(std::string* psError)
{
    {
        const std::lock_guard lock(m_mtx);
        if (m_source.sPath.empty())
            return 0;
        const CSignature signature = signatureOf(m_source.sPath);
        if (signature == m_lookedAt)
            return 0;
        m_lookedAt = signature;
    }
    return reread(psError);
}

long CConfiguration::refreshLocked()
{
    if (m_source.sPath.empty() || signatureOf(m_source.sPath) == m_source.signature)
        return 0;
    CSource source;
    source.sPath = m_source.sPath;
    source.bMayBeMissing = m_source.bMayBeMissing;
    const long lResult = load(&source, nullptr);
    if (lResult >= 0)
        m_source = std::move(source);
    return lResult;
}

long CConfiguration::open()
{
    // m_lookedAt stays: those who follow the file still have to be told of a change found here.
    const std::lock_guard lock(m_mtx);
    return refreshLocked();
}

bool CConfiguration::hasFile() const
{
    const std::lock_guard lock(m_mtx);
    return !m_source.sPath.empty();
}

std::optional<CConfiguration::CValue> CConfiguration::query(const CPath& path, const std::string& sName) const
{
    const std::lock_guard lock(m_mtx);
    const toml::table* pTable = tableAt(m_source.table, path);
    const toml::node* pNode = pTable ? pTable->get(sName) : nullptr;
    if (!pNode)
        return std::nullopt;
    if (const auto* pText = pNode->as_string())
        return CValue(pText->get());
    const auto* pNumber = pNode->as_integer();
    if (!pNumber || pNumber->get() < 0 || pNumber->get() > 0xFFFFFFFFLL)
        return std::nullopt;
    return CValue(static_cast<std::uint32_t>(pNumber->get()));
}

bool CConfiguration::isKey(const CPath& path) const
{
    const std::lock_guard lock(m_mtx);
    const toml::table* pTable = &m_source.table;
    for (const std::string& sName : path)
    {
        const toml::node* pNode = pTable->get(sName);
        if (!pNode)
            return true;
        pTable = pNode->as_table();
        if (!pTable)
            return false;
    }
    return true;
}

long CConfiguration::set(const CPath& path, const std::string& sName, const CValue& value)
{
    const std::lock_guard lock(m_mtx);
    std::string sText;
    toml::table table;
    bool bOvertaken = true;
    for (int nAttempt = 0; bOvertaken && nAttempt < cAttempts; ++nAttempt)
    {
        const long lResult = refreshLocked();
        if (lResult < 0)
            return lResult; // what is in a broken file is somebody's unfinished work: it is not written over
        sText = m_source.sText;
        table = toml::parse(sText, m_source.sPath); // it has been read before; a copy would not know its places
        if (!setInConfigurationText(&sText, &table, path, sName, value))
            return E_SUPPORT_INVALID;
        bOvertaken = false;
        const auto fnStillTheSame = [&] {
            bOvertaken = signatureOf(m_source.sPath) != m_source.signature;
            return !bOvertaken;
        };
        if (!m_source.sPath.empty() && !replaceFile(m_source.sPath, sText, fnStillTheSame) && !bOvertaken)
            return E_SUPPORT_SYSTEM;
    }
    if (bOvertaken)
        return E_SUPPORT_SYSTEM;
    if (!m_source.sPath.empty())
    {
        const CSignature signature = signatureOf(m_source.sPath);
        if (m_lookedAt == m_source.signature)
            m_lookedAt = signature; // our own change is no news, unless there was some already
        m_source.signature = signature;
    }
    m_source.sText = std::move(sText);
    m_source.table = std::move(table);
    return 0;
}

CConfiguration::CListener CConfiguration::subscribe(std::function<void()> fnListener)
{
    const std::lock_guard lock(m_mtxListeners);
    fnListener(); // under the lock, so that a change at the same time comes after it
    return m_lstListeners.insert(m_lstListeners.end(), std::move(fnListener));
}

void CConfiguration::unsubscribe(CListener listener)
{
    const std::lock_guard lock(m_mtxListeners);
    m_lstListeners.erase(listener);
}

void CConfiguration::tellListeners()
{
    const std::lock_guard lock(m_mtxListeners);
    for (const auto& fnListener : m_lstListeners)
        fnListener();
}
