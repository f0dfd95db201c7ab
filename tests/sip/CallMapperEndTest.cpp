#include "CallStory.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CallMapperEndTest, IsAnsweredByTheFirst2xxAndEndedByTheFirstBye)
{
    CCallStory story;
    story.answer();
    EXPECT_THAT(story.connects(), ElementsAre("answered;bob;bob"));
    EXPECT_EQ(story.property(CDSPROP_L_CONNECTEDID), "bob");
    story.after(3).say("A>P BYE cseq=2 branch=a3 ttag=bob");
    story.say("P>B BYE cseq=2 branch=p3 ttag=bob");
    story.say("B>P 200 OK cseq=2 method=BYE branch=p3 ttag=bob");
    EXPECT_THAT(story.disconnects(), ElementsAre("caller;-;BYE"));
    EXPECT_FALSE(story.record().mapProperties.contains(CDSPROP_COMMENT));
    EXPECT_EQ(story.sink().ended(), 1U);
    EXPECT_EQ(story.mapper().openCalls(), 0U);
}

TEST(CallMapperEndTest, TellsWhenTheCalleeHangsUpAndWhy)
{
    CCallStory story;
    story.answer();
    story.say("B>P BYE ftag=bob ttag=alice branch=b1 from=<sip:bob@h> to=<sip:alice@h>",
              {"Reason: Q.850;cause=16;text=\"Normal call clearing\""});
    EXPECT_THAT(story.disconnects(), ElementsAre("callee;16;Q.850 Normal call clearing"));
}

TEST(CallMapperEndTest, TakesTheConnectedPartyFromTheAnswer)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=c", {"P-Asserted-Identity: \"Carol\" <sip:carol@h>"});
    EXPECT_EQ(story.property(CDSPROP_L_CONNECTEDID), "carol");
    EXPECT_THAT(story.connects(), ElementsAre("answered;carol;c"));
}

TEST(CallMapperEndTest, FailsWithTheResponseThatReachesTheOriginator)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>B INVITE branch=p1");
    story.say("B>P 486 Busy Here branch=p1 ttag=b");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.say("P>A 486 Busy Here branch=a1 ttag=b");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;486;Busy Here"));
    EXPECT_EQ(story.property(CDSPROP_COMMENT), "486 Busy Here");
    EXPECT_EQ(story.record().outcome(), "busy");
}

TEST(CallMapperEndTest, FailsAtTheServerThatIsTriedNext)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.after(9).say("A>C INVITE branch=a2");
    story.say("C>A 486 Busy Here branch=a2 ttag=c");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;486;Busy Here"));
}

TEST(CallMapperEndTest, IsAnsweredByTheServerThatIsTriedNext)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    story.after(9).say("A>C INVITE branch=a2", {}, audio("10.0.0.1", 4000));
    story.say("C>A 200 OK branch=a2 ttag=c", {}, audio("10.0.0.3", 5000));
    EXPECT_THAT(story.connects(), ElementsAre("answered;bob;c"));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.3:5000;PCMA/8000;sendrecv"));
}

TEST(CallMapperEndTest, EndsWithTheFirstServersRefusalEvenIfAnotherIsTried)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 503 Service Unavailable branch=a1 ttag=p");
    story.say("A>C INVITE branch=a2");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;503;Service Unavailable"));
}

TEST(CallMapperEndTest, OutlivesALosingForkOfAServerThatIsSeenFromBehind)
{
    CCallStory story;
    story.say("P>B INVITE branch=p1 uri=sip:b1@h");
    story.say("P>C INVITE branch=p2 uri=sip:b2@h");
    story.say("C>P 486 Busy Here branch=p2 ttag=c");
    EXPECT_THAT(story.disconnects(), IsEmpty());
}

TEST(CallMapperEndTest, FollowsABoundedNumberOfServers)
{
    CCallStory story;
    const auto nTooMany = static_cast<int>(CRequestOrigin::cMaxBranches) + 1;
    for (int n = 1; n <= nTooMany; ++n)
        story.say("A>P INVITE branch=a" + std::to_string(n));
    story.say("P>A 486 Busy Here ttag=p branch=a" + std::to_string(nTooMany));
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.say("P>A 486 Busy Here ttag=p branch=a" + std::to_string(nTooMany - 1));
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;486;Busy Here"));
}

TEST(CallMapperEndTest, TellsHopsApartWhereAllShareOneAddress)
{
    CCallStory story;
    story.say("A>A1 INVITE branch=a1");
    story.say("A1>A2 INVITE branch=p1");
    story.say("A2>A1 486 Busy Here branch=p1 ttag=b");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.say("A1>A3 INVITE branch=p2");
    story.say("A3>A1 200 OK branch=p2 ttag=c");
    story.say("A1>A 200 OK branch=a1 ttag=c");
    EXPECT_EQ(story.record().outcome(), "answered, open");
}

TEST(CallMapperEndTest, IsCancelledByItsOwn487)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>B INVITE branch=p1");
    story.say("A>P CANCEL branch=a1");
    story.say("P>A 200 canceling method=CANCEL branch=a1 ttag=p");
    EXPECT_THAT(story.connects(), IsEmpty());
    story.say("B>P 487 Request Terminated branch=p1 ttag=b");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.say("P>A 487 Request Terminated branch=a1 ttag=b");
    EXPECT_THAT(story.disconnects(), ElementsAre("cancel;487;Request Terminated"));
    EXPECT_EQ(story.record().outcome(), "cancelled");
}

TEST(CallMapperEndTest, OutlivesTheLosingFork)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>B INVITE branch=p1 uri=sip:b1@h");
    story.say("P>C INVITE branch=p2 uri=sip:b2@h");
    story.say("B>P 200 OK branch=p1 ttag=b");
    story.say("P>A 200 OK branch=a1 ttag=b");
    story.say("P>C CANCEL branch=p2");
    story.say("C>P 487 Request Terminated branch=p2 ttag=c");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    EXPECT_EQ(story.record().outcome(), "answered, open");
}

TEST(CallMapperEndTest, EndsWithTheFirstByeEvenOfTwoAnswers)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=b");
    story.say("P>A 200 OK branch=a1 ttag=c");
    EXPECT_THAT(story.connects(), ElementsAre("answered;bob;b"));
    story.say("A>P BYE branch=a2 cseq=2 ttag=c");
    EXPECT_THAT(story.disconnects(), ElementsAre("caller;-;BYE"));
    EXPECT_EQ(story.sink().ended(), 1U);
}

TEST(CallMapperEndTest, GoesOnAfterAnAuthenticationRequest)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 407 Proxy Authentication Required branch=a1 ttag=p");
    story.say("A>P ACK branch=a1 ttag=p");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.after(51).say("A>P INVITE branch=a2 cseq=2"); // somebody typed a password
    story.say("P>A 403 Forbidden branch=a2 cseq=2 ttag=p");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;403;Forbidden"));
    EXPECT_EQ(story.sink().records().size(), 1U);
}

TEST(CallMapperEndTest, EndsWithTheAuthenticationRequestThatNobodyFollows)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 401 Unauthorized branch=a1 ttag=p");
    story.after(299).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.after(2).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;401;Unauthorized"));
    const auto& entry = story.record().mapLogs.at(CDSLOG_DISCONNECT_ENTRY).begin()->second;
    EXPECT_EQ(entry.tsStamp.value(), story.record().ullFirst) << "it ended when it was refused";
}

TEST(CallMapperEndTest, EndsWithARejectionWhenTheCaptureEnds)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 302 Moved branch=a1 ttag=p");
    story.mapper().finish(false);
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;302;Moved"));
    EXPECT_EQ(story.sink().ended(), 1U);
}

TEST(CallMapperEndTest, OutlivesARefusedReInvite)
{
    CCallStory story;
    story.answer();
    story.say("B>P INVITE ftag=bob ttag=alice branch=b1", {}, audio("10.0.0.2", 5000));
    story.say("P>A INVITE ftag=bob ttag=alice branch=q1", {}, audio("10.0.0.2", 5000));
    story.say("A>P 488 Not Acceptable Here ftag=bob ttag=alice branch=q1");
    story.say("P>B 488 Not Acceptable Here ftag=bob ttag=alice branch=b1");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    EXPECT_EQ(story.media().size(), 1U);
}

TEST(CallMapperEndTest, StaysOpenWhenTheCaptureEnds)
{
    CCallStory story;
    story.answer();
    story.mapper().finish(false);
    EXPECT_THAT(story.disconnects(), IsEmpty());
    EXPECT_EQ(story.mapper().openCalls(), 1U);
}

TEST(CallMapperEndTest, IsClosedWhenTheCaptureEndsIfAskedFor)
{
    CCallStory story;
    story.answer();
    story.mapper().finish(true);
    EXPECT_THAT(story.disconnects(), ElementsAre("timeout;-;capture ended"));
    EXPECT_EQ(story.record().outcome(), "answered, closed");
    EXPECT_EQ(story.sink().ended(), 1U);
}

TEST(CallMapperEndTest, IsClosedWhenNothingIsHeardOfIt)
{
    CCallStory story;
    story.say("A>P INVITE call=ringing");
    story.answer();
    story.silence(4 * 3600 - 1);
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "ringing"), ElementsAre("timeout;-;idle"));
    EXPECT_EQ(story.property(CDSPROP_COMMENT, "ringing"), "closed: nothing was heard of the call");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.after(2).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), ElementsAre("timeout;-;idle"));
}

TEST(CallMapperEndTest, OutlivesAStampThatIsFarAhead)
{
    CCallStory story;
    story.answer();
    story.say("A>P INVITE call=ringing branch=r1");
    story.after(86'400).say("A>P INVITE call=stray branch=s1");
    story.after(1 - 86'400).say("P>A 200 OK call=ringing branch=r1 ttag=b");
    story.say("P>A 180 Ringing call=stray branch=s1 ttag=b");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    EXPECT_EQ(story.record("ringing").outcome(), "answered, open");
    story.silence(302);
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "stray"), ElementsAre("timeout;-;idle"))
        << "it is as old as its neighbours";
}

TEST(CallMapperEndTest, OutlivesAClockThatIsSetBack)
{
    CCallStory story;
    story.answer();
    story.after(-3600).say("A>P INVITE call=ringing branch=r1");
    story.say("P>A 180 Ringing call=ringing branch=r1 ttag=b");
    story.after(20).say("P>A 200 OK call=ringing branch=r1 ttag=b");
    EXPECT_EQ(story.record("ringing").outcome(), "answered, open");
    story.say("A>P INVITE call=waiting branch=w1");
    story.silence(301);
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "waiting"), ElementsAre("timeout;-;idle"))
        << "time goes on from where the clock was set";
    EXPECT_THAT(story.disconnects(), IsEmpty());
}

TEST(CallMapperEndTest, IsClosedByASilenceFullOfLonelyMessages)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    for (int n = 0; n < 5; ++n)
        story.after(100).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), ElementsAre("timeout;-;idle"));
}

TEST(CallMapperEndTest, IsClosedWhenTheSessionIsNotRefreshed)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=b", {"Session-Expires: 1800;refresher=uas"});
    story.after(1000).say("A>P UPDATE branch=a2 cseq=2 ttag=b");
    story.say("P>A 200 OK method=UPDATE branch=a2 cseq=2 ttag=b", {"Session-Expires: 1800"});
    story.after(1799).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), IsEmpty());
    story.after(2).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), ElementsAre("timeout;-;session timer"));
    EXPECT_EQ(story.property(CDSPROP_COMMENT), "closed: the session was not refreshed in time");
}

TEST(CallMapperEndTest, TakesNoSessionIntervalBelowTheSmallestAllowed)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=b", {"Session-Expires: 1"});
    story.after(89).say("A>P OPTIONS call=other");
    EXPECT_THAT(story.disconnects(), IsEmpty());
}

TEST(CallMapperEndTest, SaysNothingMoreOnceEnded)
{
    CCallStory story;
    story.answer();
    story.say("A>P BYE cseq=2 branch=a3 ttag=bob");
    const auto ullUpdates = story.sink().updates();
    story.say("B>P BYE ftag=bob ttag=alice branch=b1");
    story.say("P>A 200 OK cseq=2 method=BYE branch=a3 ttag=bob");
    story.say("A>P INVITE cseq=7 branch=a7");
    story.mapper().finish(true);
    EXPECT_EQ(story.sink().updates(), ullUpdates);
    EXPECT_EQ(story.sink().ended(), 1U);
    EXPECT_EQ(story.counts().count("INVITE of a call that has ended"), 1U);
}

TEST(CallMapperEndTest, ForgetsAnEndedCallWhenItsRepeatsHaveDiedAway)
{
    CCallStory story;
    story.answer();
    story.say("A>P BYE cseq=2 branch=a3 ttag=bob");
    story.silence(33).say("A>P BYE cseq=3 branch=a4 ttag=bob");
    EXPECT_EQ(story.counts().count("message of a call whose beginning was not seen"), 1U);
}

TEST(CallMapperEndTest, DoesNotBeginAgainUnderTheIdOfACallThatHasEnded)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 486 Busy Here branch=a1 ttag=b");
    story.silence(33).say("A>P INVITE branch=a1");
    story.say("P>A 404 Not Found branch=a1 ttag=b");
    EXPECT_THAT(story.disconnects(), ElementsAre("failed;486;Busy Here"));
    EXPECT_EQ(story.sink().ended(), 1U);
    EXPECT_EQ(story.mapper().openCalls(), 0U);
    EXPECT_EQ(story.counts().count("INVITE of a call that has ended"), 1U);
}

TEST(CallMapperEndTest, AnswersAndMediaFollowTheOffersWay)
{
    CCallStory story;
    story.answer();
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.2:5000;PCMA/8000;sendrecv"));
    story.say("A>P INVITE cseq=2 branch=a5 ttag=bob", {}, audio("10.0.0.1", 4000, "sendonly"));
    story.say("P>B INVITE cseq=2 branch=p5 ttag=bob", {}, audio("10.0.0.1", 4000, "sendonly"));
    story.say("B>P 200 OK cseq=2 branch=p5 ttag=bob", {}, audio("10.0.0.2", 5000, "recvonly"));
    story.say("P>A 200 OK cseq=2 branch=a5 ttag=bob", {}, audio("10.0.0.2", 5000, "recvonly"));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.2:5000;PCMA/8000;sendrecv",
                                           "audio;10.0.0.1:4000>10.0.0.2:5000;PCMA/8000;sendonly"));
}

TEST(CallMapperEndTest, FindsTheAnswerInTheAckWhenTheOfferCameLate)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=b", {}, audio("10.0.0.2", 5000));
    EXPECT_THAT(story.media(), IsEmpty());
    story.say("A>P ACK branch=a2 ttag=b", {}, audio("10.0.0.1", 4000));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.2:5000>10.0.0.1:4000;PCMA/8000;sendrecv"));
}

TEST(CallMapperEndTest, TakesTheAnswerOfAReliableProvisionalResponse)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    story.say("P>A 183 Progress branch=a1 ttag=x", {}, audio("10.0.0.9", 9000));
    EXPECT_THAT(story.media(), IsEmpty()) << "an unreliable one is a preview";
    story.say("P>A 183 Progress branch=a1 ttag=b", {"RSeq: 1", "Require: 100rel"}, audio("10.0.0.2", 5000));
    story.say("P>A 200 OK branch=a1 ttag=b", {}, audio("10.0.0.2", 5000));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.2:5000;PCMA/8000;sendrecv"));
}

TEST(CallMapperEndTest, TellsTheMediaOfEachThatAnswersTheOffer)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    story.say("P>A 183 Progress branch=a1 ttag=x", {"RSeq: 1"}, audio("10.0.0.9", 9000));
    story.say("P>A 200 OK branch=a1 ttag=y", {}, audio("10.0.0.2", 5000));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.9:9000;PCMA/8000;sendrecv",
                                           "audio;10.0.0.1:4000>10.0.0.2:5000;PCMA/8000;sendrecv"));
}

TEST(CallMapperEndTest, TellsTheMediaOfEachThatMakesAnOffer)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 200 OK branch=a1 ttag=x", {}, audio("10.0.0.9", 9000));
    story.say("P>A 200 OK branch=a1 ttag=y", {}, audio("10.0.0.2", 5000));
    story.say("A>P ACK branch=a2 ttag=x", {}, audio("10.0.0.1", 4000));
    story.say("A>P ACK branch=a3 ttag=y", {}, audio("10.0.0.1", 4002));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.9:9000>10.0.0.1:4000;PCMA/8000;sendrecv",
                                           "audio;10.0.0.2:5000>10.0.0.1:4002;PCMA/8000;sendrecv"));
}

TEST(CallMapperEndTest, TellsReliableProvisionalResponsesApart)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    story.say("P>A 183 Progress branch=a1 ttag=b", {"RSeq: 1"});
    story.say("P>A 183 Progress branch=a1 ttag=b", {"RSeq: 2"}, audio("10.0.0.2", 5000));
    EXPECT_EQ(story.mapper().repeats(), 0U);
    EXPECT_EQ(story.media().size(), 1U);
    story.say("P>A 183 Progress branch=a1 ttag=b", {"RSeq: 2"}, audio("10.0.0.2", 5000));
    EXPECT_EQ(story.mapper().repeats(), 1U);
}

TEST(CallMapperEndTest, TellsTheMediaOfABoundedNumberOfAnswers)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    for (int n = 0; n < 100; ++n)
        story.say("P>A 183 Progress branch=a1 ttag=t" + std::to_string(n), {"RSeq: 1"}, audio("10.0.0.2", 5000));
    EXPECT_EQ(story.media().size(), CMediaNegotiation::cMaxAnswerers);
}

TEST(CallMapperEndTest, TakesTheMediaOfTheOriginatorsDialogOnly)
{
    CCallStory story; // P keeps the Call-ID and writes its own tags
    story.say("A>P INVITE branch=a1", {}, audio("10.0.0.1", 4000));
    story.say("P>B INVITE branch=p1 ftag=pbx", {}, audio("10.0.0.16", 6000));
    story.say("B>P 200 OK branch=p1 ftag=pbx ttag=bob", {}, audio("10.0.0.2", 5000));
    story.say("P>A 200 OK branch=a1 ttag=pbx2", {}, audio("10.0.0.16", 6002));
    EXPECT_THAT(story.media(), ElementsAre("audio;10.0.0.1:4000>10.0.0.16:6002;PCMA/8000;sendrecv"));
    story.say("P>B BYE branch=p2 cseq=2 ftag=pbx ttag=bob");
    EXPECT_THAT(story.disconnects(), ElementsAre("caller;-;BYE"));
}

} // namespace
