// SPDX-License-Identifier: BSD-3-Clause
// When a rule does what: facts about a dataset, joined by "and" and "or", made as short as they can be said.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kxtool {

/// Something that is so or is not so of a dataset.
struct Fact {
    std::string yes; ///< in words: "Study ID (0020,0010) is present"; facts are the same when these words are
    std::string no;
    std::string noThough;           ///< in words, when the first of `needs` is known to be so; empty: as `no`
    std::vector<std::string> needs; ///< the `yes` of facts without which this one is not so
    std::string rivals;             ///< of facts with the same text here, at most one is so; empty: none
};

/// A condition in negation normal form. A value.
class Condition {
public:
    static Condition always(bool holds);
    static Condition fact(Fact fact);
    static Condition all(std::vector<Condition> parts);
    static Condition any(std::vector<Condition> parts);
    Condition operator!() const;

    bool isAlways() const { return kind_ == Kind::All && parts_.empty(); }
    bool isNever() const { return kind_ == Kind::Any && parts_.empty(); }
    const Fact* asFact() const { return kind_ == Kind::Fact && isSo_ ? &fact_ : nullptr; }

    /// @return as short as it can be said where `known` holds; never, when both cannot be.
    Condition given(const Condition& known) const;

    /// @param told the `yes` of facts that are said elsewhere: they are left out, and taken for known.
    /// @return in words; empty for always.
    std::string text(const std::vector<std::string>& told = {}) const;

private:
    enum class Kind { Fact, All, Any };

    static Condition joined(Kind kind, std::vector<Condition> parts);
    std::vector<Condition> facts() const;
    Condition under(const std::vector<Condition>& facts) const;
    static void shorten(std::vector<Condition>& parts, const std::vector<Condition>& known);
    std::string textAmong(const std::vector<Condition>& others) const;
    std::size_t size() const;

    Kind kind_ = Kind::All; // without parts: always for All, never for Any
    Fact fact_;
    bool isSo_ = true;
    std::vector<Condition> parts_;
};

} // namespace kxtool
