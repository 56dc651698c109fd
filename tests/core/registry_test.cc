// SPDX-License-Identifier: BSD-3-Clause
// The table of built-ins, the cursor over their arguments, and the two channels that the core reports on.
#include "support/fixture.h"

#include <gmock/gmock.h>

#include <locale>
#include <thread>

namespace {
using namespace kxtest;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;

struct Row {
    const FunctionDef* function;
    const char* name;
    const char* alias;
    const char* counts; // those of 0 to 9 that the arity rule takes
};
const Row kRows[] = {
    {&f_empty, "", nullptr, "12"},
    {&f_NULL, "NULL", "NULL", "0"},
    {&f_var, "$", nullptr, "1"},
    {&f_user, "USER", nullptr, "1"},
    {&f_equals, "equals", "==", "2"},
    {&f_not, "not", "!", "1"},
    {&f_or, "or", "||", "23456789"},
    {&f_and, "and", "&&", "23456789"},
    {&f_if, "if", nullptr, "3"},
    {&f_concat, "concat", "+", "23456789"},
    {&f_split, "split", nullptr, "3"},
    {&f_contains, "contains", nullptr, "2"},
    {&f_substr, "substr", nullptr, "23"},
    {&f_strlen, "strlen", nullptr, "1"},
    {&f_indexof, "indexof", nullptr, "2"},
    {&f_toUpper, "toUpper", nullptr, "1"},
    {&f_toLower, "toLower", nullptr, "1"},
    {&f_dicomAge, "dicomAge", nullptr, "2"},
    {&f_sub, "sub", "-", "2"},
    {&f_add, "add", "+", "23456789"},
    {&f_mul, "mul", "*", "23456789"},
    {&f_mod, "mod", "%", "2"},
    {&f_div, "div", "/", "2"},
    {&f_between, "between", nullptr, "3"},
    {&f_rnd, "rnd", nullptr, "12"},
    {&f_codenumber, "codenumber", nullptr, "1"},
    {&f_codestring, "codestring", nullptr, "12"},
    {&f_seq, "SEQ", nullptr, "258"},
    {&f_translate, "translate", nullptr, "2468"},
};

std::string countsOf(ArityRule* rule)
{
    std::string taken;
    for (int count = 0; count < 10; ++count)
        if (rule(count)) taken += static_cast<char>('0' + count);
    return taken;
}

void expectRow(const FunctionDef& function, const Row& row)
{
    EXPECT_EQ(&function, row.function) << row.name;
    EXPECT_STREQ(function.name, row.name);
    EXPECT_STREQ(function.alias, row.alias) << row.name;
    EXPECT_EQ(countsOf(function.numParamsOK), row.counts) << row.name;
}

TEST(Registry, tableIsCompleteAndInOrder)
{
    for (std::size_t i = 0; i < std::size(kRows); ++i) {
        ASSERT_NE(funcList[i], nullptr);
        expectRow(*funcList[i], kRows[i]);
    }
    EXPECT_EQ(funcList[29], nullptr);
    expectRow(f_root, {&f_root, "assign_to_lvalue", nullptr, "13"});
    EXPECT_EQ(countsOf(c4_numParamsOK), "4");
}

int evaluations = 0;
int alive = 0;

class CountedValue : public StringValue {
public:
    CountedValue() : StringValue("counted") { ++alive; }
    ~CountedValue() override { --alive; }
};

Value* counted_getValue(MappingSession&, std::list<Expression*>&)
{
    ++evaluations;
    return new CountedValue;
}
Value* nothing_getValue(MappingSession&, std::list<Expression*>&)
{
    ++evaluations;
    return nullptr;
}
constexpr FunctionDef kCounted = {"counted", nullptr, counted_getValue, c0_numParamsOK};
constexpr FunctionDef kNothing = {"nothing", nullptr, nothing_getValue, c0_numParamsOK};

class Cursor : public testing::Test {
protected:
    Cursor()
    {
        evaluations = alive = 0;
        first.func = third.func = &kCounted;
        second.func = &kNothing;
    }
    MappingSession session;
    Expression first, second, third;
    std::list<Expression*> params = {&first, &second, &third};
};

TEST_F(Cursor, evaluatesOnDemandAndOnce)
{
    {
        SArgs args(session, params);
        EXPECT_EQ(evaluations, 0);
        Value* value = args.GetAt();
        ASSERT_NE(value, nullptr);
        EXPECT_EQ(args.GetAt(), value);
        EXPECT_EQ(value->refCount, 1); // borrowed
        EXPECT_EQ(evaluations, 1);
        args.Next();
        EXPECT_EQ(args.GetAt(), nullptr);
        EXPECT_EQ(args.GetAt(), nullptr); // NULL is cached, too
        EXPECT_EQ(evaluations, 2);
        args.Next();
        args.Next();
        EXPECT_EQ(args.GetAt(), nullptr); // past the last
        args.Next();
        EXPECT_EQ(args.GetAt(), nullptr);
        EXPECT_EQ(evaluations, 2);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST_F(Cursor, stepsOverWhatWasNeverEvaluated)
{
    SArgs args(session, params);
    args.Next();
    args.Next();
    Value* value = args.GetAt();
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(args.GetAt(), value);
    EXPECT_EQ(evaluations, 1);

    SArgs others(session, params);
    Value* one = others.GetAt();
    others.Next();
    others.Next();
    EXPECT_NE(others.GetAt(), one);
    EXPECT_EQ(evaluations, 3);
}

TEST_F(Cursor, keptValueOutlivesCursor)
{
    Value* kept = nullptr;
    {
        SArgs args(session, params);
        kept = args.GetAt();
        ++kept->refCount;
    }
    EXPECT_EQ(kept->refCount, 1);
    EXPECT_EQ(alive, 1);
    delete kept;
}

TEST(Errors, areCollectedInOrderWhateverIsLogged)
{
    for (const int level : {kError, static_cast<int>(OFLogger::OFF_LOG_LEVEL)}) {
        const LogCapture log(level);
        errorlogs.clear();
        delete Expression::readCfgLine("foo(1)");
        delete Expression::readCfgLine("a)");
        error("");
        EXPECT_EQ(errorlogs, "Error: Unknown function:foo\n\nError: bracket mismatch\n\n");
        EXPECT_EQ(log.events().size(), level == kError ? 3U : 0U);
    }
}

TEST(Logging, everySiteNamesItsPlaceAndMindsTheLevel)
{
    const struct {
        const char* expression;
        const char* message;
        int level;
    } sites[] = {
        {"x", R"(assign_to_lvalue("x"))", kDebug},
        {R"(split("a;b",;,2))", "Looking for '; in 'a;b(1/2)", kDebug},
        {"rnd(10,abc)", "Coercion: Local seed: 1380", kDebug},
        {"mul(x,1)", "Coercion: Invalid parameter at function mul: x", kError},
        {"if(a,b)", "if does not take 2arguments", kError},
        {"foo(1)", "Error: Unknown function:foo\n", kError},
    };
    EXPECT_EQ(logger.getName(), "orvo.qdcm.kxmap");
    MappingSession session;
    for (const auto& site : sites) {
        LogCapture log;
        evaluate(site.expression, session);
        const LogEvent* found = nullptr;
        for (const LogEvent& event : log.events())
            if (event.message == site.message) found = &event;
        ASSERT_NE(found, nullptr) << site.message;
        EXPECT_EQ(found->level, site.level) << site.message;
        EXPECT_THAT(found->file, HasSubstr("/kxmap")) << site.message;
        EXPECT_GT(found->line, 0) << site.message;
        EXPECT_THAT(found->function, HasSubstr("(")) << site.message; // a signature, not a bare name
        const LogCapture errorsOnly(kError);
        evaluate(site.expression, session);
        EXPECT_THAT(errorsOnly.messages(kDebug), IsEmpty()) << site.message;
        logger.setLogLevel(OFLogger::OFF_LOG_LEVEL);
        log.clear();
        evaluate(site.expression, session);
        EXPECT_THAT(log.events(), IsEmpty()) << site.message;
    }
}

// The logger's stream takes the global locale when its thread first logs, so this looks at a thread of its own.
TEST(Logging, numbersFollowNoLocale)
{
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    LogCapture log;
    std::thread([] {
        std::string tag = "(1010,2020)";
        delete parseLV(tag);
        MappingSession session;
        evaluate("rnd(10,abc)", session);
        evaluate("mod(1,2,3,4,5,6,7,8,9,10,11)", session);
    }).join();
    std::locale::global(before);
    EXPECT_THAT(log.messages(), AllOf(Contains("lvalue: (1010,2020)"), Contains("Coercion: Local seed: 1380"),
                                      Contains("mod does not take 11arguments")));
}

} // namespace
