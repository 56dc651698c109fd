// SPDX-License-Identifier: BSD-3-Clause
// Values and conditions in the words of a conformance statement, where they can be said plainly.
#pragma once

#include "tool/conformance/conformancecases.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// Words for one outcome of a rule. The rule's target is "it".
class Words {
public:
    /// @param facts what holds where this is said.
    /// @param value what conditions call "the value".
    Words(const Facts& facts, const ElementPath& target, const Expression* value)
        : facts_(facts), target_(target), value_(value)
    {
    }

    /// @return none where it cannot be said in a sentence that a reader follows.
    std::optional<std::string> value(const Outcome& outcome);

    /// @param conditions as shortened() has them; none of them is said for sure by the facts.
    /// @return empty for none. @return none as value() does.
    std::optional<std::string> all(const std::vector<Condition>& conditions);

private:
    using Text = std::optional<std::string>;

    Text value(const Expression& node, std::size_t moment);
    std::string element(const ElementPath& path, std::size_t moment) const;
    std::string elementText(const ElementPath& path, std::size_t moment) const;
    Text choice(const Expression& call, std::size_t moment);
    Text first(const Expression& call, std::size_t moment);
    Text joined(const Expression& call, std::size_t moment);
    Text table(const Expression& call, std::size_t moment);

    Text filled(const char* patterns, const Expression& call, std::size_t moment);
    Text filledOne(std::string_view pattern, const Expression& call, std::size_t moment);
    Text piece(std::string_view code, const Expression& call, std::size_t moment);
    Text number(const Expression& node, std::size_t moment);

    Text clause(const Condition& condition);
    Text presence(const Expression& node, std::size_t moment, bool holds);
    Text callPresence(const Expression& call, std::size_t moment, bool holds);
    Text joinedPresence(const Expression& call, std::size_t moment, bool holds);
    Text equality(const Expression& a, const Expression& b, std::size_t moment, bool holds);
    Text match(const Condition& condition);
    Text anyOf(std::vector<Condition> conditions);
    Text subject(const Expression& node, std::size_t moment);

    const Facts& facts_;
    const ElementPath& target_;
    const Expression* value_;
    int steps_ = 0; // so many as a sentence can hold
};

/// @return the text between two others; none for none.
std::optional<std::string> plus(const char* before, const std::optional<std::string>& text, const char* after = "");

/// @return a text in double quotes, fit to be shown; "an empty value" for the empty one.
std::string quoted(const std::string& text);

} // namespace kxtool
