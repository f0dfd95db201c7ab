// Session descriptions, through the parser library, and what two of them agree on.
#include "sip/SessionDescription.h"

#include "sip/OsipHandles.h"
#include "sip/SipText.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr int cMaxCodecs = 16;
constexpr std::size_t cMaxText = 64;

std::string textOf(const char* pszText)
{
    return toUtf8(pszText != nullptr ? pszText : "", cMaxText);
}

/// Payload types that need no mapping.
std::string staticCodec(std::string_view sPayload)
{
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 12> cStatic = {{{"0", "PCMU/8000"},
                                                                                               {"3", "GSM/8000"},
                                                                                               {"4", "G723/8000"},
                                                                                               {"8", "PCMA/8000"},
                                                                                               {"9", "G722/8000"},
                                                                                               {"13", "CN/8000"},
                                                                                               {"15", "G728/8000"},
                                                                                               {"18", "G729/8000"},
                                                                                               {"26", "JPEG/90000"},
                                                                                               {"31", "H261/90000"},
                                                                                               {"33", "MP2T/90000"},
                                                                                               {"34", "H263/90000"}}};
    for (const auto& [sType, sName] : cStatic)
        if (sType == sPayload)
            return std::string(sName);
    return std::string(sPayload);
}

/// "8 PCMA/8000/1" names payload 8 and is cut to encoding and rate.
bool mapsPayload(std::string_view sValue, std::string_view sPayload, std::string* psName)
{
    const std::size_t uBlank = sValue.find(' ');
    if (uBlank == std::string_view::npos || sValue.substr(0, uBlank) != sPayload)
        return false;
    std::string_view sName = trim(sValue.substr(uBlank + 1));
    if (const std::size_t uSlash = sName.find('/'); uSlash != std::string_view::npos)
        sName = sName.substr(0, sName.find('/', uSlash + 1));
    *psName = sName;
    return true;
}

void applyDirection(std::string_view sAttribute, CSdpMedia* pMedia)
{
    const std::string sName = toLower(sAttribute);
    if (sName == "sendrecv" || sName == "sendonly" || sName == "recvonly" || sName == "inactive")
    {
        pMedia->bSends = sName.starts_with("send");
        pMedia->bReceives = sName == "sendrecv" || sName == "recvonly";
    }
}

/// @param nMedia  index of a media line, -1 for the session
template <class TVisit> void forEachAttribute(sdp_message_t* pSdp, int nMedia, TVisit visit)
{
    constexpr int cMaxAttributes = 256;
    for (int n = 0; n < cMaxAttributes; ++n)
    {
        const sdp_attribute_t* pAttribute = sdp_message_attribute_get(pSdp, nMedia, n);
        if (pAttribute == nullptr)
            return;
        visit(textOf(pAttribute->a_att_field), textOf(pAttribute->a_att_value));
    }
}

CSdpMedia readMedia(sdp_message_t* pSdp, int nMedia)
{
    CSdpMedia media;
    media.sType = textOf(sdp_message_m_media_get(pSdp, nMedia));
    media.sPort = textOf(sdp_message_m_port_get(pSdp, nMedia));
    media.sAddress = textOf(sdp_message_c_addr_get(pSdp, nMedia, 0));
    if (media.sAddress.empty())
        media.sAddress = textOf(sdp_message_c_addr_get(pSdp, -1, 0));
    const bool bRtp = toLower(textOf(sdp_message_m_proto_get(pSdp, nMedia))).find("rtp") != std::string::npos;
    for (int n = 0; n < cMaxCodecs; ++n)
    {
        const char* pszPayload = sdp_message_m_payload_get(pSdp, nMedia, n);
        if (pszPayload == nullptr)
            break;
        const std::string sPayload = textOf(pszPayload);
        media.vecCodecs.push_back({sPayload, bRtp ? staticCodec(sPayload) : sPayload});
    }
    // The session's direction holds for each media line that names none.
    forEachAttribute(pSdp, -1, [&](const std::string& sName, const std::string&) { applyDirection(sName, &media); });
    forEachAttribute(pSdp, nMedia, [&](const std::string& sName, const std::string& sValue) {
        applyDirection(sName, &media);
        if (toLower(sName) == "rtpmap")
            for (CSdpCodec& codec : media.vecCodecs)
                (void)mapsPayload(sValue, codec.sPayload, &codec.sName); // most mappings are another codec's
    });
    return media;
}

/// Tones and comfort noise ride along with the codec that carries the voice.
bool isAuxiliary(const CSdpCodec& codec)
{
    const std::string sName = toLower(codec.sName);
    return sName.starts_with("telephone-event") || sName.starts_with("cn/");
}

std::string agreedCodec(const CSdpMedia& answer)
{
    if (answer.vecCodecs.empty())
        return "-";
    const auto it = std::find_if_not(answer.vecCodecs.begin(), answer.vecCodecs.end(), isAuxiliary);
    return it != answer.vecCodecs.end() ? it->sName : answer.vecCodecs.front().sName;
}

std::string transportAddress(const CSdpMedia& media)
{
    const bool bV6 = media.sAddress.find(':') != std::string::npos;
    return (bV6 ? "[" + media.sAddress + "]" : media.sAddress) + ":" + media.sPort;
}

const char* direction(const CSdpMedia& offer, const CSdpMedia& answer)
{
    const bool bSends = offer.bSends && answer.bReceives;
    const bool bReceives = offer.bReceives && answer.bSends;
    if (bSends)
        return bReceives ? "sendrecv" : "sendonly";
    return bReceives ? "recvonly" : "inactive";
}

} // namespace

/// The parser refuses a description for a line that it cannot place, for one that is empty and for one that is missing;
/// much of that is in use, and the media do not depend on it. It gets what they need, in the order it knows.
///
/// @return empty when this is no description
static std::string essentialLines(std::string_view sSdp)
{
    struct CSection // of the session, then of each media line
    {
        std::string sMedia;
        std::string sConnection;
        std::string sAttributes;
    };
    std::vector<CSection> vecSections(1);
    bool bVersion = false;
    while (!sSdp.empty())
    {
        const std::size_t uEnd = std::min(sSdp.find('\n'), sSdp.size() - 1);
        const std::string sLine = std::string(trim(sSdp.substr(0, uEnd + 1))) + "\r\n";
        sSdp.remove_prefix(uEnd + 1);
        bVersion = bVersion || sLine.starts_with("v=");
        if (sLine.size() <= 4 || sLine[1] != '=')
            continue;
        if (sLine[0] == 'm')
            vecSections.push_back({sLine, "", ""});
        else if (sLine[0] == 'c' && vecSections.back().sConnection.empty())
            vecSections.back().sConnection = sLine;
        else if (sLine[0] == 'a')
            vecSections.back().sAttributes += sLine;
    }
    if (!bVersion)
        return "";
    std::string sResult = "v=0\r\no=- 0 0 IN IP4 0.0.0.0\r\ns=-\r\n" + vecSections[0].sConnection + "t=0 0\r\n" +
                          vecSections[0].sAttributes;
    for (std::size_t u = 1; u < vecSections.size(); ++u)
        sResult += vecSections[u].sMedia + vecSections[u].sConnection + vecSections[u].sAttributes;
    return sResult;
}

bool parseSdp(const std::string& sSdp, std::vector<CSdpMedia>* pvecMedia)
{
    prepareOsip();
    const auto pSdp = makeOsip<sdp_message_t, sdp_message_init>();
    if (pSdp == nullptr || sdp_message_parse(pSdp.get(), essentialLines(sSdp).c_str()) != 0)
        return false;
    std::vector<CSdpMedia> vecMedia;
    for (int n = 0; n < static_cast<int>(cMaxSdpMedia) && sdp_message_endof_media(pSdp.get(), n) == 0; ++n)
        vecMedia.push_back(readMedia(pSdp.get(), n));
    *pvecMedia = std::move(vecMedia);
    return true;
}

std::vector<std::string> describeMedia(const std::vector<CSdpMedia>& vecOffer, const std::vector<CSdpMedia>& vecAnswer)
{
    std::vector<std::string> vecTexts;
    for (std::size_t u = 0; u < vecOffer.size() && u < vecAnswer.size(); ++u) // lines pair by their place
    {
        const CSdpMedia& offer = vecOffer[u];
        const CSdpMedia& answer = vecAnswer[u];
        const bool bRefused = answer.sPort == "0";
        vecTexts.push_back(answer.sType + ";" + transportAddress(offer) + ">" + transportAddress(answer) + ";" +
                           (bRefused ? "-" : agreedCodec(answer)) + ";" +
                           (bRefused ? "inactive" : direction(offer, answer)));
    }
    return vecTexts;
}
