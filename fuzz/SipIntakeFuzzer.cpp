// The SIP intake on arbitrary bytes: as one message, as a stream, and what the call mapper makes of the messages.

#include "FuzzCheck.h"
#include "calls/CallMapper.h"
#include "capture/SipStreamFramer.h"

#include <set>
#include <string>

namespace {

// A dozen messages, enough for a call from its beginning to its end; more only takes longer.
constexpr std::size_t cMaxInput = 16384;

/// Checks what is promised of a sink's calls, and of the values.
class CCheckingSink final : public CCallSink
{
public:
    bool onCallBegin(const std::string& sRecordID) override
    {
        FUZZ_CHECK(sRecordID.starts_with("sip:") && sRecordID.size() > 4);
        m_setOpen.insert(sRecordID);
        return true;
    }

    void onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges) override
    {
        FUZZ_CHECK(m_setOpen.contains(sRecordID) && !vecChanges.empty());
        for (const CCallChange& change : vecChanges)
        {
            FUZZ_CHECK(!change.sName.empty() && change.tsStamp.value() != 0);
            FUZZ_CHECK(change.sValue.size() <= CCallMapper::cMaxValue + 1);
            FUZZ_CHECK(change.sValue.find('\0') == change.sValue.size() - 1);
        }
    }

    void onCallEnd(const std::string& sRecordID) override { FUZZ_CHECK(m_setOpen.erase(sRecordID) == 1); }

    std::size_t open() const { return m_setOpen.size(); }

private:
    std::set<std::string> m_setOpen;
};

/// Feeds messages that come a second apart, back and forth between two parties.
class CFeed
{
public:
    void message(std::string_view sBytes)
    {
        m_llNow += 1'000'000;
        std::swap(m_source, m_destination);
        m_mapper.onCaptured({m_llNow, m_source, m_destination, std::string(sBytes)});
    }

    void finish()
    {
        FUZZ_CHECK(m_mapper.openCalls() == m_sink.open());
        m_mapper.finish(true);
        FUZZ_CHECK(m_mapper.openCalls() == 0 && m_sink.open() == 0);
    }

    CIntakeCounts m_counts;

private:
    static CIpAddress address(std::uint8_t byHost)
    {
        const std::uint8_t bytes[4] = {10, 0, 0, byHost};
        return CIpAddress(bytes);
    }

    CCheckingSink m_sink;
    CCallMapper m_mapper{m_sink, m_counts};
    CEndpoint m_source{address(1), 5060};
    CEndpoint m_destination{address(2), 5060};
    std::int64_t m_llNow = 1'795'219'810'000'000;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize > cMaxInput)
        return 0;
    const std::string_view sBytes(reinterpret_cast<const char*>(pData), uSize);

    CFeed whole;
    whole.message(sBytes);
    whole.message(sBytes);
    whole.finish();

    // However the stream is cut into segments, the same messages come out of it.
    CFeed stream;
    std::string sAtOnce;
    std::string sInPieces;
    CSipStreamFramer atOnce(stream.m_counts, [&](std::string_view sMessage) {
        FUZZ_CHECK(isSipStartLine(sMessage.substr(0, sMessage.find('\n'))));
        sAtOnce.append(sMessage);
        stream.message(sMessage);
    });
    CSipStreamFramer inPieces(stream.m_counts, [&](std::string_view sMessage) { sInPieces.append(sMessage); });
    atOnce.add(sBytes);
    for (std::size_t u = 0; u < uSize; u += 13)
        inPieces.add(sBytes.substr(u, 13));
    FUZZ_CHECK(sAtOnce == sInPieces);
    FUZZ_CHECK(inPieces.buffered() <= CSipStreamFramer::cMaxMessage);
    stream.finish();
    return 0;
}
