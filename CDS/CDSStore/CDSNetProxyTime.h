#pragma once

#include "CDSNetProxyCallback.h"

#include <string>

class CCDSNetProxy;

/// Answers the store's time queries from the servers' clocks. The times of a call never go back.
///
/// Threads    any; a query holds no lock while it asks another server.
/// Errors     E_CDS_NOCHANNEL while the proxy is not running, else what the channel reports.
class CDSNetProxyCallbackImpl final : public CDSNetProxyCallback
{
public:
    explicit CDSNetProxyCallbackImpl(CCDSNetProxy* pProxy) noexcept : m_pProxy(pProxy) {}

    /// @param nNoLocalFallback  0: when the call's owner does not answer, this server's clock does
    long getCallIDTimestamp(const std::string& sCallID, int nNoLocalFallback,
                            unsigned long long* pullTimestamp) override;
    /// The same.
    ///
    /// @param pbOwnerAnswered  out, may be null: whether the call's owner did
    long getCallTime(const std::string& sCallID, int nNoLocalFallback, unsigned long long* pullTimestamp,
                     bool* pbOwnerAnswered);
    long getCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) override;
    long getServerTickCount(unsigned long ulServer, int nReserved, unsigned long* pulTickCount) override;
    long getServerTimestamp(unsigned long ulServer, int nReserved, unsigned long long* pullTimestamp) override;

private:
    CCDSNetProxy* const m_pProxy;
};
