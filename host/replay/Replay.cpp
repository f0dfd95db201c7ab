// Capture files from their first packet to their last call.
#include "replay/Replay.h"

std::string CCaptureSummary::format() const
{
    if (ullSip != 0 && ullHep != 0)
        return "SIP and HEPv3";
    return ullHep != 0 ? "HEPv3" : ullSip != 0 ? "SIP" : "no SIP";
}

CCaptureReplay::CCaptureReplay(CCallSink& sink, const CCallMapperSettings& settings)
    : m_mapper(sink, m_counts, settings),
      m_intake(m_counts, [this](const CCapturedMessage& message) { m_mapper.onCaptured(message); })
{
}

bool CCaptureReplay::add(const std::string& sPath, std::string* psError)
{
    CCaptureReader reader;
    if (!reader.open(sPath, psError))
        return false;
    m_counts = {};
    m_before = {};
    summarize(&m_before);
    CCaptureSummary summary;
    summary.sPath = sPath;
    CCapturedPacket packet;
    while (reader.next(&packet, &summary.sDamage) == CCaptureReader::EResult::packet)
        m_intake.add(packet);
    m_intake.endFile();
    summarize(&summary);
    m_vecCaptures.push_back(std::move(summary));
    return true;
}

void CCaptureReplay::finish(bool bCloseOpen)
{
    m_intake.flush();
    m_mapper.finish(bCloseOpen);
    if (!m_vecCaptures.empty())
        summarize(&m_vecCaptures.back());
}

void CCaptureReplay::summarize(CCaptureSummary* pSummary) const
{
    pSummary->ullPackets = m_intake.packets() - m_before.ullPackets;
    pSummary->ullSip = m_intake.sipMessages() - m_before.ullSip;
    pSummary->ullHep = m_intake.hepMessages() - m_before.ullHep;
    pSummary->ullMessages = m_mapper.messagesRead() - m_before.ullMessages;
    pSummary->ullRepeats = m_mapper.repeats() - m_before.ullRepeats;
    pSummary->ullOpen = m_mapper.openCalls();
    pSummary->counts = m_counts;
}
