// Bytes in the clear.
#include "Transport.h"

#include <cerrno>

#include <sys/socket.h>

namespace Messaging {

CTransport::EOutcome CPlainTransport::read(std::span<char> space, std::size_t* puBytes)
{
    for (;;)
    {
        const ssize_t nBytes = recv(m_nSocket, space.data(), space.size(), 0);
        if (nBytes > 0)
        {
            *puBytes = static_cast<std::size_t>(nBytes);
            return done;
        }
        if (nBytes == 0)
            return ended;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return wantRead;
        if (errno != EINTR)
            return failed;
    }
}

CTransport::EOutcome CPlainTransport::write(std::span<const char> bytes, std::size_t* puBytes)
{
    for (;;)
    {
        const ssize_t nBytes = send(m_nSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (nBytes >= 0)
        {
            *puBytes = static_cast<std::size_t>(nBytes);
            return done;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return wantWrite;
        if (errno != EINTR)
            return failed;
    }
}

} // namespace Messaging
