// SPDX-License-Identifier: BSD-3-Clause
// Right sides that parse and yet hardly mean what they say.
#include "tool/lint/lint.h"
#include "tool/rules/lintnames.h"

#include "kxmap.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <fmt/format.h>
#include <limits>

namespace kxtool {
namespace {

using kxmap::NodeSpan;
using kxmap::Span;
using Kind = NodeSpan::Kind;

bool isLiteral(const Expression& node)
{
    return node.func == nullptr;
}

const char* textOf(const Expression& node)
{
    return node.text == nullptr ? "" : node.text;
}

const FunctionDef* functionNamed(std::string_view name)
{
    const auto end = std::end(funcList) - 1;
    const auto found = std::find_if(std::begin(funcList), end, [&](const FunctionDef* f) { return name == f->name; });
    return found == end || *(*found)->name == '\0' ? nullptr : *found;
}

bool isCamel(std::string_view word)
{
    bool hasStep = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (std::isalnum(static_cast<unsigned char>(word[i])) == 0) return false;
        hasStep = hasStep || (i > 0 && std::islower(static_cast<unsigned char>(word[i - 1])) != 0 &&
                              std::isupper(static_cast<unsigned char>(word[i])) != 0);
    }
    return hasStep;
}

/// @param end where the first bracket that a bare text opens is closed
/// @return whether the text up to there is a call or a tag.
bool isCallUpTo(std::string_view text, std::size_t end)
{
    const std::size_t open = text.find('(');
    return open == 0 ? !tagMeantBy(text.substr(0, end)).empty() : functionNamed(text.substr(0, open)) != nullptr;
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

/// @return where a "#" stands between blanks or the text's edges, as before a comment; npos for none.
std::size_t findComment(std::string_view text)
{
    const auto isEdge = [text](std::size_t i) { return i >= text.size() || text[i] == ' ' || text[i] == '\t'; };
    std::size_t at = text.find('#');
    while (at != std::string_view::npos && !(isEdge(at - 1) && isEdge(at + 1))) at = text.find('#', at + 1);
    return at;
}

constexpr const char* kNoComments = "put the comment on a line of its own that begins with # and has no \"=\"";

void lintBare(const Site& site, const NodeSpan& node)
{
    const std::string_view text = textOf(*node.node);
    if (const std::size_t comment = findComment(text); comment != std::string_view::npos) {
        site.reportRight(Check::TrailingComment, {node.text.begin + comment, node.text.end},
                         "rules have no comments behind them: all of this is one text", kNoComments);
        return;
    }
    if (lintBareBrackets(site, node, text)) return;
    if (const FunctionDef* function = functionNamed(text); function != nullptr && text != "$") {
        const bool isNull = function == &f_NULL;
        site.reportRight(Check::BareFunction, node.text, fmt::format("without brackets this is the text \"{}\"", text),
                         isNull ? "NULL() is the absent value; put the text in quotes where it is meant"
                                : fmt::format("write {}(...) for the function, \"{}\" for the text", text, text));
    } else if (text.size() == 4 &&
               std::ranges::equal(text, std::string_view("null"), {}, [](char c) { return c | 0x20; })) {
        site.reportRight(Check::BareFunction, node.text, fmt::format("this is the text \"{}\"", text),
                         "NULL() is the absent value; put the text in quotes where it is meant");
    } else if (text.starts_with('$')) {
        std::string name(text.substr(1));
        std::erase_if(name, [](char c) { return std::string_view("$(){} ").find(c) != std::string_view::npos; });
        site.reportRight(Check::BareVariable, node.text, fmt::format("this is the text {}", shownQuoted(text)),
                         fmt::format("a variable is read with $({})", name));
    } else if (isCamel(text)) {
        if (const std::string tag = tagOfKeyword(text); !tag.empty())
            site.reportRight(Check::BareKeyword, node.text, fmt::format("this is the text \"{}\"", text),
                             fmt::format("write {} for the element's value", tag));
    }
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

// What an argument is read as.
enum class Reading { Text, Number, Group, Element };

Reading readingOf(const FunctionDef* function, std::size_t index, std::size_t count)
{
    constexpr std::array kAllNumbers = {&f_add, &f_sub, &f_mul, &f_div, &f_mod, &f_between, &f_codenumber};
    if (std::ranges::find(kAllNumbers, function) != kAllNumbers.end()) return Reading::Number;
    if (function == &f_substr) return index > 0 ? Reading::Number : Reading::Text;
    if (function == &f_rnd) return index == 0 ? Reading::Number : Reading::Text;
    if (function == &f_split || (function == &f_root && count == 3))
        return index == 2 ? Reading::Number : Reading::Text;
    if (function == &f_empty && count == 2) return index == 0 ? Reading::Group : Reading::Element;
    if (function != &f_seq) return Reading::Text;
    constexpr Reading kPath[] = {Reading::Group, Reading::Element, Reading::Number};
    return kPath[index % 3];
}

// As "%d" reads it.
void lintNumber(const Site& site, const Expression& node)
{
    const std::string_view text = textOf(node);
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0) ++at;
    const bool isNegative = at < text.size() && text[at] == '-';
    if (at < text.size() && (isNegative || text[at] == '+')) ++at;
    if (at == text.size() || std::isdigit(static_cast<unsigned char>(text[at])) == 0) {
        site.reportRight(Check::NotANumber, site.spanOf(node),
                         fmt::format("{} is read as a number, and is none", shownQuoted(text)));
        return;
    }
    constexpr long long kMost = std::numeric_limits<int>::max();
    long long number = 0;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; ++at) {
        number = std::min(number * 10 + (text[at] - '0'), kMost * 10);
    }
    if (number <= kMost + (isNegative ? 1 : 0)) return;
    site.reportRight(Check::NumberRange, site.spanOf(node), "numbers have 32 bits: this one becomes another",
                     fmt::format("numbers go from {} to {}", std::numeric_limits<int>::min(), kMost));
}

// As "%4X" reads it.
void lintComponent(const Site& site, const Expression& node)
{
    const std::string_view text = textOf(node);
    const bool isHex =
        std::ranges::all_of(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
    if (isHex && !text.empty() && text.size() <= 4) return;
    const std::string meant = tagMeantBy(text);
    site.reportRight(Check::OddTag, site.spanOf(node),
                     fmt::format("{} is no tag component: it has up to four hexadecimal digits", shownQuoted(text)),
                     meant.empty() ? "" : fmt::format("did you mean {}?", meant));
}

void lintArguments(const Site& site, const Expression& call)
{
    std::size_t index = 0;
    for (const Expression* argument : call.params) {
        const Reading reading = readingOf(call.func, index++, call.params.size());
        if (reading == Reading::Text || !isLiteral(*argument)) continue;
        if (reading == Reading::Number) lintNumber(site, *argument);
        else lintComponent(site, *argument);
    }
}

void lintCondition(const Site& site, const Expression& condition)
{
    if (!isLiteral(condition)) return;
    // What was meant as a comparison has been reported as such.
    if (condition.text != nullptr && looksInfix(condition.text)) return;
    site.reportRight(Check::ConstantCondition, site.spanOf(condition), "a text is always true, whatever it says",
                     "a condition is true when it is not NULL: equals(a,b), contains(a,b), not(a)");
}

void lintLogic(const Site& site, const Expression& call)
{
    if (call.func == &f_if || call.func == &f_not) lintCondition(site, *call.params.front());
    if (call.func == &f_and) {
        for (const Expression* argument : call.params) lintCondition(site, *argument);
    }
    if (call.func != &f_or) return;
    const auto literal = std::ranges::find_if(call.params, [](const Expression* node) { return isLiteral(*node); });
    if (literal == call.params.end() || std::next(literal) == call.params.end()) return;
    site.reportRight(Check::UnreachableArgument, site.spanOf(**std::next(literal)),
                     "this is never reached: the text before it is never NULL");
}

void lintCall(const Site& site, const NodeSpan& node)
{
    const Expression& call = *node.node;
    lintArguments(site, call);
    lintLogic(site, call);
    if (call.func == &f_seq && call.params.size() == 2)
        site.reportRight(Check::TwoFieldSeq, node.text,
                         "SEQ with a tag alone leads into no sequence: it is the tag itself",
                         "write (gggg,eeee), or SEQ(gggg,eeee,item,gggg,eeee)");
}

} // namespace

void lintExpression(const Site& site)
{
    const kxmap::ParseTrace& trace = site.line.trace;
    for (const NodeSpan& node : trace.nodes) {
        if (node.kind == Kind::Bare) lintBare(site, node);
        else if (node.kind == Kind::Quoted) lintQuoted(site, node);
        else if (node.kind == Kind::Call) lintCall(site, node);
    }
    lintArguments(site, *site.line.expression);
    for (const std::size_t comma : trace.swallowed)
        site.reportRight(Check::SwallowedComma, {comma, comma + 1},
                         "a comma behind a comma becomes part of the next argument",
                         "write \"\" for an empty text, NULL() for no value");
}

} // namespace kxtool
