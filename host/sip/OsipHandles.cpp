// The SIP parser's process-wide state.
#include "sip/OsipHandles.h"

#include <osipparser2/osip_port.h>

namespace {

void dropTrace(const char*, int, osip_trace_level_t, const char*, va_list) {}

bool prepare()
{
    osip_trace_initialize_func(END_TRACE_LEVEL, dropTrace);
    return parser_init() == 0;
}

} // namespace

void prepareOsip()
{
    static const bool s_bPrepared = prepare(); // one thread does it, the others wait
    (void)s_bPrepared;                         // it cannot fail: it fills a table
}
