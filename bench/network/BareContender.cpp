#include "BareContender.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace {

/// What waits to be sent together at the most.
constexpr std::size_t cMostWaiting = 64UL * 1024;

constexpr std::size_t cHeadBytes = 2 * sizeof(std::uint64_t); // call, update

sockaddr_in endpoint()
{
    const auto uID = static_cast<std::uint32_t>(getppid());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(27349);
    address.sin_addr.s_addr = htonl(0x7F400001U + ((uID & 0x7FFFU) << 8U));
    return address;
}

int checked(int nResult, const char* pszWhat)
{
    if (nResult < 0)
        throw std::system_error(errno, std::generic_category(), pszWhat);
    return nResult;
}

void sendWithoutDelay(int nSocket)
{
    const int nOn = 1;
    checked(setsockopt(nSocket, IPPROTO_TCP, TCP_NODELAY, &nOn, sizeof nOn), "no delay");
}

CBoard* g_pBoard = nullptr;

void onArrival(const std::string& /*sCallID*/, const CBareRecord& change)
{
    noteArrival(*g_pBoard, CUpdateMark::read(change.mapProperties.at(*SampleCall::propertyNames()[0]).vecBytes.data()));
}

void ignore(const std::string& /*sCallID*/, const CBareRecord& /*change*/) {}

CBareRecord recordOf(const CUpdateMark& mark, std::uint64_t ullUpdate)
{
    CBareRecord record;
    fillBare(record, ullUpdate);
    mark.write(record.mapProperties.at(*SampleCall::propertyNames()[0]).vecBytes.data());
    return record;
}

} // namespace

CBareContender::CBareContender(CBoard& board, const CPlan& plan, std::size_t uMessageBytes)
    : CContender(board, plan), m_uMessageBytes(uMessageBytes), m_vecUpdates(plan.ullCalls)
{
    g_pBoard = &board;
    for (std::uint64_t i = 0; i < plan.ullCalls; ++i)
        m_vecCallIDs.push_back(SampleCall::callID(i));
}

CBareContender::~CBareContender()
{
    if (m_nSocket >= 0)
        (void)shutdown(m_nSocket, SHUT_RDWR); // gone already, at worst
    if (m_receiver.joinable())
        m_receiver.join();
    if (m_nSocket >= 0)
        close(m_nSocket);
}

void CBareContender::startOwner()
{
    const int nListener = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "a socket");
    const int nOn = 1;
    checked(setsockopt(nListener, SOL_SOCKET, SO_REUSEADDR, &nOn, sizeof nOn), "an address");
    const sockaddr_in address = endpoint();
    checked(bind(nListener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "an address");
    checked(listen(nListener, 1), "listening");
    m_board.dwOwnerDone = CBoard::step_start + 1; // the watcher may connect
    m_nSocket = checked(accept(nListener, nullptr, nullptr), "a connection");
    close(nListener);
    sendWithoutDelay(m_nSocket);
    for (const std::string& sCallID : m_vecCallIDs)
        m_store.watch(sCallID, ignore);
}

void CBareContender::update(std::uint64_t ullCall, const CUpdateMark& mark)
{
    const std::uint64_t ullUpdate = m_vecUpdates[ullCall]++;
    const CBareRecord record = recordOf(mark, ullUpdate);
    m_store.update(m_vecCallIDs[ullCall], record);

    // As long as a message of the store; what it holds beyond the numbers is copied, not made.
    const std::size_t uBegin = m_vecOut.size();
    m_vecOut.resize(uBegin + m_uMessageBytes, '.');
    unsigned char* pOut = m_vecOut.data() + uBegin;
    std::memcpy(pOut, &ullCall, sizeof ullCall);
    std::memcpy(pOut + sizeof ullCall, &ullUpdate, sizeof ullUpdate);
    pOut += cHeadBytes;
    for (const auto& [sName, value] : record.mapProperties)
    {
        std::memcpy(pOut, value.vecBytes.data(), value.vecBytes.size());
        pOut += value.vecBytes.size();
    }
    for (const auto& [sName, entries] : record.mapLogs)
        for (const auto& [tsStamp, vecBytes] : entries)
        {
            std::memcpy(pOut, vecBytes.data(), vecBytes.size());
            pOut += vecBytes.size();
        }
    if (m_vecOut.size() >= cMostWaiting)
        flush();
}

void CBareContender::flush()
{
    for (std::size_t uSent = 0; uSent < m_vecOut.size();)
        uSent += static_cast<std::size_t>(
            checked(static_cast<int>(send(m_nSocket, m_vecOut.data() + uSent, m_vecOut.size() - uSent, MSG_NOSIGNAL)),
                    "sending"));
    m_vecOut.clear();
}

void CBareContender::startWatcher()
{
    m_nSocket = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "a socket");
    const sockaddr_in address = endpoint();
    checked(connect(m_nSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), "a connection");
    sendWithoutDelay(m_nSocket);
    // Nobody can be asked for what there is: whatever comes is taken from the beginning.
    for (const std::string& sCallID : m_vecCallIDs)
        m_store.watch(sCallID, onArrival);
    m_receiver = std::thread([this] { receive(); });
}

void CBareContender::watchAll() {}

void CBareContender::receive()
{
    std::vector<unsigned char> vecIn(4 * cMostWaiting);
    std::size_t uHeld = 0;
    for (;;)
    {
        const ssize_t nRead = recv(m_nSocket, vecIn.data() + uHeld, vecIn.size() - uHeld, 0);
        if (nRead <= 0)
            return;
        uHeld += static_cast<std::size_t>(nRead);
        std::size_t uTaken = 0;
        for (; uHeld - uTaken >= m_uMessageBytes; uTaken += m_uMessageBytes)
            take(vecIn.data() + uTaken);
        std::memmove(vecIn.data(), vecIn.data() + uTaken, uHeld - uTaken);
        uHeld -= uTaken;
    }
}

void CBareContender::take(const unsigned char* pFrame)
{
    std::uint64_t ullCall = 0;
    std::uint64_t ullUpdate = 0;
    std::memcpy(&ullCall, pFrame, sizeof ullCall);
    std::memcpy(&ullUpdate, pFrame + sizeof ullCall, sizeof ullUpdate);
    pFrame += cHeadBytes;
    const CCDSTimestamp tsStamp = SampleCall::stamp(ullUpdate);
    CBareRecord record;
    // In the order of their names, as they were written.
    std::array<const std::string*, SampleCall::cProperties> names = SampleCall::propertyNames();
    std::sort(names.begin(), names.end(), [](const auto* psOne, const auto* psOther) { return *psOne < *psOther; });
    for (const std::string* const psName : names)
    {
        record.setProperty(*psName, pFrame, SampleCall::cPropertyBytes, tsStamp);
        pFrame += SampleCall::cPropertyBytes;
    }
    record.appendLogEntry(SampleCall::logName(), pFrame, SampleCall::cEntryBytes, tsStamp);
    m_store.update(m_vecCallIDs[ullCall], record);
}
