// SPDX-License-Identifier: BSD-3-Clause
// By table 3-7 of the Unicode Standard: no overlong forms, no surrogates, nothing above U+10FFFF.
#include "tool/console/utf8.h"

namespace kxtool {

std::size_t utf8SizeAt(std::string_view text)
{
    if (text.empty()) return 0;
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const std::size_t size = first < 0x80   ? 1
                             : first < 0xC2 ? 0
                             : first < 0xE0 ? 2
                             : first < 0xF0 ? 3
                             : first < 0xF5 ? 4
                                            : 0;
    if (size == 0 || size > text.size()) return 0;
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    const bool isOverlong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xF0 && byte(1) < 0x90);
    const bool isBeyond = (first == 0xED && byte(1) >= 0xA0) || (first == 0xF4 && byte(1) >= 0x90);
    return isOverlong || isBeyond ? 0 : size;
}

bool isUtf8(std::string_view text)
{
    while (!text.empty()) {
        const std::size_t size = utf8SizeAt(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

} // namespace kxtool
