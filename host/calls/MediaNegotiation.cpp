// Offers, answers, and the media they agree on.
#include "calls/MediaNegotiation.h"

#include <algorithm>
#include <utility>

std::vector<std::string> CMediaNegotiation::take(const CSipMessage& message, const CEndpoint& source)
{
    return message.isRequest() ? takeRequest(message, source) : takeResponse(message);
}

std::uint64_t CMediaNegotiation::takeUnreadable()
{
    return std::exchange(m_ullUnreadable, 0);
}

CMediaNegotiation::CExchange* CMediaNegotiation::find(const CSipMessage& message, const std::string& sMethod)
{
    const auto it = std::find_if(m_deqExchanges.begin(), m_deqExchanges.end(), [&](const CExchange& exchange) {
        return exchange.dwCSeq == message.dwCSeq && exchange.sFromTag == message.from.sTag &&
               exchange.sMethod == sMethod;
    });
    return it != m_deqExchanges.end() ? &*it : nullptr;
}

std::vector<std::string> CMediaNegotiation::takeRequest(const CSipMessage& message, const CEndpoint& source)
{
    if (message.sMethod == "ACK")
    {
        CExchange* pExchange = find(message, "INVITE");
        if (pExchange == nullptr || !pExchange->bOfferInResponse || message.sSdp.empty())
            return {};
        return complete(*pExchange, message.sSdp);
    }
    if (message.sMethod != "INVITE" && message.sMethod != "UPDATE" && message.sMethod != "PRACK")
        return {};
    if (CExchange* pExchange = find(message, message.sMethod))
    {
        pExchange->origin.note(message, source); // further down its way, or to another server
        return {};
    }
    if (message.sMethod == "PRACK" && !message.sSdp.empty())
        for (CExchange& exchange : m_deqExchanges)
            if (exchange.bOfferInResponse && !exchange.bDone && exchange.sFromTag == message.from.sTag)
                return complete(exchange, message.sSdp);
    if (message.sMethod != "INVITE" && message.sSdp.empty())
        return {};
    CExchange exchange;
    exchange.sFromTag = message.from.sTag;
    exchange.dwCSeq = message.dwCSeq;
    exchange.sMethod = message.sMethod;
    exchange.origin.note(message, source);
    exchange.bDone = !message.sSdp.empty() && !read(message.sSdp, &exchange.vecOffer);
    if (m_deqExchanges.size() == cMaxExchanges)
        m_deqExchanges.pop_front();
    m_deqExchanges.push_back(std::move(exchange));
    return {};
}

std::vector<std::string> CMediaNegotiation::takeResponse(const CSipMessage& message)
{
    CExchange* pExchange = find(message, message.sMethod);
    const bool bCarriesAnswer = (message.nCode >= 200 && message.nCode < 300) || message.bReliable;
    if (pExchange == nullptr || pExchange->bDone || message.sSdp.empty() || !bCarriesAnswer ||
        !pExchange->origin.hasBranch(message.sBranch))
        return {};
    if (!pExchange->vecOffer.empty() && !pExchange->bOfferInResponse)
        return complete(*pExchange, message.sSdp);
    pExchange->bOfferInResponse = read(message.sSdp, &pExchange->vecOffer);
    return {};
}

std::vector<std::string> CMediaNegotiation::complete(CExchange& exchange, const std::string& sAnswer)
{
    std::vector<CSdpMedia> vecAnswer;
    if (exchange.bDone || !read(sAnswer, &vecAnswer))
        return {};
    exchange.bDone = true;
    return describeMedia(exchange.vecOffer, vecAnswer);
}

bool CMediaNegotiation::read(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia)
{
    if (parseSdp(sSdp, pvecMedia))
        return true;
    ++m_ullUnreadable;
    return false;
}
