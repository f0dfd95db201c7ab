#pragma once

#include <string>

// What crosses the network: one kind of request and one kind of response, each the text of one parameter list with its
// terminating zero byte.

/// Names of messages: the first element of each.
extern const char* const g_pszCallbackMsgRequest;
extern const char* const g_pszStatusResponse;

/// Whether a received buffer begins as one of the messages that peers may send. Reads the buffer as a C string, so only
/// a terminated one may come here.
///
/// @param ulSize  bytes received, the terminator included; compared with the length of the name alone
bool checkMessage(const char* pBuffer, unsigned long ulSize);

/// How a refused buffer looks in the trace log: the first hexadecimal digit of its first byte, or 386 blanks when it is
/// empty. It reads as a dump line that ends too early; the lines that hold it are what operators know.
std::string hexasciiMessage(const char* pBuffer, unsigned long ulSize);

/// Whether a request could not be made since its message is too long for one. It will be no shorter next time.
bool cdsIsTooLong(long lResult) noexcept;

/// Whether a request could not be sent for a reason that lies in it alone: its peer may be as reachable as before.
bool cdsFailedByMessage(long lResult) noexcept;

/// The text of a received buffer: up to its first zero byte, never beyond its size. A null buffer is empty.
std::string cdsReceivedText(const char* pBuffer, unsigned long ulSize);

/// Writes the lines about a received request that is no parameter list: one that names it, then its bytes from the
/// error's position on, 128 to a line. A buffer larger than any message gets no more lines than the largest message.
void cdsLogBogusRequest(unsigned long ulPeer, const char* pBuffer, unsigned long ulSize, int nErrorPos);
