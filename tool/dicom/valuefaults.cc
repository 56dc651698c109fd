// SPDX-License-Identifier: BSD-3-Clause
// The VRs as a table: how long a value may be, and a test of its form.
#include "tool/dicom/valuefaults.h"

#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/console/utf8.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dcvras.h>
#include <dcmtk/dcmdata/dcvrda.h>
#include <dcmtk/dcmdata/dcvrds.h>
#include <dcmtk/dcmdata/dcvrpn.h>
#include <dcmtk/dcmdata/dcvrtm.h>
#include <dcmtk/dcmdata/dcvrui.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <fmt/format.h>

namespace kxtool {
namespace {

using Form = bool (*)(std::string_view value);

bool isControl(char c)
{
    return (c >= '\0' && c < ' ') || c == '\x7F';
}

bool isLine(std::string_view value)
{
    return std::ranges::none_of(value, [](char c) { return isControl(c) && c != '\x1B'; });
}

bool isProse(std::string_view value)
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

bool isCode(std::string_view value)
{
    return value.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 _") == std::string_view::npos;
}

bool isAddress(std::string_view value)
{
    return std::ranges::all_of(value, [](char c) { return c > ' ' && c < '\x7F' && c != '"' && c != '<' && c != '>'; });
}

/// @return what DCMTK says of the form alone: a value that is too long it does not read.
template <typename Element>
bool isFormOf(std::string_view value)
{
    const OFCondition result = Element::checkStringValue(OFString(value.data(), value.size()));
    return result.good() || result == EC_MaximumLengthViolated;
}

// DCMTK looks at each digit for itself: it knows no month's last day.
bool isDate(std::string_view value)
{
    using namespace std::chrono;
    value = trimmed(value);
    int number = 0;
    std::from_chars(value.data(), value.data() + value.size(), number);
    const auto part = [&number](int unit, int size) { return static_cast<unsigned>(number / unit % size); };
    return isFormOf<DcmDate>(value) &&
           year_month_day(year(number / 10000), month(part(100, 100)), day(part(1, 100))).ok();
}

bool isTimeOfDay(std::string_view value)
{
    OFString time(value.data(), value.size());
    if (time.size() >= 6 && time.compare(4, 2, "60") == 0) time[4] = '5'; // a leap second, which DCMTK does not know
    return !value.empty() && !value.ends_with(' ') && DcmTime::checkStringValue(time).good();
}

bool isTime(std::string_view value)
{
    return isTimeOfDay(trimmed(value));
}

// Not by DCMTK, which wants a time of day before an offset.
bool isDateTime(std::string_view value)
{
    constexpr std::string_view kFirstDay = "YYYY0101";
    value = trimmed(value);
    const std::size_t zone = std::min(value.find_first_of("+-"), value.size());
    if (zone < value.size() && (value.size() - zone != 5 || !isTimeOfDay(value.substr(zone + 1)))) return false;
    const std::string_view date = value.substr(0, std::min(zone, kFirstDay.size()));
    const std::string_view time = value.substr(date.size(), zone - date.size());
    return (date.size() == 4 || date.size() == 6 || date.size() == 8) && (time.empty() || isTimeOfDay(time)) &&
           isDate(std::string(date).append(kFirstDay.substr(date.size())));
}

template <typename Number>
bool isNumber(std::string_view value)
{
    value = trimmed(value);
    if (value.find_first_not_of("0123456789+-.eE") != std::string_view::npos) return false; // "nan"
    if (value.starts_with('+') && !value.starts_with("+-")) value.remove_prefix(1);
    Number number = 0;
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), number);
    return failure == std::errc() && end == value.data() + value.size();
}

bool isShort(std::string_view value)
{
    return isNumber<Uint16>(value) || isNumber<Sint16>(value);
}

// For DCMTK the letters of a name are those of its character set: here all beyond ASCII count as letters.
bool isName(std::string_view value)
{
    std::string name(value);
    std::ranges::replace_if(
        name, [](char c) { return (static_cast<unsigned char>(c) & 0x80U) != 0; }, 'x');
    return isFormOf<DcmPersonName>(name);
}

/// "(0018,1063)", as DCMTK reads it.
bool isTag(std::string_view value)
{
    return value.size() == 11 && value[0] == '(' && value[5] == ',' && value[10] == ')' &&
           readHex(value.substr(1, 4)) && readHex(value.substr(6, 4));
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
    {EVR_AS, "AS", 4, false, true, isFormOf<DcmAgeString>, "an age: three digits and one of D, W, M, Y"},
    {EVR_AT, "AT", kNoLimit, false, true, isTag, "a tag: (gggg,eeee)"},
    {EVR_CS, "CS", 16, false, true, isCode, "a code: upper-case letters, digits, blank and underscore"},
    {EVR_DA, "DA", 8, false, true, isDate, "a date: YYYYMMDD"},
    {EVR_DS, "DS", 16, false, true, isFormOf<DcmDecimalString>, "a decimal number"},
    {EVR_DT, "DT", 26, false, true, isDateTime, "a date and time: YYYYMMDDHHMMSS.FFFFFF&ZZXX, from the left"},
    {EVR_FD, "FD", kNoLimit, false, true, isNumber<double>, "a number"},
    {EVR_FL, "FL", kNoLimit, false, true, isNumber<double>, "a number"},
    {EVR_IS, "IS", 12, false, true, isNumber<Sint32>, "a whole number of 32 bits"},
    {EVR_LO, "LO", 64, true, true, isLine, kPlain},
    {EVR_LT, "LT", 10240, true, false, isProse, kPlain},
    {EVR_PN, "PN", 64, true, true, isName, "a name: up to three groups parted by =, of up to five parts parted by ^"},
    {EVR_SH, "SH", 16, true, true, isLine, kPlain},
    {EVR_SL, "SL", kNoLimit, false, true, isNumber<Sint32>, "a whole number of 32 bits"},
    {EVR_SQ, "SQ", kNoLimit, false, false, nullptr, "items, which no text can make"},
    {EVR_SS, "SS", kNoLimit, false, true, isNumber<Sint16>, "a whole number from -32768 to 32767"},
    {EVR_ST, "ST", 1024, true, false, isProse, kPlain},
    {EVR_TM, "TM", 14, false, true, isTime, "a time: HHMMSS.FFFFFF, from the left"},
    {EVR_UC, "UC", kNoLimit, true, true, isLine, kPlain},
    {EVR_UI, "UI", 64, false, true, isFormOf<DcmUniqueIdentifier>,
     "a UID: numbers parted by dots, none with a leading zero"},
    {EVR_UL, "UL", kNoLimit, false, true, isNumber<Uint32>, "a whole number from 0 to 4294967295"},
    {EVR_UR, "UR", kNoLimit, false, false, isAddress, "an address, without blanks"},
    {EVR_US, "US", kNoLimit, false, true, isNumber<Uint16>, "a whole number from 0 to 65535"},
    {EVR_UT, "UT", kNoLimit, true, false, isProse, kPlain},
    {EVR_xs, "US or SS", kNoLimit, false, true, isShort, "a whole number of 16 bits"},
};

std::string shownStart(std::string_view value)
{
    constexpr std::size_t kMost = 40;
    std::string shown;
    for (const char c : value.substr(0, kMost)) shown += isControl(c) ? '?' : c;
    return value.size() > kMost ? shown + "..." : shown;
}

std::optional<Fault> lengthFault(const VrRule& rule, std::string_view part, const char* partName)
{
    const std::size_t size = rule.countsCharacters && isUtf8(part) ? characterCount(part) : part.size();
    if (rule.most == kNoLimit || size <= rule.most) return std::nullopt;
    const char* unit = rule.countsCharacters ? "characters" : "bytes";
    return Fault{fault::kLength, fmt::format("{} {} has {} {}, and {} holds {}", rule.name, partName, size, unit,
                                             rule.name, rule.most)};
}

std::optional<Fault> valueFault(const VrRule& rule, std::string_view value)
{
    if (!value.empty() && !rule.isGood(value))
        return Fault{fault::kForm,
                     fmt::format("{} holds {}, and not \"{}\"", rule.name, rule.holds, shownStart(value))};
    if (rule.vr != EVR_PN) return lengthFault(rule, value, "value");
    for (const std::string_view group : split(value, '=')) {
        if (auto fault = lengthFault(rule, group, "component group")) return fault;
    }
    return std::nullopt;
}

std::optional<Fault> charsetFault(const Sample& sample)
{
    if (!hasCharacterSet(sample.vr) || isPlainAscii(sample.text)) return std::nullopt;
    if (!sample.set.toUtf8(sample.text))
        return Fault{fault::kCharset, fmt::format("{} is not in the dataset's character set {}",
                                                  shownQuoted(sample.set.readable(sample.text)), sample.set.name())};
    return sample.set.isSingleByte() && isUtf8(sample.text) ? std::optional(utf8Fault(sample)) : std::nullopt;
}

std::optional<Fault> multiplicityFault(const Sample& sample, std::string_view utf8)
{
    if (!holdsValues(sample.vr)) return std::nullopt;
    const DcmDictEntry* entry = dcmDataDict.rdlock().findEntry(sample.key, nullptr);
    const int least = entry == nullptr ? 0 : entry->getVMMin();
    const int most = entry == nullptr ? DcmVariableVM : entry->getVMMax();
    dcmDataDict.rdunlock();
    const auto count = static_cast<int>(split(utf8, '\\').size());
    if (count >= least && (most == DcmVariableVM || count <= most)) return std::nullopt;
    const std::string range = most == least           ? std::to_string(least)
                              : most == DcmVariableVM ? fmt::format("{} or more", least)
                                                      : fmt::format("{} to {}", least, most);
    return Fault{fault::kMultiplicity, fmt::format("{} is {} value{}, the attribute takes {}", shownQuoted(utf8), count,
                                                   count == 1 ? "" : "s", range)};
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

std::optional<Fault> faultOf(DcmEVR vr, std::string_view text)
{
    const auto* rule = std::ranges::find(kRules, vr, &VrRule::vr);
    if (rule == std::ranges::end(kRules) || text.empty()) return std::nullopt;
    if (rule->isGood == nullptr) return Fault{fault::kForm, fmt::format("{} holds {}", rule->name, rule->holds)};
    if (!rule->hasValues) return valueFault(*rule, text);
    for (const std::string_view value : split(text, '\\')) {
        if (auto fault = valueFault(*rule, value)) return fault;
    }
    return std::nullopt;
}

Fault utf8Fault(const Sample& sample)
{
    return {fault::kCharset,
            fmt::format("{} seems to be UTF-8; in the dataset's character set {} it reads {}", shownQuoted(sample.text),
                        sample.set.name(), shownQuoted(sample.set.readable(sample.text)))};
}

bool isText(DcmEVR vr)
{
    return DcmVR(vr).isaString();
}

std::vector<Fault> faultsOf(const Sample& sample)
{
    std::vector<Fault> faults;
    const auto add = [&faults](std::optional<Fault> fault) {
        if (fault) faults.push_back(std::move(*fault));
    };
    if (!isText(sample.vr) || sample.text.empty()) return faults;
    add(charsetFault(sample));
    const auto converted = sample.set.toUtf8(sample.text);
    if (!converted && hasCharacterSet(sample.vr)) return faults; // neither characters nor values can be told apart
    const std::string& utf8 = converted ? *converted : sample.text;
    if (const auto value = faultOf(sample.vr, utf8)) {
        const bool isLength = value->name == fault::kLength; // the other message shows the value itself
        add(Fault{value->name,
                  isLength ? fmt::format("{}: {}", shownQuoted(utf8), value->text) : shownUtf8(value->text)});
    }
    add(multiplicityFault(sample, utf8));
    return faults;
}

} // namespace kxtool
