#pragma once

#include "CDSTimestamp.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A value with its time stamp.
struct CBareValue
{
    std::vector<unsigned char> vecBytes;
    CCDSTimestamp tsStamp{0, 0};
};

/// A call's data as the standard library's containers hold it.
struct CBareRecord
{
    std::map<std::string, CBareValue> mapProperties;
    std::map<std::string, std::map<CCDSTimestamp, std::vector<unsigned char>>> mapLogs;

    void setProperty(const std::string& sName, const unsigned char* pData, int nLength, const CCDSTimestamp& tsStamp);
    void appendLogEntry(const std::string& sName, const unsigned char* pData, int nLength,
                        const CCDSTimestamp& tsStamp);
};

/// Called with what changed.
using CBareCallback = void (*)(const std::string& sCallID, const CBareRecord& change);

/// The limit that the store is measured against: what one would write for one program's own use, doing the same work on
/// the data and nothing else. It copies what comes in, keeps the later value of two, works out what is new and tells
/// those who asked. It has no lock, no log, no text form, no names for its registrants, and its records can be used
/// from one thread alone.
class CBareStore
{
public:
    /// A registrant of one call.
    void watch(const std::string& sCallID, CBareCallback pfnCallback);
    /// A registrant of all calls.
    void watchAll(CBareCallback pfnCallback);

    void update(const std::string& sCallID, const CBareRecord& incoming);

private:
    struct CCall
    {
        CBareRecord record;
        std::vector<CBareCallback> vecWatchers;
    };

    std::map<std::string, CCall> m_mapCalls;
    std::vector<CBareCallback> m_vecWatchers; // of all calls
};

/// Puts the sample call's update into a record, as the store's records get it.
void fillBare(CBareRecord& record, std::uint64_t ullUpdate);
