#include "ChannelSettings.h"

#include "KRException.h"
#include "KRRegLib.h"

#include <arpa/inet.h>

namespace Messaging {
namespace {
constexpr char cKey[] = "Orvane\\CDS\\Messaging";
/// A record is sent whole, and its text may be about a million bytes long.
constexpr unsigned long cLeastMessage = 1'100'000;

/// Reads values and remembers the first that cannot be used.
class CReader
{
public:
    CReader(const KRRegLib::CRegKey& key, std::string* psError) : m_key(key), m_sError(*psError) {}

    template <typename Number>
    void number(const char* pszName, Number* pNumber, unsigned long ulLeast, unsigned long ulMost)
    {
        unsigned long ulValue = 0;
        std::string sText;
        if (m_key.queryValue(pszName, &ulValue) < 0)
        {
            if (m_key.queryValue(pszName, &sText) >= 0)
                complain(pszName, "is a text, but must be a number from " + range(ulLeast, ulMost));
            return;
        }
        if (ulValue < ulLeast || ulValue > ulMost)
            complain(pszName, "is " + std::to_string(ulValue) + ", but must be from " + range(ulLeast, ulMost));
        else
            *pNumber = static_cast<Number>(ulValue);
    }

    void duration(const char* pszName, std::chrono::milliseconds* pDuration, unsigned long ulLeast,
                  unsigned long ulMost)
    {
        auto ulMs = static_cast<unsigned long>(pDuration->count());
        number(pszName, &ulMs, ulLeast, ulMost);
        *pDuration = std::chrono::milliseconds(ulMs);
    }

    void text(const char* pszName, std::string* psText)
    {
        unsigned long ulValue = 0;
        if (m_key.queryValue(pszName, psText) < 0 && m_key.queryValue(pszName, &ulValue) >= 0)
            complain(pszName, "is a number, but must be a text");
    }

    void complain(const char* pszName, const std::string& sWhat)
    {
        if (m_sError.empty())
            m_sError = std::string(cKey) + ", " + pszName + ": " + sWhat;
    }

private:
    static std::string range(unsigned long ulLeast, unsigned long ulMost)
    {
        return std::to_string(ulLeast) + " to " + std::to_string(ulMost);
    }

    const KRRegLib::CRegKey& m_key;
    std::string& m_sError;
};
} // namespace

bool CChannelSettings::read(std::string* psError)
{
    psError->clear();
    try
    {
        KRRegLib::CRegLib store;
        KRRegLib::CRegKey key;
        if (store.rootKey().createOrOpenKey(cKey, &key) < 0)
        {
            *psError = std::string(cKey) + " is not a table";
            return false;
        }
        CReader reader(key, psError);
        std::string sAddress = addressText(dwAddress);
        reader.text("LocalAddress", &sAddress);
        dwAddress = addressOf(sAddress);
        if (dwAddress == 0)
            reader.complain("LocalAddress", "\"" + sAddress + "\" is no IPv4 address");
        reader.number("Port", &wPort, 1, 65535);
        reader.text("CertificateFile", &sCertificateFile);
        reader.text("PrivateKeyFile", &sPrivateKeyFile);
        reader.text("AuthorityFile", &sAuthorityFile);
        reader.number("AllowUnencrypted", &bAllowUnencrypted, 0, 1);
        reader.duration("HeartbeatMs", &heartbeat, 20, 60'000);
        reader.duration("SilenceLimitMs", &silenceLimit, 50, 300'000);
        reader.duration("ConnectLimitMs", &connectLimit, 50, 60'000);
        reader.duration("GreetingLimitMs", &greetingLimit, 50, 60'000);
        reader.duration("ReconnectFirstMs", &reconnectFirst, 1, 60'000);
        reader.duration("ReconnectMostMs", &reconnectMost, 1, 600'000);
        reader.number("MessageBytes", &dwMessageBytes, cLeastMessage, 256UL << 20);
        reader.number("SendQueueBytes", &dwSendQueueBytes, 4096, 1024UL << 20);
        reader.number("ReceiveQueueBytes", &dwReceiveQueueBytes, 4096, 1024UL << 20);
        reader.number("Peers", &dwPeers, 1, 65'536);

        if (sCertificateFile.empty() != sPrivateKeyFile.empty() || sCertificateFile.empty() != sAuthorityFile.empty())
            reader.complain("CertificateFile", "goes with PrivateKeyFile and AuthorityFile: give all three or none");
        if (silenceLimit < 2 * heartbeat)
            reader.complain("SilenceLimitMs", "must be at least twice HeartbeatMs");
        if (reconnectMost < reconnectFirst)
            reader.complain("ReconnectMostMs", "must not be less than ReconnectFirstMs");
        if (dwSendQueueBytes < dwMessageBytes)
            reader.complain("SendQueueBytes", "must not be less than MessageBytes");
        if (!isLoopback(dwAddress) && !encrypted() && !bAllowUnencrypted)
            reader.complain("LocalAddress", sAddress + " is open to the network: configure certificates, or set "
                                                       "AllowUnencrypted to 1 to do without encryption and proof "
                                                       "of who the peers are");
    }
    catch (const KRException&)
    {
        *psError = "the configuration cannot be read";
    }
    return psError->empty();
}

std::string addressText(std::uint32_t dwAddress)
{
    const in_addr address{htonl(dwAddress)};
    char szText[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &address, szText, sizeof szText); // the buffer is large enough
    return szText;
}

std::uint32_t addressOf(const std::string& sText)
{
    in_addr address{};
    if (sText.find('\0') != std::string::npos || inet_pton(AF_INET, sText.c_str(), &address) != 1)
        return 0;
    return ntohl(address.s_addr);
}

} // namespace Messaging
