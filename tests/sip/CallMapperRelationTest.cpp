#include "CallStory.h"

#include <gmock/gmock.h>

namespace {

class CallMapperRelationTest : public testing::Test
{
protected:
    /// Alice has bob on the line and refers him to carol.
    void refer()
    {
        m_story.answer();
        m_story.after(3).say("A>P REFER cseq=2 branch=a5 ttag=bob", {"Refer-To: <sip:carol@example.com>"});
        m_story.say("P>B REFER cseq=2 branch=p5 ttag=bob", {"Refer-To: <sip:carol@example.com>"});
    }
    void accept() { m_story.say("B>P 202 Accepted cseq=2 method=REFER branch=p5 ttag=bob"); }
    void callCarol(const std::string& sCallID = "c2")
    {
        m_story.say("B>P INVITE branch=b1 ftag=b2 uri=sip:carol@example.com call=" + sCallID);
    }

    void expectTransfer()
    {
        EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c2"), "sip:c1");
        EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c2"), "transfer");
        EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c1"), "sip:c2");
        EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c1"), "transferred");
    }
    void expectNothing(const std::string& sCallID)
    {
        EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, sCallID), "");
        EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, sCallID), "");
    }

    CCallStory m_story;
};

TEST_F(CallMapperRelationTest, LinksATransfer)
{
    refer();
    accept();
    m_story.after(4.9);
    callCarol();
    expectTransfer();
}

TEST_F(CallMapperRelationTest, LinksATransferWhoseInviteCameBeforeTheAcceptance)
{
    refer();
    callCarol();
    expectNothing("c2");
    accept();
    expectTransfer();
}

TEST_F(CallMapperRelationTest, LinksATransferWhoseLastHopIsToldLast)
{
    m_story.answer();
    m_story.say("A>P REFER cseq=2 branch=a5 ttag=bob", {"Refer-To: <sip:carol@example.com>"});
    callCarol();
    m_story.say("P>A 202 Accepted cseq=2 method=REFER branch=a5 ttag=bob");
    expectNothing("c2");
    m_story.say("P>B REFER cseq=2 branch=p5 ttag=bob", {"Refer-To: <sip:carol@example.com>"});
    expectTransfer();
}

TEST_F(CallMapperRelationTest, DoesNotLinkAfterFiveSeconds)
{
    refer();
    accept();
    m_story.after(5.1);
    callCarol();
    expectNothing("c2");
}

TEST_F(CallMapperRelationTest, DoesNotLinkARefusedTransfer)
{
    refer();
    m_story.say("B>P 488 Not Acceptable Here cseq=2 method=REFER branch=p5 ttag=bob");
    callCarol();
    expectNothing("c2");
    expectNothing("c1");
}

TEST_F(CallMapperRelationTest, DoesNotLinkACallToSomebodyElseOrFromSomebodyElse)
{
    refer();
    accept();
    m_story.say("B>P INVITE call=c2 branch=b1 uri=sip:dave@example.com to=<sip:dave@example.com>");
    m_story.say("D>P INVITE call=c3 branch=d1 uri=sip:carol@example.com");
    expectNothing("c2");
    expectNothing("c3");
}

TEST_F(CallMapperRelationTest, LinksTheTransferOfACallThatHasEnded)
{
    refer();
    accept();
    m_story.say("A>P BYE cseq=3 branch=a6 ttag=bob");
    callCarol();
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c2"), "sip:c1");
    expectNothing("c1");
}

TEST_F(CallMapperRelationTest, DoesNotLinkATransferThatIsAcceptedTooLate)
{
    refer();
    m_story.after(33);
    accept();
    callCarol();
    expectNothing("c2");
}

TEST_F(CallMapperRelationTest, RemembersABoundedNumberOfRecipients)
{
    refer();
    for (char c = 'C'; c <= 'Z'; ++c)
        m_story.say(std::string(1, c) + ">P 202 Accepted cseq=2 method=REFER branch=p5 ttag=bob");
    m_story.say("Z>P INVITE call=c2 branch=z1 uri=sip:carol@example.com");
    expectNothing("c2");
    callCarol("c3");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c3"), "transfer");
}

TEST_F(CallMapperRelationTest, LinksAReplacedCall)
{
    m_story.answer();
    m_story.say("C>P INVITE call=c2 branch=c1 ftag=carol", {"Replaces: c1;to-tag=bob;from-tag=alice"});
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c2"), "sip:c1");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c2"), "replaces");
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c1"), "sip:c2");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c1"), "replaced");
}

TEST_F(CallMapperRelationTest, NamesAReplacedCallThatWasNotSeen)
{
    m_story.say("C>P INVITE", {"Replaces: unseen@h;to-tag=1;from-tag=2"});
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID), "sip:unseen@h");
}

TEST_F(CallMapperRelationTest, LinksACallThatIsForwardedUnderANewCallId)
{
    m_story.say("A>P INVITE call=c1 branch=a1");
    m_story.say("P>C INVITE call=c2 branch=p1 uri=sip:carol@h to=<sip:carol@h>",
                {"Diversion: <sip:bob@example.com>;reason=no-answer"});
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c2"), "sip:c1");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c2"), "forward");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c1"), "forwarded");
}

TEST_F(CallMapperRelationTest, DoesNotLinkTheForwardedCallOfAnotherCaller)
{
    m_story.say("A>P INVITE call=c1 branch=a1");
    m_story.say("P>C INVITE call=c2 branch=p1 from=<sip:dave@h> to=<sip:carol@h>",
                {"Diversion: <sip:bob@example.com>;reason=no-answer"});
    EXPECT_EQ(m_story.property(CDSPROP_RELATED_CALLID, "c2"), "");
    EXPECT_EQ(m_story.property(CDSPROP_CALL_RELATION, "c2"), "forward");
    expectNothing("c1");
}

TEST_F(CallMapperRelationTest, RemembersABoundedNumberOfTransfers)
{
    m_story.answer();
    for (std::size_t u = 0; u < CTransferWatch::cMaxPending + 10; ++u)
        m_story.say("A>P REFER ttag=bob cseq=" + std::to_string(u + 2) + " branch=r" + std::to_string(u),
                    {"Refer-To: <sip:carol@example.com>"});
    m_story.say("P>A 202 Accepted cseq=2 method=REFER branch=r0 ttag=bob");
    m_story.say("P>C INVITE call=c2 branch=b1 uri=sip:carol@example.com");
    expectNothing("c2"); // the oldest is forgotten
}

} // namespace
