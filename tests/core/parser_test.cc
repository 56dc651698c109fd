// SPDX-License-Identifier: BSD-3-Clause
// From text to tree: what parses to which tree, what is refused with which words, how deep a tree may be.
#include "support/fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstring>
#include <sstream>

namespace {
using namespace kxtest;
using testing::ElementsAre;
using testing::StartsWith;

struct TreeCase {
    const char* line;
    const char* tree; // what the root wrapper holds
};
constexpr TreeCase kTrees[] = {
    // literals
    {"abc", R"("abc")"},
    {"\t a + b \n", R"("a + b")"},
    {"!a!", R"("!a!")"}, // the byte after the blank is none
    {R"("")", R"("")"},
    {R"("a\"b")", R"("a"b")"},
    {R"("a\\b")", R"("a\b")"},
    {R"~("\t\x\()")~", R"~("tx()")~"},
    {R"("a\nb")", "\"a\nb\""},
    {R"("ab"cd)", R"("ab")"}, // what follows the closing quote is dropped
    {R"("a" "b,c")", R"("a")"},
    {R"(x"a,b")", R"("x"a,b"")"}, // a quote inside a bare text still hides the comma
    {R"(\"a)", R"("\"a")"},       // a backslash is ordinary outside quotes
    {"concat(a,b", R"("concat(a,b")"},
    {"NULL", R"("NULL")"},
    // blanks are the control characters and every byte from 0x80
    {"caf\xC3\xA9", R"("caf")"},
    {"\x80\xFF\xC3\xA9t", R"("t")"},
    {"a\xC3\xA9z", "\"a\xC3\xA9z\""},
    {"\"caf\xC3\xA9\"\xA0", "\"caf\xC3\xA9\""},
    {"a\x01z", "\"a\x01z\""},
    {"\x01\x1F"
     "a\x7F",
     "\"a\x7F\""},
    {"concat(a\xE9 ,\xE9"
     "b)",
     R"(concat("a","b"))"},
    // calls
    {"NULL( )", "NULL()"},
    {R"( concat( "a" , b ) )", R"(concat("a","b"))"},
    {"(0010,0020)", R"(("0010","0020"))"},
    {"( ((x)) )", R"(((("x"))))"},
    {"if(not((0008,0060)),concat(a,$(@x)),USER(y))", R"(if(not(("0008","0060")),concat("a",$("@x")),USER("y")))"},
    {R"~(concat("(",")"))~", R"~(concat("(",")"))~"},
    {R"~(concat("\")",x))~", R"~(concat("")","x"))~"},
    {R"((\))", R"~(("\"))~"},
    // a comma right after a separating comma belongs to the argument
    {"concat(a,,b)", R"(concat("a",",b"))"},
    {"concat(a,)", R"(concat("a",))"},
    {"concat(,a)", R"(concat(,"a"))"},
    {"concat(,,a)", R"(concat(,",a"))"},
    {"concat(a,,)", R"(concat("a",","))"},
    {"concat(a,,,b)", R"(concat("a",",","b"))"},
    // three arguments of the root
    {"(0010,0010), ^ , 2", R"(("0010","0010"),"^","2")"},
    {"a,,,2", R"("a",",","2")"},
    {R"("a,b",",",2)", R"("a,b",",","2")"},
    {",,,", R"(,",",)"},
};

TEST(Parser, buildsTree)
{
    for (const TreeCase& c : kTrees) {
        const LogCapture log;
        const std::string before = errorlogs;
        const std::unique_ptr<Expression> tree(Expression::readCfgLine(c.line));
        ASSERT_NE(tree, nullptr) << c.line << ": " << errorlogs.substr(before.size());
        const std::string expected = "assign_to_lvalue(" + std::string(c.tree) + ")";
        std::ostringstream streamed;
        streamed << *tree;
        EXPECT_EQ(streamed.str(), expected) << c.line;
        testing::internal::CaptureStdout();
        tree->print();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), expected) << c.line;
        EXPECT_THAT(log.messages(kDebug), ElementsAre(expected)) << c.line;
        EXPECT_THAT(log.messages(kError), ElementsAre()) << c.line;
        EXPECT_EQ(errorlogs, before);
    }
}

struct ErrorCase {
    const char* line;
    const char* message;
};
constexpr ErrorCase kErrors[] = {
    {"", "assign_to_lvalue does not take 0 arguments\n"},
    {" \xE9", "assign_to_lvalue does not take 0 arguments\n"},
    {"a,b", "assign_to_lvalue does not take 2 arguments\n"},
    {R"(a\,b)", "assign_to_lvalue does not take 2 arguments\n"},
    {"a,b,c,d", "assign_to_lvalue does not take 4 arguments\n"},
    {"if(a,b)", "if does not take 2 arguments\n"},
    {"()", " does not take 0 arguments\n"},
    {"(\xFF)", " does not take 0 arguments\n"},
    {"NULL(a)", "NULL does not take 1 arguments\n"},
    {"foo(1)", "Unknown function:foo\n"},
    {"assign_to_lvalue(a)", "Unknown function:assign_to_lvalue\n"},
    {"+(a,b)", "Unknown function:+\n"}, // aliases are no names
    {"concat (a,b)", "Unknown function:concat \n"},
    {R"("x"(a))", "Unknown function:\"x\"\n"},
    {"concat(a,b)(c)", "bracket mismatch"}, // the first bracket opens the list
    {"\"abc)", "Mismatched ()\n"},
    {"\"abc\\\"", "Mismatcehd quotes\n"},
    {"\"", "Mismatcehd quotes\n"},
    {"\"abc\\", "Mismatcehd quotes\n"},
    {"a,\"b,c", "Mismatcehd quotes\n"},
    {")", "bracket mismatch"},
    {"a,)b)", "bracket mismatch"},
    {"concat(a,b))", "bracket mismatch"},
    {R"("x"))", "bracket mismatch"},
    {"foo(1),)b)", "Unknown function:foo\n"}, // an argument is judged before the scan goes on
};

TEST(Parser, reportsFirstError)
{
    for (const ErrorCase& c : kErrors) {
        const LogCapture log;
        errorlogs.clear();
        EXPECT_EQ(std::unique_ptr<Expression>(Expression::readCfgLine(c.line)), nullptr) << c.line;
        const std::string reported = "Error: " + std::string(c.message);
        EXPECT_EQ(errorlogs, reported + "\n") << c.line;
        std::vector<std::string> logged = {reported};
        const std::string message = c.message; // a wrong number of arguments is logged ahead, less a blank
        const std::size_t arity = message.find(" arguments\n");
        if (arity != std::string::npos) logged.insert(logged.begin(), message.substr(0, arity) + "arguments");
        EXPECT_EQ(log.messages(), logged) << c.line;
        EXPECT_EQ(log.messages(kError), logged) << c.line;
    }
}

/// What Expression::parse itself says of a text, "" for success.
std::string parseAlone(const char* text)
{
    std::string copy = text;
    Expression node;
    const std::unique_ptr<char[]> message(node.parse(copy.data()));
    return message ? message.get() : "";
}

TEST(Parser, nodeOnItsOwn)
{
    EXPECT_EQ(parseAlone(R"("x"))"), "Mismatched ()\n"); // at the root the argument scan speaks first
    EXPECT_EQ(parseAlone("a)b(c)"), "bracket mismatch");
    EXPECT_EQ(parseAlone("concat(foo(1),)b)"), "Unknown function:foo\n");
    EXPECT_EQ(parseAlone("concat(a,)b)"), "bracket mismatch");
    EXPECT_EQ(parseAlone("a,b"), "");
    EXPECT_EQ(parseAlone(" \n"), "");

    Expression call;
    call.func = &f_strlen;
    char list[] = " a ";
    EXPECT_EQ(call.parseParamList(list), nullptr);
    EXPECT_EQ(call.params.size(), 1U);
}

TEST(Parser, stepsOverOneToken)
{
    const struct {
        const char* text;
        std::ptrdiff_t length;
    } cases[] = {
        {"", 0},           {"ab", 1},       {",a", 1},          {R"(\"a")", 1},       {R"("a"b)", 3},
        {R"("a\"b"c)", 6}, {R"("\\"x)", 4}, {R"("abc)", 4},     {R"("a\)", 3},        {"(a)b", 3},
        {"((a)(b))c", 8},  {"(ab", 3},      {R"~((")")x)~", 5}, {R"~((\")x")y)~", 7}, {R"~(("\")")x)~", 7},
        {"\xE9z", 1},
    };
    for (const auto& c : cases) {
        std::string copy = c.text;
        EXPECT_EQ(Expression().parserStep(copy.data()) - copy.data(), c.length) << c.text;
    }
    char closing[] = ")";
    try {
        Expression().parserStep(closing);
        FAIL();
    } catch (const char* message) {
        EXPECT_STREQ(message, "bracket mismatch");
    }
}

std::string nested(const std::string& name, std::size_t depth)
{
    std::string line;
    for (std::size_t i = 0; i < depth; ++i) line += name + "(";
    return line + "x" + std::string(depth, ')');
}

TEST(Parser, nestingHasLimit)
{
    const LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    constexpr std::size_t kLimit = 1024;
    for (const char* name : {"", "not"}) {
        EXPECT_TRUE(evaluatesTo(nested(name, kLimit - 1).c_str(), *name != '\0' ? nullptr : "x"));
        EXPECT_TRUE(evaluatesTo(nested(name, kLimit).c_str(), *name != '\0' ? "true" : "x"));
        errorlogs.clear();
        EXPECT_EQ(std::unique_ptr<Expression>(Expression::readCfgLine(nested(name, kLimit + 1).c_str())), nullptr);
        EXPECT_THAT(errorlogs, StartsWith("Error: "));
    }
    EXPECT_TRUE(evaluatesTo(nested("", 1019).c_str(), "x")); // the deepest that a line of a file has room for
}

TEST(Parser, longTextsParseInReasonableTime)
{
    const LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    std::string many = "concat(a";
    while (many.size() < 1'000'000) many += ",b";
    const std::string texts[] = {many + ")", '"' + std::string(1'000'000, 'q') + '"', std::string(1'000'000, '('),
                                 std::string(1'000'000, ' ') + "x", std::string(1'000'000, 'f') + "(x)"};
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& text : texts) delete Expression::readCfgLine(text.c_str());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)); // square growth takes minutes
}

TEST(Parser, literalsOfWholeLineSurvive)
{
    const std::string text(4095, 'q');
    MappingSession session;
    EXPECT_EQ(evaluate(('"' + text + '"').c_str(), session).text, text);
    EXPECT_EQ(evaluate(text.c_str(), session).text, text);
}

} // namespace
