// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/knowncalls.h"

#include "QVDate.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace kxtool::knowncalls {
namespace {

using Presence = Known::Presence;
constexpr auto kNever = Presence::Never;
constexpr auto kPerhaps = Presence::Perhaps;
constexpr auto kAlways = Presence::Always;

/// @return of the least certain.

Presence together(Presence a, Presence b)
{
    return std::min(a, b);
}

Presence allPresent(Arguments arguments)
{
    Presence all = kAlways;
    for (const Known& argument : arguments) all = together(all, argument.presence);
    return all;
}

Presence allNumbers(Arguments arguments)
{
    Presence all = allPresent(arguments);
    for (const Known& argument : arguments) {
        if (!argument.isNever()) all = together(all, readsAsNumber(argument));
    }
    return all;
}

Known truth(Presence presence)
{
    return Known::always("true").with(presence);
}

std::size_t added(std::size_t a, std::size_t b)
{
    return a > Known::kUnlimited - b ? Known::kUnlimited : a + b;
}

/// A part of a text.

Known partOf(const Known& text, Presence presence)
{
    Known known;
    known.presence = presence;
    known.most = text.most;
    known.may = text.may;
    if (text.most == 0) known.text = "";
    return known;
}

/// The case of letters beyond ASCII is the process's locale's: of other bytes nothing is known but their number.

Known recased(const Known& text, int (*convert)(int))
{
    Known known = text;
    if (text.text)
        std::ranges::transform(*known.text, known.text->begin(),
                               [&](unsigned char c) { return static_cast<char>(convert(c)); });
    known.holds.reset();
    known.may.reset();
    for (std::size_t byte = 0; byte < text.may.size(); ++byte) {
        if (byte >= 0x80) {
            known.may.set(byte);
        } else {
            const auto other = static_cast<std::size_t>(convert(static_cast<int>(byte)));
            if (text.may.test(byte)) known.may.set(other);
            if (text.holds.test(byte)) known.holds.set(other);
        }
    }
    return known;
}

} // namespace

Known null(Arguments /*arguments*/)
{
    return Known::never();
}

Known equals(Arguments arguments)
{
    const Known& a = arguments[0];
    const Known& b = arguments[1];
    if (a.isNever() && b.isNever()) return truth(kAlways);
    if (canBeEqual(a, b)) return truth(a.isConstant() && b.isConstant() ? kAlways : kPerhaps);
    return truth(a.isAlways() || b.isAlways() ? kNever : kPerhaps); // both may be NULL
}

Known negated(Arguments arguments)
{
    const Presence presence = arguments[0].presence;
    return truth(presence == kPerhaps ? kPerhaps : presence == kNever ? kAlways : kNever);
}

Known allOf(Arguments arguments)
{
    return truth(allPresent(arguments));
}

Known firstPresent(Arguments arguments)
{
    Known known = Known::never();
    for (const Known& argument : arguments) {
        if (argument.isNever()) continue;
        const Presence presence = std::max(known.presence, argument.presence);
        known = either(known, argument).with(presence);
        if (argument.isAlways()) break;
    }
    return known;
}

Known choice(Arguments arguments)
{
    if (arguments[0].isAlways()) return arguments[1];
    if (arguments[0].isNever()) return arguments[2];
    return either(arguments[1], arguments[2]);
}

Known table(Arguments arguments)
{
    std::optional<Known> known;
    const auto add = [&known](const Known& value) { known = known ? either(*known, value) : value; };
    for (std::size_t i = 2; i + 1 < arguments.size(); i += 2) {
        const Presence match = equals(std::array{arguments[0], arguments[i]}).presence;
        if (match != kNever) add(arguments[i + 1]);
        if (match == kAlways) return *known;
    }
    add(arguments[1]);
    return *known;
}

Known joined(Arguments arguments)
{
    Known known = Known::always("");
    for (const Known& argument : arguments) {
        if (argument.isNever()) continue;
        if (argument.isAlways()) {
            known.least = added(known.least, argument.least);
            known.holds |= argument.holds;
        }
        known.most = added(known.most, argument.most);
        known.may |= argument.may;
        if (known.text && argument.isConstant()) *known.text += *argument.text;
        else known.text.reset();
    }
    known.presence = known.most == 0 ? kNever : known.least > 0 ? kAlways : kPerhaps;
    known.least = std::max<std::size_t>(known.least, 1);
    return known;
}

Known split(Arguments arguments)
{
    const Known& text = arguments[0];
    const Known& separator = arguments[1];
    const Known& field = arguments[2];
    const auto n = numberIn(field);
    const Presence all = allPresent(arguments);
    if (all == kNever || (field.text && n.value_or(0) == 0)) return Known::never();
    if (n && *n <= 1) return partOf(text, all);
    const bool isNowhere =
        n && separator.text &&
        (separator.text->empty() || !text.may.test(static_cast<unsigned char>(separator.text->front())));
    return isNowhere ? Known::never() : partOf(text, kPerhaps);
}

Known substr(Arguments arguments)
{
    const Known& text = arguments[0];
    const auto isWrong = [](const Known& number) {
        return !number.isNever() && number.text && numberIn(*number.text).value_or(-1) < 0;
    };
    const auto isRight = [](const Known& number) {
        return number.isNever() || (number.isAlways() && numberIn(number));
    };
    const Known& start = arguments[1];
    const Known& length = arguments.size() > 2 ? arguments[2] : Known::never();
    const bool isSurelyWrong = (start.isAlways() && isWrong(start)) || (length.isAlways() && isWrong(length));
    const auto from = static_cast<std::size_t>(std::max(0, numberIn(start).value_or(0)));
    if (text.isNever() || isSurelyWrong || (start.isAlways() && from > text.most)) return Known::never();
    const bool isThere = isRight(start) && isRight(length) && from <= text.least;
    Known part = partOf(text, isThere ? text.presence : kPerhaps);
    if (!length.isAlways() || !numberIn(length)) return part;
    part.most = std::min(part.most, static_cast<std::size_t>(*numberIn(length)));
    if (part.most == 0) part.text = "";
    return part;
}

Known contains(Arguments arguments)
{
    const Known& text = arguments[0];
    const Known& wanted = arguments[1];
    const Presence all = allPresent(arguments);
    if (all == kNever || wanted.least > text.most || (wanted.holds & ~text.may).any()) return Known::never();
    const bool isCertain =
        wanted.text && (wanted.text->empty() || (text.text && text.text->find(*wanted.text) != std::string::npos));
    if (text.text && wanted.text && !isCertain) return Known::never();
    return wanted.with(isCertain ? all : kPerhaps);
}

Known length(Arguments arguments)
{
    const Known& text = arguments[0];
    Known known = Known::number(text.presence);
    if (text.least == text.most) known = Known::always(std::to_string(text.least)).with(text.presence);
    return known;
}

Known offset(Arguments arguments)
{
    return Known::number(allPresent(arguments));
}

Known upper(Arguments arguments)
{
    return recased(arguments[0], std::toupper);
}

Known lower(Arguments arguments)
{
    return recased(arguments[0], std::tolower);
}

Known age(Arguments arguments)
{
    const auto isNoDate = [](const Known& date) { return date.text && !QVDate(date.text->c_str()).isValid(); };
    if (allPresent(arguments) == kNever || std::ranges::any_of(arguments, isNoDate)) return Known::never();
    Known known;
    known.least = known.most = std::string_view("042Y").size();
    known.may = bytesOf("0123456789YMWD");
    return known;
}

Known number(Arguments arguments)
{
    return Known::number(allNumbers(arguments));
}

Known quotient(Arguments arguments)
{
    const Presence presence = allNumbers(arguments);
    const auto divisor = numberIn(arguments[1]);
    if (presence == kNever || (divisor && *divisor == 0)) return Known::never();
    return Known::number(divisor && *divisor != -1 ? presence : kPerhaps);
}

Known range(Arguments arguments)
{
    const Presence presence = allNumbers(arguments);
    const auto from = numberIn(arguments[1]);
    const auto to = numberIn(arguments[2]);
    return truth(presence == kNever || (from && to && *from >= *to) ? kNever : kPerhaps);
}

Known chance(Arguments arguments)
{
    const Known& limit = arguments[0];
    const auto most = numberIn(limit);
    if (limit.isNever() || (limit.text && most.value_or(-1) < 2)) return Known::never();
    return Known::number(most && limit.isAlways() ? kAlways : kPerhaps);
}

Known codeNumber(Arguments arguments)
{
    const Known& original = arguments[0];
    const auto value = numberIn(original);
    if (original.isNever() || readsAsNumber(original) == kNever || (value && *value < 0)) return Known::never();
    Known known;
    known.presence = value ? original.presence : kPerhaps;
    known.least = 1;
    known.may = bytesOf("-0123456789");
    return known;
}

Known codeText(Arguments arguments)
{
    constexpr std::size_t kMostCoded = 64;
    Known known;
    known.presence = arguments[0].presence;
    known.least = std::min(arguments[0].least, kMostCoded);
    known.most = std::min(arguments[0].most, kMostCoded);
    if (known.most == 0) known.text = "";
    return known;
}

Known rootOf(Arguments arguments)
{
    return arguments.size() == 1 ? arguments[0] : split(arguments);
}

} // namespace kxtool::knowncalls
