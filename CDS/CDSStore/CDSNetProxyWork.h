#pragma once

#include "CDSCallbackMsg.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <utility>

class CCDSNetProxy;

/// A message with its payload, shared by those who still need it; both go with the last.
using CSharedMessage = std::shared_ptr<CCallbackMsg>;

/// Takes a message and its payload over.
///
/// @throws std::bad_alloc  message and payload are deleted then
CSharedMessage cdsHoldMessage(CCallbackMsg* pMsg);

/// A message that came from a peer, with its payload; one owner, who may give both away.
struct CMessageDeleter
{
    void operator()(CCallbackMsg* pMsg) const noexcept;
};
using CReceivedMessage = std::unique_ptr<CCallbackMsg, CMessageDeleter>;

/// A buffer from or for the messaging library.
using CMessageBytes = std::unique_ptr<char[]>;

/// What the worker does with a work item.
enum EWorkOp : int
{
    WT_OP_NONE = 0,
    WT_OP_CDS_CALLBACK = 1,              ///< a local message for peers
    WT_OP_SERVER_CLIENTCONNECTED = 2,    ///< a peer connected to us
    WT_OP_SERVER_CLIENTDISCONNECTED = 3, ///< it is gone
    WT_OP_SERVER_RECEIVEREQUEST = 4,     ///< a peer's request
    WT_OP_CLIENT_SERVERCONNECTED = 5,    ///< our connection to a peer came up, or went down: both are handled alike
    WT_OP_CLIENT_SERVERDISCONNECTED = 6, ///< never queued
    WT_OP_CLIENT_SENDREQUEST = 7,        ///< our request to a peer
    WT_OP_CLIENT_RECEIVERESPONSE = 8,    ///< our exchange has ended
    WT_OP_DUMP = 9,
    WT_OP_DUMP_FULL = 10,
    WT_OP_DISCARD = 11 ///< ended without being handled, as every number from here on is
};

/// What one of our requests is for.
enum EWorkKind : int
{
    WORK_KIND_NONE = 0,
    WORK_KIND_SEND_CLIENT_CALLDATA = 1,
    WORK_KIND_SEND_CLIENT_REGISTER = 2,
    WORK_KIND_SEND_CLIENT_REREGISTER = 3,
    WORK_KIND_SEND_CLIENT_UNREGISTER = 4,
    WORK_KIND_SEND_CLIENT_CDRDATA = 7
};

/// How one of our exchanges ended.
struct SWorkResponse
{
    CMessageBytes pBuffer;
    std::uint32_t dwSize = 0;
    long hrResult = 0; ///< of the transport
};

/// One piece of work for the proxy's worker, and the context of one exchange with a peer: our request until its
/// response is back, or a peer's until we have answered it.
///
/// Threads    belongs to the thread that works on it; the operation, the response and the queue entry are guarded by
///            the proxy's m_csWork, since a response may come in while the request is still being sent.
/// Ownership  shared by the proxy's table and by whoever works on it: it ends when it is taken out of the table, and
///            lives until the last of them lets go. Made by CCDSNetProxy::newWork.
class CCDSWork
{
public:
    /// The item gets its ID, and its first trace line, when it enters the table.
    explicit CCDSWork(CCDSNetProxy* pProxy);
    ~CCDSWork();
    CCDSWork(const CCDSWork&) = delete;
    CCDSWork& operator=(const CCDSWork&) = delete;

    /// Sends m_pMsg to a peer as a request: at once, or by the worker, as configured. After success the item belongs to
    /// the worker and is not touched any more; after a failure the caller ends it.
    ///
    /// @return 0 or more; E_CDS_SERVERUNREACHABLE when the last send to that peer failed, nothing is sent then; what
    ///         serializing or sending reported; E_FAIL when the message is too long for a request; E_CDS_OUTOFMEMORY
    long clientReqSendCallbackMsg(unsigned long ulServer);

    /// Answers the peer. The status that it is told is 0, whatever the outcome was.
    long serverRspSendStatus(long lStatus);

    CCDSNetProxy* const m_pProxy;
    EWorkKind m_eKind = WORK_KIND_NONE;
    std::uint32_t m_dwID = 0; // also the request ID on the client channel
    CSharedMessage m_pMsg;

    // Our request.
    std::uint32_t m_dwServer = 0;
    std::string m_sRequest;   // its terminator is sent too
    bool m_bByWorker = false; // it has to be sent by the worker, whatever is configured
    bool m_bLost = false;     // of a connection event: it says that the connection was lost

    // A peer's request.
    std::uint32_t m_dwPeer = 0; // also of a connection event
    unsigned long m_ulContext1 = 0;
    unsigned long m_ulContext2 = 0;
    CMessageBytes m_pInBuf;
    std::uint32_t m_dwInLen = 0;
    std::string m_sAnswer;         // its terminator is sent too
    std::uint64_t m_ullCharge = 0; // bytes it holds of what may wait for the worker

private:
    friend class CCDSNetProxy;
    using CQueue = std::list<std::pair<std::uint32_t, std::uint32_t>>;

    long buildRequest();

    // Guarded by the proxy's m_csWork.
    int m_nOp = WT_OP_NONE;
    bool m_bHandedToChannel = false; // only then a response may be for it
    bool m_bSilentEnd = false;       // goes with the proxy: no trace line
    SWorkResponse m_response;
    CQueue m_lstQueueEntry; // its place in the queue while it has none, so that queuing it again needs no memory
};

/// Holds a work item on its way to a peer or to the worker, and ends it unless it got there.
class CWorkHold
{
public:
    explicit CWorkHold(std::shared_ptr<CCDSWork> pWork) noexcept : m_pWork(std::move(pWork)) {}
    ~CWorkHold();
    CWorkHold(const CWorkHold&) = delete;
    CWorkHold& operator=(const CWorkHold&) = delete;

    explicit operator bool() const noexcept { return m_pWork != nullptr; }
    CCDSWork* operator->() const noexcept { return m_pWork.get(); }
    const std::shared_ptr<CCDSWork>& shared() const noexcept { return m_pWork; }
    /// It got there.
    void letGo() noexcept { m_pWork.reset(); }

private:
    std::shared_ptr<CCDSWork> m_pWork;
};
