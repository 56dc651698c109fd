// SPDX-License-Identifier: BSD-3-Clause
#include "tool/console/utf8.h"

#include <algorithm>
#include <utf8proc.h>

namespace kxtool {
namespace {

/// @return the size of the first character, and its code; 0 for none.
std::size_t read(std::string_view text, utf8proc_int32_t& code)
{
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const utf8proc_ssize_t size = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size()), &code);
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

} // namespace

Character characterAt(std::string_view text)
{
    utf8proc_int32_t code = 0;
    const std::size_t size = read(text, code);
    if (size == 0 || code == 0) return {1, 0, 1};
    // A terminal shows what it has no picture for in one column.
    const int width = staysUnseen(static_cast<char32_t>(code)) ? 1 : utf8proc_charwidth(code);
    return {size, static_cast<char32_t>(code), static_cast<std::size_t>(width)};
}

bool staysUnseen(char32_t code)
{
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(code))) {
    case UTF8PROC_CATEGORY_CC:
    case UTF8PROC_CATEGORY_CF:
    case UTF8PROC_CATEGORY_ZL:
    case UTF8PROC_CATEGORY_ZP:
        return true;
    default:
        return false;
    }
}

std::size_t utf8SizeAt(std::string_view text)
{
    utf8proc_int32_t code = 0;
    return text.empty() ? 0 : read(text, code);
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

std::size_t characterCount(std::string_view text)
{
    std::size_t count = 0;
    for (; !text.empty(); ++count) text.remove_prefix(std::max<std::size_t>(1, utf8SizeAt(text)));
    return count;
}

std::size_t displayWidth(std::string_view text)
{
    std::size_t width = 0;
    while (!text.empty()) {
        const Character character = characterAt(text);
        width += character.width;
        text.remove_prefix(character.size);
    }
    return width;
}

} // namespace kxtool
