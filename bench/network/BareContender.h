#pragma once

#include "BareStore.h"
#include "Board.h"

#include <thread>
#include <vector>

/// The limit: sockets that carry as many bytes for each update, between two bare programs with a map of records each.
/// Nothing is acknowledged, matched, checked, encrypted, logged or made good after a failure.
class CBareContender final : public CContender
{
public:
    CBareContender(CBoard& board, const CPlan& plan, std::size_t uMessageBytes);
    ~CBareContender() override;

    void startOwner() override;
    void update(std::uint64_t ullCall, const CUpdateMark& mark) override;
    void flush() override;
    void startWatcher() override;
    void watchAll() override;

private:
    void receive();
    void take(const unsigned char* pFrame);

    const std::size_t m_uMessageBytes;
    int m_nSocket = -1;
    CBareStore m_store;
    std::vector<std::uint64_t> m_vecUpdates; // of each call
    std::vector<std::string> m_vecCallIDs;
    std::vector<unsigned char> m_vecOut;
    std::thread m_receiver;
};
