// SPDX-License-Identifier: BSD-3-Clause
// Texts of a right side that hardly mean what they say: calls, variables and comments that were meant, and were not read.
#include "tool/lint/foreign.h"
#include "tool/lint/lint.h"
#include "tool/rules/builtins.h"
#include "tool/rules/lintnames.h"

#include "kxmap.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fmt/format.h>

namespace kxtool {
namespace {

using kxmap::NodeSpan;
using kxmap::Span;
using Kind = NodeSpan::Kind;

std::string_view cut(std::string_view text, Span span)
{
    return text.substr(span.begin, span.end - span.begin);
}

const char* textOf(const Expression& node)
{
    return node.text == nullptr ? "" : node.text;
}

/// @param end where the first bracket that a bare text opens is closed
/// @return whether the text up to there is a call or a tag.
bool isCallUpTo(std::string_view text, std::size_t end)
{
    const std::size_t open = text.find('(');
    return open == 0 ? !tagMeantBy(text.substr(0, end)).empty() : builtinNamed(text.substr(0, open)) != nullptr;
}

// A bare text whose brackets or quotes tell that a call was meant: the parser sees one only where ")" is the last byte.
bool lintBareBrackets(const Site& site, const NodeSpan& node, std::string_view text)
{
    std::vector<std::size_t> open;
    bool inQuote = false;
    std::size_t quote = std::string_view::npos;
    std::size_t end = 0; // of the first bracket
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            inQuote = !inQuote;
            quote = std::min(quote, i);
        } else if (inQuote && text[i] == '\\') {
            ++i;
        } else if (!inQuote && text[i] == '(') {
            open.push_back(i);
        } else if (!inQuote && text[i] == ')' && !open.empty()) {
            open.pop_back();
            if (open.empty() && end == 0) end = i + 1;
        }
    }
    const std::size_t begin = node.text.begin;
    if (!open.empty()) {
        site.reportRight(Check::UnclosedBracket, {begin + open.front(), begin + open.front() + 1},
                         "this \"(\" is not closed, so the engine takes the text as it stands", "add a \")\"");
    } else if (looksInfix(text)) {
        site.reportRight(Check::InfixOperator, node.text, "this is one text for the engine, and nothing is computed",
                         hintForInfix(text));
    } else if (end > 0 && isCallUpTo(text, end)) {
        site.reportRight(Check::TextAfterBracket, {begin + end, node.text.end},
                         "with this behind its \")\" the call is none: all of it is one text",
                         "end with the \")\"; write concat(a,b) to join; put the text in quotes where it is meant");
    } else if (quote != std::string_view::npos) {
        site.reportRight(Check::QuoteInBareText, {begin + quote, begin + quote + 1},
                         "a quote within a text that does not begin with one is part of the text",
                         "put the whole text in quotes, or part it with a comma");
    } else {
        return false;
    }
    return true;
}

constexpr const char* kNoComments = "put the comment on a line of its own that begins with # and has no \"=\"";

/// @return whether a word is how other languages write the value that is none.
bool isNullElsewhere(std::string_view text)
{
    constexpr std::array kWords = {"null", "nil", "undefined", "nullptr", "<null>", "<empty>", "<none>"};
    return std::ranges::any_of(kWords, [text](std::string_view word) {
        return std::ranges::equal(text, word, {}, [](char c) { return c >= 'A' && c <= 'Z' ? c | 0x20 : c; });
    });
}

// A bare text of one word, or that looks like a call in other brackets.
void lintWord(const Site& site, const NodeSpan& node, std::string_view text)
{
    const auto asText = [text] { return fmt::format("this is the text {}", shownQuoted(text)); };
    const std::size_t bracket = text.find_first_of("[{");
    const Builtin* called = bracket == std::string_view::npos ? nullptr : builtinNamed(text.substr(0, bracket));
    if (isNullElsewhere(text)) {
        site.reportRight(Check::BareFunction, node.text, text == "NULL" ? "without brackets " + asText() : asText(),
                         "NULL() is the absent value; put the text in quotes where it is meant");
    } else if (builtinNamed(text) != nullptr && text != "$") {
        site.reportRight(Check::BareFunction, node.text, fmt::format("without brackets {}", asText()),
                         fmt::format("write {}(...) for the function, \"{}\" for the text", text, text));
    } else if (called != nullptr && called->way != Way::Variable && (text.ends_with(']') || text.ends_with('}'))) {
        site.reportRight(Check::BareFunction, node.text, asText(),
                         fmt::format("a call has round brackets: {}(...)", called->name()));
    } else if (text.starts_with('$')) {
        std::string name(text.substr(1));
        std::erase_if(name, [](char c) { return std::string_view("$(){} ").find(c) != std::string_view::npos; });
        site.reportRight(Check::BareVariable, node.text, asText(), fmt::format("a variable is read with $({})", name));
    } else if (const std::string_view word = text.substr(text.find_last_of('.') + 1); isKeyword(word)) {
        site.reportRight(Check::BareKeyword, node.text, asText(),
                         fmt::format("write {} for the element's value", tagOfKeyword(word)));
    } else if (isInForeignQuotes(text)) {
        site.reportRight(Check::ForeignQuote, node.text, "these quotes are part of the text",
                         "a text stands in double quotes: \"text\"");
    } else if (text.ends_with(';') && text.size() > 1) {
        site.reportRight(Check::TextAfterBracket, {node.text.end - 1, node.text.end},
                         "the \";\" is part of the text: rules end with their line",
                         "remove it; put the text in quotes where it is meant");
    }
}

void lintBare(const Site& site, const NodeSpan& node)
{
    const std::string_view text = textOf(*node.node);
    if (const std::size_t comment = findComment(text); comment != std::string_view::npos) {
        site.reportRight(Check::TrailingComment, {node.text.begin + comment, node.text.end},
                         "rules have no comments behind them: all of this is one text", kNoComments);
        return;
    }
    if (lintBareBrackets(site, node, text)) return;
    lintWord(site, node, text);
}

void lintQuoted(const Site& site, const NodeSpan& node)
{
    const std::string_view right = site.line.right();
    if (node.contentEnd < node.text.end) {
        const Span rest{node.contentEnd, node.text.end};
        const std::string_view after = right.substr(rest.begin, rest.end - rest.begin);
        site.reportRight(Check::TextAfterQuote, rest, "what follows the closing quote is ignored",
                         findComment(after) != std::string_view::npos ? kNoComments
                         : looksInfix('"' + std::string(after) + ' ')
                             ? hintForInfix(right.substr(node.text.begin, node.text.end - node.text.begin))
                             : "put all of it in quotes, or part it with a comma");
    }
    for (std::size_t i = node.text.begin + 1; i + 1 < node.contentEnd; ++i) {
        if (right[i] != '\\') continue;
        const char next = right[++i];
        if (next == '\\' || next == '"' || next == 'n') continue;
        site.reportRight(Check::LostBackslash, {i - 1, i + 1},
                         fmt::format("\"\\{}\" is read as \"{}\", and the backslash is lost", next, next),
                         "write \\\\ for a backslash, which parts the values of an element");
    }
}

// A text, in quotes or not, that holds what would be read outside of it.
void lintHeld(const Site& site, const NodeSpan& node)
{
    const std::string_view text = textOf(*node.node);
    const bool isBare = node.kind == Kind::Bare;
    // What a bare text is or begins with has been looked at.
    const auto reference = isBare && (text.find("$(") == std::string_view::npos || text.starts_with('$'))
                               ? std::nullopt
                               : findReference(text);
    if (reference) {
        site.reportRight(Check::QuotedReference, node.text,
                         fmt::format("{} is text here, and is not read", shownQuoted(cut(text, reference->span))),
                         reference->span.end - reference->span.begin == text.size()
                             ? fmt::format("without quotes it is read: {}", reference->meant)
                             : fmt::format("join what is read with texts: concat(\"...\",{})", reference->meant));
        return;
    }
    if (isBare && text.starts_with('$')) return;
    const auto isSet = [&site](const std::string& name) { return site.file.variables.contains(name); };
    if (const auto placeholder = findPlaceholder(text, isSet))
        site.reportRight(
            Check::Placeholder, node.text,
            fmt::format("{} is text here: nothing takes its place", shownQuoted(cut(text, placeholder->span))),
            fmt::format("join what is read with texts: concat(\"...\",{})",
                        placeholder->meant.starts_with("concat") ? "(gggg,eeee)" : placeholder->meant));
}

// Brackets around a bare text: a tag in another spelling.
void lintBrackets(const Site& site, const NodeSpan& call)
{
    const Expression& inner = *call.node->params.front();
    const auto found = std::ranges::find(site.line.trace.nodes, &inner, &NodeSpan::node);
    if (found == site.line.trace.nodes.end() || found->kind != Kind::Bare) return;
    const std::string meant = tagMeantBy(textOf(inner));
    site.reportRight(Check::OddTag, call.text,
                     fmt::format("this is no tag, but the text {}", shownQuoted(textOf(inner))),
                     meant.empty() ? "a tag is (gggg,eeee), with four hexadecimal digits each"
                                   : fmt::format("did you mean {}?", meant));
}

// "[0018,0015]" and "0018,0015": two texts for the parser.
void lintOpenTag(const Site& site, const Expression& first, const Expression& second)
{
    const std::string text = std::string(textOf(first)) + "," + textOf(second);
    const bool isBracketed = text.find_first_of("[{") == 0 && text.find_first_of("]}") == text.size() - 1;
    const std::string body = isBracketed ? text.substr(1, text.size() - 2) : text;
    const auto reference = findReference(body);
    if (!reference || body.size() != 9) return;
    site.reportRight(Check::OddTag, {site.spanOf(first).begin, site.spanOf(second).end},
                     "these are two texts, and no tag", fmt::format("did you mean {}?", reference->meant));
}

/// @return whether a call compares or looks for its argument.
bool isWanted(const Builtin& builtin, std::size_t index)
{
    switch (builtin.way) {
    case Way::Equal:
        return true;
    case Way::Found:
        return index == 1;
    case Way::Table:
        return index >= 2 && index % 2 == 0;
    default:
        return builtin.reads.at(index) == Reading::Wanted;
    }
}

void lintArgument(const Site& site, const Expression& call, std::size_t index, const Expression& argument)
{
    const Builtin& builtin = builtinOf(call.func);
    const std::string_view text = textOf(argument);
    const bool isAny = text == "*" && (builtin.way == Way::Equal || builtin.way == Way::Table);
    if (isWanted(builtin, index) && (isAny || isPattern(text))) {
        site.reportRight(Check::ForeignPattern, site.spanOf(argument),
                         fmt::format("texts are compared byte by byte: {} is no pattern", shownQuoted(text)),
                         "contains(text,part) looks for a part; or(equals(a,b),equals(a,c)) for one of several");
    }
    const Span span = site.spanOf(argument);
    const bool isBare = site.line.right().substr(span.begin, 1) != "\"";
    const bool isWord = isBare && text.size() > 3 && text[0] >= 'A' && text[0] <= 'Z' && !isKeyword(text) &&
                        (builtin.way == Way::Equal || !isWanted(builtin, index));
    if (const std::string tag = isWord ? tagOfKeyword(text) : ""; !tag.empty())
        site.reportRight(Check::BareKeyword, span, fmt::format("this is the text \"{}\"", text),
                         fmt::format("write {} for the element's value", tag));
}

// A word that names a variable of the file, joined to a text.
void lintJoined(const Site& site, const Expression& argument)
{
    const std::string name = textOf(argument);
    const Span span = site.spanOf(argument);
    if (site.line.right().substr(span.begin, 1) == "\"" || !site.file.variables.contains(name)) return;
    site.reportRight(Check::BareVariable, span, fmt::format("this is the text {}", shownQuoted(name)),
                     fmt::format("a variable is read with $({}); put the text in quotes where it is meant", name));
}

void lintCallArguments(const Site& site, const NodeSpan& node)
{
    const Expression& call = *node.node;
    const Way way = wayOf(call);
    if (way == Way::Tag || way == Way::Path) return;
    if (way == Way::Brackets) return lintBrackets(site, node);
    std::size_t index = 0;
    const Expression* before = nullptr;
    for (const Expression* argument : call.params) {
        const bool isText = argument->func == nullptr;
        if (isText) lintArgument(site, call, index, *argument);
        if (isText && way == Way::Joined) lintJoined(site, *argument);
        if (isText && before != nullptr) lintOpenTag(site, *before, *argument);
        before = isText ? argument : nullptr;
        ++index;
    }
}

} // namespace

void lintLiterals(const Site& site)
{
    const kxmap::ParseTrace& trace = site.line.trace;
    const Expression* name = nullptr; // of the variable or field whose brackets were seen last
    for (const NodeSpan& node : trace.nodes) {
        if (node.kind == Kind::Call) {
            lintCallArguments(site, node);
            const Way way = wayOf(*node.node);
            if (way == Way::Variable || way == Way::Field) name = node.node->params.front();
        } else if (node.kind != Kind::Empty && node.node != name) {
            if (node.kind == Kind::Bare) lintBare(site, node);
            else lintQuoted(site, node);
            lintHeld(site, node);
        }
    }
    for (const std::size_t comma : trace.swallowed)
        site.reportRight(Check::SwallowedComma, {comma, comma + 1},
                         "a comma behind a comma becomes part of the next argument",
                         "write \"\" for an empty text, NULL() for no value");
}

} // namespace kxtool
