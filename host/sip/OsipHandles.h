#pragma once

#include <osipparser2/osip_parser.h>
#include <osipparser2/sdp_message.h>

#include <memory>

/// The parser's objects, freed the way each wants it.
struct COsipDelete
{
    void operator()(osip_message_t* p) const { osip_message_free(p); }
    void operator()(osip_from_t* p) const { osip_from_free(p); }
    void operator()(osip_uri_t* p) const { osip_uri_free(p); }
    void operator()(sdp_message_t* p) const { sdp_message_free(p); }
};
template <class T> using COsipPtr = std::unique_ptr<T, COsipDelete>;

/// Null when the parser has no memory.
template <class T, int (*pfnInit)(T**)> COsipPtr<T> makeOsip()
{
    T* pObject = nullptr;
    return COsipPtr<T>(pfnInit(&pObject) == 0 ? pObject : nullptr);
}

/// Prepares the parser's tables and silences it, once in the process: it writes its complaints to standard output
/// otherwise.
void prepareOsip();
