// SPDX-License-Identifier: BSD-3-Clause
// Guesses at what somebody meant who wrote a name that there is not.
#pragma once

#include <string>
#include <string_view>

namespace kxtool {

/// @return what to write for a function name that there is not, as a sentence; empty without a guess.
std::string hintForFunction(std::string_view name);

/// @return "(0010,0010)" for "PatientName": the tag of a keyword of the data dictionary; empty for what is none.
std::string tagOfKeyword(std::string_view word);

/// @return the tag that a text seems to mean, as it is to be written; empty when it looks like none.
std::string tagMeantBy(std::string_view text);

/// @return whether a text that the parser took as it stands looks as if it should be computed: `a + b`, `(x)=(y)`.
bool looksInfix(std::string_view text);

/// @return what to do about a text that looks so: it has an operator, or a second rule in it.
const char* hintForInfix(std::string_view text);

/// @return the steps between two words: letters to insert, to drop and to change; two that have changed places are one.
std::size_t editDistance(std::string_view a, std::string_view b);

inline constexpr const char* kNoOperators =
    "there are no operators between values: write concat(a,b) to join, add(a,b) to add, equals(a,b) to compare; "
    "put the text in quotes where it is meant";

} // namespace kxtool
