// The trace log of a store as it stands on disk.

#include "CDSAPI.h"
#include "CDSSupport.h"
#include "Program.h"
#include "TemporaryDirectory.h"

#include <algorithm>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

class StoreTraceLogTest : public testing::Test
{
protected:
    StoreTraceLogTest() { CDSSupport::setLogDirectory(m_directory.path()); }
    ~StoreTraceLogTest() override
    {
        CCDSAPI::finalizeLogger();
        (void)CDSSupport::setConfigurationFile("", nullptr); // always 0
    }

    /// A short life of a store.
    static void runStore()
    {
        CCDSAPI::initLogger();
        const auto pStore = std::make_unique<CCDSAPI>();
        ASSERT_EQ(pStore->Initialize("127.0.0.1", 0), 0);
        ASSERT_EQ(pStore->Register(0, "ann", "127.0.0.1", "sip:1", "*", nullptr, 1), 0);
        CCallData call(pStore.get(), "sip:1");
        ASSERT_EQ(pStore->Update("ann", &call, false), 0);
        ASSERT_EQ(pStore->Unregister("ann"), 0);
        ASSERT_EQ(pStore->Finalize(), 0);
    }

    /// The log's complete lines; each must look like one.
    std::vector<std::string> readLines() const
    {
        static const std::regex s_line(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} \[\d+\] .*)");
        std::vector<std::string> vecLines;
        const std::string sContent = m_directory.read("OvnCDS.log");
        std::istringstream stream(sContent.substr(0, sContent.rfind('\n') + 1));
        for (std::string sLine; std::getline(stream, sLine);)
        {
            EXPECT_TRUE(std::regex_match(sLine, s_line)) << sLine;
            vecLines.push_back(sLine);
        }
        return vecLines;
    }
    std::size_t countLines(const std::string& sEnd) const
    {
        const auto vecLines = readLines();
        return static_cast<std::size_t>(
            std::count_if(vecLines.begin(), vecLines.end(),
                          [&sEnd](const std::string& sLine) { return sLine.ends_with("] " + sEnd); }));
    }

    CTemporaryDirectory m_directory;
};

TEST_F(StoreTraceLogTest, TellsALifeInTheDefaultLevels)
{
    runStore();
    EXPECT_EQ(countLines("CCDSAPI::timingThread - starting"), 1U);
    EXPECT_EQ(countLines("CCDSAPI::Update: \"ann\""), 1U);
    EXPECT_EQ(countLines("CCDSAPI::Unregister: RegID=ann"), 1U);
    EXPECT_EQ(countLines("CCDSAPI::timingThread - stopping"), 1U);
}

TEST_F(StoreTraceLogTest, LeavesOutWhatTheDefaultLevelsLeaveOut)
{
    runStore();
    EXPECT_EQ(countLines("CCDSAPI::Initialize: 127.0.0.1. 0"), 0U);
    EXPECT_EQ(countLines("CCDSAPI::Finalize:"), 0U);
}

TEST_F(StoreTraceLogTest, TellsMoreWhenConfigured)
{
    m_directory.write("cds.toml", "[Orvane.CDS]\nLogTraceMask = 7\n");
    ASSERT_EQ(CDSSupport::setConfigurationFile(m_directory.file("cds.toml"), nullptr), 0);
    runStore();
    EXPECT_EQ(countLines("CCDSAPI::Initialize: 127.0.0.1. 0"), 1U);
}

TEST_F(StoreTraceLogTest, TellsMoreWhenTheMaskChangesWhileRunning)
{
    CCDSAPI::initLogger();
    {
        CCDSAPI store;
        ASSERT_EQ(store.Finalize(), 0);
        CDSSupport::setTraceMask("OvnCDS", 7);
        ASSERT_EQ(store.Finalize(), 0);
        CDSSupport::setTraceMask("OvnCDS", 3);
    }
    EXPECT_EQ(countLines("CCDSAPI::Finalize:"), 1U);
}

TEST_F(StoreTraceLogTest, GoesOnInTheSameFileWithTheNextStore)
{
    runStore();
    runStore();
    EXPECT_EQ(countLines("CCDSAPI::Update: \"ann\""), 2U);
}

TEST_F(StoreTraceLogTest, LosesAndTearsNoLineOfManyThreads)
{
    constexpr int cThreads = 4;
    constexpr int cUpdates = 500;
    {
        CCDSAPI::initLogger();
        CCDSAPI store;
        std::vector<std::jthread> vecThreads;
        for (int i = 0; i < cThreads; ++i)
            vecThreads.emplace_back([&store, i] {
                const std::string sWho = "thread " + std::to_string(i);
                CCallData call(sWho);
                for (int n = 0; n < cUpdates; ++n)
                    EXPECT_LT(store.Update(sWho, &call, false), 0); // unknown, and told as such
            });
    }
    for (int i = 0; i < cThreads; ++i)
        EXPECT_EQ(countLines("CCDSAPI::Update: \"thread " + std::to_string(i) + "\""), std::size_t{cUpdates});
    EXPECT_EQ(countLines("(Error) CCDSAPI::Update: failed: 0xC1170A2E"), std::size_t{cThreads * cUpdates});
}

TEST_F(StoreTraceLogTest, StaysReadableWhenItsProcessIsKilled)
{
    CProgram host({STORE_HOST, m_directory.path()});
    int nUpdates = 0;
    for (std::string sLine; nUpdates < 1000 && host.readLine(&sLine);)
        nUpdates = std::stoi(sLine);
    host.kill();
    ASSERT_GE(nUpdates, 1000);
    EXPECT_GE(countLines("CCDSAPI::Update: \"watcher\""), static_cast<std::size_t>(nUpdates));
}

TEST_F(StoreTraceLogTest, GoesOnAfterAProcessThatWasKilled)
{
    {
        CProgram host({STORE_HOST, m_directory.path()});
        std::string sLine;
        ASSERT_TRUE(host.readLine(&sLine));
        ASSERT_GT(std::stoi(sLine), 0);
    }
    runStore();
    EXPECT_EQ(countLines("CCDSAPI::Update: \"ann\""), 1U);
}

} // namespace
