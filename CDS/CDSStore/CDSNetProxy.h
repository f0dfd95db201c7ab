#pragma once

#include "CDSExport.h"
#include "CDSResults.h"

#include <cstdarg>
#include <string>

class CCDSAPI;

/// What connects the local store with the stores of peer servers.
///
/// Threads    Initialize and Finalize are called by one thread at a time, the other operations by any.
class CCDSNetProxy
{
public:
    CCDSNetProxy() = default;
    ~CCDSNetProxy();
    CCDSNetProxy(const CCDSNetProxy&) = delete;
    CCDSNetProxy& operator=(const CCDSNetProxy&) = delete;

    /// Starts the exchange with peers.
    ///
    /// @param sIPAddr  the local server's address
    /// @return 0, or a negative code; Finalize has run then
    long Initialize(const std::string& sIPAddr, CCDSAPI* pCDSAPI);

    /// Stops it. 0, from every state.
    long Finalize();

    /// Has the proxy's state written to the trace log by its own thread.
    void Dump(int nFull);

    /// Accepts a receiver of trace output and does nothing with it: all output keeps going to the log file.
    static CDS_API void SetDbgOutHook(void (*pfnHook)(unsigned long, const char*, va_list));
};

/// The process's one proxy; null while there is no store.
CDS_API extern CCDSNetProxy* g_pCDSNetProxy;
