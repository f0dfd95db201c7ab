#include "CDSCallbackMsg.h"
#include "ModelGenerators.h"

using namespace model;

namespace {

std::string serializedMsg(CCallbackMsg& msg)
{
    std::string sText;
    RC_ASSERT(msg.serialize(&sText) == 0);
    return sText;
}

/// Reads the message back and checks what travels.
///
/// @return its payload
std::unique_ptr<CCallbackData> readBack(CCallbackMsg& msg)
{
    CCallbackMsg read(99UL, serializedMsg(msg));
    std::unique_ptr<CCallbackData> pPayload(read.getCallbackData());
    RC_ASSERT(read.getReqHandle() == 99U);
    RC_ASSERT(read.getCDSIPAddr().empty());
    RC_ASSERT(read.getTraceID() == msg.getTraceID());
    RC_ASSERT(read.getRegID() == msg.getRegID());
    RC_ASSERT(read.getCallbackReason() == msg.getCallbackReason());
    RC_ASSERT(serializedMsg(read) == serializedMsg(msg));
    return pPayload;
}

} // namespace

RC_GTEST_PROP(MessageProperties, RegistrationsReadBackAsTheyWere,
              (bool bRegister, const CCDSTimestamp& tsUpdate, std::uint32_t dwTraceID))
{
    const auto sRegID = *genBytes();
    const auto sAddr = *genBytes();
    const auto sCallID = *genBytes();
    CRegistrationData data(sRegID, sAddr, sCallID, bRegister, tsUpdate);
    CCallbackMsg msg(1UL, sRegID, ccbr_registration, &data, dwTraceID, sAddr);
    const auto pPayload = readBack(msg);
    const auto* const pRead = dynamic_cast<CRegistrationData*>(pPayload.get());
    RC_ASSERT(!!pRead);
    std::string sReadRegID;
    std::string sReadAddr;
    std::string sReadCallID;
    bool bRead = !bRegister;
    CCDSTimestamp tsRead(0, 0);
    (void)pRead->getRegID(&sReadRegID);
    (void)pRead->getCDSIPAddr(&sReadAddr);
    (void)pRead->getCallID(&sReadCallID);
    (void)pRead->getRegister(&bRead);
    (void)pRead->getUpdateTimestamp(&tsRead);
    RC_ASSERT(sReadRegID == sRegID);
    RC_ASSERT(sReadAddr == sAddr);
    RC_ASSERT(sReadCallID == sCallID);
    RC_ASSERT(bRead == bRegister);
    RC_ASSERT(tsRead == tsUpdate);
}

RC_GTEST_PROP(MessageProperties, CallDataReadsBackAsItWas,
              (const std::vector<SWrite>& vecWrites, std::uint32_t dwTraceID, bool bCdr))
{
    const auto sRegID = *genBytes();
    const auto pRecord = recordOf(vecWrites);
    CCallbackMsg msg(1UL, sRegID, bCdr ? ccbr_cdrcalldata : ccbr_calldata, pRecord.get(), dwTraceID);
    const auto pPayload = readBack(msg);
    auto* const pRead = dynamic_cast<CCallData*>(pPayload.get());
    RC_ASSERT(!!pRead);
    RC_ASSERT(contentOf(*pRead) == contentOf(*pRecord));
}

RC_GTEST_PROP(MessageProperties, CopiesSayTheSame, (const std::vector<SWrite>& vecWrites, std::uint32_t dwTraceID))
{
    const auto pRecord = recordOf(vecWrites);
    const std::unique_ptr<CCallData> pInOrder(pRecord->clone()); // with the latest entry as the one appended last
    CCallbackMsg msg(7UL, *genBytes(), ccbr_calldata, pInOrder.get(), dwTraceID, *genBytes());
    const std::unique_ptr<CCallbackMsg> pCopy(msg.clone());
    const std::unique_ptr<CCallbackData> pPayload(pCopy->getCallbackData());
    RC_ASSERT(serializedMsg(*pCopy) == serializedMsg(msg));
    RC_ASSERT(pCopy->getReqHandle() == msg.getReqHandle());
    RC_ASSERT(pCopy->getCDSIPAddr() == msg.getCDSIPAddr());
}
