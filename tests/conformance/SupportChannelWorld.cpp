#include "CDSSupport.h"
#include "ChannelWorld.h"
#include "SupportChannel.h"
#include "TemporaryDirectory.h"
#ifdef CDS_TEST_ENCRYPTED
#include "TestCertificates.h"
#endif

struct CChannelWorld::CState
{
    CTemporaryDirectory directory;
    CSupportChannels channels{directory};
#ifdef CDS_TEST_ENCRYPTED
    CTestCertificates certificates{directory};
#endif
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
#ifdef CDS_TEST_ENCRYPTED
    m_pState->channels.configure(nServer, m_pState->certificates.settingsFor(CSupportChannels::addressText(nServer)));
#else
    m_pState->channels.configure(nServer);
#endif
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
