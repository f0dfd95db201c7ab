#pragma once

#include "ChannelSettings.h"
#include "Transport.h"

#include <memory>
#include <string>

struct ssl_ctx_st;

namespace Messaging {

/// This server's certificate, and whom it trusts: TLS 1.3 with certificates on both sides.
///
/// Threads    any, once loaded.
class CTlsContext
{
public:
    /// Reads the files and checks that they belong together and to this server's address.
    ///
    /// @param psError  out: on failure what is wrong
    /// @return null on failure
    static std::unique_ptr<CTlsContext> load(const CChannelSettings& settings, std::string* psError);
    ~CTlsContext();
    CTlsContext(const CTlsContext&) = delete;
    CTlsContext& operator=(const CTlsContext&) = delete;

    /// A transport whose handshake succeeds only when the other side's certificate is signed by the authority and
    /// carries the address.
    ///
    /// @return null when there is no memory
    std::unique_ptr<CTransport> makeTransport(int nSocket, std::uint32_t dwPeer, bool bAccepted) const;

private:
    explicit CTlsContext(ssl_ctx_st* pContext) : m_pContext(pContext) {}
    ssl_ctx_st* m_pContext;
};

} // namespace Messaging
