// SPDX-License-Identifier: BSD-3-Clause
// What the tool knows of the language's built-ins: a row each, in one table. What checks, explains or completes rules reads
// it here, and compares no descriptors.
#pragma once

#include "tool/rules/known.h"

#include "kxmap.h"

#include <array>
#include <cstddef>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace kxtool {

/// What a built-in takes an argument for.
enum class Reading : unsigned char {
    Presence, ///< whether it is there: a condition
    Value,    ///< itself: the call may yield it
    Text,
    Wanted,  ///< to be found in another
    Number,  ///< the whole number that its text begins with
    Date,    ///< the date in its text
    Group,   ///< the hexadecimal digits of a tag's first half
    Element, ///< those of its second half
    Name,    ///< of a variable or a custom field
};

/// How a call comes to its value: what those who follow values through a rule treat each in its own way.
enum class Way : unsigned char {
    Brackets, ///< the one argument, itself
    Tag,      ///< an element of the dataset
    Path,     ///< an element in sequence items
    Variable,
    Field,
    Null,
    Equal,        ///< "true" where two texts are the same
    Not,          ///< "true" where the argument is NULL
    AllPresent,   ///< "true" where none is NULL
    FirstPresent, ///< the first argument that is not NULL, itself
    Choice,       ///< the second or the third argument, itself, by the first
    Table,        ///< the argument behind the first "from" that equals the first, or the second, itself
    Found,        ///< the second argument, itself, where it occurs in the first
    Joined,       ///< the texts of its arguments behind one another
    Part,         ///< a part of the first argument's text
    Recased,      ///< the first argument's text in upper or lower case
    Within,       ///< "true" where a number is in a range
    Counted,      ///< a number that its arguments are added up or multiplied to: digits of dates are no amounts
    Computed,     ///< another text made of its arguments, by nothing but them
    Drawn,        ///< a number by chance
};

/// What the arguments of a call are read as.
struct Readings {
    std::array<Reading, 4> first{};
    std::size_t count = 0;
    std::size_t repeated = 0; ///< how many of the last are read again and again

    constexpr Readings(std::initializer_list<Reading> readings, std::size_t repeats = 0) : repeated(repeats)
    {
        for (const Reading reading : readings) first[count++] = reading;
    }

    constexpr Reading at(std::size_t index) const
    {
        if (index < count) return first[index];
        return repeated == 0 ? Reading::Text : first[count - repeated + (index - count) % repeated];
    }
};

/// One built-in.
struct Builtin {
    const FunctionDef* function;
    Way way;
    const char* arguments; ///< as explanations name them: "text,start[,length]"
    Readings reads;
    bool yieldsNumber; ///< a whole number, where it yields anything

    /// @return what comes of a call, by what is known of its arguments; null for what depends on a dataset.
    Known (*of)(std::span<const Known> arguments);

    // In words, of which the first that can be said counts, with "|" between them; null where nothing says it.
    // {0}    the first argument          {#0}  the same, as a number         {n0}  a number that is known
    // {th0}  a known number as "second"  {* x }  all, as numbers, with " x " between them
    // These say nothing, but rule the words out where the argument is not: {=0:1} known to be the number 1, {?0} a known
    // number, {!0} there for sure, {-0} left out of the call.
    const char* value; ///< "{0} in upper case"
    const char* holds; ///< when it is there: "{0} contains {1}"; null: where those of its arguments are that it needs
    const char* fails; ///< "{0} does not contain {1}"

    std::string_view name() const { return function->name; }
    /// @return "substr(text,start[,length])"
    std::string signature() const;
};

/// @return a row for each of the engine's descriptors in their order, the wrapper of whole right sides last.
std::span<const Builtin> builtins();

/// @param function one of the engine's, not null.
const Builtin& builtinOf(const FunctionDef* function);

/// @return the row of a name that rules can call; null for none, and for the empty one.
const Builtin* builtinNamed(std::string_view name);

/// @return the way of a node; of a text Way::Computed.
Way wayOf(const Expression& node);

} // namespace kxtool
