// The proxy: its life. A store without peers has nothing to exchange.

#include "CDSNetProxy.h"

#include "CDSLogging.h"

CCDSNetProxy* g_pCDSNetProxy = nullptr;

CCDSNetProxy::~CCDSNetProxy()
{
    (void)Finalize(); // always 0
}

long CCDSNetProxy::Initialize(const std::string& /*sIPAddr*/, CCDSAPI* /*pCDSAPI*/)
{
    return 0;
}

long CCDSNetProxy::Finalize()
{
    CCDSLogging::logWarning("CCDSNetProxy::Finalize");
    CCDSLogging::logWarning("<<<CCDSNetProxy::Finalize");
    return 0;
}

void CCDSNetProxy::Dump(int /*nFull*/)
{
    CCDSLogging::logAlways("-- call on server.");
    CCDSLogging::logAlways("-- destination of calldata.");
    CCDSLogging::logAlways("-- CDR.");
}

void CCDSNetProxy::SetDbgOutHook(void (* /*pfnHook*/)(unsigned long, const char*, va_list)) {}
