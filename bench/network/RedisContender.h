#pragma once

#include "Board.h"

#include <hiredis/hiredis.h>
#include <memory>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

/// Two Redis servers, the second a replica of the first. Started before the processes that use them.
class CRedisServers
{
public:
    /// @throws std::runtime_error  they do not come up
    CRedisServers();
    ~CRedisServers();
    CRedisServers(const CRedisServers&) = delete;
    CRedisServers& operator=(const CRedisServers&) = delete;

    int masterPort() const { return m_nMasterPort; }
    int replicaPort() const { return m_nReplicaPort; }
    std::vector<pid_t> processes() const { return {m_pidMaster, m_pidReplica}; }
    static bool installed();

private:
    std::string m_sDirectory;
    int m_nMasterPort = 0;
    int m_nReplicaPort = 0;
    pid_t m_pidMaster = 0;
    pid_t m_pidReplica = 0;
};

/// How an update is told to Redis.
enum class ERedisUpdate
{
    pipeline, ///< three fields of the call's hash are set, its list is appended to, and all of it is published
    script    ///< the same by a script, which sets a field only when its time stamp is newer than the one held
};

/// What stands beside the stores: a general-purpose server with a replica. A subscriber at the replica is told.
class CRedisContender final : public CContender
{
public:
    CRedisContender(CBoard& board, const CPlan& plan, const CRedisServers& servers, ERedisUpdate eUpdate);
    ~CRedisContender() override;

    void startOwner() override;
    void update(std::uint64_t ullCall, const CUpdateMark& mark) override;
    void flush() override;
    void startWatcher() override;
    void watchAll() override;
    std::uint64_t bytesInUse() const override;

private:
    struct CFree
    {
        void operator()(redisContext* pContext) const noexcept { redisFree(pContext); }
    };
    using CConnection = std::unique_ptr<redisContext, CFree>;

    static CConnection connect(int nPort);
    void subscribe();
    void loadScript();

    const CRedisServers& m_servers;
    const ERedisUpdate m_eUpdate;
    std::string m_sScript; // its digest
    std::uint64_t m_ullStamp = 0;
    int m_nPort = 0; // of the end that this process talks to
    CConnection m_pConnection;
    std::size_t m_uUnread = 0;
    std::thread m_subscriber;
};
