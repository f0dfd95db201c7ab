#include "sip/SipParser.h"

#include <gmock/gmock.h>

namespace {

using testing::StrEq;

const std::string s_sCore = "Via: SIP/2.0/UDP 10.0.0.1:5060;branch=z9hG4bK1\r\nCall-ID: c1@h\r\nCSeq: 7 INVITE\r\n";
const std::string s_sInvite = "INVITE sip:bob@example.com;user=phone SIP/2.0\r\n" + s_sCore;
const std::string s_sParties = "From: \"Alice\" <sip:alice@h>;tag=a\r\nTo: <sip:bob@h>\r\n";

CSipMessage parsed(const std::string& sBytes)
{
    CSipMessage message;
    EXPECT_STREQ(parseSip(sBytes, &message), nullptr) << sBytes;
    return message;
}

const char* refusal(const std::string& sBytes)
{
    CSipMessage message;
    return parseSip(sBytes, &message);
}

TEST(SipParserTest, ReadsARequest)
{
    const CSipMessage message = parsed(s_sInvite + s_sParties + "\r\n");
    EXPECT_TRUE(message.isRequest());
    EXPECT_EQ(message.sMethod, "INVITE");
    EXPECT_EQ(message.requestUri.sText, "sip:bob@example.com;user=phone");
    EXPECT_EQ(message.requestUri.identity(), "bob");
    EXPECT_EQ(message.sCallID, "c1@h");
    EXPECT_EQ(message.dwCSeq, 7U);
    EXPECT_EQ(message.sBranch, "z9hG4bK1");
    EXPECT_EQ(message.from.sName, "Alice");
    EXPECT_EQ(message.from.sTag, "a");
    EXPECT_EQ(message.to.uri.identity(), "bob");
    EXPECT_EQ(message.to.sTag, "");
}

TEST(SipParserTest, ReadsAResponse)
{
    const CSipMessage message = parsed("SIP/2.0 486 Busy Here\r\n" + s_sCore + s_sParties + "\r\n");
    EXPECT_FALSE(message.isRequest());
    EXPECT_EQ(message.nCode, 486);
    EXPECT_EQ(message.sReason, "Busy Here");
    EXPECT_EQ(message.sMethod, "INVITE");
}

TEST(SipParserTest, ReadsCompactNamesAndFoldedLines)
{
    const CSipMessage message =
        parsed("INVITE sip:b@h SIP/2.0\r\nv: SIP/2.0/UDP 10.0.0.1;branch=z9hG4bK1\r\ni: c1\r\n"
               "CSeq: 1\r\n INVITE\r\nf: \"A\r\n\tB\" <sip:a@h>\r\n ;tag=x\r\nt: <sip:b@h>\r\n\r\n");
    EXPECT_EQ(message.sBranch, "z9hG4bK1");
    EXPECT_EQ(message.sCallID, "c1");
    EXPECT_EQ(message.from.sName, "A B");
    EXPECT_EQ(message.from.sTag, "x");
}

TEST(SipParserTest, TakesTheTopViaOfSeveralInOneLine)
{
    const CSipMessage message =
        parsed("INVITE sip:b@h SIP/2.0\r\nVia: SIP/2.0/UDP p;branch=top, SIP/2.0/UDP a;branch=low\r\n"
               "Call-ID: c\r\nCSeq: 1 INVITE\r\n" +
               s_sParties + "\r\n");
    EXPECT_EQ(message.sBranch, "top");
}

TEST(SipParserTest, ManagesWithoutToAndVia)
{
    const CSipMessage message =
        parsed("INVITE sip:b@h SIP/2.0\r\nCall-ID: c\r\nCSeq: 1 INVITE\r\nFrom: <sip:a@h>;tag=1\r\n\r\n");
    EXPECT_TRUE(message.to.uri.empty());
    EXPECT_EQ(message.sBranch, "");
}

TEST(SipParserTest, TakesTheFirstOfTwoToFields)
{
    const CSipMessage message =
        parsed(s_sInvite + "From: <sip:a@h>;tag=1\r\nt: <sip:first@h>\r\nTo: <sip:second@h>\r\n\r\n");
    EXPECT_EQ(message.to.uri.identity(), "first");
}

TEST(SipParserTest, IsNotPutOffByFieldsThatNobodyReads)
{
    const CSipMessage message = parsed(
        s_sInvite + s_sParties + "Authorization: nonsense\r\nContact: <<>>\r\nno colon here\r\n: no name\r\n\r\n");
    EXPECT_TRUE(message.vecContacts.empty());
}

TEST(SipParserTest, ReadsTelAndOtherUris)
{
    const CSipMessage message = parsed(
        s_sInvite + "From: <tel:+44-1632-960123;phone-context=x>;tag=1\r\nTo: <sips:+4930%2B1;isub=2@h:5061>\r\n\r\n");
    EXPECT_EQ(message.from.uri.identity(), "+44-1632-960123");
    EXPECT_EQ(message.from.uri.sScheme, "tel");
    EXPECT_EQ(message.to.uri.identity(), "+4930+1");
    EXPECT_EQ(message.to.uri.sHost, "h:5061");
}

TEST(SipParserTest, NamesAMachineWhereThereIsNoUser)
{
    const CSipMessage message =
        parsed(s_sInvite + "From: <sip:10.0.0.1:55061;user=phone>;tag=1\r\nTo: <sip:@voice.lan>\r\n\r\n");
    EXPECT_EQ(message.from.uri.identity(), "10.0.0.1:55061");
    EXPECT_EQ(message.to.uri.identity(), "voice.lan");
}

TEST(SipParserTest, ReadsAllAssertedIdentities)
{
    const CSipMessage message =
        parsed(s_sInvite + s_sParties + "P-Asserted-Identity: \"X, Y\" <sip:+1@h>, <tel:+1>\r\n\r\n");
    ASSERT_EQ(message.vecAsserted.size(), 2U);
    EXPECT_EQ(message.vecAsserted[0].sName, "X, Y");
    EXPECT_EQ(message.vecAsserted[1].uri.identity(), "+1");
}

TEST(SipParserTest, ReadsWhyACallWasSentOn)
{
    const CSipMessage message =
        parsed(s_sInvite + s_sParties +
               "Diversion: <sip:x@h>;reason=user-busy;counter=1\r\n"
               "History-Info: <sip:x@h?Reason=SIP%3Bcause%3D486>;index=1, <sip:y@h;cause=302>;index=1.1\r\n\r\n");
    ASSERT_EQ(message.vecDiversion.size(), 1U);
    EXPECT_EQ(message.vecDiversion[0].nCause, 486);
    ASSERT_EQ(message.vecHistory.size(), 2U);
    EXPECT_EQ(message.vecHistory[0].nCause, 486);
    EXPECT_EQ(message.vecHistory[1].nCause, 302);
}

TEST(SipParserTest, ReadsReasonReplacesReferAndTimers)
{
    const CSipMessage message = parsed(s_sInvite + s_sParties +
                                       "Reason: Q.850;cause=16;text=\"Normal, clearing\", SIP;cause=200\r\n"
                                       "Replaces: other@h;to-tag=1;from-tag=2\r\nr: \"C\" <sip:carol@h?Replaces=x>\r\n"
                                       "x: 1800;refresher=uac\r\nRSeq: 1\r\n\r\n");
    ASSERT_EQ(message.vecReasons.size(), 2U);
    EXPECT_EQ(message.vecReasons[0].sProtocol, "Q.850");
    EXPECT_EQ(message.vecReasons[0].nCause, 16);
    EXPECT_EQ(message.vecReasons[0].sText, "Normal, clearing");
    EXPECT_EQ(message.sReplacesCallID, "other@h");
    EXPECT_EQ(message.referTo.identity(), "carol");
    EXPECT_EQ(message.dwSessionExpires, 1800U);
    EXPECT_TRUE(message.bReliable);
    EXPECT_EQ(message.dwRSeq, 1U);
}

TEST(SipParserTest, CutsTheBodyToContentLengthWhereItIsANumber)
{
    const std::string sHead = s_sInvite + s_sParties + "Content-Type: application/sdp\r\n";
    EXPECT_EQ(parsed(sHead + "Content-Length: 3\r\n\r\nv=0more").sSdp, "v=0");
    EXPECT_EQ(parsed(sHead + "Content-Length: bad\r\n\r\nv=0").sSdp, "v=0");
    EXPECT_EQ(parsed(sHead + "Content-Length: 999\r\n\r\nv=0").sSdp, "v=0");
    EXPECT_EQ(parsed(sHead + "\r\nv=0").sSdp, "v=0");
    EXPECT_EQ(parsed(s_sInvite + s_sParties + "Content-Type: text/plain\r\n\r\nv=0").sSdp, "");
}

TEST(SipParserTest, TakesABodyWithZeroBytes)
{
    const std::string sBody("v=0\r\n\0", 6);
    EXPECT_EQ(parsed(s_sInvite + s_sParties + "Content-Type: application/sdp\r\n\r\n" + sBody).sSdp, sBody);
}

TEST(SipParserTest, FindsTheSessionDescriptionAmongTheBodysParts)
{
    const std::string sHead = s_sInvite + s_sParties;
    const std::string sParts =
        "preamble --b\r\n--b \r\nContent-Type: application/isup;version=x\r\n\r\n\x01" + std::string(1, '\0') +
        "\r\n--b\r\nContent-Disposition: session\r\nc: Application/SDP\r\n\r\nv=0\r\ns=-\r\n" + "\r\n--b--\r\nv=1";
    EXPECT_EQ(parsed(sHead + "Content-Type: multipart/mixed;boundary=b\r\n\r\n" + sParts).sSdp, "v=0\r\ns=-\r\n\r\n");
    EXPECT_EQ(parsed(sHead + "Content-Type: Multipart/Mixed; x=y ; Boundary=\"b\"\r\n\r\n" + sParts).sSdp,
              "v=0\r\ns=-\r\n\r\n");
}

TEST(SipParserTest, FindsNoSessionDescriptionInABodyThatIsNotCutUp)
{
    const std::string sPart = "--b\r\nContent-Type: application/sdp\r\n\r\nv=0\r\n";
    const std::string sHead = s_sInvite + s_sParties + "Content-Type: multipart/mixed";
    EXPECT_EQ(parsed(sHead + "\r\n\r\n" + sPart).sSdp, "");
    EXPECT_EQ(parsed(sHead + ";boundary=\r\n\r\n" + sPart).sSdp, "");
    EXPECT_EQ(parsed(sHead + ";boundary=c\r\n\r\n" + sPart).sSdp, "");
    EXPECT_EQ(parsed(sHead + ";boundary=b\r\n\r\n" + "--b").sSdp, "");
}

TEST(SipParserTest, RefusesWhatIsNoMessage)
{
    EXPECT_THAT(refusal(""), StrEq("SIP message without CSeq"));
    EXPECT_THAT(refusal("INVITE sip:b@h SIP/2.0\r\nCall-ID: c\r\n" + s_sParties + "\r\n"),
                StrEq("SIP message without CSeq"));
    EXPECT_THAT(refusal("BYE sip:b@h SIP/2.0\r\n" + s_sCore + s_sParties + "\r\n"),
                StrEq("SIP request whose CSeq is of another method"));
    EXPECT_THAT(refusal("INVITE sip:b@h SIP/2.0\r\nCSeq: 1 INVITE\r\n" + s_sParties + "\r\n"),
                StrEq("SIP message without Call-ID"));
    EXPECT_THAT(refusal(s_sInvite + "To: <sip:b@h>\r\n\r\n"), StrEq("SIP message without a usable From"));
    EXPECT_THAT(refusal(s_sInvite + s_sParties + "Call-ID: " + std::string(600, 'x') + "\r\n\r\n"), testing::IsNull())
        << "the first Call-ID counts";
    EXPECT_THAT(refusal("INVITE sip:b@h SIP/2.0\r\nCSeq: 1 INVITE\r\nCall-ID: " + std::string(600, 'x') + "\r\n" +
                        s_sParties + "\r\n"),
                StrEq("SIP Call-ID too long"));
    EXPECT_THAT(refusal("SIP/2.0 999 Odd\r\n" + s_sCore + s_sParties + "\r\n"),
                StrEq("SIP response with an impossible code"));
    EXPECT_THAT(refusal(s_sInvite + s_sParties + std::string("X: \0\r\n\r\n", 8)),
                StrEq("SIP message with a zero byte"));
}

TEST(SipParserTest, LeavesTheResultAloneWhenItRefuses)
{
    CSipMessage message;
    message.sCallID = "kept";
    EXPECT_NE(parseSip("nonsense", &message), nullptr);
    EXPECT_EQ(message.sCallID, "kept");
}

TEST(SipParserTest, PrintsNothing)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    (void)refusal("INVITE sip:b@h SIP/2.0\r\nVia: nonsense\r\nCSeq: x\r\nCall-ID: c\r\n" + s_sParties + "\r\n");
    (void)refusal("SIP/2.0 nonsense\r\n\r\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

} // namespace
