#pragma once

#include "Frame.h"
#include "TlsContext.h"
#include "Transport.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>

namespace Messaging {

/// One socket: frames in, bytes out.
///
/// Output. Whoever sends writes directly when nothing was written a moment ago; otherwise the bytes join those that
/// wait, and the I/O thread writes them together.
///
/// Threads    send, queued, lastTaken and endSoon: any. All others: the I/O thread. The user is called on the I/O
/// thread, without
///            a lock.
class CConnection : public std::enable_shared_from_this<CConnection>
{
public:
    using CClock = std::chrono::steady_clock;

    /// Who uses the connection; it outlives its use, which ends with close.
    class IUser
    {
    public:
        /// The socket is connected and, with certificates, both ends have proved who they are.
        virtual void onOpen() = 0;
        /// A frame came. False when reading has to stop: the connection was closed.
        virtual bool onFrame(const CFrame& frame) = 0;
        /// Whether to go on reading; if not, resume will be called.
        virtual bool mayRead() = 0;
        /// The connection is of no use any more. Called at most once, and not after close.
        virtual void onBroken(const char* pszWhy) = 0;

    protected:
        ~IUser() = default;
    };

    CConnection(asio::io_context& io, const CTlsContext* pTls, std::uint32_t dwPeer, IUser* pUser);

    /// Takes over a socket that was accepted.
    void accept(asio::ip::tcp::socket socket);
    /// Connects from an address of this machine.
    void connect(std::uint32_t dwLocal, std::uint16_t wPort);
    /// Ends the connection. The user is not called any more.
    void close();
    /// Goes on reading after a pause. The user is not called before this returns: whoever lets messages pass has
    /// finished what they depend on.
    void resume();
    void setFrameLimit(std::uint32_t dwLimit) { m_reader.setLimit(dwLimit); }

    CClock::time_point lastReceived() const { return m_tpReceived; }
    /// When the other side was last seen to have taken bytes, or none were waiting. It is seen when this is asked.
    CClock::time_point lastTaken();
    bool paused() const { return m_bPaused; }

    /// Sends one frame, which the function appends. Never blocks.
    ///
    /// @return false when the connection is closed
    template <typename Append> bool send(Append append)
    {
        const std::lock_guard lock(m_mtx);
        if (m_bClosed)
            return false;
        if (m_sOut.empty())
            m_tpTaken = CClock::now();
        append(&m_sOut);
        startWriting();
        return true;
    }
    /// Bytes that wait to be written.
    std::size_t queued();
    /// Makes the user hear of a breakage, from any thread.
    void endSoon(const char* pszWhy);

private:
    void begin(bool bAccepted);
    void handshake();
    void awaitRead();
    void awaitWrite();
    void read();
    void readSoon();
    void flush();
    void startWriting();
    bool write();
    void broken(const char* pszWhy);

    asio::io_context& m_io;
    const CTlsContext* const m_pTls;
    const std::uint32_t m_dwPeer;

    // I/O thread only.
    IUser* m_pUser; // null once closed
    asio::ip::tcp::socket m_socket;
    CFrameReader m_reader{cGreetingLimit};
    CClock::time_point m_tpReceived = CClock::now();
    bool m_bOpen = false;
    bool m_bReading = false; // waiting for something to read, or a turn of reading is posted
    bool m_bPaused = false;

    std::mutex m_mtx;
    std::unique_ptr<CTransport> m_pTransport;     // guarded by m_mtx, but for reads where these share no state
    std::string m_sOut;                           // guarded by m_mtx
    std::size_t m_uWritten = 0;                   // guarded by m_mtx: of m_sOut
    bool m_bClosed = false;                       // guarded by m_mtx
    bool m_bWriterDue = false;                    // guarded by m_mtx: the I/O thread will write
    CClock::time_point m_tpWritten{};             // guarded by m_mtx
    CClock::time_point m_tpTaken = CClock::now(); // guarded by m_mtx
    int m_nUnacknowledged = 0;                    // guarded by m_mtx: bytes in the socket, as last seen
};

} // namespace Messaging
