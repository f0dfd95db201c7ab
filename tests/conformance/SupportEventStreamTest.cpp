// The stream in which a channel's requests and connection events wait to be fetched.
#include "EventStream.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace {
using namespace Messaging;
using testing::ElementsAre;

constexpr std::uint32_t cConnected = 0xC0000001U;
constexpr std::uint32_t cDisconnected = 0xC0000002U;

class SupportEventStreamTest : public testing::Test
{
protected:
    SupportEventStreamTest() { m_stream.open(); }

    /// A request of a peer's session 1.
    void request(std::uint32_t dwPeer, std::uint32_t dwExchange, std::uint32_t dwSession = 1)
    {
        CReceivedItem item;
        item.dwPeer = dwPeer;
        item.dwSession = dwSession;
        item.dwExchange = dwExchange;
        item.pBudget = m_pBudget;
        ASSERT_TRUE(m_stream.add(std::move(item)));
    }
    /// All that waits: "1:7" is peer 1's exchange 7, "1+" its connection, "1-" the end of it.
    std::vector<std::string> fetched()
    {
        std::vector<std::string> vecFetched;
        while (m_stream.size() != 0)
        {
            CReceivedItem item;
            if (!m_stream.fetch(&item))
                break;
            const auto dwCode = static_cast<std::uint32_t>(item.lResult);
            vecFetched.push_back(std::to_string(item.dwPeer) + (dwCode == cConnected ? "+"
                                                                : dwCode == cDisconnected
                                                                    ? "-"
                                                                    : ':' + std::to_string(item.dwExchange)));
        }
        return vecFetched;
    }

    const std::shared_ptr<CInboundBudget> m_pBudget = std::make_shared<CInboundBudget>(1'000'000, [] {});
    CEventStream m_stream{cConnected, cDisconnected};
};

TEST_F(SupportEventStreamTest, PeersAreServedByTurns)
{
    for (std::uint32_t dw = 1; dw <= 3; ++dw)
        request(1, dw);
    request(2, 1);
    request(3, 1);
    EXPECT_THAT(fetched(), ElementsAre("1:1", "2:1", "3:1", "1:2", "1:3"));
    EXPECT_EQ(m_pBudget->bytes(), 0U);
}

TEST_F(SupportEventStreamTest, APeersOwnOrderIsKept)
{
    m_stream.connected(1, 1);
    request(1, 1);
    request(1, 2);
    m_stream.connected(2, 5);
    EXPECT_THAT(fetched(), ElementsAre("1+", "2+", "1:1", "1:2"));
    m_stream.disconnected(1, 1);
    m_stream.connected(1, 2);
    request(1, 3, 2);
    EXPECT_THAT(fetched(), ElementsAre("1-", "1+", "1:3"));
}

TEST_F(SupportEventStreamTest, WhatASessionLeftGoesWithIt)
{
    m_stream.connected(1, 1);
    EXPECT_THAT(fetched(), ElementsAre("1+"));
    request(1, 1);
    request(2, 1);
    m_stream.disconnected(1, 1);
    EXPECT_THAT(fetched(), ElementsAre("2:1", "1-"));
    // Nobody has heard of the beginning, so nobody hears of the end.
    m_stream.connected(1, 2);
    request(1, 2, 2);
    m_stream.disconnected(1, 2);
    EXPECT_THAT(fetched(), ElementsAre());
    EXPECT_EQ(m_pBudget->bytes(), 0U);
}

} // namespace
