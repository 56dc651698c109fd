// SPDX-License-Identifier: BSD-3-Clause
// Where the parser was: what the tool's carets, colours and hints stand on.
#include "kxmap/core/inspect.h"
#include "support/fixture.h"

namespace {
using kxmap::NodeSpan;
using kxmap::ParseFault;
using kxmap::ParseTrace;
using kxmap::Span;

std::string cut(const std::string& line, Span span)
{
    return '<' + line.substr(span.begin, span.end - span.begin) + '>';
}

/// "kind<text><content>" of each node, then "," and the offset of each swallowed comma, then "!<fault>".
std::string shown(const std::string& line, const ParseTrace& trace)
{
    std::string all;
    for (const NodeSpan& seen : trace.nodes) {
        all += std::string(all.empty() ? "" : " ") + "EBQC"[static_cast<std::size_t>(seen.kind)];
        all += cut(line, seen.text) + cut(line, {seen.text.begin, seen.contentEnd});
    }
    for (const std::size_t comma : trace.swallowed) all += " ," + std::to_string(comma);
    if (!trace.message.empty()) all += " !" + cut(line, trace.fault.span);
    return all;
}

struct TraceCase {
    const char* line;
    const char* seen;
};
constexpr TraceCase kTraces[] = {
    {" abc\t", "B<abc><abc>"},
    {R"( "ab"c )", R"(Q<"ab"c><"ab">)"},
    {"or( x ,\xE9y )", "C<or( x ,\xE9y )><or> B<x><x> B<y><y>"},
    {"(a, )", "C<(a, )><> B<a><a> E<><>"},
    {"concat(a,,b)", "C<concat(a,,b)><concat> B<a><a> B<,b><,b> ,9"},
    {"a,,,2", "B<a><a> B<,><,> B<2><2> ,2"},
    {"not(foo(x))", "C<not(foo(x))><not> !<foo>"},
    {"not(\"x)", "C<not(\"x)><not> !<\"x>"},
    {"\"x)", " !<\"x)>"},
    {"not(\"x))", "C<not(\"x))><not> !<\"x)>"},
    {"\"x", " !<\"x>"},
    {"not(x))", " !<)>"},
    {"a,)bc)", "B<a><a> !<)>"},
    {"or(not(a,b),c)", "C<or(not(a,b),c)><or> C<not(a,b)><not> B<a><a> B<b><b> !<not>"},
    {"a,b", "B<a><a> B<b><b> !<>"},
};

TEST(Inspect, tellsWhereEachNodeStood)
{
    const kxtest::LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    for (const TraceCase& c : kTraces) {
        ParseTrace trace;
        errorlogs.clear();
        const auto tree = trace.parse(c.line);
        EXPECT_EQ(shown(c.line, trace), c.seen);
        EXPECT_EQ(errorlogs, "") << c.line;
        EXPECT_EQ(tree == nullptr, !trace.message.empty()) << c.line;
        if (tree) {
            EXPECT_EQ(trace.nodes.front().node, tree->params.front()) << c.line;
        }
    }
}

struct FaultCase {
    std::string line;
    ParseFault::Kind kind;
    const char* name = "";
    const FunctionDef* function = nullptr;
    std::size_t count = 0;
};

std::string nested(int calls)
{
    std::string line;
    for (int i = 0; i < calls; ++i) line += "not(";
    return line + "x" + std::string(static_cast<std::size_t>(calls), ')');
}

TEST(Inspect, tellsTheFaultAsData)
{
    using Kind = ParseFault::Kind;
    const FaultCase cases[] = {
        {"x", Kind::None},
        {"not(foo(x))", Kind::UnknownFunction, "foo"},
        {"a b (x)", Kind::UnknownFunction, "a b "},
        {R"("not"(x))", Kind::UnknownFunction, R"("not")"},
        {" does not take 3 arguments(x)", Kind::UnknownFunction, "does not take 3 arguments"},
        {"or(not(a,b),c)", Kind::ArgumentCount, "", &f_not, 2},
        {"concat(a)", Kind::ArgumentCount, "", &f_concat, 1},
        {"(a,b,c)", Kind::ArgumentCount, "", &f_empty, 3},
        {"a,b", Kind::ArgumentCount, "", &f_root, 2},
        {"", Kind::ArgumentCount, "", &f_root, 0},
        {"not(x))", Kind::StrayBracket},
        {"not(\"x))", Kind::NoOpenBracket},
        {"not(\"x)", Kind::OpenQuote},
        {nested(kxmap::kMaxNesting), Kind::None},
        {nested(kxmap::kMaxNesting + 1), Kind::NestedTooDeeply},
    };
    const kxtest::LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    for (const FaultCase& c : cases) {
        ParseTrace trace;
        EXPECT_EQ(trace.parse(c.line.c_str()) == nullptr, c.kind != Kind::None) << c.line;
        EXPECT_EQ(trace.fault.kind, c.kind) << c.line << ": " << trace.message;
        EXPECT_EQ(trace.fault.name, c.name) << c.line;
        EXPECT_EQ(trace.fault.function, c.function) << c.line;
        EXPECT_EQ(trace.fault.count, c.count) << c.line;
    }
}

TEST(Inspect, beginsAnew)
{
    const kxtest::LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    ParseTrace trace;
    EXPECT_EQ(trace.parse("concat(a,,foo(b))"), nullptr);
    EXPECT_EQ(trace.message, "Unknown function:,foo\n");
    EXPECT_NE(trace.parse("x"), nullptr);
    EXPECT_EQ(shown("x", trace), "B<x><x>");
    EXPECT_EQ(trace.fault.kind, ParseFault::Kind::None);
    EXPECT_EQ(trace.fault.name, "");
}

} // namespace
