// Parameter lists, stamps, blobs and messages without memory: they fail as their headers say and stay usable.

#include "AllocationSweep.h"
#include "CDSCallbackMsg.h"
#include "CDSParams.h"

#include <cstdlib>
#include <functional>
#include <optional>

using namespace model;

namespace {

using CBlob = CCallData::CCDSBlob;

// Longer than any string keeps inside itself, so that every text is an allocation.
const std::string g_sLong = "a text that is longer than what a string keeps inside itself";

class ModelAllocationTest : public CModelTest
{
};

using ParamListAllocationTest = ModelAllocationTest;
using BlobAllocationTest = ModelAllocationTest;
using MessageAllocationTest = ModelAllocationTest;

std::unique_ptr<CBlob> makeBlob(const std::string& sName = "A")
{
    const CValue value("415");
    return std::make_unique<CBlob>(sName, value.data(), value.length(), at(100, 2));
}

/// A message and its payload.
struct SMessage
{
    std::unique_ptr<CCallbackData> pPayload;
    std::unique_ptr<CCallbackMsg> pMsg;
};

SMessage makeMessage(bool bRecord)
{
    SMessage message;
    if (bRecord)
    {
        auto pRecord = std::make_unique<CCallData>(g_sLong);
        put(*pRecord, g_sLong, g_sLong, at(1));
        add(*pRecord, g_sLong, g_sLong, at(1));
        message.pPayload = std::move(pRecord);
    }
    else
        message.pPayload = std::make_unique<CRegistrationData>(g_sLong, g_sLong, g_sLong, true, at(5));
    message.pMsg = std::make_unique<CCallbackMsg>(1UL, g_sLong, bRecord ? ccbr_calldata : ccbr_registration,
                                                  message.pPayload.get(), 5UL, g_sLong);
    return message;
}

} // namespace

TEST_F(ParamListAllocationTest, AnElementIsAddedWholeOrNotAtAll)
{
    const CValue blob(g_sLong);
    const std::function<void(CParamsX&)> aWriters[] = {
        [](CParamsX& list) { (void)list.addParam(g_sLong, 3.14F); },
        [](CParamsX& list) { list.addParam(-2147483647L - 1); },
        [](CParamsX& list) { list.addParam(4294967295UL); },
        [](CParamsX& list) { list.addParam(18446744073709551615ULL); },
        [](CParamsX& list) { list.addParam(1); },
        [](CParamsX& list) { list.addResult(E_FAIL); },
        [&blob](CParamsX& list) { list.addParam(blob.data(), blob.length()); },
    };
    for (const auto& fnWrite : aWriters)
    {
        CParamsX whole(std::string("2;42;3;abc"));
        fnWrite(whole);
        sweep([] { return CParamsX(std::string("2;42;3;abc")); },
              [&](CParamsX& list) {
                  fnWrite(list);
                  return 0L;
              },
              [&](CParamsX& list, const SOutcome& outcome) {
                  EXPECT_EQ(list.paramList(), outcome.succeeded() ? whole.paramList() : "2;42;3;abc");
                  EXPECT_EQ(list.count(), outcome.succeeded() ? 3 : 2);
                  list.addParam(7L);
                  EXPECT_EQ(list.getLongParamAt(list.count() - 1), 7);
              });
    }
}

TEST_F(ParamListAllocationTest, AListThatCouldNotBeExtendedCanBeCleared)
{
    sweep([] { return CParamsX(std::string("2;42")); },
          [](CParamsX& list) {
              list.append("60;" + g_sLong + ";2;43;2;44;2;45");
              return 0L;
          },
          [](CParamsX& list, const SOutcome&) {
              list.clear();
              list.addParam(7L);
              EXPECT_EQ(list.paramList(), "1;7");
              EXPECT_EQ(list.getLongParamAt(0), 7);
          });
}

TEST_F(ParamListAllocationTest, AHeaderIsPutInFrontWholeOrNotAtAll)
{
    sweep([] { return CParamsX(); },
          [](CParamsX& list) {
              list.addHeader(g_sLong);
              return 0L;
          },
          [](CParamsX& list, const SOutcome& outcome) {
              EXPECT_EQ(list.paramList(), outcome.succeeded() ? g_sLong + ";" : "");
              EXPECT_EQ(list.getHeader(), outcome.succeeded() ? g_sLong : "");
          });
}

TEST_F(ParamListAllocationTest, ParsingOrReadingFailsWithoutALeak)
{
    CParamsX whole;
    for (int i = 0; i < 10; ++i)
        (void)whole.addParam(g_sLong, 3.14F);
    sweep([] { return std::string(); },
          [&](std::string& sLast) {
              const CParamsX list(whole.paramListRef());
              sLast = list.getStringParamAt(9);
              return 0L;
          },
          [](const std::string& sLast, const SOutcome& outcome) {
              EXPECT_EQ(sLast, outcome.succeeded() ? g_sLong : "");
          });
}

TEST_F(ParamListAllocationTest, BytesThatFindNoRoomAreNullWithTheirSize)
{
    const CParamsX list(std::string("4;01AB"));
    int nSize = -1;
    unsigned char* pData = nullptr;
    {
        const CFailingAllocator failing(0);
        pData = list.getCDSDATAParamAt(0, &nSize);
    }
    EXPECT_EQ(pData, nullptr);
    EXPECT_EQ(nSize, 2);
}

TEST_F(ModelAllocationTest, AStampKeepsItsValueWhateverItsTextsNeed)
{
    sweep([] { return at(18446744073709551615ULL, -2147483647L); },
          [](CCDSTimestamp& tsStamp) {
              std::string sText;
              const long lResult = tsStamp.serialize(&sText);
              (void)tsStamp.toString();
              return lResult != 0 ? lResult : tsStamp.deserialize(sText);
          },
          [](const CCDSTimestamp& tsStamp, const SOutcome&) {
              EXPECT_EQ(tsStamp, at(18446744073709551615ULL, -2147483647L));
          });
}

TEST_F(ModelAllocationTest, AStampsTextIsReplacedWholeOrNotAtAll)
{
    sweep([] { return std::string("before"); },
          [](std::string& sText) { return at(18446744073709551615ULL, -2147483647L).serialize(&sText); },
          [](const std::string& sText, const SOutcome& outcome) {
              EXPECT_EQ(sText, outcome.succeeded() ? "20;18446744073709551615;11;-2147483647" : "before");
          });
}

TEST_F(BlobAllocationTest, ABlobIsNotMadeWithoutItsBytes)
{
    const CValue value("415");
    SOutcome outcome;
    {
        const CFailingAllocator failing(0);
        outcome = attempted([&] {
            const CBlob blob("A", value.data(), value.length(), at(1));
            return 0L;
        });
    }
    EXPECT_EQ(outcome.ulThrown, cBlobRefused);
}

TEST_F(BlobAllocationTest, ACopyWithoutRoomForTheBytesKeepsTheirNumber)
{
    const auto pBlob = makeBlob();
    std::optional<CBlob> optCopy;
    const CValue other("other");
    CBlob assigned("B", other.data(), other.length(), at(1));
    {
        const CFailingAllocator failing(0); // the name fits into its string
        optCopy.emplace(*pBlob);
        assigned = *pBlob;
    }
    const CBlob* const apCopies[] = {&*optCopy, &assigned};
    for (const CBlob* const pCopy : apCopies)
    {
        EXPECT_EQ(pCopy->data(), nullptr);
        EXPECT_EQ(pCopy->length(), 3);
        EXPECT_EQ(pCopy->name(), "A");
        EXPECT_EQ(pCopy->timestamp(), at(100, 2));
    }
}

TEST_F(BlobAllocationTest, ABlobWithoutItsBytesIsReadAsAnEmptyOne)
{
    const auto pBlob = makeBlob();
    std::optional<CBlob> optCopy;
    {
        const CFailingAllocator failing(0);
        optCopy.emplace(*pBlob);
    }
    std::string sText;
    EXPECT_THAT(optCopy->serialize(&sText), IsOk());
    EXPECT_EQ(sText, "1;A;0;;9;3;100;1;2");
    EXPECT_EQ(optCopy->toString(), "nameA, val ");
    optCopy->DumpContent(sText);
    EXPECT_EQ(sText, "\t\tName: A, DataLen: 3, Value:\n");
    EXPECT_EQ(CBlob(*optCopy).data(), nullptr);
    const std::unique_ptr<CBlob> pClone(optCopy->clone());
    EXPECT_EQ(pClone->length(), 0);
}

TEST_F(BlobAllocationTest, OperationsOnABlobLeaveItWhole)
{
    const std::function<long(CBlob&)> aOperations[] = {
        [](CBlob& blob) {
            delete blob.clone();
            return 0L;
        },
        [](CBlob& blob) {
            std::string sText;
            return blob.serialize(&sText);
        },
        [](CBlob& blob) {
            std::string sText;
            blob.DumpContent(sText);
            return 0L;
        },
        [](CBlob& blob) { return static_cast<long>(blob.toString().size()); },
    };
    for (const auto& fnRun : aOperations)
        sweep([] { return makeBlob(g_sLong); }, [&](std::unique_ptr<CBlob>& pBlob) { return fnRun(*pBlob); },
              [](const std::unique_ptr<CBlob>& pBlob, const SOutcome&) {
                  EXPECT_EQ(pBlob->name(), g_sLong);
                  EXPECT_EQ(textOf(pBlob->data(), pBlob->length()), "415");
                  EXPECT_EQ(pBlob->timestamp(), at(100, 2));
              });
}

TEST_F(BlobAllocationTest, ReadingATextEndsInAValueThatIsSafeToRead)
{
    const std::string sText = "60;" + g_sLong + ";6;343135;7;1;7;1;8";
    sweep([] { return makeBlob(); }, [&](std::unique_ptr<CBlob>& pBlob) { return pBlob->deserialize(sText); },
          [](const std::unique_ptr<CBlob>& pBlob, const SOutcome& outcome) {
              std::string sAgain;
              EXPECT_THAT(pBlob->serialize(&sAgain), IsOk());
              EXPECT_TRUE(pBlob->data() == nullptr || textOf(pBlob->data(), pBlob->length()) == "415");
              EXPECT_EQ(pBlob->timestamp(), outcome.succeeded() ? at(7, 8) : at(100, 2));
          });
}

TEST_F(MessageAllocationTest, MakingOneFailsWithoutALeak)
{
    sweep([] { return false; },
          [](bool& bMade) {
              CRegistrationData data(g_sLong, g_sLong, g_sLong, true, at(5));
              const CCallbackMsg msg(1UL, g_sLong, ccbr_registration, &data, 5UL, g_sLong);
              bMade = msg.getCallbackData() == &data;
              return 0L;
          },
          [](bool bMade, const SOutcome& outcome) { EXPECT_EQ(bMade, outcome.succeeded()); });
}

TEST_F(MessageAllocationTest, ACloneIsWholeOrNull)
{
    for (const bool bRecord : {false, true})
        sweep([&] { return std::pair(makeMessage(bRecord), SMessage()); },
              [](auto& pair) {
                  pair.second.pMsg.reset(pair.first.pMsg->clone());
                  return pair.second.pMsg != nullptr ? 0 : E_CDS_OUTOFMEMORY;
              },
              [](auto& pair, const SOutcome& outcome) {
                  EXPECT_FALSE(outcome.bBadAlloc); // null tells
                  if (!outcome.succeeded())
                      return;
                  pair.second.pPayload.reset(pair.second.pMsg->getCallbackData());
                  std::string sText;
                  std::string sCopy;
                  EXPECT_THAT(pair.first.pMsg->serialize(&sText), IsOk());
                  EXPECT_THAT(pair.second.pMsg->serialize(&sCopy), IsOk());
                  EXPECT_EQ(pair.first.pPayload->getsize(), pair.second.pPayload->getsize());
                  EXPECT_EQ(sCopy.size(), sText.size()); // a cloned registration is stamped afresh, as long
              });
}

TEST_F(MessageAllocationTest, ATextIsWrittenWholeOrNotAtAll)
{
    for (const bool bRecord : {false, true})
    {
        std::string sWhole;
        const SMessage message = makeMessage(bRecord);
        EXPECT_THAT(message.pMsg->serialize(&sWhole), IsOk());
        sweep([] { return std::string("before"); }, [&](std::string& sText) { return message.pMsg->serialize(&sText); },
              [&](const std::string& sText, const SOutcome& outcome) {
                  EXPECT_EQ(sText, outcome.succeeded() ? sWhole : "before");
              });
    }
}

TEST_F(MessageAllocationTest, ReadingATextLeaksNothing)
{
    for (const bool bRecord : {false, true})
    {
        std::string sWhole;
        EXPECT_THAT(makeMessage(bRecord).pMsg->serialize(&sWhole), IsOk());
        sweep([] { return CCallbackMsg(1UL, "R0", ccbr_calldata, nullptr, 0UL).clone(); },
              [&](CCallbackMsg* pMsg) { return pMsg->deserialize(sWhole); },
              [&](CCallbackMsg* pMsg, const SOutcome& outcome) {
                  const std::unique_ptr<CCallbackMsg> pHolder(pMsg);
                  const std::unique_ptr<CCallbackData> pPayload(pMsg->getCallbackData());
                  EXPECT_EQ(pPayload != nullptr, outcome.succeeded());
              });
        sweep([] { return std::unique_ptr<CCallbackData>(); },
              [&](std::unique_ptr<CCallbackData>& pPayload) {
                  const CCallbackMsg msg(1UL, sWhole);
                  pPayload.reset(msg.getCallbackData());
                  return 0L;
              },
              [](const std::unique_ptr<CCallbackData>& pPayload, const SOutcome& outcome) {
                  EXPECT_EQ(pPayload != nullptr, outcome.succeeded());
              });
    }
}

TEST_F(MessageAllocationTest, TracingNeverFails)
{
    for (const bool bRecord : {false, true})
        sweep([&] { return makeMessage(bRecord); },
              [](SMessage& message) {
                  message.pMsg->trace("label");
                  std::string sRoom = g_sLong; // a registration's trace allocates nothing
                  return 0L;
              },
              [](const SMessage& message, const SOutcome&) { EXPECT_EQ(message.pMsg->getRegID(), g_sLong); });
}
