#pragma once

#include "capture/ByteReader.h"

/// Finds the IP packet in a captured frame: Ethernet with VLAN tags, Linux cooked captures of both versions, raw IP and
/// the two loopback kinds.
///
/// @param nLinkType  a DLT_ number of libpcap
/// @param pIp        out: the IP packet, possibly with padding behind it
/// @return null, or why there is none; "not IP" means that nothing is wrong
[[nodiscard]] const char* findIpPacket(int nLinkType, CBytes frame, CBytes* pIp);

/// What findIpPacket returns for ARP and its like.
///
/// An array, so that it has one address in the whole program: callers compare with it.
inline constexpr char cNotIp[] = "not IP";
