// Bytes encrypted. The library reads and writes the socket through a BIO of ours: its own writes in a way that raises
// SIGPIPE when the peer is gone.
#include "TlsTransport.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

namespace Messaging {
namespace {
int socketOf(BIO* pBio)
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(pBio)));
}

bool isForNow(int nError)
{
    return nError == EAGAIN || nError == EWOULDBLOCK || nError == EINTR;
}

int bioWrite(BIO* pBio, const char* pBytes, int nBytes)
{
    BIO_clear_retry_flags(pBio);
    const ssize_t nSent = send(socketOf(pBio), pBytes, static_cast<std::size_t>(nBytes), MSG_NOSIGNAL);
    if (nSent < 0 && isForNow(errno))
        BIO_set_retry_write(pBio);
    return static_cast<int>(nSent);
}

int bioRead(BIO* pBio, char* pSpace, int nSpace)
{
    BIO_clear_retry_flags(pBio);
    const ssize_t nReceived = recv(socketOf(pBio), pSpace, static_cast<std::size_t>(nSpace), 0);
    if (nReceived < 0 && isForNow(errno))
        BIO_set_retry_read(pBio);
    return static_cast<int>(nReceived);
}

long bioControl(BIO* /*pBio*/, int nCommand, long /*lArg*/, void* /*pArg*/)
{
    return nCommand == BIO_CTRL_FLUSH ? 1 : 0;
}

int bioCreate(BIO* pBio)
{
    BIO_set_init(pBio, 1);
    return 1;
}

/// Never freed: connections may live until the process ends.
const BIO_METHOD* socketMethod()
{
    static BIO_METHOD* const s_pMethod = [] {
        BIO_METHOD* const pMethod = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket");
        if (pMethod)
        {
            (void)BIO_meth_set_write(pMethod, bioWrite); // setters of a method that is there do not fail
            (void)BIO_meth_set_read(pMethod, bioRead);
            (void)BIO_meth_set_ctrl(pMethod, bioControl);
            (void)BIO_meth_set_create(pMethod, bioCreate);
        }
        return pMethod;
    }();
    return s_pMethod;
}
} // namespace

std::unique_ptr<CTransport> CTlsTransport::make(ssl_ctx_st* pContext, int nSocket, std::uint32_t dwPeer, bool bAccepted)
{
    SSL* const pSsl = SSL_new(pContext);
    if (!pSsl)
        return nullptr;
    std::unique_ptr<CTransport> pTransport(new CTlsTransport(pSsl));
    BIO* const pBio = socketMethod() ? BIO_new(socketMethod()) : nullptr;
    if (!pBio)
        return nullptr;
    BIO_set_data(pBio, reinterpret_cast<void*>(static_cast<std::intptr_t>(nSocket)));
    SSL_set_bio(pSsl, pBio, pBio);
    const std::uint32_t dwNetwork = htonl(dwPeer);
    if (X509_VERIFY_PARAM_set1_ip(SSL_get0_param(pSsl), reinterpret_cast<const unsigned char*>(&dwNetwork),
                                  sizeof dwNetwork) != 1)
        return nullptr;
    if (bAccepted)
        SSL_set_accept_state(pSsl);
    else
        SSL_set_connect_state(pSsl);
    return pTransport;
}

CTlsTransport::~CTlsTransport()
{
    SSL_free(m_pSsl);
}

CTransport::EOutcome CTlsTransport::handshake()
{
    ERR_clear_error();
    return outcomeOf(SSL_do_handshake(m_pSsl));
}

CTransport::EOutcome CTlsTransport::read(std::span<char> space, std::size_t* puBytes)
{
    ERR_clear_error();
    return outcomeOf(SSL_read_ex(m_pSsl, space.data(), space.size(), puBytes));
}

CTransport::EOutcome CTlsTransport::write(std::span<const char> bytes, std::size_t* puBytes)
{
    ERR_clear_error();
    return outcomeOf(SSL_write_ex(m_pSsl, bytes.data(), bytes.size(), puBytes));
}

CTransport::EOutcome CTlsTransport::outcomeOf(int nResult)
{
    if (nResult > 0)
        return done;
    switch (SSL_get_error(m_pSsl, nResult))
    {
    case SSL_ERROR_WANT_READ: return wantRead;
    case SSL_ERROR_WANT_WRITE: return wantWrite;
    case SSL_ERROR_ZERO_RETURN: return ended;
    default: break;
    }
    const unsigned long ulError = ERR_get_error();
    const long lVerify = SSL_get_verify_result(m_pSsl);
    const char* const pszReason = ulError != 0 ? ERR_reason_error_string(ulError) : "the connection broke";
    (void)std::snprintf(m_szError.data(), m_szError.size(), "TLS: %s%s%s", pszReason ? pszReason : "unknown",
                        lVerify == X509_V_OK ? "" : ", ", // a cut text is meant
                        lVerify == X509_V_OK ? "" : X509_verify_cert_error_string(lVerify));
    ERR_clear_error();
    return failed;
}

} // namespace Messaging
