#pragma once

#include "CDSNames.h"
#include "calls/CallMapper.h"
#include "calls/RecordBook.h"

#include <map>
#include <string>
#include <vector>

/// A call told message by message:
///
///     CCallStory story;
///     story.say("A>P INVITE branch=a1");
///     story.after(0.1).say("P>B INVITE branch=p1");
///     story.say("B>P 486 Busy Here branch=p1 ttag=b");
///
/// A line is who tells whom (A is 10.0.0.1:5060, B 10.0.0.2:5060, ...; P 10.0.0.16), a method or a code with its
/// reason, and what differs from an INVITE transaction of the call "c1" from alice to bob: call, cseq, method (of a
/// response), branch, ftag, ttag, uri, from, to. Two letters as in "A2" add 2 to the port. Further header fields and a
/// body follow.
class CCallStory
{
public:
    explicit CCallStory(CCallMapperSettings settings = {}) : m_mapper(m_sink, m_counts, settings) {}

    /// Lets time pass before the next message.
    CCallStory& after(double dSeconds)
    {
        m_llNow += static_cast<std::int64_t>(dSeconds * 1e6);
        return *this;
    }

    /// Lets time pass in silence. The two messages that follow belong to no call: the second bears the first's time
    /// out.
    CCallStory& silence(double dSeconds)
    {
        after(dSeconds).say("A>P OPTIONS call=none");
        say("A>P OPTIONS call=none");
        return *this;
    }

    void say(const std::string& sLine, const std::vector<std::string>& vecFields = {}, const std::string& sSdp = "");

    /// The record of a call.
    const CCallRecord& record(const std::string& sCallID = "c1") const { return m_sink.records().at("sip:" + sCallID); }
    std::string property(const std::string& sName, const std::string& sCallID = "c1") const
    {
        return record(sCallID).property(sName);
    }
    std::vector<std::string> entries(const std::string& sName, const std::string& sCallID = "c1") const
    {
        return record(sCallID).entries(sName);
    }
    std::vector<std::string> connects() const { return entries(CDSLOG_CONNECT_ENTRY); }
    std::vector<std::string> disconnects() const { return entries(CDSLOG_DISCONNECT_ENTRY); }
    std::vector<std::string> routes() const { return entries(CDSLOG_TUPLE_ROUTING_ENTRY); }
    std::vector<std::string> media() const { return entries(CDSLOG_MEDIASTREAM_ENTRY); }

    /// An ordinary call from A to B through P, answered; a story of its own goes on from there.
    void answer();

    CCallMapper& mapper() { return m_mapper; }
    const CRecordBookSink& sink() const { return m_sink; }
    const CIntakeCounts& counts() const { return m_counts; }
    std::int64_t now() const { return m_llNow; }

private:
    CRecordBookSink m_sink;
    CIntakeCounts m_counts;
    CCallMapper m_mapper;
    std::int64_t m_llNow = 1'795'219'810'000'000;
};

/// A session description with one audio line.
std::string audio(const std::string& sAddress, int nPort, const std::string& sAttribute = "sendrecv");
