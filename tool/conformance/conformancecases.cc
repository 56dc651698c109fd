// SPDX-License-Identifier: BSD-3-Clause
#include "tool/conformance/conformancecases.h"

#include "tool/rules/builtins.h"

#include <optional>

namespace kxtool {
namespace {

using Presence = Known::Presence;

constexpr std::size_t kMostOutcomes = 12;   // more say nothing to a reader
constexpr std::size_t kMostConditions = 24; // of one outcome

class Finder {
public:
    std::vector<Outcome> take() { return isTooMuch() ? std::vector<Outcome>() : std::move(found_); }

    /// @param so the outcome so far: its conditions, and whether it is a text. @param facts where these conditions hold.
    void find(const Expression& node, Outcome so, const Facts& facts)
    {
        if (isTooMuch()) return;
        so.value = &node;
        if (const History::Source* source = facts.sourceOf(node, so.moment)) {
            so.moment = source->moment;
            so.isText = true;
            return find(*source->expression, so, facts);
        }
        switch (wayOf(node)) {
        case Way::Brackets:
            return find(argument(node, 0), so, facts);
        case Way::Choice:
            branch(argument(node, 1), so, facts, {&argument(node, 0), so.moment});
            return branch(argument(node, 2), so, facts, {&argument(node, 0), so.moment, false});
        case Way::Found:
            branch(argument(node, 1), so, facts, {&node, so.moment});
            return branchTo(so, facts, {&node, so.moment, false});
        case Way::FirstPresent:
            return findFirst(node, so, facts);
        case Way::Table:
            if (const auto rest = with(so, facts, {&node, so.moment, true, true})) {
                found_.push_back(so);
                found_.back().when.push_back({&node, so.moment, true, true});
                found_.back().isTable = true;
            }
            return branch(argument(node, 1), so, facts, {&node, so.moment, false, true});
        default:
            found_.push_back(so);
        }
    }

private:
    bool isTooMuch() const { return found_.size() > kMostOutcomes || steps_ > 4 * kMostOutcomes; }

    std::optional<Facts> with(const Outcome& so, const Facts& facts, const Condition& condition)
    {
        Facts known(facts);
        ++steps_;
        return so.when.size() < kMostConditions && known.add(condition) ? std::optional(known) : std::nullopt;
    }

    void branch(const Expression& node, Outcome so, const Facts& facts, const Condition& condition)
    {
        const auto known = with(so, facts, condition);
        so.when.push_back(condition);
        if (known) find(node, so, *known);
    }

    /// NULL, where the condition holds.
    void branchTo(Outcome so, const Facts& facts, const Condition& condition)
    {
        if (!with(so, facts, condition)) return;
        so.when.push_back(condition);
        so.value = nullptr;
        found_.push_back(so);
    }

    void findFirst(const Expression& call, Outcome so, const Facts& facts)
    {
        std::optional<Facts> known(facts);
        for (const Expression* each : call.params) {
            branch(*each, so, *known, {each, so.moment});
            const Condition absent{each, so.moment, false};
            const auto left = with(so, *known, absent);
            if (!left) return;
            so.when.push_back(absent);
            known.emplace(*left);
        }
        so.value = nullptr;
        found_.push_back(so);
    }

    std::vector<Outcome> found_;
    std::size_t steps_ = 0;
};

/// Takes a condition apart as long as it says that several things hold at once.
void flatten(const Condition& condition, const Facts& facts, std::vector<Condition>& out)
{
    const auto [node, moment, holds, isMatch] = condition;
    const auto part = [&, at = moment](const Expression& argument, bool isThere) {
        flatten({&argument, at, isThere}, facts, out);
    };
    const Way way = isMatch ? Way::Table : wayOf(*node);
    if (const History::Source* source = facts.sourceOf(*node, moment))
        return flatten({source->expression, source->moment, holds}, facts, out);
    if (way == Way::Brackets || way == Way::Not) return part(argument(*node, 0), holds == (way == Way::Brackets));
    if ((way == Way::AllPresent && holds) || (way == Way::FirstPresent && !holds)) {
        for (const Expression* each : node->params) part(*each, holds);
        return;
    }
    for (const bool isFirst : {true, false}) {
        if (way != Way::Choice) break;
        const Presence other = facts.of(argument(*node, isFirst ? 2 : 1), moment).presence;
        if (other != (holds ? Presence::Never : Presence::Always)) continue;
        part(argument(*node, 0), isFirst);
        return part(argument(*node, isFirst ? 1 : 2), holds);
    }
    out.push_back(condition);
}

} // namespace

std::vector<Outcome> outcomesOf(const Expression& root, std::size_t moment, const Facts& facts)
{
    Finder finder;
    finder.find(root, {{}, nullptr, moment}, facts);
    return finder.take();
}

std::vector<Condition> shortened(const std::vector<Condition>& conditions, const Facts& facts)
{
    std::vector<Condition> parts;
    for (const Condition& condition : conditions) flatten(condition, facts, parts);
    for (std::size_t i = 0; i < parts.size() && parts.size() <= kMostConditions;) {
        Facts known(facts);
        for (std::size_t k = 0; k < parts.size(); ++k) {
            if (k != i) known.add(parts[k]);
        }
        if (known.of(parts[i]) == Presence::Always) parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(i));
        else ++i;
    }
    return parts;
}

} // namespace kxtool
