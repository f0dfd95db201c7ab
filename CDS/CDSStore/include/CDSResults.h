#pragma once

#include <cstdint>

/// Result codes: 0 is success, every failure is negative as a long on 32-bit and 64-bit systems alike. Callers test for
/// less than 0; printed, a code is its low 32 bits.

/// A 32-bit code as a long that keeps its sign on every ABI. A bare hexadecimal constant is a positive number where
/// long has 64 bits, so every code passes through here.
constexpr long cdsResult(unsigned long ulCode) noexcept
{
    return static_cast<long>(static_cast<std::int32_t>(static_cast<std::uint32_t>(ulCode)));
}

#if defined(E_FAIL) || defined(E_OUTOFMEMORY)
#error "E_FAIL and E_OUTOFMEMORY are names of this library's result codes"
#endif

/// Malformed parameter list, element too long, timing thread not created, duplicate CDR for a call.
constexpr long E_FAIL = cdsResult(0x80004005UL);
/// An operation of the event log could not allocate.
constexpr long E_OUTOFMEMORY = cdsResult(0x8007000EUL);
/// An object could not be made for want of memory.
constexpr long E_CDS_OUTOFMEMORY = cdsResult(0xC1170A28UL);
/// The destination server is marked unreachable; nothing was sent.
constexpr long E_CDS_SERVERUNREACHABLE = cdsResult(0xC1170A29UL);
/// There is no distribution entry for this call and peer.
constexpr long E_CDS_DISTNOTFOUND = cdsResult(0xC1170A2CUL);
/// A received callback message names an unknown reason.
constexpr long E_CDS_UNKNOWNREASON = cdsResult(0xC1170A2DUL);
/// No such registration, registrant, stored data, property, log or entry; the end of an iteration.
constexpr long E_CDS_NOTFOUND = cdsResult(0xC1170A2EUL);
/// The registration ID or distribution entry exists already.
constexpr long E_CDS_EXISTS = cdsResult(0xC1170A2FUL);
/// Null call data was passed to an update.
constexpr long E_CDS_NULLDATA = cdsResult(0xC1170A30UL);
/// A messaging channel could not be made.
constexpr long E_CDS_NOCHANNEL = cdsResult(0xC1170A33UL);
/// A thread could not be started.
constexpr long E_CDS_NOTHREAD = cdsResult(0xC1170A34UL);

static_assert(E_FAIL < 0 && E_OUTOFMEMORY < 0 && E_CDS_OUTOFMEMORY < 0 && E_CDS_SERVERUNREACHABLE < 0);
static_assert(E_CDS_DISTNOTFOUND < 0 && E_CDS_UNKNOWNREASON < 0 && E_CDS_NOTFOUND < 0 && E_CDS_EXISTS < 0);
static_assert(E_CDS_NULLDATA < 0 && E_CDS_NOCHANNEL < 0 && E_CDS_NOTHREAD < 0);
