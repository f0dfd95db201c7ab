#pragma once

#include "CDSTimestamp.h"

#include <string>
#include <vector>

/// One value for a call's record.
struct CCallChange
{
    bool bLogEntry; ///< an entry appended to a log; otherwise a property that is set
    std::string sName;
    std::string sValue; ///< UTF-8 text and one zero byte
    CCDSTimestamp tsStamp;
};

/// Takes what the call mapper makes of the signalling.
///
/// For each record: onCallBegin, then any number of onCallUpdate, then at most once onCallEnd, after which nothing
/// comes for that record unless it begins again. All on the thread that feeds the mapper.
class CCallSink
{
public:
    /// @return false when the record had ended and shall not begin again: nothing comes for it then
    [[nodiscard]] virtual bool onCallBegin(const std::string& sRecordID) = 0;
    /// What one message changed; never empty.
    virtual void onCallUpdate(const std::string& sRecordID, const std::vector<CCallChange>& vecChanges) = 0;
    virtual void onCallEnd(const std::string& sRecordID) = 0;

protected:
    ~CCallSink() = default;
};
