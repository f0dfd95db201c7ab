#include "CallStory.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CallMapperSetupTest, BeginsWithTheFirstInvite)
{
    CCallStory story;
    story.say("A>P INVITE", {}, "");
    EXPECT_EQ(story.property(CDSPROP_CALLERID), "alice");
    EXPECT_EQ(story.property(CDSPROP_CALLEDID), "bob");
    EXPECT_EQ(story.property(CDSPROP_CALL_ORIGINATOR_IP), "10.0.0.1");
    EXPECT_THAT(story.routes(), ElementsAre("sip:bob@example.com;10.0.0.16:5060;-"));
    EXPECT_EQ(story.record().outcome(), "open");
    EXPECT_EQ(story.mapper().openCalls(), 1U);
}

TEST(CallMapperSetupTest, KeepsTheCallIdOfAllCallsApartFromItsMeaning)
{
    CCallStory story;
    story.say("A>P INVITE call=*");
    EXPECT_TRUE(story.sink().records().contains("sip:*"));
}

TEST(CallMapperSetupTest, EndsEachValueWithOneZeroByte)
{
    struct CSink final : CCallSink
    {
        bool onCallBegin(const std::string&) override { return true; }
        void onCallUpdate(const std::string&, const std::vector<CCallChange>& vecChanges) override
        {
            for (const CCallChange& change : vecChanges)
                EXPECT_EQ(change.sValue.find('\0'), change.sValue.size() - 1) << change.sName;
            uChanges += vecChanges.size();
        }
        void onCallEnd(const std::string&) override {}
        std::size_t uChanges = 0;
    } sink;
    CIntakeCounts counts;
    CCallMapper mapper(sink, counts);
    const CCapturedMessage invite{1'795'219'810'000'000,
                                  {},
                                  {},
                                  "INVITE sip:b@h SIP/2.0\r\nCall-ID: c\r\nCSeq: 1 INVITE\r\n"
                                  "From: \"J\xFCrgen\" <sip:a@h>;tag=1\r\nTo: <sip:b@h>\r\n\r\n"};
    mapper.onCaptured(invite);
    EXPECT_EQ(sink.uChanges, 5U);
}

TEST(CallMapperSetupTest, MakesValidUtf8OfEveryValue)
{
    CCallStory story;
    story.say("A>P INVITE from=\"J\xFCrgen\"<sip:alice@h>");
    EXPECT_EQ(story.property(CDSPROP_CALLERID_NAME), "J\xEF\xBF\xBDrgen");
}

TEST(CallMapperSetupTest, StampsWithFileTimeAndNumbersWithinAMicrosecond)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>B INVITE branch=p1 uri=sip:b1@h");
    story.say("P>C INVITE branch=p2 uri=sip:b2@h");
    const auto& entries = story.record().mapLogs.at(CDSLOG_TUPLE_ROUTING_ENTRY);
    const std::uint64_t ullStamp = (1'795'219'810ULL + 11'644'473'600ULL) * 10'000'000ULL;
    std::vector<std::pair<std::uint64_t, long>> vecStamps;
    for (const auto& [stamp, value] : entries)
        vecStamps.push_back(stamp);
    EXPECT_THAT(vecStamps, ElementsAre(std::pair(ullStamp, 0L), std::pair(ullStamp, 1L), std::pair(ullStamp, 2L)));
    EXPECT_EQ(story.record().mapProperties.at(CDSPROP_CALLERID).tsStamp.incrementValue(), 0);
}

TEST(CallMapperSetupTest, KeepsTheOrderWhenTheCaptureStepsBack)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.after(-0.5).say("P>B INVITE branch=p1 uri=sip:later@h");
    EXPECT_THAT(story.routes(), ElementsAre("sip:bob@example.com;10.0.0.16:5060;-", "sip:later@h;10.0.0.2:5060;-"));
}

TEST(CallMapperSetupTest, PrefersTheAssertedIdentity)
{
    CCallStory story;
    story.say("A>P INVITE from=\"Anonymous\"<sip:anonymous@anonymous.invalid>",
              {"P-Asserted-Identity: \"Alice A\" <sip:+4930@h>", "Privacy: id"});
    EXPECT_EQ(story.property(CDSPROP_CALLERID), "+4930");
    EXPECT_EQ(story.property(CDSPROP_CALLERID_NAME), "Alice A");
}

TEST(CallMapperSetupTest, TakesTheNameFromWhereThereIsOne)
{
    CCallStory story;
    story.say("A>P INVITE from=\"Alice\"<sip:alice@h>", {"P-Asserted-Identity: <tel:+44-1632;ext=1>"});
    EXPECT_EQ(story.property(CDSPROP_CALLERID), "+44-1632");
    EXPECT_EQ(story.property(CDSPROP_CALLERID_NAME), "Alice");
}

TEST(CallMapperSetupTest, HasNoNameWhereNobodyGivesOne)
{
    CCallStory story;
    story.say("A>P INVITE");
    EXPECT_FALSE(story.record().mapProperties.contains(CDSPROP_CALLERID_NAME));
    EXPECT_FALSE(story.record().mapProperties.contains(CDSPROP_CALLEDID_NAME));
}

TEST(CallMapperSetupTest, TakesTheRequestsTargetWithoutTo)
{
    CCallStory story;
    story.say("A>P INVITE to= uri=sip:target@h");
    EXPECT_EQ(story.property(CDSPROP_CALLEDID), "target");
}

TEST(CallMapperSetupTest, DropsRepeats)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.after(0.5).say("A>P INVITE branch=a1");
    story.say("B>P 486 Busy branch=p1 ttag=b");
    story.say("B>P 486 Busy branch=p1 ttag=b");
    EXPECT_EQ(story.mapper().repeats(), 2U);
    EXPECT_EQ(story.sink().updates(), 1U);
}

TEST(CallMapperSetupTest, CountsTheSightingOnTheOriginatorsSide)
{
    CCallStory story;
    story.answer();
    EXPECT_EQ(story.property(CDSPROP_CALL_ORIGINATOR_IP), "10.0.0.1");
    EXPECT_EQ(story.connects().size(), 1U);
    EXPECT_EQ(story.media().size(), 1U);
}

TEST(CallMapperSetupTest, LogsEachNewTargetAndEachBranchsEnd)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>B INVITE branch=p1 uri=sip:b1@h");
    story.say("P>C INVITE branch=p2 uri=sip:b2@h");
    story.say("B>P 486 Busy Here branch=p1 ttag=b");
    story.say("C>P 200 OK branch=p2 ttag=c");
    story.say("P>A 200 OK branch=a1 ttag=c");
    EXPECT_THAT(story.routes(), ElementsAre("sip:bob@example.com;10.0.0.16:5060;-", "sip:b1@h;10.0.0.2:5060;-",
                                            "sip:b2@h;10.0.0.3:5060;-", "sip:b1@h;10.0.0.2:5060;486",
                                            "sip:b2@h;10.0.0.3:5060;200", "sip:bob@example.com;10.0.0.16:5060;200"));
}

TEST(CallMapperSetupTest, LogsABranchsEndBehindItsRequestWhenToldFirst)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("B>P 486 Busy Here branch=p1 ttag=b");
    story.say("P>B INVITE branch=p1 uri=sip:b1@h");
    EXPECT_THAT(story.routes(), ElementsAre("sip:bob@example.com;10.0.0.16:5060;-", "sip:b1@h;10.0.0.2:5060;-",
                                            "sip:b1@h;10.0.0.2:5060;486"));
}

TEST(CallMapperSetupTest, LogsWhereARedirectionPoints)
{
    CCallStory story;
    story.say("A>P INVITE branch=a1");
    story.say("P>A 302 Moved Temporarily branch=a1 ttag=p", {"Contact: <sip:carol@h>, <sip:dave@h>"});
    EXPECT_THAT(story.routes(),
                ElementsAre("sip:bob@example.com;10.0.0.16:5060;-", "sip:bob@example.com;10.0.0.16:5060;302",
                            "sip:carol@h;10.0.0.16:5060;302", "sip:dave@h;10.0.0.16:5060;302"));
}

TEST(CallMapperSetupTest, LogsForwardingOnceForBothHeaderFieldsAndAllHops)
{
    CCallStory story;
    const std::vector<std::string> vecFields = {"Diversion: <sip:bob@example.com>;reason=user-busy",
                                                "History-Info: <sip:bob@example.com?Reason=SIP%3Bcause%3D486>;index=1"};
    story.say("A>P INVITE branch=a1");
    story.say("P>C INVITE branch=p2 uri=sip:carol@h", vecFields);
    story.say("C>D INVITE branch=c1 uri=sip:carol@d", vecFields);
    EXPECT_THAT(story.routes(),
                ElementsAre("sip:bob@example.com;10.0.0.16:5060;-", "sip:bob@example.com;10.0.0.16:5060;486",
                            "sip:carol@h;10.0.0.3:5060;-", "sip:carol@d;10.0.0.4:5060;-"));
    EXPECT_EQ(story.property(CDSPROP_CALL_RELATION), "forward");
}

TEST(CallMapperSetupTest, LogsForwardingWithoutCauseAsUnknown)
{
    CCallStory story;
    story.say("A>P INVITE", {"Diversion: <sip:x@h>;reason=follow-me"});
    EXPECT_THAT(story.routes(), ElementsAre("sip:x@h;10.0.0.1:5060;-", "sip:bob@example.com;10.0.0.16:5060;-"));
}

TEST(CallMapperSetupTest, TakesAHistoryOfTheTargetAloneForNoForwarding)
{
    CCallStory story;
    story.say("A>P INVITE", {"History-Info: <sip:bob@example.com>;index=1, <sip:bob@10.0.0.2>;index=1.1"});
    EXPECT_EQ(story.property(CDSPROP_CALL_RELATION), "");
    EXPECT_EQ(story.routes().size(), 1U);
}

TEST(CallMapperSetupTest, IgnoresWhatBelongsToNoCall)
{
    CCallStory story;
    story.say("A>P REGISTER");
    story.say("A>P BYE ttag=b");
    story.say("A>P INVITE ttag=b");
    story.say("P>A 200 OK ttag=b");
    EXPECT_TRUE(story.sink().records().empty());
    EXPECT_EQ(story.counts().count("message that is about no call"), 1U);
    EXPECT_EQ(story.counts().count("message of a call whose beginning was not seen"), 3U);
}

TEST(CallMapperSetupTest, FollowsABoundedNumberOfCalls)
{
    CCallMapperSettings settings;
    settings.uMaxCalls = 3;
    CCallStory story(settings);
    for (int n = 0; n < 10; ++n)
        story.after(1).say("A>P INVITE call=c" + std::to_string(n));
    EXPECT_EQ(story.mapper().openCalls(), 3U);
    EXPECT_EQ(story.counts().count("too many calls: one was closed"), 7U);
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "c0"), ElementsAre("timeout;-;too many calls"));
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "c9"), IsEmpty());
}

TEST(CallMapperSetupTest, GivesUpTheCallThatWouldBeClosedFirst)
{
    CCallMapperSettings settings;
    settings.uMaxCalls = 2;
    CCallStory story(settings);
    story.answer();
    story.after(1).say("A>P INVITE call=ringing");
    story.after(1).say("A>P INVITE call=new");
    EXPECT_THAT(story.disconnects(), IsEmpty()) << "it was silent longer, but may be";
    EXPECT_THAT(story.entries(CDSLOG_DISCONNECT_ENTRY, "ringing"), ElementsAre("timeout;-;too many calls"));
}

TEST(CallMapperSetupTest, KeepsABoundedNumberOfValuesButAlwaysTheEnd)
{
    CCallStory story;
    story.answer();
    for (int n = 0; n < 2000; ++n)
    {
        const std::string sRound = std::to_string(n + 10);
        story.after(1).say("A>P INVITE ttag=bob cseq=" + sRound + " branch=r" + sRound, {}, audio("10.0.0.1", 4000));
        story.say("P>A 200 OK ttag=bob cseq=" + sRound + " branch=r" + sRound, {}, audio("10.0.0.2", 5000));
    }
    story.say("A>P BYE ttag=bob cseq=9999 branch=bye");
    EXPECT_LE(story.media().size(), CCallMapper::cMaxEvents);
    EXPECT_GT(story.media().size(), CCallMapper::cMaxEvents / 2);
    EXPECT_THAT(story.disconnects(), ElementsAre("caller;-;BYE"));
}

TEST(CallMapperSetupTest, KeepsABoundedNumberOfBranchesAndAttempts)
{
    CCallStory story;
    for (int n = 0; n < 500; ++n)
    {
        const std::string sNumber = std::to_string(n);
        story.say("P>B INVITE branch=p" + sNumber + " uri=sip:" + sNumber + "@h");
        story.say("P>B INVITE cseq=" + sNumber + " branch=q" + sNumber + " ftag=f" + sNumber + " uri=sip:x@h");
    }
    EXPECT_LE(story.routes().size(), CCallMapper::cMaxBranches);
    EXPECT_GT(story.counts().count("a call has too many attempts: some are left out"), 0U);
}

} // namespace
