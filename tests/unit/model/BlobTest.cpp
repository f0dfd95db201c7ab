// Blobs: a named value with its time stamp.

#include "ModelSupport.h"

#include <type_traits>

using namespace model;

using CBlob = CCallData::CCDSBlob;

static_assert(!std::is_polymorphic_v<CBlob> && !std::is_polymorphic_v<CCallData::CLogEntries>);
static_assert(std::is_constructible_v<CBlob, const std::string&, unsigned char* const&, int, const CCDSTimestamp&>);

namespace {

CBlob blobOf(const std::string& sName, const std::string& sValue, const CCDSTimestamp& tsStamp)
{
    const CValue value(sValue);
    return {sName, value.data(), value.length(), tsStamp};
}

std::string serializedBlob(const CBlob& blob)
{
    std::string sText = "what was there before";
    EXPECT_THAT(blob.serialize(&sText), IsOk());
    return sText;
}

void expectSame(const CBlob& left, const CBlob& right)
{
    EXPECT_EQ(left.name(), right.name());
    EXPECT_EQ(left.length(), right.length());
    EXPECT_EQ(left.timestamp(), right.timestamp());
    EXPECT_EQ(textOf(left.data(), left.length()), textOf(right.data(), right.length()));
}

class BlobTest : public CModelTest
{
protected:
    CBlob m_blob = blobOf("CALLERID", "415", at(100, 2));
};

using BlobTextTest = BlobTest;

} // namespace

TEST_F(BlobTest, CopiesTheBytesItIsMadeOf)
{
    std::string sValue = "415";
    auto* const pData = reinterpret_cast<unsigned char*>(sValue.data());
    const CBlob blob("CALLERID", pData, 3, at(100, 2));
    sValue = "xxx";
    EXPECT_EQ(blob.name(), "CALLERID");
    EXPECT_EQ(textOf(blob.data(), blob.length()), "415");
    EXPECT_EQ(blob.timestamp(), at(100, 2));
}

TEST_F(BlobTest, HoldsNothingForNoBytes)
{
    const CValue value("415");
    unsigned char* const pNull = nullptr;
    const CBlob aBlobs[] = {
        {"A", pNull, 0, at(1)}, {"A", pNull, 5, at(1)}, {"A", value.data(), 0, at(1)}, {"A", value.data(), -1, at(1)}};
    for (const CBlob& blob : aBlobs)
    {
        EXPECT_EQ(blob.data(), nullptr);
        EXPECT_EQ(blob.length(), 0);
    }
}

TEST_F(BlobTest, CopiesAreEqualAndIndependent)
{
    const CBlob copy(m_blob);
    CBlob assigned = blobOf("OTHER", "something longer", at(1));
    assigned = m_blob;
    const std::unique_ptr<CBlob> pClone(m_blob.clone());
    m_blob.data()[0] = 'x';
    for (const CBlob* const pCopy :
         {&copy, static_cast<const CBlob*>(&assigned), static_cast<const CBlob*>(pClone.get())})
    {
        EXPECT_NE(pCopy->data(), m_blob.data());
        expectSame(*pCopy, blobOf("CALLERID", "415", at(100, 2)));
    }
}

TEST_F(BlobTest, CopiesOfAnEmptyValueAreEmpty)
{
    const CBlob empty = blobOf("A", "", at(1));
    const CBlob copy(empty);
    m_blob = empty;
    expectSame(copy, empty);
    expectSame(m_blob, empty);
    EXPECT_EQ(m_blob.data(), nullptr);
}

TEST_F(BlobTest, AssigningToItselfDoesNothing)
{
    const unsigned char* const pBefore = m_blob.data();
    const CBlob& same = m_blob;
    m_blob = same;
    EXPECT_EQ(m_blob.data(), pBefore);
    expectSame(m_blob, blobOf("CALLERID", "415", at(100, 2)));
}

TEST_F(BlobTest, EqualStampsMeanTheSameValue)
{
    const CBlob other = blobOf("OTHER", "other bytes", at(100, 2));
    EXPECT_TRUE(m_blob.identical(&other));
    const CBlob later = blobOf("CALLERID", "415", at(100, 3));
    EXPECT_FALSE(m_blob.identical(&later));
}

TEST_F(BlobTextTest, SerializesNameBytesAndStamp)
{
    EXPECT_EQ(serializedBlob(m_blob), "8;CALLERID;6;343135;9;3;100;1;2");
    EXPECT_EQ(serializedBlob(blobOf("L1", "\xAB", at(7))), "2;L1;2;AB;7;1;7;1;0");
    EXPECT_EQ(serializedBlob(blobOf("", "", at(0))), "0;;0;;7;1;0;1;0");
}

TEST_F(BlobTextTest, ReadsBackWhatItSerializes)
{
    for (const CBlob& blob : {m_blob, blobOf("a;b", bytes({0, 255, 59}), at(18446744073709551615ULL, -1))})
        expectSame(CBlob(serializedBlob(blob)), blob);
}

TEST_F(BlobTextTest, AnEmptyValueReadsBackAsNull)
{
    const CBlob read(serializedBlob(blobOf("A", "", at(1))));
    EXPECT_EQ(read.data(), nullptr);
    EXPECT_EQ(read.length(), 0);
}

TEST_F(BlobTextTest, ReadingReplacesEverything)
{
    EXPECT_THAT(m_blob.deserialize("1;B;4;0102;7;1;7;1;8"), IsOk());
    expectSame(m_blob, blobOf("B", bytes({1, 2}), at(7, 8)));
    EXPECT_THAT(m_blob.deserialize(""), IsOk());
    expectSame(m_blob, blobOf("", "", at(0)));
}

TEST_F(BlobTextTest, ReadingTakesOneOfTheProcessesStamps)
{
    CFakeClock::setFileTime(150'000'000'000'000'000ULL);
    const CCDSTimestamp tsBefore;
    const CBlob blob(std::string("1;B;4;0102;7;1;7;1;8"));
    const CCDSTimestamp tsAfter;
    EXPECT_EQ(tsAfter.incrementValue(), tsBefore.incrementValue() + 2);
}

TEST_F(BlobTextTest, RefusesAMalformedText)
{
    for (const char* const pszText : {"x", "1", "1;B;4;0102;1;x"})
    {
        EXPECT_EQ(thrownBy([&] { const CBlob blob{std::string(pszText)}; }), cParseFailure) << pszText;
        EXPECT_EQ(thrownBy([&] { (void)m_blob.deserialize(pszText); }), cParseFailure) << pszText;
    }
}

TEST_F(BlobTextTest, ShowsItsFirstBytesInAShortText)
{
    EXPECT_EQ(blobOf("CALLERID", bytes({0x34, 0x31, 0x35, 0x00}), at(1)).toString(), "nameCALLERID, val 415.");
    EXPECT_EQ(blobOf("A", bytes({0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xFF}), at(1)).toString(), "nameA, val . ~...");
    EXPECT_EQ(blobOf("A", "", at(1)).toString(), "nameA, val ");
    EXPECT_EQ(blobOf("A", std::string(32, 'x'), at(1)).toString(), "nameA, val " + std::string(32, 'x'));
    EXPECT_EQ(blobOf("A", std::string(32, 'x') + "y", at(1)).toString(), "nameA, val " + std::string(32, 'x'));
}
