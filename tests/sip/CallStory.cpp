#include "CallStory.h"

#include "sip/SipParser.h"

#include <array>
#include <gtest/gtest.h>
#include <sstream>

namespace {

CEndpoint endpointOf(const std::string& sWho)
{
    const std::array<std::uint8_t, 4> bytes = {10, 0, 0, static_cast<std::uint8_t>(sWho.at(0) - 'A' + 1)};
    const int nPort = 5060 + (sWho.size() > 1 ? sWho[1] - '0' : 0);
    return {CIpAddress(bytes), static_cast<std::uint16_t>(nPort)};
}

/// The words of a line: those with "=" are settings, the others belong to the first line.
struct CLine
{
    CEndpoint source;
    CEndpoint destination;
    std::string sFirst;
    std::map<std::string, std::string> mapSettings = {{"call", "c1"},
                                                      {"cseq", "1"},
                                                      {"method", "INVITE"},
                                                      {"branch", "a1"},
                                                      {"ftag", "alice"},
                                                      {"ttag", ""},
                                                      {"uri", "sip:bob@example.com"},
                                                      {"from", "<sip:alice@example.com>"},
                                                      {"to", "<sip:bob@example.com>"}};
};

CLine readLine(const std::string& sText)
{
    CLine line;
    std::istringstream words(sText);
    std::string sWord;
    words >> sWord;
    line.source = endpointOf(sWord.substr(0, sWord.find('>')));
    line.destination = endpointOf(sWord.substr(sWord.find('>') + 1));
    while (words >> sWord)
    {
        const std::size_t uEquals = sWord.find('=');
        if (uEquals != std::string::npos)
            line.mapSettings[sWord.substr(0, uEquals)] = sWord.substr(uEquals + 1);
        else
            line.sFirst += (line.sFirst.empty() ? "" : " ") + sWord;
    }
    return line;
}

} // namespace

void CCallStory::say(const std::string& sLine, const std::vector<std::string>& vecFields, const std::string& sSdp)
{
    CLine line = readLine(sLine);
    auto& settings = line.mapSettings;
    const bool bResponse = line.sFirst.at(0) >= '1' && line.sFirst.at(0) <= '6';
    if (!bResponse)
        settings["method"] = line.sFirst;
    const auto tagged = [&](const std::string& sAddress, const std::string& sTag) {
        return settings[sAddress] + (settings[sTag].empty() ? "" : ";tag=" + settings[sTag]);
    };
    std::string sBytes =
        (bResponse ? "SIP/2.0 " + line.sFirst : line.sFirst + " " + settings["uri"] + " SIP/2.0") +
        "\r\nVia: SIP/2.0/UDP host;branch=" + settings["branch"] + "\r\nFrom: " + tagged("from", "ftag") + "\r\n" +
        (settings["to"].empty() ? "" : "To: " + tagged("to", "ttag") + "\r\n") + "Call-ID: " + settings["call"] +
        "\r\nCSeq: " + settings["cseq"] + " " + settings["method"] + "\r\n";
    for (const std::string& sField : vecFields)
        sBytes += sField + "\r\n";
    if (!sSdp.empty())
        sBytes += "Content-Type: application/sdp\r\n";
    CSipMessage message;
    ASSERT_STREQ(parseSip(sBytes + "\r\n" + sSdp, &message), nullptr) << sBytes;
    m_mapper.onMessage(message, line.source, line.destination, m_llNow);
}

void CCallStory::answer()
{
    say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    say("P>A 100 Trying branch=a1");
    say("P>B INVITE branch=p1", {}, audio("10.0.0.1", 4000));
    after(1).say("B>P 180 Ringing branch=p1 ttag=bob");
    say("P>A 180 Ringing branch=a1 ttag=bob");
    after(1).say("B>P 200 OK branch=p1 ttag=bob", {}, audio("10.0.0.2", 5000));
    say("P>A 200 OK branch=a1 ttag=bob", {}, audio("10.0.0.2", 5000));
    say("A>P ACK branch=a2 ttag=bob");
    say("P>B ACK branch=p2 ttag=bob");
}

std::string audio(const std::string& sAddress, int nPort, const std::string& sAttribute)
{
    return "v=0\r\no=- 1 1 IN IP4 h\r\ns=-\r\nc=IN IP4 " + sAddress + "\r\nt=0 0\r\nm=audio " + std::to_string(nPort) +
           " RTP/AVP 8\r\na=" + sAttribute + "\r\n";
}
