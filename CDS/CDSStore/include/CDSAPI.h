#pragma once

#include "CDSCallData.h"
#include "CDSCallbackMsg.h"
#include "CDSExport.h"
#include "CDSResults.h"
#include "CDSTimestamp.h"

#include <atomic>
#include <memory>
#include <string>

class CCDSNetProxy;
class CDSNetProxyCallback;
class CEventLogHelp;
class CPCritSec;
class CPEvent;
class CPThread;

/// The store as its host's components see it.
///
/// There is no virtual destructor: the host destroys the store as a CCDSAPI, never through this interface.
class CDS_API CBaseCDSAPI
{
public:
    virtual long Initialize(const std::string& sServerIP, unsigned long ulNumber) = 0;
    virtual long Finalize() = 0;
    virtual long Register(unsigned long ulReqHandle, const std::string& sRegID, const std::string& sIP,
                          const std::string& sCallID, const std::string& sEvent, long (*pfnCallback)(CCallbackMsg*),
                          unsigned long ulTraceID) = 0;
    virtual long Unregister(const std::string& sRegID) = 0;
    virtual long Update(const std::string& sRegID, CCallData* pData, bool bCheckRegistrants) = 0;
    virtual unsigned long long GetCallIDTimestamp(const std::string& sCallID) = 0;
    virtual long GetCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) = 0;
    virtual unsigned long GetServerTickCount(unsigned long ulServer) = 0;
    virtual unsigned long long GetServerTimestamp(unsigned long ulServer) = 0;

protected:
    ~CBaseCDSAPI() = default;
};

/// The call data store. A process has one.
///
///     CCDSAPI::initLogger();
///     auto pStore = std::make_unique<CCDSAPI>();
///     pStore->Initialize("127.0.0.1", 0);
///     pStore->Register(0, "watcher", "127.0.0.1", "sip:4711", "*", onChange, 1);
///     CCallData call(pStore.get(), "sip:4711");
///     call.setProperty(CDSPROP_CALLERID, pBytes, nBytes);
///     pStore->Register(0, "writer", "127.0.0.1", "sip:4711", "none", nullptr, 2);
///     pStore->Update("writer", &call, true);   // onChange runs here, with exactly what changed
///     pStore->Finalize();
///
/// The store keeps one record per call. An update is merged into it, and the difference goes to every registrant of
/// the call and of call ID "*" whose event asks for it. When the last registrant of a call leaves, its data is kept
/// for 30 seconds (a new registrant takes it up again) and then dropped, at the latest 10 seconds later; registrants
/// of "*" get it a last time, the event being "EOC", if the call belonged to this server. A message does not name the
/// event: who registers for "EOC" alone knows what he gets.
///
/// Threads    every operation may be called from any thread, but Initialize, Finalize and the destructor by one at a
///            time. A registrant's callback runs on the thread whose call
///            caused it (the timing thread for "EOC"), with the store locked: it must not call Register, Unregister,
///            Update, GetCallData or Finalize, nor wait for a thread that does.
/// Ownership  the store never keeps a record that it is handed. The record that a callback gets is the store's own or
///            one made for this delivery: read it until the callback returns, copy what is to be kept.
/// Errors     results are 0 or a negative code of CDSResults.h. The constructor and createGUID throw std::bad_alloc.
///            A callback that throws on a host thread ends the operation, whose caller gets the exception; of
///            std::bad_alloc and KRException it gets the result code. What was done until then stays done: a
///            registration stands, data is merged.
class CDS_API CCDSAPI final : public CBaseCDSAPI
{
public:
    /// Makes the store; starts no thread. When its lock or event cannot be made this is written to the trace log, and
    /// Initialize, Register, Unregister, Update and GetCallData return E_CDS_OUTOFMEMORY.
    CCDSAPI();

    /// Stops whatever still runs and frees everything. Ends trace logging.
    ~CCDSAPI();
    CCDSAPI(const CCDSAPI&) = delete;
    CCDSAPI& operator=(const CCDSAPI&) = delete;

    /// Starts the store: its timing thread and the exchange with peers. Stops them first if they run.
    ///
    /// @param sServerIP  this server's own address, as registrants name it
    /// @param ulNumber   written to the trace log, nothing else
    /// @return 0, also when the exchange with peers could not start; E_FAIL when the timing thread could not;
    ///         E_CDS_OUTOFMEMORY
    long Initialize(const std::string& sServerIP, unsigned long ulNumber) override;

    /// Stops the store and frees the calls' data. Registrations stay. Must not run on a thread of the store, nor in a
    /// callback.
    ///
    /// @return 0
    long Finalize() override;

    /// Registers interest in one call, or in all.
    ///
    /// @param ulReqHandle  handed back in every message, unchanged
    /// @param sRegID       unique name of the registration
    /// @param sIP          address of the server that holds the call's data, compared with this server's as text
    /// @param sCallID      the call, or "*" for every call
    /// @param sEvent       "*": changes, and the data there is at once; "@": changes, and every registration and
    ///                     unregistration in the store; "EOC": the last delivery of a call; any other: no changes
    /// @param pfnCallback  may be null; its result is only logged
    /// @param ulTraceID    names the registrant in trace lines, 32 bits
    /// @return 0; E_CDS_EXISTS when the ID is registered already; E_CDS_OUTOFMEMORY: then the registration may stand
    /// all
    ///         the same, when a notice or the first data could not be sent, and a repeat gets E_CDS_EXISTS
    long Register(unsigned long ulReqHandle, const std::string& sRegID, const std::string& sIP,
                  const std::string& sCallID, const std::string& sEvent, long (*pfnCallback)(CCallbackMsg*),
                  unsigned long ulTraceID) override;

    /// Afterwards the callback is not called any more.
    ///
    /// @return 0; E_CDS_NOTFOUND; E_CDS_OUTOFMEMORY: the registration is gone when only a notice could not be sent,
    ///         else it stands
    long Unregister(const std::string& sRegID) override;

    /// Merges data into the record of the call that the data names, and delivers what changed.
    ///
    /// @param sRegID             the updater's registration; it gets its own change too if registered for it
    /// @param pData              stays the caller's; the caller keeps it still during the call
    /// @param bCheckRegistrants  true: refuse data that nobody but the updater is registered for by its call ID
    /// @return 0; E_CDS_NULLDATA; E_CDS_NOTFOUND when the updater is unknown or nobody is registered;
    ///         E_CDS_OUTOFMEMORY, when the data could not be taken in, or a message not be made: then it is merged, and
    ///         the registrants from there on have not been told
    long Update(const std::string& sRegID, CCallData* pData, bool bCheckRegistrants) override;

    /// Delivers the whole data of a call to one registrant, whatever it is registered for.
    ///
    /// @return 0, also without callback; E_CDS_NOTFOUND when there is no such data or registration; E_CDS_OUTOFMEMORY
    long GetCallData(const std::string& sRegID, const std::string& sCallID);

    // Times, of the owner of a call or of a named server when a time-query callback is set, else of this machine. They
    // take no lock of the store. A query that fails gives 0, or leaves the stamp as it was. A server is named by its
    // IPv4 address, first byte highest.

    /// UTC file time.
    unsigned long long GetCallIDTimestamp(const std::string& sCallID) override;
    /// @return 0 whatever happened
    long GetCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) override;
    /// Milliseconds, 32 bits.
    unsigned long GetServerTickCount(unsigned long ulServer) override;
    /// UTC file time.
    unsigned long long GetServerTimestamp(unsigned long ulServer) override;

    /// Sets whom the time queries ask; null for the local clock. It stays the caller's and outlives its use.
    void SetNetProxyCallback(CDSNetProxyCallback* pCallback);

    /// Asks every server that this one has sent to, or been connected to, for its clock.
    ///
    /// @param sText  what is appended, for each in the order of the addresses: "10.0.0.1=5,7,1;", its tick count in
    ///               milliseconds, its UTC file time, and 1 when it is reachable; ticks and time are 0 when it does not
    ///               answer within 250 ms
    void GetTickCountFromOtherServers(std::string& sText);

    // CDRs: the records of finished calls, for the server that collects them.

    /// Hands a finished call's record on. It is kept in a cache, and sent until the destination has acknowledged it, it
    /// is too old, or a later one needs its room; operators are told of those that became too old. Of a call whose
    /// record waits already it is refused, later and by a trace line. One that alone is larger than the cache holds up
    /// all exchange with peers until the cache is made larger: hosts see to it that there is none.
    ///
    /// @param sDestination  the collecting server's address
    /// @param sCallID       written to the trace log; what counts is the record's own
    /// @param pData         stays the caller's; it is copied
    /// @return 0 when it is queued; E_CDS_NULLDATA; E_CDS_OUTOFMEMORY
    long SendCDRDataToHQ(const std::string& sDestination, const std::string& sCallID, CCallData* pData);

    /// Sets who gets the CDRs that peers send; null: nobody, and they are dropped. The message names the sender by its
    /// address, its payload is a CCallData. It runs on the proxy's worker thread, which does nothing else meanwhile,
    /// without a lock of the store. Called before Initialize, so that none comes too early.
    ///
    /// Ownership  a result of 0 or more: the callback has taken message and payload, and deletes the payload, then the
    ///            message, when it is done with them. A negative result, or an exception: the store deletes both. The
    ///            sender's copy is gone in any case.
    void SetCDRDataCallBack(long (*pfnCallback)(CCallbackMsg*));

    /// Hands a message to the CDR callback as if a peer had sent it. It never deletes it.
    ///
    /// @return what the callback returns; 0 without one
    long SendRcvdCDRDataToOVN(CCallbackMsg* pMsg);

    /// Sets how many bytes of values the waiting CDRs may have; 0xFFFFFFFF, the default: any number. When there is no
    /// room for a new one, those that came last are evicted.
    void SetCDRDataCacheSize(unsigned long ulBytes);
    /// Sets after how many minutes a CDR is given up when sending fails; 0 by default, at most 71,582.
    void SetCDRDataExpiration(unsigned long ulMinutes);

    /// CDRs that were handed on and are still here: queued, on their way, or waiting until they can be sent. 0 when
    /// each has been acknowledged, given up, evicted or refused. Takes no lock of the store.
    unsigned long GetCDRDataCacheCount() const;

    /// Starts trace logging; the host calls it before it uses the store.
    static void initLogger();
    /// Ends trace logging; a later trace line starts it again.
    static void finalizeLogger();

    /// A new random identifier.
    static std::string createGUID();

    /// Has the state of the exchange with peers written to the trace log, by its own thread.
    ///
    /// @param nFull  not 0: with every detail
    void Dump(int nFull);

private:
    friend class CCDSNetProxy; // takes its time-query callback back, hands CDRs on and reports their end

    class CRegIDData;
    class CUnregData;
    class CTables;

    static void timingThread(void* pStore);
    void timingThreadFunc();
    void expireUnregData();
    void stop();

    bool isWhole() const noexcept;
    void resetNetProxyCallback(CDSNetProxyCallback* pCallback) noexcept;
    long deliverCDR(CCallbackMsg* pMsg, bool* pbCalled);
    void reportExpiredCDR(const std::string& sCallID);
    long registerLocked(CRegIDData&& data);
    long sendCurrentData(const CRegIDData& registrant);
    long unregisterLocked(const std::string& sRegID);
    long sendRegistration(const std::string& sRegID, const std::string& sIP, const std::string& sCallID,
                          bool bRegister);
    long updateLocked(const std::string& sRegID, CCallData* pData, bool bCheckRegistrants);
    CCallData* insertCallData(const std::string& sCallID, CCallData* pData, bool* pbChanged, CCallData** ppDiff);
    CCallData* changeCallData(CCallData* pCurrent, CCallData* pData, bool* pbChanged, CCallData** ppDiff);
    long sendCallData(const std::string& sCallID, const std::string& sEvent, CCallData* pData);
    long deliver(const CRegIDData& registrant, const std::string& sRegID, CDSCALLBACKREASON eReason,
                 CCallbackData* pPayload);
    long callCallback(long (*pfnCallback)(CCallbackMsg*), CCallbackMsg* pMessage);

    // The order in which the destructor lets these go is its own.
    std::unique_ptr<CEventLogHelp> m_pEventLog;
    std::unique_ptr<CPCritSec> m_pcritsec; // guards *m_pTables
    std::unique_ptr<CTables> m_pTables;
    std::atomic<CDSNetProxyCallback*> m_pNetProxyCallback = nullptr; // not owned
    std::atomic<long (*)(CCallbackMsg*)> m_pfnCDRDataCallback = nullptr;
    std::unique_ptr<CPEvent> m_pTimingEvent;   // stops the timing thread
    std::unique_ptr<CPThread> m_pTimingThread; // null when not running
    std::unique_ptr<CCDSNetProxy> m_pNetProxy; // what g_pCDSNetProxy points to
    std::string m_sServerIP;
    bool m_bRunning = false; // from Initialize to Finalize
};
