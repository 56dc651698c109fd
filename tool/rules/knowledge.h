// SPDX-License-Identifier: BSD-3-Clause
// What is known of each node of a rule, where it is evaluated: within the branch of a choice its condition holds.
#pragma once

#include "tool/rules/known.h"

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
    const Known& of(const Expression& node) const { return known_.at(&node); }

    /// @param literal with bytes beyond ASCII.
    /// @return whether the conditions around it ask for the text of an element: it is reached for certain ones alone.
    bool isDecidedBy(const Expression& literal, const std::vector<int>& path) const;

private:
    struct Fact {
        const Expression* node; ///< whatever has the same parts
        Known known;            ///< what else is known of it; as it is made: nothing
    };

    const Known& learn(const Expression& node);
    Known learnCall(const Expression& call);
    std::vector<Known> learnArguments(const Expression& call);
    std::vector<Known> learnTable(const Expression& table);
    void assume(const Expression& condition, bool isPresent, int depth = 0);
    void assumeEqual(const Expression& a, const Expression& b, bool isPresent);
    void assumeParts(const Expression& condition, int depth);
    void addFact(const Expression& node, Known known) { facts_.push_back({&node, std::move(known)}); }

    const Surroundings& surroundings_;
    std::vector<Fact> facts_; ///< of where it is at the moment
    std::unordered_map<const Expression*, Known> known_;
    std::unordered_map<const Expression*, std::vector<Fact>> around_; ///< of the texts beyond ASCII
};

} // namespace kxtool
