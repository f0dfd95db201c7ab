// Many threads at one store.

#include "CDSLogging.h"
#include "Results.h"
#include "StoreStory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <future>
#include <map>

namespace {

using testing::AnyOf;

class StoreConcurrencyTest : public testing::Test
{
protected:
    /// Runs the same function on several threads at once; it is told which one it is.
    template <class TFunction> static void onThreads(int nThreads, TFunction fnRun)
    {
        std::barrier barStart(nThreads);
        std::vector<std::jthread> vecThreads;
        for (int i = 0; i < nThreads; ++i)
            vecThreads.emplace_back([&barStart, &fnRun, i] {
                barStart.arrive_and_wait();
                fnRun(i);
            });
    }

    CStoreStory m_story;
};

/// Threads that all update one call, a property each and one they share.
class StoreConcurrentUpdatesTest : public StoreConcurrencyTest
{
protected:
    static constexpr int cThreads = 6;
    static constexpr int cUpdates = 40;

    StoreConcurrentUpdatesTest()
    {
        for (const char* pszWho : {"ann", "bob", "carl"})
            m_story.registers(pszWho, "sip:1");
        m_story.registers("dora", "*");
        m_story.registers("eve", "*", "@");
        m_story.hears();
        for (int i = 0; i < cThreads * cUpdates; ++i)
            m_vecNews.push_back(std::make_unique<CNews>("sip:1"));
        for (int i = 0; i < cThreads * cUpdates; ++i)
        {
            const std::string sThread = std::to_string(i % cThreads);
            const std::string sValue = std::to_string(i);
            m_vecNews[static_cast<std::size_t>(i)]
                ->sets("P" + sThread, sValue)
                .sets("SHARED", sValue)
                .appends("L" + sThread, sValue);
        }
        onThreads(cThreads, [this](int nThread) {
            for (int i = nThread; i < cThreads * cUpdates; i += cThreads)
                EXPECT_THAT(m_story.updates("ann", *m_vecNews[static_cast<std::size_t>(i)]), IsOk());
        });
    }

    std::vector<std::unique_ptr<CNews>> m_vecNews;
};

TEST_F(StoreConcurrentUpdatesTest, EveryRegistrantSeesEveryChangeInOneOrder)
{
    std::map<std::string, std::vector<std::string>> mapHeard;
    for (const CHeard& heard : m_story.hearsInFull())
        mapHeard[heard.sWho].push_back(heard.sText);
    ASSERT_EQ(mapHeard.size(), 5U);
    EXPECT_EQ(mapHeard["ann"].size(), m_vecNews.size()); // each has an entry of its own, so each is a change
    for (const auto& [sWho, vecTexts] : mapHeard)
        EXPECT_EQ(vecTexts, mapHeard["ann"]) << sWho;
}

TEST_F(StoreConcurrentUpdatesTest, TheRecordIsTheMergeOfAllData)
{
    CCallData merged("sip:1");
    bool bChanged = false;
    for (const auto& pNews : m_vecNews)
        ASSERT_THAT(merged.merge(pNews->data(), &bChanged), IsOk());
    m_story.hears();
    m_story.registers("one who looks", "sip:1");
    EXPECT_THAT(m_story.hears(), testing::Contains("one who looks: " + describe(merged)));
}

TEST_F(StoreConcurrencyTest, AnUpdateWaitsForTheDeliveryOfAnother)
{
    // The first update's callback starts a second one, which cannot come through before it returns.
    std::future<long> futSecond;
    bool bSecondCameThrough = true;
    std::atomic<bool> bSecondDone = false;
    const CNews second("sip:1");
    m_story.registers("ann", "sip:1");
    m_story.reactsWith("ann", [&](CCallbackMsg*) {
        if (!futSecond.valid())
        {
            std::promise<void> promStarted;
            futSecond = std::async(std::launch::async, [&] {
                promStarted.set_value();
                const long lResult = m_story.updates("ann", second);
                bSecondDone = true;
                return lResult;
            });
            promStarted.get_future().wait();
            for (int i = 0; i < 1000; ++i)
                std::this_thread::yield(); // a chance for an update that would not wait
            bSecondCameThrough = bSecondDone;
        }
        return 0L;
    });
    m_story.updates("ann", CNews("sip:1").sets("CALLERID", "alice"));
    EXPECT_FALSE(bSecondCameThrough);
    EXPECT_THAT(futSecond.get(), IsOk());
}

TEST_F(StoreConcurrencyTest, EverythingAtOnceEndsWell)
{
    constexpr int cRounds = 60;
    m_story.starts();
    for (int i = 0; i < 3; ++i) // recorders first
        m_story.handleOf("r" + std::to_string(i));
    onThreads(8, [this](int nThread) {
        const std::string sWho = "r" + std::to_string(nThread % 3);
        const std::string sCall = "sip:" + std::to_string(nThread % 2);
        for (int i = 0; i < cRounds; ++i)
            switch (nThread)
            {
            case 0:
            case 1:
            case 2:
                EXPECT_THAT(m_story.registers(sWho, sCall, i % 2 == 0 ? "*" : "@"), AnyOf(0, E_CDS_EXISTS));
                EXPECT_THAT(m_story.unregisters(sWho), AnyOf(0, E_CDS_NOTFOUND));
                break;
            case 3:
            case 4:
                EXPECT_THAT(m_story.updates(sWho, CNews(sCall).sets("A", "x").appends("L", "y")),
                            AnyOf(0, E_CDS_NOTFOUND));
                EXPECT_THAT(m_story.asksFor(sWho, sCall), AnyOf(0, E_CDS_NOTFOUND));
                break;
            case 5:
                EXPECT_EQ(m_story.stops(), 0);
                EXPECT_EQ(m_story.starts(), 0);
                break;
            case 6:
                CFakeLog::setTraceMask("OvnCDS", i % 3 == 0 ? 0U : i % 3 == 1 ? 3U : CStoreStory::cAllLevels);
                CFakeClock::advance(20000); // the timing thread shall have work
                break;
            default:
                CCDSAPI::finalizeLogger();
                if (i % 2 == 0)
                    CCDSAPI::initLogger();
                CFakeLog::clear();
                break;
            }
    });
    m_story.stops();
    m_story.ends();
    EXPECT_EQ(CFakeThreads::alive(), 0U);
    EXPECT_EQ(CFakeLog::alive(), 0U);
}

TEST_F(StoreConcurrencyTest, TimeQueriesRunBesideEverything)
{
    onThreads(4, [this](int nThread) {
        for (int i = 0; i < 200; ++i)
        {
            CCDSTimestamp tsStamp(0, 0);
            if (nThread == 0)
                m_story.store().SetNetProxyCallback(nullptr);
            EXPECT_EQ(m_story.store().GetServerTimestamp(1), CFakeClock::cInitialFileTime);
            EXPECT_EQ(m_story.store().GetCallIDCDSTimestamp("sip:1", &tsStamp), 0);
        }
    });
}

} // namespace
