// SPDX-License-Identifier: BSD-3-Clause
// What can be told of a value from the rules alone, without a dataset: whether it is there, which text it is, and else how
// long it is and of which bytes. What is told is certain; what is not certain is left open.
#pragma once

#include "kxmap.h"

#include <dcmtk/dcmdata/dcvr.h>

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

/// How a text looks that comes out of elements which hold what their VRs demand. Datasets break that: so it tells what
/// hardly is, never what cannot be.
struct Usual {
    Bytes may = Bytes().set();                                  ///< no other byte is in it
    std::size_t least = 0;                                      ///< bytes, of one that is not empty
    std::size_t most = std::numeric_limits<std::size_t>::max(); ///< bytes
    DcmEVR vr = EVR_UNKNOWN;                                    ///< it is a whole value of this VR; unknown: open
};

/// Whole numbers from one to another, both included.
struct Range {
    long long lowest = std::numeric_limits<int>::min();
    long long highest = std::numeric_limits<int>::max();

    bool isIn32Bits() const;
};

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
    bool wraps = false;                ///< its computing has left 32 bits
    Range range{};                     ///< of the number that is read in it, where there is one
    std::vector<std::string> oneOf{};  ///< it is one of these; empty: open
    std::vector<std::string> isNot{};  ///< it is none of these
    Usual usual{};

    static Known never();
    static Known open(Presence presence);
    static Known otherThan(std::string text);
    static Known always(std::string text);
    /// @return a whole number of that presence.
    static Known number(Presence presence, const Range& range = {});

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

/// @return whether a value that is there can have that text.
bool canBe(const Known& value, const std::string& text);

using Texts = std::span<const std::string>;

/// @return the texts that a value has, where it is there; empty for an open one. They are the value's own.
Texts textsOf(const Known& value);
Texts textsOf(const Known&& value) = delete;

/// @return the numbers that may be read in a value.
Range rangeOf(const Known& value);

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
    virtual ~Surroundings() = default;

    /// @param path group, element, and for what is in sequence items: item, group, element, again and again.
    virtual Known element(const std::vector<int>& path) const;
    virtual Known variable(const std::string& name) const;
    virtual Known field(const std::string& name) const;

    /// @param known what is told of a node by its parts. @return the same, or what else is known of it.
    virtual Known narrowed(const Expression& node, Known known) const;

    /// @return what a variable was set to, where that still yields the same; null for none, or where that is open.
    virtual const Expression* definition(const std::string& name) const;

protected:
    Surroundings(const Surroundings&) = default;
    Surroundings& operator=(const Surroundings&) = default;
};

/// @return the path that a tag reference or SEQ leads along, by the texts of its arguments; none where one is open, NULL or
///         cannot be read.
std::optional<std::vector<int>> pathOf(std::span<const Known> arguments);

/// @return whether a path may come of what is known of its arguments: those that are texts can be read.
bool canBePath(std::span<const Known> arguments);

/// @return the path of a tag reference or SEQ whose arguments are texts; none for other nodes.
std::optional<std::vector<int>> pathOf(const Expression& node);

/// @return whether two expressions are always the same, because they are made of the same parts.
bool isSame(const Expression& a, const Expression& b);

} // namespace kxtool
