#pragma once

#include "cdr/CdrDatabase.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <thread>

namespace pqxx {
class connection_base;
class nontransaction;
} // namespace pqxx

/// CDRs in a PostgreSQL database. A lost connection is made anew by the next write.
class CPostgresCdrDatabase final : public CCdrDatabase
{
public:
    explicit CPostgresCdrDatabase(std::string sUrl);
    ~CPostgresCdrDatabase() override;
    CPostgresCdrDatabase(const CPostgresCdrDatabase&) = delete;
    CPostgresCdrDatabase& operator=(const CPostgresCdrDatabase&) = delete;

    /// @return false when it cannot be used
    [[nodiscard]] bool open(ECdrOpen eOpen, std::string* psError);

    [[nodiscard]] ECdrWrite write(const CCdrRow& row, std::string* psError) override;
    [[nodiscard]] bool list(std::size_t uLimit, CCdrListing* pListing, std::string* psError) override;

private:
    using CClock = std::chrono::steady_clock;

    /// Ends a wait for a server that neither answers nor closes: the client library would wait for ever.
    class CWaitLimit
    {
    public:
        CWaitLimit();
        ~CWaitLimit();
        CWaitLimit(const CWaitLimit&) = delete;
        CWaitLimit& operator=(const CWaitLimit&) = delete;

        void begin(int nSocket);
        void end();

    private:
        void watch();

        std::mutex m_mutex;
        std::condition_variable m_changed;
        std::optional<CClock::time_point> m_tpLimit; // guarded by m_mutex, as the rest; set while a wait lasts
        int m_nSocket = -1;
        bool m_bStop = false;
        std::thread m_thread;
    };

    template <class TWork> bool guarded(const TWork& fnWork, std::string* psError);
    void connect();
    void prepare();
    bool migrate(std::string* psError);
    static int readVersion(pqxx::nontransaction& work);
    ECdrWrite insert(const CCdrRow& row);

    const std::string m_sUrl;
    std::shared_ptr<pqxx::connection_base> m_pConnection; // null: to be made; knows how its own kind is freed
    bool m_bReady = false;                                // schema looked at, statements prepared
    CWaitLimit m_limit;
    CClock::time_point m_tpRetry{}; // no connection is tried before
    std::chrono::seconds m_pause{0};
    std::string m_sLastComplaint;
};
