// The proxy: start and stop, configuration, and what it shows of itself.

#include "CDSNetProxy.h"

#include "CDSAPI.h"
#include "CDSLogging.h"
#include "KRException.h"
#include "KRRegLib.h"

#include <new>
#include <set>

CCDSNetProxy* g_pCDSNetProxy = nullptr;

namespace {

constexpr unsigned long cPollMs = 200;

// Who we are to the messaging library. Both channels present and expect the same.
constexpr const char* cChannelID = "5F3A9C21-7B4E-4D08-9A6C-2E81D04B7F13";
constexpr const char* cService = "CDS";
constexpr const char* cPeerChannelID = "8C2D6E47-1A93-4F5B-B0D2-6A7F39E1C845";
constexpr unsigned long cChannelTimeout = 60;

constexpr unsigned long cRegistrationTraceID = 0xFFFFFFFFUL;

long initializeChannel(CCMLibraryX& channel)
{
    return cdsResult(static_cast<unsigned long>(channel.initialize()));
}

} // namespace

CCDSNetProxy::CCDSNetProxy()
    : m_callback(this), m_csCalls("", 1), m_resync(this), m_csCDR("", 1), m_csWork("", 1), m_evWork(1, "", 1)
{
}

CCDSNetProxy::~CCDSNetProxy()
{
    (void)Finalize();            // always 0
    decltype(m_mapWork) mapWork; // goes outside the lock
    {
        const CCritSecLock lock(m_csWork, __LINE__, __LINE__);
        for (const auto& [dwID, pWork] : m_mapWork)
            pWork->m_bSilentEnd = true; // items that nobody handled end without a trace
        m_lstWorkQueue.clear();
        mapWork.swap(m_mapWork);
    }
    mapWork.clear();
    const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
    m_distributions.clear();
    m_clientCalls.clear();
}

long CCDSNetProxy::Initialize(const std::string& sIPAddr, CCDSAPI* pCDSAPI)
{
    if (m_bStarted)
        (void)Finalize(); // always 0
    m_bStarted = true;
    m_bStop = 0;
    m_bReady = false;
    m_evWork.reset();
    m_receiveBudget.open(true);
    const long lResult = cdsGuarded([&] { return start(sIPAddr, pCDSAPI); });
    if (lResult < 0)
    {
        (void)Finalize(); // always 0
        return lResult;
    }
    m_bReady = true;
    m_evWork.set(); // for what was queued meanwhile
    return lResult;
}

long CCDSNetProxy::start(const std::string& sIPAddr, CCDSAPI* pCDSAPI)
{
    m_sIPAddr = sIPAddr;
    m_pCDSAPI = pCDSAPI;
    resumeExchange();
    m_pCDSAPI->SetNetProxyCallback(&m_callback);

    if (!startThread(workerThread, "CDSNPWker", &m_hWorkerThread, &m_bWorkerRunning))
    {
        CCDSLogging::logHRESULT(E_CDS_NOTHREAD, "CCDSNetProxy::Initialize, CreateThread workerThread");
        return E_CDS_NOTHREAD;
    }
    if (const long lResult = startServerChannel(); lResult < 0)
        return lResult;
    m_dwIPAddr = static_cast<std::uint32_t>(serverChannel()->stringToIpAddr(m_sIPAddr));
    if (const long lResult = startClientChannel(); lResult < 0)
        return lResult;
    if (const long lResult = startReceiveThreads(); lResult < 0)
        return lResult;
    readConfiguration();
    m_sRegID = CCDSAPI::createGUID();
    return m_pCDSAPI->Register(reinterpret_cast<unsigned long>(this), m_sRegID, m_sIPAddr, "*", "@", CDSCallback,
                               cRegistrationTraceID);
}

/// Queues what makes this server and its peers whole again after a stop, in which every connection was lost and nobody
/// was there to hear of it: all of it comes before anything that a new connection brings.
void CCDSNetProxy::resumeExchange()
{
    m_serverStates.clear(); // nobody knows any more
    dropLeftOvers();
    std::set<std::uint32_t> setPeers;
    std::set<std::uint32_t> setServers;
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        for (const auto& [key, pEntry] : m_distributions.all())
            if (!pEntry->m_bClient)
                setPeers.insert(pEntry->m_dwPeer);
        for (const auto& [sCallID, pCall] : m_clientCalls.all())
            setServers.insert(pCall->m_dwServer);
    }
    for (const auto& [dwObjectID, pEntry] : m_cdrCache.all()) // no worker runs yet
        setServers.insert(pEntry->m_dwServerIPAddr);
    for (const std::uint32_t dwPeer : setPeers)
        queueServerEvent(WT_OP_SERVER_CLIENTDISCONNECTED, dwPeer);
    failUnanswered();
    for (const std::uint32_t dwServer : setServers)
        queueClientConnected(dwServer, true);
}

long CCDSNetProxy::startServerChannel()
{
    std::unique_ptr<CCMLibraryX> pMade;
    try
    {
        pMade.reset(new (std::nothrow)
                        CCMLibraryX(cChannelID, cService, cPeerChannelID, cChannelTimeout, 1, 2, cmlib_mode_server));
    }
    catch (const KRException& refusal)
    {
        CCDSLogging::logHRESULT(refusal.code(),
                                "Catch KRException. CCDSNetProxy::Initialize, new CCMLibraryX.2, loc:%s",
                                refusal.location());
        return refusal.code();
    }
    if (pMade == nullptr)
    {
        CCDSLogging::logHRESULT(E_CDS_NOCHANNEL, "CCDSNetProxy::Initialize, new CCMLibraryX.1");
        return E_CDS_NOCHANNEL;
    }
    const std::shared_ptr<CCMLibraryX> pChannel(std::move(pMade));
    m_pcmLibraryServer.set(pChannel);
    const long lResult = initializeChannel(*pChannel);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::Initialize, m_pcmLibraryServer->initialize");
    return lResult;
}

long CCDSNetProxy::startClientChannel()
{
    std::unique_ptr<CCMLibraryX> pMade;
    try
    {
        pMade.reset(new (std::nothrow)
                        CCMLibraryX(cChannelID, cService, cPeerChannelID, cChannelTimeout, 0, 1, cmlib_mode_client));
    }
    catch (const KRException& refusal)
    {
        // Two blanks behind the first full stop.
        CCDSLogging::logHRESULT(refusal.code(),
                                "Catch KRException.  CCDSNetProxy::Initialize, new CCMLibraryX.4, loc:%s",
                                refusal.location());
        return refusal.code();
    }
    if (pMade == nullptr)
    {
        CCDSLogging::logHRESULT(E_CDS_NOCHANNEL, "CCDSNetProxy::Initialize, new CCMLibraryX.3");
        return E_CDS_NOCHANNEL;
    }
    const std::shared_ptr<CCMLibraryX> pChannel(std::move(pMade));
    m_pcmLibraryClient.set(pChannel);
    const long lResult = initializeChannel(*pChannel);
    CCDSLogging::logHRESULT(lResult, "CCDSNetProxy::Initialize, m_pcmLibraryClient->initialize");
    return lResult;
}

long CCDSNetProxy::startReceiveThreads()
{
    const char* pszFailed = nullptr;
    if (!startThread(xpServerRequestThread, "CDSXPSrvReq", &m_hServerRequestThread, &m_bServerRequestRunning))
        pszFailed = "xpServerRequestThread";
    else if (!startThread(xpClientRequestThread, "CDSXPCliReq", &m_hClientRequestThread, &m_bClientRequestRunning))
        pszFailed = "xpClientRequestThread";
    else if (!startThread(xpClientResponseThread, "CDSXPCliRsp", &m_hClientResponseThread, &m_bClientResponseRunning))
        pszFailed = "xpClientResponseThread";
    if (pszFailed == nullptr)
        return 0;
    CCDSLogging::logHRESULT(E_CDS_NOTHREAD, "CCDSNetProxy::Initialize, CreateThread %s", pszFailed);
    return E_CDS_NOTHREAD;
}

/// Starts a thread that counts as running from now on, so that a stop waits for it even before its first step.
bool CCDSNetProxy::startThread(void (*pfnEntry)(void*), const char* pszName, CPThreadHandle* phThread,
                               std::atomic<std::uint32_t>* pbRunning)
{
    *pbRunning = 1;
    *phThread = CPortable::CreateThread(pfnEntry, this, pszName);
    if (*phThread == 0)
        *pbRunning = 0;
    return *phThread != 0;
}

void CCDSNetProxy::readConfiguration()
{
    try
    {
        KRRegLib::CRegLib configuration;
        KRRegLib::CRegKey key;
        if (configuration.rootKey().createOrOpenKey("Orvane\\CDS", &key) < 0)
            return;
        unsigned long ulValue = 0;
        if (key.queryValue("SendInWorkerThread", &ulValue) < 0)
        {
            ulValue = m_bSendInWorkerThread;
            (void)key.setValue("SendInWorkerThread", ulValue); // read-only configuration: the default holds
        }
        m_bSendInWorkerThread = ulValue != 0 ? 1 : 0;
    }
    catch (const KRException& refusal)
    {
        CCDSLogging::logHRESULT(refusal.code(), "CCDSNetProxy::Initialize, configuration, loc:%s", refusal.location());
    }
}

long CCDSNetProxy::Finalize()
{
    CCDSLogging::logWarning("CCDSNetProxy::Finalize");
    m_bStop = 1;
    m_evWork.set();
    m_receiveBudget.open(false);
    awaitThread(&m_hWorkerThread, m_bWorkerRunning);
    if (!m_sRegID.empty())
    {
        // The callbacks that read the ID run under the store's lock: once this returns none runs any more.
        (void)m_pCDSAPI->Unregister(m_sRegID); // the store logs it
        m_sRegID.clear();
    }
    if (const auto pChannel = serverChannel(); pChannel != nullptr)
    {
        (void)pChannel->uninitialize(); // always 0, here and below
        awaitThread(&m_hServerRequestThread, m_bServerRequestRunning);
        m_pcmLibraryServer.set(nullptr);
    }
    if (const auto pChannel = clientChannel(); pChannel != nullptr)
    {
        (void)pChannel->uninitialize();
        awaitThread(&m_hClientRequestThread, m_bClientRequestRunning);
        awaitThread(&m_hClientResponseThread, m_bClientResponseRunning);
        m_pcmLibraryClient.set(nullptr);
    }
    if (m_pCDSAPI != nullptr)
        m_pCDSAPI->resetNetProxyCallback(&m_callback);
    m_bStarted = false;
    CCDSLogging::logWarning("<<<CCDSNetProxy::Finalize");
    return 0;
}

/// Waits until a thread says that it has ended, then until it has.
void CCDSNetProxy::awaitThread(CPThreadHandle* phThread, const std::atomic<std::uint32_t>& bRunning)
{
    while (bRunning != 0)
        CPortable::Sleep(cPollMs);
    CPortable::JoinThread(*phThread);
    *phThread = 0;
}

void CCDSNetProxy::Dump(int nFull)
{
    if (const auto pWork = newWork(); pWork != nullptr)
        enqueueCCDSWork(pWork, nFull != 0 ? WT_OP_DUMP_FULL : WT_OP_DUMP);
}

void CCDSNetProxy::dump(int nFull)
{
    const auto pChannel = serverChannel();
    if (pChannel != nullptr)
    {
        CCDSLogging::logAlways("-- connected state.");
        for (const auto& [dwServer, lState] : m_serverStates.all())
            CCDSLogging::logAlways("   %s - %s", pChannel->ipAddrToString(dwServer).c_str(),
                                   lState != 0 ? "Connected" : "Disconnected");
    }
    CCDSLogging::logAlways("-- call on server.");
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        for (const auto& [sCallID, pCall] : m_clientCalls.all())
            pCall->dump(nFull);
    }
    CCDSLogging::logAlways("-- destination of calldata.");
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        for (const auto& [key, pEntry] : m_distributions.all())
            pEntry->dump(nFull);
    }
    CCDSLogging::logAlways("-- CDR.");
    for (const auto& [dwObjectID, pEntry] : m_cdrCache.all())
        pEntry->dump(nFull);
    if (pChannel != nullptr)
        pChannel->dump();
}

void CCDSNetProxy::SetDbgOutHook(void (* /*pfnHook*/)(unsigned long, const char*, va_list)) {}
