#pragma once

#include "cdr/CdrSender.h"
#include "replay/Replay.h"
#include "replay/StoreSink.h"
#include "replay/Watcher.h"
#include "share/SharedCalls.h"

#include <chrono>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// What a session found out.
struct CSessionResult
{
    std::vector<CCaptureSummary> vecCaptures;
    CRecordBook mapRecords; ///< as the registrant of all calls got them, change by change
    std::string sWatched;   ///< record ID of the one call; empty when there was none
    CCallRecord watched;    ///< as its registrant got it

    std::uint64_t ullUpdates = 0;
    std::uint64_t ullFailures = 0;
    long lFirstFailure = 0;
    std::uint64_t ullEnded = 0;
    std::uint64_t ullOneDeliveries = 0;
    std::uint64_t ullOneChanges = 0;
    std::uint64_t ullAllDeliveries = 0;
    std::uint64_t ullAllChanges = 0;
    std::uint64_t ullEndDeliveries = 0;
    std::uint64_t ullEndChanges = 0;
    bool bWaited = false; ///< for the last deliveries

    std::string sHeadQuarters; ///< where finished calls' records went; empty: nowhere
    CCdrSender::CCounts cdrs;

    std::chrono::nanoseconds replayTime{0}; ///< reading, parsing, mapping, updating, delivering
    std::chrono::nanoseconds updateTime{0}; ///< of that in the store: updating and delivering
};

/// A result code of the store as its trace log writes it.
[[nodiscard]] std::string codeText(long lCode);

/// One store with three registrants, and captures replayed into it: a registrant of one call, one of all calls, and
/// one that wants only the last delivery of each call.
///
/// A process has one store, so one session at a time.
///
/// Threads  one thread.
class CReplaySession : private CCallSink
{
public:
    /// @param sWatch  Call-ID of the one call, with or without "sip:"; empty: the first that begins
    /// @param sServerIP  this server's address
    /// @param headQuarters  where the records of ended calls are sent
    explicit CReplaySession(std::string sWatch, std::string sServerIP = "127.0.0.1", CHeadQuarters headQuarters = {});
    ~CReplaySession();

    /// Starts the store.
    ///
    /// @param bShare  whether other servers are to get its calls
    [[nodiscard]] bool start(bool bShare, std::string* psError);

    /// Says which calls the captures hold, and waits until other servers have registered for all of them.
    ///
    /// @param out  gets the call lines
    [[nodiscard]] bool awaitPeers(std::ostream& out, const std::vector<std::string>& vecPaths,
                                  const CCallMapperSettings& settings, bool bCloseOpen, std::string* psError);
    /// Says what the records of these calls are, and waits until the other servers have taken their registrations back.
    ///
    /// @param out  gets the record lines
    [[nodiscard]] bool showPeers(std::ofstream& out, std::string* psError);

    /// Replays captures, one after the other as if they were one.
    ///
    /// @param psError  out: which file cannot be read, and why
    [[nodiscard]] bool replay(const std::vector<std::string>& vecPaths, const CCallMapperSettings& settings,
                              bool bCloseOpen, std::string* psError);

    /// Waits until the store has delivered every ended call a last time. It keeps the data of an ended call for 30
    /// seconds, in case somebody registers for it again, and looks every ten.
    ///
    /// @param fnProgress  told how many of how many came, about every five seconds
    /// @return false when they did not come in time
    bool awaitLastDeliveries(const std::function<void(std::uint64_t, std::uint64_t)>& fnProgress);

    /// Waits until the head-quarters server has acknowledged every record that was sent to it.
    ///
    /// @param fnProgress  told how many are left, about every five seconds
    /// @return false when some are left after a minute in which none left
    bool awaitSent(const std::function<void(unsigned long)>& fnProgress);

    CSessionResult result() const;

private:
    [[nodiscard]] bool onCallBegin(const std::string& sRecordID) override;
    void onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges) override;
    void onCallEnd(const std::string& sRecordID) override;

    const std::string m_sServerIP;
    const CHeadQuarters m_headQuarters;
    std::string m_sWatched;               // record ID
    std::vector<std::string> m_vecShared; // record IDs
    bool m_bWaited = false;
    std::vector<CCaptureSummary> m_vecCaptures;
    std::chrono::nanoseconds m_replayTime{0};
    std::unique_ptr<CCDSAPI> m_pStore;
    // Destroyed before the store.
    std::unique_ptr<CStoreSink> m_pSink;
    std::unique_ptr<CWatcher> m_pOne;
    std::unique_ptr<CWatcher> m_pAll;
    std::unique_ptr<CWatcher> m_pEnds;
    std::unique_ptr<CSharedCalls> m_pShared; // null when nothing is exchanged with other servers
    std::unique_ptr<CCdrSender> m_pSender;   // null without head-quarters
};
