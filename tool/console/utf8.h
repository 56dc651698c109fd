// SPDX-License-Identifier: BSD-3-Clause
// UTF-8, character by character.
#pragma once

#include <cstddef>
#include <string_view>

namespace kxtool {

/// @return the size of the UTF-8 character that a text begins with; 0 when its first byte begins none.
std::size_t utf8SizeAt(std::string_view text);

/// @return whether the bytes are UTF-8, ASCII included.
bool isUtf8(std::string_view text);

} // namespace kxtool
