// The readers of what peers send: call data and callback messages from arbitrary text. The first byte says which.

#include "CDSCallData.h"
#include "CDSCallbackMsg.h"
#include "CDSResults.h"
#include "FakeLog.h"
#include "FuzzCheck.h"

#include <memory>
#include <string>

namespace {

// A record with a few values and entries fits; longer inputs only take longer.
constexpr std::size_t cMaxInput = 8192;

/// A message with the payload that its text brought, which belongs to whoever holds the message.
class CHeldMessage
{
public:
    explicit CHeldMessage(const std::string& sText) : m_msg(0, sText), m_pPayload(m_msg.getCallbackData()) {}

    CCallbackMsg& operator*() noexcept { return m_msg; }
    CCallbackMsg* operator->() noexcept { return &m_msg; }

private:
    CCallbackMsg m_msg;
    std::unique_ptr<CCallbackData> m_pPayload;
};

std::string textOf(CCallbackData& data)
{
    std::string sText;
    FUZZ_CHECK(data.serialize(&sText) == 0);
    return sText;
}

/// Merged into an empty record it is there as a whole, and nothing of it is new afterwards. This holds for records made
/// by writing values; a text may also hold what no writer makes (an empty log, an entry that names another log).
void checkLaws(CCallData& record)
{
    std::string sCallID;
    FUZZ_CHECK(record.getCallID(&sCallID) == 0);
    CCallData whole(sCallID);
    bool bChanged = false;
    FUZZ_CHECK(whole.merge(&record, &bChanged) == 0);
    FUZZ_CHECK(textOf(whole) == textOf(record));
    CCallData* pNew = nullptr;
    FUZZ_CHECK(record.filter(&whole, &pNew) == 0);
    const std::unique_ptr<CCallData> pNothing(pNew);
    FUZZ_CHECK(pNothing == nullptr);
}

/// What was read is written in one form only, and reading that form changes nothing any more.
void checkRecord(const std::string& sText)
{
    CCallData record(sText, true);
    const std::string sWritten = textOf(record);
    CCallData same(sWritten, true);
    FUZZ_CHECK(textOf(same) == sWritten);
    FUZZ_CHECK(same.getsize() == record.getsize());
    FUZZ_CHECK(!record.changed(&same) && !same.changed(&record));

    const std::unique_ptr<CCallData> pClone(record.clone());
    FUZZ_CHECK(pClone != nullptr);
    checkLaws(*pClone);

    std::string sDump;
    record.DumpContent(sDump);
    record.trace("fuzz");
}

void checkMessage(const std::string& sText)
{
    CHeldMessage message(sText);
    std::string sWritten;
    FUZZ_CHECK(message->serialize(&sWritten) == 0);
    CHeldMessage same(sWritten);
    std::string sAgain;
    FUZZ_CHECK(same->serialize(&sAgain) == 0);
    FUZZ_CHECK(sAgain == sWritten);
    FUZZ_CHECK(same->getRegID() == message->getRegID());
    FUZZ_CHECK(same->getCallbackReason() == message->getCallbackReason());
    FUZZ_CHECK((same->getCallbackData() == nullptr) == (message->getCallbackData() == nullptr));
    message->trace("fuzz");

    const std::unique_ptr<CCallbackMsg> pClone(message->clone());
    FUZZ_CHECK(pClone != nullptr);
    const std::unique_ptr<CCallbackData> pPayload(pClone->getCallbackData());
    FUZZ_CHECK((pPayload == nullptr) == (message->getCallbackData() == nullptr));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize == 0 || uSize > cMaxInput)
        return 0;
    const std::string sText(reinterpret_cast<const char*>(pData) + 1, uSize - 1);
    try
    {
        if (pData[0] == 'M')
            checkMessage(sText);
        else
            checkRecord(sText);
    }
    catch (unsigned long ulCode)
    {
        FUZZ_CHECK(ulCode == 0x80004005UL); // nothing else may come out of malformed text
    }
    CFakeLog::clear(); // it keeps every line, for as long as the fuzzer runs
    return 0;
}
