#pragma once

#include "calls/CallClock.h"
#include "calls/CallSink.h"
#include "calls/TrackedCall.h"
#include "calls/TransferWatch.h"
#include "capture/IntakeCounts.h"
#include "capture/MessageReorder.h"
#include "sip/SipMessage.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

/// How the mapper treats calls whose end is not seen, and how much it holds.
struct CCallMapperSettings
{
    /// An answered call is closed when it has no session timer and nothing was heard of it for so long.
    std::int64_t llAnsweredIdleSeconds = 4LL * 3600;
    /// A call that was not answered. Servers give up an INVITE after three minutes without news.
    std::int64_t llRingingIdleSeconds = 300;
    /// Calls at a time. When there are more, the one whose time-out comes first gives way.
    std::size_t uMaxCalls = 100'000;
};

/// Turns SIP messages into changes of call records: one record a Call-ID.
///
/// A call begins with the first INVITE without To tag. It ends with the first BYE (of whichever answer, when there are
/// several), or with the final response of 300 or above that reaches the originator. A response that asks for another
/// try (401, 407, 422, a redirection) ends the call when no other try follows for as long as a call may ring unheard (a
/// person may have to type a password), or before the capture ends. Any other ends it even when the originator goes on
/// to another server, as after a 503.
///
/// Whose side is whose: the originator is the source of the call's first sighting. A response reaches it when it
/// carries the Via branch of that sighting, or of the same request on its way from there to another server; so a
/// message seen on both sides of a proxy is told apart even where all parties share one address.
///
/// Relations (property CALL_RELATION, with the other record in RELATED_CALLID): "replaces" and "replaced", "transfer"
/// and "transferred", "forward" and "forwarded"; the former stands in the newer record. A call that is forwarded
/// without a new Call-ID is a "forward" without other record.
///
/// Bounded: calls, and in each the attempts, branches, tags, remembered messages and values. A call takes a few
/// kilobytes, and some six hundred when everything in it is as long and as many as it may be.
///
/// Threads  one thread.
/// Units    microseconds since 1970, of the capture. The time between its messages alone moves the time-outs.
class CCallMapper
{
public:
    /// How long the repeats of an ended call's messages go on.
    static constexpr std::int64_t cLingerMicros = 32'000'000;
    static constexpr std::size_t cMaxAttempts = 16;
    static constexpr std::size_t cMaxBranches = 64; ///< of all attempts
    static constexpr std::size_t cMaxTags = 32;
    static constexpr std::size_t cMaxEvents = 1000;
    static constexpr std::size_t cMaxValue = 1024; ///< bytes of text

    CCallMapper(CCallSink& sink, CIntakeCounts& counts, CCallMapperSettings settings = {});

    /// Takes a captured message. What is refused is counted, nothing else.
    void onCaptured(const CCapturedMessage& captured);

    void onMessage(const CSipMessage& message, const CEndpoint& source, const CEndpoint& destination,
                   std::int64_t llMicros);

    /// The capture is over. Rejections stand; other open calls stay open, unless they are to be closed.
    void finish(bool bCloseOpen);

    std::uint64_t messagesRead() const noexcept { return m_ullMessages; }
    std::uint64_t repeats() const noexcept { return m_ullRepeats; }
    std::size_t openCalls() const noexcept { return m_uOpen; }

private:
    struct CContext; // a message with its call
    using CDeadlines = std::multimap<std::int64_t, CTrackedCall*>;

    // Tracking, in CallMapper.cpp.
    CTrackedCall* findOrBegin(const CContext& context);
    CTrackedCall* begin(const CContext& context);
    void makeRoom();
    void forget(CTrackedCall& call);
    void dispatch(CTrackedCall& call, const CContext& context);
    void setDeadline(CTrackedCall& call);
    void closeOverdue();
    void expire(CTrackedCall& call, std::int64_t llTime);
    void emit(CTrackedCall& call);
    void setProperty(CTrackedCall& call, const std::string& sName, std::string_view sValue, std::int64_t llMicros);
    void appendEntry(CTrackedCall& call, const std::string& sName, std::string_view sValue, std::int64_t llMicros);
    void change(CTrackedCall& call, bool bLogEntry, const std::string& sName, std::string_view sValue,
                std::int64_t llMicros);
    void end(CTrackedCall& call, std::string_view sWho, std::string_view sCode, std::string_view sReason,
             std::string_view sComment, std::int64_t llMicros);
    CTrackedCall* findOpen(const std::string& sCallID);

    // Setting up, in CallMapperInvite.cpp.
    void describeParties(CTrackedCall& call, const CContext& context);
    void onInvite(CTrackedCall& call, const CContext& context);
    CInviteBranch* findBranch(CTrackedCall& call, CInviteAttempt& attempt, const std::string& sBranch);
    void route(CTrackedCall& call, const CContext& context, const std::string& sTarget, const CEndpoint& where,
               const std::string& sCode);
    void noteForwarding(CTrackedCall& call, const CContext& context);
    void relateNewCall(CTrackedCall& call, const CContext& context);
    void relate(CTrackedCall& newer, CTrackedCall* pOlder, const std::string& sOlderCallID, std::string_view sNewer,
                std::string_view sOlder, std::int64_t llMicros);
    void linkTransfer(const CTransferWatch::CLink& link, std::int64_t llMicros);
    CTrackedCall* findForwarded(const CTrackedCall& call, const CSipMessage& invite);

    // Answering and ending, in CallMapperDialog.cpp.
    void onInviteResponse(CTrackedCall& call, const CContext& context);
    void onBranchFinal(CTrackedCall& call, const CContext& context, CInviteAttempt& attempt);
    void routeFinal(CTrackedCall& call, const CContext& context, const CInviteBranch& branch);
    void onAnswer(CTrackedCall& call, const CContext& context);
    void onRejected(CTrackedCall& call, const CContext& context);
    void onBye(CTrackedCall& call, const CContext& context);
    void noteMedia(CTrackedCall& call, const CContext& context);
    void noteSessionTimer(CTrackedCall& call, const CContext& context);

    CCallSink& m_sink;
    CIntakeCounts& m_counts;
    const CCallMapperSettings m_settings;
    CTransferWatch m_transfers;
    std::map<std::string, std::unique_ptr<CTrackedCall>> m_mapCalls; // Call-ID -> call
    CDeadlines m_mmapDeadlines;                              // time when something happens without a message -> call
    std::multimap<std::string, CTrackedCall*> m_mmapRinging; // called user -> calls that have not ended
    std::vector<CTrackedCall*> m_vecTouched;                 // calls that the message at hand changed besides its own
    CCallClock m_clock;
    std::size_t m_uOpen = 0;
    std::uint64_t m_ullMessages = 0;
    std::uint64_t m_ullRepeats = 0;
};

struct CCallMapper::CContext
{
    const CSipMessage& message;
    const CEndpoint& source;
    const CEndpoint& destination;
    std::int64_t llMicros;
    std::int64_t llTime; // by the call clock
};
