// The support library's channels with certificates: who gets in and who does not.
#include "CDSSupport.h"
#include "ChannelServer.h"
#include "RawPeer.h"
#include "SupportChannel.h"
#include "SystemLogSpy.h"
#include "TemporaryDirectory.h"
#include "TestCertificates.h"

#include <csignal>

#include <gmock/gmock.h>
#include <openssl/ssl.h>
#include <sys/socket.h>

namespace {
/// A peer made of the encryption library alone.
class CTlsPeer
{
public:
    CTlsPeer(CRawPeer peer, const CTestCertificates& certificates, const std::string& sName)
        : m_peer(std::move(peer)), m_pContext(SSL_CTX_new(TLS_client_method()), SSL_CTX_free)
    {
        (void)std::signal(SIGPIPE, SIG_IGN); // this peer's writes raise it, not the channel's
        if (!sName.empty())
        {
            EXPECT_EQ(SSL_CTX_use_certificate_file(m_pContext.get(), certificates.certificateFile(sName).c_str(),
                                                   SSL_FILETYPE_PEM),
                      1);
            EXPECT_EQ(
                SSL_CTX_use_PrivateKey_file(m_pContext.get(), certificates.keyFile(sName).c_str(), SSL_FILETYPE_PEM),
                1);
        }
    }
    SSL_CTX* context() { return m_pContext.get(); }

    /// Greets and waits for the first byte of an answer.
    bool isWelcome()
    {
        const timeval patience{20, 0};
        EXPECT_EQ(setsockopt(m_peer.socket(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
        m_pSsl.reset(SSL_new(m_pContext.get()));
        SSL_set_fd(m_pSsl.get(), m_peer.socket());
        const std::string sHello = CRawPeer::hello();
        char c = 0;
        std::size_t uBytes = 0;
        return SSL_connect(m_pSsl.get()) == 1 &&
               SSL_write(m_pSsl.get(), sHello.data(), static_cast<int>(sHello.size())) > 0 &&
               SSL_read_ex(m_pSsl.get(), &c, 1, &uBytes) == 1;
    }

private:
    CRawPeer m_peer;
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_pContext;
    std::unique_ptr<SSL, decltype(&SSL_free)> m_pSsl{nullptr, SSL_free};
};
} // namespace

class SupportChannelTlsTest : public testing::Test
{
protected:
    SupportChannelTlsTest()
    {
        CSystemLogSpy::clear();
        CDSSupport::setLogDirectory(m_directory.path());
    }
    ~SupportChannelTlsTest() override { (void)CDSSupport::setConfigurationFile("", nullptr); }

    std::unique_ptr<CCMLibraryX> start(CMLIB_MODE eMode, int nServer, const std::string& sSettings)
    {
        m_channels.configure(nServer, sSettings);
        auto pChannel = CSupportChannels::make(eMode);
        m_lStarted = pChannel->initialize();
        return pChannel;
    }
    std::string settingsFor(int nServer) { return m_certificates.settingsFor(CSupportChannels::addressText(nServer)); }
    CTlsPeer peer(int nPeer, const std::string& sCertificate)
    {
        return {CRawPeer::connect(nPeer, 1, m_channels.port()), m_certificates, sCertificate};
    }
    static std::string lastEvent()
    {
        const auto vecMessages = CSystemLogSpy::messages();
        return vecMessages.empty() ? "" : vecMessages.back().second;
    }

    CTemporaryDirectory m_directory;
    CSupportChannels m_channels{m_directory};
    CTestCertificates m_certificates{m_directory};
    long m_lStarted = -1;
};

TEST_F(SupportChannelTlsTest, APeerWithItsOwnCertificateIsWelcome)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    ASSERT_GE(m_lStarted, 0);
    m_certificates.make("good", "127.0.0.2");
    EXPECT_TRUE(peer(2, "good").isWelcome());
}

TEST_F(SupportChannelTlsTest, APeerWhoseCertificateCarriesAnotherAddressIsRefused)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    m_certificates.make("stolen", "127.0.0.3");
    EXPECT_FALSE(peer(2, "stolen").isWelcome());
    EXPECT_TRUE(peer(3, "stolen").isWelcome()) << "where it belongs it is good";
    (void)pServer->uninitialize(); // what it reports has been reported now; always 0
    EXPECT_THAT(CSystemLogSpy::messages(),
                testing::Contains(testing::Field(&std::pair<int, std::string>::second,
                                                 testing::HasSubstr("127.0.0.2 refused: TLS"))));
}

TEST_F(SupportChannelTlsTest, APeerWithoutACertificateIsRefused)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    EXPECT_FALSE(peer(2, "").isWelcome());
}

TEST_F(SupportChannelTlsTest, APeerOfAnotherAuthorityIsRefused)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    CTestCertificates::CFlaw flaw;
    flaw.bOtherAuthority = true;
    m_certificates.make("foreign", "127.0.0.2", flaw);
    EXPECT_FALSE(peer(2, "foreign").isWelcome());
}

TEST_F(SupportChannelTlsTest, AnExpiredCertificateIsRefused)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    CTestCertificates::CFlaw flaw;
    flaw.bExpired = true;
    m_certificates.make("old", "127.0.0.2", flaw);
    EXPECT_FALSE(peer(2, "old").isWelcome());
}

TEST_F(SupportChannelTlsTest, AnOlderProtocolIsRefused)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    m_certificates.make("good", "127.0.0.2");
    CTlsPeer old = peer(2, "good");
    ASSERT_EQ(SSL_CTX_set_max_proto_version(old.context(), TLS1_2_VERSION), 1);
    EXPECT_FALSE(old.isWelcome());
}

TEST_F(SupportChannelTlsTest, APlainClientIsSentAway)
{
    const auto pServer = start(cmlib_mode_server, 1, settingsFor(1));
    CRawPeer plain = CRawPeer::connect(2, 1, m_channels.port());
    ASSERT_TRUE(plain.send(CRawPeer::hello()));
    EXPECT_TRUE(plain.isEnded());
}

TEST_F(SupportChannelTlsTest, AServerInTheClearAndAnEncryptedOneDoNotConnect)
{
    m_channels.setSettings("GreetingLimitMs = 300\n");
    const auto pEncrypted = start(cmlib_mode_server, 1, settingsFor(1));
    const auto pPlain = start(cmlib_mode_client, 2, "");
    ASSERT_GE(m_lStarted, 0);
    ASSERT_GE(pPlain->sendRequest(7, CSupportChannels::address(1), 0, "x", 1, 0, 30), 0);
    unsigned long ulPeer = 0;
    unsigned long ulRequestID = 0;
    char* pBuffer = nullptr;
    unsigned long ulSize = 0;
    EXPECT_LT(pPlain->receiveResponse(&ulPeer, &ulRequestID, &pBuffer, &ulSize), 0);
    EXPECT_EQ(ulRequestID, 7U);
    delete[] pBuffer;
}

TEST_F(SupportChannelTlsTest, FilesThatDoNotBelongTogetherAreNamed)
{
    using testing::HasSubstr;
    m_certificates.make("one", "127.0.0.1");
    m_certificates.make("other", "127.0.0.1");
    m_certificates.make("elsewhere", "127.0.0.9");
    const auto complaint = [this](const std::string& sSettings) {
        const auto pServer = start(cmlib_mode_server, 1, sSettings);
        EXPECT_LT(m_lStarted, 0);
        return lastEvent();
    };
    EXPECT_THAT(complaint(m_certificates.settings("elsewhere")), HasSubstr("carries no IP entry 127.0.0.1"));
    std::string sMixed = m_certificates.settings("one");
    sMixed.replace(sMixed.find("one.key"), 3, "other");
    EXPECT_THAT(complaint(sMixed), HasSubstr("PrivateKeyFile"));
    m_directory.write("one.crt", "this is no certificate");
    EXPECT_THAT(complaint(m_certificates.settings("one")), HasSubstr("CertificateFile"));
}
