#include "Connection.h"

#include <utility>

#include <asio/ip/address_v4.hpp>
#include <asio/post.hpp>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Messaging {
namespace {
/// A sender that wrote so lately leaves the next bytes to the I/O thread, which writes many frames at once.
constexpr std::chrono::microseconds cBusy{30};
/// So much waits in the system to be sent, at the most.
constexpr int cUnsent = 131'072;
/// Reading gives way to other connections after so many bytes.
constexpr std::size_t cTurn = 524'288;
constexpr std::size_t cKeepCapacity = 1'048'576;
} // namespace

CConnection::CConnection(asio::io_context& io, const CTlsContext* pTls, std::uint32_t dwPeer, IUser* pUser)
    : m_io(io), m_pTls(pTls), m_dwPeer(dwPeer), m_pUser(pUser), m_socket(io)
{
}

void CConnection::accept(asio::ip::tcp::socket socket)
{
    m_socket = std::move(socket);
    begin(true);
}

void CConnection::connect(std::uint32_t dwLocal, std::uint16_t wPort)
{
    using asio::ip::address_v4;
    using asio::ip::tcp;
    asio::error_code error;
    m_socket.open(tcp::v4(), error);
    if (!error)
    {
        // The port is chosen when connecting, so that it only has to differ among connections to the same peer.
        const int nOn = 1;
        (void)setsockopt(m_socket.native_handle(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &nOn, sizeof nOn);
        m_socket.bind({address_v4(dwLocal), 0}, error);
    }
    if (error)
    {
        endSoon("the local address cannot be used");
        return;
    }
    m_socket.async_connect({address_v4(m_dwPeer), wPort}, [pSelf = shared_from_this()](const asio::error_code& result) {
        if (!pSelf->m_pUser)
            return;
        if (result)
            pSelf->broken("no connection");
        else
            pSelf->begin(false);
    });
}

void CConnection::begin(bool bAccepted)
{
    asio::error_code error;
    // Else the system takes megabytes at a time, and a peer that is slow to read seems to take nothing for a while.
    (void)setsockopt(m_socket.native_handle(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &cUnsent, sizeof cUnsent);
    m_socket.set_option(asio::ip::tcp::no_delay(true), error);
    if (!error)
        m_socket.non_blocking(true, error);
    if (error)
    {
        endSoon("the socket cannot be set up");
        return;
    }
    {
        const std::lock_guard lock(m_mtx);
        if (m_pTls)
            m_pTransport = m_pTls->makeTransport(m_socket.native_handle(), m_dwPeer, bAccepted);
        else
            m_pTransport = std::make_unique<CPlainTransport>(m_socket.native_handle());
    }
    if (!m_pTransport)
    {
        endSoon("out of memory");
        return;
    }
    m_tpReceived = CClock::now();
    handshake();
}

void CConnection::handshake()
{
    const auto fnAgain = [pSelf = shared_from_this()](const asio::error_code& error) {
        if (!error && pSelf->m_pUser)
            pSelf->handshake();
    };
    switch (m_pTransport->handshake())
    {
    case CTransport::done:
        m_bOpen = true;
        m_pUser->onOpen();
        if (m_pUser)
        {
            m_bReading = true;
            read(); // a transport may hold bytes that came with the handshake's last ones
        }
        break;
    case CTransport::wantRead: m_socket.async_wait(asio::ip::tcp::socket::wait_read, fnAgain); break;
    case CTransport::wantWrite: m_socket.async_wait(asio::ip::tcp::socket::wait_write, fnAgain); break;
    case CTransport::ended: broken("ended during the handshake"); break;
    case CTransport::failed: broken(m_pTransport->error()); break;
    }
}

void CConnection::close()
{
    m_pUser = nullptr;
    const std::lock_guard lock(m_mtx);
    if (m_bClosed)
        return;
    m_bClosed = true;
    m_pTransport.reset();
    asio::error_code ignored; // closed is closed
    m_socket.close(ignored);
    std::string().swap(m_sOut);
    m_uWritten = 0;
}

void CConnection::awaitRead()
{
    m_bReading = true;
    m_socket.async_wait(asio::ip::tcp::socket::wait_read, [pSelf = shared_from_this()](const asio::error_code& error) {
        if (!error && pSelf->m_pUser)
            pSelf->read();
    });
}

void CConnection::resume()
{
    if (!m_pUser || !m_bPaused)
        return;
    m_bPaused = false;
    m_tpReceived = CClock::now(); // silence was ours
    if (!m_bReading)
        readSoon();
}

void CConnection::read()
{
    m_bReading = false;
    for (std::size_t uTurn = 0; uTurn < cTurn;)
    {
        const std::span<char> space = m_reader.space();
        std::size_t uBytes = 0;
        CTransport::EOutcome eOutcome{};
        bool bDrained = false;
        if (m_pTransport->sharesState())
        {
            const std::lock_guard lock(m_mtx);
            eOutcome = m_pTransport->read(space, &uBytes);
        }
        else
        {
            eOutcome = m_pTransport->read(space, &uBytes);
            bDrained = uBytes < space.size();
        }
        switch (eOutcome)
        {
        case CTransport::done: break;
        case CTransport::ended: broken("the peer ended the connection"); return;
        case CTransport::failed: broken(m_pTransport->error()); return;
        case CTransport::wantRead:
        case CTransport::wantWrite: awaitRead(); return; // what it wants to write goes with the next bytes sent
        }
        m_tpReceived = CClock::now();
        m_reader.received(uBytes);
        uTurn += uBytes;

        CFrame frame;
        CFrameReader::EResult eFrame{};
        while ((eFrame = m_reader.next(&frame)) == CFrameReader::complete)
        {
            if (!m_pUser->onFrame(frame))
                return;
        }
        if (eFrame == CFrameReader::broken)
        {
            broken("bytes that are no message");
            return;
        }
        if (!m_pUser->mayRead())
        {
            m_bPaused = true;
            return;
        }
        if (bDrained)
        {
            awaitRead();
            return;
        }
    }
    readSoon();
}

/// Reads in a turn of its own.
void CConnection::readSoon()
{
    m_bReading = true;
    asio::post(m_io, [pSelf = shared_from_this()] {
        if (pSelf->m_pUser)
            pSelf->read();
    });
}

void CConnection::startWriting()
{
    if (m_bWriterDue)
        return;
    if (CClock::now() - m_tpWritten >= cBusy)
    {
        (void)write(); // a breakage is reported by the I/O thread
        return;
    }
    m_bWriterDue = true;
    asio::post(m_io, [pSelf = shared_from_this()] { pSelf->flush(); });
}

/// Writes as much as the socket takes. Under m_mtx; false when the I/O thread has to deal with a breakage.
bool CConnection::write()
{
    CTransport::EOutcome eOutcome = CTransport::done;
    bool bTaken = m_sOut.empty();
    while (m_uWritten < m_sOut.size() && eOutcome == CTransport::done)
    {
        std::size_t uBytes = 0;
        eOutcome = m_pTransport->write({m_sOut.data() + m_uWritten, m_sOut.size() - m_uWritten}, &uBytes);
        m_uWritten += uBytes;
        bTaken |= uBytes != 0;
    }
    m_tpWritten = CClock::now();
    if (bTaken)
        m_tpTaken = m_tpWritten;
    if (m_uWritten == m_sOut.size())
    {
        m_sOut.clear();
        m_uWritten = 0;
        if (m_sOut.capacity() > cKeepCapacity)
            m_sOut.shrink_to_fit();
        return true;
    }
    if (m_uWritten > m_sOut.size() / 2)
    {
        m_sOut.erase(0, m_uWritten);
        m_uWritten = 0;
    }
    if (eOutcome == CTransport::failed || eOutcome == CTransport::ended)
    {
        m_bWriterDue = true; // nobody writes any more
        endSoon(m_pTransport->error());
        return false;
    }
    m_bWriterDue = true;
    asio::post(m_io, [pSelf = shared_from_this()] { pSelf->awaitWrite(); });
    return true;
}

void CConnection::awaitWrite()
{
    if (!m_pUser)
        return;
    m_socket.async_wait(asio::ip::tcp::socket::wait_write, [pSelf = shared_from_this()](const asio::error_code& error) {
        if (!error)
            pSelf->flush();
    });
}

void CConnection::flush()
{
    const std::lock_guard lock(m_mtx);
    m_bWriterDue = false;
    if (!m_bClosed)
        (void)write(); // reports a breakage itself
}

CConnection::CClock::time_point CConnection::lastTaken()
{
    const std::lock_guard lock(m_mtx);
    if (m_sOut.empty())
        return CClock::now();
    // A socket takes more only when a good part of what it holds has gone, which on a slow line takes a while.
    int nUnacknowledged = 0;
    if (!m_bClosed && ioctl(m_socket.native_handle(), SIOCOUTQ, &nUnacknowledged) == 0 &&
        (nUnacknowledged != m_nUnacknowledged || nUnacknowledged == 0)) // 0: the delay is ours
    {
        m_nUnacknowledged = nUnacknowledged;
        m_tpTaken = CClock::now();
    }
    return m_tpTaken;
}

std::size_t CConnection::queued()
{
    const std::lock_guard lock(m_mtx);
    return m_sOut.size() - m_uWritten;
}

void CConnection::endSoon(const char* pszWhy)
{
    asio::post(m_io, [pSelf = shared_from_this(), sWhy = std::string(pszWhy)] { pSelf->broken(sWhy.c_str()); });
}

void CConnection::broken(const char* pszWhy)
{
    const std::string sWhy(pszWhy); // the text may be the transport's, which ends on the way
    if (IUser* const pUser = std::exchange(m_pUser, nullptr))
        pUser->onBroken(sWhy.c_str());
}

} // namespace Messaging
