// SPDX-License-Identifier: BSD-3-Clause
// Rule lines: where they are split, what is kept after a failure, and what applying one says.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using kxtest::LogCapture;
using testing::ElementsAre;

struct LineCase {
    const char* line;
    bool hasTarget;
    bool hasExpression;
    const char* reported;
};
constexpr LineCase kLines[] = {
    {"(0010,0010)=  x", true, true, ""},
    {"(0010,0010)=x\n", true, true, ""},
    {"(0010,0010)=a=b", true, true, ""}, // the first "=" splits
    {"$(a)=equals(a,b=c)", true, true, ""},
    {"=x", false, false, "Empty Left Value\n"},
    {"(0010,0010) = x", false, false, "Invalid Dicom Tag:(0010,0010) \n"},
    {" $(a)=x", false, false, ""},
    {"# (0010,0010)=foo(x)", false, false, ""}, // a rule with a bad left side; its right side is not read
    {"(10,10)=foo(x)", false, false, "Invalid Dicom Tag:(10,10)\n"},
    {"(0010,0010)=", true, false, "Error: assign_to_lvalue does not take 0 arguments\n\n"},
    {"(0010,0010)=a,b", true, false, "Error: assign_to_lvalue does not take 2 arguments\n\n"},
    {"(0010,0010)=foo(x)\n", true, false, "Error: Unknown function:foo\n\n"},
    {"(0010,0010)=x)", true, false, "Error: bracket mismatch\n"},
};

TEST(Assignment, lines)
{
    for (const LineCase& c : kLines) {
        SCOPED_TRACE(c.line);
        errorlogs.clear();
        Assignment assignment;
        EXPECT_EQ(assignment.readCfgLine(c.line), c.hasExpression);
        EXPECT_EQ(assignment.lvalue != nullptr, c.hasTarget);
        EXPECT_EQ(assignment.expression != nullptr, c.hasExpression);
        EXPECT_EQ(errorlogs, c.reported);
    }
}

TEST(Assignment, readingAgainDiscardsWhatItHeld)
{
    Assignment assignment;
    ASSERT_TRUE(assignment.readCfgLine("$(a)=x"));
    const LVObject* target = assignment.lvalue;
    for (const char* line : {"", "\n", "# no rule", "(0010,0010)"}) {
        EXPECT_FALSE(assignment.readCfgLine(line));
        EXPECT_EQ(assignment.lvalue, target) << line; // untouched without a "="
        EXPECT_NE(assignment.expression, nullptr) << line;
    }
    EXPECT_FALSE(assignment.readCfgLine("(0010,0010)=foo()"));
    EXPECT_NE(assignment.lvalue, nullptr);
    EXPECT_EQ(assignment.expression, nullptr);
    EXPECT_FALSE(assignment.readCfgLine("nowhere=x"));
    EXPECT_EQ(assignment.lvalue, nullptr);
    EXPECT_EQ(assignment.expression, nullptr);
    EXPECT_TRUE(assignment.readCfgLine("$(a)=x"));
}

TEST(Assignment, messages)
{
    const auto dataset = kxtest::sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    Assignment assignment;
    LogCapture log;
    ASSERT_FALSE(assignment.readCfgLine("$(a)="));
    log.clear();
    EXPECT_EQ(assignment.apply(session), 1); // half a rule
    EXPECT_THAT(log.messages(), ElementsAre());
    ASSERT_TRUE(assignment.readCfgLine(R"((0010,0010)=toUpper((0010,0010)))"));
    EXPECT_EQ(assignment.apply(session), 0);
    EXPECT_EQ(assignment.apply(session), 0);
    EXPECT_THAT(log.messages(), ElementsAre("lvalue: (  10,  10)", R"(assign_to_lvalue(toUpper(("0010","0010"))))",
                                            "Applying: (0010,0010)", R"(Applying "DOE^JANE")", "..Done",
                                            "Applying: (0010,0010)", R"(Applying "DOE^JANE")", "..Done"));
    ASSERT_TRUE(assignment.readCfgLine("SEQ(0040,0275,9,0040,0007)=NULL()"));
    log.clear();
    EXPECT_EQ(assignment.apply(session), 0); // whatever the target did
    EXPECT_THAT(log.messages(), ElementsAre("Couldn't find parentitem for the LVSeqDicomTag: (0040,0007)=", "..Done"));
}
} // namespace
