#pragma once

#include "capture/Endpoint.h"
#include "sip/SipMessage.h"

#include <cstddef>
#include <set>
#include <string>

/// Where a request was first seen, and the Via branches it had there: a response with one of them returns to it.
///
/// A sender that gets no reply tries the next server with the same request under a new branch. What comes from the same
/// place for another target is no such try but the fork of a server.
///
/// Bounded: tries beyond cMaxBranches are left out.
class CRequestOrigin
{
public:
    static constexpr std::size_t cMaxBranches = 8;

    /// Takes a sighting of the request, on any hop.
    void note(const CSipMessage& request, const CEndpoint& source)
    {
        if (m_setBranches.empty())
        {
            m_source = source;
            m_sTarget = request.requestUri.sText;
        }
        if (m_source == source && m_sTarget == request.requestUri.sText && m_setBranches.size() < cMaxBranches)
            m_setBranches.insert(request.sBranch);
    }

    bool hasBranch(const std::string& sBranch) const { return m_setBranches.contains(sBranch); }

private:
    CEndpoint m_source;
    std::string m_sTarget;
    std::set<std::string> m_setBranches;
};
