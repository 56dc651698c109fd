// SPDX-License-Identifier: BSD-3-Clause
// The values of expressions in words, and the cases that a rule distinguishes.
#include "tool/conformance/conformancewords.h"

#include "tool/conformance/conformanceparts.h"
#include "tool/conformance/conformanceprobe.h"
#include "tool/console/table.h"

#include <fmt/format.h>
#include <sstream>
#include <utility>

namespace kxtool {
namespace {

bool isArithmetic(const Expression& expression)
{
    return expression.func == &f_add || expression.func == &f_sub || expression.func == &f_mul ||
           expression.func == &f_div || expression.func == &f_mod;
}

std::string rawText(const Expression& expression)
{
    std::ostringstream text;
    text << expression;
    return shownUtf8(text.str());
}

} // namespace

Words::Words(const History& history, ElementRef target, std::size_t now)
    : history_(history), target_(std::move(target)), now_(now)
{
}

Condition Words::targetIsPresent() const
{
    return elementIs(target_, now_, false);
}

Words::Resolved Words::resolveVariable(const std::string& name, std::size_t moment)
{
    static Expression absent;
    absent.func = &f_NULL;
    const std::string words = fmt::format("the variable \"{}\"", shownUtf8(name));
    const std::vector<const History::Source*> written = history_.variable(name, moment);
    if (written.empty() && name.starts_with('@')) return {nullptr, 0, words}; // the server may have set it
    // The first write wins, and NULL clears the name for a later one.
    std::vector<const History::Source*> sources;
    bool isSet = false;
    for (const History::Source* source : written) {
        const Condition isThere = isPresent(*source->expression, source->moment);
        if (isThere.isNever()) sources.clear();
        else if (!isSet || !isThere.isAlways()) sources.push_back(source);
        isSet = !sources.empty() && isThere.isAlways();
    }
    if (sources.empty()) return {&absent, 0, {}};
    if (sources.size() == 1 && !isTooMuch()) return {sources.front()->expression, sources.front()->moment, {}};
    std::string places;
    for (const History::Source* source : sources) places += (places.empty() ? "" : ", ") + source->place;
    return {nullptr, 0, fmt::format("{} ({})", words, places)};
}

Words::Resolved Words::resolveField(const std::string& name, std::size_t moment)
{
    if (const History::Source* source = history_.field(name, moment); source != nullptr && !isTooMuch())
        return {source->expression, source->moment, {}};
    return {nullptr, 0, fmt::format("the study record's field \"{}\"", shownUtf8(name))};
}

Words::Resolved Words::resolve(const Expression& expression, std::size_t moment)
{
    Resolved resolved{&expression, moment, {}};
    while (resolved.expression != nullptr) {
        const Expression& at = *resolved.expression;
        const bool isBracket = (at.func == &f_empty || at.func == &f_root) && at.params.size() == 1;
        const bool isName = (at.func == &f_var || at.func == &f_user) && isText(parameter(at, 0));
        if (!isBracket && !isName) {
            resolved.expression = &folded(at);
            return resolved;
        }
        const bool wasText = resolved.isText;
        if (isBracket) resolved.expression = &parameter(at, 0);
        else if (at.func == &f_var) resolved = resolveVariable(textOf(parameter(at, 0)), resolved.moment);
        else resolved = resolveField(textOf(parameter(at, 0)), resolved.moment);
        resolved.isText = wasText || isName;
    }
    return resolved;
}

/// What always comes to the same is that.
const Expression& Words::folded(const Expression& expression)
{
    if (isText(expression) || expression.func == &f_NULL) return expression;
    const auto [at, isNew] = constants_.try_emplace(&expression);
    if (isNew) {
        if (const auto constant = constantOf(expression)) {
            at->second = std::make_unique<Expression>();
            if (constant->text) at->second->text = newdup(constant->text->c_str());
            else at->second->func = &f_NULL;
        }
    }
    return at->second ? *at->second : expression;
}

bool Words::hasNoText(const Expression& expression, std::size_t moment)
{
    const Resolved resolved = resolve(expression, moment);
    const auto element = resolved.expression == nullptr ? std::nullopt : elementOf(*resolved.expression);
    return element && !isSeenAsText(element->tag());
}

std::string Words::elementWords(const ElementRef& element, std::size_t moment, const char* forTarget) const
{
    const std::string state = history_.stateOf(element, moment);
    return state.empty() && element.key() == target_.key() ? forTarget : element.words() + state;
}

bool Words::isTarget(const Expression& expression, std::size_t moment)
{
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr) return false;
    const auto element = elementOf(*resolved.expression);
    return element && elementWords(*element, resolved.moment, "").empty();
}

std::string Words::value(const Expression& expression, std::size_t moment)
{
    if (isTooMuch()) return {};
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr) return resolved.unresolved;
    if (isText(*resolved.expression)) {
        const std::string text = textOf(*resolved.expression);
        return text.empty() ? "an empty value" : quotedText(text.c_str());
    }
    if (const auto element = elementOf(*resolved.expression))
        return elementWords(*element, resolved.moment, "its value");
    return callValue(*resolved.expression, resolved.moment);
}

/// As a number in a sentence: without quotes where it is one, in brackets where it is computed. The engine reads the number
/// that a text begins with and ignores the rest.
std::string Words::operand(const Expression& expression, std::size_t moment)
{
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr) return resolved.unresolved;
    if (const auto number = readNumber(*resolved.expression)) return std::to_string(*number);
    const std::string words = value(*resolved.expression, resolved.moment);
    if (isArithmetic(*resolved.expression)) return "(" + words + ")";
    const auto element = elementOf(*resolved.expression);
    const bool isPlain = element ? element->isWholeNumber() : isNumeric(*resolved.expression);
    return isPlain ? words : "the whole number at the start of " + words;
}

std::string Words::callValue(const Expression& call, std::size_t moment)
{
    const FunctionDef* function = call.func;
    const auto words = [&](std::size_t index) { return value(parameter(call, index), moment); };
    const auto joined = [&](const char* between) {
        std::string text;
        for (const Expression* each : call.params) text += (text.empty() ? "" : between) + operand(*each, moment);
        return text;
    };
    if (function == &f_NULL) return "nothing";
    if (function == &f_if) {
        const Condition condition = isPresent(parameter(call, 0), moment).given(known_);
        if (condition.isAlways() || condition.isNever()) return words(condition.isAlways() ? 1 : 2);
        return fmt::format("{} if {}, otherwise {}", words(1), condition.text(), words(2));
    }
    if (function == &f_or) {
        std::string text;
        for (const Expression* each : call.params) {
            const Condition isThere = isPresent(*each, moment).given(known_);
            if (isThere.isNever()) continue;
            text += (text.empty() ? "" : " or, where it is absent, ") + value(*each, moment);
            if (isThere.isAlways()) break;
        }
        return text.empty() ? "nothing" : text;
    }
    if (function == &f_and || function == &f_not || function == &f_equals || function == &f_between) return "\"true\"";
    if (function == &f_contains) return words(1);
    if (function == &f_concat) return '"' + pattern(call, moment) + '"';
    if (function == &f_toUpper) return words(0) + " in upper case";
    if (function == &f_toLower) return words(0) + " in lower case";
    if (function == &f_strlen) return fmt::format("the length of {} in bytes", words(0));
    if (function == &f_indexof)
        return fmt::format("the offset of {} in {} (-1 where it does not occur)", words(1), words(0));
    if (function == &f_split || function == &f_substr || function == &f_root) return pieceValue(call, moment);
    if (function == &f_add) return joined(" plus ");
    if (function == &f_sub) return joined(" minus ");
    if (function == &f_mul) return joined(" times ");
    if (function == &f_div) return joined(" divided by ") + " without its fraction";
    if (function == &f_mod) return "the remainder of " + joined(" divided by ");
    if (function == &f_dicomAge) return fmt::format("the age on {}, counted from {}", words(0), words(1));
    if (function == &f_rnd || function == &f_codenumber || function == &f_codestring) return codeValue(call, moment);
    if (function == &f_translate) return table(call, moment, "; ");
    return "what " + rawText(call) + " refers to";
}

std::string Words::codeValue(const Expression& call, std::size_t moment)
{
    const std::string subject = value(parameter(call, 0), moment);
    if (call.func == &f_codenumber) return fmt::format("a code of as many digits for {}", subject);
    if (call.func == &f_codestring) {
        const std::string code = fmt::format("a code for the first 64 bytes of {}, of the same length", subject);
        return call.params.size() == 1
                   ? code
                   : fmt::format("{} and without any of {}", code, value(parameter(call, 1), moment));
    }
    const std::string range = fmt::format("whole number from 0 to less than {}", operand(parameter(call, 0), moment));
    if (call.params.size() == 1) return "a random " + range;
    const Expression& seed = parameter(call, 1);
    const bool isSeeded = isPresent(seed, moment).given(known_).isAlways();
    return fmt::format("a {} that depends on {} alone{}", range, value(seed, moment),
                       isSeeded ? "" : " (a random one where that is absent)");
}

std::string Words::pieceValue(const Expression& call, std::size_t moment)
{
    const std::string text = value(parameter(call, 0), moment);
    if (call.func == &f_substr) {
        const std::string start = operand(parameter(call, 1), moment);
        if (call.params.size() == 2)
            return start == "0" ? text : fmt::format("{} without its first {} bytes", text, start);
        const std::string length = operand(parameter(call, 2), moment);
        if (start == "0") return fmt::format("the first {} bytes of {}", length, text);
        return fmt::format("at most {} bytes of {} after its first {}", length, text, start);
    }
    const std::string separator = value(parameter(call, 1), moment);
    const auto n = readNumber(parameter(call, 2));
    if (n && *n <= 1) return fmt::format("{} up to the first {}", text, separator);
    if (n && *ordinal(*n) != '\0') return fmt::format("the {} part of {}, divided at {}", ordinal(*n), text, separator);
    return fmt::format("part {} of {}, divided at {}", operand(parameter(call, 2), moment), text, separator);
}

/// A text with its changing parts in braces.
std::string Words::pattern(const Expression& expression, std::size_t moment)
{
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression == nullptr || isTooMuch()) return '{' + resolved.unresolved + '}';
    if (isText(*resolved.expression)) return shownUtf8(textOf(*resolved.expression));
    if (hasNoText(*resolved.expression, resolved.moment)) return {};
    if (resolved.expression->func != &f_concat) return '{' + value(*resolved.expression, resolved.moment) + '}';
    std::string text;
    for (const Expression* each : resolved.expression->params) text += pattern(*each, resolved.moment);
    return text;
}

std::string Words::table(const Expression& call, std::size_t moment, const char* separator)
{
    const Expression& subject = parameter(call, 0);
    std::string text = isTarget(subject, moment) ? "" : fmt::format("recoded from {}:", value(subject, moment));
    for (std::size_t i = 2; i + 1 < call.params.size(); i += 2) {
        const Expression& from = parameter(call, i);
        const Expression& to = parameter(call, i + 1);
        if (i > 2 || *separator == '\n') text += text.empty() ? "" : separator;
        else if (!text.empty()) text += ' ';
        text += from.func == &f_NULL ? "absence" : value(from, moment);
        text += to.func == &f_NULL ? " is removed" : " becomes " + value(to, moment);
    }
    if (*separator == '\n') return text;
    return fmt::format("{}{}anything else {}", text, call.params.size() > 2 ? separator : "",
                       value(parameter(call, 1), moment));
}

std::vector<RuleOutcome> Words::outcomes(const Expression& root)
{
    std::vector<RuleOutcome> found;
    addOutcomes(root, now_, Condition::always(true), found);
    return found;
}

void Words::addOutcomes(const Expression& expression, std::size_t moment, const Condition& known,
                        std::vector<RuleOutcome>& out)
{
    if (known.isNever() || isTooMuch()) return;
    const Resolved resolved = resolve(expression, moment);
    if (resolved.expression != nullptr) {
        const Expression& call = *resolved.expression;
        if (call.func == &f_if) return addIf(call, resolved.moment, known, out);
        if (call.func == &f_or) return addOr(call, resolved.moment, known, out);
        if (call.func == &f_translate && call.params.size() > 2) return addTranslate(call, resolved.moment, known, out);
    }
    const Condition isThere = isPresent(expression, moment);
    const Condition there = Condition::all({known, isThere});
    const Condition absent = Condition::all({known, !isThere});
    if (!there.isNever()) {
        known_ = there;
        RuleOutcome outcome{there, value(expression, moment), isTarget(expression, moment)};
        outcome.isText = resolved.isText;
        if (resolved.expression != nullptr) {
            outcome.source = elementOf(*resolved.expression);
            if (outcome.source) outcome.value = "copied from " + *outcome.value;
            if (isText(*resolved.expression)) outcome.literal = textOf(*resolved.expression);
            outcome.isNumber = isNumeric(*resolved.expression);
        }
        out.push_back(std::move(outcome));
    }
    if (!absent.isNever()) out.push_back({absent, std::nullopt});
}

void Words::addIf(const Expression& call, std::size_t moment, const Condition& known, std::vector<RuleOutcome>& out)
{
    const Condition condition = isPresent(parameter(call, 0), moment);
    addOutcomes(parameter(call, 1), moment, Condition::all({known, condition}), out);
    addOutcomes(parameter(call, 2), moment, Condition::all({known, !condition}), out);
}

void Words::addOr(const Expression& call, std::size_t moment, const Condition& known, std::vector<RuleOutcome>& out)
{
    Condition left = known; // where none of those before is there
    for (const Expression* each : call.params) {
        const Condition isThere = isPresent(*each, moment);
        addOutcomes(*each, moment, Condition::all({left, isThere}), out);
        left = Condition::all({left, !isThere});
    }
    if (!left.isNever()) out.push_back({left, std::nullopt});
}

void Words::addTranslate(const Expression& call, std::size_t moment, const Condition& known,
                         std::vector<RuleOutcome>& out)
{
    const Condition isMatch = isTranslated(call, moment);
    const Condition match = Condition::all({known, isMatch});
    if (!match.isNever()) {
        known_ = match;
        const Fact* fact = isMatch.asFact();
        out.push_back({match, table(call, moment, "\n"), false, fact == nullptr ? "" : fact->yes});
    }
    addOutcomes(parameter(call, 1), moment, Condition::all({known, !isMatch}), out);
}

} // namespace kxtool
