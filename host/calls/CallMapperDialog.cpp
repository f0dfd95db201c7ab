// The call mapper: how a call is answered, what media it has, and how it ends.
#include "calls/CallMapper.h"

#include "CDSNames.h"

#include <algorithm>

namespace {

/// Shortest session interval that the protocol allows; less would let a stray number end a call that goes on.
constexpr std::uint32_t cMinSessionSeconds = 90;

bool asksForAnotherTry(int nCode) noexcept
{
    return nCode == 401 || nCode == 407 || nCode == 422 || nCode < 400;
}

} // namespace

void CCallMapper::onInviteResponse(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& response = context.message;
    const auto it = call.mapAttempts.find({response.from.sTag, response.dwCSeq});
    if (it == call.mapAttempts.end())
        return; // of a later INVITE inside the dialog: it ends nothing and answers nothing new
    CInviteAttempt& attempt = it->second;
    // Old equipment writes no branch; then the address must do.
    const bool bSameHop = response.sBranch.empty() || attempt.origin.hasBranch("")
                              ? context.destination.address == call.origin.address
                              : attempt.origin.hasBranch(response.sBranch);
    const bool bReachesOriginator = bSameHop && response.from.sTag == call.sOriginTag;
    if (bReachesOriginator && !response.to.sTag.empty() && call.setDialogTags.size() < cMaxTags)
        call.setDialogTags.insert(response.to.sTag);
    if (response.nCode < 200)
        return;
    onBranchFinal(call, context, attempt);
    if (response.nCode < 300)
        onAnswer(call, context);
    else if (bReachesOriginator && !call.bConnected)
        onRejected(call, context);
}

void CCallMapper::onBranchFinal(CTrackedCall& call, const CContext& context, CInviteAttempt& attempt)
{
    const CSipMessage& response = context.message;
    CInviteBranch* const pBranch = findBranch(call, attempt, response.sBranch);
    if (pBranch == nullptr || pBranch->nFinal != 0)
        return;
    pBranch->nFinal = response.nCode;
    constexpr std::size_t cMaxContacts = 8;
    if (response.nCode >= 300 && response.nCode < 400)
        for (const CSipAddress& contact : response.vecContacts)
            if (pBranch->vecContacts.size() < cMaxContacts)
                pBranch->vecContacts.push_back(contact.uri.sText);
    if (pBranch->bRequestSeen)
        routeFinal(call, context, *pBranch);
}

void CCallMapper::routeFinal(CTrackedCall& call, const CContext& context, const CInviteBranch& branch)
{
    const std::string sCode = std::to_string(branch.nFinal);
    route(call, context, branch.sTarget, branch.destination, sCode);
    for (const std::string& sContact : branch.vecContacts)
        route(call, context, sContact, branch.destination, sCode);
}

void CCallMapper::onAnswer(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& response = context.message;
    if (call.bConnected)
        return;
    call.bConnected = true;
    call.rejection.reset();
    const CSipAddress& connected = response.vecAsserted.empty() ? response.to : response.vecAsserted.front();
    setProperty(call, CDSPROP_L_CONNECTEDID, connected.uri.identity(), context.llMicros);
    appendEntry(call, CDSLOG_CONNECT_ENTRY, "answered;" + connected.uri.identity() + ";" + response.to.sTag,
                context.llMicros);
}

void CCallMapper::onRejected(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& response = context.message;
    if (asksForAnotherTry(response.nCode))
    {
        call.rejection = CRejection{response.nCode, response.sReason, context.llMicros};
        return;
    }
    const std::string sCode = std::to_string(response.nCode);
    end(call, response.nCode == 487 ? "cancel" : "failed", sCode, response.sReason, sCode + " " + response.sReason,
        context.llMicros);
}

void CCallMapper::onBye(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& bye = context.message;
    const bool bCaller = call.setCallerTags.contains(bye.from.sTag) ||
                         (!call.setCallerTags.contains(bye.to.sTag) && context.source.address == call.origin.address);
    std::string sCode = "-";
    std::string sReason = "BYE";
    if (!bye.vecReasons.empty())
    {
        const auto itSip = std::find_if(bye.vecReasons.begin(), bye.vecReasons.end(),
                                        [](const CSipReason& reason) { return reason.sProtocol == "SIP"; });
        const CSipReason& reason = itSip != bye.vecReasons.end() ? *itSip : bye.vecReasons.front();
        sCode = reason.nCause > 0 ? std::to_string(reason.nCause) : "-";
        sReason = reason.sText.empty() ? reason.sProtocol : reason.sProtocol + " " + reason.sText;
    }
    end(call, bCaller ? "caller" : "callee", sCode, sReason, "", context.llMicros);
}

void CCallMapper::noteMedia(CTrackedCall& call, const CContext& context)
{
    // A server that writes tags of its own offers the same media again on its other side.
    if (!call.setDialogTags.contains(context.message.from.sTag))
        return;
    for (const std::string& sMedia : call.media.take(context.message, context.source))
        appendEntry(call, CDSLOG_MEDIASTREAM_ENTRY, sMedia, context.llMicros);
    for (std::uint64_t ull = call.media.takeUnreadable(); ull > 0; --ull)
        m_counts.warn("session description unreadable");
}

void CCallMapper::noteSessionTimer(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& response = context.message;
    const bool bRefreshes =
        response.nCode >= 200 && response.nCode < 300 && (response.sMethod == "INVITE" || response.sMethod == "UPDATE");
    if (!bRefreshes || !call.bConnected)
        return;
    // A refresh without an interval ends the timer.
    call.llSessionEnd =
        response.dwSessionExpires == 0
            ? 0
            : context.llTime + std::int64_t{std::max(response.dwSessionExpires, cMinSessionSeconds)} * 1'000'000;
}
