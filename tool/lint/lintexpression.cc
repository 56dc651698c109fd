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
        if (node.kind == Kind::Call) lintCall(site, node);
    }
    lintArguments(site, *site.line.expression);
}

} // namespace kxtool
