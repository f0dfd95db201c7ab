#pragma once

#include "calls/RequestOrigin.h"
#include "sip/SessionDescription.h"
#include "sip/SipMessage.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

/// Follows the offers and answers of one call's media.
///
/// An offer travels in INVITE, UPDATE or PRACK and is answered in the response (a reliable provisional one, or the
/// final one) that returns to where the offer was first seen; or it travels in the response to an INVITE without one
/// and is answered in ACK or PRACK.
///
/// Bounded: cMaxExchanges at a time, the oldest gives way.
///
/// Threads  one thread.
class CMediaNegotiation
{
public:
    static constexpr std::size_t cMaxExchanges = 8;

    /// Takes a message of the call's dialog that is no repeat.
    ///
    /// @return the media agreed on when the message completes an exchange, a text a media line; else empty
    std::vector<std::string> take(const CSipMessage& message, const CEndpoint& source);

    /// Session descriptions that could not be read, since it was asked last.
    std::uint64_t takeUnreadable();

private:
    struct CExchange
    {
        std::string sFromTag;
        std::uint32_t dwCSeq = 0;
        std::string sMethod;
        CRequestOrigin origin;
        bool bOfferInResponse = false;
        bool bDone = false;
        std::vector<CSdpMedia> vecOffer;
    };

    CExchange* find(const CSipMessage& message, const std::string& sMethod);
    std::vector<std::string> takeRequest(const CSipMessage& message, const CEndpoint& source);
    std::vector<std::string> takeResponse(const CSipMessage& message);
    std::vector<std::string> complete(CExchange& exchange, const std::string& sAnswer);
    bool read(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia);

    std::deque<CExchange> m_deqExchanges; // oldest first
    std::uint64_t m_ullUnreadable = 0;
};
