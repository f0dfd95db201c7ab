// The call mapper: which calls there are, their time-outs, and the values they get.
#include "calls/CallMapper.h"

#include "CDSNames.h"
#include "sip/SipParser.h"
#include "sip/SipText.h"

#include <algorithm>
#include <functional>

namespace {

constexpr std::int64_t cSecond = 1'000'000;
constexpr std::string_view cAfterTheEnd = "INVITE of a call that has ended";
constexpr std::uint64_t cSecondsFrom1601To1970 = 11'644'473'600ULL;

std::size_t repeatHash(const CSipMessage& message, const CEndpoint& source, const CEndpoint& destination)
{
    // The To tag tells the answers of two forks apart, which reach the originator in one transaction; the number in
    // RSeq tells the provisional responses of one that differ in nothing else.
    std::string sKey = std::to_string(message.dwCSeq) + ' ' + message.sMethod + ' ' + std::to_string(message.nCode) +
                       ' ' + message.sBranch + ' ' + message.to.sTag + ' ' + std::to_string(message.dwRSeq) + ' ' +
                       source.toString() + ' ' + destination.toString();
    return std::hash<std::string>{}(sKey);
}

} // namespace

bool CSeenSet::insert(std::size_t uHash)
{
    if (!m_setSeen.insert(uHash).second)
        return false;
    m_deqOrder.push_back(uHash);
    if (m_deqOrder.size() > cMaxSeen)
    {
        m_setSeen.erase(m_deqOrder.front());
        m_deqOrder.pop_front();
    }
    return true;
}

CCallMapper::CCallMapper(CCallSink& sink, CIntakeCounts& counts, CCallMapperSettings settings)
    : m_sink(sink), m_counts(counts), m_settings(settings)
{
}

void CCallMapper::onCaptured(const CCapturedMessage& captured)
{
    CSipMessage message;
    if (const char* pszWhy = parseSip(captured.sBytes, &message))
        m_counts.refuse(pszWhy);
    else
        onMessage(message, captured.source, captured.destination, captured.llMicros);
}

void CCallMapper::onMessage(const CSipMessage& message, const CEndpoint& source, const CEndpoint& destination,
                            std::int64_t llMicros)
{
    ++m_ullMessages;
    const CContext context{message, source, destination, llMicros, m_clock.take(llMicros)};
    closeOverdue();
    CTrackedCall* pCall = findOrBegin(context);
    if (pCall == nullptr)
        return;
    if (!pCall->seen.insert(repeatHash(message, source, destination)))
    {
        ++m_ullRepeats;
        return;
    }
    if (pCall->bEnded)
    {
        m_counts.ignore(message.isRequest() && message.sMethod == "INVITE" && message.to.sTag.empty()
                            ? cAfterTheEnd
                            : "message of a call that has ended");
        return;
    }
    pCall->llLast = context.llTime;
    dispatch(*pCall, context);
    emit(*pCall);
    setDeadline(*pCall);
    for (CTrackedCall* pTouched : m_vecTouched)
        if (pTouched != pCall)
            emit(*pTouched);
    m_vecTouched.clear();
}

CTrackedCall* CCallMapper::findOrBegin(const CContext& context)
{
    const CSipMessage& message = context.message;
    if (const auto it = m_mapCalls.find(message.sCallID); it != m_mapCalls.end())
        return it->second.get();
    if (message.isRequest() && message.sMethod == "INVITE" && message.to.sTag.empty())
        return begin(context);
    static constexpr std::string_view cNotCalls[] = {"REGISTER", "OPTIONS", "SUBSCRIBE",
                                                     "PUBLISH",  "MESSAGE", "NOTIFY"};
    const bool bCall = std::find(std::begin(cNotCalls), std::end(cNotCalls), message.sMethod) == std::end(cNotCalls);
    m_counts.ignore(bCall ? "message of a call whose beginning was not seen" : "message that is about no call");
    return nullptr;
}

CTrackedCall* CCallMapper::begin(const CContext& context)
{
    const std::string sRecordID =
        "sip:" + context.message.sCallID; // alone a Call-ID may be "*", which means every call
    if (!m_sink.onCallBegin(sRecordID))
    {
        m_counts.ignore(cAfterTheEnd);
        return nullptr;
    }
    makeRoom();
    auto pNew = std::make_unique<CTrackedCall>();
    CTrackedCall& call = *pNew;
    call.sCallID = context.message.sCallID;
    call.sRecordID = sRecordID;
    call.origin = context.source;
    call.sOriginTag = context.message.from.sTag;
    call.llLast = context.llTime;
    call.itDeadline = m_mmapDeadlines.emplace(0, &call);
    m_mapCalls.emplace(call.sCallID, std::move(pNew));
    ++m_uOpen;
    describeParties(call, context);
    call.itRinging = m_mmapRinging.emplace(call.sCalled, &call);
    relateNewCall(call, context);
    return &call;
}

void CCallMapper::makeRoom()
{
    while (m_mapCalls.size() >= m_settings.uMaxCalls && !m_mmapDeadlines.empty())
    {
        CTrackedCall& call = *m_mmapDeadlines.begin()->second; // it would go first anyway
        if (!call.bEnded)
        {
            m_counts.warn("too many calls: one was closed");
            end(call, "timeout", "-", "too many calls", "closed: too many calls at once",
                m_clock.stampOf(m_clock.now()));
            emit(call);
        }
        forget(call);
    }
}

void CCallMapper::forget(CTrackedCall& call)
{
    m_mmapDeadlines.erase(call.itDeadline);
    m_mapCalls.erase(m_mapCalls.find(call.sCallID)); // by place: the key belongs to what goes
}

void CCallMapper::dispatch(CTrackedCall& call, const CContext& context)
{
    const CSipMessage& message = context.message;
    if (message.isRequest())
    {
        if (message.sMethod == "INVITE" && message.to.sTag.empty())
            onInvite(call, context);
        else if (message.sMethod == "BYE")
            onBye(call, context);
        else if (message.sMethod == "REFER")
            linkTransfer(m_transfers.onRefer(message, context.destination.address, context.llMicros), context.llMicros);
    }
    else if (message.sMethod == "INVITE")
        onInviteResponse(call, context);
    else if (message.sMethod == "REFER")
        linkTransfer(m_transfers.onReferAnswered(message, context.source.address, context.llMicros), context.llMicros);
    if (!call.bEnded)
    {
        noteMedia(call, context);
        noteSessionTimer(call, context);
    }
}

void CCallMapper::closeOverdue()
{
    while (!m_mmapDeadlines.empty() && m_mmapDeadlines.begin()->first <= m_clock.now())
    {
        CTrackedCall& call = *m_mmapDeadlines.begin()->second;
        if (call.bEnded)
            forget(call);
        else
            expire(call, m_mmapDeadlines.begin()->first);
    }
}

void CCallMapper::expire(CTrackedCall& call, std::int64_t llTime)
{
    const std::int64_t llMicros = m_clock.stampOf(llTime);
    if (call.rejection)
    {
        const CRejection rejection = *call.rejection;
        const std::string sCode = std::to_string(rejection.nCode);
        end(call, "failed", sCode, rejection.sReason, sCode + " " + rejection.sReason, rejection.llMicros);
    }
    else if (call.llSessionEnd != 0 && llTime >= call.llSessionEnd)
        end(call, "timeout", "-", "session timer", "closed: the session was not refreshed in time", llMicros);
    else
        end(call, "timeout", "-", "idle", "closed: nothing was heard of the call", llMicros);
    emit(call);
    setDeadline(call);
}

void CCallMapper::finish(bool bCloseOpen)
{
    for (const auto& [sCallID, pCall] : m_mapCalls)
    {
        if (pCall->bEnded || (!pCall->rejection && !bCloseOpen))
            continue;
        if (pCall->rejection)
        {
            expire(*pCall, m_clock.now());
            continue;
        }
        end(*pCall, "timeout", "-", "capture ended", "closed: the capture ended", m_clock.stampOf(m_clock.now()));
        emit(*pCall);
        setDeadline(*pCall);
    }
}

void CCallMapper::setDeadline(CTrackedCall& call)
{
    std::int64_t llDeadline = call.llLast + cLingerMicros; // of an ended call: until its repeats have died away
    if (!call.bEnded && call.llSessionEnd != 0)
        llDeadline = call.llSessionEnd;
    else if (!call.bEnded)
        llDeadline = call.llLast +
                     (call.bConnected ? m_settings.llAnsweredIdleSeconds : m_settings.llRingingIdleSeconds) * cSecond;
    m_mmapDeadlines.erase(call.itDeadline);
    call.itDeadline = m_mmapDeadlines.emplace(llDeadline, &call);
}

void CCallMapper::emit(CTrackedCall& call)
{
    if (!call.vecChanges.empty())
        m_sink.onCallUpdate(call.sRecordID, call.vecChanges);
    call.vecChanges.clear();
    if (call.bEnded)
        m_sink.onCallEnd(call.sRecordID);
}

void CCallMapper::setProperty(CTrackedCall& call, const std::string& sName, std::string_view sValue,
                              std::int64_t llMicros)
{
    if (!sValue.empty())
        change(call, false, sName, sValue, llMicros);
}

void CCallMapper::appendEntry(CTrackedCall& call, const std::string& sName, std::string_view sValue,
                              std::int64_t llMicros)
{
    change(call, true, sName, sValue, llMicros);
}

void CCallMapper::change(CTrackedCall& call, bool bLogEntry, const std::string& sName, std::string_view sValue,
                         std::int64_t llMicros)
{
    // The end is always told, else the record would stay open for ever.
    if (call.uEvents >= cMaxEvents && !call.bEnded)
    {
        m_counts.warn("a call has too many events: some are left out");
        return;
    }
    ++call.uEvents;
    // A property takes only a later value, and an entry is known by its stamp: within one microsecond, and where the
    // capture steps back, the increment says what comes next.
    CCDSTimestamp tsStamp((static_cast<std::uint64_t>(llMicros) + cSecondsFrom1601To1970 * 1'000'000) * 10, 0);
    const auto [it, bFirst] = call.mapStamps.try_emplace(sName, tsStamp);
    if (!bFirst)
    {
        if (!(tsStamp > it->second))
            tsStamp.set(it->second.value(), it->second.incrementValue() + 1);
        it->second = tsStamp;
    }
    std::string sText = toUtf8(sValue, cMaxValue);
    sText.push_back('\0');
    call.vecChanges.push_back({bLogEntry, sName, std::move(sText), tsStamp});
}

void CCallMapper::end(CTrackedCall& call, std::string_view sWho, std::string_view sCode, std::string_view sReason,
                      std::string_view sComment, std::int64_t llMicros)
{
    call.bEnded = true;
    --m_uOpen;
    m_mmapRinging.erase(call.itRinging);
    appendEntry(call, CDSLOG_DISCONNECT_ENTRY, std::string(sWho).append(";").append(sCode).append(";").append(sReason),
                llMicros);
    setProperty(call, CDSPROP_COMMENT, sComment, llMicros);
}

CTrackedCall* CCallMapper::findOpen(const std::string& sCallID)
{
    const auto it = m_mapCalls.find(sCallID);
    return it != m_mapCalls.end() && !it->second->bEnded ? it->second.get() : nullptr;
}
