#include "RecordingRelay.h"

#include <stdexcept>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in endpoint(const std::string& sAddress, std::uint16_t wPort)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(wPort);
    if (inet_pton(AF_INET, sAddress.c_str(), &address.sin_addr) != 1)
        throw std::runtime_error("no address: " + sAddress);
    return address;
}

int boundSocket(const std::string& sAddress, std::uint16_t wPort)
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int nOn = 1;
    const sockaddr_in address = endpoint(sAddress, wPort);
    if (setsockopt(nSocket, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn) != 0 ||
        bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot bind " + sAddress);
    return nSocket;
}

int listening(const std::string& sAddress, std::uint16_t wPort)
{
    const int nSocket = boundSocket(sAddress, wPort);
    if (listen(nSocket, 16) != 0)
        throw std::runtime_error("cannot listen on " + sAddress);
    return nSocket;
}

} // namespace

CRecordingRelay::CRecordingRelay(const CEnd& one, const CEnd& other)
    : m_one(one),
      m_other(other),
      m_nListenForOne(listening(other.sAddress, one.wPort)),
      m_nListenForOther(listening(one.sAddress, other.wPort))
{
    if (pipe2(m_nWake, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    m_thread = std::thread(&CRecordingRelay::run, this);
}

CRecordingRelay::~CRecordingRelay()
{
    close(m_nWake[1]); // wakes the thread
    m_thread.join();
    close(m_nWake[0]);
    close(m_nListenForOne);
    close(m_nListenForOther);
    for (const CFlow& flow : m_vecFlows)
        close(flow.nFrom); // each socket is the source of one
}

void CRecordingRelay::run()
{
    for (;;)
    {
        std::vector<pollfd> vecWanted{
            {m_nWake[0], POLLIN, 0}, {m_nListenForOne, POLLIN, 0}, {m_nListenForOther, POLLIN, 0}};
        for (const CFlow& flow : m_vecFlows)
            vecWanted.push_back({flow.nFrom, POLLIN, 0});
        if (poll(vecWanted.data(), vecWanted.size(), -1) < 0)
            continue;
        if (vecWanted[0].revents != 0)
            return;
        // From behind: a connection that ends takes its two flows with it, which stand together.
        for (std::size_t u = m_vecFlows.size(); u-- > 0;)
        {
            if (u >= m_vecFlows.size() || vecWanted[u + 3].revents == 0 || pass(m_vecFlows[u]))
                continue;
            const auto itFirst = m_vecFlows.begin() + static_cast<std::ptrdiff_t>(u / 2 * 2);
            close(itFirst->nFrom);
            close(itFirst->nTo);
            m_vecFlows.erase(itFirst, itFirst + 2);
        }
        for (const bool bOne : {true, false})
            if (vecWanted[bOne ? 1 : 2].revents != 0)
                accept(bOne);
    }
}

/// The one, or the other, connects to its peer.
void CRecordingRelay::accept(bool bOne)
{
    const int nFrom = accept4(bOne ? m_nListenForOne : m_nListenForOther, nullptr, nullptr, SOCK_CLOEXEC);
    if (nFrom < 0)
        return;
    const CEnd& peer = bOne ? m_other : m_one;
    const int nTo = boundSocket(bOne ? m_one.sAddress : m_other.sAddress, 0);
    const sockaddr_in address = endpoint(peer.sAddress, peer.wPort);
    if (connect(nTo, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    {
        close(nFrom);
        close(nTo);
        return;
    }
    const int nOn = 1;
    (void)setsockopt(nFrom, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn); // slower without
    (void)setsockopt(nTo, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn);
    m_vecFlows.push_back({nFrom, nTo, bOne ? &m_sOfOne : &m_sOfOther});
    m_vecFlows.push_back({nTo, nFrom, bOne ? &m_sOfOther : &m_sOfOne});
    const std::lock_guard lock(m_mtx);
    ++m_uConnections;
}

/// @return false when the connection has ended
bool CRecordingRelay::pass(const CFlow& flow)
{
    char szBytes[65536];
    const ssize_t nBytes = recv(flow.nFrom, szBytes, sizeof szBytes, 0);
    if (nBytes <= 0)
        return false;
    const auto uBytes = static_cast<std::size_t>(nBytes);
    {
        const std::lock_guard lock(m_mtx);
        flow.psTaken->append(szBytes, uBytes);
    }
    m_cv.notify_all();
    for (std::size_t uSent = 0; uSent < uBytes;)
    {
        const ssize_t nSent = send(flow.nTo, szBytes + uSent, uBytes - uSent, MSG_NOSIGNAL);
        if (nSent < 0)
            return false;
        uSent += static_cast<std::size_t>(nSent);
    }
    return true;
}

CRecordingRelay::CFrames CRecordingRelay::cut(const std::string& sBytes)
{
    CFrames vecFrames;
    for (std::size_t uAt = 0; uAt + 4 <= sBytes.size();)
    {
        std::size_t uLength = 0;
        for (std::size_t u = 0; u < 4; ++u)
            uLength = uLength << 8 | static_cast<std::uint8_t>(sBytes[uAt + u]);
        if (uAt + 4 + uLength > sBytes.size())
            break;
        vecFrames.push_back(sBytes.substr(uAt + 4, uLength));
        uAt += 4 + uLength;
    }
    return vecFrames;
}

std::pair<CRecordingRelay::CFrames, CRecordingRelay::CFrames> CRecordingRelay::frames()
{
    const std::lock_guard lock(m_mtx);
    return {cut(m_sOfOne), cut(m_sOfOther)};
}

bool CRecordingRelay::await(const std::function<bool(const CFrames& ofOne, const CFrames& ofOther)>& fnSo,
                            std::chrono::seconds limit)
{
    std::unique_lock lock(m_mtx);
    return m_cv.wait_for(lock, limit, [&] { return fnSo(cut(m_sOfOne), cut(m_sOfOther)); });
}

std::size_t CRecordingRelay::connections()
{
    const std::lock_guard lock(m_mtx);
    return m_uConnections;
}
