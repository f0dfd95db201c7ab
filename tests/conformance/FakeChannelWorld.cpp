#include "ChannelWorld.h"

#include "Fakes.h"

#include <string>

struct CChannelWorld::CState
{
    CFakeWorld fakes;
};

namespace {
std::string addressText(int nServer)
{
    return "10.0.0." + std::to_string(nServer);
}
} // namespace

CChannelWorld::CChannelWorld() : m_pState(std::make_unique<CState>())
{
    CFakeChannels::setNetwork(true);
}

CChannelWorld::~CChannelWorld() = default;

unsigned long CChannelWorld::address(int nServer) const
{
    return CFakeChannels::address(addressText(nServer));
}

std::unique_ptr<CCMLibraryX> CChannelWorld::make(CMLIB_MODE eMode)
{
    const bool bServer = eMode == cmlib_mode_server;
    return std::make_unique<CCMLibraryX>("own", "CDS", "peer", 60UL, bServer ? 1 : 0, bServer ? 2UL : 1UL, eMode);
}

long CChannelWorld::initialize(CCMLibraryX* pChannel, int nServer)
{
    CFakeChannels::setOwner(*pChannel, addressText(nServer));
    return pChannel->initialize();
}

void CChannelWorld::breakConnection(int nServer, int nOther)
{
    CFakeChannels::cutLink(addressText(nServer), addressText(nOther));
    CFakeChannels::restoreLink(addressText(nServer), addressText(nOther));
}

void CChannelWorld::passTime(unsigned long ulMs)
{
    CFakeClock::advance(ulMs);
}

unsigned long CChannelWorld::messageLimit() const
{
    return CFakeChannels::cLargestMessage;
}
