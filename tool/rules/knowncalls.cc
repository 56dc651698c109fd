// SPDX-License-Identifier: BSD-3-Clause
#include "tool/rules/knowncalls.h"

#include "QVDate.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <limits>

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
    known.usual.may = text.usual.may;
    known.usual.most = text.usual.most;
    if (text.most == 0) known.text = "";
    return known;
}

/// The case of letters beyond ASCII is the process's locale's: of other bytes nothing is known but their number.

Bytes recased(const Bytes& bytes, int (*convert)(int))
{
    Bytes all;
    for (std::size_t byte = 0; byte < 0x80; ++byte) {
        if (bytes.test(byte)) all.set(static_cast<std::size_t>(convert(static_cast<int>(byte))));
    }
    return all;
}

Known recased(const Known& text, int (*convert)(int))
{
    static const Bytes beyondAscii = Bytes().set() << 0x80U;
    Known known = text;
    known.text.reset(); // the engine computes it
    known.oneOf.clear();
    known.isNot.clear();
    known.isNumber = false;
    known.holds = recased(text.holds, convert);
    known.may = recased(text.may, convert) | beyondAscii;
    known.usual.may = recased(text.usual.may, convert) | (text.usual.may & beyondAscii);
    if (known.usual.may != text.usual.may) known.usual.vr = EVR_UNKNOWN;
    if (text.most == 0) known.text = "";
    return known;
}

using Combine = Range (*)(const Range& a, const Range& b);

/// Numbers that are put together from the left to the right, in 32 bits that wrap around.
Known folded(Arguments arguments, Combine combine)
{
    Range all = rangeOf(arguments.front());
    bool wraps = false;
    for (const Known& argument : arguments.subspan(1)) {
        all = combine(all, rangeOf(argument));
        wraps = wraps || all.lowest > Range().highest || all.highest < Range().lowest;
        if (!all.isIn32Bits()) all = Range();
    }
    Known known = Known::number(allNumbers(arguments), all);
    known.wraps = wraps;
    return known;
}

Known divided(Arguments arguments, const Range& range)
{
    const Presence presence = allNumbers(arguments);
    const auto divisor = numberIn(arguments[1]);
    if (presence == kNever || (divisor && *divisor == 0)) return Known::never();
    return Known::number(divisor && *divisor != -1 ? presence : kPerhaps, range);
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
        known.usual.may |= argument.usual.may;
        known.usual.least = added(known.usual.least, argument.usual.least);
        known.usual.most = added(known.usual.most, argument.usual.most);
        if (known.text && argument.isConstant()) *known.text += *argument.text;
        else known.text.reset();
    }
    if (!known.text) known.range = {};
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
    Known part = partOf(text, n && *n <= 1 ? all : kPerhaps);
    if (separator.isAlways() && separator.text && !separator.text->empty()) {
        part.may.reset(static_cast<unsigned char>(separator.text->front()));
        part.usual.may &= part.may;
    }
    if (n && *n <= 1) return part;
    const bool isNowhere =
        n && separator.text &&
        (separator.text->empty() || !text.may.test(static_cast<unsigned char>(separator.text->front())));
    return isNowhere ? Known::never() : part;
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
    part.usual.most = std::min(part.usual.most, part.most);
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
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    return Known::number(text.presence, {static_cast<long long>(std::min(text.least, kMost)),
                                         static_cast<long long>(std::min(text.most, kMost))});
}

Known offset(Arguments arguments)
{
    return Known::number(allPresent(arguments), {-1, std::numeric_limits<int>::max()});
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
    known.least = known.most = known.usual.least = known.usual.most = std::string_view("042Y").size();
    known.may = known.usual.may = bytesOf("0123456789YMWD");
    known.range = {0, 999};
    known.usual.vr = EVR_AS;
    return known;
}

Known sum(Arguments arguments)
{
    return folded(arguments, [](const Range& a, const Range& b) {
        return Range{a.lowest + b.lowest, a.highest + b.highest};
    });
}

Known difference(Arguments arguments)
{
    return folded(arguments, [](const Range& a, const Range& b) {
        return Range{a.lowest - b.highest, a.highest - b.lowest};
    });
}

Known product(Arguments arguments)
{
    return folded(arguments, [](const Range& a, const Range& b) {
        const auto [lowest, highest] =
            std::minmax({a.lowest * b.lowest, a.lowest * b.highest, a.highest * b.lowest, a.highest * b.highest});
        return Range{lowest, highest};
    });
}

Known quotient(Arguments arguments)
{
    return divided(arguments, {});
}

Known remainder(Arguments arguments)
{
    const auto divisor = numberIn(arguments[1]);
    if (!divisor || *divisor == 0) return divided(arguments, {});
    const long long most = std::abs(static_cast<long long>(*divisor)) - 1;
    return divided(arguments, {rangeOf(arguments[0]).lowest < 0 ? -most : 0, most});
}

Known range(Arguments arguments)
{
    const Presence presence = allNumbers(arguments);
    const Range value = rangeOf(arguments[0]);
    const Range lower = rangeOf(arguments[1]);
    const Range upper = rangeOf(arguments[2]);
    const bool isOutside =
        value.highest < lower.lowest || value.lowest >= upper.highest || lower.lowest >= upper.highest;
    const bool isInside = value.lowest >= lower.highest && value.highest < upper.lowest;
    return truth(presence == kNever || isOutside ? kNever : isInside ? presence : kPerhaps);
}

Known chance(Arguments arguments)
{
    const Known& limit = arguments[0];
    const auto most = numberIn(limit);
    if (limit.isNever() || (limit.text && most.value_or(-1) < 2)) return Known::never();
    const Presence presence = most && limit.isAlways() ? kAlways : kPerhaps;
    return Known::number(presence, {0, std::max<long long>(1, rangeOf(limit).highest - 1)});
}

Known codeNumber(Arguments arguments)
{
    const Known& original = arguments[0];
    const auto value = numberIn(original);
    if (original.isNever() || readsAsNumber(original) == kNever || (value && *value < 0)) return Known::never();
    Known known;
    known.presence = value ? original.presence : kPerhaps;
    known.least = 1;
    known.may = known.usual.may = bytesOf("-0123456789");
    known.usual.vr = EVR_IS;
    return known;
}

Known codeText(Arguments arguments)
{
    constexpr std::size_t kMostCoded = 64;
    Known known;
    known.presence = arguments[0].presence;
    known.usual.least = arguments[0].usual.least;
    known.usual.most = std::min(arguments[0].usual.most, kMostCoded);
    known.usual.vr = EVR_UT; // of bytes of all kinds
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
