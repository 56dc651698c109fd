// SPDX-License-Identifier: BSD-3-Clause
// UTF-8, character by character, by the Unicode tables of libutf8proc; in no locale.
#pragma once

#include <cstddef>
#include <string_view>

namespace kxtool {

/// What a text begins with.
struct Character {
    std::size_t size;  ///< bytes; 1 for a byte that begins no character
    char32_t code;     ///< 0 for such a byte, and for NUL
    std::size_t width; ///< columns on a terminal: 2 for wide ones, 0 for combining ones, 1 for a byte
};

/// @param text not empty.
Character characterAt(std::string_view text);

/// @return whether a character shows nothing, or changes the direction of writing: controls and formats.
bool staysUnseen(char32_t code);

/// @return the size of the UTF-8 character that a text begins with; 0 when its first byte begins none.
std::size_t utf8SizeAt(std::string_view text);

/// @return whether the bytes are UTF-8, ASCII included.
bool isUtf8(std::string_view text);

/// @return the characters of a text; a byte that begins none counts as one.
std::size_t characterCount(std::string_view text);

/// @return the columns that a UTF-8 text takes on a terminal.
std::size_t displayWidth(std::string_view text);

} // namespace kxtool
