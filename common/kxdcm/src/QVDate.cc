// SPDX-License-Identifier: BSD-3-Clause
// Reading of DA, DT and dotted dates, and the choice of an age's unit.
#include "QVDate.h"

#include "kxmap/core/bytes.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string_view>

namespace {

using kxmap::isDigit;
using std::chrono::year_month_day;

constexpr int kDaysBelow = 28;    // ages below are given in days,
constexpr int kWeeksBelow = 3;    // below these months in weeks,
constexpr int kMonthsBelow = 24;  // below these months in months,
constexpr int kYearsBelow = 1000; // and below these years in years: AS has three digits

bool startsWithDigit(std::string_view text)
{
    return !text.empty() && isDigit(text.front());
}

/// Takes `width` digits off the front of `text`. @return their number; -1 when there are fewer, and nothing is taken.
int takeNumber(std::string_view& text, std::size_t width)
{
    if (text.size() < width) return -1;
    int number = 0;
    for (const char c : text.substr(0, width)) {
        if (!isDigit(c)) return -1;
        number = number * 10 + (c - '0');
    }
    text.remove_prefix(width);
    return number;
}

bool takeByte(std::string_view& text, char byte)
{
    if (text.empty() || text.front() != byte) return false;
    text.remove_prefix(1);
    return true;
}

/// Takes `[HH[MM[SS[.F]]]]`. @return false for a part that is cut short or out of its range.
bool takeTime(std::string_view& text)
{
    for (const int last : {23, 59, 60}) { // 60: a leap second
        if (!startsWithDigit(text)) return true;
        const int part = takeNumber(text, 2);
        if (part < 0 || part > last) return false;
    }
    if (!takeByte(text, '.')) return true;
    std::size_t digits = 0;
    for (; startsWithDigit(text); ++digits) text.remove_prefix(1);
    return digits >= 1 && digits <= 6;
}

/// Takes `[&ZZXX]`. @return false for an offset that is cut short or out of its range.
bool takeOffset(std::string_view& text)
{
    const bool isWest = takeByte(text, '-');
    if (!isWest && !takeByte(text, '+')) return true;
    const int hours = takeNumber(text, 2);
    const int minutes = takeNumber(text, 2);
    if (hours < 0 || minutes < 0 || minutes > 59) return false;
    return hours * 60 + minutes <= (isWest ? 12 : 14) * 60;
}

std::string_view withoutPadding(std::string_view text)
{
    while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
    return text;
}

std::optional<year_month_day> readDate(std::string_view text)
{
    const int year = takeNumber(text, 4);
    const bool isDotted = takeByte(text, '.');
    const int month = takeNumber(text, 2);
    if (isDotted && !takeByte(text, '.')) return std::nullopt;
    const int day = takeNumber(text, 2);
    if (year < 1 || month < 1 || day < 1) return std::nullopt;
    if (!isDotted && (!takeTime(text) || !takeOffset(text))) return std::nullopt;
    if (!text.empty()) return std::nullopt;

    const year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                              std::chrono::day(static_cast<unsigned>(day))};
    return date.ok() ? std::optional(date) : std::nullopt;
}

int completedMonths(year_month_day from, year_month_day to)
{
    const auto begun = (to.year() / to.month()) - (from.year() / from.month());
    return static_cast<int>(begun.count()) - (to.day() < from.day() ? 1 : 0);
}

std::string ageText(int count, char unit)
{
    const std::string digits = std::to_string(count);
    return std::string(3 - digits.size(), '0') + digits + unit;
}

} // namespace

QVDate::QVDate(const char* text)
{
    const auto date = text == nullptr ? std::nullopt : readDate(withoutPadding(text));
    if (!date) return;
    year_ = static_cast<int>(date->year());
    month_ = static_cast<unsigned>(date->month());
    day_ = static_cast<unsigned>(date->day());
}

std::string QVDate::ageSince(const QVDate& since) const
{
    if (!isValid() || !since.isValid()) return {};
    const year_month_day from{std::chrono::year(since.year_), std::chrono::month(since.month_),
                              std::chrono::day(since.day_)};
    const year_month_day to{std::chrono::year(year_), std::chrono::month(month_), std::chrono::day(day_)};
    if (to < from) return {};
    const auto days = (std::chrono::sys_days(to) - std::chrono::sys_days(from)).count();
    if (days < kDaysBelow) return ageText(static_cast<int>(days), 'D');
    const int months = completedMonths(from, to);
    if (months < kWeeksBelow) return ageText(static_cast<int>(days) / 7, 'W');
    if (months < kMonthsBelow) return ageText(months, 'M');
    if (months / 12 < kYearsBelow) return ageText(months / 12, 'Y');
    return {};
}
