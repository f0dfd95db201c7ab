#pragma once

#include "CCMLibraryX.h"

#include <memory>

/// What the channel suite needs to know about the implementation that it is linked with: how a channel comes to belong
/// to one of several servers in one process, how a connection breaks, how time passes. One implementation for the
/// fakes, one for the support library.
///
/// Servers are numbered from 1. A world starts out with none and leaves nothing behind; channels end before it.
class CChannelWorld
{
public:
    CChannelWorld();
    ~CChannelWorld();
    CChannelWorld(const CChannelWorld&) = delete;
    CChannelWorld& operator=(const CChannelWorld&) = delete;

    unsigned long address(int nServer) const;

    /// A channel of that server, made and not initialized.
    std::unique_ptr<CCMLibraryX> make(CMLIB_MODE eMode);
    /// Initializes it as one of that server's. @return what initialize returned
    long initialize(CCMLibraryX* pChannel, int nServer);

    /// Breaks the connection between two servers, if there is one. They may make another at once.
    void breakConnection(int nServer, int nOther);

    /// Lets so much time pass, where it does not pass by itself.
    void passTime(unsigned long ulMs);

    /// The largest message that passes.
    unsigned long messageLimit() const;

private:
    struct CState;
    std::unique_ptr<CState> m_pState;
};
