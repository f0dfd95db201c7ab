#include "CutCapture.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

constexpr std::size_t cFileHeader = 24;
constexpr std::size_t cPacketHeader = 16;

/// Where packets begin, and the end.
std::vector<std::size_t> packetsOf(const std::string& sFile)
{
    std::vector<std::size_t> vecAt = {cFileHeader};
    while (vecAt.back() + cPacketHeader <= sFile.size())
    {
        std::uint32_t dwSize = 0;
        std::memcpy(&dwSize, sFile.data() + vecAt.back() + 8, sizeof dwSize);
        vecAt.push_back(vecAt.back() + cPacketHeader + dwSize);
    }
    return vecAt;
}

} // namespace

CCutCapture::CCutCapture(const std::string& sPath, double dPart, std::uint32_t dwLaterSeconds)
{
    m_sFolder = testing::TempDir() + "cut-capture-XXXXXX";
    EXPECT_NE(mkdtemp(m_sFolder.data()), nullptr);
    m_vecPaths = {m_sFolder + "/first.pcap", m_sFolder + "/second.pcap"};
    std::ifstream file(sPath, std::ios::binary);
    std::string sFile((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto vecAt = packetsOf(sFile);
    const auto uCut = static_cast<std::size_t>(static_cast<double>(vecAt.size()) * dPart);
    for (std::size_t u = uCut; u + 1 < vecAt.size(); ++u)
    {
        std::uint32_t dwSeconds = 0;
        std::memcpy(&dwSeconds, sFile.data() + vecAt[u], sizeof dwSeconds);
        dwSeconds += dwLaterSeconds;
        std::memcpy(sFile.data() + vecAt[u], &dwSeconds, sizeof dwSeconds);
    }
    std::ofstream(m_vecPaths[0], std::ios::binary) << sFile.substr(0, vecAt[uCut]);
    std::ofstream(m_vecPaths[1], std::ios::binary) << sFile.substr(0, cFileHeader) << sFile.substr(vecAt[uCut]);
}

CCutCapture::~CCutCapture()
{
    std::error_code ignored; // a directory left behind in the temporary one harms nobody
    std::filesystem::remove_all(m_sFolder, ignored);
}
