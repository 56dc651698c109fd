// SPDX-License-Identifier: BSD-3-Clause
// What kxmap try says of letters that rules damage, and that it says nothing of those that they only change.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <algorithm>

using namespace kxtest;
using testing::HasSubstr;
using Json = nlohmann::json;

namespace {

class ToolCharacters : public ToolApply {
protected:
    // @return how many warnings of this name the rules get.
    long count(const std::string& name, const std::string& rules, const std::string& file = "ct.dcm") const
    {
        dir.write("r.map", rules);
        const Json told = Json::parse(run("try --format=json --single r.map '" + file + "'").output);
        return std::ranges::count_if(told["warnings"], [&name](const Json& one) { return one["warning"] == name; });
    }
};

std::string charsetFile(const std::string& name)
{
    return KXDCM_PYDICOM_DATA "/charset_files/" + name + ".dcm";
}

std::string inSet(const std::string& terms, const std::string& rule)
{
    return "(0008,0005)=\"" + terms + "\"\n" + rule;
}

} // namespace

TEST_F(ToolCharacters, warnsWhereACaseFunctionChangesOtherThanLetters)
{
    struct Case {
        std::string rules;
        long count;
    };
    const Case cases[] = {
        {inSet("GB18030", "(0010,0010)=toUpper(\"Zhao=\xDA\x77\")"), 1}, // the second byte of a character
        {inSet("GB18030", "(0010,0010)=toLower(\"Zhao=\xDA\x77\")"), 0},
        {inSet("GB18030", "(0010,0010)=toLower(\"ZHAO=\xDA\x57\")"), 1},
        {inSet("GBK", "(0010,0010)=toUpper(\"\xDA\x77\")"), 1},
        {inSet("GB18030", "(0010,0010)=toUpper(\"\x81\x30\x81\x30 abc\")"), 0}, // of four bytes
        {inSet("GB18030", "(0010,0010)=toUpper(\"\xCD\xF5 abc\")"), 0},
        {inSet("ISO_IR 13", "(0010,0010)=toUpper(\"\x83\x61\")"), 1}, // Shift-JIS
        {inSet("ISO_IR 13", "(0010,0010)=toUpper(\"\xD4\xCF abc\")"), 0},
        {inSet("ISO 2022 IR 6\\\\ISO 2022 IR 100", "(0010,0010)=toLower(\"A\x1B-A\xE9\")"), 1},
        {inSet("ISO 2022 IR 6\\\\ISO 2022 IR 100", "(0010,0010)=toUpper(\"a\x1B-A\xE9\")"), 0},
        {inSet("ISO 2022 IR 6\\\\ISO 2022 IR 87", "(0010,0010)=toUpper(\"abc\")"), 0},
        {inSet("ISO_IR 192", "(0010,0010)=toUpper(\"\xC3\xA9 \xE5\xB1\xB1 abc\")"), 0},
        {inSet("ISO_IR 100", "(0010,0010)=toLower(\"J\xE9RÔME ABC\")"), 0},
        {inSet("", "(0010,0010)=toUpper(\"abc\")"), 0},
        {inSet("GB18030", "(0008,1030)=split(toUpper(\"Zhao=\xDA\x77\"),\"=\",1)"), 0}, // the good part of it
        {inSet("GB18030", "(0008,1030)=split(toUpper(\"Zhao=\xDA\x77\"),\"=\",2)"), 1},
        {inSet("GB18030", "(0008,1030)=if(\"1\",\"Zhao\",toUpper(\"\xDA\x77\"))"), 0}, // not come to
        {inSet("GB18030", "$(v)=toUpper(\"\xDA\x77\")\n(0008,1030)=$(v)"), 1},
        {inSet("GB18030", "(0008,1030)=toUpper(concat(rnd(9),\"\xDA\x77\"))"), 1},
    };
    for (const Case& c : cases) EXPECT_EQ(count("letter-case", c.rules), c.count) << c.rules;
}

TEST_F(ToolCharacters, judgesCaseByTheCharacterSetOfEachFile)
{
    struct Case {
        const char* file;
        long upper;
        long lower;
    };
    constexpr Case kCases[] = {
        {"chrH31", 1, 1},  {"chrH32", 1, 1},       {"chrI2", 0, 1},       {"chrX1", 0, 0},    {"chrX2", 0, 0},
        {"chrFren", 0, 0}, {"chrGerm", 0, 0},      {"chrRuss", 0, 0},     {"chrGreek", 0, 0}, {"chrArab", 0, 0},
        {"chrHbrw", 0, 0}, {"chrFrenMulti", 0, 0}, {"chrJapMulti", 1, 1},
    };
    for (const Case& c : kCases) {
        const std::string file = charsetFile(c.file);
        EXPECT_EQ(count("letter-case", "(0010,0010)=toUpper((0010,0010))", file), c.upper) << c.file;
        EXPECT_EQ(count("letter-case", "(0010,0010)=toLower((0010,0010))", file), c.lower) << c.file;
    }
    dir.write("r.map", "(0010,0010)=toUpper((0010,0010))");
    EXPECT_THAT(run("try --single r.map " + charsetFile("chrH31")).output,
                HasSubstr("\"Yamada^Tarou=山田^太郎=やまだ^たろう\" became \"YAMADA^TAROU=山田^太郎=つまだ^たねう\""));
}

TEST_F(ToolCharacters, knowsTheUtf8OfMappingFilesInEveryCharacterSet)
{
    const std::string rule = "(0008,1030)=\"M\xC3\xBCller\"";
    const std::string variable = "$(v)=\"\xC3\xBC\"\n(0008,1030)=concat(\"M\",$(v))";
    for (const char* terms : {"ISO_IR 13", "GB18030", "GBK", "ISO 2022 IR 13\\\\ISO 2022 IR 87", "ISO_IR 100"}) {
        EXPECT_EQ(count("charset", inSet(terms, rule)), 1) << terms;
        EXPECT_EQ(count("charset", inSet(terms, variable)), 1) << terms;
    }
    EXPECT_EQ(count("charset", inSet("ISO_IR 192", rule)), 0);
    // The file is no UTF-8: its author knew what to write.
    EXPECT_EQ(count("charset", inSet("GB18030", rule + "\n(0008,103e)=\"\xCD\xF5\"")), 0);
    EXPECT_EQ(count("charset", "# \xC3\xBC\n(0008,1030)=(0010,0010)", charsetFile("chrX2")), 0);
}

#endif
