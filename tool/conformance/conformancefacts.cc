// SPDX-License-Identifier: BSD-3-Clause
#include "tool/conformance/conformancefacts.h"

#include "tool/rules/builtins.h"
#include "tool/rules/knowledge.h"

#include <algorithm>
#include <array>

namespace kxtool {
namespace {

using Presence = Known::Presence;

constexpr int kDeepest = 8; // of variables made of variables: further back, facts are not followed

Presence equality(const Known& a, const Known& b)
{
    return builtinNamed("equals")->of(std::array{a, b}).presence;
}

/// @return whether nothing comes of a call with this as the one argument, whatever the others are.
bool isNothingWith(const Expression& call, std::size_t index, const Known& argument)
{
    const Builtin& builtin = builtinOf(call.func);
    if (builtin.of == nullptr) return false;
    std::vector<Known> arguments(call.params.size());
    arguments[index] = argument;
    return builtin.of(arguments).isNever();
}

} // namespace

/// What the rules of one moment find.
class Facts::Moment : public Surroundings {
public:
    Moment(const Facts& facts, std::size_t moment) : facts_(facts), moment_(moment) {}
    Known element(const std::vector<int>& path) const override { return facts_.element(path, moment_); }
    Known variable(const std::string& name) const override { return facts_.variable(name, moment_); }
    Known field(const std::string& name) const override { return facts_.field(name, moment_); }
    Known narrowed(const Expression& node, Known known) const override
    {
        return facts_.narrowed(node, std::move(known), moment_);
    }

private:
    const Facts& facts_;
    std::size_t moment_;
};

Known Facts::of(const Expression& node, std::size_t moment) const
{
    const Moment surroundings(*this, moment);
    return Knowledge(node, surroundings).of(node);
}

Presence Facts::of(const Condition& condition) const
{
    Presence presence = Presence::Never;
    if (!condition.isMatch) presence = of(*condition.node, condition.moment).presence;
    else {
        const Known subject = of(argument(*condition.node, 0), condition.moment);
        for (std::size_t i = 2; i + 1 < condition.node->params.size(); i += 2)
            presence = std::max(presence, equality(subject, of(argument(*condition.node, i), condition.moment)));
    }
    if (condition.holds || presence == Presence::Perhaps) return presence;
    return presence == Presence::Never ? Presence::Always : Presence::Never;
}

bool Facts::needs(const Expression& call, std::size_t index)
{
    return isNothingWith(call, index, Known::never());
}

bool Facts::needsNumber(const Expression& call, std::size_t index)
{
    return builtinOf(call.func).reads.at(index) == Reading::Number && isNothingWith(call, index, Known::always("x"));
}

std::optional<ElementPath> Facts::pathOf(const Expression& node)
{
    auto path = kxtool::pathOf(node);
    for (std::size_t i = 2; path && i < path->size(); i += 3) (*path)[i] = std::max((*path)[i], 0);
    return path;
}

bool Facts::isTarget(const Expression& node, std::size_t moment) const
{
    return pathOf(node) == target_ && !history_.isWrittenSince(target_, moment);
}

const History::Source* Facts::sourceOf(const Expression& node, std::size_t moment) const
{
    const Way way = wayOf(node);
    if ((way != Way::Variable && way != Way::Field) || argument(node, 0).text == nullptr) return nullptr;
    const std::string name = argument(node, 0).text;
    return way == Way::Variable ? history_.onlySourceOf(name, moment) : history_.field(name, moment);
}

Known Facts::element(const std::vector<int>& given, std::size_t moment) const
{
    ElementPath path = given;
    for (std::size_t i = 2; i < path.size(); i += 3) path[i] = std::max(path[i], 0);
    if (!areNested(path, target_) || history_.isWrittenSince(path, moment)) return {};
    if (path.size() < target_.size()) return Known().with(Presence::Always); // else the rule does nothing
    if (path == target_ || targetPresence_ == Presence::Never) return Known().with(targetPresence_);
    return {};
}

Known Facts::knownOf(const History::Source& source) const
{
    if (depth_ >= kDeepest) return source.known;
    const auto [at, isNew] = remembered_.try_emplace(source.moment);
    if (!isNew) return at->second;
    ++depth_;
    const Known known = of(*source.expression, source.moment);
    --depth_;
    return at->second = known;
}

Known Facts::variable(const std::string& name, std::size_t moment) const
{
    Known known = name.starts_with('@') ? Known() : Known::never(); // the server may have set those that outlive a file
    for (const History::Source* source : history_.variable(name, moment)) {
        const Known written = knownOf(*source);
        if (written.isNever()) {
            known = written;
        } else {
            const bool wasSet = known.isAlways();
            known = wasSet ? known.with(written.presence) : either(known, written).with(written.presence);
        }
    }
    return known;
}

Known Facts::field(const std::string& name, std::size_t moment) const
{
    const History::Source* source = history_.field(name, moment);
    return source == nullptr ? Known() : knownOf(*source);
}

Known Facts::narrowed(const Expression& node, Known known, std::size_t moment) const
{
    for (const Fact& fact : facts_) {
        if (known.isConstant()) break;
        if (fact.node->func != node.func || !isSame(*fact.node, node)) continue;
        if (fact.moment != moment) {
            const auto path = pathOf(node);
            if (!path || history_.isWrittenSince(*path, std::min(moment, fact.moment))) continue;
        }
        known = fact.known;
    }
    return known;
}

bool Facts::add(const Condition& condition)
{
    if (of(condition) == Presence::Never) return false;
    const bool canBe =
        condition.isMatch ? supposeMatch(condition) : suppose(*condition.node, condition.moment, condition.holds);
    conditions_.push_back(condition);
    return canBe &&
           std::ranges::none_of(conditions_, [this](const Condition& one) { return of(one) == Presence::Never; });
}

bool Facts::suppose(const Expression& node, std::size_t moment, bool isThere)
{
    const Known known = of(node, moment);
    if (isThere ? known.isNever() : known.isAlways()) return false;
    if (node.func == nullptr || known.isNever()) return true;
    facts_.push_back({&node, moment, isThere ? known.with(Presence::Always) : Known::never()});
    remembered_.clear();
    switch (wayOf(node)) {
    case Way::Brackets:
        return suppose(argument(node, 0), moment, isThere);
    case Way::Not:
        return suppose(argument(node, 0), moment, !isThere);
    case Way::Equal:
        return supposeEqual(argument(node, 0), argument(node, 1), moment, isThere);
    case Way::AllPresent:
        return isThere ? supposeArguments(node, moment) : supposeOne(node, moment, false);
    case Way::FirstPresent:
        return supposeOne(node, moment, isThere);
    case Way::Choice:
        for (const std::size_t only : {1U, 2U}) {
            if (of(argument(node, 3 - only), moment).presence != (isThere ? Presence::Never : Presence::Always))
                continue;
            return suppose(argument(node, 0), moment, only == 1) && suppose(argument(node, only), moment, isThere);
        }
        return true;
    case Way::Variable:
    case Way::Field: {
        const History::Source* source = sourceOf(node, moment);
        return source == nullptr || suppose(*source->expression, source->moment, isThere);
    }
    case Way::Found:
    case Way::Part:
    case Way::Recased:
    case Way::Within:
    case Way::Counted:
    case Way::Computed:
    case Way::Drawn:
        return !isThere || supposeArguments(node, moment);
    default:
        return true;
    }
}

/// Those without which the call is not there.
bool Facts::supposeArguments(const Expression& call, std::size_t moment)
{
    for (std::size_t i = 0; i < call.params.size(); ++i) {
        if (!needs(call, i)) continue;
        const Expression& operand = argument(call, i);
        if (!suppose(operand, moment, true)) return false;
        if (!needsNumber(call, i) || operand.func == nullptr) continue;
        Known number = of(operand, moment);
        number.beginsWithNumber = true;
        facts_.push_back({&operand, moment, number});
    }
    return true;
}

/// That one of the arguments is there, or is not: it is told of the only one that can be so, and of all where it must be.
bool Facts::supposeOne(const Expression& call, std::size_t moment, bool isThere)
{
    const bool isAll = wayOf(call) == Way::FirstPresent && !isThere;
    const Expression* only = nullptr;
    for (const Expression* each : call.params) {
        if (isAll && !suppose(*each, moment, false)) return false;
        if (of(*each, moment).presence == (isThere ? Presence::Never : Presence::Always)) continue;
        if (only != nullptr && !isAll) return true;
        only = each;
    }
    return isAll || (only != nullptr && suppose(*only, moment, isThere));
}

bool Facts::supposeEqual(const Expression& a, const Expression& b, std::size_t moment, bool areEqual)
{
    const Known left = of(a, moment);
    const Known right = of(b, moment);
    if (left.isNever()) return suppose(b, moment, !areEqual);
    if (right.isNever()) return suppose(a, moment, !areEqual);
    if (left.isConstant() && !right.isConstant()) return supposeEqual(b, a, moment, areEqual);
    if (!areEqual) return !right.isConstant() || supposeOther(a, moment, *right.text);
    if (!left.isAlways() && !right.isAlways()) return true; // both may be absent
    if (!suppose(a, moment, true) || !suppose(b, moment, true)) return false;
    if (right.isConstant() && a.func != nullptr) supposeText(a, moment, right);
    return true;
}

/// That it is this text: so are those of its arguments long enough that it is made of.
void Facts::supposeText(const Expression& node, std::size_t moment, const Known& text)
{
    facts_.push_back({&node, moment, text});
    remembered_.clear();
    const Builtin& builtin = builtinOf(node.func);
    if (builtin.of == nullptr || text.least == 0) return;
    for (std::size_t i = 0; i < node.params.size(); ++i) {
        std::vector<Known> arguments(node.params.size());
        arguments[i].most = text.least - 1;
        if (argument(node, i).func == nullptr || canBeEqual(builtin.of(arguments), text)) continue;
        Known known = of(argument(node, i), moment);
        known.least = std::max(known.least, text.least);
        facts_.push_back({&argument(node, i), moment, known});
    }
}

/// That it is another text than this, or absent.
bool Facts::supposeOther(const Expression& node, std::size_t moment, const std::string& text)
{
    Known known = of(node, moment);
    if (known.isConstant()) return known.isNever() || *known.text != text;
    if (text.empty()) {
        known.least = std::max<std::size_t>(known.least, 1);
        facts_.push_back({&node, moment, known});
        remembered_.clear();
    }
    if (wayOf(node) == Way::Brackets) return supposeOther(argument(node, 0), moment, text);
    if (wayOf(node) != Way::FirstPresent || !known.isAlways()) return true;
    const Expression* only = nullptr;
    for (const Expression* each : node.params) {
        const Known one = of(*each, moment);
        if (one.isNever() || (one.text && *one.text == text)) continue;
        if (only != nullptr) return true;
        only = each;
    }
    return only != nullptr && suppose(*only, moment, true) && supposeOther(*only, moment, text);
}

bool Facts::supposeMatch(const Condition& match)
{
    const Expression& table = *match.node;
    const Expression& subject = argument(table, 0);
    if (table.params.size() == 4) return supposeEqual(subject, argument(table, 2), match.moment, match.holds);
    bool canBeNull = false;
    for (std::size_t i = 2; i + 1 < table.params.size(); i += 2) {
        const Expression& from = argument(table, i);
        canBeNull = canBeNull || !of(from, match.moment).isAlways();
        if (!match.holds && !supposeEqual(subject, from, match.moment, false)) return false;
    }
    return !match.holds || canBeNull || suppose(subject, match.moment, true);
}

} // namespace kxtool
