#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// A capture file cut in two, as files of its own that are gone when this is.
class CCutCapture
{
public:
    /// @param sPath           pcap, as written by a machine of the same byte order
    /// @param dPart           how much of its packets comes into the first file
    /// @param dwLaterSeconds  by how much the second file's clock is ahead
    CCutCapture(const std::string& sPath, double dPart, std::uint32_t dwLaterSeconds = 0);
    ~CCutCapture();
    CCutCapture(const CCutCapture&) = delete;
    CCutCapture& operator=(const CCutCapture&) = delete;

    const std::vector<std::string>& paths() const { return m_vecPaths; }

private:
    std::string m_sFolder;
    std::vector<std::string> m_vecPaths;
};
