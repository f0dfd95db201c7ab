#pragma once

#include <cstddef>
#include <memory>
#include <span>

namespace Messaging {

/// Bytes over a connected socket that does not block, in the clear or encrypted.
///
/// Threads    as its owner says; the socket stays the owner's and outlives the transport.
class CTransport
{
public:
    enum EOutcome
    {
        done,      ///< as many bytes as reported; of a handshake: it is complete
        wantRead,  ///< again when the socket has something to read
        wantWrite, ///< again when the socket takes something
        ended,     ///< the other side has ended the connection
        failed     ///< the connection is of no use any more
    };

    virtual ~CTransport() = default;

    /// Goes on with what comes before the first byte.
    virtual EOutcome handshake() = 0;
    virtual EOutcome read(std::span<char> space, std::size_t* puBytes) = 0;
    virtual EOutcome write(std::span<const char> bytes, std::size_t* puBytes) = 0;
    /// Whether reading and writing exclude one another.
    virtual bool sharesState() const = 0;
    /// What went wrong, for the log.
    virtual const char* error() const = 0;
};

/// Bytes in the clear.
class CPlainTransport final : public CTransport
{
public:
    explicit CPlainTransport(int nSocket) : m_nSocket(nSocket) {}
    EOutcome handshake() override { return done; }
    EOutcome read(std::span<char> space, std::size_t* puBytes) override;
    EOutcome write(std::span<const char> bytes, std::size_t* puBytes) override;
    bool sharesState() const override { return false; }
    const char* error() const override { return "the connection broke"; }

private:
    const int m_nSocket;
};

} // namespace Messaging
