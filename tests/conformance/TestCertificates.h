#pragma once

#include "TemporaryDirectory.h"

#include <memory>
#include <string>

/// Certificates made for one test: an authority and what it signs.
class CTestCertificates
{
public:
    /// What makes a certificate other than it should be.
    struct CFlaw
    {
        bool bExpired = false;
        bool bOtherAuthority = false;
    };

    explicit CTestCertificates(CTemporaryDirectory& directory);
    ~CTestCertificates();
    CTestCertificates(const CTestCertificates&) = delete;
    CTestCertificates& operator=(const CTestCertificates&) = delete;

    /// Makes "<name>.crt" and "<name>.key" with that address.
    void make(const std::string& sName, const std::string& sAddress, const CFlaw& flaw);
    void make(const std::string& sName, const std::string& sAddress) { make(sName, sAddress, CFlaw()); }

    /// Makes a server's certificate; the lines of configuration for it.
    std::string settingsFor(const std::string& sAddress);
    std::string settings(const std::string& sName) const;

    std::string certificateFile(const std::string& sName) const { return m_directory.file(sName + ".crt"); }
    std::string keyFile(const std::string& sName) const { return m_directory.file(sName + ".key"); }
    std::string authorityFile() const { return m_directory.file("authority.crt"); }

private:
    struct CAuthority;
    CTemporaryDirectory& m_directory;
    std::unique_ptr<CAuthority> m_pAuthority;
    std::unique_ptr<CAuthority> m_pOtherAuthority;
};
