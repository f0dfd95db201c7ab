// The frames that docs/wire-format.md shows byte by byte are those that servers send.
//
// They stand in blocks named "wire <name>". A line holds bytes, as two digits or, repeated, as 5A*16, and texts in
// quotes; what follows "#" explains them.

#include "Frame.h"
#include "ProxyStory.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include <gmock/gmock.h>

namespace {

using namespace Messaging;

using CFrames = std::map<std::string, std::string>; // name -> bytes

std::string bytesOfLine(const std::string& sLine)
{
    std::string sBytes;
    for (std::size_t u = 0; u < sLine.size() && sLine[u] != '#';)
    {
        if (sLine[u] == ' ')
            ++u;
        else if (sLine[u] == '"')
        {
            const std::size_t uEnd = sLine.find('"', u + 1);
            sBytes += sLine.substr(u + 1, uEnd - u - 1);
            u = uEnd == std::string::npos ? uEnd : uEnd + 1;
        }
        else
        {
            const auto cByte = static_cast<char>(std::stoul(sLine.substr(u, 2), nullptr, 16));
            u += 2;
            std::size_t uTimes = 1;
            if (u < sLine.size() && sLine[u] == '*')
            {
                std::size_t uDigits = 0;
                uTimes = std::stoul(sLine.substr(u + 1), &uDigits);
                u += 1 + uDigits;
            }
            sBytes.append(uTimes, cByte);
        }
    }
    return sBytes;
}

/// The page's blocks.
CFrames documented()
{
    static const std::string s_sBegin = "```wire ";
    CFrames mapFrames;
    std::ifstream page(CDS_WIRE_FORMAT_PAGE);
    std::string sName;
    for (std::string sLine; std::getline(page, sLine);)
    {
        if (sLine.starts_with(s_sBegin))
        {
            sName = sLine.substr(s_sBegin.size());
            EXPECT_TRUE(mapFrames.emplace(sName, "").second) << sName << " stands there twice";
        }
        else if (sLine == "```")
            sName.clear();
        else if (!sName.empty())
            mapFrames[sName] += bytesOfLine(sLine);
    }
    return mapFrames;
}

/// For people who compare.
std::string printable(const std::string& sBytes)
{
    std::ostringstream out;
    for (const char c : sBytes)
        if (c >= ' ' && c <= '~')
            out << c;
        else
            out << '<' << std::hex << static_cast<unsigned>(static_cast<unsigned char>(c)) << std::dec << '>';
    return out.str();
}

std::uint64_t serviceOf(const CFakeChannels::CCreation& channel)
{
    const auto& [sLess, sGreater] = std::minmax(channel.sChannelID, channel.sPeerChannelID);
    std::uint64_t ullHash = 0xCBF29CE484222325ULL; // FNV-1a
    for (const char c : channel.sService + '\n' + sLess + '\n' + sGreater)
        ullHash = (ullHash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3ULL;
    return ullHash;
}

std::string exchange(EFrame eType, std::uint32_t dwExchange, const std::string& sBody)
{
    std::string sFrame;
    appendExchange(&sFrame, eType, dwExchange, {sBody.data(), sBody.size()});
    return sFrame;
}

std::string greeting(EFrame eType, std::uint64_t ullService, std::uint8_t byteInstance, std::uint32_t dwNumber)
{
    CHello hello;
    hello.ullService = ullService;
    hello.instance.fill(byteInstance);
    hello.dwNumber = dwNumber;
    std::string sFrame;
    appendHello(&sFrame, eType, hello);
    return sFrame;
}

/// What servers send when the page's story happens to them.
CFrames sent()
{
    CFrames mapFrames;
    CProxyWorld world;
    CFakeGuid::script({"b7d0f3a8-0000-4000-8000-000000000001", "6f2c9d0e-5b1a-4c3d-8e7f-001122334455"});
    CServer server;
    server.starts();

    const std::uint64_t ullService = serviceOf(CFakeChannels::creations().front());
    mapFrames["hello"] = greeting(EFrame::hello, ullService, 0x5A, 1);
    mapFrames["welcome"] = greeting(EFrame::welcome, ullService, 0xC3, 4);
    appendPing(&mapFrames["ping"], 1);
    appendPong(&mapFrames["pong"], {1, 0x01DC5B1E00000000ULL, 1'000'000});

    const auto last = [] { return CFakeChannels::sent().back(); };
    const auto request = [&](const char* pszName, std::uint32_t dwExchange) {
        CProxyWorld::settle();
        EXPECT_EQ(CFakeChannels::sent().size(), dwExchange) << pszName;
        mapFrames[pszName] = exchange(EFrame::request, dwExchange, last().sBytes);
        CFakeChannels::confirm(last().ulRequestID);
        CProxyWorld::settle();
    };
    EXPECT_EQ(server.registers("ann", "C1", "10.0.0.2"), 0);
    request("registration", 1);
    EXPECT_EQ(server.updates("ann", CNews("C1").sets("CALLERID", "415", CCDSTimestamp(100, 2))), 0);
    request("call-data", 2);
    CFakeChannels::clientReceives(CMLIB_CLIENT_CONNECTED, "10.0.0.2");
    request("registration-again", 3);
    request("call-data-again", 4);
    EXPECT_EQ(server.unregisters("ann"), 0);
    request("unregistration", 5);
    CNews news("C1");
    news.appends("CONNECT_ENTRY", "yes", CCDSTimestamp(128806167670890000ULL, 0));
    EXPECT_EQ(server.store().SendCDRDataToHQ("10.0.0.2", "C1", news.data()), 0);
    request("finished-call", 6);

    CFakeChannels::request("10.0.0.2", "18;NETREQ_CLIENT_PING");
    CProxyWorld::settle();
    mapFrames["status"] = exchange(EFrame::response, 1, CFakeChannels::answers().back().sBytes);
    mapFrames["refusal"] = exchange(EFrame::refusal, 1, "");
    return mapFrames;
}

TEST(WireFormatTest, ThePageShowsWhatServersSend)
{
    const CFrames mapDocumented = documented();
    const CFrames mapSent = sent();
    for (const auto& [sName, sBytes] : mapSent)
    {
        const auto it = mapDocumented.find(sName);
        EXPECT_EQ(it == mapDocumented.end() ? "nothing" : printable(it->second), printable(sBytes)) << sName;
    }
    for (const auto& [sName, sBytes] : mapDocumented)
        EXPECT_TRUE(mapSent.contains(sName)) << "nobody sends what the page calls " << sName;
}

TEST(WireFormatTest, WhatThePageShowsIsReadAsWhatItSays)
{
    const CFrames mapDocumented = documented();
    ASSERT_FALSE(mapDocumented.empty());
    for (const auto& [sName, sBytes] : mapDocumented)
    {
        CFrameReader reader(sName == "hello" || sName == "welcome" ? cGreetingLimit : 2'000'000);
        const std::span<char> space = reader.space();
        ASSERT_LE(sBytes.size(), space.size());
        std::copy(sBytes.begin(), sBytes.end(), space.begin());
        reader.received(sBytes.size());
        CFrame frame;
        EXPECT_EQ(reader.next(&frame), CFrameReader::complete) << sName;
        CFrame none;
        EXPECT_EQ(reader.next(&none), CFrameReader::partial) << sName << " has bytes left over";
    }
}

} // namespace
