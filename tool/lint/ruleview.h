// SPDX-License-Identifier: BSD-3-Clause
// One rule, with all that is known where it stands: what looks at the meaning of rules gets this.
#pragma once

#include "tool/lint/lint.h"
#include "tool/lint/rulestate.h"
#include "tool/rules/builtins.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kxtool {

/// What a value is taken for by what is around it.
enum class Demand : unsigned char {
    Presence, ///< whether it is there
    Text,
    Number,
    Value, ///< it is what the target gets
};

/// The elements that the rules of a file write; found when first asked for.
class WrittenPaths {
public:
    explicit WrittenPaths(const RuleFile& file) : file_(file) {}
    bool contains(const TagPath& path) const;

private:
    const RuleFile& file_;
    mutable std::optional<std::set<TagPath>> paths_;
};

struct RuleView {
    const Site& site;
    const Knowledge& knowledge;
    const RuleState& state;
    const WrittenPaths& written;
    TagPath target; ///< empty for what is no element

    const Expression& root() const { return *site.line.expression; }
    const Known& of(const Expression& node) const { return knowledge.of(node); }

    /// @return true, so that a check can end with it.
    bool tell(Check check, const Expression& node, std::string message, std::string hint = {}) const;
};

/// @return a call's argument.
const Expression& argumentOf(const Expression& call, std::size_t index);

/// @return what a text node says.
std::string_view literalOf(const Expression& node);

inline bool isLiteral(const Expression& node)
{
    return node.func == nullptr;
}

/// @return the node within brackets around it.
const Expression& unwrapped(const Expression& node);

/// @return whether it reads an element, a variable or a custom field.
bool isRead(const Expression& node);

/// @return whether an argument is never taken, whatever the dataset holds: one before it decides.
bool isUnreachable(const RuleView& view, const Expression& call, std::size_t index);

/// @return whether an argument's value may be that of the call itself.
bool isPassedOn(const Expression& call, std::size_t index);

// Each returns whether it has told something.
bool lintArguments(const RuleView& view, const Expression& call);           // what each is read as, and their order
bool lintLiteralArguments(const RuleView& view, const Expression& call);    // the texts among them
bool lintRead(const RuleView& view, const Expression& read, Demand demand); // an element, a variable, a field
bool lintComparison(const RuleView& view, const Expression& call);          // texts that are never the same
bool lintSameParts(const RuleView& view, const Expression& call);           // what stands there twice
void lintPath(const RuleView& view, const TagPath& path, const Expression* read); // null: the target's

/// Looks at the right side. @return whether it has told something.
bool lintMeaning(const RuleView& view);

/// Looks at what the target gets. @param isTold whether something was told of the right side.
void lintWrite(const RuleView& view, bool isTold);
void lintObject(const RuleView& view,
                const DcmTagKey& key); // what identifies an object, or tells how to read its pixels

} // namespace kxtool
