// The envelope that registrants and peers get.

#include "CDSCallbackMsg.h"
#include "ModelSupport.h"

#include <cstring>
#include <type_traits>

using namespace model;

static_assert(ccbr_calldata == 1 && ccbr_registration == 2 && ccbr_cdrcalldata == 3, "they travel between servers");
static_assert(std::is_abstract_v<CCallbackData> && std::has_virtual_destructor_v<CCallbackData>);
static_assert(std::has_virtual_destructor_v<CCallbackMsg>);
static_assert(!std::is_copy_constructible_v<CCallbackMsg> && !std::is_copy_assignable_v<CCallbackMsg>);
static_assert(sizeof(unsigned long) >= sizeof(void*), "a request handle holds a pointer");

namespace {

/// A payload that tells what is done with it.
class CFakePayload : public CCallbackData
{
public:
    CFakePayload(std::string sText, int* pnAlive) : m_sText(std::move(sText)), m_pnAlive(pnAlive) { ++*m_pnAlive; }
    ~CFakePayload() override { --*m_pnAlive; }
    CFakePayload* clone() override { return m_bCloneFails ? nullptr : new CFakePayload(m_sText, m_pnAlive); }
    long deserialize(const std::string& sText) override
    {
        m_sText = sText;
        return 0;
    }
    long serialize(std::string* psText) override
    {
        *psText = m_sText;
        return m_lSerializeResult;
    }
    void trace(const char* pszLabel) override { m_vecLabels.emplace_back(pszLabel); }
    unsigned long getsize() override { return m_sText.size(); }

    std::string m_sText;
    std::vector<std::string> m_vecLabels;
    bool m_bCloneFails = false;
    long m_lSerializeResult = 0;

private:
    int* m_pnAlive;
};

/// A message with a virtual operation of its own.
class CWithOneMore : public CCallbackMsg
{
public:
    using CCallbackMsg::CCallbackMsg;
    virtual void oneMore() {}
};

/// A message and the payload that came with it.
class CHeld
{
public:
    explicit CHeld(CCallbackMsg* pMsg) : m_pPayload(pMsg != nullptr ? pMsg->getCallbackData() : nullptr), m_pMsg(pMsg)
    {
    }
    explicit CHeld(const std::string& sText, unsigned long ulReqHandle = 0)
        : CHeld(new CCallbackMsg(ulReqHandle, sText))
    {
    }
    CCallbackMsg* operator->() const { return m_pMsg.get(); }
    CCallbackMsg& operator*() const { return *m_pMsg; }
    explicit operator bool() const { return m_pMsg != nullptr; }

private:
    std::unique_ptr<CCallbackData> m_pPayload;
    std::unique_ptr<CCallbackMsg> m_pMsg;
};

const std::string g_sRegistration = "2;R1;4;ADDR;2;C7;1;T;7;1;0;1;0";

class CallbackMsgTest : public CModelTest
{
protected:
    int m_nAlive = 0;
    CFakePayload m_payload{"payload", &m_nAlive};
    CCallbackMsg m_msg{4711UL, "R1", ccbr_calldata, &m_payload, 5UL, "ADDR"};
};

using CallbackMsgTextTest = CallbackMsgTest;
using CallbackMsgCloneTest = CallbackMsgTest;
using CallbackMsgTraceTest = CallbackMsgTest;

std::string serializedMsg(CCallbackMsg& msg)
{
    std::string sText = "what was there before";
    EXPECT_THAT(msg.serialize(&sText), IsOk());
    return sText;
}

} // namespace

TEST_F(CallbackMsgTest, HoldsWhatItIsMadeOf)
{
    EXPECT_EQ(m_msg.getReqHandle(), 4711U);
    EXPECT_EQ(m_msg.getRegID(), "R1");
    EXPECT_EQ(m_msg.getCallbackReason(), ccbr_calldata);
    EXPECT_EQ(m_msg.getCallbackData(), &m_payload);
    EXPECT_EQ(m_msg.getTraceID(), 5U);
    EXPECT_EQ(m_msg.getCDSIPAddr(), "ADDR");
}

TEST_F(CallbackMsgTest, HasNoAddressUnlessGivenOne)
{
    const CCallbackMsg msg(1UL, "R2", ccbr_cdrcalldata, nullptr, 6UL);
    EXPECT_EQ(msg.getCDSIPAddr(), "");
    EXPECT_EQ(msg.getRegID(), "R2");
    EXPECT_EQ(msg.getCallbackReason(), ccbr_cdrcalldata);
    EXPECT_EQ(msg.getCallbackData(), nullptr);
    EXPECT_EQ(msg.getTraceID(), 6U);
}

TEST_F(CallbackMsgTest, HandsAPointerBackInItsRequestHandle)
{
    const auto ulHandle = reinterpret_cast<unsigned long>(&m_payload);
    const CCallbackMsg msg(ulHandle, "R1", ccbr_calldata, nullptr, 5UL);
    EXPECT_EQ(reinterpret_cast<CFakePayload*>(msg.getReqHandle()), &m_payload);
}

TEST_F(CallbackMsgTest, CopiesTextsOut)
{
    std::string sRegID;
    std::string sAddr;
    std::string sAddrAgain;
    EXPECT_THAT(m_msg.getRegID(&sRegID), IsOk());
    EXPECT_THAT(m_msg.getCDSIPAddr(sAddr), IsOk());
    EXPECT_THAT(m_msg.getCDSIPAddr(&sAddrAgain), IsOk());
    EXPECT_EQ(sRegID, "R1");
    EXPECT_EQ(sAddr, "ADDR");
    EXPECT_EQ(sAddrAgain, "ADDR");
}

TEST_F(CallbackMsgTest, SettersReplaceTheirField)
{
    EXPECT_THAT(m_msg.setRegID("R9"), IsOk());
    EXPECT_THAT(m_msg.setCDSIPAddr("OTHER"), IsOk());
    EXPECT_EQ(m_msg.getRegID(), "R9");
    EXPECT_EQ(m_msg.getCDSIPAddr(), "OTHER");
}

TEST_F(CallbackMsgTest, NeverDeletesItsPayload)
{
    auto pMsg = std::make_unique<CCallbackMsg>(1UL, "R1", ccbr_calldata, &m_payload, 5UL);
    pMsg.reset();
    EXPECT_EQ(m_nAlive, 1);
}

#if defined(__x86_64__) || defined(__i386__)
// Hosts are compiled against the order of the operations. A pointer to a virtual member holds its slot's offset, plus
// 1; the destructor takes the first two slots.
TEST_F(CallbackMsgTest, PayloadOperationsKeepTheirSlots)
{
    const auto slotOf = [](auto pfnMember) {
        std::uintptr_t uOffset = 0;
        std::memcpy(&uOffset, &pfnMember, sizeof uOffset);
        return (uOffset - 1) / sizeof(void*);
    };
    EXPECT_EQ(slotOf(&CCallbackData::clone), 2U);
    EXPECT_EQ(slotOf(&CCallbackData::deserialize), 3U);
    EXPECT_EQ(slotOf(&CCallbackData::serialize), 4U);
    EXPECT_EQ(slotOf(&CCallbackData::trace), 5U);
    EXPECT_EQ(slotOf(&CCallbackData::traceWarning), 6U);
    EXPECT_EQ(slotOf(&CCallbackData::traceInfo), 7U);
    EXPECT_EQ(slotOf(&CCallbackData::getsize), 8U);
    EXPECT_EQ(slotOf(&CWithOneMore::oneMore), 2U); // the first behind the message's own, which has but a destructor
}
#endif

TEST_F(CallbackMsgCloneTest, CopiesEverythingAndThePayload)
{
    const CHeld clone(m_msg.clone());
    EXPECT_EQ(clone->getReqHandle(), 4711U);
    EXPECT_EQ(clone->getRegID(), "R1");
    EXPECT_EQ(clone->getCallbackReason(), ccbr_calldata);
    EXPECT_EQ(clone->getTraceID(), 5U);
    EXPECT_EQ(clone->getCDSIPAddr(), "ADDR");
    ASSERT_NE(clone->getCallbackData(), nullptr);
    EXPECT_NE(clone->getCallbackData(), &m_payload);
    m_payload.m_sText = "changed since";
    EXPECT_EQ(serialized(*clone->getCallbackData()), "payload");
}

TEST_F(CallbackMsgCloneTest, TakesACopyOfAnotherPayloadWithItsOwnReason)
{
    CRegistrationData other("R2", "A2", "C2", true, at(0));
    const CHeld clone(m_msg.clone(&other));
    EXPECT_EQ(clone->getCallbackReason(), ccbr_calldata);
    EXPECT_EQ(serialized(*clone->getCallbackData()), serialized(other));
    EXPECT_NE(clone->getCallbackData(), &other);
    EXPECT_EQ(m_msg.getCallbackData(), &m_payload);
}

TEST_F(CallbackMsgCloneTest, LeavesTheGivenPayloadToItsOwner)
{
    CFakePayload other("other", &m_nAlive);
    {
        const CHeld clone(m_msg.clone(&other));
        EXPECT_EQ(m_nAlive, 3);
    }
    EXPECT_EQ(m_nAlive, 2);
}

TEST_F(CallbackMsgCloneTest, HasNoPayloadWhenThereIsNone)
{
    const CCallbackMsg msg(1UL, "R1", ccbr_calldata, nullptr, 5UL);
    const CHeld clone(msg.clone());
    ASSERT_TRUE(clone);
    EXPECT_EQ(clone->getCallbackData(), nullptr);
    EXPECT_EQ(clone->getRegID(), "R1");
}

TEST_F(CallbackMsgCloneTest, FailsWhenThePayloadCannotBeCopied)
{
    m_payload.m_bCloneFails = true;
    EXPECT_EQ(m_msg.clone(), nullptr);
}

TEST_F(CallbackMsgTextTest, SerializesTraceIdRegistrationReasonAndPayload)
{
    EXPECT_EQ(serializedMsg(m_msg), "1;5;2;R1;1;1;7;payload");
    CRegistrationData registration("R1", "ADDR", "C7", true, at(0));
    CCallbackMsg notice(1UL, "R1", ccbr_registration, &registration, 5UL, "10.0.0.1");
    EXPECT_EQ(serializedMsg(notice), "1;5;2;R1;1;2;30;" + g_sRegistration);
    CCallData record("C1");
    CCallbackMsg cdr(1UL, "", ccbr_cdrcalldata, &record, 0UL);
    EXPECT_EQ(serializedMsg(cdr), "1;0;0;;1;3;12;2;C1;1;0;1;0");
}

TEST_F(CallbackMsgTextTest, WritesTheTraceIdAsASigned32BitNumber)
{
    CCallbackMsg msg(1UL, "R1", ccbr_calldata, &m_payload, 0xFFFFFFFFUL);
    EXPECT_EQ(serializedMsg(msg), "2;-1;2;R1;1;1;7;payload");
    EXPECT_EQ(msg.getTraceID(), 0xFFFFFFFFUL);
}

TEST_F(CallbackMsgTextTest, LeavesLocalFieldsOut)
{
    CCallbackMsg other(99UL, "R1", ccbr_calldata, &m_payload, 5UL, "somewhere else");
    EXPECT_EQ(serializedMsg(other), serializedMsg(m_msg));
}

TEST_F(CallbackMsgTextTest, WritesAnEmptyElementForNoPayload)
{
    CCallbackMsg msg(1UL, "R1", ccbr_calldata, nullptr, 5UL);
    EXPECT_EQ(serializedMsg(msg), "1;5;2;R1;1;1;0;");
}

TEST_F(CallbackMsgTextTest, TakesTheLongestPayload)
{
    m_payload.m_sText = std::string(999995, 'x');
    EXPECT_EQ(serializedMsg(m_msg), "1;5;2;R1;1;1;999995;" + m_payload.m_sText);
}

TEST_F(CallbackMsgTextTest, RefusesALongerPayloadAndLeavesTheOutputAlone)
{
    m_payload.m_sText = std::string(999996, 'x');
    std::string sText = "what was there before";
    EXPECT_THAT(m_msg.serialize(&sText), FailsWith(E_FAIL));
    EXPECT_EQ(sText, "what was there before");
}

TEST_F(CallbackMsgTextTest, PassesOnThePayloadsFailure)
{
    m_payload.m_lSerializeResult = E_CDS_OUTOFMEMORY;
    std::string sText = "what was there before";
    EXPECT_THAT(m_msg.serialize(&sText), FailsWith(E_CDS_OUTOFMEMORY));
    EXPECT_EQ(sText, "what was there before");
}

TEST_F(CallbackMsgTextTest, TracesTheResultOfSerializingAsDetail)
{
    std::string sText;
    const auto serialize = [&] { (void)m_msg.serialize(&sText); };
    EXPECT_EQ(linesUnder(cDetail, serialize).back(), "CCallbackMsg::serialize Return Value: 0");
    EXPECT_THAT(linesUnder(~cDetail, serialize), ::testing::IsEmpty());
    m_payload.m_sText = std::string(999996, 'x');
    EXPECT_EQ(linesUnder(cDetail, serialize).back(), "CCallbackMsg::serialize Return Value: -2147467259");
}

TEST_F(CallbackMsgTextTest, ReadsTheFieldsOfAText)
{
    const CHeld msg("1;5;2;R1;1;2;30;" + g_sRegistration, 4711UL);
    EXPECT_EQ(msg->getReqHandle(), 4711U);
    EXPECT_EQ(msg->getCDSIPAddr(), "");
    EXPECT_EQ(msg->getTraceID(), 5U);
    EXPECT_EQ(msg->getRegID(), "R1");
    EXPECT_EQ(msg->getCallbackReason(), ccbr_registration);
}

TEST_F(CallbackMsgTextTest, ReadsTheTraceIdAsAnUnsigned32BitNumber)
{
    EXPECT_EQ(CHeld("2;-1;2;R1;1;4;0;")->getTraceID(), 0xFFFFFFFFUL);
}

TEST_F(CallbackMsgTextTest, TheReasonSaysWhichPayloadIsMade)
{
    const std::string sRecord = "2;C1;1;0;1;0";
    const CHeld data("1;5;2;R1;1;1;12;" + sRecord);
    const CHeld cdr("1;5;2;R1;1;3;12;" + sRecord);
    const CHeld notice("1;5;2;R1;1;2;30;" + g_sRegistration);
    ASSERT_NE(dynamic_cast<CCallData*>(data->getCallbackData()), nullptr);
    EXPECT_EQ(callIDOf(dynamic_cast<CCallData&>(*data->getCallbackData())), "C1");
    ASSERT_NE(dynamic_cast<CCallData*>(cdr->getCallbackData()), nullptr);
    EXPECT_EQ(serialized(*cdr->getCallbackData()), sRecord);
    ASSERT_NE(dynamic_cast<CRegistrationData*>(notice->getCallbackData()), nullptr);
    EXPECT_EQ(serialized(*notice->getCallbackData()), g_sRegistration);
}

TEST_F(CallbackMsgTextTest, AKnownReasonReadsWithSuccess)
{
    for (const char* const pszReason : {"1", "2", "3"})
    {
        CCallbackMsg msg(1UL, "R0", ccbr_calldata, nullptr, 0UL);
        EXPECT_THAT(msg.deserialize("1;5;2;R1;1;" + std::string(pszReason) + ";0;"), IsOk()) << pszReason;
        const std::unique_ptr<CCallbackData> pPayload(msg.getCallbackData());
        EXPECT_NE(pPayload, nullptr);
    }
}

TEST_F(CallbackMsgTextTest, AnUnknownReasonMakesNoPayload)
{
    for (const char* const pszText :
         {"1;5;2;R1;1;4;0;", "1;5;2;R1;1;0;0;", "1;5;2;R1;2;-1;0;", "1;5;2;R1", "", "1;5;2;R1;10;4294967297;0;"})
    {
        SCOPED_TRACE(pszText);
        CCallbackMsg used(1UL, "R0", ccbr_calldata, &m_payload, 0UL);
        EXPECT_THAT(used.deserialize(pszText), FailsWith(E_CDS_UNKNOWNREASON));
        EXPECT_EQ(used.getCallbackData(), nullptr);
        EXPECT_EQ(CCallbackMsg(1UL, std::string(pszText)).getCallbackData(), nullptr);
    }
    EXPECT_EQ(m_nAlive, 1);
}

TEST_F(CallbackMsgTextTest, AnEmptyTextLeavesEverythingAtItsStart)
{
    const CCallbackMsg msg(4711UL, std::string());
    EXPECT_EQ(msg.getReqHandle(), 4711U);
    EXPECT_EQ(msg.getTraceID(), 0U);
    EXPECT_EQ(msg.getRegID(), "");
    EXPECT_EQ(static_cast<int>(msg.getCallbackReason()), 0);
    EXPECT_EQ(msg.getCallbackData(), nullptr);
}

TEST_F(CallbackMsgTextTest, RefusesMalformedTexts)
{
    const std::string aTexts[] = {
        "x",
        "1;5;2;R1;1",
        "1;5;2;R1;1;1;1;x",
        "1;5;2;R1;1;3;1;x",
        "1;5;2;R1;1;2;1;x",
        "1;5;2;R1;1;1;14;2;C1;1;1;1;x;1;0", // a property that is no list
    };
    for (const std::string& sText : aTexts)
    {
        SCOPED_TRACE(sText);
        EXPECT_EQ(thrownBy([&] { const CCallbackMsg msg(1UL, sText); }), cParseFailure);
        CCallbackMsg used(1UL, "R0", ccbr_calldata, &m_payload, 0UL);
        EXPECT_EQ(thrownBy([&] { (void)used.deserialize(sText); }), cParseFailure);
        EXPECT_EQ(used.getCallbackData(), nullptr);
    }
}

TEST_F(CallbackMsgTextTest, ReadsBackACallsData)
{
    CCallData record("C1");
    put(record, "CALLERID", "415", at(100, 2));
    add(record, "LOG", "entry", at(101));
    CCallbackMsg msg(1UL, "R1", ccbr_calldata, &record, 5UL);
    const CHeld read(serializedMsg(msg));
    auto* const pRead = dynamic_cast<CCallData*>(read->getCallbackData());
    ASSERT_NE(pRead, nullptr);
    EXPECT_EQ(contentOf(*pRead), contentOf(record));
    EXPECT_EQ(callIDOf(*pRead), "C1");
    EXPECT_EQ(serializedMsg(*read), serializedMsg(msg));
}

TEST_F(CallbackMsgTextTest, ReadsBackARegistration)
{
    CRegistrationData registration("R7", "10.1.1.1", "call;7", false, at(4711, -3));
    CCallbackMsg msg(1UL, "R1", ccbr_registration, &registration, 5UL);
    const CHeld read(serializedMsg(msg));
    ASSERT_NE(dynamic_cast<CRegistrationData*>(read->getCallbackData()), nullptr);
    EXPECT_EQ(serialized(*read->getCallbackData()), serialized(registration));
}

TEST_F(CallbackMsgTraceTest, FitsItsLabelIntoTwentyTwoCharacters)
{
    const std::pair<const char*, const char*> aCases[] = {
        {"", "                      "},
        {"abc", "abc                   "},
        {"abcdefghijklmnopqrstu", "abcdefghijklmnopqrstu "},
        {"abcdefghijklmnopqrstuv", "abcdefghijklmnopqrstuv"},
        {"abcdefghijklmnopqrstuvwxyz0123", "abcdefghijklmnopqrstuv"},
    };
    for (const auto& [pszLabel, pszFitted] : aCases)
    {
        const std::string sExpected =
            "CCallbackMsg::trace: " + std::string(pszFitted) + ", \"R1\", " + identityOf(&m_msg);
        EXPECT_THAT(linesUnder(cError, [&, psz = pszLabel] { m_msg.trace(psz); }), ::testing::ElementsAre(sExpected));
    }
}

TEST_F(CallbackMsgTraceTest, TracesItsPayloadWithoutALabel)
{
    for (const CDSCALLBACKREASON eReason : {ccbr_calldata, ccbr_registration, ccbr_cdrcalldata})
    {
        m_payload.m_vecLabels.clear();
        CCallbackMsg(1UL, "R1", eReason, &m_payload, 5UL).trace("abc");
        EXPECT_THAT(m_payload.m_vecLabels, ::testing::ElementsAre("")) << eReason;
    }
}

TEST_F(CallbackMsgTraceTest, TracesNoPayloadOfAnUnknownReason)
{
    for (const int nReason : {0, 4, -1})
        CCallbackMsg(1UL, "R1", static_cast<CDSCALLBACKREASON>(nReason), &m_payload, 5UL).trace("abc");
    EXPECT_THAT(m_payload.m_vecLabels, ::testing::IsEmpty());
}

TEST_F(CallbackMsgTraceTest, WritesOnlyItsOwnLineWithoutAPayload)
{
    CCallbackMsg msg(1UL, "R1", ccbr_calldata, nullptr, 5UL);
    EXPECT_EQ(linesUnder(cError, [&] { msg.trace("abc"); }).size(), 1U);
}

TEST_F(CallbackMsgTraceTest, WritesWhateverTheMaskButNothing)
{
    for (const std::uint32_t dwMask : {cError, cWarning, cInfo, cDetail, 0x80000000U})
        EXPECT_EQ(linesUnder(dwMask, [&] { m_msg.trace("x"); }).size(), 1U) << dwMask;
    EXPECT_EQ(linesUnder(0, [&] { m_msg.trace("x"); }).size(), 0U);
}

TEST_F(CallbackMsgTraceTest, TracesAtALevelOnlyWhenItIsOn)
{
    const auto info = [&] { m_msg.traceInfo("x"); };
    const auto warning = [&] { m_msg.traceWarning("x"); };
    EXPECT_EQ(linesUnder(cInfo, info).size(), 1U);
    EXPECT_EQ(linesUnder(~cInfo, info).size(), 0U);
    EXPECT_EQ(linesUnder(cWarning, warning).size(), 1U);
    EXPECT_EQ(linesUnder(~cWarning, warning).size(), 0U);
}

TEST_F(CallbackMsgTraceTest, PayloadsTraceAtALevelOnlyWhenItIsOn)
{
    const auto labelsUnder = [&](std::uint32_t dwMask, void (CCallbackData::*pfnTrace)(const char*)) {
        m_payload.m_vecLabels.clear();
        (void)linesUnder(dwMask, [&] { (m_payload.*pfnTrace)("label"); });
        return m_payload.m_vecLabels;
    };
    EXPECT_THAT(labelsUnder(cInfo, &CCallbackData::traceInfo), ::testing::ElementsAre("label"));
    EXPECT_THAT(labelsUnder(~cInfo, &CCallbackData::traceInfo), ::testing::IsEmpty());
    EXPECT_THAT(labelsUnder(cWarning, &CCallbackData::traceWarning), ::testing::ElementsAre("label"));
    EXPECT_THAT(labelsUnder(~cWarning, &CCallbackData::traceWarning), ::testing::IsEmpty());
}
