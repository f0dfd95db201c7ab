// Capture files, through libpcap.
#include "capture/CaptureReader.h"

#include <pcap/pcap.h>

struct CCaptureReader::CState
{
    pcap_t* pCapture = nullptr;
    int nLinkType = 0;

    ~CState()
    {
        if (pCapture != nullptr)
            pcap_close(pCapture);
    }
};

CCaptureReader::CCaptureReader() : m_pState(std::make_unique<CState>()) {}
CCaptureReader::~CCaptureReader() = default;

bool CCaptureReader::open(const std::string& sPath, std::string* psError)
{
    m_pState = std::make_unique<CState>();
    char szError[PCAP_ERRBUF_SIZE] = "";
    m_pState->pCapture = pcap_open_offline(sPath.c_str(), szError);
    if (m_pState->pCapture == nullptr)
    {
        *psError = szError;
        return false;
    }
    m_pState->nLinkType = pcap_datalink(m_pState->pCapture);
    return true;
}

CCaptureReader::EResult CCaptureReader::next(CCapturedPacket* pPacket, std::string* psError)
{
    if (m_pState->pCapture == nullptr)
        return EResult::end;
    pcap_pkthdr* pHeader = nullptr;
    const u_char* pBytes = nullptr;
    const int nResult = pcap_next_ex(m_pState->pCapture, &pHeader, &pBytes);
    if (nResult == PCAP_ERROR_BREAK)
        return EResult::end;
    if (nResult != 1)
    {
        *psError = pcap_geterr(m_pState->pCapture);
        return EResult::damaged;
    }
    // The file's seconds are 32 unsigned bits, which libpcap hands on as signed ones: past 2038 they come negative.
    const auto llSeconds = static_cast<std::int64_t>(pHeader->ts.tv_sec);
    pPacket->llSeconds = llSeconds < 0 ? static_cast<std::int64_t>(static_cast<std::uint32_t>(llSeconds)) : llSeconds;
    pPacket->llMicros = static_cast<std::int64_t>(pHeader->ts.tv_usec);
    pPacket->nLinkType = m_pState->nLinkType;
    pPacket->bytes = CBytes(pBytes, pHeader->caplen);
    pPacket->bCut = pHeader->caplen < pHeader->len;
    return EResult::packet;
}
