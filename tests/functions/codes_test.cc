// SPDX-License-Identifier: BSD-3-Clause
// Codes, random numbers and ages. The expected codes were computed apart from the module, from the alphabets alone.
#include "support/fixture.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace {
using namespace kxtest;
using testing::ElementsAre;
using testing::IsEmpty;

const unsigned int kSeedAtStart = gseed; // constants come first, so no test has drawn yet

constexpr RuleCase kCodenumber[] = {
    {"codenumber(0)", "01"}, // the leading zero is kept
    {"codenumber(1)", "4"},
    {"codenumber(7)", "2"},
    {"codenumber(9)", "8"},
    {"codenumber(10)", "71"},
    {"codenumber(42)", "87"},
    {"codenumber(0042)", "0087"},
    {"codenumber(000)", "0001"},
    {"codenumber(1000)", "4031"},
    {"codenumber(100000000)", "100012031"},
    {"codenumber(123456789)", "639518178"},
    {"codenumber(999999999)", "-674824472"}, // wraps, and so on below
    {"codenumber(1000000000)", "1000012031"},
    {"codenumber(2147483647)", "1212266728"},
    {R"(codenumber(" 07x"))", "2"}, // blanks before the zero: it does not lead
    {"codenumber(-0)", "1"},
    {"codenumber(NULL())", nullptr},
};

TEST(Codes, codenumberKeepsLength)
{
    StderrCapture captured;
    expectRules(kCodenumber);
    EXPECT_EQ(captured.text(), "");
}

std::string coded(const std::string& text, const char* forbidden)
{
    MappingSession session;
    session.setVariable("t", text.c_str());
    session.setVariable("k", forbidden);
    return evaluate("codestring($(t),$(k))", session).text;
}

TEST(Codes, codestringMovesWithinItsAlphabets)
{
    const struct {
        const char* text;
        const char* forbidden;
        const char* expected;
    } cases[] = {
        {"", nullptr, ""},
        {"a", nullptr, "s"},
        {"aaa", nullptr, "fds"}, // the place counts
        {"M", nullptr, ","},     // round the end
        {"Doe^Jane", nullptr, "XhotXf1r"},
        {"5^5", nullptr, "8w6"},
        {"?~", nullptr, "\xA2!"},
        {"\xFE\xA1", nullptr, "~\xA2"},
        {"a\x01\x80\xA0\x7F"
         "b",
         nullptr, "j\x01\x80\xA0\x7Fn"}, // in neither alphabet
        {"/", "?\xA1", "\xA2"},
        {",", "^qwe", "r"},
        {"Doe^Jane", "^=\\", "XhotXf1r"},
    };
    for (const auto& c : cases) EXPECT_EQ(coded(c.text, c.forbidden), c.expected) << c.text;
    EXPECT_TRUE(evaluatesTo("codestring(Doe^Jane)", "XhotXf1r"));
}

TEST(Codes, codestringStopsAt64Bytes)
{
    const std::string expected = "ZLKJHGFDSAPOIUYTREWQ -\"'`_0987654321mnbvcxzlkjhgfdsapoiuytrewq^,";
    for (std::size_t length : {64U, 65U, 70U, 100U}) EXPECT_EQ(coded(std::string(length, 'M'), nullptr), expected);
    EXPECT_EQ(coded(std::string(63, 'M'), nullptr), expected.substr(1));
}

TEST(Codes, codestringEndsWhenAllIsForbidden)
{
    std::string everything;
    for (int byte = 1; byte < 256; ++byte) everything += static_cast<char>(byte);
    for (const std::string text : {"a", "Doe^Jane", "~\xFF~", "MMMMMMMMMM"})
        EXPECT_EQ(coded(text, everything.c_str()), text); // after a full round the byte stays
    // A step of half the alphabet has two candidates, "8" and the byte itself.
    EXPECT_EQ(coded(std::string(35, ','), "8"), coded(std::string(35, ','), nullptr).replace(0, 1, ","));
}

TEST(Codes, rndWithSeedIsStable)
{
    constexpr RuleCase cases[] = {
        {"rnd(1000000,abc)", "440913"},
        {R"(rnd(1000000,""))", "12484"},
        {"rnd(1000000,\"\xE9\xE9\")", "372663"}, // bytes count unsigned
        {"rnd(2147483647,Doe^Jane)", "917002665"},
        {R"(rnd(" 10x",abc))", "3"},
    };
    EXPECT_EQ(kSeedAtStart, 0U);
    gseed = 0;
    for (int round = 0; round < 2; ++round) expectRules(cases);
    EXPECT_TRUE(
        evaluatesTo(('"' + std::string(300, 'z') + '"').insert(0, "rnd(1000000,").append(")").c_str(), "84167"));
    EXPECT_EQ(gseed, 0U); // its own state only
}

TEST(Codes, rndWithoutSeedFollowsGlobalSequence)
{
    gseed = 0;
    for (const char* expected : {"484", "679", "82"}) EXPECT_TRUE(evaluatesTo("rnd(1000)", expected));
    EXPECT_TRUE(evaluatesTo("rnd(1000,NULL())", "924"));
    EXPECT_EQ(gseed, 1772930244U);
}

TEST(Codes, reportOnStandardError)
{
    const struct {
        const char* expression; // all give NULL
        const char* text;
    } cases[] = {
        {"codenumber(-3)", "Coercion: Invalid codenumber original value: -3\n"},
        {"codenumber(abc%n)", "Coercion: Invalid codenumber original value: abc%n\n"},
        {R"(codenumber(""))", "Coercion: Invalid codenumber original value: \n"},
        {"codenumber(2147483648)", "Coercion: Invalid codenumber original value: 2147483648\n"},
        {"rnd(1)", "Coercion: Invalid rnd maxvalue: 1\n"},
        {"rnd(abc,x)", "Coercion: Invalid rnd maxvalue: -1\n"},
        {"rnd(NULL())", ""},
        {"codestring(NULL())", ""},
    };
    gseed = 5;
    for (const auto& c : cases) {
        const LogCapture log(kError);
        StderrCapture captured;
        EXPECT_TRUE(evaluatesTo(c.expression, nullptr));
        EXPECT_EQ(captured.text(), c.text) << c.expression;
        EXPECT_THAT(log.messages(), IsEmpty()) << c.expression;
    }
    EXPECT_EQ(gseed, 5U); // a refused call draws nothing
}

TEST(Codes, dicomAge)
{
    constexpr RuleCase cases[] = {
        {"dicomAge(20200615,19800101)", "040Y"}, {"dicomAge(20200615,yesterday)", nullptr},
        {R"(dicomAge("",19800101))", nullptr},   {"dicomAge(NULL(),19800101)", nullptr},
        {"dicomAge(20200615,NULL())", nullptr},  {"dicomAge(19800101,20200615)", nullptr},
    };
    expectRules(cases);
}

} // namespace
