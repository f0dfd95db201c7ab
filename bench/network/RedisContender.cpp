#include "RedisContender.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* cServer = "/usr/bin/redis-server";
constexpr const char* cChannel = "calls";
constexpr std::size_t cMostUnread = 256; // replies
/// Takes the call and its log, then a time stamp, the log entry, what is published, and fields with their values.
constexpr const char* cNewestByStamp = R"(
    for i = 5, #ARGV, 2 do
        local held = redis.call('HGET', KEYS[1], ARGV[i] .. ':t')
        if not held or held < ARGV[1] then
            redis.call('HSET', KEYS[1], ARGV[i], ARGV[i + 1], ARGV[i] .. ':t', ARGV[1])
        end
    end
    redis.call('RPUSH', KEYS[2], ARGV[2])
    redis.call('PUBLISH', ARGV[3], ARGV[4])
)";
constexpr std::chrono::seconds cStartLimit{10};

/// A port that was free a moment ago.
int freePort()
{
    const int nSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t uLength = sizeof address;
    if (nSocket < 0 || bind(nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        getsockname(nSocket, reinterpret_cast<sockaddr*>(&address), &uLength) != 0)
        throw std::runtime_error("no free port");
    close(nSocket);
    return ntohs(address.sin_port);
}

pid_t startServer(const std::string& sDirectory, int nPort, int nMasterPort)
{
    std::vector<std::string> vecCommand = {cServer,
                                           "--port",
                                           std::to_string(nPort),
                                           "--bind",
                                           "127.0.0.1",
                                           "--save",
                                           "",
                                           "--appendonly",
                                           "no",
                                           "--dir",
                                           sDirectory,
                                           "--logfile",
                                           "/dev/null",
                                           "--repl-diskless-sync",
                                           "yes",
                                           "--repl-diskless-sync-delay",
                                           "0"};
    if (nMasterPort != 0)
        vecCommand.insert(vecCommand.end(), {"--replicaof", "127.0.0.1", std::to_string(nMasterPort)});
    std::vector<char*> vecArguments;
    for (std::string& sArgument : vecCommand)
        vecArguments.push_back(sArgument.data());
    vecArguments.push_back(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
    {
        execv(cServer, vecArguments.data());
        _exit(127);
    }
    return pid;
}

std::string info(int nPort, const char* pszSection)
{
    redisContext* const pContext = redisConnect("127.0.0.1", nPort);
    std::string sText;
    if (pContext != nullptr && pContext->err == 0)
        if (auto* const pReply = static_cast<redisReply*>(redisCommand(pContext, "INFO %s", pszSection));
            pReply != nullptr)
        {
            if (pReply->str != nullptr)
                sText.assign(pReply->str, pReply->len);
            freeReplyObject(pReply);
        }
    if (pContext != nullptr)
        redisFree(pContext);
    return sText;
}

} // namespace

bool CRedisServers::installed()
{
    return access(cServer, X_OK) == 0;
}

CRedisServers::CRedisServers()
{
    std::string sTemplate = (std::filesystem::temp_directory_path() / "cds-bench-XXXXXX").string();
    if (mkdtemp(sTemplate.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    m_sDirectory = sTemplate;
    m_nMasterPort = freePort();
    m_pidMaster = startServer(m_sDirectory, m_nMasterPort, 0);
    m_nReplicaPort = freePort();
    m_pidReplica = startServer(m_sDirectory, m_nReplicaPort, m_nMasterPort);
    const auto limit = std::chrono::steady_clock::now() + cStartLimit;
    while (info(m_nReplicaPort, "replication").find("master_link_status:up") == std::string::npos)
    {
        if (std::chrono::steady_clock::now() > limit)
            throw std::runtime_error("the replica does not come up");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

CRedisServers::~CRedisServers()
{
    for (const pid_t pid : processes())
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    std::error_code ignored; // what cannot be removed is the system's to clear away
    std::filesystem::remove_all(m_sDirectory, ignored);
}

CRedisContender::CRedisContender(CBoard& board, const CPlan& plan, const CRedisServers& servers, ERedisUpdate eUpdate)
    : CContender(board, plan), m_servers(servers), m_eUpdate(eUpdate)
{
}

CRedisContender::~CRedisContender()
{
    if (m_subscriber.joinable())
    {
        (void)shutdown(m_pConnection->fd, SHUT_RDWR); // ends the subscription
        m_subscriber.join();
    }
}

CRedisContender::CConnection CRedisContender::connect(int nPort)
{
    CConnection pConnection(redisConnect("127.0.0.1", nPort));
    if (pConnection == nullptr || pConnection->err != 0)
        throw std::runtime_error("no connection to the server");
    return pConnection;
}

void CRedisContender::startOwner()
{
    m_nPort = m_servers.masterPort();
    m_pConnection = connect(m_nPort);
    if (m_eUpdate == ERedisUpdate::script)
        loadScript();
}

void CRedisContender::loadScript()
{
    auto* const pReply = static_cast<redisReply*>(redisCommand(m_pConnection.get(), "SCRIPT LOAD %s", cNewestByStamp));
    if (pReply == nullptr || pReply->type != REDIS_REPLY_STRING)
        throw std::runtime_error("the script is refused");
    m_sScript.assign(pReply->str, pReply->len);
    freeReplyObject(pReply);
}

void CRedisContender::update(std::uint64_t ullCall, const CUpdateMark& mark)
{
    const std::string sCallID = SampleCall::callID(ullCall);
    unsigned char aMark[SampleCall::cPropertyBytes];
    mark.write(aMark);
    const auto& names = SampleCall::propertyNames();
    // What is published says what changed.
    std::string sChange(reinterpret_cast<const char*>(aMark), sizeof aMark);
    sChange += sCallID;
    sChange.append(reinterpret_cast<const char*>(SampleCall::bytes()), SampleCall::cEntryBytes);
    sChange.append(reinterpret_cast<const char*>(SampleCall::bytes()), 2UL * SampleCall::cPropertyBytes);
    if (m_eUpdate == ERedisUpdate::script)
    {
        const std::string sNumber = std::to_string(++m_ullStamp);
        const std::string sStamp = std::string(20 - sNumber.size(), '0') + sNumber; // orders as text
        redisAppendCommand(m_pConnection.get(), "EVALSHA %s 2 %b %s:log %s %b %s %b %s %b %s %b %s %b",
                           m_sScript.c_str(), sCallID.data(), sCallID.size(), sCallID.c_str(), sStamp.c_str(),
                           SampleCall::bytes(), std::size_t{SampleCall::cEntryBytes}, cChannel, sChange.data(),
                           sChange.size(), names[0]->c_str(), aMark, sizeof aMark, names[1]->c_str(),
                           SampleCall::bytes(), std::size_t{SampleCall::cPropertyBytes}, names[2]->c_str(),
                           SampleCall::bytes(), std::size_t{SampleCall::cPropertyBytes});
        if (++m_uUnread >= cMostUnread)
            flush();
        return;
    }
    redisAppendCommand(m_pConnection.get(), "HSET %b %s %b %s %b %s %b", sCallID.data(), sCallID.size(),
                       names[0]->c_str(), aMark, sizeof aMark, names[1]->c_str(), SampleCall::bytes(),
                       std::size_t{SampleCall::cPropertyBytes}, names[2]->c_str(), SampleCall::bytes(),
                       std::size_t{SampleCall::cPropertyBytes});
    redisAppendCommand(m_pConnection.get(), "RPUSH %s:log %b", sCallID.c_str(), SampleCall::bytes(),
                       std::size_t{SampleCall::cEntryBytes});
    redisAppendCommand(m_pConnection.get(), "PUBLISH %s %b", cChannel, sChange.data(), sChange.size());
    m_uUnread += 3;
    if (m_uUnread >= cMostUnread)
        flush();
}

void CRedisContender::flush()
{
    for (; m_uUnread > 0; --m_uUnread)
    {
        void* pReply = nullptr;
        if (redisGetReply(m_pConnection.get(), &pReply) != REDIS_OK)
            throw std::runtime_error("the server has gone");
        const bool bRefused = static_cast<const redisReply*>(pReply)->type == REDIS_REPLY_ERROR;
        freeReplyObject(pReply);
        if (bRefused)
            throw std::runtime_error("the server refuses an update");
    }
}

void CRedisContender::startWatcher()
{
    m_nPort = m_servers.replicaPort();
    m_pConnection = connect(m_nPort);
}

void CRedisContender::watchAll()
{
    freeReplyObject(redisCommand(m_pConnection.get(), "SUBSCRIBE %s", cChannel));
    m_subscriber = std::thread([this] { subscribe(); });
    // What the calls have already is read, a pipeline for many.
    const CConnection pReader = connect(m_nPort);
    constexpr std::uint64_t cTogether = 500;
    for (std::uint64_t ullBegin = 0; ullBegin < m_plan.ullCalls; ullBegin += cTogether)
    {
        const std::uint64_t ullEnd = std::min(ullBegin + cTogether, m_plan.ullCalls);
        for (std::uint64_t i = ullBegin; i < ullEnd; ++i)
        {
            redisAppendCommand(pReader.get(), "HGETALL %s", SampleCall::callID(i).c_str());
            redisAppendCommand(pReader.get(), "LRANGE %s:log 0 -1", SampleCall::callID(i).c_str());
        }
        for (std::uint64_t i = ullBegin; i < 2 * ullEnd - ullBegin; ++i)
        {
            void* pReply = nullptr;
            if (redisGetReply(pReader.get(), &pReply) != REDIS_OK)
                throw std::runtime_error("the server has gone");
            const auto* const pElements = static_cast<const redisReply*>(pReply);
            // Names and values; with their time stamps, twice as many.
            const std::size_t uOfEach = m_eUpdate == ERedisUpdate::script ? 4 : 2;
            if (pElements->elements == uOfEach * SampleCall::cProperties)
                noteArrival(m_board, {0, 0});
            freeReplyObject(pReply);
        }
    }
}

void CRedisContender::subscribe()
{
    void* pReply = nullptr;
    while (redisGetReply(m_pConnection.get(), &pReply) == REDIS_OK)
    {
        const auto* const pMessage = static_cast<const redisReply*>(pReply);
        if (pMessage->elements == 3 && pMessage->element[2]->str != nullptr)
            noteArrival(m_board, CUpdateMark::read(reinterpret_cast<const unsigned char*>(pMessage->element[2]->str)));
        freeReplyObject(pReply);
    }
}

std::uint64_t CRedisContender::bytesInUse() const
{
    const std::string sInfo = info(m_nPort, "memory");
    const std::string sKey = "used_memory_dataset:";
    const auto uAt = sInfo.find(sKey);
    return uAt != std::string::npos ? std::stoull(sInfo.substr(uAt + sKey.size())) : 0;
}
