// SIP messages, through the parser library.
#include "sip/SipParser.h"

#include "sip/OsipHandles.h"
#include "sip/SipHead.h"
#include "sip/SipText.h"

#include <charconv>

namespace {

/// Longest Call-ID, longest URI: more is an attack on whoever stores it.
constexpr std::size_t cMaxCallID = 512;
constexpr std::size_t cMaxUri = 1024;
constexpr std::size_t cMaxTag = 256; ///< tags and branches
constexpr std::size_t cMaxAddresses = 32;

std::string textOf(const char* pszText)
{
    return pszText != nullptr ? pszText : "";
}

template <class TNumber> TNumber numberOf(std::string_view sText, TNumber nDefault)
{
    TNumber nValue = nDefault;
    (void)std::from_chars(sText.data(), sText.data() + sText.size(), nValue); // what is no number stays the default
    return nValue;
}

CSipUri convertUri(const osip_uri_t& uri, std::string_view sText)
{
    CSipUri result;
    result.sText = sText;
    result.sScheme = toLower(textOf(uri.scheme));
    if (uri.string != nullptr) // any scheme but sip and sips: what follows the colon
    {
        const std::string sRest = uri.string;
        result.sUser = sRest.substr(0, sRest.find(';'));
        return result;
    }
    const std::string sUser = textOf(uri.username);
    result.sUser = percentDecode(sUser.substr(0, sUser.find(';')));
    result.sHost = textOf(uri.host);
    if (uri.port != nullptr)
        result.sHost.append(":").append(uri.port);
    return result;
}

/// The URI inside an address field's value: between the brackets, or up to the first parameter.
std::string_view uriText(std::string_view sAddress)
{
    if (sAddress.starts_with('<'))
        return trim(sAddress.substr(1, sAddress.find('>') - 1));
    return trim(sAddress.substr(0, sAddress.find(';')));
}

bool parseUri(std::string_view sText, CSipUri* pUri)
{
    if (sText.empty() || sText.size() > cMaxUri)
        return false;
    const auto pOsip = makeOsip<osip_uri_t, osip_uri_init>();
    if (pOsip == nullptr || osip_uri_parse(pOsip.get(), std::string(sText).c_str()) != 0)
        return false;
    *pUri = convertUri(*pOsip, sText);
    return true;
}

/// The cause that a Diversion's reason stands for, as the header fields are translated into each other.
int causeOfDiversion(std::string_view sReason)
{
    if (sReason == "user-busy")
        return 486;
    if (sReason == "no-answer")
        return 408;
    if (sReason == "unconditional")
        return 302;
    if (sReason == "deflection")
        return 480;
    return sReason == "unavailable" ? 503 : 0;
}

/// "...?Reason=SIP%3Bcause%3D486" in a History-Info URI; newer equipment writes "cause=486" into the URI itself.
int causeOfHistory(const std::string& sUri)
{
    const std::string sDecoded = toLower(percentDecode(sUri));
    const std::size_t uAt = sDecoded.find("cause=");
    return uAt == std::string::npos ? 0 : numberOf(std::string_view(sDecoded).substr(uAt + 6), 0);
}

bool parseAddress(std::string_view sValue, CSipAddress* pAddress)
{
    const CNameAddr parts = splitNameAddr(sValue);
    const auto pOsip = makeOsip<osip_from_t, osip_from_init>();
    if (pOsip == nullptr || parts.sAddress.size() > cMaxUri ||
        osip_from_parse(pOsip.get(), std::string(parts.sAddress).c_str()) != 0 || pOsip->url == nullptr)
        return false;
    pAddress->sName = parts.sName;
    pAddress->uri = convertUri(*pOsip->url, uriText(parts.sAddress));
    osip_generic_param_t* pTag = nullptr;
    char szTag[] = "tag"; // the library's own macro takes a literal for a char*, which clang refuses
    if (osip_from_param_get_byname(pOsip.get(), szTag, &pTag) == 0 && pTag != nullptr)
        pAddress->sTag = textOf(pTag->gvalue);
    osip_generic_param_t* pReason = nullptr;
    char szReason[] = "reason";
    if (osip_from_param_get_byname(pOsip.get(), szReason, &pReason) == 0 && pReason != nullptr)
        pAddress->nCause = causeOfDiversion(toLower(unquote(textOf(pReason->gvalue))));
    return true;
}

std::vector<CSipAddress> addresses(const CSipHead& head, std::string_view sName)
{
    std::vector<CSipAddress> vecAddresses;
    for (const std::string& sValue : head.values(sName))
        if (CSipAddress address; vecAddresses.size() < cMaxAddresses && parseAddress(sValue, &address))
            vecAddresses.push_back(std::move(address));
    return vecAddresses;
}

CSipReason parseReason(std::string_view sValue)
{
    CSipReason reason;
    const auto vecParts = splitList(sValue, ';');
    reason.sProtocol = vecParts.empty() ? "" : std::string(vecParts[0]);
    for (const std::string_view sPart : vecParts)
    {
        const std::size_t uEquals = sPart.find('=');
        if (uEquals == std::string_view::npos)
            continue;
        const std::string sName = toLower(trim(sPart.substr(0, uEquals)));
        if (sName == "cause")
            reason.nCause = numberOf(trim(sPart.substr(uEquals + 1)), 0);
        else if (sName == "text")
            reason.sText = unquote(sPart.substr(uEquals + 1));
    }
    return reason;
}

/// The parts without which a message is none: first line, Via, CSeq, through the parser in one message.
const char* parseCore(const CSipHead& head, CSipMessage* pMessage)
{
    const std::string* psCSeq = head.field("cseq");
    const auto vecVias = head.values("via");
    if (psCSeq == nullptr)
        return "SIP message without CSeq";
    const std::string sCore = head.startLine() + (vecVias.empty() ? "" : "\r\nVia: " + vecVias[0]) +
                              "\r\nCSeq: " + *psCSeq + "\r\nCall-ID: x\r\n\r\n";
    const auto pOsip = makeOsip<osip_message_t, osip_message_init>();
    if (pOsip == nullptr || osip_message_parse(pOsip.get(), sCore.c_str(), sCore.size()) != 0)
        return "SIP message unreadable";
    if (pOsip->cseq == nullptr || pOsip->cseq->number == nullptr || pOsip->cseq->method == nullptr)
        return "SIP message without CSeq";
    pMessage->dwCSeq = numberOf<std::uint32_t>(pOsip->cseq->number, 0);
    pMessage->nCode = pOsip->status_code;
    pMessage->sReason = textOf(pOsip->reason_phrase);
    pMessage->sMethod = pMessage->isRequest() ? textOf(pOsip->sip_method) : textOf(pOsip->cseq->method);
    if (pMessage->nCode != 0 && (pMessage->nCode < 100 || pMessage->nCode > 699))
        return "SIP response with an impossible code";
    if (pMessage->isRequest())
    {
        if (pOsip->req_uri == nullptr || pMessage->sMethod.empty() || pMessage->sMethod != pOsip->cseq->method)
            return "SIP request whose CSeq is of another method";
        const std::string& sLine = head.startLine();
        const std::size_t uBegin = sLine.find(' ') + 1;
        if (sLine.size() > cMaxUri)
            return "SIP request target too long";
        pMessage->requestUri = convertUri(*pOsip->req_uri, trim(sLine.substr(uBegin, sLine.rfind(' ') - uBegin)));
    }
    osip_via_t* pVia = nullptr;
    osip_generic_param_t* pBranch = nullptr;
    if (osip_message_get_via(pOsip.get(), 0, &pVia) >= 0 && pVia != nullptr &&
        osip_via_param_get_byname(pVia, const_cast<char*>("branch"), &pBranch) == 0 && pBranch != nullptr)
        pMessage->sBranch = textOf(pBranch->gvalue);
    return pMessage->sBranch.size() > cMaxTag ? "SIP tag or branch too long" : nullptr;
}

const char* parseDialog(const CSipHead& head, CSipMessage* pMessage)
{
    const std::string* psCallID = head.field("call-id");
    if (psCallID == nullptr || psCallID->empty())
        return "SIP message without Call-ID";
    if (psCallID->size() > cMaxCallID)
        return "SIP Call-ID too long";
    pMessage->sCallID = *psCallID;
    const std::string* psFrom = head.field("from");
    if (psFrom == nullptr || !parseAddress(*psFrom, &pMessage->from))
        return "SIP message without a usable From";
    // Of two To fields the first counts. Without a usable one the request's target says who was called.
    if (const std::string* psTo = head.field("to"); psTo != nullptr)
        (void)parseAddress(*psTo, &pMessage->to);
    if (pMessage->from.sTag.size() > cMaxTag || pMessage->to.sTag.size() > cMaxTag)
        return "SIP tag or branch too long";
    return nullptr;
}

/// Where the next part of a body begins: behind the boundary, which stands at the beginning of a line.
std::size_t findPart(std::string_view sBody, std::string_view sBoundary, std::size_t uFrom)
{
    for (std::size_t u = sBody.find(sBoundary, uFrom); u != std::string_view::npos; u = sBody.find(sBoundary, u + 1))
        if (u == 0 || sBody[u - 1] == '\n')
            return u + sBoundary.size();
    return std::string_view::npos;
}

/// The session description in a body of this type; empty when there is none. It may be one of several parts, beside
/// what another network's signalling or a caller's picture need; parts within parts are not looked into.
std::string findSdp(std::string_view sType, std::string_view sBody)
{
    const std::string sLower = toLower(sType);
    if (sLower.starts_with("application/sdp"))
        return std::string(sBody);
    if (!sLower.starts_with("multipart/"))
        return "";
    constexpr std::string_view cBoundary = "boundary=";
    std::string sBoundary;
    for (const std::string_view sParameter : splitList(sType, ';'))
        if (toLower(sParameter).starts_with(cBoundary))
            sBoundary = unquote(sParameter.substr(cBoundary.size()));
    if (sBoundary.empty())
        return "";
    sBoundary.insert(0, "--");
    for (std::size_t u = findPart(sBody, sBoundary, 0); u != std::string_view::npos;)
    {
        const std::size_t uNext = findPart(sBody, sBoundary, u);
        const std::size_t uEnd = uNext == std::string_view::npos ? sBody.size() : uNext - sBoundary.size();
        const CSipHead part(sBody.substr(u, uEnd - u)); // the rest of the boundary's line stands for a first line
        if (const std::string* psType = part.field("content-type");
            psType != nullptr && toLower(*psType).starts_with("application/sdp"))
            return part.body();
        u = uNext;
    }
    return "";
}

void parseDetails(const CSipHead& head, CSipMessage* pMessage)
{
    pMessage->vecAsserted = addresses(head, "p-asserted-identity");
    pMessage->vecContacts = addresses(head, "contact");
    pMessage->vecDiversion = addresses(head, "diversion");
    pMessage->vecHistory = addresses(head, "history-info");
    for (CSipAddress& entry : pMessage->vecHistory)
        entry.nCause = causeOfHistory(entry.uri.sText);
    for (const std::string& sReason : head.values("reason"))
        if (pMessage->vecReasons.size() < cMaxAddresses)
            pMessage->vecReasons.push_back(parseReason(sReason));
    if (const std::string* psReferTo = head.field("refer-to"))
        (void)parseUri(uriText(splitNameAddr(*psReferTo).sAddress), &pMessage->referTo);
    if (const std::string* psReplaces = head.field("replaces"))
        pMessage->sReplacesCallID = trim(std::string_view(*psReplaces).substr(0, psReplaces->find(';')));
    if (pMessage->sReplacesCallID.size() > cMaxCallID)
        pMessage->sReplacesCallID.clear();
    if (const std::string* psRSeq = head.field("rseq"))
    {
        pMessage->bReliable = true;
        pMessage->dwRSeq = numberOf<std::uint32_t>(*psRSeq, 0);
    }
    if (const std::string* psExpires = head.field("session-expires"))
        pMessage->dwSessionExpires = numberOf<std::uint32_t>(*psExpires, 0);
    if (const std::string* psType = head.field("content-type"))
        pMessage->sSdp = findSdp(*psType, head.body());
}

} // namespace

const char* parseSip(std::string_view sBytes, CSipMessage* pMessage)
{
    prepareOsip();
    if (sBytes.substr(0, findEndOfHead(sBytes)).find('\0') != std::string_view::npos)
        return "SIP message with a zero byte"; // the parser would take it for the end; a body may hold anything
    const CSipHead head(sBytes);
    CSipMessage message;
    if (const char* pszWhy = parseCore(head, &message))
        return pszWhy;
    if (const char* pszWhy = parseDialog(head, &message))
        return pszWhy;
    parseDetails(head, &message);
    *pMessage = std::move(message);
    return nullptr;
}
