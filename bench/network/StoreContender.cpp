#include "StoreContender.h"

#include "CDSSupport.h"

#include <stdexcept>
#include <unistd.h>

namespace {

/// Addresses that no other measurement has at the same time; all of these are this machine's.
std::string addressOf(unsigned uServer)
{
    const auto uID = static_cast<unsigned>(getppid());
    return "127." + std::to_string(64 + uID / 256 % 128) + '.' + std::to_string(uID % 256) + '.' +
           std::to_string(uServer);
}

void require(long lResult, const char* pszWhat)
{
    if (lResult < 0)
        throw std::runtime_error(std::string(pszWhat) + " is refused");
}

void fill(CCallData& record, const CUpdateMark& mark, std::uint64_t ullUpdate)
{
    unsigned char aMark[SampleCall::cPropertyBytes];
    mark.write(aMark);
    const CCDSTimestamp tsStamp = SampleCall::stamp(ullUpdate);
    bool bChanged = false;
    for (const std::string* const psName : SampleCall::propertyNames())
        require(record.setProperty(*psName, psName == SampleCall::propertyNames()[0] ? aMark : SampleCall::bytes(),
                                   SampleCall::cPropertyBytes, tsStamp, true, &bChanged),
                "a property");
    require(record.appendLogEntry(SampleCall::logName(), SampleCall::bytes(), SampleCall::cEntryBytes, tsStamp, true,
                                  &bChanged),
            "a log entry");
}

} // namespace

CStoreContender::CStoreContender(CBoard& board, const CPlan& plan, std::uint32_t dwTraceMask)
    : CContender(board, plan),
      m_dwTraceMask(dwTraceMask),
      m_sOwner(addressOf(1)),
      m_sWatcher(addressOf(2)),
      m_place("cds-bench", ""),
      m_vecUpdates(plan.ullCalls)
{
}

CStoreContender::~CStoreContender()
{
    if (m_pStore != nullptr)
        (void)m_pStore->Finalize(); // cannot fail
}

void CStoreContender::start(const std::string& sAddress)
{
    std::string sError;
    if (!m_place.configure({.sAddress = sAddress}, &sError))
        throw std::runtime_error(sError);
    CDSSupport::setTraceMask("OvnCDS", m_dwTraceMask);
    CCDSAPI::initLogger();
    m_pStore = std::make_unique<CCDSAPI>();
    require(m_pStore->Initialize(sAddress, 0), "the store's start");
}

void CStoreContender::startOwner()
{
    start(m_sOwner);
    // One component that writes all calls, and a registration that keeps each of them.
    require(m_pStore->Register(0, "writer", m_sOwner, "writer's own", "none", nullptr, 1), "a registration");
    for (std::uint64_t i = 0; i < m_plan.ullCalls; ++i)
        require(
            m_pStore->Register(0, "keeper " + std::to_string(i), m_sOwner, SampleCall::callID(i), "none", nullptr, 1),
            "a registration");
}

void CStoreContender::update(std::uint64_t ullCall, const CUpdateMark& mark)
{
    CCallData record(m_pStore.get(), SampleCall::callID(ullCall));
    fill(record, mark, m_vecUpdates[ullCall]++);
    require(m_pStore->Update("writer", &record, true), "an update");
}

void CStoreContender::startWatcher()
{
    start(m_sWatcher);
}

void CStoreContender::watchAll()
{
    for (std::uint64_t i = 0; i < m_plan.ullCalls; ++i)
        require(m_pStore->Register(reinterpret_cast<unsigned long>(&m_board), "watcher " + std::to_string(i), m_sOwner,
                                   SampleCall::callID(i), "*", onChange, 1),
                "a registration");
}

long CStoreContender::onChange(CCallbackMsg* pMessage)
{
    auto* const pRecord = dynamic_cast<CCallData*>(pMessage->getCallbackData());
    unsigned char* pBytes = nullptr;
    int nLength = 0;
    if (pRecord != nullptr && pRecord->getProperty(*SampleCall::propertyNames()[0], &pBytes, &nLength, nullptr) >= 0 &&
        nLength == SampleCall::cPropertyBytes)
        noteArrival(*reinterpret_cast<CBoard*>(pMessage->getReqHandle()), CUpdateMark::read(pBytes));
    return 0;
}

std::string CStoreContender::messageText()
{
    const CServerPlace place("cds-bench", ""); // records are traced
    CCallData record(SampleCall::callID(0));
    fill(record, {CUpdateMark::now(), 1}, 1);
    CCallbackMsg message(0UL, SampleCall::callID(1), ccbr_calldata, &record, 0);
    std::string sText;
    require(message.serialize(&sText), "a message");
    return sText;
}
