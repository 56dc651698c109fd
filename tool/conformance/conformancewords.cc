// SPDX-License-Identifier: BSD-3-Clause
#include "tool/conformance/conformancewords.h"

#include "tool/conformance/conformanceprobe.h"
#include "tool/console/table.h"
#include "tool/rules/builtins.h"

#include <fmt/format.h>

#include <algorithm>

namespace kxtool {
namespace {

using Presence = Known::Presence;
using Text = std::optional<std::string>;

constexpr int kMostSteps = 24;          // parts of one sentence
constexpr std::size_t kLongest = 260;   // bytes of one sentence
constexpr std::size_t kMostClauses = 3; // of one condition

Text shortEnough(Text text)
{
    return text && text->size() <= kLongest ? text : std::nullopt;
}

bool isConstantText(const Known& known, const char* text)
{
    return known.isConstant() && !known.isNever() && *known.text == text;
}

/// Clauses that say together what one says, too.
void mergeClauses(std::vector<std::string>& clauses)
{
    constexpr std::string_view kPresent = " is present";
    constexpr std::string_view kAbsent = " is absent";
    const auto has = [&](const std::string& clause) { return std::ranges::find(clauses, clause) != clauses.end(); };
    const auto isSaid = [&](const std::string& clause) {
        const std::string who = clause.substr(0, clause.rfind(" is "));
        if (clause.ends_with(kPresent)) return has(who + " has a value");
        return clause.ends_with(kAbsent) && has(who + " is absent or empty");
    };
    for (std::string& clause : clauses) {
        if (!clause.ends_with(" is empty")) continue;
        const std::string who = clause.substr(0, clause.rfind(" is "));
        if (has(who + std::string(kAbsent))) clause = who + " is absent or empty";
    }
    std::erase_if(clauses, isSaid);
}

} // namespace

std::string quoted(const std::string& text)
{
    return text.empty() ? "an empty value" : '"' + shownUtf8(text) + '"';
}

// Values -------------------------------------------------------------------------------------------------------------

Text Words::value(const Outcome& outcome)
{
    if (outcome.isTable) return table(*outcome.value, outcome.moment);
    const auto path = Facts::pathOf(*outcome.value);
    if (path && *path != target_) return "copied from " + element(*path, outcome.moment);
    return shortEnough(value(*outcome.value, outcome.moment));
}

Text Words::value(const Expression& node, std::size_t moment)
{
    if (++steps_ > kMostSteps) return std::nullopt;
    const Known known = facts_.of(node, moment);
    if (known.isNever()) return "nothing";
    if (known.text) return quoted(*known.text);
    if (const auto path = Facts::pathOf(node)) return elementText(*path, moment);
    if (const History::Source* source = facts_.sourceOf(node, moment))
        return value(*source->expression, source->moment);
    switch (wayOf(node)) {
    case Way::Brackets:
        return value(argument(node, 0), moment);
    case Way::Variable:
    case Way::Field:
        return subject(node, moment);
    case Way::Choice:
        return choice(node, moment);
    case Way::FirstPresent:
        return first(node, moment);
    case Way::Found:
        return value(argument(node, 1), moment);
    case Way::Joined:
        return plus("\"", joined(node, moment), "\"");
    case Way::Part:
    case Way::Recased:
    case Way::Within:
    case Way::Counted:
    case Way::Computed:
    case Way::Drawn:
        return filled(builtinOf(node.func).value, node, moment);
    default: // a tag that is computed, or a table within a sentence
        return std::nullopt;
    }
}

std::string Words::element(const ElementPath& path, std::size_t moment) const
{
    const std::string state = facts_.history().stateOf(path, moment);
    return path == target_ && state.empty() ? "it" : nameAndTag(path) + state;
}

/// What rules see of an element.
std::string Words::elementText(const ElementPath& path, std::size_t moment) const
{
    const std::string name = element(path, moment);
    if (isSeenAsText(tagAt(path))) return name == "it" ? "its value" : name;
    return fmt::format("{} ({} has none)", name == "it" ? "its text" : "the text of " + name, vrNameOf(tagAt(path)));
}

/// A variable or field of a name that is spelled out, where no rule alone sets it.
Text Words::subject(const Expression& node, std::size_t moment)
{
    const Expression& name = argument(node, 0);
    if (name.text == nullptr) return std::nullopt;
    const std::string shown = shownUtf8(name.text);
    if (wayOf(node) == Way::Field) return fmt::format("the study record's field \"{}\"", shown);
    std::string places;
    for (const History::Source* source : facts_.history().variable(name.text, moment))
        places += (places.empty() ? " (" : ", ") + source->place;
    return fmt::format("the variable \"{}\"{}{}", shown, places, places.empty() ? "" : ")");
}

Text Words::choice(const Expression& call, std::size_t moment)
{
    const Presence presence = facts_.of(argument(call, 0), moment).presence;
    if (presence != Presence::Perhaps) return value(argument(call, presence == Presence::Always ? 1 : 2), moment);
    for (const std::size_t only : {1U, 2U}) { // where there is a value at all, it is that
        if (facts_.of(argument(call, 3 - only), moment).isNever()) return value(argument(call, only), moment);
    }
    const Text condition = all(shortened({{&argument(call, 0), moment}}, facts_));
    const Text then = value(argument(call, 1), moment);
    const Text otherwise = value(argument(call, 2), moment);
    if (!condition || !then || !otherwise) return std::nullopt;
    return fmt::format("{} if {}, otherwise {}", *then, *condition, *otherwise);
}

Text Words::first(const Expression& call, std::size_t moment)
{
    std::string text;
    for (const Expression* each : call.params) {
        const Known known = facts_.of(*each, moment);
        if (known.isNever()) continue;
        const Text one = value(*each, moment);
        if (!one) return one;
        text += (text.empty() ? "" : " or, where there is none, ") + *one;
        if (known.isAlways()) break;
    }
    return text;
}

/// A text with its changing parts in braces.
Text Words::joined(const Expression& call, std::size_t moment)
{
    std::string text;
    for (const Expression* each : call.params) {
        const Known known = facts_.of(*each, moment);
        if (known.isNever()) continue;
        const bool isNested = wayOf(*each) == Way::Joined;
        const Text part = known.isConstant() ? Text(shownUtf8(*known.text))
                          : isNested         ? joined(*each, moment)
                                             : plus("{", value(*each, moment), "}");
        if (!part) return part;
        text += *part;
    }
    return text;
}

Text Words::table(const Expression& call, std::size_t moment)
{
    const Expression& subject = argument(call, 0);
    std::string text;
    if (!facts_.isTarget(subject, moment)) {
        const Text words = value(subject, moment);
        if (!words) return words;
        text = fmt::format("recoded from {}:", *words);
    }
    for (std::size_t i = 2; i + 1 < call.params.size(); i += 2) {
        const Known from = facts_.of(argument(call, i), moment);
        const Known to = facts_.of(argument(call, i + 1), moment);
        const Text fromWords = from.isNever() ? Text("absence") : value(argument(call, i), moment);
        const Text toWords =
            to.isNever() ? Text(" is removed") : plus(" becomes ", value(argument(call, i + 1), moment));
        if (!fromWords || !toWords || (!to.isNever() && !to.isAlways())) return std::nullopt;
        steps_ = 0; // each line is a sentence
        text += (text.empty() ? "" : "\n") + *fromWords + *toWords;
    }
    return text;
}

// Conditions ----------------------------------------------------------------------------------------------------------

Text Words::all(const std::vector<Condition>& conditions)
{
    std::vector<std::string> clauses;
    for (const Condition& condition : conditions) {
        Facts others(facts_);
        for (const Condition& other : conditions) {
            if (&other != &condition) others.add(other);
        }
        Words words(others, target_, value_);
        words.steps_ = steps_;
        const Text text = words.clause(condition);
        steps_ = words.steps_;
        if (!text) return text;
        clauses.push_back(*text);
    }
    mergeClauses(clauses);
    if (clauses.size() > kMostClauses) return std::nullopt;
    return shortEnough(fmt::format("{}", fmt::join(clauses, " and ")));
}

Text Words::clause(const Condition& condition)
{
    return condition.isMatch ? match(condition) : presence(*condition.node, condition.moment, condition.holds);
}

Text Words::presence(const Expression& node, std::size_t moment, bool holds)
{
    if (++steps_ > kMostSteps || node.func == nullptr) return std::nullopt;
    if (const auto path = Facts::pathOf(node)) return element(*path, moment) + (holds ? " is present" : " is absent");
    if (const History::Source* source = facts_.sourceOf(node, moment))
        return clause({source->expression, source->moment, holds});
    std::vector<Condition> parts;
    for (const Expression* each : node.params) parts.push_back({each, moment, holds});
    switch (wayOf(node)) {
    case Way::Brackets:
        return clause(parts[0]);
    case Way::Variable:
    case Way::Field:
        return plus("", subject(node, moment), holds ? " is set" : " is not set");
    case Way::Equal:
        return equality(argument(node, 0), argument(node, 1), moment, holds);
    case Way::Not:
        return clause({parts[0].node, moment, !holds});
    case Way::AllPresent:
        return holds ? all(shortened(parts, facts_)) : anyOf(parts);
    case Way::FirstPresent:
        return holds ? anyOf(parts) : all(shortened(parts, facts_));
    case Way::Choice:
        for (const std::size_t only : {1U, 2U}) {
            if (!facts_.of(argument(node, 3 - only), moment).isNever()) continue;
            const Condition way{&argument(node, 0), moment, holds == (only == 1)};
            return holds ? all({way, parts[only]}) : anyOf({way, parts[only]});
        }
        return std::nullopt;
    case Way::Joined:
        return joinedPresence(node, moment, holds);
    case Way::Found:
    case Way::Part:
    case Way::Recased:
    case Way::Within:
    case Way::Counted:
    case Way::Computed:
    case Way::Drawn:
        return callPresence(node, moment, holds);
    default:
        return std::nullopt;
    }
}

/// When a call is there: where the arguments are that it needs, or as its pattern says.
Text Words::callPresence(const Expression& call, std::size_t moment, bool holds)
{
    const Builtin& builtin = builtinOf(call.func);
    std::vector<Known> arguments;
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < call.params.size(); ++i) {
        Known known = facts_.of(argument(call, i), moment);
        const bool isNumber = Facts::needsNumber(call, i);
        const bool isOpen = !known.isAlways() || (isNumber && readsAsNumber(known) != Presence::Always);
        if (isOpen && Facts::needs(call, i)) {
            known = known.with(Presence::Always);
            known.beginsWithNumber = isNumber;
            open.push_back(i);
        }
        arguments.push_back(known);
    }
    if (!builtin.of(arguments).isAlways()) return filled(holds ? builtin.holds : builtin.fails, call, moment);
    std::string clauses;
    for (const std::size_t i : open) {
        const char* reads = holds ? " begins with a whole number" : " begins with no whole number";
        const Text one = Facts::needsNumber(call, i) ? plus("", value(argument(call, i), moment), reads)
                                                     : all(shortened({{&argument(call, i), moment, holds}}, facts_));
        if (!one) return one;
        clauses += (clauses.empty() ? "" : holds ? " and " : " or ") + *one;
    }
    return clauses;
}

/// When a joined text is not empty.
Text Words::joinedPresence(const Expression& call, std::size_t moment, bool holds)
{
    std::vector<const Expression*> parts;
    for (const Expression* each : call.params) {
        if (facts_.of(*each, moment).most > 0 && !facts_.of(*each, moment).isNever()) parts.push_back(each);
    }
    const auto path = parts.size() == 1 ? Facts::pathOf(*parts.front()) : std::nullopt;
    if (path && isSeenAsText(tagAt(*path)))
        return element(*path, moment) + (holds ? " has a value" : " is absent or empty");
    if (&call == value_) return holds ? "the value is not empty" : "the value would be empty";
    return plus("", value(call, moment), holds ? " is not empty" : " is empty");
}

Text Words::anyOf(std::vector<Condition> conditions)
{
    std::erase_if(conditions, [this](const Condition& one) { return facts_.of(one) == Presence::Never; });
    std::vector<std::string> clauses;
    for (const Condition& condition : conditions) {
        const Text text = all(shortened({condition}, facts_));
        if (!text || text->find(" and ") != std::string::npos || text->find(" or ") != std::string::npos)
            return conditions.size() == 1 ? text : std::nullopt;
        clauses.push_back(*text);
    }
    mergeClauses(clauses);
    if (clauses.size() == 1) return clauses.front();
    if (clauses.empty() || clauses.size() > kMostClauses) return std::nullopt;
    return fmt::format("either {}", fmt::join(clauses, " or "));
}

Text Words::equality(const Expression& a, const Expression& b, std::size_t moment, bool holds)
{
    if (wayOf(a) == Way::Brackets) return equality(argument(a, 0), b, moment, holds);
    const Known left = facts_.of(a, moment);
    const Known right = facts_.of(b, moment);
    if (left.isConstant() && !right.isConstant()) return equality(b, a, moment, holds);
    if (right.isNever()) return clause({&a, moment, !holds});
    if (const History::Source* source = facts_.sourceOf(a, moment); source != nullptr && b.func == nullptr)
        return equality(*source->expression, b, source->moment, holds);
    if (!right.isConstant()) {
        const Text words = value(a, moment);
        const Text other = value(b, moment);
        if (!words || !other || words == other) return std::nullopt;
        return fmt::format("{} and {} {} the same", *words, *other, holds ? "are" : "are not");
    }
    const bool hasDefault = wayOf(a) == Way::FirstPresent && a.params.size() == 2 &&
                            isConstantText(facts_.of(argument(a, 1), moment), right.text->c_str());
    const Expression& compared = hasDefault ? argument(a, 0) : a;
    const Way way = wayOf(compared);
    const Text words = way == Way::FirstPresent || way == Way::Choice ? std::nullopt : value(compared, moment);
    if (!words) return words;
    const std::string who = words == "its value" && right.text->empty() ? "it" : *words;
    const bool isThere = hasDefault || facts_.of(compared, moment).isAlways();
    if (right.text->empty()) {
        if (holds) return who + (hasDefault ? " is absent or empty" : " is empty");
        return who + (isThere ? " has a value" : " is not empty");
    }
    const bool isNumber = compared.func != nullptr && builtinOf(compared.func).yieldsNumber;
    const std::string what = isNumber ? shownUtf8(*right.text) : quoted(*right.text);
    const char* are = who.find(" bytes of ") == std::string::npos ? "is" : "are";
    if (!hasDefault) return fmt::format("{} {} {}{}", who, are, holds ? "" : "not ", what);
    return fmt::format("{} is {} {}", who, holds ? "absent or" : "present and not", what);
}

/// That a pair of a table matches.
Text Words::match(const Condition& condition)
{
    const Expression& call = *condition.node;
    const Expression& subject = argument(call, 0);
    if (call.params.size() == 4) return equality(subject, argument(call, 2), condition.moment, condition.holds);
    std::vector<std::string> texts;
    for (std::size_t i = 2; i + 1 < call.params.size(); i += 2) {
        const Known from = facts_.of(argument(call, i), condition.moment);
        if (!from.isConstant() || from.isNever()) return std::nullopt;
        texts.push_back(quoted(*from.text));
    }
    const Text words = value(subject, condition.moment);
    return plus("", words,
                fmt::format(" is {} of {}", condition.holds ? "one" : "none", fmt::join(texts, ", ")).c_str());
}

} // namespace kxtool
