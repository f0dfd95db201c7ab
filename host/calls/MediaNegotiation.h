#pragma once

#include "calls/RequestOrigin.h"
#include "sip/SessionDescription.h"
#include "sip/SipMessage.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

/// Follows the offers and answers of one call's media.
///
/// An offer travels in INVITE, UPDATE or PRACK and is answered in the response (a reliable provisional one, or the
/// final one) that returns to where the offer was first seen; or it travels in the response to an INVITE without one
/// and is answered in ACK or PRACK. Several may answer one request, each under its To tag: with early media one plays
/// an announcement before another takes the call. Each of them agrees on media of its own.
///
/// Bounded: cMaxExchanges at a time, the oldest gives way; in each cMaxAnswerers, the later ones are left out.
///
/// Threads  one thread.
class CMediaNegotiation
{
public:
    static constexpr std::size_t cMaxExchanges = 8;
    static constexpr std::size_t cMaxAnswerers = 4;

    /// Takes a message of the call's dialog that is no repeat.
    ///
    /// @return the media agreed on when the message completes an exchange, a text a media line; else empty
    std::vector<std::string> take(const CSipMessage& message, const CEndpoint& source);

    /// Session descriptions that could not be read, since it was asked last.
    std::uint64_t takeUnreadable();

private:
    struct CAnswerer
    {
        bool bDone = false;
        std::vector<CSdpMedia> vecOffer; // when it came from this side
    };
    struct CExchange
    {
        std::string sFromTag;
        std::uint32_t dwCSeq = 0;
        std::string sMethod;
        CRequestOrigin origin;
        bool bOffered = false;                         // by the request
        std::vector<CSdpMedia> vecOffer;               // empty also when it is unreadable: nothing is agreed on then
        std::map<std::string, CAnswerer> mapAnswerers; // To tag -> answerer
    };

    CExchange* find(const CSipMessage& message, const std::string& sMethod);
    std::vector<std::string> takeRequest(const CSipMessage& message, const CEndpoint& source);
    std::vector<std::string> takeResponse(const CSipMessage& message);
    std::vector<std::string> answerOffer(CExchange& exchange, const CSipMessage& message);
    static CAnswerer* findAnswerer(CExchange& exchange, const std::string& sTag);
    std::vector<std::string> complete(CAnswerer& answerer, const std::vector<CSdpMedia>& vecOffer,
                                      const std::string& sAnswer);
    bool read(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia);

    std::deque<CExchange> m_deqExchanges; // oldest first
    std::uint64_t m_ullUnreadable = 0;
};
