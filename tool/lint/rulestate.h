// SPDX-License-Identifier: BSD-3-Clause
// What the rules so far have made of elements, variables and custom fields, as far as that is the same for every dataset.
#pragma once

#include "tool/rules/knowledge.h"
#include "tool/rules/known.h"
#include "tool/rules/rulefile.h"

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

namespace kxtool {

using TagPath = std::vector<int>;

/// @return the path of a target that is an element; empty for other targets.
TagPath pathOf(const LVObject& target);

/// @return whether one path leads to the other's element or into it.
bool isWithin(const TagPath& inner, const TagPath& outer);

class RuleState : public Surroundings {
public:
    Known element(const std::vector<int>& path) const override;
    Known variable(const std::string& name) const override;
    Known field(const std::string& name) const override;
    const Expression* definition(const std::string& name) const override;

    /// @param path of the rule's target; empty for what is no element.
    /// @param value of its right side.
    void apply(const RuleLine& rule, const TagPath& path, const Known& value);

    /// Forgets what ends with a mapping: plain variables.
    void endMapping();

    /// Forgets what the rules of a file may have changed.
    void forget(const RuleFile& file);

    /// @return whether a rule has deleted the element, or one that it lies in.
    bool isDeleted(const TagPath& path) const;

    /// @return the number of rules that were applied.
    std::size_t writes() const { return writes_; }

    /// @return whether a later rule than that many has written the element, what is in it or what it lies in.
    bool isWrittenSince(const TagPath& path, std::size_t since) const;

    /// @return what is known of the element in datasets that no rule has seen; stays where it is.
    const Known& untouched(const DcmTagKey& key) const;

private:
    struct Variable {
        Known known;
        const Expression* definition; ///< null when several rules made it
        std::size_t since;            ///< the write before which it was set
    };

    void write(const TagPath& path, Known value);
    void set(const std::string& name, const Expression& expression, const Known& value);
    bool isAsItWas(const Expression& node, std::size_t since, int depth) const;

    std::map<TagPath, std::pair<Known, std::size_t>> written_; // and the number of the write
    std::unordered_map<std::string, Variable> variables_;
    std::unordered_map<std::string, Known> fields_;
    std::size_t writes_ = 0;
    bool hasPaths_ = false;
    mutable std::unordered_map<std::uint32_t, Known> untouched_; // what is known of elements by their tags
};

} // namespace kxtool
