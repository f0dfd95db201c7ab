#include "capture/CaptureIntake.h"
#include "PacketBuilder.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string s_sOptions = "OPTIONS sip:b@h SIP/2.0\r\n\r\n";

class CaptureIntakeTest : public testing::Test
{
protected:
    /// Captures a datagram on its way to a port.
    void datagram(std::uint16_t wPort, CBytes payload)
    {
        constexpr int cEthernet = 1;
        const CPacketBytes bytes = ethernet(ipv4(udp(5060, wPort, payload)));
        m_intake.add({1'795'219'810, 0, cEthernet, bytes});
    }
    void sip(const std::string& sText) { datagram(5060, bytesOf(sText)); }
    /// The same as reported by a capturing agent.
    void reported(const std::string& sText)
    {
        CPacketBytes seconds;
        appendU32(seconds, 1'795'219'810);
        datagram(9060, hep({chunk(1, CPacketBytes{2}), chunk(2, CPacketBytes{17}), chunk(3, CPacketBytes{10, 0, 0, 1}),
                            chunk(4, CPacketBytes{10, 0, 0, 2}), chunk(7, CPacketBytes{0x13, 0xC4}),
                            chunk(8, CPacketBytes{0x13, 0xC4}), chunk(9, seconds), chunk(10, CPacketBytes{0, 0, 0, 0}),
                            chunk(11, CPacketBytes{1}), chunk(15, bytesOf(sText))}));
    }
    std::vector<std::string> messages()
    {
        m_intake.flush();
        return m_vecMessages;
    }

    CIntakeCounts m_counts;

private:
    std::vector<std::string> m_vecMessages;
    CCaptureIntake m_intake{m_counts,
                            [this](const CCapturedMessage& message) { m_vecMessages.push_back(message.sBytes); }};
};

TEST_F(CaptureIntakeTest, TakesAMessageBehindEmptyLines)
{
    sip("\r\n\r\n" + s_sOptions);
    reported("\r\n\r\n" + s_sOptions);
    EXPECT_THAT(messages(), ElementsAre(s_sOptions, s_sOptions));
}

TEST_F(CaptureIntakeTest, TellsKeepAlivesFromWhatIsNotSip)
{
    sip("\r\n\r\n");
    reported("\r\n\r\n");
    sip("hello\r\n");
    reported("hello\r\n");
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(m_counts.count("keep-alive"), 2U);
    EXPECT_EQ(m_counts.count("not SIP"), 1U);
    EXPECT_EQ(m_counts.count("HEP payload is not SIP"), 1U);
}

} // namespace
