// The payload of registration notices.

#include "CDSCallbackMsg.h"
#include "ModelSupport.h"

using namespace model;

namespace {

struct SFields
{
    std::string sRegID;
    std::string sCDSIPAddr;
    std::string sCallID;
    bool bRegister = false;
    CCDSTimestamp tsUpdate{77, 77};

    bool operator==(const SFields& other) const
    {
        return sRegID == other.sRegID && sCDSIPAddr == other.sCDSIPAddr && sCallID == other.sCallID &&
               bRegister == other.bRegister && tsUpdate == other.tsUpdate;
    }
};

void PrintTo(const SFields& fields, std::ostream* pOut)
{
    *pOut << fields.sRegID << ',' << fields.sCDSIPAddr << ',' << fields.sCallID << ',' << fields.bRegister << ',';
    ::PrintTo(fields.tsUpdate, pOut);
}

SFields fieldsOf(const CRegistrationData& data)
{
    SFields fields{"x", "x", "x", false, at(77, 77)};
    EXPECT_THAT(data.getRegID(&fields.sRegID), IsOk());
    EXPECT_THAT(data.getCDSIPAddr(&fields.sCDSIPAddr), IsOk());
    EXPECT_THAT(data.getCallID(&fields.sCallID), IsOk());
    EXPECT_THAT(data.getRegister(&fields.bRegister), IsOk());
    EXPECT_THAT(data.getUpdateTimestamp(&fields.tsUpdate), IsOk());
    return fields;
}

class RegistrationDataTest : public CModelTest
{
protected:
    CRegistrationData m_data{"R1", "ADDR", "C7", true, at(100, 2)};
};

} // namespace

TEST_F(RegistrationDataTest, HoldsWhatItIsMadeOf)
{
    EXPECT_EQ(fieldsOf(m_data), (SFields{"R1", "ADDR", "C7", true, at(100, 2)}));
    EXPECT_EQ(fieldsOf(CRegistrationData("", "", "", false, at(0))), (SFields{"", "", "", false, at(0)}));
}

TEST_F(RegistrationDataTest, SettersReplaceTheirField)
{
    EXPECT_THAT(m_data.setRegID("R2"), IsOk());
    EXPECT_THAT(m_data.setCDSIPAddr("OTHER"), IsOk());
    EXPECT_EQ(fieldsOf(m_data), (SFields{"R2", "OTHER", "C7", true, at(100, 2)}));
}

TEST_F(RegistrationDataTest, SerializesItsFieldsInOrder)
{
    EXPECT_EQ(serialized(m_data), "2;R1;4;ADDR;2;C7;1;T;9;3;100;1;2");
    CRegistrationData leaving("R1", "ADDR", "C7", false, at(0));
    EXPECT_EQ(serialized(leaving), "2;R1;4;ADDR;2;C7;1;F;7;1;0;1;0");
}

TEST_F(RegistrationDataTest, ReadsBackWhatItSerializes)
{
    CRegistrationData read("", "", "", false, at(0));
    EXPECT_THAT(read.deserialize(serialized(m_data)), IsOk());
    EXPECT_EQ(fieldsOf(read), fieldsOf(m_data));
    EXPECT_EQ(fieldsOf(CRegistrationData(serialized(m_data))), fieldsOf(m_data));
}

TEST_F(RegistrationDataTest, MissingElementsReadAsEmpty)
{
    const std::pair<const char*, SFields> aCases[] = {
        {"", {"", "", "", false, at(0)}},
        {"2;R1", {"R1", "", "", false, at(0)}},
        {"2;R1;4;ADDR;2;C7", {"R1", "ADDR", "C7", false, at(0)}},
        {"2;R1;4;ADDR;2;C7;1;T", {"R1", "ADDR", "C7", true, at(0)}},
        {"2;R1;4;ADDR;2;C7;1;T;0;", {"R1", "ADDR", "C7", true, at(0)}},
        {"2;R1;4;ADDR;2;C7;1;T;3;1;5;4;more", {"R1", "ADDR", "C7", true, at(5)}},
    };
    for (const auto& [pszText, expected] : aCases)
    {
        SCOPED_TRACE(pszText);
        EXPECT_EQ(fieldsOf(CRegistrationData(std::string(pszText))), expected);
        CRegistrationData used("R0", "A0", "C0", true, at(9, 9));
        EXPECT_THAT(used.deserialize(pszText), IsOk());
        EXPECT_EQ(fieldsOf(used), expected);
    }
}

TEST_F(RegistrationDataTest, OnlyACapitalTIsARegistration)
{
    for (const char* const pszText : {"1;a;1;b;1;c;1;F", "1;a;1;b;1;c;1;t", "1;a;1;b;1;c;4;TRUE", "1;a;1;b;1;c;1;1"})
        EXPECT_FALSE(fieldsOf(CRegistrationData(std::string(pszText))).bRegister) << pszText;
}

TEST_F(RegistrationDataTest, RefusesAMalformedText)
{
    for (const char* const pszText : {"x", "2;R1;4", "2;R1;4;ADDR;2;C7;1;T;1;x"})
    {
        EXPECT_EQ(thrownBy([&] { const CRegistrationData data{std::string(pszText)}; }), cParseFailure) << pszText;
        EXPECT_EQ(thrownBy([&] { (void)m_data.deserialize(pszText); }), cParseFailure) << pszText;
    }
}

TEST_F(RegistrationDataTest, AClonedRegistrationIsStampedAfresh)
{
    const std::unique_ptr<CRegistrationData> pClone(m_data.clone());
    EXPECT_EQ(fieldsOf(*pClone), (SFields{"R1", "ADDR", "C7", true, at(0)}));
    EXPECT_EQ(fieldsOf(m_data).tsUpdate, at(100, 2));
}

TEST_F(RegistrationDataTest, DoesNotCountInMemoryAccounting)
{
    EXPECT_EQ(m_data.getsize(), 0U);
}

TEST_F(RegistrationDataTest, TracesItsFieldsUnderALabel)
{
    const std::string sFields = "\t: " + identityOf(&m_data) + ",\"R1\",\"C7\", ADDR, 1";
    EXPECT_THAT(linesUnder(cError, [&] { m_data.trace("abc"); }),
                ::testing::ElementsAre("CRegistrationData::trace: abc                   ", sFields));
    EXPECT_THAT(linesUnder(cError, [&] { m_data.trace("abcdefghijklmnopqrstuvwxyz0123"); }),
                ::testing::ElementsAre("CRegistrationData::trace: abcdefghijklmnopqrstuv", sFields));
}

TEST_F(RegistrationDataTest, TracesOnlyItsFieldsWithoutALabel)
{
    CRegistrationData leaving("R1", "ADDR", "C7", false, at(0));
    EXPECT_THAT(linesUnder(cError, [&] { leaving.trace(""); }),
                ::testing::ElementsAre("\t: " + identityOf(&leaving) + ",\"R1\",\"C7\", ADDR, 0"));
}

TEST_F(RegistrationDataTest, TracesWhateverTheMaskButNothing)
{
    for (const std::uint32_t dwMask : {cError, cWarning, cInfo, cDetail, 0x80000000U})
        EXPECT_EQ(linesUnder(dwMask, [&] { m_data.trace(""); }).size(), 1U) << dwMask;
    EXPECT_EQ(linesUnder(0, [&] { m_data.trace("x"); }).size(), 0U);
}
