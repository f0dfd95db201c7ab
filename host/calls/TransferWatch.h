#pragma once

#include "capture/Endpoint.h"
#include "sip/SipMessage.h"

#include <cstdint>
#include <deque>
#include <set>
#include <string>

/// Finds the call that a transfer makes: a REFER that is accepted, and within five seconds of that the recipient's
/// INVITE to the user it was referred to.
///
/// The acceptance and the INVITE leave the recipient at nearly the same moment, and where several processes report what
/// they see, even the REFER's last hop may be told after them: any order will do.
///
/// Bounded: cMaxPending transfers and as many new calls, the oldest gives way; cMaxRecipients of each transfer, the
/// first stay.
///
/// Threads  one thread.
/// Units    microseconds of the capture.
class CTransferWatch
{
public:
    static constexpr std::size_t cMaxPending = 1024;
    static constexpr std::size_t cMaxRecipients = 8; ///< hops between the two parties
    static constexpr std::int64_t cFollowMicros = 5'000'000;
    /// A REFER is answered within the life of its transaction.
    static constexpr std::int64_t cAnswerMicros = 32'000'000;

    struct CLink
    {
        std::string sReferringCallID; ///< empty: no transfer found
        std::string sNewCallID;
    };

    /// A sighting of a REFER, on any hop.
    CLink onRefer(const CSipMessage& refer, const CIpAddress& destination, std::int64_t llMicros);
    /// A final response to a REFER.
    CLink onReferAnswered(const CSipMessage& response, const CIpAddress& source, std::int64_t llMicros);
    /// The first INVITE of a call.
    CLink onNewCall(const CSipMessage& invite, const CIpAddress& source, std::int64_t llMicros);

private:
    struct CTransfer
    {
        std::string sCallID;
        std::string sFromTag;
        std::uint32_t dwCSeq = 0;
        std::string sTarget;                // who it was referred to
        std::set<CIpAddress> setRecipients; // who was told on any hop, and who accepted
        std::int64_t llReferred = 0;
        std::int64_t llAccepted = 0; // 0: not yet
    };
    struct CNewCall
    {
        std::string sCallID;
        std::string sTarget; // of the request
        std::string sCalled; // as its To says
        CIpAddress origin;
        std::int64_t llMicros = 0;
    };
    using CTransfers = std::deque<CTransfer>;

    static void addRecipient(CTransfer& transfer, const CIpAddress& address);
    static bool makes(const CTransfer& transfer, const CNewCall& call);
    CLink linkTransfer(CTransfers::iterator it);
    void dropStale(std::int64_t llMicros);
    CTransfers::iterator find(const CSipMessage& message);

    CTransfers m_deqTransfers;       // oldest first
    std::deque<CNewCall> m_deqCalls; // of the last seconds, oldest first
};
