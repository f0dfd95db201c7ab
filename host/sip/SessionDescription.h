#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A codec that a media line names.
struct CSdpCodec
{
    std::string sPayload; ///< payload type, or format name where media is not RTP
    std::string sName;    ///< "PCMA/8000": encoding and clock rate; the format name where there is no mapping
};

/// A media line of a session description.
struct CSdpMedia
{
    std::string sType; ///< "audio"
    std::string sAddress;
    std::string sPort; ///< "0": refused
    std::vector<CSdpCodec> vecCodecs;
    bool bSends = true; ///< as seen by whoever wrote the description
    bool bReceives = true;
};

/// Reads a session description.
///
/// Bounded: cMaxSdpMedia media lines, 16 codecs each.
///
/// @return false when it is unreadable
[[nodiscard]] bool parseSdp(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia);

inline constexpr std::size_t cMaxSdpMedia = 8;

/// The media that an offer and its answer agree on, a text for each media line of the answer:
/// "audio;ip:port>ip:port;codec/rate;direction". The offerer's end stands first, and the direction is as it sees it.
/// A refused line has port 0, codec "-" and direction "inactive".
[[nodiscard]] std::vector<std::string> describeMedia(const std::vector<CSdpMedia>& vecOffer,
                                                     const std::vector<CSdpMedia>& vecAnswer);
