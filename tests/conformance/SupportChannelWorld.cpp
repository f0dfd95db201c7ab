#include "CDSSupport.h"
#include "ChannelWorld.h"
#include "SupportChannel.h"
#include "TemporaryDirectory.h"

struct CChannelWorld::CState
{
    CTemporaryDirectory directory;
    CSupportChannels channels{directory};
};

CChannelWorld::CChannelWorld() : m_pState(std::make_unique<CState>())
{
    CDSSupport::setLogDirectory(m_pState->directory.path());
}

CChannelWorld::~CChannelWorld()
{
    (void)CDSSupport::setConfigurationFile("", nullptr);
}

unsigned long CChannelWorld::address(int nServer) const
{
    return CSupportChannels::address(nServer);
}

std::unique_ptr<CCMLibraryX> CChannelWorld::make(CMLIB_MODE eMode)
{
    return CSupportChannels::make(eMode);
}

long CChannelWorld::initialize(CCMLibraryX* pChannel, int nServer)
{
    m_pState->channels.configure(nServer);
    return pChannel->initialize();
}

void CChannelWorld::breakConnection(int nServer, int nOther)
{
    CSupportChannels::breakConnection(nServer, nOther);
}

void CChannelWorld::passTime(unsigned long /*ulMs*/) {}

unsigned long CChannelWorld::messageLimit() const
{
    return 4UL << 20;
}
