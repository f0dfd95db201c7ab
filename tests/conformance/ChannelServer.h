#pragma once

#include "ChannelWorld.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// What a receive returned.
struct CReceived
{
    long lResult = 0;
    unsigned long ulPeer = 0;
    unsigned long ulContext1 = 0; ///< of a response: the request ID
    unsigned long ulContext2 = 0;
    std::string sBody;

    std::uint32_t code() const { return static_cast<std::uint32_t>(lResult); }
    bool isRequest() const { return lResult >= 0; }
};

/// What a receiving thread got, for the test to take with a deadline.
class CReceivedList
{
public:
    /// Only a failing test waits so long.
    static constexpr std::chrono::seconds cPatience{20};

    void add(CReceived received)
    {
        {
            const std::lock_guard lock(m_mtx);
            m_lst.push_back(std::move(received));
        }
        m_cv.notify_all();
    }

    /// The next one; nothing when none comes.
    std::optional<CReceived> next(std::chrono::milliseconds patience = cPatience)
    {
        std::unique_lock lock(m_mtx);
        if (!m_cv.wait_for(lock, patience, [this] { return !m_lst.empty(); }))
            return std::nullopt;
        CReceived received = std::move(m_lst.front());
        m_lst.pop_front();
        return received;
    }

    /// The next one's code, 0 for a request, 1 when nothing comes.
    std::uint32_t nextCode(std::chrono::milliseconds patience = cPatience)
    {
        const std::optional<CReceived> optReceived = next(patience);
        return !optReceived ? 1U : optReceived->isRequest() ? 0U : optReceived->code();
    }

    bool empty()
    {
        const std::lock_guard lock(m_mtx);
        return m_lst.empty();
    }

private:
    std::mutex m_mtx;
    std::condition_variable m_cv;
    std::deque<CReceived> m_lst;
};

/// A server's two channels with the three threads that a store has, which pass on everything they receive.
class CChannelServer
{
public:
    using CAnswer = std::function<std::optional<std::string>(const CReceived&)>;

    /// @param fnAnswer  the answer to a request, or nothing for none; called on the receiving thread. Null: none.
    CChannelServer(CChannelWorld* pWorld, int nServer, CAnswer fnAnswer = nullptr)
        : m_world(*pWorld),
          m_nServer(nServer),
          m_fnAnswer(std::move(fnAnswer)),
          pServer(pWorld->make(cmlib_mode_server)),
          pClient(pWorld->make(cmlib_mode_client))
    {
        start();
    }
    ~CChannelServer() { stop(); }
    CChannelServer(const CChannelServer&) = delete;
    CChannelServer& operator=(const CChannelServer&) = delete;

    void start()
    {
        lStarted = m_world.initialize(pServer.get(), m_nServer);
        if (lStarted >= 0)
            lStarted = m_world.initialize(pClient.get(), m_nServer);
        if (lStarted < 0)
            return;
        m_vecThreads.emplace_back([this] { receiveRequests(pServer.get(), &requests); });
        m_vecThreads.emplace_back([this] { receiveRequests(pClient.get(), &changes); });
        m_vecThreads.emplace_back([this] { receiveResponses(); });
    }

    /// Returns when the threads have; hangs when a receive is not released.
    void stop()
    {
        (void)pServer->uninitialize(); // always 0
        (void)pClient->uninitialize();
        for (std::thread& thread : m_vecThreads)
            thread.join();
        m_vecThreads.clear();
    }

    unsigned long address() const { return m_world.address(m_nServer); }

    long send(unsigned long ulRequestID, const CChannelServer& to, const std::string& sBody,
              unsigned long ulTimeout = 30)
    {
        return send(ulRequestID, to.address(), sBody, ulTimeout);
    }
    long send(unsigned long ulRequestID, unsigned long ulPeer, const std::string& sBody, unsigned long ulTimeout = 30)
    {
        return pClient->sendRequest(ulRequestID, ulPeer, 0, sBody.data(), sBody.size(), 0x40000000, ulTimeout);
    }
    long answer(const CReceived& request, const std::string& sBody)
    {
        return pServer->sendResponse(request.ulPeer, request.ulContext1, request.ulContext2, sBody.data(), sBody.size(),
                                     0x40000000);
    }

private:
    CChannelWorld& m_world;
    const int m_nServer;
    const CAnswer m_fnAnswer;

public:
    const std::unique_ptr<CCMLibraryX> pServer;
    const std::unique_ptr<CCMLibraryX> pClient;
    long lStarted = -1;
    CReceivedList requests;  ///< of the server channel
    CReceivedList changes;   ///< of the client channel: connection events
    CReceivedList responses; ///< of the client channel

private:
    static std::string take(char* pBuffer, unsigned long ulSize)
    {
        const std::unique_ptr<char[]> pOwned(pBuffer);
        return pBuffer ? std::string(pBuffer, ulSize) : std::string();
    }

    void receiveRequests(CCMLibraryX* pChannel, CReceivedList* pList)
    {
        for (;;)
        {
            CReceived received;
            char* pBuffer = nullptr;
            unsigned long ulSize = 0;
            received.lResult = pChannel->receiveRequest(&received.ulPeer, &received.ulContext1, &received.ulContext2,
                                                        &pBuffer, &ulSize);
            received.sBody = take(pBuffer, ulSize);
            if (received.code() == CMLIB_NOTHING)
                return;
            if (received.isRequest() && m_fnAnswer)
            {
                if (const auto optAnswer = m_fnAnswer(received))
                    (void)answer(received, *optAnswer); // fails when the connection has broken
            }
            pList->add(std::move(received));
        }
    }

    void receiveResponses()
    {
        for (;;)
        {
            CReceived received;
            char* pBuffer = nullptr;
            unsigned long ulSize = 0;
            received.lResult = pClient->receiveResponse(&received.ulPeer, &received.ulContext1, &pBuffer, &ulSize);
            received.sBody = take(pBuffer, ulSize);
            if (received.code() == CMLIB_NOTHING)
                return;
            responses.add(std::move(received));
        }
    }

    std::vector<std::thread> m_vecThreads;
};
