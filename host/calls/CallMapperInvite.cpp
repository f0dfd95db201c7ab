// The call mapper: how a call is set up, where it is sent, and what it has to do with other calls.
#include "calls/CallMapper.h"

#include "CDSNames.h"

namespace {

struct CForwarding
{
    const CSipAddress* pFrom; // who sent the call on
    int nCause;
};

/// Who sent the call on before it came here, as Diversion and History-Info tell. The last entry of a history is the
/// present target; an earlier one tells of forwarding when it names another user, any when it has a cause.
std::vector<CForwarding> forwardings(const CSipMessage& invite)
{
    std::vector<CForwarding> vecForwardings;
    for (auto it = invite.vecDiversion.rbegin(); it != invite.vecDiversion.rend(); ++it)
        vecForwardings.push_back({&*it, it->nCause});
    for (const CSipAddress& entry : invite.vecHistory)
    {
        const bool bMovedOn = entry.uri.identity() != invite.vecHistory.back().uri.identity();
        if (entry.nCause >= 300 || bMovedOn)
            vecForwardings.push_back({&entry, entry.nCause});
    }
    return vecForwardings;
}

} // namespace

void CCallMapper::describeParties(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& invite = context.message;
    const CSipAddress& caller = invite.vecAsserted.empty() ? invite.from : invite.vecAsserted.front();
    const bool bTo = !invite.to.uri.identity().empty();
    call.sCaller = caller.uri.identity();
    call.sCalled = bTo ? invite.to.uri.identity() : invite.requestUri.identity();
    setProperty(call, CDSPROP_CALLERID, call.sCaller, context.llMicros);
    // The network asserts the number; the name often comes from the caller's own telephone only.
    setProperty(call, CDSPROP_CALLERID_NAME, caller.sName.empty() ? invite.from.sName : caller.sName, context.llMicros);
    setProperty(call, CDSPROP_CALLEDID, call.sCalled, context.llMicros);
    setProperty(call, CDSPROP_CALLEDID_NAME, invite.to.sName, context.llMicros);
    setProperty(call, CDSPROP_CALL_ORIGINATOR_IP, context.source.address.toString(), context.llMicros);
}

void CCallMapper::onInvite(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& invite = context.message;
    const std::pair key(invite.from.sTag, invite.dwCSeq);
    if (call.mapAttempts.size() >= cMaxAttempts && !call.mapAttempts.contains(key))
    {
        m_counts.warn("a call has too many attempts: some are left out");
        return;
    }
    const auto [it, bNew] = call.mapAttempts.try_emplace(key);
    CInviteAttempt& attempt = it->second;
    if (bNew)
    {
        if (call.rejection && context.source.address == call.origin.address)
        {
            call.rejection.reset(); // the originator tries again, perhaps under another tag
            call.sOriginTag = invite.from.sTag;
        }
        if (call.setCallerTags.size() < cMaxTags)
            call.setCallerTags.insert(invite.from.sTag);
    }
    attempt.origin.note(invite, context.source);
    if (call.setDialogTags.size() < cMaxTags)
        call.setDialogTags.insert(call.sOriginTag);
    noteForwarding(call, context);
    route(call, context, invite.requestUri.sText, context.destination, "-");
    CInviteBranch* const pBranch = findBranch(call, attempt, invite.sBranch);
    if (pBranch == nullptr || pBranch->bRequestSeen)
        return;
    pBranch->bRequestSeen = true;
    pBranch->sTarget = invite.requestUri.sText;
    pBranch->destination = context.destination;
    if (pBranch->nFinal != 0)
        routeFinal(call, context, *pBranch);
}

/// Finds a hop, or begins it; null when the call has too many.
CInviteBranch* CCallMapper::findBranch(CTrackedCall& call, CInviteAttempt& attempt, const std::string& sBranch)
{
    if (const auto it = attempt.mapBranches.find(sBranch); it != attempt.mapBranches.end())
        return &it->second;
    if (call.uBranches >= cMaxBranches)
    {
        m_counts.warn("a call has too many branches: some are left out");
        return nullptr;
    }
    ++call.uBranches;
    return &attempt.mapBranches[sBranch];
}

void CCallMapper::route(CTrackedCall& call, const CContext& context, const std::string& sTarget, const CEndpoint& where,
                        const std::string& sCode)
{
    const std::string sText = sTarget + ";" + where.toString() + ";" + sCode;
    if (sCode == "-" && (call.setRouted.size() >= cMaxBranches || !call.setRouted.insert(sText).second))
        return; // not a new target
    appendEntry(call, CDSLOG_TUPLE_ROUTING_ENTRY, sText, context.llMicros);
}

void CCallMapper::noteForwarding(CTrackedCall& call, const CContext& context)
{
    const auto vecForwardings = forwardings(context.message);
    for (const auto& [pFrom, nCause] : vecForwardings)
    {
        // Each hop repeats the fields, and often both kinds tell the same.
        const std::string sTarget = pFrom->uri.sText.substr(0, pFrom->uri.sText.find('?'));
        if (call.setRouted.size() < cMaxBranches && call.setRouted.insert("forwarded " + sTarget).second)
            route(call, context, sTarget, context.source, nCause >= 300 ? std::to_string(nCause) : "-");
    }
    if (!vecForwardings.empty() && !call.bRelated)
    {
        call.bRelated = true;
        setProperty(call, CDSPROP_CALL_RELATION, "forward", context.llMicros);
    }
}

void CCallMapper::relateNewCall(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& invite = context.message;
    if (!invite.sReplacesCallID.empty())
        relate(call, findOpen(invite.sReplacesCallID), invite.sReplacesCallID, "replaces", "replaced",
               context.llMicros);
    linkTransfer(m_transfers.onNewCall(invite, context.source.address, context.llMicros), context.llMicros);
    if (CTrackedCall* pForwarded = call.bRelated ? nullptr : findForwarded(call, invite))
        relate(call, pForwarded, pForwarded->sCallID, "forward", "forwarded", context.llMicros);
}

void CCallMapper::relate(CTrackedCall& newer, CTrackedCall* pOlder, const std::string& sOlderCallID,
                         std::string_view sNewer, std::string_view sOlder, std::int64_t llMicros)
{
    if (!newer.bRelated)
    {
        newer.bRelated = true;
        setProperty(newer, CDSPROP_RELATED_CALLID, "sip:" + sOlderCallID, llMicros);
        setProperty(newer, CDSPROP_CALL_RELATION, sNewer, llMicros);
    }
    if (pOlder == nullptr || pOlder == &newer)
        return;
    setProperty(*pOlder, CDSPROP_RELATED_CALLID, newer.sRecordID, llMicros);
    setProperty(*pOlder, CDSPROP_CALL_RELATION, sOlder, llMicros);
    m_vecTouched.push_back(pOlder);
}

void CCallMapper::linkTransfer(const CTransferWatch::CLink& link, std::int64_t llMicros)
{
    CTrackedCall* pNewer = link.sReferringCallID.empty() ? nullptr : findOpen(link.sNewCallID);
    if (pNewer == nullptr)
        return;
    relate(*pNewer, findOpen(link.sReferringCallID), link.sReferringCallID, "transfer", "transferred", llMicros);
    m_vecTouched.push_back(pNewer);
}

/// The unanswered call that a server forwards under a new Call-ID: of the same caller, to whoever sent it on.
CTrackedCall* CCallMapper::findForwarded(const CTrackedCall& call, const CSipMessage& invite)
{
    int nLooks = 64; // a number that a thousand callers ring at once must not make each of them wait
    for (const auto& [pFrom, nCause] : forwardings(invite))
        for (auto [it, itEnd] = m_mmapRinging.equal_range(pFrom->uri.identity()); it != itEnd && nLooks > 0; ++it)
        {
            --nLooks;
            if (it->second != &call && !it->second->bConnected && it->second->sCaller == call.sCaller)
                return it->second;
        }
    return nullptr;
}
