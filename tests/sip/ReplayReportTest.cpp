#include "replay/ReplayReport.h"
#include "sip/SipText.h"

#include <gmock/gmock.h>
#include <sstream>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CSessionResult refused()
{
    CSessionResult result;
    result.ullFailures = 3;
    result.lFirstFailure = E_CDS_NOTFOUND;
    return result;
}

TEST(ReplayReportTest, NamesTheCodeOfTheFirstRefusal)
{
    std::ostringstream text;
    writeReport(text, refused(), nullptr);
    EXPECT_THAT(text.str(), testing::ContainsRegex("refused +3  the first with " + codeText(E_CDS_NOTFOUND)));
    std::ostringstream json;
    writeJson(json, refused(), nullptr);
    EXPECT_THAT(json.str(), HasSubstr("\"first_store_refusal\": \"" + codeText(E_CDS_NOTFOUND) + "\""));
}

TEST(ReplayReportTest, ComplainsOfWhatTheStoreRefused)
{
    EXPECT_THAT(complaints({}, ""), IsEmpty());
    EXPECT_THAT(complaints(refused(), ""),
                ElementsAre(HasSubstr("refused 3 operations, the first with " + codeText(E_CDS_NOTFOUND))));
}

TEST(ReplayReportTest, WritesACodeAsTheTraceLogDoes)
{
    EXPECT_EQ(codeText(E_CDS_NOTFOUND).size(), 10U);
    EXPECT_EQ(codeText(-1), "0xFFFFFFFF");
}

TEST(ReplayReportTest, ReplacesWhatATerminalWouldObey)
{
    EXPECT_EQ(printable("a\x1B[31m\xC2\x9B"
                        "31m"),
              "a\xEF\xBF\xBD[31m\xEF\xBF\xBD"
              "31m");
}

} // namespace
