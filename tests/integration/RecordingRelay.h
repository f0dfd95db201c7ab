#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// Stands between two servers and keeps what they say.
///
/// A server connects to its peer's address and its own port, from its own address; the peer listens on another port.
/// So each finds the relay where it expects the peer, and the relay connects on from the address of whom it speaks for.
///
/// Threads    the test's own; it relays on its own thread.
class CRecordingRelay
{
public:
    struct CEnd
    {
        std::string sAddress;
        std::uint16_t wPort;
    };
    /// A frame as it travelled: type first.
    using CFrames = std::vector<std::string>;

    CRecordingRelay(const CEnd& one, const CEnd& other);
    ~CRecordingRelay();
    CRecordingRelay(const CRecordingRelay&) = delete;
    CRecordingRelay& operator=(const CRecordingRelay&) = delete;

    /// The frames that the one has sent, and those of the other.
    std::pair<CFrames, CFrames> frames();
    /// Waits until the frames are so. @return whether they were, before the time ran out
    bool await(const std::function<bool(const CFrames& ofOne, const CFrames& ofOther)>& fnSo,
               std::chrono::seconds limit);
    /// Connections made so far.
    std::size_t connections();

private:
    /// One direction of a connection.
    struct CFlow
    {
        int nFrom;
        int nTo;
        std::string* psTaken; // what was sent that way, of m_sOfOne or m_sOfOther
    };

    void run();
    void accept(bool bOne);
    bool pass(const CFlow& flow);
    static CFrames cut(const std::string& sBytes);

    const CEnd m_one;
    const CEnd m_other;
    int m_nWake[2] = {-1, -1};
    int m_nListenForOne = -1; // where the one finds the other
    int m_nListenForOther = -1;
    std::vector<CFlow> m_vecFlows; // the relay's thread only

    std::mutex m_mtx;
    std::condition_variable m_cv;
    std::string m_sOfOne;   // guarded by m_mtx
    std::string m_sOfOther; // guarded by m_mtx
    std::size_t m_uConnections = 0;

    std::thread m_thread;
};
