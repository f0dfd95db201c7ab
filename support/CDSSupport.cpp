#include "CDSSupport.h"

#include "Configuration.h"
#include "SupportResults.h"
#include "TraceLog.h"
#include "TraceMask.h"

namespace CDSSupport {
long setConfigurationFile(const std::string& sPath, std::string* psError, bool bMayBeMissing)
{
    return CConfiguration::get().setFile(sPath, psError, bMayBeMissing);
}

long rereadConfiguration(std::string* psError)
{
    return CConfiguration::get().reread(psError);
}

void setLogDirectory(const std::string& sDirectory)
{
    CTraceLog::setDirectory(sDirectory);
}

void setTraceMask(const std::string& sLogName, std::uint32_t dwMask)
{
    CTraceMask::of(sLogName).choose(dwMask);
}

long reopenLogs()
{
    return CTraceLog::reopenAll() ? 0 : E_SUPPORT_SYSTEM;
}

void flushLogs()
{
    CTraceLog::flushAll();
}
} // namespace CDSSupport
