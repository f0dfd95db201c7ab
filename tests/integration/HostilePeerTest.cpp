// A server whose peer does everything it should not, while it shares a call with another one that behaves.

#include "RawPeer.h"
#include "ShareServer.h"

#include <algorithm>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint16_t cPort = 27350;
const std::string cShared = "sip:shared";
const std::string cPing("18;NETREQ_CLIENT_PING\0", 22);
const std::string cAnswer("20;NETRSP_CLIENT_STATUS;1;0\0", 28);
/// Within this an update arrives at the peer that behaves, whatever the other one does.
constexpr seconds cSoon{10};
/// Whether a process has the memory that it asks for, and not a sanitizer's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool cMeasuresMemory = false;
#else
constexpr bool cMeasuresMemory = true;
#endif
/// What the test's own updates may add to the logs of a burst.
constexpr std::uintmax_t cOwnLogBytes = 96UL * 1024;

std::string element(const std::string& sText)
{
    return std::to_string(sText.size()) + ';' + sText;
}

std::string list(const std::vector<std::string>& vecElements)
{
    std::string sList;
    for (const std::string& sElement : vecElements)
        sList += (sList.empty() ? "" : ";") + element(sElement);
    return sList;
}

std::string message(const std::string& sRegID, const std::string& sReason, const std::string& sPayload)
{
    return list({"5", sRegID, sReason, sPayload});
}

/// A request's body around a message.
std::string body(const std::string& sMessage)
{
    return list({"NETREQ_CLIENT_CCALLBACKMSG", sMessage}) + '\0';
}

std::string registration(const std::string& sRegID, const std::string& sCallID, bool bRegister)
{
    return body(message(sRegID, "2", list({sRegID, "ignored", sCallID, bRegister ? "T" : "F", list({"0", "0"})})));
}

std::string property(const std::string& sName, const std::string& sHex, const std::string& sStamp)
{
    return list({sName, sHex, list({sStamp, "0"})});
}

class HostilePeerTest : public testing::Test
{
protected:
    HostilePeerTest()
    {
        // Small limits, which a test can exceed.
        const std::string sSettings = "Orvane.CDS.LogMaxFiles = " + std::to_string(cLogFiles) +
                                      "\nOrvane.CDS.LogMaxFileKB = " + std::to_string(cLogFileKB) +
                                      "\nOrvane.CDS.Messaging.HeartbeatMs = 500"
                                      "\nOrvane.CDS.Messaging.SilenceLimitMs = 3000"
                                      "\nOrvane.CDS.Messaging.GreetingLimitMs = 1000"
                                      "\nOrvane.CDS.Messaging.ReceiveQueueBytes = 4194304\n";
        m_pVictim = std::make_unique<CShareServer>(CDS_SHARE_NODE, m_sNet + "1", cPort, sSettings);
        m_pFriend = std::make_unique<CShareServer>(CDS_SHARE_NODE, m_sNet + "2", cPort);
        m_pVictim->tell({"follow", victim(), cShared});
        m_pFriend->tell({"follow", victim(), cShared});
        for (int n = 0; n < 2; ++n)
            if (!m_pVictim->hears("arrived"))
                throw std::runtime_error("the call is not shared");
        serves();
        m_uLogBytes = m_pVictim->logBytes("");
        m_lResidentKB = m_pVictim->residentKB();
    }

    std::string victim() const { return m_sNet + "1"; }

    CRawPeer stranger() const { return CRawPeer::connect(m_sNet + "3", victim(), cPort); }
    CRawPeer greeted(std::uint32_t dwNumber = 1) const
    {
        CRawPeer peer = stranger();
        EXPECT_TRUE(peer.greet(dwNumber));
        return peer;
    }

    /// An update of either server's arrives at the other.
    void serves()
    {
        ASSERT_TRUE(m_pVictim->lives());
        for (CShareServer* const pUpdater : {m_pVictim.get(), m_pFriend.get()})
        {
            const std::string sValue = "value " + std::to_string(++m_nUpdates);
            const auto tpBegin = std::chrono::steady_clock::now();
            // An entry in a log of its own: of two values of a property the later stamp counts, of two entries of a
            // log with the same stamp the first, and servers' clocks differ by a little.
            pUpdater->tell({"append", cShared, "LOG OF " + pUpdater->address(), sValue});
            CShareServer& other = pUpdater == m_pVictim.get() ? *m_pFriend : *m_pVictim;
            const auto optChange = other.hears("change", cSoon);
            ASSERT_TRUE(optChange) << sValue << " does not arrive at " << other.address();
            std::string sHex;
            for (const char c : sValue)
                sHex += {"0123456789ABCDEF"[c >> 4], "0123456789ABCDEF"[c & 15]};
            ASSERT_THAT(*optChange, testing::HasSubstr(sHex));
            ASSERT_TRUE(pUpdater->hears("change"));
            ASSERT_EQ(pUpdater->hears("updated"), "0x00000000");
            m_longest = std::max(m_longest,
                                 std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - tpBegin));
        }
    }

    std::string channelLog()
    {
        (void)m_pVictim->logBytes(""); // so that it is whole
        return m_pVictim->log("CDSMessaging.log");
    }
    /// What the logs have grown by since the start.
    std::uintmax_t logged() { return m_pVictim->logBytes("") - m_uLogBytes; }
    /// 0 where it cannot be told.
    long grownKB() const { return cMeasuresMemory ? m_pVictim->residentKB() - m_lResidentKB : 0; }
    void report(const char* pszWhat, std::size_t uEvents)
    {
        std::printf("%zu %s: %ju bytes of log, memory grown by %ld KB, slowest update %lld ms\n", uEvents, pszWhat,
                    logged(), grownKB(), static_cast<long long>(m_longest.count()));
    }

    static constexpr int cLogFiles = 8;
    static constexpr int cLogFileKB = 1000;

    const std::string m_sNet = ownNet();
    std::unique_ptr<CShareServer> m_pVictim;
    std::unique_ptr<CShareServer> m_pFriend;
    std::uintmax_t m_uLogBytes = 0;
    long m_lResidentKB = 0;
    int m_nUpdates = 0;
    milliseconds m_longest{0};
};

TEST_F(HostilePeerTest, MalformedMessagesAreAnsweredOrRefused)
{
    const std::string sMany(2000, '9');
    const std::string sProperty = property("P", "4142", "5");
    std::vector<std::string> vecAnswered;
    for (const std::string& sPayload : std::vector<std::string>{
             "",
             "x",
             "99;",
             "2;C1;1;5",
             list({"sip:h", "2147483647", sProperty, "0"}),
             list({"sip:h", "-1", "0"}),
             list({"sip:h", sMany, sProperty, "0"}),
             list({"sip:h", "1", "5;abc", "0"}),
             list({"sip:h", "1", list({"P", "4Z", "x"}), "0"}),
             list({"sip:h", "2", sProperty, sProperty, "0"}),
             list({"sip:h", "0", "2147483647", "LOG", list({"1", "0"}), "1", sProperty}),
             list({"sip:h", "0", "1", "LOG", list({"1", "0"}), "2147483647", sProperty}),
             list(
                 {"sip:h", "0", "2", "LOG", list({"1", "0"}), "1", sProperty, "LOG", list({"1", "0"}), "1", sProperty}),
         })
        for (const char* const pszReason : {"1", "2", "3", "4", "-1", "x"})
            vecAnswered.push_back(body(message("id", pszReason, sPayload)));
    vecAnswered.push_back(body(""));
    vecAnswered.push_back(body("7"));
    vecAnswered.push_back(body(list({"1"})));
    vecAnswered.push_back(list({"NETREQ_CLIENT_CCALLBACKMSG"}) + '\0');
    std::string sNested = "x";
    for (int nDepth = 0; nDepth < 2000; ++nDepth)
        sNested = element(sNested);
    vecAnswered.push_back(body(message("id", "1", sNested)));

    CRawPeer peer = greeted();
    std::uint32_t dwExchange = 0;
    for (const std::string& sBody : vecAnswered)
        ASSERT_TRUE(peer.send(CRawPeer::request(++dwExchange, sBody)));
    for (std::uint32_t dw = 1; dw <= dwExchange; ++dw)
    {
        const auto optAnswer = peer.receive('\4');
        ASSERT_TRUE(optAnswer) << vecAnswered[dw - 1];
        EXPECT_EQ(*optAnswer, '\4' + CRawPeer::number(dw, 4) + cAnswer);
    }
    serves();

    // No list, or no name that peers may send: nothing comes back, not even later.
    std::vector<std::string> vecRefused{"",
                                        "no list",
                                        std::string("1;a;;b\0", 7),
                                        "26;NETREQ_CLIENT_CCALLBACKMSG",
                                        std::string("18;NETREQ_CLIENT_PINX\0", 22),
                                        std::string(100, '\0'),
                                        std::string("999999999999999999999;a\0", 24),
                                        std::string("-5;abc\0", 7)};
    for (const std::string& sBody : vecRefused)
        ASSERT_TRUE(peer.send(CRawPeer::request(++dwExchange, sBody)));
    ASSERT_TRUE(peer.send(CRawPeer::request(++dwExchange, cPing)));
    const auto optLast = peer.receive('\4');
    ASSERT_TRUE(optLast);
    EXPECT_EQ(*optLast, '\4' + CRawPeer::number(dwExchange, 4) + cAnswer);
    serves();
    report("malformed messages", dwExchange);
    EXPECT_LE(logged(), dwExchange * 8192UL + cOwnLogBytes);
    EXPECT_LE(grownKB(), 16 * 1024);
}

TEST_F(HostilePeerTest, BogusBytesLogInProportion)
{
    // Each slice of 128 bytes has a line.
    constexpr std::size_t cBytes = 256UL * 1024;
    constexpr std::size_t cTimes = 8;
    CRawPeer peer = greeted();
    for (std::uint32_t dw = 1; dw <= cTimes; ++dw)
        ASSERT_TRUE(peer.send(CRawPeer::request(dw, std::string(cBytes, 'x'))));
    serves();
    ASSERT_TRUE(peer.send(CRawPeer::request(cTimes + 1, cPing)));
    ASSERT_TRUE(peer.receive('\4')); // the others have been looked at
    report("requests of 256 KB that are no list", cTimes);
    EXPECT_GE(logged(), cTimes * cBytes / 128);
    EXPECT_LE(logged(), cTimes * cBytes + cOwnLogBytes);
}

TEST_F(HostilePeerTest, DataThatNobodyAskedForChangesNothing)
{
    CRawPeer peer = greeted();
    const auto optBefore = m_pVictim->asks({"record", cShared}, "record");
    const std::string sRecord = list({cShared, "1", property("FORGED", "41", "1"), "0"});
    std::uint32_t dw = 0;
    for (const char* const pszID : {"", "id", "writer"})
        ASSERT_TRUE(peer.send(CRawPeer::request(++dw, body(message(pszID, "1", sRecord)))));
    for (const char* const pszID : {"", "never registered"})
        ASSERT_TRUE(peer.send(CRawPeer::request(++dw, registration(pszID, cShared, false))));
    while (dw-- != 0)
        ASSERT_TRUE(peer.receive('\4'));
    EXPECT_EQ(m_pVictim->asks({"record", cShared}, "record"), optBefore);
    serves();
}

TEST_F(HostilePeerTest, ResponsesThatAreWrongLateOrDoubledAreHarmless)
{
    CRawPeer peer = greeted();
    ASSERT_TRUE(peer.send(CRawPeer::request(1, registration("hostile", cShared, true))));
    constexpr int cRounds = 20;
    std::string sLate;
    for (int n = 0; n < cRounds; ++n)
    {
        serves();
        const auto optRequest = peer.receive('\3'); // the shared call's data
        ASSERT_TRUE(optRequest);
        const std::string sNumber = optRequest->substr(1, 4);
        const std::string sGood = CRawPeer::frame('\4', sNumber + cAnswer);
        const std::string sWrong = CRawPeer::frame('\4', CRawPeer::number(0xFFFFFFF0U, 4) + cAnswer) +
                                   CRawPeer::frame('\5', CRawPeer::number(0, 4));
        switch (n % 5)
        {
        case 0: ASSERT_TRUE(peer.send(sGood + sGood + sWrong)); break;
        case 1: ASSERT_TRUE(peer.send(sWrong + CRawPeer::frame('\5', sNumber) + sGood)); break;
        case 2: ASSERT_TRUE(peer.send(CRawPeer::frame('\4', sNumber + "bogus") + sGood)); break;
        case 3: ASSERT_TRUE(peer.send(CRawPeer::frame('\4', sNumber))); break;
        default: sLate += sGood; break;
        }
    }
    ASSERT_TRUE(peer.send(sLate + sLate));
    serves();
    report("rounds of wrong responses", cRounds);
    EXPECT_LE(logged(), cRounds * 32'768UL + cOwnLogBytes);
}

TEST_F(HostilePeerTest, HalfAFrameAndSilenceEndTheConnectionAlone)
{
    CRawPeer half = greeted();
    ASSERT_TRUE(half.send(CRawPeer::request(1, std::string(500, 'x')).substr(0, 200)));
    serves();
    EXPECT_TRUE(half.isEnded()) << "a silent peer is kept";
    CRawPeer ungreeted = stranger();
    ASSERT_TRUE(ungreeted.send(CRawPeer::hello().substr(0, 20)));
    EXPECT_TRUE(ungreeted.isEnded()) << "half a greeting is waited for";
    serves();
}

TEST_F(HostilePeerTest, FramesThatAreNoneEndTheirConnectionAlone)
{
    std::uint32_t dwNumber = 0;
    const std::string sBeyond = CRawPeer::number(300UL << 20, 4) + '\3';
    for (const std::string& sBytes :
         {sBeyond, CRawPeer::number(0, 4), CRawPeer::number(0xFFFFFFFFU, 4) + std::string(100'000, 'x'),
          CRawPeer::frame('\x63', "unknown"), CRawPeer::frame('\3', "no"), CRawPeer::frame('\6', "short"),
          CRawPeer::frame('\7', "short"), CRawPeer::hello(9), std::string(100'000, '\xFF')})
    {
        CRawPeer peer = greeted(++dwNumber);
        (void)peer.send(sBytes); // may be ended before all was sent
        EXPECT_TRUE(peer.isEnded());
    }
    serves();
    EXPECT_THAT(channelLog(), testing::Not(testing::HasSubstr("silent"))) << "it was not the bytes that ended it";
    EXPECT_LE(grownKB(), 16 * 1024);
}

TEST_F(HostilePeerTest, GreetingsThatAreNoneAreRefused)
{
    std::string sVersion0 = CRawPeer::hello();
    sVersion0[10] = 0;
    std::string sService = CRawPeer::hello();
    sService[15] ^= 1;
    std::string sMagic = CRawPeer::hello();
    sMagic[5] = 'X';
    for (const std::string& sBytes :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(1000, '\0'), std::string(1000, '\xFF'), sVersion0,
          sService, sMagic, CRawPeer::frame('\1', ""), CRawPeer::frame('\2', CRawPeer::hello().substr(5)),
          CRawPeer::request(1, "early"), CRawPeer::number(65, 4) + std::string(65, '\1')})
    {
        CRawPeer peer = stranger();
        (void)peer.send(sBytes); // may be ended before all was sent
        EXPECT_TRUE(peer.isEnded());
    }
    serves();
    EXPECT_THAT(channelLog(), testing::Not(testing::HasSubstr("in time"))) << "it was not the bytes that ended it";
}

TEST_F(HostilePeerTest, NobodyTakesAnothersPlaceByWhatHeSays)
{
    // The friend's instance is known to whoever connects to it.
    CRawPeer toFriend = CRawPeer::connect(m_sNet + "3", m_sNet + "2", cPort);
    ASSERT_TRUE(toFriend.send(CRawPeer::hello()));
    const auto optWelcome = toFriend.receive('\2');
    ASSERT_TRUE(optWelcome);
    std::string sHello = CRawPeer::hello(0xFFFFFFFFU);
    sHello.replace(19, 16, optWelcome->substr(15, 16));
    CRawPeer peer = stranger();
    ASSERT_TRUE(peer.send(sHello));
    ASSERT_TRUE(peer.receive('\2')); // it is the peer of its own address
    serves();
    EXPECT_THAT(m_pVictim->log("CDSMessaging.log"), testing::Not(testing::HasSubstr("peer " + m_sNet + "2 disc")));

    CRawPeer self = CRawPeer::connect(victim(), victim(), cPort);
    (void)self.send(CRawPeer::hello()); // may be ended at once
    EXPECT_TRUE(self.isEnded()) << "the server's own address is taken for a peer";

    // A finished call's record is from whom the connection proves, whatever address the message names.
    ASSERT_TRUE(peer.send(CRawPeer::request(1, body(message("id", "3", list({"sip:f", "0", "0"}))))));
    EXPECT_TRUE(m_pVictim->hears("finished"));
    serves();
}

TEST_F(HostilePeerTest, AFloodOfRequestsLeavesRoomForOthers)
{
    constexpr std::uint32_t cRequests = 30'000;
    CRawPeer peer = greeted();
    std::mutex mtx;
    std::condition_variable cv;
    std::uint32_t dwAnswers = 0; // guarded by mtx
    std::thread reader([&] {     // what is not read is another matter
        while (const auto optFrame = peer.receive('\4'))
        {
            const std::lock_guard lock(mtx);
            if (++dwAnswers % 1000 == 0)
                cv.notify_all();
            if (dwAnswers == cRequests)
                break;
        }
    });
    std::thread flooder([&] {
        for (std::uint32_t dw = 1; dw <= cRequests; dw += 100)
        {
            std::string sMany;
            for (std::uint32_t dwOne = dw; dwOne < dw + 100; ++dwOne)
                sMany += CRawPeer::request(dwOne, cPing);
            if (!peer.send(sMany))
                break;
        }
    });
    long lMostKB = 0;
    // Again and again while it lasts.
    for (std::uint32_t dwNext = 0; dwNext <= cRequests && !HasFailure(); dwNext += 1000)
    {
        std::unique_lock lock(mtx);
        EXPECT_TRUE(cv.wait_for(lock, CShareServer::cPatience, [&] { return dwAnswers >= dwNext; }));
        lock.unlock();
        serves();
        lMostKB = std::max(lMostKB, grownKB());
    }
    flooder.join();
    reader.join();
    report("requests", cRequests);
    EXPECT_LE(lMostKB, 64 * 1024);
    EXPECT_LE(m_pVictim->logBytes("OvnCDS"), (cLogFiles + 1) * cLogFileKB * 1024UL);
}

TEST_F(HostilePeerTest, AFloodOfConnectionsLeavesRoomForOthers)
{
    constexpr std::size_t cConnections = 1500;
    {
        std::vector<CRawPeer> vecHeld;
        for (std::size_t u = 0; u < cConnections; ++u)
        {
            CRawPeer peer = stranger();
            if (u % 3 == 0)
                (void)peer.send("garbage garbage garbage");
            else if (u % 3 == 1 && vecHeld.size() < 200)
                vecHeld.push_back(std::move(peer)); // says nothing
            if (u % 300 == 0)
                serves();
        }
        serves();
    }
    report("connections of strangers", cConnections);
    EXPECT_LE(logged(), 64UL * 1024); // with a line for each it would be twice as much
    EXPECT_LE(grownKB(), 16 * 1024);
}

TEST_F(HostilePeerTest, AFloodOfReconnectionsLeavesRoomForOthers)
{
    constexpr std::uint32_t cTimes = 300;
    for (std::uint32_t dw = 1; dw <= cTimes; ++dw)
    {
        (void)greeted(dw);
        if (dw % 100 == 0)
            serves();
    }
    serves();
    report("reconnections", cTimes);
    EXPECT_LE(logged(), cTimes * 2048UL + cOwnLogBytes);
    EXPECT_LE(grownKB(), 16 * 1024);
}

} // namespace
