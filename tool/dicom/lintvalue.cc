// SPDX-License-Identifier: BSD-3-Clause
// The VRs as a table: how long a value may be, and a test of its form.
#include "tool/dicom/lintvalue.h"

#include "tool/console/text.h"
#include "tool/console/utf8.h"

#include "kxmap.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fmt/format.h>
#include <limits>

namespace kxtool {
namespace {

using Form = bool (*)(std::string_view value);

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool areDigits(std::string_view text)
{
    return std::ranges::all_of(text, isDigit);
}

bool isControl(char c)
{
    return (c >= '\0' && c < ' ') || c == '\x7F';
}

std::string_view takeDigits(std::string_view& text)
{
    const std::size_t size = static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
    const std::string_view digits = text.substr(0, size);
    text.remove_prefix(size);
    return digits;
}

bool takeSign(std::string_view& text)
{
    if (!text.starts_with('+') && !text.starts_with('-')) return false;
    text.remove_prefix(1);
    return true;
}

int numberOf(std::string_view digits)
{
    int number = 0;
    for (const char digit : digits) number = number * 10 + (digit - '0');
    return number;
}

bool isOneOf(int number, int least, int most)
{
    return number >= least && number <= most;
}

bool isLine(std::string_view value)
{
    return std::ranges::none_of(value, [](char c) { return isControl(c) && c != '\x1B'; });
}

bool isText(std::string_view value)
{
    return std::ranges::none_of(value, [](char c) {
        return isControl(c) && std::string_view("\t\n\f\r\x1B").find(c) == std::string_view::npos;
    });
}

bool isTitle(std::string_view value)
{
    if (!value.empty() && trimmed(value).empty()) return false;
    return std::ranges::all_of(value, [](char c) { return c >= ' ' && c < '\x7F' && c != '\\'; });
}

bool isAge(std::string_view value)
{
    return value.size() == 4 && areDigits(value.substr(0, 3)) &&
           std::string_view("DWMY").find(value[3]) != std::string_view::npos;
}

bool isCode(std::string_view value)
{
    return std::ranges::all_of(value,
                               [](char c) { return (c >= 'A' && c <= 'Z') || isDigit(c) || c == ' ' || c == '_'; });
}

/// @param date "YYYYMM" or "YYYYMMDD", of digits.
bool isDay(std::string_view date)
{
    constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const int year = numberOf(date.substr(0, 4));
    const int month = numberOf(date.substr(4, 2));
    if (!isOneOf(month, 1, 12)) return false;
    const bool isLeap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
    const int most = kDays[month - 1] + (month == 2 && isLeap ? 1 : 0);
    return date.size() == 6 || isOneOf(numberOf(date.substr(6)), 1, most);
}

bool isDate(std::string_view value)
{
    value = trimmed(value);
    return value.size() == 8 && areDigits(value) && isDay(value);
}

/// "HH", "HHMM", "HHMMSS", and a fraction of one to six digits behind seconds.
bool isTimeOfDay(std::string_view value)
{
    const std::string_view digits = takeDigits(value);
    if (digits.size() != 2 && digits.size() != 4 && digits.size() != 6) return false;
    constexpr int kMost[] = {23, 59, 60};
    for (std::size_t i = 0; i < std::size(kMost) && 2 * i < digits.size(); ++i) {
        if (numberOf(digits.substr(2 * i, 2)) > kMost[i]) return false;
    }
    if (value.empty()) return true;
    if (!value.starts_with('.') || digits.size() != 6) return false;
    value.remove_prefix(1);
    return areDigits(value) && isOneOf(static_cast<int>(std::min<std::size_t>(value.size(), 7)), 1, 6);
}

bool isTime(std::string_view value)
{
    return isTimeOfDay(trimmed(value));
}

bool isDateTime(std::string_view value)
{
    value = trimmed(value);
    const std::size_t zone = value.find_first_of("+-");
    if (zone != std::string_view::npos) {
        const std::string_view offset = value.substr(zone + 1);
        if (offset.size() != 4 || !areDigits(offset) || !isTimeOfDay(offset)) return false;
        value = value.substr(0, zone);
    }
    const std::string_view date = value.substr(0, 8);
    if (!areDigits(date) || date.size() < 4 || date.size() % 2 != 0) return false;
    if (date.size() > 4 && !isDay(date)) return false;
    return value.size() == date.size() || isTimeOfDay(value.substr(8));
}

bool isDecimal(std::string_view value)
{
    value = trimmed(value);
    takeSign(value);
    const std::size_t whole = takeDigits(value).size();
    std::size_t fraction = 0;
    if (value.starts_with('.')) {
        value.remove_prefix(1);
        fraction = takeDigits(value).size();
    }
    if (whole + fraction == 0) return false;
    if (value.empty()) return true;
    if (!value.starts_with('e') && !value.starts_with('E')) return false;
    value.remove_prefix(1);
    takeSign(value);
    return !value.empty() && areDigits(value);
}

template <typename Number>
bool isInteger(std::string_view value)
{
    value = trimmed(value);
    if (value.starts_with('+') && value.size() > 1 && isDigit(value[1])) value.remove_prefix(1);
    Number number = 0;
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), number);
    return failure == std::errc() && end == value.data() + value.size();
}

bool isShort(std::string_view value)
{
    return isInteger<Uint16>(value) || isInteger<Sint16>(value);
}

bool isUid(std::string_view value)
{
    while (true) {
        const std::string_view component = takeDigits(value);
        if (component.empty() || (component.size() > 1 && component.starts_with('0'))) return false;
        if (value.empty()) return true;
        if (!value.starts_with('.')) return false;
        value.remove_prefix(1);
    }
}

bool isAddress(std::string_view value)
{
    return std::ranges::all_of(value, [](char c) { return c > ' ' && c < '\x7F' && c != '"' && c != '<' && c != '>'; });
}

bool isName(std::string_view value)
{
    const auto groups = std::ranges::count(value, '=') + 1;
    if (groups > 3 || !isLine(value)) return false;
    while (!value.empty()) {
        const std::string_view group = value.substr(0, value.find('='));
        if (std::ranges::count(group, '^') > 4) return false;
        value.remove_prefix(std::min(group.size() + 1, value.size()));
    }
    return true;
}

/// "(0018,1063)", as DCMTK reads it.
bool isTag(std::string_view value)
{
    const auto isHex = [](std::string_view digits) {
        return std::ranges::all_of(digits, [](unsigned char c) { return std::isxdigit(c) != 0; });
    };
    return value.size() == 11 && value[0] == '(' && value[5] == ',' && value[10] == ')' && isHex(value.substr(1, 4)) &&
           isHex(value.substr(6, 4));
}

constexpr std::size_t kNoLimit = 0;

struct VrRule {
    DcmEVR vr;
    const char* name;
    std::size_t most; ///< of a value; of each component group for PN
    bool countsCharacters;
    bool hasValues; ///< a backslash parts values; else it is text
    Form isGood;
    const char* holds; ///< what a value of the VR is
};

constexpr const char* kPlain = "text without control characters";

constexpr VrRule kRules[] = {
    {EVR_AE, "AE", 16, false, true, isTitle, "an AE title: ASCII without control characters, not blanks alone"},
    {EVR_AS, "AS", 4, false, true, isAge, "an age: three digits and one of D, W, M, Y"},
    {EVR_AT, "AT", kNoLimit, false, true, isTag, "a tag: (gggg,eeee)"},
    {EVR_CS, "CS", 16, false, true, isCode, "a code: upper-case letters, digits, blank and underscore"},
    {EVR_DA, "DA", 8, false, true, isDate, "a date: YYYYMMDD"},
    {EVR_DS, "DS", 16, false, true, isDecimal, "a decimal number"},
    {EVR_DT, "DT", 26, false, true, isDateTime, "a date and time: YYYYMMDDHHMMSS.FFFFFF&ZZXX, from the left"},
    {EVR_FD, "FD", kNoLimit, false, true, isDecimal, "a number"},
    {EVR_FL, "FL", kNoLimit, false, true, isDecimal, "a number"},
    {EVR_IS, "IS", 12, false, true, isInteger<Sint32>, "a whole number of 32 bits"},
    {EVR_LO, "LO", 64, true, true, isLine, kPlain},
    {EVR_LT, "LT", 10240, true, false, isText, kPlain},
    {EVR_PN, "PN", 64, true, true, isName, "a name: up to three groups parted by =, of up to five parts parted by ^"},
    {EVR_SH, "SH", 16, true, true, isLine, kPlain},
    {EVR_SL, "SL", kNoLimit, false, true, isInteger<Sint32>, "a whole number of 32 bits"},
    {EVR_SQ, "SQ", kNoLimit, false, false, nullptr, "items, which no text can make"},
    {EVR_SS, "SS", kNoLimit, false, true, isInteger<Sint16>, "a whole number from -32768 to 32767"},
    {EVR_ST, "ST", 1024, true, false, isText, kPlain},
    {EVR_TM, "TM", 14, false, true, isTime, "a time: HHMMSS.FFFFFF, from the left"},
    {EVR_UC, "UC", kNoLimit, true, true, isLine, kPlain},
    {EVR_UI, "UI", 64, false, true, isUid, "a UID: numbers parted by dots, none with a leading zero"},
    {EVR_UL, "UL", kNoLimit, false, true, isInteger<Uint32>, "a whole number from 0 to 4294967295"},
    {EVR_UR, "UR", kNoLimit, false, false, isAddress, "an address, without blanks"},
    {EVR_US, "US", kNoLimit, false, true, isInteger<Uint16>, "a whole number from 0 to 65535"},
    {EVR_UT, "UT", kNoLimit, true, false, isText, kPlain},
    {EVR_xs, "US or SS", kNoLimit, false, true, isShort, "a whole number of 16 bits"},
};

std::string shownStart(std::string_view value)
{
    constexpr std::size_t kMost = 40;
    std::string shown;
    for (const char c : value.substr(0, kMost)) shown += isControl(c) ? '?' : c;
    return value.size() > kMost ? shown + "..." : shown;
}

std::optional<ValueFault> lengthFault(const VrRule& rule, std::string_view part, const char* partName)
{
    const std::size_t size = rule.countsCharacters ? characterCount(part) : part.size();
    if (rule.most == kNoLimit || size <= rule.most) return std::nullopt;
    const char* unit = rule.countsCharacters ? "characters" : "bytes";
    return ValueFault{ValueFault::Kind::TooLong, fmt::format("{} {} has {} {}, and {} holds {}", rule.name, partName,
                                                             size, unit, rule.name, rule.most)};
}

std::optional<ValueFault> valueFault(const VrRule& rule, std::string_view value)
{
    if (value.empty() || rule.isGood(value)) {
        if (rule.vr != EVR_PN) return lengthFault(rule, value, "value");
        for (std::string_view rest = value; !rest.empty();) {
            const std::string_view group = rest.substr(0, rest.find('='));
            if (auto fault = lengthFault(rule, group, "component group")) return fault;
            rest.remove_prefix(std::min(group.size() + 1, rest.size()));
        }
        return std::nullopt;
    }
    return ValueFault{ValueFault::Kind::Form,
                      fmt::format("{} holds {}, and not \"{}\"", rule.name, rule.holds, shownStart(value))};
}

} // namespace

bool holdsValues(DcmEVR vr)
{
    const auto* rule = std::ranges::find(kRules, vr, &VrRule::vr);
    return rule != std::ranges::end(kRules) && rule->hasValues;
}

std::size_t mostBytesOf(DcmEVR vr)
{
    const auto* rule = std::ranges::find(kRules, vr, &VrRule::vr);
    return rule == std::ranges::end(kRules) ? kNoLimit : rule->most;
}

std::size_t characterCount(std::string_view text)
{
    std::size_t count = 0;
    for (std::string_view rest = text; !rest.empty(); ++count) {
        const std::size_t size = utf8SizeAt(rest);
        if (size == 0) return text.size();
        rest.remove_prefix(size);
    }
    return count;
}

std::optional<ValueFault> faultOf(DcmEVR vr, std::string_view text)
{
    const auto* rule = std::ranges::find(kRules, vr, &VrRule::vr);
    if (rule == std::ranges::end(kRules) || text.empty()) return std::nullopt;
    if (rule->isGood == nullptr)
        return ValueFault{ValueFault::Kind::Form, fmt::format("{} holds {}", rule->name, rule->holds)};
    if (!rule->hasValues) return valueFault(*rule, text);
    while (true) {
        const std::size_t end = text.find('\\');
        if (auto fault = valueFault(*rule, text.substr(0, end))) return fault;
        if (end == std::string_view::npos) return std::nullopt;
        text.remove_prefix(end + 1);
    }
}

} // namespace kxtool
