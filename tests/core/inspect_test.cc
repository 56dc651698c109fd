// SPDX-License-Identifier: BSD-3-Clause
// Where the parser was: what the tool's carets, colours and hints stand on.
#include "kxmap/core/inspect.h"
#include "support/fixture.h"

namespace {
using kxmap::NodeSpan;
using kxmap::ParseTrace;
using kxmap::Span;

std::string cut(const std::string& line, Span span)
{
    return '<' + line.substr(span.begin, span.end - span.begin) + '>';
}

/// "kind depth<raw><text><content>" of each node, then "," and the offset of each swallowed comma, then "!<fault>".
std::string shown(const std::string& line, const ParseTrace& trace)
{
    std::string all;
    for (const NodeSpan& seen : trace.nodes) {
        all += std::string(all.empty() ? "" : " ") + "EBQC"[static_cast<std::size_t>(seen.kind)] +
               std::to_string(seen.depth);
        all += cut(line, seen.raw) + cut(line, seen.text) + cut(line, {seen.text.begin, seen.contentEnd});
    }
    for (const std::size_t comma : trace.swallowed) all += " ," + std::to_string(comma);
    if (!trace.message.empty()) all += " !" + cut(line, trace.fault);
    return all;
}

struct TraceCase {
    const char* line;
    const char* seen;
};
constexpr TraceCase kTraces[] = {
    {" abc\t", "B0<abc><abc><abc>"},
    {R"( "ab"c )", R"(Q0<"ab"c><"ab"c><"ab">)"},
    {"or( x ,\xE9y )", "C0<or( x ,\xE9y )><or( x ,\xE9y )><or> B1<x ><x><x> B1<\xE9y><y><y>"},
    {"(a, )", "C0<(a, )><(a, )><> B1<a><a><a> E1<><><>"},
    {"concat(a,,b)", "C0<concat(a,,b)><concat(a,,b)><concat> B1<a><a><a> B1<,b><,b><,b> ,9"},
    {"a,,,2", "B0<a><a><a> B0<,><,><,> B0<2><2><2> ,2"},
    {"not(foo(x))", "C0<not(foo(x))><not(foo(x))><not> !<foo>"},
    {"not(\"x)", "C0<not(\"x)><not(\"x)><not> !<\"x>"},
    {"\"x)", " !<\"x)>"},
    {"not(\"x))", "C0<not(\"x))><not(\"x))><not> !<\"x)>"},
    {"\"x", " !<\"x>"},
    {"not(x))", " !<)>"},
    {"a,)bc)", "B0<a><a><a> !<)>"},
    {"or(not(a,b),c)",
     "C0<or(not(a,b),c)><or(not(a,b),c)><or> C1<not(a,b)><not(a,b)><not> B2<a><a><a> B2<b><b><b> !<not>"},
    {"a,b", "B0<a><a><a> B0<b><b><b> !<>"},
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

TEST(Inspect, beginsAnew)
{
    const kxtest::LogCapture quiet(OFLogger::OFF_LOG_LEVEL);
    ParseTrace trace;
    EXPECT_EQ(trace.parse("concat(a,,foo(b))"), nullptr);
    EXPECT_EQ(trace.message, "Unknown function:,foo\n");
    EXPECT_NE(trace.parse("x"), nullptr);
    EXPECT_EQ(shown("x", trace), "B0<x><x><x>");
    EXPECT_TRUE(trace.fault.begin == 0 && trace.fault.end == 0) << "of nothing";
}

} // namespace
