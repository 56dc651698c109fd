// SPDX-License-Identifier: BSD-3-Clause
// The cases that a rule distinguishes.
#pragma once

#include "tool/conformance/conformancefacts.h"

#include <vector>

namespace kxtool {

/// One thing that may come of a rule.
struct Outcome {
    std::vector<Condition> when;
    const Expression* value; ///< null: NULL
    std::size_t moment = 0;  ///< the rule as which it is evaluated
    bool isText = false;     ///< its text alone: a variable or a custom field is between
    bool isTable = false;    ///< of a table of values, that of the pair that matches
};

/// @return what may come of a rule's right side where the facts hold; empty where that is too much to be told one by one.
std::vector<Outcome> outcomesOf(const Expression& root, std::size_t moment, const Facts& facts);

/// @return the conditions in parts as small as can be, without those that the facts or the others make certain.
std::vector<Condition> shortened(const std::vector<Condition>& conditions, const Facts& facts);

} // namespace kxtool
