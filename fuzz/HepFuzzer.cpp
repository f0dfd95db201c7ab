// The HEPv3 decoder on arbitrary datagrams.

#include "FuzzCheck.h"
#include "capture/HepDecoder.h"

namespace {

// Every rule shows in a few chunks; a datagram of 64 KiB only takes longer.
constexpr std::size_t cMaxInput = 4096;

/// A text that was handed out lies inside the datagram.
bool within(std::string_view sText, CBytes datagram)
{
    const std::string_view sAll = asText(datagram);
    return sText.empty() || (sText.data() >= sAll.data() && sText.data() + sText.size() <= sAll.data() + sAll.size());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t uSize)
{
    if (uSize > cMaxInput)
        return 0;
    const CBytes datagram(pData, uSize);
    CHepPacket packet;
    if (decodeHep(datagram, &packet) != nullptr)
        return 0;
    FUZZ_CHECK(isHep(datagram) && readU16(datagram, 4) == uSize);
    FUZZ_CHECK(within(packet.sPayload, datagram));
    FUZZ_CHECK(within(packet.sKey, datagram));
    FUZZ_CHECK(within(packet.sCorrelation, datagram));
    FUZZ_CHECK(!packet.source.toString().empty() && !packet.destination.toString().empty());
    return 0;
}
