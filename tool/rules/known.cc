// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/known.h"

#include "tool/rules/builtins.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace kxtool {
namespace {

using Presence = Known::Presence;

const Bytes& digits()
{
    static const Bytes set = bytesOf("0123456789");
    return set;
}

/// @return whether a path's argument is read as an item's number.
bool isItemAt(std::size_t index)
{
    return index % 3 == 2;
}

/// @return a number of hexadecimal digits alone; none for others, which "%4X" may read all the same.
std::optional<int> readPlainHex(std::string_view text)
{
    int number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    const bool isPlain = failure == std::errc() && end == text.data() + text.size() && text.size() <= 4 && number >= 0;
    return isPlain ? std::optional(number) : std::nullopt;
}

std::optional<int> readPiece(const char* text, std::size_t index)
{
    if (isItemAt(index)) return numberIn(text);
    if (const auto plain = readPlainHex(text)) return plain;
    unsigned int component = 0;
    if (std::sscanf(text, "%4X", &component) != 1) return std::nullopt;
    return static_cast<int>(component & 0xFFFFU);
}

} // namespace

Bytes bytesOf(std::string_view text)
{
    Bytes set;
    for (const char byte : text) set.set(static_cast<unsigned char>(byte));
    return set;
}

Known Known::never()
{
    Known known;
    known.presence = Presence::Never;
    return known;
}

Known Known::open(Presence presence)
{
    return Known().with(presence);
}

Known Known::otherThan(std::string text)
{
    Known known;
    known.isNot.push_back(std::move(text));
    return known;
}

Known Known::always(std::string text)
{
    Known known;
    known.presence = Presence::Always;
    known.least = known.most = text.size();
    known.holds = known.may = known.usual.may = bytesOf(text);
    known.usual.least = known.usual.most = text.size();
    known.text = std::move(text);
    return known;
}

Known Known::number(Presence presence, const Range& range)
{
    if (range.lowest == range.highest) return always(std::to_string(range.lowest)).with(presence);
    Known known;
    known.presence = presence;
    known.least = known.usual.least = 1;
    known.most = known.usual.most = std::string_view("-2147483648").size();
    known.may = range.lowest < 0 ? digits() | bytesOf("-") : digits();
    known.usual.may = known.may;
    known.usual.vr = EVR_IS;
    known.isNumber = true;
    known.range = range;
    return known;
}

Known Known::with(Presence other) const
{
    Known known = *this;
    known.presence = other;
    return known;
}

bool Range::isIn32Bits() const
{
    return lowest >= std::numeric_limits<int>::min() && highest <= std::numeric_limits<int>::max();
}

Texts textsOf(const Known& value)
{
    return value.text ? Texts(&*value.text, 1) : Texts(value.oneOf);
}

Range rangeOf(const Known& value)
{
    const Texts texts = textsOf(value);
    if (texts.empty()) return value.range;
    Range all{std::numeric_limits<long long>::max(), std::numeric_limits<long long>::min()};
    for (const std::string& text : texts) {
        const auto number = numberIn(text);
        if (number) all = {std::min<long long>(all.lowest, *number), std::max<long long>(all.highest, *number)};
    }
    return all.lowest > all.highest ? Range{} : all;
}

bool canBe(const Known& value, const std::string& text)
{
    const auto isIt = [&text](const std::string& one) { return one == text; };
    if (value.isNever() || std::ranges::any_of(value.isNot, isIt)) return false;
    if (value.text) return *value.text == text;
    if (!value.oneOf.empty()) return std::ranges::any_of(value.oneOf, isIt);
    const Bytes bytes = bytesOf(text);
    if (text.size() < value.least || text.size() > value.most) return false;
    if ((value.holds & ~bytes).any() || (bytes & ~value.may).any()) return false;
    if (!value.isNumber) return true;
    const auto number = numberIn(text);
    return number && std::to_string(*number) == text && *number >= value.range.lowest && *number <= value.range.highest;
}

namespace {

Usual eitherUsual(const Known& a, const Known& b)
{
    Usual usual;
    usual.may = a.usual.may | b.usual.may;
    usual.least = std::min(a.usual.least, b.usual.least);
    usual.most = std::max(a.usual.most, b.usual.most);
    usual.vr = a.usual.vr == b.usual.vr ? a.usual.vr : EVR_UNKNOWN;
    return usual;
}

std::vector<std::string> eitherText(const Known& a, const Known& b)
{
    constexpr std::size_t kMost = 64; // a table that is longer is hardly written to be asked for its values
    const Texts some = textsOf(a);
    const Texts more = textsOf(b);
    if (some.empty() || more.empty() || some.size() + more.size() > kMost) return {};
    std::vector<std::string> all(some.begin(), some.end());
    for (const std::string& text : more) {
        if (std::ranges::find(all, text) == all.end()) all.push_back(text);
    }
    return all;
}

/// Adds the texts that a value is not and another one cannot be.
void addImpossible(Known& known, const Known& value, const Known& other)
{
    constexpr std::size_t kMost = 32; // rules that go on for longer hardly ask for their first texts again
    for (const std::string& text : value.isNot) {
        if (known.isNot.size() == kMost) return;
        if (!canBe(other, text) && std::ranges::find(known.isNot, text) == known.isNot.end())
            known.isNot.push_back(text);
    }
}

} // namespace

Known either(const Known& a, const Known& b)
{
    const Presence presence = a.presence == b.presence ? a.presence : Presence::Perhaps;
    if (a.isNever() || b.isNever()) {
        Known known = (a.isNever() ? b : a).with(presence);
        if (known.isNumber) known.usual.vr = EVR_UNKNOWN; // somebody asks whether it is there
        return known;
    }
    Known known;
    known.presence = presence;
    if (a.text == b.text) known.text = a.text;
    else known.oneOf = eitherText(a, b);
    known.least = std::min(a.least, b.least);
    known.most = std::max(a.most, b.most);
    known.holds = a.holds & b.holds;
    known.may = a.may | b.may;
    known.isNumber = a.isNumber && b.isNumber;
    known.beginsWithNumber = readsAsNumber(a) == Presence::Always && readsAsNumber(b) == Presence::Always;
    if (a.isNumber || b.isNumber) { // else the texts tell it, or nothing does
        const Range ranges[] = {rangeOf(a), rangeOf(b)};
        known.range = {std::min(ranges[0].lowest, ranges[1].lowest), std::max(ranges[0].highest, ranges[1].highest)};
    }
    addImpossible(known, a, b);
    addImpossible(known, b, a);
    known.usual = eitherUsual(a, b);
    return known;
}

bool canBeEqual(const Known& a, const Known& b)
{
    if (a.isNever() || b.isNever()) return false;
    const auto canBeOther = [](const Known& one, const Known& other) {
        const Texts texts = textsOf(one);
        return texts.empty() || std::ranges::any_of(texts, [&](const auto& text) { return canBe(other, text); });
    };
    if (!canBeOther(a, b) || !canBeOther(b, a)) return false;
    if (a.least > b.most || b.least > a.most) return false;
    if ((a.holds & ~b.may).any() || (b.holds & ~a.may).any()) return false;
    return !a.isNumber || !b.isNumber || (a.range.lowest <= b.range.highest && b.range.lowest <= a.range.highest);
}

Presence readsAsNumber(const Known& value)
{
    if (value.text) return numberIn(*value.text) ? Presence::Always : Presence::Never;
    if (value.isNumber || value.beginsWithNumber || (value.least > 0 && (value.may & ~digits()).none()))
        return Presence::Always;
    return value.most == 0 || (value.may & digits()).none() ? Presence::Never : Presence::Perhaps;
}

std::optional<int> numberIn(std::string_view text)
{
    constexpr std::string_view kBegins = "0123456789+- \t\n\v\f\r";
    int number = 0;
    if (text.empty() || kBegins.find(text.front()) == std::string_view::npos) return std::nullopt;
    if (std::sscanf(std::string(text).c_str(), "%d", &number) != 1) return std::nullopt;
    return number;
}

std::optional<int> numberIn(const Known& value)
{
    return value.isNever() || !value.text ? std::nullopt : numberIn(*value.text);
}

Known Surroundings::element(const std::vector<int>& /*path*/) const
{
    return {};
}

Known Surroundings::variable(const std::string& /*name*/) const
{
    return {};
}

Known Surroundings::field(const std::string& /*name*/) const
{
    return {};
}

Known Surroundings::narrowed(const Expression& /*node*/, Known known) const
{
    return known;
}

const Expression* Surroundings::definition(const std::string& /*name*/) const
{
    return nullptr;
}

namespace {

bool isElement(Way way)
{
    return way == Way::Tag || way == Way::Path;
}

} // namespace

bool isSame(const Expression& a, const Expression& b)
{
    if (a.func == nullptr && b.func == nullptr)
        return std::string_view(a.text ? a.text : "") == std::string_view(b.text ? b.text : "");
    const Way way = wayOf(a);
    const Way other = wayOf(b);
    if (way == Way::Brackets) return isSame(*a.params.front(), b);
    if (other == Way::Brackets) return isSame(a, *b.params.front());
    if (isElement(way) && isElement(other)) {
        const auto path = pathOf(a);
        if (path && path == pathOf(b)) return true;
    }
    return a.func == b.func && way != Way::Drawn &&
           std::ranges::equal(a.params, b.params,
                              [](const auto* mine, const auto* yours) { return isSame(*mine, *yours); });
}

std::optional<std::vector<int>> pathOf(std::span<const Known> arguments)
{
    std::vector<int> path;
    for (const Known& argument : arguments) {
        const auto piece =
            argument.isAlways() && argument.text ? readPiece(argument.text->c_str(), path.size()) : std::nullopt;
        if (!piece) return std::nullopt;
        path.push_back(*piece);
    }
    return path;
}

bool canBePath(std::span<const Known> arguments)
{
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i].isNever() || (arguments[i].text && !readPiece(arguments[i].text->c_str(), i))) return false;
    }
    return true;
}

std::optional<std::vector<int>> pathOf(const Expression& node)
{
    if (node.func == nullptr) return std::nullopt;
    if (const Way way = wayOf(node); way != Way::Tag && way != Way::Path) return std::nullopt;
    std::vector<int> path;
    path.reserve(node.params.size());
    for (const Expression* argument : node.params) {
        if (argument->func != nullptr) return std::nullopt;
        const auto piece = readPiece(argument->text == nullptr ? "" : argument->text, path.size());
        if (!piece) return std::nullopt;
        path.push_back(*piece);
    }
    return path;
}

} // namespace kxtool
