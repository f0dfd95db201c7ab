// A capture file from its first packet to its last call.
#include "replay/Replay.h"

#include "capture/CaptureIntake.h"

std::string CCaptureSummary::format() const
{
    if (ullSip != 0 && ullHep != 0)
        return "SIP and HEPv3";
    return ullHep != 0 ? "HEPv3" : ullSip != 0 ? "SIP" : "no SIP";
}

bool replayCapture(const std::string& sPath, CCallSink& sink, const CCallMapperSettings& settings, bool bCloseOpen,
                   CCaptureSummary* pSummary, std::string* psError)
{
    pSummary->sPath = sPath;
    CCaptureReader reader;
    if (!reader.open(sPath, psError))
        return false;
    CCallMapper mapper(sink, pSummary->counts, settings);
    CCaptureIntake intake(pSummary->counts, [&](const CCapturedMessage& message) { mapper.onCaptured(message); });
    CCapturedPacket packet;
    while (reader.next(&packet, &pSummary->sDamage) == CCaptureReader::EResult::packet)
        intake.add(packet);
    intake.flush();
    mapper.finish(bCloseOpen);
    pSummary->ullPackets = intake.packets();
    pSummary->ullSip = intake.sipMessages();
    pSummary->ullHep = intake.hepMessages();
    pSummary->ullMessages = mapper.messagesRead();
    pSummary->ullRepeats = mapper.repeats();
    pSummary->ullOpen = mapper.openCalls();
    return true;
}
