// SPDX-License-Identifier: BSD-3-Clause
// What is known of the expressions of a rule, and of those behind its variables, where certain conditions hold.
#pragma once

#include "tool/conformance/conformancehistory.h"
#include "tool/rules/known.h"

#include <map>
#include <optional>
#include <vector>

namespace kxtool {

/// That an expression is there, or is not; of a table of values, that a pair matches, or none does.
struct Condition {
    const Expression* node;
    std::size_t moment; ///< the rule as which it is evaluated
    bool holds = true;
    bool isMatch = false;
};

/// What certainly holds where some conditions do. Of an element nothing is taken for granted, its VR neither.
class Facts {
public:
    /// @param target of the rule that is looked at.
    Facts(const History& history, const ElementPath& target) : history_(history), target_(target) {}

    /// Supposes that the target is there, or is not, when the rule is applied.
    void supposeTarget(Known::Presence presence) { targetPresence_ = presence; }

    /// @return false when it cannot be beside the others.
    bool add(const Condition& condition);

    Known of(const Expression& node, std::size_t moment) const;
    /// @return whether the condition certainly holds, or certainly does not.
    Known::Presence of(const Condition& condition) const;

    /// @return whether a call can only be there where this argument is.
    static bool needs(const Expression& call, std::size_t index);
    static bool needsNumber(const Expression& call, std::size_t index);

    /// @return the rule that an expression has its value from: $(name) and USER(name) of a name that is spelled out.
    const History::Source* sourceOf(const Expression& node, std::size_t moment) const;

    /// @return the path of a tag reference or SEQ that is spelled out, as the engine walks it.
    static std::optional<ElementPath> pathOf(const Expression& node);
    /// @return whether an expression is the target as the rule finds it.
    bool isTarget(const Expression& node, std::size_t moment) const;

    const History& history() const { return history_; }

private:
    class Moment;
    struct Fact {
        const Expression* node;
        std::size_t moment;
        Known known;
    };

    Known narrowed(const Expression& node, Known known, std::size_t moment) const;
    Known element(const std::vector<int>& given, std::size_t moment) const;
    Known variable(const std::string& name, std::size_t moment) const;
    Known field(const std::string& name, std::size_t moment) const;
    Known knownOf(const History::Source& source) const;

    bool suppose(const Expression& node, std::size_t moment, bool isThere);
    bool supposeArguments(const Expression& call, std::size_t moment);
    bool supposeOne(const Expression& call, std::size_t moment, bool isThere);
    bool supposeEqual(const Expression& a, const Expression& b, std::size_t moment, bool areEqual);
    void supposeText(const Expression& node, std::size_t moment, const Known& text);
    bool supposeOther(const Expression& node, std::size_t moment, const std::string& text);
    bool supposeMatch(const Condition& match);

    const History& history_;
    const ElementPath& target_;
    Known::Presence targetPresence_ = Known::Presence::Perhaps;
    std::vector<Fact> facts_;
    std::vector<Condition> conditions_;
    mutable std::map<std::size_t, Known> remembered_; // of earlier rules; until another fact is added
    mutable int depth_ = 0;
};

/// @return an argument that the call has.
inline const Expression& argument(const Expression& call, std::size_t index)
{
    return **std::next(call.params.begin(), static_cast<std::ptrdiff_t>(index));
}

} // namespace kxtool
