// SPDX-License-Identifier: BSD-3-Clause
// When an expression has a value.
#include "tool/conformance/conformanceparts.h"
#include "tool/conformance/conformanceprobe.h"
#include "tool/conformance/conformancewords.h"

#include <fmt/format.h>

namespace kxtool {
Condition Words::elementIs(const ElementRef& element, std::size_t moment, bool withValue) const
{
    const std::string subject = elementWords(element, moment, "it");
    const std::string present = subject + " is present";
    if (!withValue) return Condition::fact({present, subject + " is absent", {}, {}, {}});
    return Condition::fact(
        {subject + " has a value", subject + " is absent or empty", subject + " is empty", {present}, {}});
}

/// A fact about an expression that has to be there for it.
Condition Words::about(const Expression& expression, std::size_t moment, const std::string& yes, const std::string& no,
                       const std::string& rivals)
{
    if (hasNoText(expression, moment)) return Condition::always(false); // an empty one, for all facts that come here
    Fact fact{yes, no, {}, {}, rivals};
    for (const Condition& need : {isPresent(expression, moment), hasValue(expression, moment)}) {
        if (const Fact* needed = need.asFact()) fact.needs.push_back(needed->yes);
    }
    return Condition::fact(fact);
}

Condition Words::isPresent(const Expression& expression, std::size_t moment)
{
    if (isTooMuch()) return Condition::always(true);
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr)
        return Condition::fact({resolved.unresolved + " is set", resolved.unresolved + " is not set", {}, {}, {}});
    if (isText(*resolved.expression)) return Condition::always(true);
    if (const auto element = elementOf(*resolved.expression)) return elementIs(*element, resolved.moment, false);
    return isCallPresent(*resolved.expression, resolved.moment);
}

Condition Words::isCallPresent(const Expression& call, std::size_t moment)
{
    const FunctionDef* function = call.func;
    std::vector<Condition> parts;
    if (function == &f_NULL) return Condition::always(false);
    if (function == &f_not) return !isPresent(parameter(call, 0), moment);
    if (function == &f_equals) return areEqual(parameter(call, 0), parameter(call, 1), moment);
    if (function == &f_translate) return isTranslationPresent(call, moment);
    if (function == &f_if) {
        const Condition condition = isPresent(parameter(call, 0), moment);
        return Condition::any({Condition::all({condition, isPresent(parameter(call, 1), moment)}),
                               Condition::all({!condition, isPresent(parameter(call, 2), moment)})});
    }
    if (function == &f_and || function == &f_or || function == &f_indexof) {
        for (const Expression* each : call.params) parts.push_back(isPresent(*each, moment));
        return function == &f_or ? Condition::any(parts) : Condition::all(parts);
    }
    if (function == &f_concat) {
        for (const Expression* each : call.params) parts.push_back(hasValue(*each, moment));
        return Condition::any(parts);
    }
    if (function == &f_add || function == &f_mul || function == &f_sub || function == &f_div || function == &f_mod) {
        for (const Expression* each : call.params) parts.push_back(isNumber(*each, moment));
        if (function != &f_div && function != &f_mod) return Condition::all(parts);
        const Expression& divisor = parameter(call, 1);
        const std::string words = value(divisor, moment);
        if (isText(divisor)) parts.push_back(Condition::always(readNumber(divisor).value_or(0) != 0));
        else parts.push_back(!Condition::fact({words + " is 0", words + " is not 0", {}, {}, {}}));
        return Condition::all(parts);
    }
    if (function == &f_dicomAge) {
        const std::string both = value(parameter(call, 0), moment) + " and " + value(parameter(call, 1), moment);
        Fact fact{"an age can be computed from " + both, "no age can be computed from " + both, {}, {}, {}};
        for (const Expression* each : call.params) {
            if (const Condition isThere = isPresent(*each, moment); isThere.asFact())
                fact.needs.push_back(isThere.asFact()->yes);
        }
        return Condition::fact(fact);
    }
    if (function == &f_codenumber) return isNumber(parameter(call, 0), moment);
    if (function == &f_rnd) {
        const Expression& max = parameter(call, 0);
        return isText(max) ? Condition::always(readNumber(max).value_or(0) >= 2) : isNumber(max, moment);
    }
    if (function == &f_contains || function == &f_between || function == &f_split || function == &f_substr ||
        function == &f_root)
        return isPieceThere(call, moment);
    if (function == &f_strlen || function == &f_toUpper || function == &f_toLower || function == &f_codestring)
        return isPresent(parameter(call, 0), moment);
    const std::string words = value(call, moment); // a tag, a path or a name that is computed
    return Condition::fact({words + " is present", words + " is absent", {}, {}, {}});
}

// What depends on a part of a text.
Condition Words::isPieceThere(const Expression& call, std::size_t moment)
{
    const Expression& text = parameter(call, 0);
    const Expression& second = parameter(call, 1);
    const std::string subject = value(text, moment);
    if (call.func == &f_contains) {
        if (isText(second) && textOf(second).empty()) return isPresent(text, moment);
        const std::string wanted = value(second, moment);
        return about(text, moment, subject + " contains " + wanted, subject + " does not contain " + wanted);
    }
    if (call.func == &f_between) {
        const std::string range =
            fmt::format("{} to less than {}", operand(second, moment), operand(parameter(call, 2), moment));
        return about(text, moment, fmt::format("{} is from {}", subject, range),
                     fmt::format("{} is not from {}", subject, range));
    }
    const Condition isThere = isPresent(text, moment);
    if (call.func == &f_substr) {
        const auto start = readNumber(second);
        if (isText(second) && (!start || *start < 0)) return Condition::always(false);
        if (start == 0) return isThere;
        const std::string bytes = start ? fmt::format("{} bytes", *start) : "the bytes of that start";
        return about(text, moment, fmt::format("{} has at least {}", subject, bytes),
                     fmt::format("{} has not {}", subject, bytes));
    }
    const Expression& field = parameter(call, 2);
    const auto n = readNumber(field);
    if (isText(field) && n.value_or(0) == 0) return Condition::always(false);
    if (n && *n <= 1) return Condition::all({isThere, isPresent(second, moment)});
    const char* which = n ? ordinal(*n) : "";
    const std::string part = *which != '\0'
                                 ? fmt::format("{} part at {}", which, value(second, moment))
                                 : fmt::format("part {} at {}", operand(field, moment), value(second, moment));
    return about(text, moment, fmt::format("{} has a {}", subject, part), fmt::format("{} has no {}", subject, part));
}

Condition Words::hasValue(const Expression& expression, std::size_t moment)
{
    if (isTooMuch()) return Condition::always(true);
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr) return isPresent(expression, moment);
    const Expression& call = *resolved.expression;
    if (isText(call)) return Condition::always(!textOf(call).empty());
    if (const auto element = elementOf(call))
        return isSeenAsText(element->tag()) ? elementIs(*element, resolved.moment, true) : Condition::always(false);
    if (call.func == &f_toUpper || call.func == &f_toLower || call.func == &f_codestring)
        return hasValue(parameter(call, 0), resolved.moment);
    if (call.func == &f_if) {
        const Condition condition = isPresent(parameter(call, 0), resolved.moment);
        return Condition::any({Condition::all({condition, hasValue(parameter(call, 1), resolved.moment)}),
                               Condition::all({!condition, hasValue(parameter(call, 2), resolved.moment)})});
    }
    return isPresent(call, resolved.moment); // a few may be there without a value; the statement need not say so
}

Condition Words::isNumber(const Expression& expression, std::size_t moment)
{
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression != nullptr) {
        const Expression& call = *resolved.expression;
        if (isText(call)) return Condition::always(readNumber(call).has_value());
        if (call.func == &f_NULL || isNumeric(call)) return isPresent(call, resolved.moment);
    }
    const std::string words = value(expression, moment);
    return about(expression, moment, words + " begins with a whole number", words + " begins with no whole number");
}

Condition Words::areEqual(const Expression& a, const Expression& b, std::size_t moment)
{
    const Resolved left = resolve(a, moment);
    const Resolved right = resolve(b, moment);
    if (left.expression == nullptr || right.expression == nullptr) {
        const std::string words = value(a, moment);
        return Condition::fact({fmt::format("{} is {}", words, value(b, moment)),
                                fmt::format("{} is not {}", words, value(b, moment)),
                                {},
                                {},
                                words});
    }
    if (isText(*left.expression) && !isText(*right.expression)) return areEqual(b, a, moment);
    if (right.expression->func == &f_NULL) return !isPresent(a, moment);
    if (left.expression->func == &f_NULL) return !isPresent(b, moment);
    if (!isText(*right.expression)) {
        const std::string words = value(a, moment);
        const std::string other = value(b, moment);
        return Condition::fact(
            {fmt::format("{} equals {}", words, other), fmt::format("{} differs from {}", words, other), {}, {}, {}});
    }
    const std::string text = textOf(*right.expression);
    if (isText(*left.expression)) return Condition::always(textOf(*left.expression) == text);
    if (text.empty()) return Condition::all({isPresent(a, moment), !hasValue(a, moment)});
    if (left.expression->func == &f_strlen && readNumber(*right.expression)) {
        const std::string words = value(parameter(*left.expression, 0), left.moment);
        return about(a, moment, fmt::format("{} is {} bytes long", words, text),
                     fmt::format("{} is not {} bytes long", words, text));
    }
    const std::string words = value(a, moment);
    const std::string shown = quotedText(text.c_str());
    return about(a, moment, fmt::format("{} is {}", words, shown), fmt::format("{} is not {}", words, shown), words);
}

/// That one of the pairs matches.
Condition Words::isTranslated(const Expression& call, std::size_t moment)
{
    const Expression& subject = parameter(call, 0);
    if (call.params.size() < 4) return Condition::always(false);
    if (call.params.size() == 4) return areEqual(subject, parameter(call, 2), moment);
    std::string list;
    std::vector<Condition> ways;
    for (std::size_t i = 2; i + 1 < call.params.size(); i += 2) {
        const Expression& from = parameter(call, i);
        if (from.func == &f_NULL) ways.push_back(!isPresent(subject, moment));
        else list += (list.empty() ? "" : ", ") + value(from, moment);
    }
    const std::string words = value(subject, moment);
    if (!list.empty())
        ways.push_back(about(subject, moment, fmt::format("{} is one of {}", words, list),
                             fmt::format("{} is none of {}", words, list)));
    return Condition::any(ways);
}

Condition Words::isTranslationPresent(const Expression& call, std::size_t moment)
{
    std::vector<Condition> results;
    for (std::size_t i = 3; i < call.params.size(); i += 2) results.push_back(isPresent(parameter(call, i), moment));
    const Condition isMatch = isTranslated(call, moment);
    const Condition otherwise = Condition::all({!isMatch, isPresent(parameter(call, 1), moment)});
    const Condition result = Condition::all(results);
    if (result.isAlways()) return Condition::any({isMatch, otherwise});
    const std::string words = value(call, moment);
    return Condition::any({otherwise, Condition::fact({fmt::format("there is a value in ({})", words),
                                                       fmt::format("there is no value in ({})", words),
                                                       {},
                                                       {},
                                                       {}})});
}

} // namespace kxtool
