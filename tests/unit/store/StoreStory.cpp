#include "StoreStory.h"

#include "CDSLogging.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <functional>

namespace {

constexpr unsigned long cTimingWaitMs = 10000;

std::string textOf(const unsigned char* pData, int nLength)
{
    return pData != nullptr ? std::string(reinterpret_cast<const char*>(pData), static_cast<std::size_t>(nLength))
                            : std::string();
}

unsigned char* bytesOf(std::string& sValue)
{
    return reinterpret_cast<unsigned char*>(sValue.data());
}

std::string describeNotice(CRegistrationData& notice)
{
    std::string sRegID;
    std::string sCallID;
    std::string sAddress;
    bool bRegister = false;
    (void)notice.getRegID(&sRegID); // always 0, here and below
    (void)notice.getCallID(&sCallID);
    (void)notice.getCDSIPAddr(&sAddress);
    (void)notice.getRegister(&bRegister);
    return sRegID + (bRegister ? " registered for " : " unregistered for ") + sCallID + " at " + sAddress;
}

} // namespace

CNews::CNews(const std::string& sCallID) : m_pData(std::make_unique<CCallData>(sCallID)) {}

CCDSTimestamp CNews::nextStamp()
{
    static std::atomic<unsigned long long> s_ullStamp = 1000;
    return CCDSTimestamp(s_ullStamp++, 0);
}

CNews& CNews::sets(const std::string& sName, const std::string& sValue)
{
    return sets(sName, sValue, nextStamp());
}

CNews& CNews::sets(const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp)
{
    std::string sBytes = sValue;
    bool bChanged = false;
    EXPECT_EQ(m_pData->setProperty(sName, bytesOf(sBytes), static_cast<int>(sBytes.size()), tsStamp, true, &bChanged),
              0);
    return *this;
}

CNews& CNews::appends(const std::string& sName, const std::string& sValue)
{
    return appends(sName, sValue, nextStamp());
}

CNews& CNews::appends(const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp)
{
    std::string sBytes = sValue;
    bool bChanged = false;
    EXPECT_EQ(
        m_pData->appendLogEntry(sName, bytesOf(sBytes), static_cast<int>(sBytes.size()), tsStamp, true, &bChanged), 0);
    return *this;
}

std::string describe(CCallData& data)
{
    const CCDSTimestamp tsAll(0, 0);
    std::string sText;
    (void)data.getCallID(&sText); // empty when it fails
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    CCDSTimestamp tsStamp(0, 0);
    for (int nIndex = 0; data.getProperty(&nIndex, &sName, &pData, &nLength, tsAll, &tsStamp) >= 0;)
        sText += " " + sName + "=" + textOf(pData, nLength);
    for (int nLog = 0; data.getLogName(nLog, &sName) >= 0; ++nLog)
        for (int nIndex = 0; data.getLogEntry(sName, &nIndex, &pData, &nLength, tsAll, &tsStamp) >= 0;)
            sText += " " + sName + "+" + textOf(pData, nLength);
    return sText;
}

std::string identity(const void* pObject)
{
    char szText[16];
    (void)std::snprintf(szText, sizeof szText, "0x%08X",
                        static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(pObject)));
    return szText;
}

CStoreStory::CStoreStory(Peers ePeers) : m_pStore(std::make_unique<CCDSAPI>())
{
    CFakeThreads::setCreateThreadRefused(ePeers == Peers::None);
}

CStoreStory::~CStoreStory()
{
    ends();
    CCDSLogging::finalizeLogger(); // records that a test still held may have begun a new log
}

void CStoreStory::beginsAgain()
{
    ends();
    m_pStore = std::make_unique<CCDSAPI>();
}

CStoreStory::CRecorder& CStoreStory::recorder(const std::string& sWho)
{
    const std::lock_guard lock(m_mtx);
    return m_mapRecorders.try_emplace(sWho, CRecorder{this, sWho}).first->second;
}

unsigned long CStoreStory::handleOf(const std::string& sWho)
{
    const CAllocationPause pause;
    return reinterpret_cast<unsigned long>(&recorder(sWho));
}

unsigned long CStoreStory::traceIDOf(const std::string& sWho)
{
    return static_cast<unsigned long>(std::hash<std::string>()(sWho)) & 0xFFFFFFFFUL;
}

long CStoreStory::registers(const std::string& sWho, const std::string& sCallID, const std::string& sEvent,
                            const std::string& sAddress)
{
    return m_pStore->Register(handleOf(sWho), sWho, sAddress, sCallID, sEvent, callback, traceIDOf(sWho));
}

long CStoreStory::registersMute(const std::string& sWho, const std::string& sCallID, const std::string& sEvent,
                                const std::string& sAddress)
{
    return m_pStore->Register(handleOf(sWho), sWho, sAddress, sCallID, sEvent, nullptr, traceIDOf(sWho));
}

void CStoreStory::reactsWith(const std::string& sWho, CReaction fnReaction)
{
    recorder(sWho).fnReaction = std::move(fnReaction);
}

void CStoreStory::leavesBehind(const CNews& news, const std::string& sAddress)
{
    std::string sCallID;
    EXPECT_EQ(news.data()->getCallID(&sCallID), 0);
    EXPECT_EQ(registersMute("one who leaves", sCallID, "none", sAddress), 0);
    EXPECT_EQ(updates("one who leaves", news), 0);
    EXPECT_EQ(unregisters("one who leaves"), 0);
    hears();
}

long CStoreStory::starts(const std::string& sAddress)
{
    const long lResult = m_pStore->Initialize(sAddress, 1);
    EXPECT_TRUE(CFakeThreads::alive() == 0 || CFakeClock::awaitWaiters(1, cTimingWaitMs))
        << "the timing thread does not wait";
    return lResult;
}

void CStoreStory::lets(unsigned long long ullMs)
{
    const bool bRunning = CFakeThreads::alive() > 0;
    EXPECT_TRUE(!bRunning || CFakeClock::awaitWaiters(1, cTimingWaitMs)) << "the timing thread does not wait";
    CFakeClock::advance(ullMs);
    EXPECT_TRUE(!bRunning || CFakeClock::awaitWaiters(1, cTimingWaitMs)) << "the timing thread does not come back";
}

long CStoreStory::callback(CCallbackMsg* pMessage)
{
    auto& recorder = *reinterpret_cast<CRecorder*>(pMessage->getReqHandle());
    CReaction fnReaction; // a copy: a reaction may give its registrant another one
    {
        const CAllocationPause pause;
        fnReaction = recorder.fnReaction;
        CHeard heard;
        heard.sWho = recorder.sName;
        heard.ulReqHandle = pMessage->getReqHandle();
        heard.ulTraceID = pMessage->getTraceID();
        heard.sRegID = pMessage->getRegID();
        heard.sCDSIPAddr = pMessage->getCDSIPAddr();
        heard.eReason = pMessage->getCallbackReason();
        heard.pMessage = pMessage;
        heard.pPayload = pMessage->getCallbackData();
        heard.idThread = std::this_thread::get_id();
        heard.vecLocks = CFakeLocks::heldByThisThread();
        if (auto* const pRecord = dynamic_cast<CCallData*>(pMessage->getCallbackData()); pRecord != nullptr)
            heard.sText = describe(*pRecord);
        if (auto* const pNotice = dynamic_cast<CRegistrationData*>(pMessage->getCallbackData()); pNotice != nullptr)
        {
            heard.sText = describeNotice(*pNotice);
            (void)pNotice->getUpdateTimestamp(&heard.tsNotice); // always 0
        }
        const std::lock_guard lock(recorder.pStory->m_mtx);
        recorder.pStory->m_vecHeard.push_back(std::move(heard));
    }
    return fnReaction ? fnReaction(pMessage) : 0;
}

std::vector<CHeard> CStoreStory::hearsInFull()
{
    const std::lock_guard lock(m_mtx);
    return std::exchange(m_vecHeard, {});
}

std::vector<std::string> CStoreStory::hears()
{
    std::vector<std::string> vecTexts;
    for (const CHeard& heard : hearsInFull())
        vecTexts.push_back(heard.sWho + ": " + heard.sText);
    return vecTexts;
}
