#pragma once

#include "calls/CallSink.h"
#include "calls/MediaNegotiation.h"
#include "calls/RequestOrigin.h"
#include "capture/Endpoint.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <vector>

/// A bounded memory of what was seen already: when it is full the oldest is forgotten.
class CSeenSet
{
public:
    static constexpr std::size_t cMaxSeen = 512;

    /// @return false when it was seen before
    bool insert(std::size_t uHash);

private:
    std::unordered_set<std::size_t> m_setSeen;
    std::deque<std::size_t> m_deqOrder; // oldest first
};

/// A request on its way over one hop, and how that hop ended.
///
/// Where several processes report what they see, the answer may be told before the request that it answers.
struct CInviteBranch
{
    bool bRequestSeen = false;
    std::string sTarget; // request URI
    CEndpoint destination;
    int nFinal = 0;                       // code of its final response, 0: none yet
    std::vector<std::string> vecContacts; // where a redirection points
};

/// An INVITE without To tag: one attempt to set up the call.
struct CInviteAttempt
{
    CRequestOrigin origin;                            // responses that return to it reach the originator
    std::map<std::string, CInviteBranch> mapBranches; // top Via branch -> hop
};

/// A final response that asks the originator to try again.
struct CRejection
{
    int nCode = 0;
    std::string sReason;
    std::int64_t llMicros = 0;
};

/// What the mapper knows of a call while its signalling lasts. Bounded in every part; see the mapper.
struct CTrackedCall
{
    std::string sRecordID;
    std::string sCallID;
    CEndpoint origin;                    // source of the first sighting
    std::string sOriginTag;              // From tag of the originator's latest attempt
    std::set<std::string> setCallerTags; // From tags of all attempts; equipment on the way may write its own
    std::string sCaller;
    std::string sCalled;

    std::map<std::pair<std::string, std::uint32_t>, CInviteAttempt> mapAttempts; // From tag, CSeq -> attempt
    std::set<std::string> setDialogTags; // of the originator's dialogs: its own and those that answered it
    std::set<std::string> setRouted;     // targets and forwardings already logged
    CMediaNegotiation media;
    CSeenSet seen;

    bool bConnected = false;
    bool bRelated = false; // has its relation to another call
    bool bEnded = false;
    std::optional<CRejection> rejection;
    std::int64_t llSessionEnd = 0; // time, 0: no session timer
    std::int64_t llLast = 0;       // time of the latest message
    std::multimap<std::int64_t, CTrackedCall*>::iterator itDeadline;
    std::multimap<std::string, CTrackedCall*>::iterator itRinging; // until the call ends

    std::map<std::string, CCDSTimestamp> mapStamps; // property or log -> its latest stamp
    std::vector<CCallChange> vecChanges;            // of the message at hand
    std::size_t uEvents = 0;                        // values emitted so far
    std::size_t uBranches = 0;                      // of all attempts
};
