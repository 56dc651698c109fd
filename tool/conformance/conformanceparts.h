// SPDX-License-Identifier: BSD-3-Clause
// The parts of an expression, as those who put it into words take it apart.
#pragma once

#include "kxmap.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <optional>
#include <string>

namespace kxtool {

/// @param index of an argument that the call has.
inline const Expression& parameter(const Expression& call, std::size_t index)
{
    return **std::next(call.params.begin(), static_cast<std::ptrdiff_t>(index));
}

inline bool isText(const Expression& expression)
{
    return expression.func == nullptr;
}

/// @param expression a text.
inline std::string textOf(const Expression& expression)
{
    return expression.text == nullptr ? "" : expression.text;
}

/// @return the number that the arithmetic functions read in a text; none for what is no text or has none.
inline std::optional<int> readNumber(const Expression& expression)
{
    int number = 0;
    if (!isText(expression) || std::sscanf(textOf(expression).c_str(), "%d", &number) != 1) return std::nullopt;
    return number;
}

/// @return whether what comes of it, if not NULL, is a whole number.
inline bool isNumeric(const Expression& expression)
{
    constexpr std::array kNumeric = {&f_add,    &f_sub,     &f_mul, &f_div,       &f_mod,
                                     &f_strlen, &f_indexof, &f_rnd, &f_codenumber};
    return std::ranges::find(kNumeric, expression.func) != kNumeric.end();
}

/// @return "second" for 2; empty where a sentence had better show the number.
inline const char* ordinal(int number)
{
    constexpr std::array kWords = {"",      "first", "second",  "third",  "fourth",
                                   "fifth", "sixth", "seventh", "eighth", "ninth"};
    return number > 0 && number < static_cast<int>(kWords.size()) ? kWords[static_cast<std::size_t>(number)] : "";
}

} // namespace kxtool
