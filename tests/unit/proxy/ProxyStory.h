#pragma once

#include "CDSAPI.h"
#include "CDSNetProxy.h"
#include "CDSParams.h"
#include "Fakes.h"
#include "StoreStory.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// The fakes as servers need them: sleeps move the clock by themselves, every trace line is written, channels and
/// threads are counted as settled by settle().
class CProxyWorld
{
public:
    static constexpr unsigned long cNoTimeLimit = 0xFFFFFFFFUL; ///< of the workers' waits
    static constexpr unsigned long cTimingWaitMs = 10000;       ///< between two passes of a timing thread

    CProxyWorld();
    ~CProxyWorld();
    CProxyWorld(const CProxyWorld&) = delete;
    CProxyWorld& operator=(const CProxyWorld&) = delete;

    /// Waits until everything that is under way has been received and handled by the running servers.
    static void settle();

private:
    friend class CServer;
    static std::size_t s_uRunning;

    CFakeWorld m_world;
};

/// A server: a store with its proxy, and the registrants of its host. Registrants are named; the name is the
/// registration ID.
///
/// Threads    the test's own; registrants are called on any.
class CServer
{
public:
    explicit CServer(const std::string& sAddress = CFakeChannels::cHere);
    /// Stops and ends it.
    ~CServer();
    CServer(const CServer&) = delete;
    CServer& operator=(const CServer&) = delete;

    const std::string& address() const { return m_sAddress; }
    CCDSAPI& store() { return *m_pStore; }
    CCDSNetProxy& proxy() { return *m_pProxy; }

    /// Starts it and lets everything settle; a start that fails is for tests of the start.
    long starts();
    long stops();
    /// Ends the store and makes a new one, with registrants that know nothing.
    void beginsAgain();

    long registers(const std::string& sWho, const std::string& sCallID, const std::string& sOwner,
                   const std::string& sEvent = "*");
    long unregisters(const std::string& sWho);
    long updates(const std::string& sWho, const CNews& news);

    /// What was heard since the last call, as "ann: sip:1 CALLERID=alice".
    std::vector<std::string> hears();
    /// All that a registrant has heard of a call, put together; "" when it heard nothing.
    std::string copyOf(const std::string& sWho, const std::string& sCallID);

private:
    struct CRecorder
    {
        CServer* pServer;
        std::string sName;
        std::map<std::string, std::unique_ptr<CCallData>> mapCopies{};
    };

    static long callback(CCallbackMsg* pMessage);

    const std::string m_sAddress;
    std::unique_ptr<CCDSAPI> m_pStore;
    CCDSNetProxy* m_pProxy = nullptr;
    bool m_bRunning = false;
    std::mutex m_mtx;
    std::map<std::string, CRecorder> m_mapRecorders; // guarded by m_mtx
    std::vector<std::string> m_vecHeard;             // guarded by m_mtx
};

// Messages between servers.

/// A request with a registration or an unregistration.
std::string registrationRequest(const std::string& sRegID, const std::string& sOwner, const std::string& sCallID,
                                bool bRegister = true);
/// A request with call data.
std::string callDataRequest(const std::string& sRegID, const CNews& news, CDSCALLBACKREASON eReason = ccbr_calldata);
/// A request with any message text.
std::string requestOf(const std::string& sMessage);

/// A request, taken apart.
struct CRequest
{
    std::string sName;
    std::string sTraceID;
    std::string sRegID;
    std::string sReason;
    std::string sPayload;
    std::string sText; ///< a record as describe puts it, or "register <id> for <call> at <owner>"
};
CRequest takenApart(const std::string& sRequest);

/// What was sent by a server and accepted, in short: "10.0.0.2 register <id> for <call> at <owner>", with the
/// registration ID of the message in front of a record: "10.0.0.2 <id>: sip:1 CALLERID=alice".
std::vector<std::string> sentInShort(const std::string& sOwner = CFakeChannels::cHere);

/// The positions of texts in the trace log, to compare orders; fails when one is missing.
std::size_t placeInLog(const std::string& sPart);
