// SPDX-License-Identifier: BSD-3-Clause
// Comparisons that no value passes, and parts of a rule that stand there twice.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace kxtool {
namespace {

constexpr int kMostSteps = 8; // of variables that were set to variables

/// @return whether a rule may be there to mend the very values that are unusual: it writes an element that it asks.
bool mends(const RuleView& view, const Expression& node, int steps = 0)
{
    if (const auto path = pathOf(node)) {
        const bool isForLater = view.target.empty();
        return isForLater ? view.written.contains(*path) : *path == view.target;
    }
    if (node.func != nullptr && wayOf(node) == Way::Variable && isLiteral(*node.params.front()) && steps < kMostSteps) {
        const Expression* definition = view.state.definition(std::string(literalOf(*node.params.front())));
        return definition == nullptr || mends(view, *definition, steps + 1);
    }
    return std::ranges::any_of(node.params, [&](const Expression* one) { return mends(view, *one, steps); });
}

/// @return the texts of one side, where none of them is what the other hardly ever has.
Texts unusualTexts(const Known& fixed, const Known& open)
{
    const Texts texts = textsOf(fixed);
    if (!textsOf(open).empty() || isTextless(open.usual.vr)) return {};
    const auto isGood = [&open](const std::string& text) { return isUsual(open, text); };
    return std::ranges::any_of(texts, isGood) ? Texts() : texts;
}

std::string whyUnusual(const Known& open, const std::string& text)
{
    const DcmEVR vr = open.usual.vr;
    if (vr != EVR_UNKNOWN && text.ends_with(' ')) return "the blanks at the end of a value are no part of its text";
    if (vr != EVR_UNKNOWN) return fmt::format("no value of {} is {}", DcmVR(vr).getVRName(), shownQuoted(text));
    if (text.size() > open.usual.most)
        return fmt::format("what it is compared with has up to {} bytes", open.usual.most);
    return "what it is compared with is made of other letters";
}

bool lintUnusual(const RuleView& view, const Expression& a, const Expression& b)
{
    const bool isFirst = !textsOf(view.of(a)).empty();
    const Expression& fixed = isFirst ? a : b;
    const Expression& open = isFirst ? b : a;
    const Texts texts = unusualTexts(view.of(fixed), view.of(open));
    return !texts.empty() && !mends(view, open) &&
           view.tell(Check::NeverEqual, fixed,
                     fmt::format("hardly ever equal: {}", whyUnusual(view.of(open), texts.front())));
}

/// The wanted part of "contains": its bytes, not its form.
bool lintUnusualPart(const RuleView& view, const Expression& text, const Expression& wanted)
{
    const Known& open = view.of(text);
    const auto isGood = [&open](const std::string& part) {
        return (bytesOf(part) & ~open.usual.may).none() && part.size() <= open.usual.most;
    };
    const Texts parts = textsOf(view.of(wanted));
    if (parts.empty() || !textsOf(open).empty() || isTextless(open.usual.vr)) return false;
    return std::ranges::none_of(parts, isGood) && !mends(view, text) &&
           view.tell(Check::NeverEqual, wanted, "hardly ever found: the text is made of other letters, or shorter");
}

/// @return whether a value is one text for all datasets, by the rules alone and not by the conditions around it.
bool isFixed(const RuleView& view, const Expression& node)
{
    const Expression& inner = unwrapped(node);
    if (isLiteral(inner)) return true;
    if (!isRead(inner)) return false;
    if (const auto path = pathOf(inner)) return view.state.element(*path).isConstant();
    const bool isVariable = wayOf(inner) == Way::Variable && isLiteral(*inner.params.front());
    return isVariable && view.state.variable(std::string(literalOf(*inner.params.front()))).isConstant();
}

bool lintTable(const RuleView& view, const Expression& table)
{
    const Expression& value = *table.params.front();
    bool isTold = false;
    if (isFixed(view, value))
        return view.tell(Check::ConstantCall, value, "a table of one text that never changes: it decides nothing");
    for (std::size_t i = 2; i + 1 < table.params.size(); i += 2) {
        const Expression& from = argumentOf(table, i);
        const Known& known = view.of(from);
        const bool isPossible = known.isNever() || view.of(value).isNever() || canBeEqual(view.of(value), known);
        if (!isPossible) isTold = view.tell(Check::NeverEqual, from, "the value is never this") || isTold;
        else isTold = lintUnusual(view, value, from) || isTold;
    }
    return isTold;
}

std::string textOf(const Known& known)
{
    return known.isNever() || !known.text ? "" : *known.text;
}

/// @return whether two arguments are the same, whatever the dataset holds.
bool areSame(const RuleView& view, const Expression& a, const Expression& b)
{
    const Known& first = view.of(a);
    const Known& second = view.of(b);
    return isSame(a, b) || (first.isConstant() && second.isConstant() && first.presence == second.presence &&
                            textOf(first) == textOf(second));
}

bool lintTwice(const RuleView& view, const Expression& call, std::size_t first, std::size_t step)
{
    for (std::size_t i = first + step; i < call.params.size(); i += step) {
        for (std::size_t before = first; before < i; before += step) {
            if (isSame(unwrapped(argumentOf(call, before)), unwrapped(argumentOf(call, i))))
                return view.tell(Check::SameParts, argumentOf(call, i), "this stands there twice: it changes nothing");
        }
    }
    return false;
}

bool lintAllAlike(const RuleView& view, const Expression& table)
{
    const Expression& other = argumentOf(table, 1);
    for (std::size_t to = 3; to < table.params.size(); to += 2) {
        if (!areSame(view, other, argumentOf(table, to))) return false;
    }
    return view.tell(Check::SameParts, other, "all that comes of this table is the same: the value decides nothing");
}

/// A number less itself, a text looked for in itself.
bool lintSameOperands(const RuleView& view, const Expression& call)
{
    constexpr std::string_view kUndoing[] = {"sub", "div", "mod", "indexof", "contains", "between"};
    return call.params.size() >= 2 && !isLiteral(*call.params.front()) &&
           isSame(*call.params.front(), argumentOf(call, 1)) &&
           std::ranges::find(kUndoing, builtinOf(call.func).name()) != std::end(kUndoing) &&
           view.tell(Check::SameParts, call, "both of these are the same: this decides nothing");
}

/// @return what a node, or the variable that it reads, is made of.
const Expression& definitionOf(const RuleView& view, const Expression& node)
{
    const Expression* inner = &unwrapped(node);
    for (int step = 0; step < kMostSteps; ++step) {
        if (isLiteral(*inner) || wayOf(*inner) != Way::Variable || !isLiteral(*inner->params.front())) break;
        const Expression* definition = view.state.definition(std::string(literalOf(*inner->params.front())));
        if (definition == nullptr) break;
        inner = &unwrapped(*definition);
    }
    return *inner;
}

/// NULL() among what is passed over where it is NULL.
bool lintIdle(const RuleView& view, const Expression& call)
{
    if (wayOf(call) == Way::AllPresent) return false; // that is never true
    const auto idle =
        std::ranges::find_if(call.params, [](const auto* one) { return wayOf(unwrapped(*one)) == Way::Null; });
    return idle != call.params.end() && call.params.size() > 1 && !view.of(call).isNever() &&
           view.tell(Check::SameParts, **idle, "NULL() is passed over here: it changes nothing");
}

} // namespace

bool lintComparison(const RuleView& view, const Expression& call)
{
    switch (wayOf(call)) {
    case Way::Equal:
        return lintUnusual(view, *call.params.front(), *call.params.back());
    case Way::Found:
        return lintUnusualPart(view, *call.params.front(), *call.params.back());
    case Way::Table:
        return lintTable(view, call);
    default:
        return false;
    }
}

bool lintSameParts(const RuleView& view, const Expression& call)
{
    switch (wayOf(call)) {
    case Way::Choice:
        return areSame(view, argumentOf(call, 1), argumentOf(call, 2)) &&
               view.tell(Check::SameParts, argumentOf(call, 2),
                         "both branches are the same: the condition decides nothing");
    case Way::FirstPresent:
    case Way::AllPresent:
        return lintTwice(view, call, 0, 1) || lintIdle(view, call);
    case Way::Joined:
        return lintIdle(view, call);
    case Way::Table:
        if (call.params.size() == 2)
            return view.tell(Check::SameParts, call, "a table without pairs: this is always the default",
                             "write translate(value,default,from,to, ...)");
        return lintAllAlike(view, call) || lintTwice(view, call, 2, 2);
    default: {
        if (lintSameOperands(view, call)) return true;
        if (call.params.size() != 1 || isRead(call)) return false;
        const Expression& inner = definitionOf(view, *call.params.front());
        const bool areCases = wayOf(call) == Way::Recased && wayOf(inner) == Way::Recased;
        const bool isNested = inner.func == call.func || areCases;
        return isNested && wayOf(call) != Way::Not &&
               view.tell(Check::SameParts, call,
                         areCases && inner.func != call.func ? "one change of case undoes the other"
                                                             : "the same call in itself changes nothing more");
    }
    }
}

} // namespace kxtool
