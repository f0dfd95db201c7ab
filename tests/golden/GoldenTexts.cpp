#include "GoldenTexts.h"

#include "CDSCallbackMsg.h"
#include "CDSParams.h"
#include "ModelSupport.h"

#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace model {
namespace {

constexpr long cLeast = -2147483647L - 1;
constexpr unsigned long long cLargest64 = std::numeric_limits<unsigned long long>::max();
constexpr unsigned long long cSomeTime = 128806167670890000ULL; // 2009-03-04 05:06:07.089

std::string allBytes()
{
    std::string sAll;
    for (int i = 0; i < 256; ++i)
        sAll += static_cast<char>(static_cast<unsigned char>(i));
    return sAll;
}

template <class TFill> std::function<std::string()> list(const TFill& fill)
{
    return [fill] {
        CParamsX params;
        fill(params);
        return params.paramList();
    };
}

template <class TFill> std::function<std::string()> record(const char* pszCallID, const TFill& fill)
{
    return [pszCallID, fill] {
        CCallData data(pszCallID);
        fill(data);
        return serialized(data);
    };
}

std::function<std::string()> stamp(unsigned long long ullValue, long lIncrement)
{
    return [=] {
        std::string sText;
        (void)at(ullValue, lIncrement).serialize(&sText);
        return sText;
    };
}

std::function<std::string()> registration(const std::string& sRegID, const std::string& sAddr,
                                          const std::string& sCallID, bool bRegister, const CCDSTimestamp& tsUpdate)
{
    return [=] {
        CRegistrationData data(sRegID, sAddr, sCallID, bRegister, tsUpdate);
        return serialized(data);
    };
}

std::string messageText(CDSCALLBACKREASON eReason, CCallbackData* pData, unsigned long ulTraceID)
{
    std::string sText;
    CCallbackMsg msg(4711UL, "6f2c9d0e-5b1a-4c3d-8e7f-001122334455", eReason, pData, ulTraceID, "10.0.0.1");
    (void)msg.serialize(&sText);
    return sText;
}

void addScalars(CParamsX& params)
{
    for (const long lValue : {0L, 1L, -1L, 42L, 2147483647L, cLeast})
        params.addParam(lValue);
    for (const unsigned long ulValue : {0UL, 7UL, 2147483648UL, 0xC0A80001UL, 4294967295UL})
        params.addParam(ulValue);
    for (const unsigned long long ullValue : {0ULL, 4294967296ULL, cSomeTime, cLargest64})
        params.addParam(ullValue);
    for (const int nValue : {0, 1, -7})
        params.addParam(nValue);
    for (const unsigned long ulCode : {0UL, 1UL, 0x80004005UL, 0xC1170A2EUL})
        params.addResult(cdsResult(ulCode));
}

void addTexts(CParamsX& params)
{
    for (const std::string& sText : {std::string(), std::string("abc"), std::string("1;2;3"), std::string("2;42;3;abc"),
                                     std::string("line\nline\ttab\r"), allBytes()})
        (void)params.addParam(sText, 3.14F);
}

void addBlobs(CParamsX& params)
{
    for (const std::string& sBytes : {std::string(), std::string(1, '\0'), bytes({0x01, 0xAB}), allBytes()})
    {
        const CValue value(sBytes);
        params.addParam(value.data(), value.length());
    }
}

void addCall(CCallData& data)
{
    put(data, CDSPROP_CALLERID, std::string("+4989123456") + '\0', at(cSomeTime));
    put(data, CDSPROP_CALLERID_NAME, std::string("J\xC3\xBCrgen M.") + '\0', at(cSomeTime));
    put(data, CDSPROP_CALLEDID, std::string("200") + '\0', at(cSomeTime));
    put(data, CDSPROP_CALL_ORIGINATOR_IP, std::string("10.0.0.7") + '\0', at(cSomeTime));
    put(data, CDSPROP_L_CONNECTEDID, std::string("201") + '\0', at(cSomeTime + 20'000'000));
    add(data, CDSLOG_TUPLE_ROUTING_ENTRY, std::string("sip:200@pbx;10.0.0.2:5060;-") + '\0', at(cSomeTime));
    add(data, CDSLOG_TUPLE_ROUTING_ENTRY, std::string("sip:200@pbx;10.0.0.2:5060;200") + '\0',
        at(cSomeTime + 20'000'000));
    add(data, CDSLOG_CONNECT_ENTRY, std::string("answered;201;a1b2") + '\0', at(cSomeTime + 20'000'000));
    add(data, CDSLOG_MEDIASTREAM_ENTRY, std::string("audio;10.0.0.7:4000>10.0.0.2:4002;PCMA/8000;sendrecv") + '\0',
        at(cSomeTime + 20'000'000, 1));
    add(data, CDSLOG_DISCONNECT_ENTRY, std::string("caller;200;OK") + '\0', at(cSomeTime + 900'000'000));
}

void addLateEntries(CCallData& data)
{
    for (const unsigned long long ullStamp : {30ULL, 10ULL, 20ULL})
        add(data, "L", std::to_string(ullStamp), at(ullStamp));
    add(data, "L", "dropped", at(30));
}

void addEdges(CCallData& data)
{
    put(data, "", "no name", at(1));
    put(data, "EMPTY", "", at(0));
    put(data, "ALL BYTES", allBytes(), at(cLargest64, 2147483647L));
    put(data, "a;b;1;c", "3;abc", at(cLargest64, cLeast));
    put(data, "\xC3\xA4", "\xFF", at(0x8000000000000000ULL, -1));
    add(data, "", "", at(0));
    add(data, "LOG", "", at(cLargest64, cLeast));
    add(data, "LOG", "", at(cLargest64, -1));
    add(data, "LOG", "", at(0));
}

void addMany(CCallData& data)
{
    for (int i = 0; i < 120; ++i)
    {
        put(data, "P" + std::to_string(i), std::string(static_cast<std::size_t>(i), 'x'), at(static_cast<unsigned>(i)));
        add(data, "LOG" + std::to_string(i % 7), std::to_string(i), at(static_cast<unsigned>(1000 - i)));
    }
}

std::vector<SGolden> makeGoldenTexts()
{
    using enum EGolden;
    std::vector<SGolden> vecTexts{
        {"list-empty", List, list([](CParamsX&) {})},
        {"list-scalars", List, list(addScalars)},
        {"list-texts", List, list(addTexts)},
        {"list-blobs", List, list(addBlobs)},
        {"list-header", List, list([](CParamsX& params) {
             params.addHeader("HDR");
             addScalars(params);
         })},
        {"list-header-only", List, list([](CParamsX& params) { params.addHeader("HDR"); })},
        {"list-appended", List, list([](CParamsX& params) {
             CParamsX other;
             addTexts(other);
             params.addParam(42L);
             params.append(other.paramListRef());
         })},
        {"list-nested", List, list([](CParamsX& params) {
             std::string sText = "innermost";
             for (int i = 0; i < 12; ++i)
             {
                 CParamsX outer;
                 (void)outer.addParam(sText, 3.14F);
                 sText = outer.paramList();
             }
             (void)params.addParam(sText, 3.14F);
         })},
        {"stamp-zero", Stamp, stamp(0, 0)},
        {"stamp-some", Stamp, stamp(cSomeTime, 2)},
        {"stamp-largest", Stamp, stamp(cLargest64, 2147483647L)},
        {"stamp-least-increment", Stamp, stamp(0, cLeast)},
        {"record-empty", Record, record("C1", [](CCallData&) {})},
        {"record-nameless", Record, record("", [](CCallData&) {})},
        {"record-one-property", Record,
         record("C1", [](CCallData& data) { put(data, "CALLERID", "415", at(100, 2)); })},
        {"record-one-entry", Record, record("C1", [](CCallData& data) { add(data, "LOGN", "\xAB", at(7)); })},
        {"record-call", Record, record("sip:3848276298220188511@10.0.0.7", addCall)},
        {"record-late-entries", Record, record("C1", addLateEntries)},
        {"record-edges", Record, record("*;\n1;", addEdges)},
        {"record-many", Record, record("C1", addMany)},
        {"registration-arrival", Registration, registration("R1", "ADDR", "C7", true, at(0))},
        {"registration-departure", Registration, registration("R1", "ADDR", "C7", false, at(cSomeTime, 2))},
        {"registration-empty", Registration, registration("", "", "", false, at(0))},
        {"registration-edges", Registration, registration("a;b", allBytes(), "*", true, at(cLargest64, -1))},
        {"message-registration", Message,
         [] {
             CRegistrationData data("R1", "ADDR", "C7", true, at(0));
             return messageText(ccbr_registration, &data, 5UL);
         }},
        {"message-call", Message,
         [] {
             CCallData data("sip:3848276298220188511@10.0.0.7");
             addCall(data);
             return messageText(ccbr_calldata, &data, 0xFFFFFFFFUL);
         }},
        {"message-cdr", Message,
         [] {
             CCallData data("C1");
             addEdges(data);
             return messageText(ccbr_cdrcalldata, &data, 0x80000000UL);
         }},
        {"message-empty-call", Message,
         [] {
             CCallData data("");
             return messageText(ccbr_calldata, &data, 0UL);
         }},
    };
    return vecTexts;
}

} // namespace

const std::vector<SGolden>& goldenTexts()
{
    static const std::vector<SGolden> s_vecTexts = makeGoldenTexts();
    return s_vecTexts;
}

std::string writtenAgain(EGolden eKind, const std::string& sText)
{
    switch (eKind)
    {
    case EGolden::List:
    {
        const CParamsX read(sText);
        CParamsX again;
        again.addHeader(read.getHeader());
        for (int i = 0; i < read.count(); ++i)
            (void)again.addParam(read.getStringParamAt(i), 3.14F);
        return again.paramList();
    }
    case EGolden::Stamp:
    {
        CCDSTimestamp tsStamp(77, 77);
        (void)tsStamp.deserialize(sText);
        std::string sAgain;
        (void)tsStamp.serialize(&sAgain);
        return sAgain;
    }
    case EGolden::Record:
    {
        CCallData data(sText, true);
        return serialized(data);
    }
    case EGolden::Registration:
    {
        CRegistrationData data(sText);
        return serialized(data);
    }
    case EGolden::Message:
    {
        CCallbackMsg msg(1UL, sText);
        const std::unique_ptr<CCallbackData> pPayload(msg.getCallbackData());
        std::string sAgain;
        (void)msg.serialize(&sAgain);
        return sAgain;
    }
    }
    return {};
}

std::filesystem::path goldenDirectory()
{
    return std::filesystem::path(CDS_TEST_DATA) / "golden";
}

std::filesystem::path goldenFile(const SGolden& golden)
{
    return goldenDirectory() / (std::string(golden.pszName) + ".txt");
}

bool readGolden(const SGolden& golden, std::string* psText)
{
    std::ifstream file(goldenFile(golden), std::ios::binary);
    psText->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return file.is_open();
}

void regenerateGolden()
{
    std::filesystem::create_directories(goldenDirectory());
    for (const SGolden& golden : goldenTexts())
    {
        std::ofstream file(goldenFile(golden), std::ios::binary | std::ios::trunc);
        file << golden.fnMake();
        if (!file.flush())
            throw std::runtime_error("cannot write " + goldenFile(golden).string());
    }
}

} // namespace model
