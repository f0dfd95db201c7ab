// The proxy: time queries of the store, answered from the clock of the server that owns a call.

#include "CDSNetProxyTime.h"

#include "CDSNetProxy.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

long CDSNetProxyCallbackImpl::getServerTickCount(unsigned long ulServer, int /*nReserved*/, unsigned long* pulTickCount)
{
    const auto pChannel = m_pProxy->serverChannel();
    return pChannel != nullptr
               ? cdsResult(static_cast<unsigned long>(pChannel->getServerTickCount(ulServer, pulTickCount)))
               : E_CDS_NOCHANNEL;
}

long CDSNetProxyCallbackImpl::getServerTimestamp(unsigned long ulServer, int /*nReserved*/,
                                                 unsigned long long* pullTimestamp)
{
    const auto pChannel = m_pProxy->serverChannel();
    return pChannel != nullptr
               ? cdsResult(static_cast<unsigned long>(pChannel->getServerTimestamp(ulServer, pullTimestamp)))
               : E_CDS_NOCHANNEL;
}

long CDSNetProxyCallbackImpl::getCallIDTimestamp(const std::string& sCallID, int nNoLocalFallback,
                                                 unsigned long long* pullTimestamp)
{
    return getCallTime(sCallID, nNoLocalFallback, pullTimestamp, nullptr);
}

long CDSNetProxyCallbackImpl::getCallTime(const std::string& sCallID, int nNoLocalFallback,
                                          unsigned long long* pullTimestamp, bool* pbOwnerAnswered)
{
    *pullTimestamp = 0;
    // The record may go while its owner is asked; it is held, so that the answer still never goes back.
    const auto pCall = m_pProxy->getClientCall(sCallID);
    if (pCall == nullptr)
        return getServerTimestamp(m_pProxy->address(), 0, pullTimestamp);
    long lResult = getServerTimestamp(pCall->m_dwServer, 0, pullTimestamp);
    if (pbOwnerAnswered != nullptr)
        *pbOwnerAnswered = lResult >= 0;
    if (lResult < 0 && nNoLocalFallback == 0)
        lResult = getServerTimestamp(m_pProxy->address(), 0, pullTimestamp);
    if (*pullTimestamp != 0)
        m_pProxy->withClientCalls([&](const CClientCallTable&) {
            pCall->m_ullTimestamp = std::max(pCall->m_ullTimestamp, *pullTimestamp);
            *pullTimestamp = pCall->m_ullTimestamp;
        });
    return lResult;
}

long CDSNetProxyCallbackImpl::getCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp)
{
    const auto pCall = m_pProxy->getClientCall(sCallID);
    if (pCall == nullptr)
    {
        CCDSTimestamp::getCurrent(ptsStamp);
        return 0;
    }
    unsigned long long ullTimestamp = 0;
    const long lResult = getServerTimestamp(pCall->m_dwServer, 0, &ullTimestamp);
    const CCDSTimestamp tsOwner(ullTimestamp, 0);
    m_pProxy->withClientCalls([&](const CClientCallTable&) {
        if (tsOwner > pCall->m_tsStamp)
            pCall->m_tsStamp = tsOwner;
        else
            pCall->m_tsStamp.increment();
        *ptsStamp = pCall->m_tsStamp;
    });
    return lResult;
}

void CCDSNetProxy::GetTickCountsFromOtherServers(std::string& sResult)
{
    const auto pChannel = serverChannel();
    if (pChannel == nullptr)
        return;
    for (const auto& [dwServer, lState] : m_serverStates.all())
    {
        unsigned long long ullTimestamp = 0;
        unsigned long ulTickCount = 0;
        if (m_callback.getServerTimestamp(dwServer, 0, &ullTimestamp) >= 0)
            (void)m_callback.getServerTickCount(dwServer, 0, &ulTickCount); // 0 when it fails
        std::array<char, 255> szPiece{};
        std::array<char, 24> szTime{};
        (void)std::snprintf(szPiece.data(), szPiece.size(), "%s=%lu,%s,%d;", pChannel->ipAddrToString(dwServer).c_str(),
                            ulTickCount & 0xFFFFFFFFUL, CPortable::ulltos(ullTimestamp, szTime.data()),
                            lState != 0 ? 1 : 0);
        sResult += szPiece.data();
    }
}
