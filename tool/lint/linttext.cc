// SPDX-License-Identifier: BSD-3-Clause
// The bytes of a line: comments, blanks, and what an editor or a copy from elsewhere leaves behind.
#include "tool/lint/lint.h"
#include "tool/rules/lintnames.h"

#include <fmt/format.h>

namespace kxtool {
namespace {

using kxmap::NodeSpan;
using kxmap::Span;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLineBytes = kxmap::kLineBufferBytes - 1;

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

void lintComment(const Site& site)
{
    if (site.line.kind != RuleLine::Kind::Bad) return;
    site.report(
        Check::CommentWithEquals, {site.line.equals, site.line.equals + 1},
        "a comment with a \"=\": the engine reads it as a rule, and drops it only because no target begins with \"#\"",
        "say it without \"=\"");
}

void lintWithoutEquals(const Site& site)
{
    const std::string& text = site.line.text;
    if (text.empty()) return;
    const std::size_t first = text.find_first_not_of(" \t\v\f\r");
    if (first == std::string::npos) {
        site.report(Check::BlankLine, {0, text.size()},
                    "a line of blanks alone: the engine's own check calls it an error", "empty the line");
    } else if (text[first] == '#') {
        site.report(Check::IndentedComment, {0, first},
                    "a blank before \"#\": the engine's own check calls the line an error",
                    "begin the line with \"#\"");
    } else if (text == kByteOrderMark || text.starts_with(std::string(kByteOrderMark) + "#")) {
        site.report(Check::ByteOrderMark, {0, kByteOrderMark.size()}, "a byte order mark stands before the comment",
                    "save the file as UTF-8 without a byte order mark");
    } else {
        const std::size_t colon = text.find_first_of(":~");
        const bool isTag = text[first] == '(' && colon != std::string::npos;
        site.report(Check::MissingEquals, {first, text.size()},
                    "this line has no \"=\": it is no rule, and the engine drops it",
                    site.line.column > 0 ? "the line before it was cut here"
                    : isTag              ? "a rule is target=expression"
                                         : "begin a comment with \"#\"");
    }
}

void lintLength(const Site& site)
{
    if (!site.line.isCut || site.line.column != 0 || site.line.text.empty()) return;
    const bool isComment = site.line.text.starts_with('#');
    site.report(
        Check::LongLine, {site.line.text.size() - 1, site.line.text.size()},
        fmt::format("the line is longer than {} bytes: what follows here is read as a line of its own", kLineBytes),
        isComment ? "break the comment; behind the cut a \"=\" makes a rule of it"
                  : "split the rule, and keep a part of it in a variable");
}

// The stretch of bytes around a node that the parser trimmed, where letters were among them.
void lintTrimmed(const Site& site, const NodeSpan& node)
{
    const std::string_view right = site.line.right();
    const auto isTrimmed = [](char c) { return !isAscii(c) || c <= ' '; };
    const auto report = [&](std::size_t begin, std::size_t end) {
        while (begin < end && isAscii(right[begin])) ++begin;
        while (end > begin && isAscii(right[end - 1])) --end;
        if (begin == end) return;
        site.reportRight(Check::TrimmedBytes, {begin, end},
                         "bytes beyond ASCII at the edge of a text are trimmed like blanks: these are lost",
                         node.kind == NodeSpan::Kind::Quoted ? "remove them" : "put the text in quotes");
    };
    std::size_t begin = node.text.begin;
    while (begin > 0 && isTrimmed(right[begin - 1])) --begin;
    std::size_t end = node.text.end;
    while (end < right.size() && isTrimmed(right[end])) ++end;
    report(begin, node.text.begin);
    if (node.text.end > node.text.begin) report(node.text.end, end); // of an empty one both are the same stretch
}

void lintControls(const Site& site)
{
    const std::string& text = site.line.text;
    if (site.line.hasNul)
        site.report(Check::NulByte, {text.size(), text.size() + 1},
                    "a NUL byte: the engine does not read the rest of the line", "remove it");
    const std::size_t feed = text.find('\r');
    // At the end of a rule it is trimmed like a blank.
    if (feed != std::string::npos && feed + 1 < text.size())
        site.report(Check::CarriageReturn, {feed, feed + 1}, "a carriage return alone does not end a line",
                    "end lines with a line feed");
}

} // namespace

void lintText(const Site& site)
{
    lintLength(site);
    lintControls(site);
    if (site.line.text.starts_with('#')) {
        lintComment(site);
    } else if (site.line.kind == RuleLine::Kind::WithoutEquals) {
        lintWithoutEquals(site);
    } else if (site.line.kind == RuleLine::Kind::Rule) {
        for (const NodeSpan& node : site.line.trace.nodes) lintTrimmed(site, node);
    }
}

} // namespace kxtool
