// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/knowledge.h"

#include "tool/rules/builtins.h"
#include "tool/rules/heldvalue.h"
#include "tool/rules/messagetap.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <tuple>

namespace kxtool {
namespace {

using Presence = Known::Presence;

/// What the built-in itself makes of constants.
Known computedOf(const FunctionDef* function, std::span<const Known> arguments)
{
    Expression call;
    call.func = function;
    for (const Known& argument : arguments) {
        auto node = std::make_unique<Expression>();
        if (argument.isNever()) node->func = &f_NULL;
        else node->text = newdup(argument.text->c_str());
        call.params.push_back(node.get());
        std::ignore = node.release(); // the call owns it now
    }
    const MessageTap quiet;
    MappingSession nothing;
    const auto text = HeldValue(call.getValue(nothing)).text();
    return text ? Known::always(*text) : Known::never();
}

/// What the built-in makes of arguments of which each is NULL or one of a few texts; none where that is too much.
std::optional<Known> computed(const FunctionDef* function, std::span<const Known> arguments)
{
    constexpr std::size_t kMostCalls = 16;
    const auto isOpen = [](const Known& one) { return !one.isNever() && !one.text && one.oneOf.empty(); };
    if (std::ranges::any_of(arguments, isOpen)) return std::nullopt;
    std::vector<std::vector<Known>> choices;
    std::size_t count = 1;
    for (const Known& argument : arguments) {
        std::vector<Known>& some = choices.emplace_back();
        for (const std::string& text : argument.isNever() ? Texts() : textsOf(argument))
            some.push_back(Known::always(text));
        if (!argument.isAlways() && (argument.isNever() || !some.empty())) some.push_back(Known::never());
        count *= some.size();
        if (count == 0 || count > kMostCalls) return std::nullopt;
    }
    std::optional<Known> all;
    for (std::size_t call = 0; call < count; ++call) {
        std::vector<Known> chosen;
        std::size_t rest = call;
        for (const auto& some : choices) {
            chosen.push_back(some[rest % some.size()]);
            rest /= some.size();
        }
        const Known one = computedOf(function, chosen);
        all = all ? either(*all, one) : one;
    }
    return all;
}

/// What is read along a path, or under a name.
Known learnRead(Way way, std::span<const Known> arguments, const Surroundings& surroundings)
{
    const bool isNamed = way == Way::Variable || way == Way::Field;
    if (std::ranges::any_of(arguments, &Known::isNever) || (!isNamed && !canBePath(arguments))) return Known::never();
    if (!std::ranges::all_of(arguments, &Known::isConstant)) return {};
    if (way == Way::Variable) return surroundings.variable(*arguments[0].text);
    if (way == Way::Field) return surroundings.field(*arguments[0].text);
    return surroundings.element(*pathOf(arguments));
}

std::string_view literalOf(const Expression& node)
{
    return node.text == nullptr ? "" : node.text;
}

bool isPlainAscii(std::string_view text)
{
    return std::ranges::none_of(text, [](unsigned char c) { return c >= 0x80; });
}

void narrow(Known& known, const Known& fact)
{
    if (fact.isNever()) {
        known = Known::never();
        return;
    }
    if (known.isNever()) return; // the conditions contradict each other
    if (fact.isAlways()) known.presence = Presence::Always;
    if (fact.text && canBe(known, *fact.text)) {
        const DcmEVR vr = known.usual.vr;
        known = fact;
        known.usual.vr = vr;
    }
    known.holds |= fact.holds & known.may;
    known.least = std::max(known.least, std::min(fact.least, known.most));
    if (!known.text) known.isNot.insert(known.isNot.end(), fact.isNot.begin(), fact.isNot.end());
}

bool asksFor(const Expression& node, const std::vector<int>& path)
{
    if (pathOf(node) == path) return true;
    return std::ranges::any_of(node.params, [&path](const Expression* one) { return asksFor(*one, path); });
}

std::size_t countOf(const Expression& node)
{
    std::size_t count = 1;
    for (const Expression* argument : node.params) count += countOf(*argument);
    return count;
}

constexpr std::size_t kMostSearched = 24; // nodes: of more an index is made

constexpr int kMostSteps = 8; // of conditions that lead to others through variables

} // namespace

Knowledge::Knowledge(const Expression& root, const Surroundings& surroundings) : surroundings_(surroundings)
{
    const std::size_t count = countOf(root);
    nodes_.reserve(count);
    known_.reserve(count); // so that what is known of a node stays where it is
    nodes_.push_back(&root);
    known_.emplace_back();
    learn(root, 0);
    if (nodes_.size() <= kMostSearched) return;
    for (std::size_t i = 0; i < nodes_.size(); ++i) places_[nodes_[i]] = i;
}

const Known& Knowledge::of(const Expression& node) const
{
    if (!places_.empty()) return known_[places_.at(&node)];
    const auto found = std::ranges::find(nodes_, &node);
    return known_.at(static_cast<std::size_t>(found - nodes_.begin()));
}

// Parsed trees are not deeper than the engine's limit of nesting.
void Knowledge::learn(const Expression& node, std::size_t place)
{
    if (node.func == nullptr) {
        if (!facts_.empty() && !isPlainAscii(literalOf(node))) around_[&node] = facts_;
        known_[place] = Known::always(std::string(literalOf(node)));
        return;
    }
    Known known = learnCall(node);
    if (wayOf(node) == Way::Equal && isSame(*node.params.front(), *node.params.back())) known = Known::always("true");
    for (const Fact& fact : facts_) {
        if (isSame(*fact.node, node)) narrow(known, fact.known);
    }
    known_[place] = surroundings_.narrowed(node, std::move(known));
}

std::size_t Knowledge::addPlaces(const std::list<Expression*>& nodes)
{
    const std::size_t first = nodes_.size();
    nodes_.insert(nodes_.end(), nodes.begin(), nodes.end());
    known_.resize(nodes_.size());
    return first;
}

std::span<const Known> Knowledge::learnArguments(const Expression& call)
{
    const std::size_t outside = facts_.size();
    const Way way = wayOf(call);
    const std::size_t first = addPlaces(call.params);
    const std::span<const Known> arguments(known_.data() + first, call.params.size());
    if (way == Way::Table) {
        learnTable(call, first);
        return arguments;
    }
    std::size_t place = first;
    for (const Expression* argument : call.params) {
        if (way == Way::Choice && place > first) {
            facts_.resize(outside);
            assume(*call.params.front(), place == first + 1);
        }
        learn(*argument, place++);
        if (way == Way::FirstPresent || way == Way::AllPresent) assume(*argument, way == Way::AllPresent);
    }
    facts_.resize(outside);
    return arguments;
}

// The default comes second in a rule, and last when it is decided.
void Knowledge::learnTable(const Expression& table, std::size_t first)
{
    const std::size_t outside = facts_.size();
    const std::size_t end = first + table.params.size();
    const Expression& value = *table.params.front();
    learn(value, first);
    for (std::size_t i = first + 2; i + 1 < end; i += 2) {
        const Expression& from = *nodes_[i];
        const std::size_t before = facts_.size();
        learn(from, i);
        assumeEqual(value, from, true);
        learn(*nodes_[i + 1], i + 1);
        facts_.resize(before);
        assumeEqual(value, from, false);
    }
    if (first + 1 < end) learn(*nodes_[first + 1], first + 1);
    facts_.resize(outside);
}

Known Knowledge::learnCall(const Expression& call)
{
    if (const auto path = pathOf(call)) return surroundings_.element(*path); // what most nodes are
    const std::span<const Known> arguments = learnArguments(call);
    const Builtin& builtin = builtinOf(call.func);
    switch (const Way way = wayOf(call)) {
    case Way::Brackets:
        return arguments.front();
    case Way::Tag:
    case Way::Path:
    case Way::Variable:
    case Way::Field:
        return learnRead(way, arguments, surroundings_);
    case Way::Part:
    case Way::Recased:
    case Way::Within:
    case Way::Counted:
    case Way::Computed:
    case Way::Joined: {
        Known known = builtin.of(arguments);
        if (auto exact = computed(call.func, arguments)) {
            exact->wraps = known.wraps;
            return *exact;
        }
        return known;
    }
    default:
        return builtin.of(arguments);
    }
}

void Knowledge::assume(const Expression& condition, bool isPresent, int depth)
{
    if (condition.func == nullptr || depth > kMostSteps) return;
    const Way way = wayOf(condition);
    if (way == Way::Brackets) return assume(*condition.params.front(), isPresent, depth + 1);
    addFact(condition, Known::open(isPresent ? Presence::Always : Presence::Never));
    if (way == Way::Not) assume(*condition.params.front(), !isPresent, depth + 1);
    if (way == Way::Equal) assumeEqual(*condition.params.front(), *condition.params.back(), isPresent);
    if ((way == Way::AllPresent && isPresent) || (way == Way::FirstPresent && !isPresent)) {
        for (const Expression* argument : condition.params) assume(*argument, isPresent, depth + 1);
    }
    if (way == Way::Variable && condition.params.front()->func == nullptr) {
        const Expression* definition = surroundings_.definition(std::string(literalOf(*condition.params.front())));
        if (definition != nullptr) assume(*definition, isPresent, depth + 1);
    }
    if (isPresent) assumeParts(condition, depth);
}

// What has to be there for the call to yield anything.
void Knowledge::assumeParts(const Expression& condition, int depth)
{
    const Way way = wayOf(condition);
    constexpr Way kStrict[] = {Way::Part, Way::Recased, Way::Within, Way::Counted, Way::Computed, Way::Found};
    if (std::ranges::find(kStrict, way) == std::end(kStrict)) return;
    const Expression& text = *condition.params.front();
    assume(text, true, depth + 1);
    const Expression& wanted = *condition.params.back();
    if (way != Way::Found || wanted.func != nullptr) return;
    const Known part = Known::always(std::string(literalOf(wanted)));
    Known fact = Known::open(Presence::Always);
    fact.holds = part.holds;
    fact.least = part.least;
    addFact(text, std::move(fact));
}

void Knowledge::assumeEqual(const Expression& a, const Expression& b, bool isPresent)
{
    const auto isFixed = [](const Expression& node) { return node.func == nullptr || wayOf(node) == Way::Null; };
    if (isFixed(a) == isFixed(b)) return;
    const Expression& other = isFixed(a) ? b : a;
    const Expression& fixed = isFixed(a) ? a : b;
    if (fixed.func != nullptr) return assume(other, !isPresent);
    if (isPresent) {
        addFact(other, Known::always(std::string(literalOf(fixed))));
        return;
    }
    addFact(other, Known::otherThan(std::string(literalOf(fixed))));
}

bool Knowledge::isDecidedBy(const Expression& literal, const std::vector<int>& path) const
{
    const auto found = around_.find(&literal);
    return found != around_.end() && std::ranges::any_of(found->second, [&path](const Fact& fact) {
               if (pathOf(*fact.node) == path) return fact.known.holds.any();
               return fact.known.isAlways() && wayOf(*fact.node) == Way::Found && asksFor(*fact.node, path);
           });
}

} // namespace kxtool
