#include "TlsContext.h"

#include "TlsTransport.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

namespace Messaging {
namespace {
std::string lastError()
{
    const unsigned long ulError = ERR_get_error();
    ERR_clear_error();
    const char* pszReason = ulError != 0 ? ERR_reason_error_string(ulError) : nullptr;
    return pszReason ? pszReason : "cannot be read";
}

/// Keys with a pass phrase are refused: nobody is there to be asked.
int noPassPhrase(char* /*pszBuffer*/, int /*nSize*/, int /*nWriting*/, void* /*pArg*/)
{
    return 0;
}
} // namespace

std::unique_ptr<CTlsContext> CTlsContext::load(const CChannelSettings& settings, std::string* psError)
{
    ERR_clear_error();
    std::unique_ptr<CTlsContext> pContext(new CTlsContext(SSL_CTX_new(TLS_method())));
    SSL_CTX* const pSsl = pContext->m_pContext;
    if (!pSsl || SSL_CTX_set_min_proto_version(pSsl, TLS1_3_VERSION) != 1)
    {
        *psError = "TLS 1.3: " + lastError();
        return nullptr;
    }
    SSL_CTX_set_default_passwd_cb(pSsl, noPassPhrase);
    if (SSL_CTX_use_certificate_chain_file(pSsl, settings.sCertificateFile.c_str()) != 1)
    {
        *psError = "CertificateFile " + settings.sCertificateFile + ": " + lastError();
        return nullptr;
    }
    if (SSL_CTX_use_PrivateKey_file(pSsl, settings.sPrivateKeyFile.c_str(), SSL_FILETYPE_PEM) != 1 ||
        SSL_CTX_check_private_key(pSsl) != 1)
    {
        *psError = "PrivateKeyFile " + settings.sPrivateKeyFile + ": " + lastError();
        return nullptr;
    }
    if (SSL_CTX_load_verify_locations(pSsl, settings.sAuthorityFile.c_str(), nullptr) != 1)
    {
        *psError = "AuthorityFile " + settings.sAuthorityFile + ": " + lastError();
        return nullptr;
    }
    const std::uint32_t dwNetwork = htonl(settings.dwAddress);
    if (X509_check_ip(SSL_CTX_get0_certificate(pSsl), reinterpret_cast<const unsigned char*>(&dwNetwork),
                      sizeof dwNetwork, 0) != 1)
    {
        *psError = "CertificateFile " + settings.sCertificateFile + ": carries no IP entry " +
                   addressText(settings.dwAddress) + ", so no peer would accept it";
        return nullptr;
    }
    SSL_CTX_set_verify(pSsl, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    // A session is never taken up again: every connection proves who its ends are.
    SSL_CTX_set_session_cache_mode(pSsl, SSL_SESS_CACHE_OFF);
    (void)SSL_CTX_set_num_tickets(pSsl, 0);
    (void)SSL_CTX_set_mode(pSsl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                     SSL_MODE_RELEASE_BUFFERS);
    return pContext;
}

CTlsContext::~CTlsContext()
{
    SSL_CTX_free(m_pContext);
}

std::unique_ptr<CTransport> CTlsContext::makeTransport(int nSocket, std::uint32_t dwPeer, bool bAccepted) const
{
    return CTlsTransport::make(m_pContext, nSocket, dwPeer, bAccepted);
}

} // namespace Messaging
