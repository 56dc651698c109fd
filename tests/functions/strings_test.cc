// SPDX-License-Identifier: BSD-3-Clause
// The string functions: positions and lengths are bytes, numbers are read as "%d" reads them, and nothing is reported.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using namespace kxtest;
using testing::ElementsAre;

constexpr RuleCase kJoinAndMeasure[] = {
    {"concat(ab,NULL(),cd)", "abcd"},
    {R"(concat("",a))", "a"},
    {R"(concat("",""))", nullptr}, // a join of nothing is NULL
    {R"(concat("",NULL()))", nullptr},
    {"concat((0010,0010),(0010,0020),1,2,3)", "Doe^Jane  PID-42123"},
    {"strlen(abc)", "3"},
    {R"(strlen(""))", "0"},
    {"strlen((0028,0010))", "0"},
    {"strlen(\"\xC3\xA9\")", "2"},
    {"strlen(NULL())", nullptr},
};

constexpr RuleCase kFind[] = {
    {"contains(abcdef,cd)", "cd"},   {"contains(abc,x)", nullptr},      {"contains(abc,abcd)", nullptr},
    {"contains(NULL(),a)", nullptr}, {"contains(a,NULL())", nullptr},   {"indexof(abcabc,c)", "2"},
    {"indexof(abc,x)", "-1"},        {R"(indexof(abc,""))", "0"},       {R"(indexof("",a))", "-1"},
    {"indexof(aab,ab)", "1"},        {"indexof(\"\xC3\xA9z\",z)", "2"}, {"indexof(a,NULL())", nullptr},
};

constexpr RuleCase kSubstr[] = {
    {"substr(abcdef,2)", "cdef"},
    {"substr(abcdef,2,3)", "cde"},
    {"substr(abcdef,1,10)", "bcdef"},
    {"substr(abcdef,6)", ""},
    {"substr(abcdef,6,3)", ""},
    {"substr(abcdef,7)", nullptr},
    {"substr(abcdef,2,0)", ""},
    {R"(substr("",0))", ""},
    {R"(substr("",1))", nullptr},
    {"substr(abc,x)", nullptr},
    {"substr(abc,-1)", nullptr},
    {"substr(abc,0,x)", nullptr},
    {"substr(abc,0,-1)", nullptr},
    {R"(substr(abc," +1x",1.9))", "b"},
    {"substr(abc,NULL(),2)", "ab"},
    {"substr(abc,1,NULL())", "bc"},
    {"substr(NULL(),0)", nullptr},
    {"substr(abc,1,2147483647)", "bc"}, // the length bounds the copy, not the memory
    {"substr(abc,2147483647)", nullptr},
};

constexpr RuleCase kCase[] = {
    {"toUpper(abc-1z)", "ABC-1Z"},
    {"toLower(AbC[Z)", "abc[z"},
    {R"(toUpper(""))", ""},
    {"toUpper(NULL())", nullptr},
    {"toLower((0010,0010))", "doe^jane"},
    {"toUpper(\"a\xC3\xA9\xE4\xFFz\")", "A\xC3\xA9\xE4\xFFZ"}, // the "C" locale maps no byte above 0x7F
};

constexpr RuleCase kSplit[] = {
    {R"(split("a;b;c",;,1))", "a"},
    {R"(split("a;b;c",;,2))", "b"},
    {R"(split("a;b;c",;,3))", "c"},
    {R"(split("a;b;c",;,4))", nullptr},
    {R"(split("a;b;c",;,0))", nullptr},
    {R"(split("a;b;c",;,-5))", "a"},
    {R"(split("a;b;c",;,x))", nullptr}, // what is no number is 0
    {R"(split("a;b;c",;,3x))", "c"},
    {R"(split("a;b;c",;x,2))", "b"}, // one byte separates
    {R"(split("a;;c",;,2))", ""},
    {R"(split(";a",;,1))", ""},
    {R"(split("",;,1))", ""},
    {R"(split("a;b","",1))", "a;b"},
    {R"(split("a;b","",2))", nullptr},
    {"split(\"a\xFF"
     "b\",\"\xFF\",2)",
     "b"},
    {R"(split("a;b",;,2147483647))", nullptr},
    {R"(split((0008,0008),"\\",2))", "PRIMARY"},
    {"split(a,NULL(),1)", nullptr},
    {"split(a,;,NULL())", nullptr},
};

TEST(Strings, giveResultsAndSayNothing)
{
    const LogCapture log(kError);
    StderrCapture captured;
    expectRules(kJoinAndMeasure);
    expectRules(kFind);
    expectRules(kSubstr);
    expectRules(kCase);
    expectRules(kSplit);
    EXPECT_THAT(log.messages(), ElementsAre());
    EXPECT_EQ(captured.text(), "");
}

TEST(Strings, splitTracesItsSearch)
{
    const struct {
        const char* expression;
        std::vector<std::string> traces;
    } cases[] = {
        {R"(split("a;b;c",;,3))", {"Looking for '; in 'a;b;c(1/3)", "Looking for '; in 'b;c(2/3)"}},
        {R"(split("a;b",;,9))", {"Looking for '; in 'a;b(1/9)", "Looking for '; in 'b(2/9)"}},
        {R"(split("a;b;c",;,1))", {}},
        {R"(split("a;b;c","",2))", {}},
    };
    MappingSession session;
    for (const auto& c : cases) {
        LogCapture log;
        const std::unique_ptr<Expression> tree(Expression::readCfgLine(c.expression));
        ASSERT_NE(tree, nullptr);
        log.clear(); // the tree's own line
        const std::unique_ptr<Value> value(tree->getValue(session));
        EXPECT_EQ(log.messages(kDebug), c.traces) << c.expression;
    }
}

// A value handed on has the text that its evaluator saw, whatever becomes of the element.
TEST(Strings, containsHandsOnTheTextItLookedAt)
{
    const auto dataset = sampleDataset();
    ASSERT_TRUE(dataset->putAndInsertString(DCM_PatientID, "Jane").good());
    MappingSession session;
    session.dataset = dataset.get();
    const std::unique_ptr<Expression> rule(Expression::readCfgLine("contains((0010,0010),(0010,0020))"));
    const std::unique_ptr<Value> value(rule->getValue(session));
    ASSERT_TRUE(dataset->putAndInsertString(DCM_PatientID, "changed").good());
    EXPECT_STREQ(value->getString(), "Jane");

    // One that nobody looked at is still to be read: it may be long, or on disk.
    const std::unique_ptr<Expression> choice(Expression::readCfgLine("translate(a,b,a,(0010,0020))"));
    const std::unique_ptr<Value> chosen(choice->getValue(session));
    EXPECT_FALSE(chosen->made);
    EXPECT_STREQ(chosen->getString(), "changed");
}
} // namespace
