#include "ProxyStory.h"

#include "CDSLogging.h"

#include <gtest/gtest.h>

#include <algorithm>

std::size_t CProxyWorld::s_uRunning = 0;

CProxyWorld::CProxyWorld()
{
    s_uRunning = 0;
    CFakeClock::setSleepAdvances(true);
    CFakeLog::setTraceMask("OvnCDS", CStoreStory::cAllLevels);
}

CProxyWorld::~CProxyWorld()
{
    CCDSLogging::finalizeLogger();
}

void CProxyWorld::settle()
{
    for (;;)
    {
        // Read first: what a worker sends once the receivers are idle may be on its way into another's queue when all
        // workers are seen waiting.
        const std::size_t uActivity = CFakeChannels::activity();
        // Its first line, too, may come late, and its pass may give the workers something to do.
        ASSERT_TRUE(CFakeClock::awaitWaiters(s_uRunning, cTimingWaitMs)) << "a timing thread does not come back";
        ASSERT_TRUE(CFakeChannels::awaitReceivers()) << "a receive thread does not come back";
        ASSERT_TRUE(CFakeClock::awaitWaiters(s_uRunning, cNoTimeLimit)) << "a worker does not come back";
        if (uActivity == CFakeChannels::activity())
            return;
    }
}

CServer::CServer(const std::string& sAddress) : m_sAddress(sAddress), m_pStore(std::make_unique<CCDSAPI>())
{
    m_pProxy = g_pCDSNetProxy;
}

CServer::~CServer()
{
    (void)stops(); // always 0
}

long CServer::starts()
{
    CFakeChannels::setMaker(m_sAddress);
    const std::size_t uThreads = CFakeThreads::alive();
    const long lResult = m_pStore->Initialize(m_sAddress, 0);
    // The store says nothing of its proxy: of five threads four are the proxy's.
    if (CFakeThreads::alive() == uThreads + 5)
    {
        m_bRunning = true;
        ++CProxyWorld::s_uRunning;
        CProxyWorld::settle();
    }
    return lResult;
}

long CServer::stops()
{
    if (m_bRunning)
        --CProxyWorld::s_uRunning;
    m_bRunning = false;
    return m_pStore->Finalize();
}

void CServer::beginsAgain()
{
    (void)stops(); // always 0
    m_pStore.reset();
    m_mapRecorders.clear();
    m_vecHeard.clear();
    m_pStore = std::make_unique<CCDSAPI>();
    m_pProxy = g_pCDSNetProxy;
}

long CServer::registers(const std::string& sWho, const std::string& sCallID, const std::string& sOwner,
                        const std::string& sEvent)
{
    unsigned long ulHandle = 0;
    {
        const std::lock_guard lock(m_mtx);
        CRecorder& recorder = m_mapRecorders.try_emplace(sWho, CRecorder{this, sWho}).first->second;
        ulHandle = reinterpret_cast<unsigned long>(&recorder);
    }
    return m_pStore->Register(ulHandle, sWho, sOwner, sCallID, sEvent, callback, 7);
}

long CServer::unregisters(const std::string& sWho)
{
    return m_pStore->Unregister(sWho);
}

long CServer::updates(const std::string& sWho, const CNews& news)
{
    return m_pStore->Update(sWho, news.data(), false);
}

long CServer::callback(CCallbackMsg* pMessage)
{
    auto& recorder = *reinterpret_cast<CRecorder*>(pMessage->getReqHandle());
    auto* const pRecord = dynamic_cast<CCallData*>(pMessage->getCallbackData());
    const std::lock_guard lock(recorder.pServer->m_mtx);
    if (pRecord == nullptr)
    {
        recorder.pServer->m_vecHeard.push_back(recorder.sName + ": notice");
        return 0;
    }
    recorder.pServer->m_vecHeard.push_back(recorder.sName + ": " + describe(*pRecord));
    std::string sCallID;
    (void)pRecord->getCallID(&sCallID); // empty when it fails
    auto& pCopy = recorder.mapCopies[sCallID];
    if (pCopy == nullptr)
        pCopy = std::make_unique<CCallData>(sCallID);
    bool bChanged = false;
    return pCopy->merge(pRecord, &bChanged);
}

std::vector<std::string> CServer::hears()
{
    const std::lock_guard lock(m_mtx);
    return std::exchange(m_vecHeard, {});
}

std::string CServer::copyOf(const std::string& sWho, const std::string& sCallID)
{
    const std::lock_guard lock(m_mtx);
    const auto it = m_mapRecorders.find(sWho);
    if (it == m_mapRecorders.end() || !it->second.mapCopies.contains(sCallID))
        return "";
    return describe(*it->second.mapCopies.at(sCallID));
}

std::string requestOf(const std::string& sMessage)
{
    CParamsX list;
    list.addParam(std::string("NETREQ_CLIENT_CCALLBACKMSG"), 3.14F);
    list.addParam(sMessage, 3.14F);
    return list.paramList();
}

namespace {
std::string requestWith(const std::string& sRegID, CDSCALLBACKREASON eReason, CCallbackData& payload)
{
    CCallbackMsg msg(0UL, sRegID, eReason, &payload, 0);
    std::string sText;
    EXPECT_EQ(msg.serialize(&sText), 0);
    return requestOf(sText);
}
} // namespace

std::string registrationRequest(const std::string& sRegID, const std::string& sOwner, const std::string& sCallID,
                                bool bRegister)
{
    CRegistrationData registration(sRegID, sOwner, sCallID, bRegister, CCDSTimestamp(0, 0));
    return requestWith(sRegID, ccbr_registration, registration);
}

std::string callDataRequest(const std::string& sRegID, const CNews& news, CDSCALLBACKREASON eReason)
{
    return requestWith(sRegID, eReason, *news.data());
}

CRequest takenApart(const std::string& sRequest)
{
    const CParamsX list(sRequest);
    const CParamsX message(list.getStringParamAt(1));
    CRequest request{list.getStringParamAt(0),    message.getStringParamAt(0), message.getStringParamAt(1),
                     message.getStringParamAt(2), message.getStringParamAt(3), ""};
    if (request.sReason == "2")
    {
        const CParamsX payload(request.sPayload);
        request.sText = (payload.getBOOLParamAt(3) ? "register " : "unregister ") + payload.getStringParamAt(0) +
                        " for " + payload.getStringParamAt(2) + " at " + payload.getStringParamAt(1);
    }
    else
    {
        CCallData record(request.sPayload, true);
        request.sText = request.sRegID + ": " + describe(record);
    }
    return request;
}

std::vector<std::string> sentInShort(const std::string& sOwner)
{
    std::vector<std::string> vecSent;
    for (const auto& sent : CFakeChannels::sent(sOwner))
        if (sent.lResult >= 0)
            vecSent.push_back(CFakeChannels::addressText(sent.ulPeer) + " " + takenApart(sent.sBytes.c_str()).sText);
    return vecSent;
}

std::size_t placeInLog(const std::string& sPart)
{
    const auto vecTexts = CFakeLog::texts();
    const auto it = std::find_if(vecTexts.begin(), vecTexts.end(),
                                 [&](const std::string& sText) { return sText.find(sPart) != std::string::npos; });
    EXPECT_NE(it, vecTexts.end()) << sPart;
    return static_cast<std::size_t>(it - vecTexts.begin());
}
