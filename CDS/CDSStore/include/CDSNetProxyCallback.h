#pragma once

#include "CDSExport.h"
#include "CDSTimestamp.h"

#include <string>

/// Whom the store asks for times: the call's owner or a named server may live elsewhere.
///
/// Threads    called from any thread, also while another thread holds the store's lock; must not call the store.
/// Errors     results are ignored by the store: whatever was written to the out-argument is taken.
/// Units      time stamps are UTC file time (100 ns since 1601), tick counts milliseconds.
class CDS_API CDSNetProxyCallback
{
public:
    /// @param nReserved  1
    virtual long getCallIDTimestamp(const std::string& sCallID, int nReserved, unsigned long long* pullTimestamp) = 0;
    virtual long getCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) = 0;
    virtual long getServerTickCount(unsigned long ulServer, int nReserved, unsigned long* pulTickCount) = 0;
    virtual long getServerTimestamp(unsigned long ulServer, int nReserved, unsigned long long* pullTimestamp) = 0;

protected:
    ~CDSNetProxyCallback() = default; // whoever made one deletes it as what it is
};
