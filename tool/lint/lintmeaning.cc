// SPDX-License-Identifier: BSD-3-Clause
// Right sides whose parts are always NULL, always true or always the same, whatever a dataset holds.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"
#include "tool/rules/lintnames.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace kxtool {
namespace {

/// Where a node stands.
struct Place {
    Demand demand;
    const Expression* caller; ///< null for the right side as a whole
    bool isBranch;            ///< its value is that of the call around it, which is asked itself
};

Demand demandOf(const Expression& call, std::size_t index, const Place& place)
{
    if (isPassedOn(call, index) && wayOf(call) != Way::Found) return place.demand; // what is found is read in any case
    switch (builtinOf(call.func).reads.at(index)) {
    case Reading::Presence:
        return Demand::Presence;
    case Reading::Number:
        return Demand::Number;
    default:
        return Demand::Text;
    }
}

/// @return whether an argument is compared with nothing but NULL.
bool isAskedForPresence(const RuleView& view, const Expression& call, std::size_t index)
{
    const Way way = wayOf(call);
    if (way == Way::Equal) return view.of(argumentOf(call, 1 - index)).isNever();
    if (way != Way::Table || index != 0) return false;
    for (std::size_t from = 2; from < call.params.size(); from += 2) {
        if (!view.of(argumentOf(call, from)).isNever()) return false;
    }
    return true;
}

/// @return how the signature of a call reads: a hint for those that come to nothing.
std::string signatureHint(const Expression& call)
{
    const Builtin& builtin = builtinOf(call.func);
    return builtin.name().empty() ? "" : fmt::format("what it takes: {}", builtin.signature());
}

const char* shownNull(const Place& place)
{
    if (place.demand == Demand::Presence) return "always NULL: this is never true";
    return place.caller == nullptr ? "always NULL: the target is deleted" : "always NULL, whatever the dataset holds";
}

bool lintNever(const RuleView& view, const Expression& node, const Place& place)
{
    if (!view.of(node).isNever()) return false;
    const bool decides = place.demand == Demand::Presence || (place.caller == nullptr && !place.isBranch);
    switch (wayOf(node)) {
    case Way::Brackets:
        return false;
    case Way::Null:
        return place.demand == Demand::Presence &&
               view.tell(Check::AlwaysNull, node, shownNull(place), "NULL is false: leave the condition away");
    case Way::Equal:
        return view.tell(Check::NeverEqual, node, "never equal, whatever the dataset holds");
    case Way::Tag:
    case Way::Path:
    case Way::Variable:
    case Way::Field:
        return std::ranges::any_of(node.params,
                                   [&view](const auto* one) { return !isLiteral(*one) && view.of(*one).isNever(); }) &&
               view.tell(Check::AlwaysNull, node, shownNull(place));
    case Way::Choice:
    case Way::Table:
    case Way::FirstPresent:
        return decides && view.tell(Check::AlwaysNull, node, shownNull(place),
                                    place.demand == Demand::Presence ? "" : "write NULL() where that is meant");
    default:
        return view.tell(Check::AlwaysNull, node, shownNull(place), signatureHint(node));
    }
}

constexpr const char* kConditions = "a condition is true when it is not NULL: equals(a,b), contains(a,b), not(a)";

/// @return whether a node is there always because the rules say so, and not because of the conditions around it.
bool isAlwaysByItself(const RuleView& view, const Expression& node, const Place& place)
{
    if (!isRead(node)) return true;
    const bool isCondition = place.caller != nullptr && wayOf(*place.caller) == Way::Choice;
    if (isCondition) return true;
    if (const auto path = pathOf(node)) return view.state.element(*path).isAlways();
    return wayOf(node) != Way::Variable || view.state.variable(std::string(literalOf(*node.params.front()))).isAlways();
}

bool lintAlways(const RuleView& view, const Expression& node, const Place& place)
{
    const Known& known = view.of(node);
    const bool isNumber = known.isNumber && known.usual.vr == EVR_IS;
    if (wayOf(node) == Way::Equal && known.isAlways() && !isLiteral(node))
        return view.tell(Check::ConstantCondition, node, "always equal, whatever the dataset holds");
    if (place.demand != Demand::Presence) return false;
    if (isNumber && wayOf(node) != Way::Brackets)
        return view.tell(Check::ConstantCondition, node, "a number is always true, 0 and -1 as well",
                         "compare it: equals(a,b), between(value,lower,upper)");
    if (place.isBranch || !known.isAlways() || wayOf(node) == Way::Brackets) return false;
    if (!isLiteral(node)) {
        return isAlwaysByItself(view, node, place) &&
               view.tell(Check::ConstantCondition, node, "always true: it is never NULL", kConditions);
    }
    if (looksInfix(literalOf(node))) return false; // what was meant as a comparison has been reported as such
    return view.tell(Check::ConstantCondition, node, "a text is always true, whatever it says", kConditions);
}

/// A call that makes something of an element's text, which an earlier rule has taken out.
bool lintEmptied(const RuleView& view, const Expression& node)
{
    constexpr Way kComputing[] = {Way::Part, Way::Recased, Way::Counted, Way::Computed};
    if (std::ranges::find(kComputing, wayOf(node)) == std::end(kComputing)) return false;
    const auto isEmptied = [&view](const Expression* one) {
        const auto path = pathOf(unwrapped(*one));
        return path && !isTextless(vrOf(tagOf(*path))) && view.state.element(*path).text == "";
    };
    const auto found = std::ranges::find_if(node.params, isEmptied);
    return found != node.params.end() &&
           view.tell(Check::ReadAfterDelete, **found, "an earlier rule has emptied this: there is no text in it");
}

/// A call that reads something, and yields the same whatever that is.
bool lintConstant(const RuleView& view, const Expression& node)
{
    constexpr Way kComputing[] = {Way::Part, Way::Recased, Way::Counted, Way::Computed, Way::Joined};
    if (std::ranges::find(kComputing, wayOf(node)) == std::end(kComputing)) return false;
    const Known& known = view.of(node);
    if (!known.text) return false;
    const auto isOpen = [&view](const Expression* one) {
        const Known& argument = view.of(*one);
        return !argument.isNever() && textsOf(argument).empty();
    };
    return std::ranges::any_of(node.params, isOpen) &&
           view.tell(Check::ConstantCall, node, fmt::format("this is always {}", shownQuoted(*known.text)));
}

class MeaningCheck {
public:
    explicit MeaningCheck(const RuleView& view) : view_(view) {}

    /// @return whether something was told of the node or what is in it: then its value needs no word of its own.
    bool visit(const Expression& node, const Place& place)
    {
        if (isLiteral(node)) return lintAlways(view_, node, place);
        if (wayOf(node) == Way::Brackets) return visit(*node.params.front(), place);
        if (lintSameParts(view_, node)) return true;
        bool isTold = visitArguments(node, place);
        isTold = lintArguments(view_, node) || isTold;
        if (isRead(node)) isTold = lintRead(view_, node, place.demand) || isTold;
        return isTold || lintNever(view_, node, place) || lintComparison(view_, node) ||
               lintAlways(view_, node, place) || lintConstant(view_, node) || lintEmptied(view_, node);
    }

private:
    bool visitArguments(const Expression& call, const Place& place)
    {
        bool isTold = false;
        for (std::size_t i = 0; i < call.params.size(); ++i) {
            const Expression& argument = argumentOf(call, i);
            if (isLiteral(argument) && isRead(call)) continue;
            if (isUnreachable(view_, call, i)) {
                isTold = tellUnreachable(call, argument) || isTold;
                continue;
            }
            const Demand demand = isAskedForPresence(view_, call, i) ? Demand::Presence : demandOf(call, i, place);
            const bool isAsked = demand == Demand::Presence && wayOf(call) != Way::Equal && wayOf(call) != Way::Table;
            isTold = visit(argument, {demand, &call, isPassedOn(call, i) || !isAsked}) || isTold;
        }
        return isTold;
    }

    bool tellUnreachable(const Expression& call, const Expression& argument) const
    {
        if (wayOf(call) != Way::FirstPresent) return false; // the condition is told of
        const Expression& before = **std::prev(std::ranges::find(call.params, &argument));
        if (isUnreachable(
                view_, call,
                static_cast<std::size_t>(std::distance(call.params.begin(), std::ranges::find(call.params, &before)))))
            return true; // the first of them was told
        return view_.tell(Check::UnreachableArgument, argument,
                          isLiteral(before) ? "this is never reached: the text before it is never NULL"
                                            : "this is never reached: what stands before it is never NULL");
    }

    const RuleView& view_;
};

} // namespace

bool RuleView::tell(Check check, const Expression& node, std::string message, std::string hint) const
{
    site.reportRight(check, site.spanOf(node), std::move(message), std::move(hint));
    return true;
}

const Expression& argumentOf(const Expression& call, std::size_t index)
{
    return **std::next(call.params.begin(), static_cast<std::ptrdiff_t>(index));
}

std::string_view literalOf(const Expression& node)
{
    return node.text == nullptr ? "" : node.text;
}

const Expression& unwrapped(const Expression& node)
{
    const Expression* inner = &node;
    while (wayOf(*inner) == Way::Brackets) inner = inner->params.front();
    return *inner;
}

bool isRead(const Expression& node)
{
    constexpr Way kReads[] = {Way::Tag, Way::Path, Way::Variable, Way::Field};
    return node.func != nullptr && std::ranges::find(kReads, wayOf(node)) != std::end(kReads);
}

bool isUnreachable(const RuleView& view, const Expression& call, std::size_t index)
{
    switch (wayOf(call)) {
    case Way::Choice: {
        const Known& condition = view.of(*call.params.front());
        return (index == 1 && condition.isNever()) || (index == 2 && condition.isAlways());
    }
    case Way::FirstPresent:
        for (std::size_t i = 0; i < index; ++i) {
            if (view.of(argumentOf(call, i)).isAlways()) return true;
        }
        return false;
    default:
        return false;
    }
}

bool isPassedOn(const Expression& call, std::size_t index)
{
    const Way way = wayOf(call);
    return way == Way::Brackets || (way != Way::Tag && builtinOf(call.func).reads.at(index) == Reading::Value);
}

bool lintMeaning(const RuleView& view)
{
    const bool isNull = wayOf(unwrapped(view.root())) == Way::Null;
    return !isNull && MeaningCheck(view).visit(view.root(), {Demand::Value, nullptr, false});
}

} // namespace kxtool
