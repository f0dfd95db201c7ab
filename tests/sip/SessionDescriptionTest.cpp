#include "sip/SessionDescription.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;

std::vector<CSdpMedia> media(const std::string& sLines)
{
    std::vector<CSdpMedia> vecMedia;
    EXPECT_TRUE(parseSdp("v=0\r\no=- 1 1 IN IP4 h\r\ns=-\r\nc=IN IP4 10.0.0.9\r\nt=0 0\r\n" + sLines, &vecMedia));
    return vecMedia;
}

TEST(SessionDescriptionTest, DescribesWhatWasAgreed)
{
    EXPECT_THAT(describeMedia(media("m=audio 4000 RTP/AVP 8 0\r\n"), media("m=audio 5000 RTP/AVP 0\r\n")),
                ElementsAre("audio;10.0.0.9:4000>10.0.0.9:5000;PCMU/8000;sendrecv"));
}

TEST(SessionDescriptionTest, TakesAddressAndMappingOfTheMediaLine)
{
    EXPECT_THAT(describeMedia(media("m=audio 4000 RTP/AVP 96\r\nc=IN IP6 fe80::1\r\na=rtpmap:96 opus/48000/2\r\n"),
                              media("m=audio 5000 RTP/AVP 101 96\r\na=rtpmap:101 telephone-event/8000\r\n"
                                    "a=rtpmap:96 opus/48000/2\r\n")),
                ElementsAre("audio;[fe80::1]:4000>10.0.0.9:5000;opus/48000;sendrecv"));
}

TEST(SessionDescriptionTest, TellsTheDirectionAsTheOffererSeesIt)
{
    const auto direction = [](const std::string& sOffer, const std::string& sAnswer) {
        const std::string sText = describeMedia(media("m=audio 1 RTP/AVP 0\r\na=" + sOffer + "\r\n"),
                                                media("m=audio 2 RTP/AVP 0\r\na=" + sAnswer + "\r\n"))[0];
        return sText.substr(sText.rfind(';') + 1);
    };
    EXPECT_EQ(direction("sendonly", "recvonly"), "sendonly");
    EXPECT_EQ(direction("recvonly", "sendonly"), "recvonly");
    EXPECT_EQ(direction("sendrecv", "sendonly"), "recvonly");
    EXPECT_EQ(direction("sendrecv", "inactive"), "inactive");
    EXPECT_EQ(direction("sendonly", "sendrecv"), "sendonly");
}

TEST(SessionDescriptionTest, TakesTheSessionsDirectionWhereTheLineHasNone)
{
    std::vector<CSdpMedia> vecMedia;
    ASSERT_TRUE(parseSdp("v=0\r\no=- 1 1 IN IP4 h\r\ns=-\r\nc=IN IP4 10.0.0.9\r\nt=0 0\r\na=sendonly\r\n"
                         "m=audio 1 RTP/AVP 0\r\n",
                         &vecMedia));
    EXPECT_TRUE(vecMedia[0].bSends);
    EXPECT_FALSE(vecMedia[0].bReceives);
}

TEST(SessionDescriptionTest, DescribesRefusedLinesAndOtherMedia)
{
    EXPECT_THAT(describeMedia(media("m=audio 1 RTP/AVP 0\r\nm=video 3 RTP/AVP 34\r\nm=image 5 udptl t38\r\n"),
                              media("m=audio 2 RTP/AVP 0\r\nm=video 0 RTP/AVP 34\r\nm=image 6 udptl t38\r\n")),
                ElementsAre("audio;10.0.0.9:1>10.0.0.9:2;PCMU/8000;sendrecv", "video;10.0.0.9:3>10.0.0.9:0;-;inactive",
                            "image;10.0.0.9:5>10.0.0.9:6;t38;sendrecv"));
}

TEST(SessionDescriptionTest, IsNotPutOffByLinesThatTheMediaDoNotNeed)
{
    std::vector<CSdpMedia> vecMedia;
    ASSERT_TRUE(parseSdp("v=0\no=- 1 1 IN IP4 h\ns=-\ni=\nu=x\ne=a@b (A)\np=+1 (A)\nc=IN IP4 10.0.0.9\nb=AS:64\n"
                         "t=0 0\nr=7d 1h\nz=1 -1h\nk=prompt\na=sendrecv\nm=audio 1 RTP/AVP 0\n",
                         &vecMedia));
    EXPECT_EQ(vecMedia.size(), 1U);
}

/// What is agreed when both sides send this.
std::vector<std::string> agreed(const std::string& sSdp)
{
    std::vector<CSdpMedia> vecMedia;
    EXPECT_TRUE(parseSdp(sSdp, &vecMedia)) << sSdp;
    return describeMedia(vecMedia, vecMedia);
}

TEST(SessionDescriptionTest, IsNotPutOffByLinesThatAreEmptyMissingOrElsewhere)
{
    const std::string sAgreed = "audio;10.0.0.9:1>10.0.0.9:1;opus/48000;inactive"; // two who only send
    const std::string sOwner = "v=0\r\no=- 1 1 IN IP4 h\r\n";
    const std::string sConnection = "c=IN IP4 10.0.0.9\r\n";
    const std::string sMedia = "m=audio 1 RTP/AVP 96\r\n";
    const std::string sMap = "a=rtpmap:96 opus/48000\r\n";
    const std::string sRest = sMedia + sMap + "a=sendonly\r\n";
    EXPECT_THAT(agreed(sOwner + "s= \r\n" + sConnection + "t=0 0\r\n" + sRest), ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=\r\n" + sConnection + "t=0 0\r\n" + sRest), ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=-\r\n" + sConnection + sRest), ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=-\r\nt=0 0\r\n" + sConnection + sRest), ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=-\r\n" + sConnection + "a=sendonly\r\nt=0 0\r\n" + sMedia + sMap),
                ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=-\r\nt=0 0\r\n" + sMedia + sMap + sConnection + "a=sendonly\r\n"),
                ElementsAre(sAgreed));
    EXPECT_THAT(agreed(sOwner + "s=-\r\n" + sConnection + "t=0 0\r\na=\r\n" + sMedia + "a=\r\n" + sMap + "a=sendonly"),
                ElementsAre(sAgreed));
}

TEST(SessionDescriptionTest, RefusesNonsense)
{
    std::vector<CSdpMedia> vecMedia;
    EXPECT_FALSE(parseSdp("", &vecMedia));
    EXPECT_FALSE(parseSdp("nonsense", &vecMedia));
    EXPECT_FALSE(parseSdp("v=0\r\nm=audio\r\n", &vecMedia));
}

TEST(SessionDescriptionTest, ReadsABoundedNumberOfLines)
{
    std::string sLines;
    for (int n = 0; n < 50; ++n)
        sLines += "m=audio 1 RTP/AVP 0\r\n";
    EXPECT_EQ(media(sLines).size(), cMaxSdpMedia);
}

} // namespace
