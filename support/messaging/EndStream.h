#pragma once

#include "ItemStream.h"

namespace Messaging {

/// How one exchange ended.
struct CExchangeEnd
{
    long lResult = 0;
    std::uint32_t dwPeer = 0;
    unsigned long ulRequestID = 0;
    CBody body;
    std::shared_ptr<CInboundBudget> pBudget; ///< null: nothing counts
};

/// Ends of exchanges, for the thread that fetches them. What bounds it: every end is one of a request that was
/// accepted, and its body counts against its connection.
using CEndStream = CItemStream<CExchangeEnd>;

} // namespace Messaging
