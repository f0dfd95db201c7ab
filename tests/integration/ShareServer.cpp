#include "ShareServer.h"

#include "share/RecordLines.h"

#include <algorithm>
#include <sstream>

CShareServer::CShareServer(const std::string& sProgram, std::string sAddress, std::uint16_t wPort,
                           const std::string& sSettings)
    : m_sAddress(std::move(sAddress))
{
    m_directory.write("cds.toml", "Orvane.CDS.Messaging.LocalAddress = \"" + m_sAddress +
                                      "\"\nOrvane.CDS.Messaging.Port = " + std::to_string(wPort) + '\n' + sSettings);
    m_optProgram.emplace(std::vector<std::string>{sProgram, m_directory.path(), m_sAddress});
    m_thread = std::thread(&CShareServer::read, this);
    if (!hears("started"))
    {
        m_optProgram->kill();
        m_thread.join();
        throw std::runtime_error("a server does not start: " + sProgram);
    }
}

CShareServer::~CShareServer()
{
    m_optProgram->kill();
    m_thread.join();
}

void CShareServer::read()
{
    for (std::string sLine; m_optProgram->readLine(&sLine);)
    {
        auto vecFields = RecordLines::fields(sLine);
        vecFields.resize(2);
        {
            const std::lock_guard lock(m_mtx);
            m_lstLines.emplace_back(vecFields[0], vecFields[1]);
        }
        m_cv.notify_all();
    }
    {
        const std::lock_guard lock(m_mtx);
        m_bEnded = true;
    }
    m_cv.notify_all();
}

void CShareServer::tell(std::initializer_list<std::string> fields)
{
    std::string sLine;
    for (const std::string& sField : fields)
        sLine += (sLine.empty() ? "" : " ") + RecordLines::escaped(sField);
    m_optProgram->writeLine(sLine);
}

std::optional<std::string> CShareServer::hears(const std::string& sKind, std::chrono::milliseconds patience)
{
    const auto found = [&] {
        return std::find_if(m_lstLines.begin(), m_lstLines.end(),
                            [&](const auto& line) { return line.first == sKind; });
    };
    std::unique_lock lock(m_mtx);
    m_cv.wait_for(lock, patience, [&] { return m_bEnded || found() != m_lstLines.end(); });
    const auto it = found();
    if (it == m_lstLines.end())
        return std::nullopt;
    std::string sField = std::move(it->second);
    m_lstLines.erase(it);
    return sField;
}

std::optional<std::string> CShareServer::asks(std::initializer_list<std::string> fields, const std::string& sKind)
{
    tell(fields);
    return hears(sKind);
}

bool CShareServer::lives() const
{
    return ::kill(m_optProgram->pid(), 0) == 0;
}

long CShareServer::residentKB() const
{
    std::ifstream status("/proc/" + std::to_string(m_optProgram->pid()) + "/status");
    for (std::string sLine; std::getline(status, sLine);)
        if (sLine.starts_with("VmRSS:"))
            return std::stol(sLine.substr(6));
    return 0;
}

std::uintmax_t CShareServer::logBytes(const std::string& sName)
{
    if (!asks({"flush"}, "flushed"))
        throw std::runtime_error("a server does not answer");
    std::uintmax_t uBytes = 0;
    for (const auto& file : std::filesystem::directory_iterator(m_directory.path()))
        if (file.path().filename().string().starts_with(sName))
            uBytes += file.file_size();
    return uBytes;
}

bool CShareServer::awaitLog(const std::string& sText, std::chrono::milliseconds patience)
{
    const auto tpDeadline = std::chrono::steady_clock::now() + patience;
    do
    {
        if (asks({"flush"}, "flushed") && log("OvnCDS.log").find(sText) != std::string::npos)
            return true;
    }
    while (std::chrono::steady_clock::now() < tpDeadline);
    return false;
}

std::string ownNet()
{
    const auto uID = static_cast<unsigned>(getpid());
    return "127." + std::to_string(64 + uID / 256 % 128) + '.' + std::to_string(uID % 256) + '.';
}
