// Texts that no peer of ours writes: they are refused in the one way that is defined, or give something that is then
// written and read like anything else. The programs in fuzz/ go deeper; this runs everywhere, on both word sizes.

#include "CDSCallbackMsg.h"
#include "ModelGenerators.h"

using namespace model;

namespace {

/// A change at some place of a text.
struct SDamage
{
    int nKind = 0;
    std::uint32_t dwPlace = 0;
    std::string sText;
};

std::ostream& operator<<(std::ostream& out, const SDamage& damage)
{
    return out << damage.nKind << " at " << damage.dwPlace << " with " << ::testing::PrintToString(damage.sText);
}

rc::Gen<SDamage> genDamage()
{
    const auto genText = rc::gen::element<std::string>("0", "1", "9", ";", "-1", "2147483647", "x", "T", "",
                                                       "99999999999", std::string(1, '\0'), "1;0;1;0");
    return rc::gen::build<SDamage>(rc::gen::set(&SDamage::nKind, rc::gen::inRange(0, 4)),
                                   rc::gen::set(&SDamage::dwPlace), rc::gen::set(&SDamage::sText, genText));
}

std::string damaged(std::string sText, const std::vector<SDamage>& vecDamages)
{
    for (const auto& [nKind, dwPlace, sWith] : vecDamages)
    {
        const std::size_t uPlace = dwPlace % (sText.size() + 1);
        switch (nKind)
        {
        case 0: sText.insert(uPlace, sWith); break;
        case 1: sText.erase(uPlace, sWith.size() + 1); break;
        case 2: sText.replace(uPlace, sWith.size(), sWith); break;
        default: sText.insert(uPlace, sText.substr(uPlace / 2, 20)); break; // a part of it once more
        }
    }
    return sText;
}

/// The record that a text gives is written in one form, which reads back as the same.
void checkRecordText(const std::string& sText)
{
    const CFakeWorld world; // it keeps the lines of a few texts only
    const unsigned long ulThrown = thrownBy([&] {
        CCallData record(sText, true);
        const std::string sWritten = serialized(record);
        CCallData again(sWritten, true);
        RC_ASSERT(serialized(again) == sWritten);
        RC_ASSERT(contentOf(again) == contentOf(record));
        RC_ASSERT(again.getsize() == record.getsize());
        RC_ASSERT(!again.changed(&record));
        const std::unique_ptr<CCallData> pClone(record.clone());
        RC_ASSERT(contentOf(*pClone) == contentOf(record));
        std::string sDump;
        record.DumpContent(sDump);
        record.trace("text");
    });
    RC_CLASSIFY(ulThrown == 0, "read");
    RC_ASSERT(ulThrown == 0 || ulThrown == cParseFailure);
    RC_ASSERT(CFakeLog::lines().size() < 3000U);
}

void checkMessageText(const std::string& sText)
{
    const CFakeWorld world;
    const unsigned long ulThrown = thrownBy([&] {
        CCallbackMsg msg(1UL, sText);
        const std::unique_ptr<CCallbackData> pPayload(msg.getCallbackData());
        std::string sWritten;
        RC_ASSERT(msg.serialize(&sWritten) == 0);
        CCallbackMsg again(1UL, sWritten);
        const std::unique_ptr<CCallbackData> pAgain(again.getCallbackData());
        std::string sWrittenAgain;
        RC_ASSERT(again.serialize(&sWrittenAgain) == 0);
        RC_ASSERT(sWrittenAgain == sWritten);
        RC_ASSERT(again.getCallbackReason() == msg.getCallbackReason());
        RC_ASSERT(!pAgain == !pPayload);
        msg.trace("text");
    });
    RC_CLASSIFY(ulThrown == 0, "read");
    RC_ASSERT(ulThrown == 0 || ulThrown == cParseFailure);
}

} // namespace

RC_GTEST_PROP(HostileTexts, ADamagedRecordIsRefusedOrReadLikeAnyOther, (const std::vector<SWrite>& vecWrites))
{
    const auto vecDamages = *rc::gen::container<std::vector<SDamage>>(genDamage());
    checkRecordText(damaged(serialized(*recordOf(vecWrites)), vecDamages));
}

RC_GTEST_PROP(HostileTexts, AnyTextIsRefusedOrReadLikeAnyRecord, ())
{
    checkRecordText(*rc::gen::container<std::string>(rc::gen::element('0', '1', '2', '3', ';', ';', '-', 'T', 'x')));
}

RC_GTEST_PROP(HostileTexts, ADamagedMessageIsRefusedOrReadLikeAnyOther,
              (const std::vector<SWrite>& vecWrites, bool bCdr))
{
    const auto pRecord = recordOf(vecWrites);
    CCallbackMsg msg(1UL, "R1", bCdr ? ccbr_cdrcalldata : ccbr_calldata, pRecord.get(), 5UL);
    std::string sText;
    RC_ASSERT(msg.serialize(&sText) == 0);
    checkMessageText(damaged(sText, *rc::gen::container<std::vector<SDamage>>(genDamage())));
}

RC_GTEST_PROP(HostileTexts, ADamagedRegistrationIsRefusedOrReadLikeAnyOther,
              (bool bRegister, const CCDSTimestamp& tsUpdate))
{
    CRegistrationData data("R1", "10.0.0.1", "C7", bRegister, tsUpdate);
    CCallbackMsg msg(1UL, "R1", ccbr_registration, &data, 5UL);
    std::string sText;
    RC_ASSERT(msg.serialize(&sText) == 0);
    checkMessageText(damaged(sText, *rc::gen::container<std::vector<SDamage>>(genDamage())));
}

RC_GTEST_PROP(HostileTexts, LargeCountsTakeNoTime, (const std::vector<SWrite>& vecWrites))
{
    // Every number of the text in turn becomes the largest there is.
    const std::string sText = serialized(*recordOf(vecWrites));
    const auto uFrom = *rc::gen::inRange<std::size_t>(0, sText.size());
    const std::size_t uBegin = sText.find_first_of("0123456789", uFrom);
    RC_PRE(uBegin != std::string::npos);
    const std::size_t uEnd = sText.find_first_not_of("0123456789", uBegin);
    std::string sHostile = sText;
    sHostile.replace(uBegin, (uEnd == std::string::npos ? sText.size() : uEnd) - uBegin, "2147483647");
    checkRecordText(sHostile);
}
