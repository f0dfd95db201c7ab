#pragma once

#include "CDSAPI.h"
#include "ModelSupport.h"

#include <string>
#include <vector>

namespace model {

/// A store as far as a record needs one.
class CFakeOwner : public CBaseCDSAPI
{
public:
    long Initialize(const std::string&, unsigned long) override { return 0; }
    long Finalize() override { return 0; }
    long Register(unsigned long, const std::string&, const std::string&, const std::string&, const std::string&,
                  long (*)(CCallbackMsg*), unsigned long) override
    {
        return 0;
    }
    long Unregister(const std::string&) override { return 0; }
    long Update(const std::string&, CCallData*, bool) override { return 0; }
    unsigned long long GetCallIDTimestamp(const std::string&) override { return 0; }
    long GetCallIDCDSTimestamp(const std::string& sCallID, CCDSTimestamp* ptsStamp) override
    {
        m_vecAsked.push_back({sCallID, {}, *ptsStamp});
        for (const std::string& sLock : CFakeLocks::heldByThisThread())
            m_vecLocks.push_back(sLock);
        *ptsStamp = m_tsAnswer;
        return m_lAnswer;
    }
    unsigned long GetServerTickCount(unsigned long) override { return 0; }
    unsigned long long GetServerTimestamp(unsigned long) override { return 0; }

    std::vector<SItem> m_vecAsked;       // call ID, and the stamp as it came
    std::vector<std::string> m_vecLocks; // held by who asked, while locks are recorded
    CCDSTimestamp m_tsAnswer{4711, 3};
    long m_lAnswer = 0;
};

} // namespace model
