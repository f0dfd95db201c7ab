// Records: the content dump and the trace, which people read.

#include "ModelSupport.h"

using namespace model;

namespace {

constexpr char cLogEntries[] = "\tLOG ENTRIES:\n";

std::string dumpOf(const CCallData& record)
{
    std::string sDump = "what was there before";
    record.DumpContent(sDump);
    return sDump;
}

/// The dump of one value.
std::string dumpOfBytes(const std::string& sName, const std::string& sValue)
{
    const CValue value(sValue);
    const CCallData::CCDSBlob blob(sName, value.data(), value.length(), at(1));
    std::string sDump = "what was there before";
    blob.DumpContent(sDump);
    return sDump;
}

/// The rows below the line with name and length.
std::string rowsOf(const std::string& sValue)
{
    const std::string sDump = dumpOfBytes("A", sValue);
    return sDump.substr(sDump.find('\n') + 1);
}

class CallDataDumpTest : public CModelTest
{
protected:
    CallDataDumpTest() { CFakeClock::setFileTime(cMade); }

    // 2009-03-04 05:06:07.089
    static constexpr unsigned long long cMade = 128806167670890000ULL;
};

class CallDataTraceTest : public CModelTest
{
protected:
    std::vector<std::string> traced(const char* pszTitle)
    {
        return linesUnder(cError, [&] { m_record.trace(pszTitle); });
    }

    CCallData m_record{"C1"};
    const std::string m_sRecordLine = "CCallData=" + identityOf(&m_record) + ",callID=\"C1\"";
};

} // namespace

TEST_F(CallDataDumpTest, ShowsCallTimeOfDayAndCounters)
{
    CCallData record("C1");
    put(record, "A", "", at(2));
    put(record, "A", "", at(1));
    add(record, "L", "", at(1));
    EXPECT_THAT(dumpOf(record), ::testing::StartsWith("*** CCallData Content Dump ***\n"
                                                      "\tm_sCallID = C1\n"
                                                      "\tm_stCreated = 0000/00/00 05:06:07.89\n" // no date, on purpose
                                                      "\tm_dwSetPropertiesCount = 2\n"
                                                      "\tm_dwAppendLogEntriesCount = 1\n"
                                                      "\tPROPERTIES:\n"));
}

TEST_F(CallDataDumpTest, ShowsWhenTheRecordWasMadeNotWhenItIsDumped)
{
    const CCallData record("C1");
    const std::size_t uReads = CFakeClock::systemTimeReads();
    CFakeClock::advance(61'001);
    EXPECT_THAT(dumpOf(record), ::testing::HasSubstr(" 05:06:07.89\n"));
    EXPECT_EQ(CFakeClock::systemTimeReads(), uReads);
}

TEST_F(CallDataDumpTest, ReadsTheCalendarOncePerRecord)
{
    const std::size_t uBefore = CFakeClock::systemTimeReads();
    const CCallData record("C1");
    EXPECT_EQ(CFakeClock::systemTimeReads(), uBefore + 1);
}

TEST_F(CallDataDumpTest, ClearingKeepsTheTimeItWasMade)
{
    CCallData record("C1");
    CFakeClock::advance(61'001);
    (void)record.clear();
    EXPECT_THAT(dumpOf(record), ::testing::HasSubstr(" 05:06:07.89\n"));
}

TEST_F(CallDataDumpTest, ARecordReadFromATextWasMadeNow)
{
    CCallData early("C1");
    CFakeClock::advance(61'001);
    const CCallData read(serialized(early), true);
    EXPECT_THAT(dumpOf(read), ::testing::HasSubstr(" 05:07:08.90\n"));
}

TEST_F(CallDataDumpTest, OfAnEmptyRecordIsTheHeaderAndTheLogTitle)
{
    const CCallData record("C1");
    EXPECT_EQ(dumpOf(record), "*** CCallData Content Dump ***\n\tm_sCallID = C1\n\tm_stCreated = 0000/00/00 "
                              "05:06:07.89\n\tm_dwSetPropertiesCount = 0\n\tm_dwAppendLogEntriesCount = 0\n"
                              "\tPROPERTIES:\n\tLOG ENTRIES:\n");
}

TEST_F(CallDataDumpTest, ShowsPropertiesThenEntriesLogByLog)
{
    CCallData record("C1");
    put(record, "B", "1", at(1));
    put(record, "A", "2", at(1));
    add(record, "M", "3", at(1));
    add(record, "L", "4", at(20));
    add(record, "L", "5", at(10));
    const std::string sDump = dumpOf(record);
    EXPECT_EQ(sDump.substr(sDump.find("\tPROPERTIES:\n")),
              "\tPROPERTIES:\n" + dumpOfBytes("A", "2") + dumpOfBytes("B", "1") + cLogEntries + dumpOfBytes("L", "5") +
                  dumpOfBytes("L", "4") + dumpOfBytes("M", "3"));
}

TEST_F(CallDataDumpTest, CutsItsHeaderAt512Characters)
{
    const std::string sStart = "*** CCallData Content Dump ***\n\tm_sCallID = ";
    const CCallData record(std::string(1000, 'x'));
    EXPECT_EQ(dumpOf(record), sStart + std::string(512 - sStart.size(), 'x') + cLogEntries);
    // A header of exactly 512 characters is whole.
    const std::size_t uRest = dumpOf(CCallData("")).size() - sStart.size() - std::string(cLogEntries).size();
    const CCallData fitting(std::string(512 - sStart.size() - uRest, 'x'));
    EXPECT_THAT(dumpOf(fitting), ::testing::EndsWith("\tPROPERTIES:\n\tLOG ENTRIES:\n"));
    const CCallData oneMore(std::string(513 - sStart.size() - uRest, 'x'));
    EXPECT_THAT(dumpOf(oneMore), ::testing::EndsWith("\tPROPERTIES:\tLOG ENTRIES:\n"));
}

TEST_F(CallDataDumpTest, OfAValueBeginsWithNameAndLength)
{
    EXPECT_EQ(dumpOfBytes("CALLERID", ""), "\t\tName: CALLERID, DataLen: 0, Value:\n");
    EXPECT_THAT(dumpOfBytes("CALLERID", "415"), ::testing::StartsWith("\t\tName: CALLERID, DataLen: 3, Value:\n"));
}

TEST_F(CallDataDumpTest, CutsTheNameLineAt256Characters)
{
    EXPECT_EQ(dumpOfBytes(std::string(300, 'x'), ""), "\t\tName: " + std::string(256 - 8, 'x'));
    const std::size_t uRest = dumpOfBytes("", "").size();
    EXPECT_THAT(dumpOfBytes(std::string(256 - uRest, 'x'), ""), ::testing::EndsWith(" Value:\n"));
    EXPECT_THAT(dumpOfBytes(std::string(257 - uRest, 'x'), ""), ::testing::EndsWith(" Value:"));
}

TEST_F(CallDataDumpTest, ShowsTheHighDigitOfEachByteInRowsOfSixteen)
{
    EXPECT_EQ(rowsOf("ABCDEFGHIJKLMNOPQ"), "\t\t\t4444444444444445ABCDEFGHIJKLMNOP\n"
                                           "\t\t\t5                                             \tQ\n");
    EXPECT_EQ(rowsOf(bytes({0x00, 0x19, 0xA1, 0xFF})), "\t\t\t01AF                                          \t....\n");
}

TEST_F(CallDataDumpTest, WritesNoShortRowBehindFullOnes)
{
    EXPECT_EQ(rowsOf(std::string(16, 'A')), "\t\t\t4444444444444444AAAAAAAAAAAAAAAA\n");
    EXPECT_EQ(rowsOf(std::string(32, 'A')),
              "\t\t\t4444444444444444AAAAAAAAAAAAAAAA\n\t\t\t4444444444444444AAAAAAAAAAAAAAAA\n");
}

TEST_F(CallDataDumpTest, ShowsUnprintableBytesAsDots)
{
    EXPECT_EQ(rowsOf(bytes({0x1F, 0x20, 0x7E, 0x7F, 0x80})),
              "\t\t\t12778                                         \t. ~..\n");
}

TEST_F(CallDataTraceTest, WritesItsTitleInTwentyTwoCharacters)
{
    EXPECT_THAT(traced("x"), ::testing::ElementsAre("CCallData::trace: x                     ", m_sRecordLine));
    EXPECT_THAT(traced("abcdefghijklmnopqrstuv"),
                ::testing::ElementsAre("CCallData::trace: abcdefghijklmnopqrstuv", m_sRecordLine));
    EXPECT_THAT(traced("abcdefghijklmnopqrstuvwxyz0123"),
                ::testing::ElementsAre("CCallData::trace: abcdefghijklmnopqrstuv", m_sRecordLine));
}

TEST_F(CallDataTraceTest, WritesNoTitleLineForAnEmptyTitle)
{
    EXPECT_THAT(traced(""), ::testing::ElementsAre(m_sRecordLine));
}

TEST_F(CallDataTraceTest, WritesEachPropertyWithItsNumber)
{
    put(m_record, "B", "abc", at(128806167670890000ULL, 2));
    put(m_record, "A", bytes({0x1F, 0x7F}), at(0));
    EXPECT_THAT(traced(""),
                ::testing::ElementsAre(m_sRecordLine,
                                       "\t: prop=0,name=A,ts=1601/01/01 00:00:00.0+0,val=..                1F7F",
                                       "\t: prop=1,name=B,ts=2009/03/04 05:06:07.89+2,val=abc               616263"));
}

TEST_F(CallDataTraceTest, WritesTheFirstSixteenBytesOfAValue)
{
    put(m_record, "A", "0123456789abcdefghij", at(0));
    EXPECT_EQ(traced("").back(), "\t: prop=0,name=A,ts=1601/01/01 00:00:00.0+0,val=0123456789abcdef  "
                                 "30313233343536373839616263646566");
}

TEST_F(CallDataTraceTest, WritesEachEntryWithTheNumbersOfLogAndEntry)
{
    put(m_record, "A", "", at(0));
    add(m_record, "M", "1", at(0));
    add(m_record, "L", "2", at(0, 1));
    add(m_record, "L", "3", at(0));
    const std::string sEmpty(52, ' ');
    EXPECT_THAT(traced(""),
                ::testing::ElementsAre(m_sRecordLine, "\t: prop=0,name=A,ts=1601/01/01 00:00:00.0+0,val=" + sEmpty,
                                       "\t: log (0.0),name=L,ts=1601/01/01 00:00:00.0+0,val=3                 33",
                                       "\t: log (0.1),name=L,ts=1601/01/01 00:00:00.0+1,val=2                 32",
                                       "\t: log (1.0),name=M,ts=1601/01/01 00:00:00.0+0,val=1                 31"));
}

TEST_F(CallDataTraceTest, WritesWhateverTheMaskButNothing)
{
    put(m_record, "A", "1", at(1));
    const auto trace = [&] { m_record.trace("x"); };
    for (const std::uint32_t dwMask : {cError, cWarning, cInfo, cDetail, 0x80000000U})
        EXPECT_EQ(linesUnder(dwMask, trace).size(), 3U) << dwMask;
    EXPECT_EQ(linesUnder(0, trace).size(), 0U);
}

TEST_F(CallDataTraceTest, TakesTheIterationsWithIt)
{
    put(m_record, "A", "1", at(1));
    int nIndex = 0;
    std::string sName;
    unsigned char* pData = nullptr;
    int nLength = 0;
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    put(m_record, "B", "2", at(1));
    m_record.trace("");
    EXPECT_THAT(m_record.getProperty(&nIndex, &sName, &pData, &nLength, at(0), nullptr), IsOk());
    EXPECT_EQ(sName, "B"); // the iteration goes on in the snapshot that the trace took
}
