// A connection between servers that comes up while memory runs out: it stands as a whole, or it is torn down and made
// anew.

#include "FailingAllocator.h"
#include "Fakes.h"
#include "Peer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <new>
#include <stdexcept>

#include <asio/write.hpp>

using namespace Messaging;

namespace {

using Mode = CFailingAllocator::Mode;
using asio::ip::tcp;

constexpr std::uint32_t cHere = 0x7F4D0001;
constexpr std::uint32_t cThere = 0x7F4D0002;
constexpr std::size_t cRequests = 3;

/// Waits for a greeting.
class CDoorman final : public CSession::IOwner
{
public:
    std::shared_ptr<CSession> m_pGreeted;

private:
    void onGreeted(const std::shared_ptr<CSession>& pSession) override { m_pGreeted = pSession; }
    void onEnded(const std::shared_ptr<CSession>&, const char* pszWhy) override { ADD_FAILURE() << pszWhy; }
    void onRequest(CSession&, const CFrame&) override {}
    void onAnswer(CSession&, const CFrame&) override {}
    void onPong(CSession&, const CPong&) override {}
};

/// One server's view of a peer, without a thread: the test is the I/O thread.
struct CStage
{
    CStage()
    {
        parts.settings.dwAddress = cHere;
        parts.settings.wPort = 1; // nobody listens there
        parts.pLog = CChannelLog::get();
        parts.requests.open();
        parts.changes.open();
        parts.ends.open();
    }
    ~CStage() { peer.drop("the test is over"); }

    /// A connection that the peer made and whose greeting has come.
    std::shared_ptr<CSession> greetedSession(std::uint32_t dwNumber)
    {
        tcp::acceptor acceptor(parts.io, {asio::ip::address_v4(cHere), 0});
        tcp::socket& socket = lstSockets.emplace_back(parts.io);
        socket.open(tcp::v4());
        socket.bind({asio::ip::address_v4(cThere), 0});
        socket.connect(acceptor.local_endpoint());
        std::string sHello;
        appendHello(&sHello, EFrame::hello, {cProtocolVersion, parts.ullService, {}, dwNumber});
        asio::write(socket, asio::buffer(sHello));
        CDoorman doorman;
        const auto pSession = std::make_shared<CSession>(parts, cThere, &doorman);
        pSession->accept(acceptor.accept());
        while (doorman.m_pGreeted == nullptr)
        {
            parts.io.restart();
            if (parts.io.run_one_for(std::chrono::seconds(20)) == 0)
                throw std::runtime_error("no greeting comes");
        }
        return pSession;
    }
    bool isUp() { return peer.describe().find(" up, ") != std::string::npos; }

    CNodeParts parts;
    CPeer peer{parts, cThere};
    std::list<tcp::socket> lstSockets; // the peer's ends
};

class ChannelAllocationTest : public testing::TestWithParam<Mode>
{
protected:
    CFakeWorld m_world;
};

TEST_P(ChannelAllocationTest, AConnectionComesUpAsAWholeOrIsTornDown)
{
    bool bHit = true;
    std::size_t uTornDown = 0;
    for (std::size_t uGranted = 0; bHit; ++uGranted)
    {
        ASSERT_LT(uGranted, 500U) << "never comes to an end";
        SCOPED_TRACE(uGranted);
        CStage stage;
        const auto pSession = stage.greetedSession(1);
        for (unsigned long ul = 1; ul <= cRequests; ++ul)
            ASSERT_EQ(stage.peer.sendRequest(ul, std::string(100, 'x'), std::chrono::seconds(30)), 0);
        bool bThrew = false;
        {
            const CFailingAllocator failing(uGranted, GetParam());
            try
            {
                stage.peer.admit(pSession);
            }
            catch (const std::bad_alloc&) // as the I/O thread's loop does
            {
                bThrew = true;
            }
            bHit = failing.hit();
        }
        if (bThrew)
        {
            ++uTornDown;
            EXPECT_FALSE(stage.isUp());
            stage.peer.tick(CPeer::CClock::now());
            EXPECT_THAT(stage.peer.describe(), testing::HasSubstr(" connecting, 0 requests unanswered, "));
            // Each has ended, or waits for the next connection.
            EXPECT_THAT(stage.peer.describe(),
                        testing::HasSubstr(", " + std::to_string(cRequests - stage.parts.ends.size()) + " waiting"));
            EXPECT_EQ(stage.parts.requests.size(), 0U) << "nobody is told of a connection that nobody heard of";
            EXPECT_EQ(stage.parts.changes.size(), 0U);
            stage.peer.admit(stage.greetedSession(2));
        }
        EXPECT_TRUE(stage.isUp());
        EXPECT_THAT(stage.peer.describe(), testing::HasSubstr(", 0 waiting"));
        EXPECT_EQ(stage.parts.requests.size(), 1U);
        EXPECT_EQ(stage.parts.changes.size(), 1U);
    }
    EXPECT_GT(uTornDown, 3U);
}

INSTANTIATE_TEST_SUITE_P(Memory, ChannelAllocationTest, testing::Values(Mode::RefuseAllLater, Mode::RefuseOne),
                         [](const auto& named) {
                             return std::string(named.param == Mode::RefuseAllLater ? "IsUsedUp" : "FailsOnce");
                         });

} // namespace
