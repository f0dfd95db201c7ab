#pragma once

#include "CCMLibraryX.h"
#include "CDSBase.h"
#include "CDSExport.h"
#include "CDSNetProxyCdr.h"
#include "CDSNetProxyLimits.h"
#include "CDSNetProxyResync.h"
#include "CDSNetProxyTables.h"
#include "CDSNetProxyTime.h"
#include "CDSNetProxyWork.h"
#include "CDSResults.h"
#include "CPCritSec.h"
#include "CPEvent.h"
#include "CPortable.h"

#include <atomic>
#include <condition_variable>
#include <cstdarg>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class CCDSAPI;

/// A channel that one thread may let go while others still use it.
///
/// Threads    any; its lock is a leaf that is never held while anything is called.
class CChannelSlot
{
public:
    using CChannel = std::shared_ptr<CCMLibraryX>;

    /// Null when there is none.
    CChannel get() const
    {
        const std::lock_guard lock(m_mtx);
        return m_pChannel;
    }
    /// What was there goes outside the lock.
    void set(CChannel pChannel)
    {
        const std::lock_guard lock(m_mtx);
        m_pChannel.swap(pChannel);
    }

private:
    mutable std::mutex m_mtx;
    CChannel m_pChannel; // guarded by m_mtx
};

/// Bounds what peers may have waiting for the worker: whoever receives stops receiving when it is too much, and the
/// channel's own limits hold the peers back.
///
/// Threads    any; its lock is a leaf.
/// Units      bytes.
class CReceiveBudget
{
public:
    static constexpr std::uint64_t cMost = 64ULL * 1024 * 1024;
    /// Who waits goes on when so much is left: soon, or peers whose requests take a while would be taken for stuck.
    static constexpr std::uint64_t cEnough = cMost - cMost / 64;

    void take(std::uint64_t ullBytes);
    void give(std::uint64_t ullBytes);
    /// When more than the limit is taken, blocks until it is enough, unless it is closed.
    void awaitRoom();
    void open(bool bOpen);

private:
    std::mutex m_mtx;
    std::condition_variable m_cvRoom;
    std::uint64_t m_ullTaken = 0; // guarded by m_mtx, as the next
    bool m_bOpen = true;
};

/// What connects the local store with the stores of peer servers.
///
/// It listens for peers' requests on a server channel and sends its own on a client channel. Three threads block on the
/// channels and queue what they get as work items; one worker thread does all work, an item at a time, in the order of
/// the queue. To the store the proxy is a registrant of all calls that hears of every registration.
///
/// Threads    Initialize, Finalize and the destructor are called by one thread at a time, never by one of the proxy's
///            own nor in a callback of the store. The other public operations may be called by any thread; those below
///            "Distribution", "Client calls" and "CDRs" are the worker's, but for addClientCall and what it calls,
///            getClientCall, withClientCalls, the two that set the cache's limits, and waitingCDRs.
/// Ownership  frees with itself whatever is still queued, waiting or distributed.
/// Errors     results are 0 or a negative code of CDSResults.h or of the messaging library.
class CCDSNetProxy
{
public:
    CCDSNetProxy();
    ~CCDSNetProxy();
    CCDSNetProxy(const CCDSNetProxy&) = delete;
    CCDSNetProxy& operator=(const CCDSNetProxy&) = delete;

    /// Starts the exchange with peers. Stops it first if it runs.
    ///
    /// @param sIPAddr  the local server's address
    /// @return 0, or a negative code; Finalize has run then
    long Initialize(const std::string& sIPAddr, CCDSAPI* pCDSAPI);

    /// Stops it. What is queued, waiting or distributed stays, for the next start, which begins with what the loss of
    /// every connection entails. 0, from every state.
    long Finalize();

    /// Has the proxy's state written to the trace log by the worker.
    void Dump(int nFull);

    /// Accepts a receiver of trace output and does nothing with it: all output keeps going to the log file.
    static CDS_API void SetDbgOutHook(void (*pfnHook)(unsigned long, const char*, va_list));

    /// What the store calls: the message names the proxy by its request handle.
    static long CDSCallback(CCallbackMsg* pMsg);

    // Work items.

    /// A new item in the table; null without memory.
    std::shared_ptr<CCDSWork> newWork() noexcept;
    /// Puts an item into the table under the next ID, which it returns. An item that has this ID already stays.
    unsigned long addCWork(const std::shared_ptr<CCDSWork>& pWork);
    /// The item with this ID, or null.
    CCDSWork* getCCDSWork(unsigned long ulID);
    /// Takes the ID out of the table; the item lives while somebody holds it.
    void removeCCDSWork(unsigned long ulID);
    /// Queues an item for the worker.
    ///
    /// @throws std::bad_alloc  only when it is in the queue already
    void enqueueCCDSWork(const std::shared_ptr<CCDSWork>& pWork, EWorkOp eOp);
    /// Queues an item's request, to be sent by the worker. 0.
    long queueSend(CCDSWork* pWork);
    /// Ends an item: out of the table, and what depends on its end is done. Nothing when it has ended already.
    void endWork(const std::shared_ptr<CCDSWork>& pWork);

    // Channels.

    /// Sends an item's request, with up to five attempts. A peer that it cannot be sent to is marked unreachable.
    long sendRequest(CCDSWork* pWork);
    long sendResponse(CCDSWork* pWork);
    bool sendsInWorkerThread() const noexcept { return m_bSendInWorkerThread != 0; }
    CServerStates& serverStates() noexcept { return m_serverStates; }
    /// Null while there is none.
    CChannelSlot::CChannel serverChannel() const { return m_pcmLibraryServer.get(); }
    CChannelSlot::CChannel clientChannel() const { return m_pcmLibraryClient.get(); }
    std::uint32_t address() const noexcept { return m_dwIPAddr; }
    /// This proxy's registration with the store; empty while it has none.
    const std::string& registrationID() const noexcept { return m_sRegID; }
    CReceiveBudget& receiveBudget() noexcept { return m_receiveBudget; }

    // Client calls: calls of other servers that local registrants wait for.

    /// A local registration for a call that another server owns.
    long addClientCall(const CSharedMessage& pMsg);
    /// A local unregistration.
    long remClientCall(const CSharedMessage& pMsg);
    /// Null when there is none.
    std::shared_ptr<CClientCall> getClientCall(const std::string& sCallID);
    /// Whether what is sent to a call's owner now comes to it while it knows of a registration of ours.
    bool isAskedFor(const std::string& sCallID);
    /// Reads or changes a client call under its lock.
    template <class TAction> void withClientCalls(TAction action)
    {
        const CCritSecLock lock(m_csCalls, __LINE__, __LINE__);
        action(m_clientCalls);
    }
    /// Sends every registration that this server holds at another once more.
    long reregisterClientCalls(unsigned long ulIPAddr);

    // Distribution: who gets which call's changes.

    long addCallDataDistribution(bool bClient, const std::string& sCallID, const std::string& sRegID,
                                 unsigned long ulIPAddr);
    long remCallDataDistribution(bool bClient, const std::string& sCallID, unsigned long ulIPAddr);
    long remCallDataDistribution(bool bClient, unsigned long ulIPAddr);
    /// Notes what a peer has; null: nothing any more.
    long updateCallDataDistribution(const std::string& sCallID, unsigned long ulIPAddr, CCallData* pCallData);
    /// Sends every peer of a call what it lacks. The message stays the caller's.
    long sendCallDataDistribution(CCallbackMsg* pMsg);
    long registerClient(const std::string& sRegID, const std::string& sCallID);
    long unregisterClient(const std::string& sRegID);
    long unregisterClients(unsigned long ulIPAddr);
    /// Adds an entry without call data unless the call has one for the peer; no trace line.
    ///
    /// @return whether it was added
    bool reserveDistribution(bool bClient, const std::string& sCallID, const std::string& sRegID,
                             unsigned long ulIPAddr);
    /// Has an entry forget what its peer has; no trace line.
    ///
    /// @return whether there is one
    bool forgetPeerData(const std::string& sCallID, unsigned long ulIPAddr);
    /// Sends an unregistration for which there is no client call, unless there is one again.
    void withdrawRegistration(const std::string& sCallID, const std::string& sRegID, std::uint32_t dwServer);
    /// Has the store deliver a call's data to the proxy, which distributes it.
    long requestCallData(const std::string& sCallID);
    /// Hands the store call data of a peer's, which stays the caller's.
    ///
    /// @return as Update's; E_CDS_NOTFOUND when nobody but the proxy is registered for the call
    long giveToStore(CCallData* pData);

    // CDRs: finished calls' records on their way to the server that collects them.

    /// Sets how many bytes may wait; 0xFFFFFFFF or more: any. Nothing is evicted before the next CDR comes.
    void SetCDRDataCacheSize(unsigned long ulBytes);
    /// Sets after how many minutes a CDR that could not be sent is given up; 71,582 at the most, then it wraps.
    void SetCDRDataExpiration(unsigned long ulMinutes);
    /// How many are queued or kept. Any thread.
    unsigned long waitingCDRs() const noexcept;
    /// Keeps a CDR and sends it to the server that its message names.
    ///
    /// @return 0 or more; E_FAIL when the call has one waiting already, or on shutdown when it does not fit;
    ///         E_CDS_NULLDATA without a record; E_CDS_OUTOFMEMORY; else why it was not sent, and it waits
    long addCDRCallData(const CSharedMessage& pMsg);
    /// Sends what waits for a server once more, up to the first failure, which it returns.
    long sendPendingCDRCallData(unsigned long ulServer);
    /// A CDR has arrived.
    void removeSentCDRCallData(const CCallbackMsg* pMsg);
    /// Gives up what has waited for a server too long, telling operators of each.
    void removeCDRCallDataIfExpired(unsigned long ulServer);
    void removeCDRCallDataIfExpired(const CCallbackMsg* pMsg);
    /// Evicts the entry that came last.
    void removeOldestCDRCallData();
    bool findCDRCallDataByCallID(const std::string& sCallID) const;

    /// Appends what the clocks of the servers that we know show, in the order of their addresses: "address=ticks in ms,
    /// UTC file time,reachable;" each, ticks and time 0 when a server does not answer. Nothing while there is no
    /// channel.
    ///
    /// Threads    any; may take up to 250 ms for each server that does not answer.
    void GetTickCountsFromOtherServers(std::string& sResult);

private:
    /// An item taken from the queue, with what was guarded.
    struct SQueued
    {
        std::uint32_t dwID = 0; // 0: the queue was empty
        std::shared_ptr<CCDSWork> pWork;
        int nOp = WT_OP_NONE;
        SWorkResponse response;
    };

    // Start and stop.
    long start(const std::string& sIPAddr, CCDSAPI* pCDSAPI);
    void resumeExchange();
    long startServerChannel();
    long startClientChannel();
    long startReceiveThreads();
    void readConfiguration();
    bool startThread(void (*pfnEntry)(void*), const char* pszName, CPThreadHandle* phThread,
                     std::atomic<std::uint32_t>* pbRunning);
    void awaitThread(CPThreadHandle* phThread, const std::atomic<std::uint32_t>& bRunning);
    void dump(int nFull);

    // Threads.
    static void workerThread(void* pProxy);
    static void xpServerRequestThread(void* pProxy);
    static void xpClientRequestThread(void* pProxy);
    static void xpClientResponseThread(void* pProxy);
    void workerThreadFunc();
    void xpServerRequestThreadFunc();
    void xpClientRequestThreadFunc();
    void xpClientResponseThreadFunc();
    void takeRequest(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2, CMessageBytes pBuffer,
                     unsigned long ulSize);
    void queueServerEvent(EWorkOp eOp, unsigned long ulPeer);
    void queueClientConnected(unsigned long ulPeer, bool bLost);
    void queueRequest(unsigned long ulPeer, unsigned long ulContext1, unsigned long ulContext2, CMessageBytes pBuffer,
                      unsigned long ulSize);
    bool isAwaited(unsigned long ulRequestID);
    void postResponse(unsigned long ulRequestID, EWorkOp eOp, SWorkResponse response);

    long CDSCallbackImpl(CCallbackMsg* pMsg);
    bool isForeign(const CRegistrationData& registration) const;

    // The queue.
    void appendToQueue(CCDSWork& work, EWorkOp eOp) CDS_REQUIRES(m_csWork);
    void dropLeftOvers();
    void failUnanswered();
    SQueued nextWork();

    // The worker's dispatch.
    void drainQueue();
    void handleGuarded(SQueued& queued);
    bool handle(SQueued& queued);
    void onCallback(const std::shared_ptr<CCDSWork>& pWork);
    void onLocalRegistration(CCDSWork& work);
    void onPeerDisconnected(CCDSWork& work);
    void onReceivedRequest(CCDSWork& work);
    long dispatchRequest(CCDSWork& work, const std::string& sMsg);
    long onPeerCallData(CCDSWork& work, CCallbackMsg& msg);
    long onPeerCdrData(CCDSWork& work, CReceivedMessage& pMsg);
    long onPeerRegistration(CCDSWork& work, CCallbackMsg& msg);
    bool mayRegister(std::uint32_t dwPeer, const std::string& sCallID);
    long registerPeer(CCDSWork& work, const std::string& sRegID, const std::string& sCallID);
    long unregisterPeer(CCDSWork& work, const std::string& sRegID, const std::string& sCallID);
    void onServerConnected(CCDSWork& work);
    bool onSendRequest(CCDSWork& work);
    void onResponse(CCDSWork& work, const SWorkResponse& response);
    void onFailedCallData(CCDSWork& work);
    void noteAsked(const CCDSWork& work, bool bAsked);
    void onUnregistered(CCDSWork& work, bool bFailed);
    void onRegistered(CCDSWork& work);
    void onReregistered(CCDSWork& work);

    // Client calls.
    long countRegistration(const std::string& sCallID, std::uint32_t dwServer, std::shared_ptr<CClientCall>* ppCall,
                           std::shared_ptr<CCDSWork>* ppWork);
    long countUnregistration(const std::string& sCallID, const CSharedMessage& pMsg, std::uint32_t* pdwDropped,
                             std::uint32_t* pdwKept);
    void queryTimes(CClientCall& call);
    long sendRegistrationOf(const CClientCall& call, CWorkHold& hold, const CSharedMessage& pMsg);
    long reregister(const CClientCall& call, const std::string& sServer);
    void dropUnusedClientCall(const CCallbackMsg& msg);
    long sendInOrder(std::unique_lock<std::mutex>& order, CCDSWork& work, const std::string& sCallID,
                     std::uint32_t dwServer);

    // Distribution.
    CDistributionTable::CEntry peerEntry(const std::string& sCallID, std::uint32_t dwPeer);
    static long bringUpToDate(CCalldataDistribution& entry, CCallData& data);
    long distributeTo(CCalldataDistribution& entry, const std::string& sRegID, CCallbackMsg& msg, CCallData& data);
    long sendDifference(const CCalldataDistribution& entry, const std::string& sRegID, CCallbackMsg& msg,
                        CCallData& difference);

    // CDRs.
    bool makeRoomForCDR(std::uint32_t dwSize);
    CCDRCache::CEntry newCDRCallData(unsigned long ulServer, const std::string& sCallID, const CSharedMessage& pMsg);
    long sendCDR(CWorkHold& hold, const CCDRCallData& entry, const char* pszPrefix);
    void removeCDR(const CCDRCache::CEntry& pEntry, const char* pszOperation);
    bool removeIfExpired(const CCDRCache::CEntry& pEntry);

    CCDSAPI* m_pCDSAPI = nullptr;
    CDSNetProxyCallbackImpl m_callback; // lives as long as the proxy, so that no query finds it gone
    std::string m_sRegID;               // written while no callback of the store can run
    std::string m_sIPAddr;
    std::atomic<std::uint32_t> m_dwIPAddr = 0;

    CPCritSec m_csCalls; // guards the next two
    CClientCallTable m_clientCalls CDS_GUARDED_BY(m_csCalls);
    CDistributionTable m_distributions CDS_GUARDED_BY(m_csCalls);
    // Taken before m_csCalls: keeps the order in which a call's registrations and unregistrations are counted the order
    // in which they are sent.
    std::mutex m_mtxSendOrder;
    std::string
        m_sLeaving; // guarded by m_mtxSendOrder: the call whose unregistration is being sent by the worker itself
    CCDSNetProxyResync m_resync; // worker thread only, as the next
    CPeerRefusals m_refusals;

    CPCritSec m_csCDR;                             // never entered: cached CDRs belong to the worker
    CCDRCache m_cdrCache;                          // worker thread only
    std::atomic<unsigned long> m_ulCDRsQueued = 0; // for the worker, which has them in the cache next
    std::atomic<unsigned long> m_ulCDRsKept = 0;   // the cache's count, for other threads
    std::atomic<std::uint32_t> m_dwMaxCDRDataCacheSize = 0xFFFFFFFFU; // bytes; all ones: no limit
    std::atomic<std::uint64_t> m_ullCDRDataExpiration = 0;            // milliseconds
    CPCritSec m_csWork; // guards the next three, and what CCDSWork says; a leaf
    CCDSWork::CQueue m_lstWorkQueue CDS_GUARDED_BY(m_csWork);
    std::unordered_map<std::uint32_t, std::shared_ptr<CCDSWork>> m_mapWork CDS_GUARDED_BY(m_csWork); // ID -> item
    std::uint32_t m_dwNextWorkID CDS_GUARDED_BY(m_csWork) = 1;
    CPEvent m_evWork; // set once for every item queued
    CReceiveBudget m_receiveBudget;

    std::atomic<std::uint32_t> m_bStop = 0;
    std::atomic<bool> m_bReady = false; // started as a whole: the worker may begin
    bool m_bStarted = false;
    CPThreadHandle m_hWorkerThread = 0;
    std::atomic<std::uint32_t> m_bWorkerRunning = 0;
    CChannelSlot m_pcmLibraryServer;
    CPThreadHandle m_hServerRequestThread = 0;
    std::atomic<std::uint32_t> m_bServerRequestRunning = 0;
    CChannelSlot m_pcmLibraryClient;
    CPThreadHandle m_hClientRequestThread = 0;
    std::atomic<std::uint32_t> m_bClientRequestRunning = 0;
    CPThreadHandle m_hClientResponseThread = 0;
    std::atomic<std::uint32_t> m_bClientResponseRunning = 0;

    CServerStates m_serverStates;
    std::atomic<std::uint32_t> m_bSendInWorkerThread = 1;
};

/// The process's one proxy; null while there is no store.
CDS_API extern CCDSNetProxy* g_pCDSNetProxy;
