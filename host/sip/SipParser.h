#pragma once

#include "sip/SipMessage.h"

#include <string_view>

/// Reads a SIP message.
///
/// What call data cannot be made without must be right: first line, Call-ID, CSeq, From. To and Via may be missing.
/// Everything else is read where it can be, and left out where it cannot.
///
/// Threads  any thread; the first call prepares the parser's tables.
///
/// @param pMessage  out: written only when the message is good
/// @return null, or why the message is refused
[[nodiscard]] const char* parseSip(std::string_view sBytes, CSipMessage* pMessage);
