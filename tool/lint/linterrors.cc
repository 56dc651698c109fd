// SPDX-License-Identifier: BSD-3-Clause
// Lines that the engine drops: what is wrong, where, and what to write instead.
#include "tool/console/text.h"
#include "tool/lint/lint.h"
#include "tool/rules/lintnames.h"

#include "kxmap.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fmt/format.h>
#include <optional>
#include <vector>

namespace kxtool {
namespace {

using kxmap::ParseFault;
using kxmap::Span;

constexpr const char* kTargets = "a target is (gggg,eeee), SEQ(...), $(name) or USER(name)";

bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r';
}

Span trimmedSpan(std::string_view text)
{
    Span span{0, text.size()};
    while (span.begin < span.end && isBlank(text[span.begin])) ++span.begin;
    while (span.end > span.begin && isBlank(text[span.end - 1])) --span.end;
    return span;
}

std::string_view cut(std::string_view text, Span span)
{
    return text.substr(span.begin, span.end - span.begin);
}

bool isTarget(std::string_view left)
{
    const RuleFile file = readRuleText(std::string(left) + "=x", "");
    return file.lines.size() == 1 && file.lines.front().target;
}

// A blank before or behind a target that is good without it.
bool explainBlank(const Site& site, std::string_view left)
{
    const Span kept = trimmedSpan(left);
    const std::string_view target = cut(left, kept);
    if (target.size() == left.size() || target.empty() || !isTarget(target)) return false;
    if (kept.end < left.size()) {
        site.report(Check::BlankBeforeEquals, {kept.end, left.size()}, "blank before \"=\": the line is dropped",
                    fmt::format("remove the blank: {}=", target));
    } else {
        site.report(Check::BadTarget, {0, kept.begin}, "blank before the target: the line is dropped",
                    fmt::format("begin the line with {}", target));
    }
    return true;
}

void explainTag(const Site& site, std::string_view left)
{
    const std::string meant = tagMeantBy(left);
    site.report(
        Check::BadTarget, {0, left.size()},
        fmt::format("{} is no tag: a tag is \"(gggg,eeee)\", with four hexadecimal digits each", shownQuoted(left)),
        meant.empty() ? "" : fmt::format("did you mean {}?", meant));
}

bool startsNumber(std::string_view piece, bool isHex)
{
    while (!piece.empty() && std::isspace(static_cast<unsigned char>(piece.front())) != 0) piece.remove_prefix(1);
    if (piece.starts_with('+') || piece.starts_with('-')) piece.remove_prefix(1);
    if (piece.empty()) return false;
    const auto first = static_cast<unsigned char>(piece.front());
    return (isHex ? std::isxdigit(first) : std::isdigit(first)) != 0;
}

void explainSequence(const Site& site, std::string_view left)
{
    constexpr std::size_t kPrefix = 4; // "SEQ("
    const std::size_t end = std::max(kPrefix, left.size() - 1);
    std::size_t position = 0;
    for (std::size_t begin = kPrefix; begin <= end; ++position) {
        const std::size_t pieceEnd = std::min(left.find(',', begin), end);
        const std::string_view piece = left.substr(begin, pieceEnd - begin);
        if (!startsNumber(piece, position % 3 != 2)) {
            const char* wanted = position % 3 == 0   ? "a group, in hexadecimal digits"
                                 : position % 3 == 1 ? "an element, in hexadecimal digits"
                                                     : "an item number, counted from 0";
            const bool isShort = position % 3 == 2 && left.find(',', begin) == std::string_view::npos && piece.empty();
            site.report(Check::BadTarget, {begin, std::max(pieceEnd, begin + 1)},
                        fmt::format("{} is not {}", shownQuoted(piece), wanted),
                        isShort ? "remove the comma before \")\"" : "SEQ(gggg,eeee,item,gggg,eeee)");
            return;
        }
        begin = pieceEnd + 1;
    }
    site.report(
        Check::BadTarget, {0, left.size()},
        fmt::format("SEQ has {} pieces: a path is a tag, and in front of it any number of tags with item numbers",
                    position),
        position % 3 == 0 ? "name the tag in that item: SEQ(gggg,eeee,item,gggg,eeee)"
                          : "SEQ(gggg,eeee,item,gggg,eeee)");
}

void explainName(const Site& site, std::string_view left, std::size_t prefix)
{
    std::size_t bad = prefix;
    if (bad < left.size() && left[bad] == '@') ++bad;
    const std::size_t first = bad;
    while (bad < left.size() && std::isalnum(static_cast<unsigned char>(left[bad])) != 0) ++bad;
    if (bad == left.size()) {
        site.report(Check::BadTarget, {bad - 1, bad}, "the name has no \")\" behind it", fmt::format("{})=", left));
    } else if (bad == first) {
        site.report(Check::BadTarget, {bad, bad + 1}, "the name is empty or does not begin with a letter or digit",
                    "a name is ASCII letters and digits; \"@\" in front lets a variable outlive its mapping");
    } else if (left[bad] == ')') {
        site.report(Check::BadTarget, {bad + 1, left.size()}, "nothing may stand between \")\" and \"=\"",
                    fmt::format("{}=", left.substr(0, bad + 1)));
    } else {
        site.report(Check::BadTarget, {bad, bad + 1}, fmt::format("{} in a name", shownQuoted(left.substr(bad, 1))),
                    "a name is ASCII letters and digits; \"@\" in front lets a variable outlive its mapping");
    }
}

std::string hintForTarget(std::string_view left)
{
    if (left.starts_with('$') || left.starts_with('@')) {
        std::string name(left.substr(
            left.find_first_not_of('$') == std::string_view::npos ? left.size() : left.find_first_not_of('$')));
        std::erase_if(name, [](char c) { return c == '(' || c == ')' || c == ' ' || c == '{' || c == '}'; });
        if (isTarget("$(" + name + ")")) return fmt::format("did you mean $({})?", name);
    }
    if (startsWithAnyCase(left, "seq(")) return fmt::format("did you mean SEQ{}?", left.substr(3));
    if (startsWithAnyCase(left, "user(")) return fmt::format("did you mean USER{}?", left.substr(4));
    if (const std::string tag = tagMeantBy(left); !tag.empty()) return fmt::format("did you mean {}?", tag);
    if (left.ends_with(':')) return "a rule is target=expression, without a colon";
    return kTargets;
}

void explainTarget(const Site& site)
{
    const std::string_view left = site.line.left();
    const Span all{0, left.size()};
    if (left.empty()) {
        site.report(Check::EmptyTarget, {0, 1}, "nothing stands before \"=\"", kTargets);
    } else if (left.starts_with("\xEF\xBB\xBF")) {
        site.report(Check::BadTarget, {0, 3}, "a byte order mark stands before the target: the line is dropped",
                    "save the file as UTF-8 without a byte order mark");
    } else if (explainBlank(site, left)) {
        return;
    } else if (left.starts_with("SEQ(")) {
        explainSequence(site, left);
    } else if (left.starts_with("USER(") || left.starts_with("$(")) {
        explainName(site, left, left.find('(') + 1);
    } else if (left.starts_with('(')) {
        explainTag(site, left);
    } else {
        site.report(Check::BadTarget, all, fmt::format("{} is no target", shownQuoted(left)), hintForTarget(left));
    }
}

/// @return "3 arguments", "1 or 2 arguments", "2 or more arguments", "2, 5, 8, ... arguments"
std::string argumentsOf(const FunctionDef& function)
{
    constexpr int kProbed = 12;
    std::vector<int> taken;
    for (int count = 0; count <= kProbed; ++count) {
        if (function.numParamsOK(count)) taken.push_back(count);
    }
    const int first = taken.empty() ? 0 : taken.front();
    if (taken.size() == 1)
        return fmt::format("{} argument{}", first == 0 ? "no" : std::to_string(first), first == 1 ? "" : "s");
    if (taken.size() <= 2) return fmt::format("{} arguments", fmt::join(taken, " or "));
    if (static_cast<int>(taken.size()) == kProbed - first + 1) return fmt::format("{} or more arguments", first);
    return fmt::format("{}, {}, {}, ... arguments", taken[0], taken[1], taken[2]);
}

/// @return where the last "(" stands that no ")" closes, quoted text aside; npos when all are closed.
std::size_t unclosedBracket(std::string_view text)
{
    std::vector<std::size_t> open;
    bool inQuote = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') inQuote = !inQuote;
        else if (inQuote && text[i] == '\\') ++i;
        else if (!inQuote && text[i] == '(') open.push_back(i);
        else if (!inQuote && text[i] == ')' && !open.empty()) open.pop_back();
    }
    return open.empty() ? std::string_view::npos : open.back();
}

void explainCount(const Site& site, const ParseFault& fault)
{
    const FunctionDef& function = *fault.function;
    const Span span = fault.span;
    const std::size_t count = fault.count;
    if (&function == &f_root && count == 0) {
        site.reportRight(Check::ArgumentCount, span, "nothing stands behind \"=\"",
                         "write NULL() to delete the target, \"\" to empty it");
        return;
    }
    if (&function == &f_root) {
        const Span right{0, site.line.right().size()};
        site.reportRight(Check::ArgumentCount, right,
                         fmt::format("the right side falls into {} parts at its commas", count),
                         "quote a text that holds commas; three parts are text, separator and field number");
        return;
    }
    const std::string_view name = function.name;
    const std::string takes = argumentsOf(function);
    if (name.empty()) {
        site.reportRight(Check::ArgumentCount, {span.begin, span.end + 1},
                         fmt::format("brackets without a name take {}, and here are {}", takes, count),
                         "a tag is (gggg,eeee)");
        return;
    }
    if (const std::size_t open = unclosedBracket(site.line.right()); open != std::string_view::npos) {
        site.reportRight(
            Check::ArgumentCount, {open, open + 1},
            fmt::format("this \"(\" is not closed, so \"{}\" gets {} where it takes {}", name, count, takes),
            "add a \")\" where the call ends");
        return;
    }
    std::string hint;
    if (name == "NULL") hint = "NULL() stands alone";
    if (name == "if")
        hint = "if(condition,then,otherwise); without an otherwise, write NULL() there, or the target itself";
    if (name == "translate") hint = "translate(value,default,from,to,...)";
    site.reportRight(Check::ArgumentCount, span, fmt::format("\"{}\" takes {}, and here are {}", name, takes, count),
                     hint);
}

void explainExpression(const Site& site)
{
    using Kind = ParseFault::Kind;
    const std::string_view right = site.line.right();
    const ParseFault& fault = site.line.trace.fault;
    const Span span = fault.span;
    const std::string_view about = cut(right, span);
    switch (fault.kind) {
    case Kind::None:
        return;
    case Kind::UnknownFunction:
        return site.reportRight(Check::UnknownFunction, span,
                                fmt::format("there is no function {}", shownQuoted(fault.name)),
                                hintForFunction(fault.name));
    case Kind::ArgumentCount:
        return explainCount(site, fault);
    case Kind::NoOpenBracket:
        return site.reportRight(Check::BracketMismatch, span,
                                fmt::format("{} ends in \")\" and has no \"(\"", shownQuoted(about)),
                                "quote the whole text, the bracket within");
    case Kind::StrayBracket: {
        const bool isInfix = span.end < right.size() && looksInfix(right.substr(span.begin));
        return site.reportRight(Check::BracketMismatch, span, "this \")\" has no \"(\"",
                                isInfix ? hintForInfix(right) : "");
    }
    case Kind::OpenQuote: {
        const bool isEscaped = about.size() > 1 && about.ends_with("\\\"");
        return site.reportRight(
            Check::UnclosedQuote, {span.begin, span.begin + 1}, "this quote is not closed",
            isEscaped ? "a backslash before the last quote makes it part of the text; \"\\\\\" is a backslash" : "");
    }
    case Kind::NestedTooDeeply:
        return site.reportRight(Check::NestingTooDeep, {span.begin, span.begin + 1},
                                fmt::format("more than {} calls within calls", kxmap::kMaxNesting));
    }
}

} // namespace

void lintError(const Site& site)
{
    if (site.line.target) explainExpression(site);
    else explainTarget(site);
}

} // namespace kxtool
