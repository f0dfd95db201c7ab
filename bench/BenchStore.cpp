#include "BenchStore.h"

#include "CDSSupport.h"
#include "SampleCall.h"

namespace {
const std::string g_sServerIP = "127.0.0.1";
}

std::uint64_t CBenchStore::s_ullDelivered = 0;

CBenchStore::CBenchStore()
{
    setTraceMask(cDefaultMask);
    CCDSAPI::initLogger();
    m_pStore = std::make_unique<CCDSAPI>();
    (void)m_pStore->Register(0, m_sWriter, g_sServerIP, "writer's own", "none", nullptr, 0);
}

void CBenchStore::watch(const std::string& sCallID)
{
    const std::string sRegID = "watcher " + std::to_string(m_ullWatchers++);
    (void)m_pStore->Register(m_ullWatchers, sRegID, g_sServerIP, sCallID, "*", onChange, 1);
}

bool CBenchStore::update(const std::string& sCallID, std::uint64_t ullUpdate, bool bCheckRegistrants)
{
    CCallData record(m_pStore.get(), sCallID);
    SampleCall::fill(record, ullUpdate);
    return m_pStore->Update(m_sWriter, &record, bCheckRegistrants) == 0;
}

void CBenchStore::forgetCalls()
{
    (void)m_pStore->Finalize(); // always 0
}

long CBenchStore::onChange(CCallbackMsg* pMessage)
{
    s_ullDelivered += pMessage->getCallbackData() != nullptr ? 1 : 0;
    return 0;
}

void CBenchStore::setTraceMask(std::uint32_t dwMask)
{
    CDSSupport::setTraceMask("OvnCDS", dwMask);
}
