// The proxy: the three threads that block on the channels and queue what they get for the worker.

#include "CDSLogging.h"
#include "CDSNetProxy.h"
#include "CDSNetProxyMessages.h"
#include "CDSParams.h"
#include "CDSTraceText.h"

#include <limits>

namespace {

/// After a receive that had nothing to give.
constexpr unsigned long cPauseMs = 1000;

/// What a receive returned.
struct SReceived
{
    std::uint32_t dwResult = 0;
    unsigned long ulPeer = 0;
    unsigned long ulContext1 = 0xFFFFFFFFUL;
    unsigned long ulContext2 = 0xFFFFFFFFUL;
    unsigned long ulRequestID = 0;
    CMessageBytes pBuffer;
    unsigned long ulSize = 0;

    bool failed() const { return static_cast<std::int32_t>(dwResult) < 0; }
    bool nothing() const { return dwResult == CMLIB_NOTHING || dwResult == CMLIB_NOTHING_YET; }
};

/// One receive. One that throws counts as failed: a receive thread lives on.
template <class TReceive> SReceived received(TReceive receive)
{
    SReceived got;
    char* pBuffer = nullptr;
    try
    {
        got.dwResult = cdsCode(receive(got, &pBuffer));
    }
    catch (...)
    {
        got.dwResult = cdsCode(E_FAIL);
    }
    got.pBuffer.reset(pBuffer);
    if (pBuffer == nullptr)
        got.ulSize = 0;
    return got;
}

SReceived receiveRequest(CCMLibraryX& channel)
{
    return received([&](SReceived& got, char** ppBuffer) {
        return channel.receiveRequest(&got.ulPeer, &got.ulContext1, &got.ulContext2, ppBuffer, &got.ulSize);
    });
}

SReceived receiveResponse(CCMLibraryX& channel)
{
    return received([&](SReceived& got, char** ppBuffer) {
        return channel.receiveResponse(&got.ulPeer, &got.ulRequestID, ppBuffer, &got.ulSize);
    });
}

/// Queues what was received. Without memory it is dropped: the exchange times out, a lost event is followed by others.
template <class TQueue> void queued(TQueue queue)
{
    try
    {
        queue();
    }
    catch (...)
    {
        CCDSLogging::logError("CCDSNetProxy - what was received could not be queued");
    }
}

} // namespace

void CCDSNetProxy::xpServerRequestThread(void* pProxy)
{
    static_cast<CCDSNetProxy*>(pProxy)->xpServerRequestThreadFunc();
}

void CCDSNetProxy::xpClientRequestThread(void* pProxy)
{
    static_cast<CCDSNetProxy*>(pProxy)->xpClientRequestThreadFunc();
}

void CCDSNetProxy::xpClientResponseThread(void* pProxy)
{
    static_cast<CCDSNetProxy*>(pProxy)->xpClientResponseThreadFunc();
}

void CCDSNetProxy::xpServerRequestThreadFunc()
{
    CPortable::SetCurrentThreadName("CDSXPSrvReq");
    CCDSLogging::logWarning("CCDSNetProxy::xpServerRequestThreadFunc - starting");
    m_bServerRequestRunning = 1;
    const auto pChannel = serverChannel();
    for (;;)
    {
        m_receiveBudget.awaitRoom();
        SReceived got = receiveRequest(*pChannel);
        if (m_bStop != 0)
            break;
        if (got.nothing())
            CPortable::Sleep(cPauseMs);
        else if (got.dwResult == CMLIB_SERVER_CONNECTED)
        {
            CCDSLogging::logWarning("CCDSNetProxy::xpServerRequestThreadFunc, server connected, ipaddr 0x%08X",
                                    cdsCode(got.ulPeer));
            queued([&] { queueServerEvent(WT_OP_SERVER_CLIENTCONNECTED, got.ulPeer); });
        }
        else if (got.dwResult == CMLIB_SERVER_DISCONNECTED)
        {
            CCDSLogging::logWarning("CCDSNetProxy::xpServerRequestThreadFunc, server disconnected, ipaddr 0x%08X",
                                    cdsCode(got.ulPeer));
            queued([&] { queueServerEvent(WT_OP_SERVER_CLIENTDISCONNECTED, got.ulPeer); });
        }
        else if (!got.failed())
        {
            CCDSLogging::logWarning("CCDSNetProxy::xpServerRequestThreadFunc, receiveRequest, ipaddr 0x%08X",
                                    cdsCode(got.ulPeer));
            if (got.pBuffer != nullptr)
                queued([&] {
                    takeRequest(got.ulPeer, got.ulContext1, got.ulContext2, std::move(got.pBuffer), got.ulSize);
                });
        }
        else
        {
            // Two blanks before the address.
            CCDSLogging::logHRESULT(cdsResult(got.dwResult),
                                    "CCDSNetProxy::xpServerRequestThreadFunc, receiveRequest, ipaddr  0x%08X",
                                    cdsCode(got.ulPeer));
            CPortable::Sleep(cPauseMs);
        }
    }
    m_bServerRequestRunning = 0;
    CCDSLogging::logWarning("CCDSNetProxy::xpServerRequestThreadFunc - stopping");
}

/// Queues a request that is a list and has a name that peers may send; logs any other.
void CCDSNetProxy::takeRequest(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2,
                               CMessageBytes pBuffer, unsigned long ulSize)
{
    int nErrorPos = 0;
    const bool bCountable = ulSize <= static_cast<unsigned long>(std::numeric_limits<int>::max());
    // Verify compares the text's length with the size: a buffer without terminator, or with two, fails.
    if (!bCountable || !CParamsX::Verify(cdsReceivedText(pBuffer.get(), ulSize), static_cast<int>(ulSize), &nErrorPos))
        cdsLogBogusRequest(ulPeer, pBuffer.get(), ulSize, nErrorPos);
    else if (!checkMessage(pBuffer.get(), ulSize))
        CCDSLogging::logAlways("(Error) CCDSNetProxy::xpServerRequestThreadFunc, bogus receive buffer \"%s\"",
                               hexasciiMessage(pBuffer.get(), ulSize).c_str());
    else
        queueRequest(ulPeer, ulContext1, ulContext2, std::move(pBuffer), ulSize);
}

void CCDSNetProxy::xpClientRequestThreadFunc()
{
    CPortable::SetCurrentThreadName("CDSXPCliReq");
    CCDSLogging::logWarning("CCDSNetProxy::xpClientRequestThreadFunc - starting");
    m_bClientRequestRunning = 1;
    const auto pChannel = clientChannel();
    for (;;)
    {
        const SReceived got = receiveRequest(*pChannel);
        if (m_bStop != 0)
            break;
        if (got.nothing())
            CPortable::Sleep(cPauseMs);
        else if (got.dwResult == CMLIB_CLIENT_CONNECTED)
        {
            CCDSLogging::logWarning("CCDSNetProxy::xpClientRequestThreadFunc, client connected, ipaddr 0x%08X",
                                    cdsCode(got.ulPeer));
            queued([&] { queueClientConnected(got.ulPeer, false); });
        }
        else if (got.dwResult == CMLIB_CLIENT_DISCONNECTED)
        {
            // A lost peer is treated like one that came up: what it holds for us is sent again, and so found missing.
            CCDSLogging::logWarning("CCDSNetProxy::xpClientRequestThreadFunc, client disconnected, ipaddr 0x%08X",
                                    cdsCode(got.ulPeer));
            queued([&] { queueClientConnected(got.ulPeer, true); });
        }
        else if (got.failed())
        {
            // Two blanks before the address.
            CCDSLogging::logHRESULT(cdsResult(got.dwResult),
                                    "CCDSNetProxy::xpClientRequestThreadFunc, receiveRequest, ipaddr  0x%08X",
                                    cdsCode(got.ulPeer));
            CPortable::Sleep(cPauseMs);
        }
        // No requests come here: anything else is dropped.
    }
    m_bClientRequestRunning = 0;
    CCDSLogging::logWarning("CCDSNetProxy::xpClientRequestThreadFunc - stopping");
}

void CCDSNetProxy::xpClientResponseThreadFunc()
{
    CPortable::SetCurrentThreadName("CDSXPCliRsp");
    CCDSLogging::logWarning("CCDSNetProxy::xpClientResponseThreadFunc - starting");
    m_bClientResponseRunning = 1;
    const auto pChannel = clientChannel();
    for (;;)
    {
        SReceived got = receiveResponse(*pChannel);
        if (m_bStop != 0)
            break;
        CCDSLogging::logWarning("CCDSNetProxy::xpClientResponseThreadFunc, receiveResponse, ipaddr 0x%08X",
                                cdsCode(got.ulPeer));
        if (!isAwaited(got.ulRequestID))
            continue;
        queued([&] {
            EWorkOp eOp = WT_OP_CLIENT_RECEIVERESPONSE;
            if (!got.failed() && !checkMessage(cdsReceivedText(got.pBuffer.get(), got.ulSize).c_str(), got.ulSize))
            {
                CCDSLogging::logAlways("(Error) xpClientResponseThreadFunc, bogus response buffer \"%s\"",
                                       hexasciiMessage(got.pBuffer.get(), got.ulSize).c_str());
                eOp = WT_OP_DISCARD; // ended by the worker, as every item is
            }
            postResponse(got.ulRequestID, eOp,
                         {std::move(got.pBuffer), static_cast<std::uint32_t>(got.ulSize), cdsResult(got.dwResult)});
        });
    }
    m_bClientResponseRunning = 0;
    CCDSLogging::logWarning("CCDSNetProxy::xpClientResponseThreadFunc - stopping");
}
