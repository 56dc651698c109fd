// SPDX-License-Identifier: BSD-3-Clause
// Texts that say something in this language or another, and are mere texts where they stand.
#pragma once

#include "kxmap/core/inspect.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace kxtool {

/// Something in a text that is not read, and what to write for it.
struct Unread {
    kxmap::Span span; ///< in the text
    std::string meant;
};

/// @return the first tag, variable, custom field, path or call that a text holds; none for a text that means itself.
std::optional<Unread> findReference(std::string_view text);

/// @param isSet whether the rules set a variable of that name.
/// @return the first placeholder, as shells and formats have them, that a text holds.
std::optional<Unread> findPlaceholder(std::string_view text, const std::function<bool(const std::string&)>& isSet);

/// @return where a comment of another language begins, or one of this; npos for none.
std::size_t findComment(std::string_view text);

/// @return whether a text stands in quotes that are none here.
bool isInForeignQuotes(std::string_view text);

/// @return whether a text that is compared or looked for is a pattern, by wildcards, alternatives or regular expressions.
bool isPattern(std::string_view text);

/// @return whether a word is a keyword of the data dictionary that is no word of everyday: "PatientName".
bool isKeyword(std::string_view word);

} // namespace kxtool
