// SPDX-License-Identifier: BSD-3-Clause
// What can be told of a value from the rules alone, without a dataset: whether it is there, which text it is, and else how
// long it is and of which bytes. What is told is certain; what is not certain is left open.
#pragma once

#include "kxmap.h"

#include <bitset>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kxtool {

/// A set of byte values.
using Bytes = std::bitset<256>;

/// @return the bytes that occur in a text.
Bytes bytesOf(std::string_view text);

struct Known {
    enum class Presence : unsigned char { Never, Perhaps, Always };

    static constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

    Presence presence = Presence::Perhaps;
    // Of the value where it is there:
    std::optional<std::string> text{}; ///< it is this; else open
    std::size_t least = 0;             ///< bytes
    std::size_t most = kUnlimited;     ///< bytes
    Bytes holds{};                     ///< bytes that occur in it
    Bytes may = Bytes().set();         ///< bytes that can occur in it: no other does
    bool isNumber = false;             ///< a whole number as the arithmetic built-ins write it
    bool beginsWithNumber = false;     ///< a whole number can be read at its begin

    static Known never();
    static Known always(std::string text);
    /// @return a whole number of that presence.
    static Known number(Presence presence);

    bool isNever() const { return presence == Presence::Never; }
    bool isAlways() const { return presence == Presence::Always; }
    /// @return whether it is the same in every dataset: NULL, or one text.
    bool isConstant() const { return isNever() || (isAlways() && text); }
    Known with(Presence other) const;
};

/// @return what holds of both: of a value that is the one or the other.
Known either(const Known& a, const Known& b);

/// @return whether two values that are both there can have the same text.
bool canBeEqual(const Known& a, const Known& b);

/// @return whether a whole number can be read at the begin of a value that is there, as "%d" of C reads it.
Known::Presence readsAsNumber(const Known& value);

/// @return the number that is read in a text, as "%d" of C reads it; none where nothing is.
std::optional<int> numberIn(std::string_view text);

/// @return the number that is read in a value that is there; none where there is none or it is open.
std::optional<int> numberIn(const Known& value);

/// What is known of what rules read. As it is here: nothing.
class Surroundings {
public:
    Surroundings() = default;
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    virtual ~Surroundings() = default;

    /// @param path group, element, and for what is in sequence items: item, group, element, again and again.
    virtual Known element(const std::vector<int>& path) const;
    virtual Known variable(const std::string& name) const;
    virtual Known field(const std::string& name) const;

    /// @param known what is told of a node by its parts. @return the same, or what else is known of it.
    virtual Known narrowed(const Expression& node, Known known) const;
};

/// @return whether two expressions are always the same, because they are made of the same parts, and none by chance.
bool areSame(const Expression& a, const Expression& b);

/// What is known of each node of a rule's right side.
class Knowledge {
public:
    /// @param root of a tree that stays as it is while this is asked.
    Knowledge(const Expression& root, const Surroundings& surroundings);

    /// @param node of that tree.
    const Known& of(const Expression& node) const { return known_.at(&node); }

private:
    const Known& learn(const Expression& node, const Surroundings& surroundings);
    static Known learnCall(const Expression& call, std::span<const Known> arguments, const Surroundings& surroundings);

    std::unordered_map<const Expression*, Known> known_;
};

/// @return the path that a tag reference or SEQ leads along, by the texts of its arguments; none where one is open, NULL or
///         cannot be read.
std::optional<std::vector<int>> pathOf(std::span<const Known> arguments);

/// @return the path of a tag reference or SEQ whose arguments are texts; none for other nodes.
std::optional<std::vector<int>> pathOf(const Expression& node);

} // namespace kxtool
