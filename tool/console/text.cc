// SPDX-License-Identifier: BSD-3-Clause
#include "tool/console/text.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

namespace kxtool {
namespace {

char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isLetterOrDigit(char c)
{
    return (c >= '0' && c <= '9') || (lower(c) >= 'a' && lower(c) <= 'z');
}

} // namespace

std::string_view trimmed(std::string_view text, const char* blanks)
{
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

std::string lowered(std::string_view text)
{
    std::string lowered(text);
    std::ranges::transform(lowered, lowered.begin(), lower);
    return lowered;
}

bool startsWithAnyCase(std::string_view text, std::string_view begin)
{
    return text.size() >= begin.size() && std::ranges::equal(text.substr(0, begin.size()), begin, {}, lower, lower);
}

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

std::string percentEncoded(std::string_view text)
{
    constexpr std::string_view kMarks = "-._~/";
    std::string encoded;
    for (const char c : text) {
        if (isLetterOrDigit(c) || kMarks.find(c) != std::string_view::npos) encoded += c;
        else encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return encoded;
}

std::string keyText(const DcmTagKey& key)
{
    return fmt::format("({:04x},{:04x})", key.getGroup(), key.getElement());
}

std::optional<Uint16> readHex(std::string_view text)
{
    Uint16 number = 0;
    const char* const end = text.data() + text.size();
    const auto [read, failure] = std::from_chars(text.data(), end, number, 16);
    return failure == std::errc() && read == end && text.size() <= 4 ? std::optional(number) : std::nullopt;
}

} // namespace kxtool
