// Which call a transfer made.
#include "calls/TransferWatch.h"

#include <algorithm>

CTransferWatch::CLink CTransferWatch::onRefer(const CSipMessage& refer, const CIpAddress& destination,
                                              std::int64_t llMicros)
{
    dropStale(llMicros);
    if (refer.referTo.empty())
        return {};
    auto it = find(refer);
    if (it == m_deqTransfers.end())
    {
        if (m_deqTransfers.size() == cMaxPending)
            m_deqTransfers.pop_front();
        m_deqTransfers.push_back(
            {refer.sCallID, refer.from.sTag, refer.dwCSeq, refer.referTo.identity(), {}, llMicros, 0});
        it = std::prev(m_deqTransfers.end());
    }
    addRecipient(*it, destination);
    return linkTransfer(it);
}

CTransferWatch::CLink CTransferWatch::onReferAnswered(const CSipMessage& response, const CIpAddress& source,
                                                      std::int64_t llMicros)
{
    dropStale(llMicros);
    const auto it = find(response);
    if (it == m_deqTransfers.end() || response.nCode < 200)
        return {};
    if (response.nCode >= 300)
    {
        m_deqTransfers.erase(it);
        return {};
    }
    if (it->llAccepted == 0)
        it->llAccepted = llMicros;
    addRecipient(*it, source);
    return linkTransfer(it);
}

CTransferWatch::CLink CTransferWatch::onNewCall(const CSipMessage& invite, const CIpAddress& source,
                                                std::int64_t llMicros)
{
    dropStale(llMicros);
    if (m_deqCalls.size() == cMaxPending)
        m_deqCalls.pop_front();
    m_deqCalls.push_back({invite.sCallID, invite.requestUri.identity(), invite.to.uri.identity(), source, llMicros});
    for (auto it = m_deqTransfers.begin(); it != m_deqTransfers.end(); ++it)
        if (makes(*it, m_deqCalls.back()))
            return linkTransfer(it);
    return {};
}

void CTransferWatch::addRecipient(CTransfer& transfer, const CIpAddress& address)
{
    if (transfer.setRecipients.size() < cMaxRecipients)
        transfer.setRecipients.insert(address);
}

bool CTransferWatch::makes(const CTransfer& transfer, const CNewCall& call)
{
    return transfer.llAccepted != 0 && call.llMicros >= transfer.llReferred &&
           call.llMicros - transfer.llAccepted <= cFollowMicros && transfer.sCallID != call.sCallID &&
           (transfer.sTarget == call.sTarget || transfer.sTarget == call.sCalled) &&
           transfer.setRecipients.contains(call.origin);
}

CTransferWatch::CLink CTransferWatch::linkTransfer(CTransfers::iterator it)
{
    const auto itCall =
        std::find_if(m_deqCalls.begin(), m_deqCalls.end(), [&](const CNewCall& call) { return makes(*it, call); });
    if (itCall == m_deqCalls.end())
        return {};
    CLink link{it->sCallID, itCall->sCallID};
    m_deqTransfers.erase(it);
    m_deqCalls.erase(itCall);
    return link;
}

void CTransferWatch::dropStale(std::int64_t llMicros)
{
    std::erase_if(m_deqTransfers, [llMicros](const CTransfer& transfer) {
        return transfer.llAccepted != 0 ? llMicros - transfer.llAccepted > cFollowMicros
                                        : llMicros - transfer.llReferred > cAnswerMicros;
    });
    while (!m_deqCalls.empty() && llMicros - m_deqCalls.front().llMicros > cFollowMicros)
        m_deqCalls.pop_front();
}

CTransferWatch::CTransfers::iterator CTransferWatch::find(const CSipMessage& message)
{
    return std::find_if(m_deqTransfers.begin(), m_deqTransfers.end(), [&](const CTransfer& transfer) {
        return transfer.dwCSeq == message.dwCSeq && transfer.sFromTag == message.from.sTag &&
               transfer.sCallID == message.sCallID;
    });
}
