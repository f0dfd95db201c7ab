// Files with records that a database refused.
#include "cdr/RefusedCdrs.h"

#include "cdr/CdrText.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr std::string_view cFirstLine = "cds-refused-cdr 1\n";
constexpr std::string_view cEnding = ".cdr";
constexpr std::string_view cUnfinished = ".new";

std::string systemError(const std::string& sPath)
{
    const int nError = errno;
    return sPath + ": " + std::generic_category().message(nError);
}

bool writeAll(int nFile, std::string_view sContent)
{
    while (!sContent.empty())
    {
        const ssize_t nWritten = write(nFile, sContent.data(), sContent.size());
        if (nWritten < 0 && errno == EINTR)
            continue;
        if (nWritten < 0)
            return false;
        sContent.remove_prefix(static_cast<std::size_t>(nWritten));
    }
    return true;
}

/// Takes "<name> <value>\n" from the text's beginning.
bool takeLine(std::string_view* psvText, std::string_view svName, std::string_view* psvValue)
{
    const std::size_t uEnd = psvText->find('\n');
    if (uEnd == std::string_view::npos || !psvText->starts_with(svName))
        return false;
    *psvValue = psvText->substr(svName.size(), uEnd - svName.size());
    psvText->remove_prefix(uEnd + 1);
    return true;
}

bool takeNumber(std::string_view* psvText, std::string_view svName, std::uint64_t* pullValue)
{
    std::string_view svValue;
    return takeLine(psvText, svName, &svValue) &&
           std::from_chars(svValue.data(), svValue.data() + svValue.size(), *pullValue).ptr ==
               svValue.data() + svValue.size();
}

bool parse(std::string_view svText, CRefusedCdr* pCdr)
{
    std::string_view svOrigin;
    std::uint64_t ullBytes = 0;
    if (!svText.starts_with(cFirstLine))
        return false;
    svText.remove_prefix(cFirstLine.size());
    if (!takeLine(&svText, "origin ", &svOrigin) || !takeNumber(&svText, "received ", &pCdr->ullReceived) ||
        !takeNumber(&svText, "bytes ", &ullBytes) || !svText.starts_with('\n') || svText.size() - 1 != ullBytes)
        return false;
    pCdr->sOrigin = svOrigin;
    pCdr->sRecord = svText.substr(1);
    return true;
}

} // namespace

CRefusedCdrs::CRefusedCdrs(std::string sDirectory, CLimits limits)
    : m_sDirectory(std::move(sDirectory)), m_limits(limits)
{
}

CRefusedCdrs::~CRefusedCdrs()
{
    if (m_nDirectory >= 0)
        (void)close(m_nDirectory); // nothing was written there that is not safe
}

bool CRefusedCdrs::takeLock(std::string* psError)
{
    // What it holds names callers.
    if (mkdir(m_sDirectory.c_str(), 0750) != 0 && errno != EEXIST)
    {
        *psError = systemError(m_sDirectory);
        return false;
    }
    m_nDirectory = ::open(m_sDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_nDirectory < 0)
        *psError = systemError(m_sDirectory);
    else if (flock(m_nDirectory, LOCK_EX | LOCK_NB) != 0)
        *psError = m_sDirectory + ": another program keeps its refused records there";
    return psError->empty();
}

bool CRefusedCdrs::open(std::string* psError)
{
    if (!takeLock(psError))
        return false;
    std::error_code failure;
    for (std::filesystem::directory_iterator it(m_sDirectory, failure), end; !failure && it != end;
         it.increment(failure))
    {
        const std::string sName = it->path().filename().string();
        std::error_code ignored; // what goes away meanwhile has no size
        if (sName.ends_with(cUnfinished))
            (void)std::filesystem::remove(it->path(), ignored); // its sender was never told that it arrived
        else if (const auto uSize = it->file_size(ignored); sName.ends_with(cEnding) && !ignored)
        {
            m_mapFiles[sName] = uSize;
            m_ullBytes += uSize;
        }
    }
    if (failure)
        *psError = m_sDirectory + ": " + failure.message();
    return !failure;
}

bool CRefusedCdrs::keep(const CRefusedCdr& cdr, std::string* psError)
{
    const std::string sContent = std::string(cFirstLine) + "origin " + CdrText::keyOf(cdr.sOrigin) + "\nreceived " +
                                 std::to_string(cdr.ullReceived) + "\nbytes " + std::to_string(cdr.sRecord.size()) +
                                 "\n\n" + cdr.sRecord;
    if (m_mapFiles.size() >= m_limits.ullCount || m_ullBytes + sContent.size() > m_limits.ullBytes)
    {
        *psError = m_sDirectory + ": full, with " + std::to_string(m_mapFiles.size()) + " records in " +
                   std::to_string(m_ullBytes) + " bytes";
        return false;
    }
    std::string sName;
    do
    {
        char szName[64] = "";
        (void)std::snprintf(szName, sizeof szName, "%020llu-%06llu", static_cast<unsigned long long>(CdrText::now()),
                            static_cast<unsigned long long>(m_ullNumber++ % 1'000'000));
        sName = std::string(szName).append(cEnding);
    }
    while (m_mapFiles.contains(sName)); // the clock may be set back
    if (!writeWhole(sName, sContent))
    {
        *psError = systemError(path(sName));
        return false;
    }
    m_mapFiles[sName] = sContent.size();
    m_ullBytes += sContent.size();
    return true;
}

/// @return false with errno: there is no such file then
bool CRefusedCdrs::writeWhole(const std::string& sName, const std::string& sContent)
{
    const std::string sTemporary = path(sName).append(cUnfinished);
    const int nFile = ::open(sTemporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    if (nFile < 0)
        return false;
    const bool bWritten = writeAll(nFile, sContent) && fsync(nFile) == 0;
    int nError = errno;
    if (close(nFile) == 0 && bWritten && rename(sTemporary.c_str(), path(sName).c_str()) == 0)
    {
        if (fsync(m_nDirectory) == 0)
            return true;
        nError = errno;
        (void)unlink(path(sName).c_str()); // it may be there after a crash or not: then rather not
    }
    (void)unlink(sTemporary.c_str()); // cleared away with the next start if not now
    errno = nError;
    return false;
}

std::string CRefusedCdrs::next(const std::string& sAfter) const
{
    const auto it = m_mapFiles.upper_bound(sAfter);
    return it != m_mapFiles.end() ? it->first : "";
}

CRefusedCdrs::ERead CRefusedCdrs::read(const std::string& sName, CRefusedCdr* pCdr) const
{
    std::ifstream file(path(sName), std::ios::binary);
    if (!file)
        return ERead::failed;
    const std::string sContent((std::istreambuf_iterator<char>(file)), {});
    if (file.bad())
        return ERead::failed;
    return parse(sContent, pCdr) ? ERead::record : ERead::noRecord;
}

void CRefusedCdrs::putAside(const std::string& sName)
{
    (void)rename(path(sName).c_str(), path(sName).append(".unreadable").c_str()); // or it is gone
    forget(sName);
}

void CRefusedCdrs::remove(const std::string& sName)
{
    (void)unlink(path(sName).c_str()); // one that stays is written again after the next start, which changes nothing
    forget(sName);
}

void CRefusedCdrs::forget(const std::string& sName)
{
    if (const auto it = m_mapFiles.find(sName); it != m_mapFiles.end())
    {
        m_ullBytes -= it->second;
        m_mapFiles.erase(it);
    }
}
