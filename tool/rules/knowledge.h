// SPDX-License-Identifier: BSD-3-Clause
// What is known of each node of a rule, where it is evaluated: within the branch of a choice its condition holds.
#pragma once

#include "tool/rules/known.h"

#include <cstddef>
#include <list>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace kxtool {

/// What is known of each node of a rule's right side.
class Knowledge {
public:
    /// @param root of a tree that stays as it is while this is asked.
    /// @param surroundings asked by the constructor alone.
    Knowledge(const Expression& root, const Surroundings& surroundings);

    /// @param node of that tree, and not the text of a tag's group, element or item.
    /// @return what holds whenever the node's value decides something: that of a branch only when the branch is taken, of
    ///         an argument of "or" and "and" only when the ones before it let it come to that.
    const Known& of(const Expression& node) const;

    /// @param literal with bytes beyond ASCII.
    /// @return whether the conditions around it ask for the text of an element: it is reached for certain ones alone.
    bool isDecidedBy(const Expression& literal, const std::vector<int>& path) const;

private:
    struct Fact {
        const Expression* node; ///< whatever has the same parts
        Known known;            ///< what else is known of it; as it is made: nothing
    };

    void learn(const Expression& node, std::size_t place);
    Known learnCall(const Expression& call);
    std::span<const Known> learnArguments(const Expression& call);
    void learnTable(const Expression& table, std::size_t first);
    std::size_t addPlaces(const std::list<Expression*>& nodes); ///< @return the first of them
    void assume(const Expression& condition, bool isPresent, int depth = 0);
    void assumeEqual(const Expression& a, const Expression& b, bool isPresent);
    void assumeParts(const Expression& condition, int depth);
    void addFact(const Expression& node, Known known) { facts_.push_back({&node, std::move(known)}); }

    const Surroundings& surroundings_;
    std::vector<Fact> facts_;                                         ///< of where it is at the moment
    std::vector<const Expression*> nodes_;                            ///< the arguments of a call lie side by side
    std::vector<Known> known_;                                        ///< of each of them
    std::unordered_map<const Expression*, std::size_t> places_;       ///< in both, where there are many
    std::unordered_map<const Expression*, std::vector<Fact>> around_; ///< of the texts beyond ASCII
};

} // namespace kxtool
