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
        return pExchange != nullptr ? answerOffer(*pExchange, message) : std::vector<std::string>();
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
            if (exchange.sFromTag == message.from.sTag)
                if (auto vecTexts = answerOffer(exchange, message); !vecTexts.empty())
                    return vecTexts;
    if (message.sMethod != "INVITE" && message.sSdp.empty())
        return {};
    CExchange exchange;
    exchange.sFromTag = message.from.sTag;
    exchange.dwCSeq = message.dwCSeq;
    exchange.sMethod = message.sMethod;
    exchange.origin.note(message, source);
    exchange.bOffered = !message.sSdp.empty();
    if (exchange.bOffered)
        (void)read(message.sSdp, &exchange.vecOffer); // counts what is unreadable
    if (m_deqExchanges.size() == cMaxExchanges)
        m_deqExchanges.pop_front();
    m_deqExchanges.push_back(std::move(exchange));
    return {};
}

std::vector<std::string> CMediaNegotiation::takeResponse(const CSipMessage& message)
{
    CExchange* pExchange = find(message, message.sMethod);
    const bool bCarriesAnswer = (message.nCode >= 200 && message.nCode < 300) || message.bReliable;
    if (pExchange == nullptr || message.sSdp.empty() || !bCarriesAnswer ||
        !pExchange->origin.hasBranch(message.sBranch))
        return {};
    CAnswerer* pAnswerer = findAnswerer(*pExchange, message.to.sTag);
    if (pAnswerer == nullptr || pAnswerer->bDone)
        return {};
    if (pExchange->bOffered)
        return complete(*pAnswerer, pExchange->vecOffer, message.sSdp);
    (void)read(message.sSdp, &pAnswerer->vecOffer); // counts what is unreadable
    return {};
}

/// Finds who answers under a To tag, or notes it; null when there are too many.
CMediaNegotiation::CAnswerer* CMediaNegotiation::findAnswerer(CExchange& exchange, const std::string& sTag)
{
    if (const auto it = exchange.mapAnswerers.find(sTag); it != exchange.mapAnswerers.end())
        return &it->second;
    return exchange.mapAnswerers.size() < cMaxAnswerers ? &exchange.mapAnswerers[sTag] : nullptr;
}

/// Takes the answer to an offer that came in a response.
std::vector<std::string> CMediaNegotiation::answerOffer(CExchange& exchange, const CSipMessage& message)
{
    const auto it = exchange.mapAnswerers.find(message.to.sTag);
    if (it == exchange.mapAnswerers.end() || it->second.vecOffer.empty() || message.sSdp.empty())
        return {};
    return complete(it->second, it->second.vecOffer, message.sSdp);
}

std::vector<std::string> CMediaNegotiation::complete(CAnswerer& answerer, const std::vector<CSdpMedia>& vecOffer,
                                                     const std::string& sAnswer)
{
    std::vector<CSdpMedia> vecAnswer;
    if (answerer.bDone || vecOffer.empty() || !read(sAnswer, &vecAnswer))
        return {};
    answerer.bDone = true;
    return describeMedia(vecOffer, vecAnswer);
}

bool CMediaNegotiation::read(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia)
{
    if (parseSdp(sSdp, pvecMedia))
        return true;
    ++m_ullUnreadable;
    return false;
}
