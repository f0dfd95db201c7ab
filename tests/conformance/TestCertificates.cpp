#include "TestCertificates.h"

#include <cstdio>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace {
using CKey = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CCertificate = std::unique_ptr<X509, decltype(&X509_free)>;

void require(bool bDone)
{
    if (!bDone)
        throw std::runtime_error("cannot make a certificate");
}

void addExtension(X509* pCertificate, X509* pIssuer, int nId, const char* pszValue)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, pIssuer, pCertificate, nullptr, nullptr, 0);
    X509_EXTENSION* const pExtension = X509V3_EXT_conf_nid(nullptr, &context, nId, pszValue);
    require(pExtension);
    require(X509_add_ext(pCertificate, pExtension, -1) == 1);
    X509_EXTENSION_free(pExtension);
}

CCertificate newCertificate(const std::string& sName, EVP_PKEY* pKey, X509* pIssuer, long lSecondsLeft)
{
    static long s_lSerial = 0;
    CCertificate pCertificate(X509_new(), X509_free);
    X509* const p = pCertificate.get();
    X509_NAME* const pName = X509_get_subject_name(p);
    require(X509_set_version(p, 2) == 1 && ASN1_INTEGER_set(X509_get_serialNumber(p), ++s_lSerial) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(p), -3600) && X509_gmtime_adj(X509_getm_notAfter(p), lSecondsLeft) &&
            X509_set_pubkey(p, pKey) == 1 &&
            X509_NAME_add_entry_by_txt(pName, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(sName.c_str()),
                                       -1, -1, 0) == 1 &&
            X509_set_issuer_name(p, pIssuer ? X509_get_subject_name(pIssuer) : pName) == 1);
    return pCertificate;
}

template <typename Write> void writeFile(const std::string& sPath, Write write)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pFile(std::fopen(sPath.c_str(), "w"), std::fclose);
    require(pFile != nullptr);
    require(write(pFile.get()) == 1);
}
} // namespace

struct CTestCertificates::CAuthority
{
    CKey pKey{EVP_EC_gen("P-256"), EVP_PKEY_free};
    CCertificate pCertificate{newCertificate("authority", pKey.get(), nullptr, 3600)};

    CAuthority()
    {
        addExtension(pCertificate.get(), pCertificate.get(), NID_basic_constraints, "critical,CA:TRUE");
        require(X509_sign(pCertificate.get(), pKey.get(), EVP_sha256()) != 0);
    }
};

CTestCertificates::CTestCertificates(CTemporaryDirectory& directory)
    : m_directory(directory),
      m_pAuthority(std::make_unique<CAuthority>()),
      m_pOtherAuthority(std::make_unique<CAuthority>())
{
    writeFile(authorityFile(), [this](FILE* pFile) { return PEM_write_X509(pFile, m_pAuthority->pCertificate.get()); });
}

CTestCertificates::~CTestCertificates() = default;

void CTestCertificates::make(const std::string& sName, const std::string& sAddress, const CFlaw& flaw)
{
    const CAuthority& authority = flaw.bOtherAuthority ? *m_pOtherAuthority : *m_pAuthority;
    const CKey pKey(EVP_EC_gen("P-256"), EVP_PKEY_free);
    const CCertificate pCertificate =
        newCertificate(sName, pKey.get(), authority.pCertificate.get(), flaw.bExpired ? -60 : 3600);
    addExtension(pCertificate.get(), authority.pCertificate.get(), NID_subject_alt_name, ("IP:" + sAddress).c_str());
    require(X509_sign(pCertificate.get(), authority.pKey.get(), EVP_sha256()) != 0);
    writeFile(certificateFile(sName), [&](FILE* pFile) { return PEM_write_X509(pFile, pCertificate.get()); });
    writeFile(keyFile(sName), [&](FILE* pFile) {
        return PEM_write_PrivateKey(pFile, pKey.get(), nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string CTestCertificates::settingsFor(const std::string& sAddress)
{
    make(sAddress, sAddress);
    return settings(sAddress);
}

std::string CTestCertificates::settings(const std::string& sName) const
{
    return "CertificateFile = \"" + certificateFile(sName) + "\"\nPrivateKeyFile = \"" + keyFile(sName) +
           "\"\nAuthorityFile = \"" + authorityFile() + "\"\n";
}
