#pragma once

#include "CDSAPI.h"
#include "Fakes.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Something new about a call, for an update.
///
/// Every item is stamped later than the one made before it, in this and in all other news, unless it is given a stamp.
class CNews
{
public:
    explicit CNews(const std::string& sCallID);

    CNews& sets(const std::string& sName, const std::string& sValue);
    CNews& sets(const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp);
    CNews& appends(const std::string& sName, const std::string& sValue);
    CNews& appends(const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp);

    CCallData* data() const { return m_pData.get(); }

    /// A stamp later than all that were taken here.
    static CCDSTimestamp nextStamp();

private:
    std::unique_ptr<CCallData> m_pData;
};

/// "sip:1 CALLERID=alice CONNECT_ENTRY+yes": the call, its properties, its log entries.
std::string describe(CCallData& data);

/// "0x%08X" of an address, as trace lines name an object.
std::string identity(const void* pObject);

/// One message, as a registrant saw it while its callback ran.
struct CHeard
{
    std::string sWho;  ///< the recorder's name
    std::string sText; ///< a record as describe puts it, or "bob registered for sip:1 at 10.0.0.1"
    unsigned long ulReqHandle = 0;
    unsigned long ulTraceID = 0;
    std::string sRegID;
    std::string sCDSIPAddr;
    CDSCALLBACKREASON eReason{};
    CCDSTimestamp tsNotice{0, 0};           ///< of a registration notice
    const CCallbackMsg* pMessage = nullptr; ///< identities: neither message nor payload lives any more
    const CCallbackData* pPayload = nullptr;
    std::thread::id idThread{};
    std::vector<std::string> vecLocks{}; ///< held by the thread, while locks are recorded
};

/// What happens around one store: who registers, what is updated, how time goes by, and what everybody hears of it.
///
/// Registrants are named; the name is the registration ID. Each has a recorder, whose address travels as the request
/// handle, since a callback is a plain function.
///
/// Threads    deeds may come from any thread, once the registrants' recorders are made.
class CStoreStory
{
public:
    static constexpr const char* cHere = "10.0.0.1";  ///< this server
    static constexpr const char* cThere = "10.0.0.2"; ///< another
    static constexpr std::uint32_t cAllLevels = 0xFFFFFFFFU;

    /// What a registrant does when it is called, after the message was noted. Its result is the callback's.
    using CReaction = std::function<long(CCallbackMsg*)>;

    /// Whether the store exchanges data with peers once it is initialized. A store that tells of itself alone is one
    /// whose proxy gets no thread, and so does not start.
    enum class Peers
    {
        None,
        FakeChannels
    };

    /// A new store, not initialized.
    explicit CStoreStory(Peers ePeers = Peers::None);
    /// Lets the store go, if it is still there.
    ~CStoreStory();
    CStoreStory(const CStoreStory&) = delete;
    CStoreStory& operator=(const CStoreStory&) = delete;

    CCDSAPI& store() { return *m_pStore; }

    // The store's life.
    /// Lets the timing thread, if there is one, come to its first wait.
    long starts(const std::string& sAddress = cHere);
    long stops() { return m_pStore->Finalize(); }
    void ends() { m_pStore.reset(); }
    /// Once more from the beginning, with the same recorders.
    void beginsAgain();

    // Deeds of registrants.
    long registers(const std::string& sWho, const std::string& sCallID, const std::string& sEvent = "*",
                   const std::string& sAddress = cHere);
    /// The same without a callback.
    long registersMute(const std::string& sWho, const std::string& sCallID, const std::string& sEvent = "*",
                       const std::string& sAddress = cHere);
    long unregisters(const std::string& sWho) { return m_pStore->Unregister(sWho); }
    long updates(const std::string& sWho, const CNews& news) { return m_pStore->Update(sWho, news.data(), false); }
    /// The same, to be refused when nobody else is registered for the call.
    long updatesForOthers(const std::string& sWho, const CNews& news)
    {
        return m_pStore->Update(sWho, news.data(), true);
    }
    long asksFor(const std::string& sWho, const std::string& sCallID) { return m_pStore->GetCallData(sWho, sCallID); }
    void reactsWith(const std::string& sWho, CReaction fnReaction);

    /// Registers, updates and unregisters, so that the store keeps data of a call that nobody is registered for.
    void leavesBehind(const CNews& news, const std::string& sAddress = cHere);

    /// Moves the clock, and waits until the timing thread has done what was due.
    void lets(unsigned long long ullMs);

    /// Everything heard since the last call, as "ann: sip:1 CALLERID=alice", in the order heard.
    std::vector<std::string> hears();
    /// The same with all there is to know.
    std::vector<CHeard> hearsInFull();

    /// The handle under which a registrant registers.
    unsigned long handleOf(const std::string& sWho);
    /// The trace ID under which it registers.
    static unsigned long traceIDOf(const std::string& sWho);

    /// The callback of all registrants.
    static long callback(CCallbackMsg* pMessage);

private:
    struct CRecorder
    {
        CStoreStory* pStory;
        std::string sName;
        CReaction fnReaction{};
    };

    CRecorder& recorder(const std::string& sWho);

    CFakeWorld m_world;
    std::unique_ptr<CCDSAPI> m_pStore;
    std::mutex m_mtx;
    std::map<std::string, CRecorder> m_mapRecorders; // guarded by m_mtx; recorders stay where they are
    std::vector<CHeard> m_vecHeard;                  // guarded by m_mtx
};
