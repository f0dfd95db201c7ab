#pragma once

#include "Transport.h"

#include <array>
#include <cstdint>

struct ssl_ctx_st;
struct ssl_st;

namespace Messaging {

/// Bytes encrypted, to and from a peer whose certificate carries its address.
class CTlsTransport final : public CTransport
{
public:
    /// @return null when there is no memory
    static std::unique_ptr<CTransport> make(ssl_ctx_st* pContext, int nSocket, std::uint32_t dwPeer, bool bAccepted);
    ~CTlsTransport() override;
    CTlsTransport(const CTlsTransport&) = delete;
    CTlsTransport& operator=(const CTlsTransport&) = delete;

    EOutcome handshake() override;
    EOutcome read(std::span<char> space, std::size_t* puBytes) override;
    EOutcome write(std::span<const char> bytes, std::size_t* puBytes) override;
    bool sharesState() const override { return true; }
    const char* error() const override { return m_szError.data(); }

private:
    explicit CTlsTransport(ssl_st* pSsl) : m_pSsl(pSsl) {}
    EOutcome outcomeOf(int nResult);

    ssl_st* m_pSsl;
    std::array<char, 160> m_szError{};
};

} // namespace Messaging
