#include "ReplaceFile.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
/// Where the path leads in the end, so that the rename does not replace a link by a file.
std::string resolved(const std::string& sPath)
{
    const std::unique_ptr<char, decltype(&std::free)> pszReal(realpath(sPath.c_str(), nullptr), &std::free);
    return pszReal ? pszReal.get() : sPath;
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

void takeOverAttributes(int nFile, const std::string& sFrom)
{
    struct stat status = {};
    if (stat(sFrom.c_str(), &status) != 0)
        return;                                         // a new file keeps the private permissions of a temporary one
    (void)!fchown(nFile, status.st_uid, status.st_gid); // only root may: otherwise it becomes the writer's
    (void)fchmod(nFile, status.st_mode & 07777U);
}

void syncDirectory(const std::string& sPath)
{
    const std::size_t uSlash = sPath.rfind('/');
    const std::string sDirectory = uSlash == std::string::npos ? "." : sPath.substr(0, uSlash + 1);
    const int nDirectory = open(sDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (nDirectory < 0)
        return;
    (void)fsync(nDirectory); // the content is safe already; this hastens the name
    (void)close(nDirectory);
}
} // namespace

bool replaceFile(const std::string& sPath, const std::string& sContent, const std::function<bool()>& fnStillWished)
{
    const std::string sTarget = resolved(sPath);
    std::string sTemporary = sTarget + ".XXXXXX";
    const int nFile = mkostemp(sTemporary.data(), O_CLOEXEC);
    if (nFile < 0)
        return false;
    takeOverAttributes(nFile, sTarget);
    const bool bWritten = writeAll(nFile, sContent) && fsync(nFile) == 0;
    const bool bClosed = close(nFile) == 0;
    if (!bWritten || !bClosed || !fnStillWished() || rename(sTemporary.c_str(), sTarget.c_str()) != 0)
    {
        (void)unlink(sTemporary.c_str());
        return false;
    }
    syncDirectory(sTarget);
    return true;
}
