// SPDX-License-Identifier: BSD-3-Clause
// Left sides of rules: what each text becomes, and what is said about the bad ones.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using kxtest::LogCapture;
using testing::ElementsAre;

std::string hex(int number)
{
    char text[16];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned int>(number));
    return text;
}

/// "tag 10,20", "seq 40,275,0,40,7" (item numbers are decimal), "user name", "var name", "-" for null.
std::string describe(const LVObject* target)
{
    if (const auto* seq = dynamic_cast<const LVSeqDicomTag*>(target)) {
        std::string text = "seq ";
        int position = 0;
        for (const int number : seq->path) {
            if (position > 0) text += ',';
            text += position % 3 == 2 ? std::to_string(number) : hex(number);
            ++position;
        }
        const std::string last = hex(seq->tag.getGroup()) + ',' + hex(seq->tag.getElement());
        return text.ends_with(last) ? text : text + " but tag " + last;
    }
    if (const auto* tag = dynamic_cast<const LVDicomTag*>(target))
        return "tag " + hex(tag->tag.getGroup()) + ',' + hex(tag->tag.getElement());
    if (const auto* field = dynamic_cast<const LVCustomField*>(target)) return "user " + field->name;
    if (const auto* variable = dynamic_cast<const LVTempVar*>(target)) return "var " + variable->name;
    return target == nullptr ? "-" : "an unknown target";
}

struct LeftValueCase {
    const char* text;
    const char* target;
    const char* reported;
};
constexpr LeftValueCase kTags[] = {
    {"", "-", "Empty Left Value\n"},
    {"(0010,0010)", "tag 10,10", ""},
    {"(7fE0,00aB)", "tag 7fe0,ab", ""},
    {"(  10,  20)", "tag 10,20", ""}, // a hexadecimal scan skips leading blanks
    {"(0x10,0010)", "tag 10,10", ""}, // and takes a prefix
    {"(0010,0010]", "tag 10,10", ""}, // the last character is not looked at
    {"(0010,001g)", "tag 10,1", ""},
    {"(10,10)", "-", "Invalid Dicom Tag:(10,10)\n"},
    {"(0010,0010", "-", "Invalid Dicom Tag:(0010,0010\n"},
    {"(0010,0010) ", "-", "Invalid Dicom Tag:(0010,0010) \n"},
    {"(0010.0010)", "-", "Invalid Dicom Tag:(0010.0010)\n"},
    {"(00@0,0010)", "-", "Invalid Dicom Tag:(00@0,0010)\n"}, // next to a digit is none
    {"(0010,gggg)", "-", "Invalid Dicom Tag:(0010,gggg)\n"},
};
constexpr LeftValueCase kSequences[] = {
    {"SEQ(0040,0275,0,0040,0007)", "seq 40,275,0,40,7", ""},
    {"SEQ(0040,0275,0,0008,1110,12,0008,1155)", "seq 40,275,0,8,1110,12,8,1155", ""},
    {"SEQ(0040,0275,-1,0040,0007)", "seq 40,275,-1,40,7", ""},
    {"SEQ( 0040, 0275, 0, 0040, 0007)", "seq 40,275,0,40,7", ""},
    {"SEQ(0040,0275,0,0040,0007) ", "seq 40,275,0,40,7", ""}, // any last character goes
    {"SEQ(0010,0020)", "seq 10,20", ""},
    {"SEQ(0010,0020", "seq 10,2", ""},     // a digit, too
    {"SEQ(00100,0020x)", "seq 10,20", ""}, // four digits, the rest is ignored
    {"SEQ(", "-", "Invalid Dicom Tag:\n"},
    {"SEQ()", "-", "Invalid Dicom Tag:\n"},
    {"SEQ(0040,0275,0,)", "-", "Invalid Dicom Tag:\n"},
    {"SEQ(0040,zz)", "-", "Invalid Dicom Tag:zz\n"},
    {"SEQ(0040,0275,0,zz,0007)", "-", "Invalid Dicom Tag:zz\n"},
    {"SEQ(0040,0275,x,0040,0007)", "-", "Invalid Item No.:629\n"}, // 0x0275: the last good number
    {"SEQ(0040,0275,,0040,0007)", "-", "Invalid Item No.:629\n"},
    {"SEQ(0040,0275,3,0040,0008,y,0008,0100)", "-", "Invalid Item No.:8\n"},
    {"SEQ(-1,0010)", "-", "gtag or etag cannot be identified in lvalue:SEQ(-1,0010)\n"},
    {"SEQ(0010,-1)", "-", "gtag or etag cannot be identified in lvalue:SEQ(0010,-1)\n"},
    {"SEQ(0040)", "-", "Number of parameters is not correct (3n+2) in lvalue: SEQ(0040)\n"},
    {"SEQ(0040,0275,0)", "-", "Number of parameters is not correct (3n+2) in lvalue: SEQ(0040,0275,0)\n"},
};
constexpr LeftValueCase kNames[] = {{"USER(abc)", "user abc", ""},
                                    {"USER(@a9Z)", "user @a9Z", ""},
                                    {"$(@tmp)", "var @tmp", ""},
                                    {"$(0)", "var 0", ""},
                                    {"$(AZaz09)", "var AZaz09", ""}};
constexpr const char* kSilent[] = {"USER(",        "USER()",    "USER(@)",      "USER(a",     "USER(a-b)",
                                   "USER(a_b)",    "USER(a))",  "USER(a)b",     "USER(\xe4)", "user(a)",
                                   "USER",         "$(",        "$()",          "$(@)",       "$(@",
                                   "$(@@a)",       "$(a b)",    "$(a) ",        "$tmp",       "seq(0010,0020)",
                                   " (0010,0010)", "0010,0010", "#(0010,0010)", "$({)"};

void check(const LeftValueCase& c)
{
    SCOPED_TRACE(c.text);
    LogCapture log;
    errorlogs.clear();
    std::string text = c.text;
    const std::unique_ptr<LVObject> target(parseLV(text));
    EXPECT_EQ(describe(target.get()), c.target);
    EXPECT_EQ(errorlogs, c.reported);
    std::string logged;
    for (const std::string& message : log.messages(kxtest::kError)) logged += message + '\n';
    EXPECT_EQ(logged, c.reported); // the log has what errorlogs has
}

TEST(LeftValue, tags)
{
    for (const LeftValueCase& c : kTags) check(c);
}
TEST(LeftValue, sequences)
{
    for (const LeftValueCase& c : kSequences) check(c);
}
TEST(LeftValue, names)
{
    for (const LeftValueCase& c : kNames) check(c);
}
TEST(LeftValue, otherTextsAreRefusedInSilence)
{
    for (const char* text : kSilent) check({text, "-", ""});
}

TEST(LeftValue, onlyPlainTagsAreTraced)
{
    LogCapture log;
    for (std::string text : {"(0010,0010)", "(7FE0,00AB)", "SEQ(0010,0020)", "USER(a)", "$(a)", "nonsense"})
        delete parseLV(text);
    EXPECT_THAT(log.messages(), ElementsAre("lvalue: (  10,  10)", "lvalue: (7fe0,  ab)"));
}

TEST(LeftValue, checkName)
{
    EXPECT_TRUE(checkName("xx@a]", 2, ']'));
    EXPECT_TRUE(checkName("ab", 0, 'b'));
    for (const unsigned long start : {1UL, 2UL, 9UL}) EXPECT_FALSE(checkName("a)", start, ')')) << start;
    EXPECT_FALSE(checkName("a]", 0, ')'));
    EXPECT_FALSE(checkName("", 0, ')'));
}
} // namespace
