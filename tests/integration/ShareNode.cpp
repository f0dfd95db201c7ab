// A server for tests: a store on the real support library, driven by lines of standard input. It uses what every host
// has and nothing else, so that one built for another word size is driven alike.
//
//   ShareNode <directory> <address>
//
// The directory holds the configuration cds.toml and gets the logs. Fields of lines are escaped as in RecordLines.
//
//   follow <owner> <call>          registers for a call: "followed", then a line for each change
//   leave <call>                   takes that back: "left", at once and without waiting for the owner
//   update <record>                "updated <code>"
//   set <call> <name> <value>      a property, stamped by the store: "updated <code>"
//   append <call> <log> <value>    an entry, likewise
//   record <call>                  "record <record>", without a record when there is none
//   cdr <destination> <record>     hands on a finished call's record: "sent <code>"
//   connect <server>               asks it for its time, and so connects to it: "connected"
//   flush                          "flushed", when all lines of the logs are with the system
//
// What happens by itself: "change <record>", "arrived <call>" and "departed <call>" when a server registers for a call
// and when its registration ends (of calls that begin with "sip:", the others are not told), "finished <record>" for a
// finished call's record.

#include "CDSAPI.h"
#include "CDSSupport.h"
#include "share/RecordLines.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <arpa/inet.h>

namespace {

constexpr unsigned long cTraceID = 7;

void tell(const std::string& sKind, const std::string& sField)
{
    static std::mutex s_mtx;
    const std::lock_guard guard(s_mtx);
    std::cout << sKind << ' ' << RecordLines::escaped(sField) << std::endl;
}

std::string textOf(CCallbackMsg& message)
{
    std::string sText;
    (void)message.getCallbackData()->serialize(&sText); // without memory an empty record is told
    return sText;
}

long onChange(CCallbackMsg* pMessage)
{
    tell("change", textOf(*pMessage));
    return 0;
}

std::string& recordAskedFor()
{
    static std::string s_sRecord;
    return s_sRecord;
}

long onRecord(CCallbackMsg* pMessage)
{
    if (pMessage->getCallbackReason() == ccbr_calldata)
        recordAskedFor() = textOf(*pMessage);
    return 0;
}

long onNotice(CCallbackMsg* pMessage)
{
    const auto* const pNotice = dynamic_cast<const CRegistrationData*>(pMessage->getCallbackData());
    if (pNotice == nullptr)
        return 0; // a change: it comes with the notices
    std::string sCallID;
    bool bRegister = false;
    (void)pNotice->getCallID(&sCallID); // always 0, here and below
    (void)pNotice->getRegister(&bRegister);
    if (sCallID.starts_with("sip:"))
        tell(bRegister ? "arrived" : "departed", sCallID);
    return 0;
}

long onFinished(CCallbackMsg* pMessage)
{
    const std::unique_ptr<CCallbackMsg> pOwned(pMessage);
    const std::unique_ptr<CCallbackData> pData(pMessage->getCallbackData());
    tell("finished", textOf(*pMessage));
    return 0;
}

unsigned char* bytesOf(std::string& sValue)
{
    return reinterpret_cast<unsigned char*>(sValue.data());
}

std::string codeOf(long lResult)
{
    char szCode[16] = "";
    (void)std::snprintf(szCode, sizeof szCode, "0x%08X", static_cast<unsigned>(lResult));
    return szCode;
}

class CNode
{
public:
    explicit CNode(std::string sAddress) : m_sAddress(std::move(sAddress)) {}
    ~CNode() { (void)m_store.Finalize(); } // always 0
    CNode(const CNode&) = delete;
    CNode& operator=(const CNode&) = delete;

    bool start()
    {
        m_store.SetCDRDataCallBack(onFinished);
        return m_store.Register(0, "writer", m_sAddress, "*", "none", nullptr, cTraceID) >= 0 &&
               m_store.Register(0, "reader", m_sAddress, "*", "none", onRecord, cTraceID) >= 0 &&
               m_store.Register(0, "notices", m_sAddress, "*", "@", onNotice, cTraceID) >= 0 &&
               m_store.Initialize(m_sAddress, 0) >= 0;
    }

    /// @return false for a line that is no command
    bool obey(std::vector<std::string> vec)
    {
        vec.resize(4);
        const std::string& sCommand = vec[0];
        if (sCommand == "follow")
            tell("followed", codeOf(m_store.Register(0, "follow " + vec[2], vec[1], vec[2], "*", onChange, cTraceID)));
        else if (sCommand == "leave")
            tell("left", codeOf(m_store.Unregister("follow " + vec[1])));
        else if (sCommand == "update")
        {
            CCallData record(vec[1], false);
            tell("updated", codeOf(m_store.Update("writer", &record, false)));
        }
        else if (sCommand == "set" || sCommand == "append")
        {
            CCallData change(&m_store, vec[1]);
            const auto nLength = static_cast<int>(vec[3].size());
            const long lResult = sCommand == "set" ? change.setProperty(vec[2], bytesOf(vec[3]), nLength)
                                                   : change.appendLogEntry(vec[2], bytesOf(vec[3]), nLength);
            tell("updated", codeOf(lResult < 0 ? lResult : m_store.Update("writer", &change, false)));
        }
        else if (sCommand == "record")
        {
            recordAskedFor().clear();
            (void)m_store.GetCallData("reader", vec[1]); // a call without data leaves the text empty
            tell("record", recordAskedFor());
        }
        else if (sCommand == "cdr")
        {
            CCallData record(vec[2], false);
            std::string sCallID;
            (void)record.getCallID(&sCallID); // always 0
            tell("sent", codeOf(m_store.SendCDRDataToHQ(vec[1], sCallID, &record)));
        }
        else if (sCommand == "connect")
        {
            in_addr address{};
            (void)inet_pton(AF_INET, vec[1].c_str(), &address);      // a server that is none is not connected to
            (void)m_store.GetServerTickCount(ntohl(address.s_addr)); // whatever it is
            tell("connected", "");
        }
        else if (sCommand == "flush")
        {
            CDSSupport::flushLogs();
            tell("flushed", "");
        }
        else
            return false;
        return true;
    }

private:
    const std::string m_sAddress;
    CCDSAPI m_store;
};

} // namespace

int main(int nArguments, char** ppszArguments)
{
    if (nArguments != 3)
        return 2;
    const std::string sDirectory = ppszArguments[1];
    CDSSupport::setLogDirectory(sDirectory);
    std::string sError;
    if (CDSSupport::setConfigurationFile(sDirectory + "/cds.toml", &sError) < 0)
    {
        std::cerr << sError << '\n';
        return 1;
    }
    CCDSAPI::initLogger();
    const auto pNode = std::make_unique<CNode>(ppszArguments[2]);
    if (!pNode->start())
        return 1;
    tell("started", "");
    for (std::string sLine; std::getline(std::cin, sLine);)
    {
        try
        {
            if (!pNode->obey(RecordLines::fields(sLine)))
                return 2;
        }
        catch (unsigned long) // a record that is none
        {
            return 2;
        }
    }
    return 0;
}
