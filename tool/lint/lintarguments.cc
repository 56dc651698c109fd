// SPDX-License-Identifier: BSD-3-Clause
// What calls read their arguments as: numbers, dates, tags; and arguments that stand in each other's place.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"
#include "tool/rules/lintnames.h"

#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <iterator>
#include <limits>

namespace kxtool {
namespace {

constexpr long long kMostNumber = std::numeric_limits<int>::max();

/// What "%d" makes of a text.
struct NumberText {
    bool isNumber;
    long long number; ///< not beyond what is told apart
    std::string_view rest;
};

NumberText readNumber(std::string_view text)
{
    std::size_t at = 0;
    const auto isIn = [&](int (*is)(int)) { return at < text.size() && is(static_cast<unsigned char>(text[at])) != 0; };
    while (isIn(std::isspace)) ++at;
    const bool isNegative = at < text.size() && text[at] == '-';
    if (at < text.size() && (isNegative || text[at] == '+')) ++at;
    if (!isIn(std::isdigit)) return {false, 0, text};
    long long number = 0;
    for (; isIn(std::isdigit); ++at) number = std::min(number * 10 + (text[at] - '0'), kMostNumber * 10);
    while (isIn(std::isspace)) ++at; // harmless behind a number
    return {true, isNegative ? -number : number, text.substr(at)};
}

bool lintNumber(const RuleView& view, const Expression& node)
{
    const std::string_view text = literalOf(node);
    const NumberText read = readNumber(text);
    if (!read.isNumber)
        return view.tell(Check::NotANumber, node,
                         fmt::format("{} is read as a number, and is none", shownQuoted(text)));
    if (read.number > kMostNumber || read.number < -kMostNumber - 1)
        return view.tell(Check::NumberRange, node, "numbers have 32 bits: this one becomes another",
                         fmt::format("numbers go from {} to {}", std::numeric_limits<int>::min(), kMostNumber));
    return !read.rest.empty() &&
           view.tell(Check::NotANumber, node,
                     fmt::format("only {} is read of this: whole numbers end at the first byte that is no digit",
                                 read.number));
}

// As "%4X" reads it.
bool lintComponent(const RuleView& view, const Expression& node)
{
    const std::string_view text = literalOf(node);
    const bool isHex =
        std::ranges::all_of(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
    if (isHex && !text.empty() && text.size() <= 4) return false;
    const std::string meant = tagMeantBy(text);
    return view.tell(Check::OddTag, node,
                     fmt::format("{} is no tag component: it has up to four hexadecimal digits", shownQuoted(text)),
                     meant.empty() ? "" : fmt::format("did you mean {}?", meant));
}

const char* vrName(DcmEVR vr)
{
    return DcmVR(vr).getVRName();
}

bool lintNumberRead(const RuleView& view, const Expression& call, const Expression& argument)
{
    const Known& known = view.of(argument);
    const DcmEVR vr = known.usual.vr;
    if (known.isNever() || isTextless(vr)) return false; // others tell that
    const bool isOrdered = wayOf(call) != Way::Counted;
    if (!isNumeric(vr, isOrdered))
        return view.tell(
            Check::ArithmeticOnText, argument,
            fmt::format("a value of {} is no number{}", vrName(vr), isOrdered ? "" : " to count with"),
            isNumeric(vr, true) ? "substr(text,start,length) takes the year, the month or the day out of it" : "");
    return readsAsNumber(known) == Known::Presence::Never &&
           view.tell(Check::NotANumber, argument, "no number can be read in this: the call is always NULL");
}

bool lintDate(const RuleView& view, const Expression& argument)
{
    const DcmEVR vr = view.of(argument).usual.vr;
    const bool isDate = vr == EVR_UNKNOWN || vr == EVR_DA || vr == EVR_DT || isTextless(vr);
    return !isDate && view.tell(Check::AlwaysNull, argument,
                                fmt::format("a value of {} is no date: the call is always NULL", vrName(vr)),
                                "dates are values of DA and DT: (0008,0020), (0010,0030)");
}

bool lintArgument(const RuleView& view, const Expression& call, std::size_t index)
{
    const Expression& argument = argumentOf(call, index);
    switch (builtinOf(call.func).reads.at(index)) {
    case Reading::Number:
        return isLiteral(argument) ? lintNumber(view, argument) : lintNumberRead(view, call, argument);
    case Reading::Group:
    case Reading::Element:
        return isLiteral(argument) && lintComponent(view, argument);
    case Reading::Date:
        return lintDate(view, argument);
    default:
        return false;
    }
}

bool isBirthDate(const Expression& node)
{
    return pathOf(node) == TagPath{0x0010, 0x0030};
}

bool lintDates(const RuleView& view, const Expression& call)
{
    const Expression& date = unwrapped(*call.params.front());
    const Expression& since = unwrapped(*call.params.back());
    if (isSame(date, since))
        return view.tell(Check::ArgumentOrder, since, "both dates are the same: the age is always 000D");
    return isBirthDate(date) && isRead(since) &&
           view.tell(Check::ArgumentOrder, date,
                     "the birth date stands first: nobody has an age before that, so it is NULL",
                     "write the date of the age first, the birth date second");
}

/// "split("^",text,1)", "codestring("^=",text)"
bool lintMarksFirst(const RuleView& view, const Expression& call)
{
    const Expression& text = unwrapped(*call.params.front());
    const auto isMark = [](unsigned char c) { return std::isalnum(c) == 0; };
    return call.params.size() > 1 && isLiteral(text) && !literalOf(text).empty() &&
           std::ranges::all_of(literalOf(text), isMark) && isRead(unwrapped(argumentOf(call, 1))) &&
           view.tell(Check::ArgumentOrder, text, "the marks stand where the text belongs",
                     fmt::format("write {}", builtinOf(call.func).signature()));
}

/// "substr(0,3,text)", "split(1,"^",text)"
bool lintPart(const RuleView& view, const Expression& call)
{
    const Expression& text = *call.params.front();
    const auto isText = [&](const Expression* one) {
        const DcmEVR vr = view.of(*one).usual.vr;
        return isRead(*one) && vr != EVR_UNKNOWN && vr != EVR_IS && vr != EVR_DS && !isTextless(vr);
    };
    if (isLiteral(text) && readNumber(literalOf(text)).isNumber && std::ranges::any_of(call.params, isText))
        return view.tell(Check::ArgumentOrder, text, "the number stands where the text belongs",
                         fmt::format("write {}", builtinOf(call.func).signature()));
    if (builtinOf(call.func).reads.at(1) != Reading::Text) return false;
    if (lintMarksFirst(view, call)) return true;
    const Known& separator = view.of(argumentOf(call, 1));
    return separator.least > 1 && separator.text &&
           view.tell(
               Check::LongSeparator, argumentOf(call, 1),
               fmt::format("only the first byte of this parts the text: {}", shownQuoted(separator.text->substr(0, 1))),
               "find a longer one with indexof(text,wanted), and cut with substr(text,start,length)");
}

/// @return whether a text can hardly be one that something is looked for in: a word, or a single byte.
bool isWord(std::string_view text)
{
    return text.size() == 1 || (!text.empty() && std::ranges::all_of(text, [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) != 0;
           }));
}

/// "contains("HEAD",(0008,1030))", and the same of what tells an offset
bool lintSearch(const RuleView& view, const Expression& call)
{
    constexpr DcmEVR kLong[] = {EVR_LO, EVR_LT, EVR_PN, EVR_ST, EVR_UC, EVR_UT, EVR_UI};
    const Expression& text = *call.params.front();
    const Expression& wanted = unwrapped(*call.params.back());
    if (isLiteral(wanted))
        return literalOf(wanted).empty() &&
               view.tell(Check::ConstantCondition, wanted, "an empty text occurs in every text");
    return isLiteral(text) && isWord(literalOf(text)) && isRead(wanted) &&
           std::ranges::find(kLong, view.of(wanted).usual.vr) != std::end(kLong) &&
           view.tell(Check::ArgumentOrder, text, "an element is looked for in this text, not the text in the element",
                     fmt::format("write {}", builtinOf(call.func).signature()));
}

bool lintOrder(const RuleView& view, const Expression& call)
{
    const Way way = wayOf(call);
    if (way == Way::Part && call.params.size() > 1) return lintPart(view, call);
    const Builtin& builtin = builtinOf(call.func);
    if (way == Way::Computed && !builtin.yieldsNumber && builtin.reads.at(0) == Reading::Text)
        return lintMarksFirst(view, call);
    const bool tellsOffset = builtin.yieldsNumber && builtin.reads.count == 2 && builtin.reads.at(0) == Reading::Text;
    if (way == Way::Found || tellsOffset) return lintSearch(view, call);
    if (way == Way::Within)
        return isLiteral(argumentOf(call, 0)) && isLiteral(argumentOf(call, 1)) && !isLiteral(argumentOf(call, 2)) &&
               view.tell(Check::ArgumentOrder, argumentOf(call, 0), "the bounds stand before the value",
                         "write between(value,lower,upper)");
    return builtin.reads.at(0) == Reading::Date && lintDates(view, call);
}

} // namespace

bool lintLiteralArguments(const RuleView& view, const Expression& call)
{
    bool isTold = false;
    for (std::size_t i = 0; i < call.params.size(); ++i) {
        if (isLiteral(argumentOf(call, i))) isTold = lintArgument(view, call, i) || isTold;
    }
    return isTold;
}

bool lintArguments(const RuleView& view, const Expression& call)
{
    bool isTold = lintOrder(view, call);
    for (std::size_t i = 0; i < call.params.size(); ++i) isTold = lintArgument(view, call, i) || isTold;
    if (!isTold && view.of(call).wraps)
        isTold = view.tell(Check::NumberRange, call, "numbers have 32 bits: this one becomes another");
    if (wayOf(call) == Way::Path && call.params.size() == 2)
        isTold =
            view.tell(Check::TwoFieldSeq, call, "SEQ with a tag alone leads into no sequence: it is the tag itself",
                      "write (gggg,eeee), or SEQ(gggg,eeee,item,gggg,eeee)");
    return isTold;
}

} // namespace kxtool
