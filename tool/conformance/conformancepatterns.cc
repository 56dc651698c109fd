// SPDX-License-Identifier: BSD-3-Clause
// The patterns of the table of built-ins, filled with the words of a call's arguments.
#include "tool/conformance/conformanceprobe.h"
#include "tool/conformance/conformancewords.h"
#include "tool/rules/builtins.h"

#include <algorithm>
#include <array>

namespace kxtool {
namespace {

using Text = std::optional<std::string>;

/// @return "second" for 2; none for what a sentence had better not count.
Text ordinal(int number)
{
    constexpr std::array kWords = {"second", "third", "fourth", "fifth", "sixth", "seventh", "eighth", "ninth"};
    constexpr int kLeast = 2;
    if (number < kLeast || number >= kLeast + static_cast<int>(kWords.size())) return std::nullopt;
    return kWords[static_cast<std::size_t>(number - kLeast)];
}

} // namespace

Text plus(const char* before, const Text& text, const char* after)
{
    return text ? Text(before + *text + after) : std::nullopt;
}

Text Words::filled(const char* patterns, const Expression& call, std::size_t moment)
{
    if (patterns == nullptr) return std::nullopt;
    for (std::string_view left = patterns; !left.empty();) {
        const std::string_view pattern = left.substr(0, left.find('|'));
        if (Text text = filledOne(pattern, call, moment)) return text;
        left.remove_prefix(std::min(left.size(), pattern.size() + 1));
    }
    return std::nullopt;
}

Text Words::filledOne(std::string_view pattern, const Expression& call, std::size_t moment)
{
    std::string text;
    while (!pattern.empty()) {
        const std::size_t open = pattern.find('{');
        text += pattern.substr(0, open);
        if (open == std::string_view::npos) break;
        const std::size_t close = pattern.find('}', open);
        const Text part = piece(pattern.substr(open + 1, close - open - 1), call, moment);
        if (!part) return part;
        text += *part;
        pattern.remove_prefix(close + 1);
    }
    return text;
}

/// @param code what stands between the braces of a pattern.
Text Words::piece(std::string_view code, const Expression& call, std::size_t moment)
{
    if (code.starts_with('*')) {
        Text text = "";
        for (const Expression* each : call.params) {
            const Text one = number(*each, moment);
            if (!one) return one;
            *text += (text->empty() ? "" : std::string(code.substr(1))) + *one;
        }
        return text;
    }
    const std::size_t digit = code.find_first_of("0123456789");
    const auto index = static_cast<std::size_t>(code[digit] - '0');
    const std::string_view kind = code.substr(0, digit);
    if ((index >= call.params.size()) != (kind == "-")) return std::nullopt;
    if (kind == "-") return "";
    const Expression& node = argument(call, index);
    const Known known = facts_.of(node, moment);
    if (kind.empty()) return value(node, moment);
    if (kind == "#") return number(node, moment);
    if (kind == "!") return known.isAlways() ? Text("") : std::nullopt;
    const std::optional<int> is = known.isConstant() ? numberIn(known) : std::nullopt;
    if (!is) return std::nullopt;
    if (kind == "?") return "";
    if (kind == "n") return std::to_string(*is);
    if (kind == "th") return ordinal(*is);
    return std::to_string(*is) == code.substr(digit + 2) ? Text("") : std::nullopt;
}

/// As a number in a sentence. The engine reads the number that a text begins with and ignores the rest.
Text Words::number(const Expression& node, std::size_t moment)
{
    const Known known = facts_.of(node, moment);
    if (const auto is = numberIn(known); is && known.isConstant()) return std::to_string(*is);
    if (const History::Source* source = facts_.sourceOf(node, moment))
        return number(*source->expression, source->moment);
    const Text words = value(node, moment);
    if (node.func != nullptr && builtinOf(node.func).yieldsNumber) return plus("(", words, ")");
    const auto path = Facts::pathOf(node);
    return path && vrNameOf(tagAt(*path)) == "IS" ? words : plus("the whole number at the start of ", words);
}

} // namespace kxtool
