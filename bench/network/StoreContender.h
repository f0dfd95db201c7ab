#pragma once

#include "Board.h"
#include "CDSAPI.h"
#include "share/ServerPlace.h"

#include <memory>
#include <string>
#include <vector>

/// Two call data stores: the owner's component updates, the watcher's registrants are called.
class CStoreContender final : public CContender
{
public:
    /// @param dwTraceMask  of both servers
    CStoreContender(CBoard& board, const CPlan& plan, std::uint32_t dwTraceMask);
    ~CStoreContender() override;

    void startOwner() override;
    void update(std::uint64_t ullCall, const CUpdateMark& mark) override;
    void flush() override {}
    void startWatcher() override;
    void watchAll() override;

    /// The text of the message that carries one update of the sample call.
    static std::string messageText();

private:
    void start(const std::string& sAddress);
    static long onChange(CCallbackMsg* pMessage);

    const std::uint32_t m_dwTraceMask;
    const std::string m_sOwner;
    const std::string m_sWatcher;
    CServerPlace m_place;
    std::unique_ptr<CCDSAPI> m_pStore;
    std::vector<std::uint64_t> m_vecUpdates; // of each call
};
