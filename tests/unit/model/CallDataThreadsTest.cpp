// Records: many threads on one record. Worth most under the thread sanitizer.

#include "ModelSupport.h"

#include <atomic>
#include <functional>
#include <latch>
#include <thread>

using namespace model;

namespace {

constexpr int cThreads = 8;
constexpr int cRounds = 200;

/// Runs a function on several threads that begin together.
void onThreads(int nThreads, const std::function<void(int)>& fnRun)
{
    std::latch start(nThreads);
    std::vector<std::jthread> vecThreads;
    for (int i = 0; i < nThreads; ++i)
        vecThreads.emplace_back([&, i] {
            start.arrive_and_wait();
            fnRun(i);
        });
}

class CallDataThreadsTest : public CModelTest
{
protected:
    CCallData m_record{"C1"};
};

} // namespace

TEST_F(CallDataThreadsTest, EveryWriteIsCountedAndTheLatestValueStays)
{
    onThreads(cThreads, [&](int nThread) {
        for (int i = 0; i < cRounds; ++i)
        {
            const auto ullStamp = static_cast<unsigned long long>(i * cThreads + nThread + 1);
            put(m_record, "A", std::to_string(ullStamp), at(ullStamp));
            add(m_record, "L", std::to_string(ullStamp), at(ullStamp));
        }
    });
    const auto ullLast = static_cast<unsigned long long>(cThreads) * cRounds;
    EXPECT_EQ(m_record.getSetPropertiesCount(), ullLast);
    EXPECT_EQ(m_record.getAppendLogEntriesCount(), ullLast);
    EXPECT_THAT(propertiesOf(m_record), ::testing::ElementsAre(SItem{"A", std::to_string(ullLast), at(ullLast)}));
    const std::vector<SItem> vecEntries = entriesOf(m_record, "L");
    ASSERT_EQ(vecEntries.size(), ullLast);
    for (std::size_t i = 0; i < vecEntries.size(); ++i)
        EXPECT_EQ(vecEntries[i].tsStamp, at(i + 1));
}

TEST_F(CallDataThreadsTest, OneOfManyEntriesWithOneStampIsTaken)
{
    std::atomic<int> nTaken = 0;
    onThreads(cThreads, [&](int nThread) {
        for (int i = 0; i < cRounds; ++i)
            nTaken += add(m_record, "L", std::to_string(nThread), at(static_cast<unsigned long long>(i))) ? 1 : 0;
    });
    EXPECT_EQ(nTaken, cRounds);
    EXPECT_EQ(m_record.getLogEntryCount("L"), cRounds);
}

TEST_F(CallDataThreadsTest, ReferencesAreCounted)
{
    onThreads(cThreads, [&](int) {
        for (int i = 0; i < cRounds; ++i)
        {
            (void)m_record.addRef();
            (void)m_record.decRef();
            (void)m_record.addRef();
        }
    });
    EXPECT_EQ(m_record.addRef(), cThreads * cRounds + 1);
}

TEST_F(CallDataThreadsTest, WritersReadersAndATracerShareARecord)
{
    std::atomic<unsigned long> ulLargest = 0;
    onThreads(cThreads, [&](int nThread) {
        for (int i = 0; i < cRounds; ++i)
            switch (nThread)
            {
            case 0: m_record.trace("all"); break; // one at a time: it uses the record's iterations
            case 1: ulLargest = std::max(ulLargest.load(), m_record.getsize()); break;
            case 2:
            {
                const std::unique_ptr<CCallData> pClone(m_record.clone());
                EXPECT_LE(propertiesOf(*pClone).size(), 2U);
                break;
            }
            case 3:
            {
                CCDSTimestamp tsStamp(0, 0);
                (void)m_record.getPropertyUpdateTimestamp("A", &tsStamp);
                (void)m_record.getLogEntryExists("L", at(5));
                (void)m_record.getLogEntryCount("L");
                (void)m_record.getLogNameCount();
                (void)callIDOf(m_record);
                break;
            }
            case 4: (void)m_record.clear(); break;
            case 5:
            {
                const CValue value("now");
                EXPECT_THAT(m_record.setProperty("B", value.data(), value.length()), IsOk());
                break;
            }
            default:
                put(m_record, "A", "value", at(static_cast<unsigned long long>(i)));
                add(m_record, "L", "entry", at(static_cast<unsigned long long>(i)));
            }
    });
    (void)m_record.clear();
    EXPECT_EQ(m_record.getsize(), 0U);
}

TEST_F(CallDataThreadsTest, ARecordIsClearedWhileItIsTraced)
{
    const std::string sValue(16, 'x');
    onThreads(2, [&](int nThread) {
        for (int i = 0; i < 5 * cRounds; ++i)
        {
            if (nThread == 0)
            {
                m_record.trace("");
                continue;
            }
            for (const char* const pszName : {"A", "B", "C", "D"})
            {
                put(m_record, pszName, sValue, at(1));
                add(m_record, pszName, sValue, at(1));
            }
            (void)m_record.clear();
        }
    });
    for (const std::string& sLine : CFakeLog::texts()) // what was traced were values, not what became of their memory
        if (sLine[0] == '\t')
        {
            EXPECT_THAT(sLine, ::testing::HasSubstr("val=" + sValue));
        }
}

TEST_F(CallDataThreadsTest, ManyRecordsAreMergedAndFilteredAgainstOne)
{
    onThreads(cThreads, [&](int nThread) {
        for (int i = 0; i < cRounds / 4; ++i)
        {
            CCallData incoming("C1");
            const auto ullStamp = static_cast<unsigned long long>(i * cThreads + nThread + 1);
            put(incoming, "A", std::to_string(ullStamp), at(ullStamp));
            add(incoming, "L", std::to_string(ullStamp), at(ullStamp));
            (void)filtered(incoming, &m_record);
            bool bChanged = false;
            EXPECT_THAT(m_record.merge(&incoming, &bChanged), IsOk());
            EXPECT_TRUE(bChanged); // its entry at least is new
            EXPECT_EQ(filtered(incoming, &m_record).pRecord, nullptr);
        }
    });
    EXPECT_EQ(m_record.getLogEntryCount("L"), cThreads * (cRounds / 4));
}
