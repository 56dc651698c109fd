// SPDX-License-Identifier: BSD-3-Clause
// From rules to the rows of a table. Which kinds of change can happen is told by what is certain, an element's VR never
// taken for granted; words only say more of it.
#include "tool/conformance/conformancetable.h"

#include "KXItem.h"
#include "tool/conformance/conformanceprobe.h"
#include "tool/conformance/conformancewords.h"
#include "tool/console/table.h"

#include <algorithm>
#include <fmt/format.h>

namespace kxtool {
namespace {

using Presence = Known::Presence;
using Text = std::optional<std::string>;

constexpr const char* kAsTheRule = "as the rule says";

/// What can become of the target.
struct Kinds {
    bool added = false, modified = false, removed = false;

    bool any() const { return added || modified || removed; }
    std::string text() const
    {
        std::string words = added ? "added" : "";
        if (modified) words += !added ? "modified" : removed ? ", modified" : " or modified";
        if (removed) words += words.empty() ? "removed" : " or removed";
        return words;
    }
};

/// The rows of one rule.
class RuleRows {
public:
    /// @param row its attribute, tag and source.
    RuleRows(const History& history, const ElementPath& target, std::size_t now, const RuleLine& line, CoercionRow row)
        : history_(history), target_(target), now_(now), line_(line), row_(std::move(row))
    {
    }

    std::vector<CoercionRow> take()
    {
        const std::vector<Outcome> outcomes = outcomesOf(*line_.expression, now_, facts({}, Presence::Perhaps).value());
        for (const Outcome& outcome : outcomes) addOutcome(outcome);
        if (outcomes.empty()) addOutcome({{}, line_.expression.get(), now_});
        std::vector<CoercionRow> rows;
        for (auto& [row, kinds] : found_) {
            row.action = kinds.text();
            rows.push_back(row);
            if (kinds.added && KXItem::isOurPrivateTagKey(tagAt(target_))) rows.push_back(creatorRow());
        }
        return rows;
    }

private:
    std::optional<Facts> facts(const std::vector<Condition>& conditions, Presence target) const
    {
        Facts facts(history_, target_);
        facts.supposeTarget(target);
        for (const Condition& condition : conditions) {
            if (!facts.add(condition)) return std::nullopt;
        }
        return facts;
    }

    /// @return what is known of an outcome's value where its conditions hold; none where they cannot.
    std::optional<Known> knownOf(const Outcome& outcome, Presence target) const
    {
        const auto known = facts(outcome.when, target);
        if (!known) return std::nullopt;
        if (outcome.value == nullptr) return Known::never();
        if (!outcome.isTable) return known->of(*outcome.value, outcome.moment);
        std::optional<Known> together;
        for (std::size_t i = 3; i < outcome.value->params.size(); i += 2) {
            const Known to = known->of(argument(*outcome.value, i), outcome.moment);
            together = together ? either(*together, to) : to;
        }
        return together;
    }

    void addOutcome(const Outcome& outcome)
    {
        const auto ifAbsent = knownOf(outcome, Presence::Never);
        const auto ifPresent = knownOf(outcome, Presence::Always);
        const bool isTarget = outcome.value != nullptr && !outcome.isTable &&
                              facts({}, Presence::Perhaps)->isTarget(*outcome.value, outcome.moment);
        Kinds kinds;
        kinds.added = ifAbsent && !ifAbsent->isNever() && canBeMade(tagAt(target_));
        kinds.modified = ifPresent && !ifPresent->isNever() && (!isTarget || outcome.isText);
        const bool isRemoved = ifPresent && !ifPresent->isAlways();
        if (outcome.isTable) {
            kinds.removed = isRemoved;
            if (kinds.text() != "removed") return addValue(outcome, kinds, {});
            return addRow({outcome.when, nullptr, outcome.moment}, kinds, "", {});
        }
        const bool isOpen = (kinds.added && !ifAbsent->isAlways()) || (kinds.modified && !ifPresent->isAlways());
        const Known& known = kinds.modified ? *ifPresent : ifAbsent ? *ifAbsent : Known();
        if (isTarget && kinds.modified) addOwnText(outcome);
        else if (kinds.any()) addValue(with(outcome, true, isOpen), kinds, known);
        if (isRemoved) addRow(with(outcome, false, !ifPresent->isNever()), {.removed = true}, "", {});
    }

    /// @return the outcome, and that its value is there or is not, if that is still open.
    static Outcome with(Outcome outcome, bool isThere, bool isOpen)
    {
        if (isOpen) outcome.when.push_back({outcome.value, outcome.moment, isThere});
        return outcome;
    }

    /// The target's own text, put into it again.
    void addOwnText(const Outcome& outcome)
    {
        addRow(outcome, {.modified = true}, "an empty value", "its VR is one without text for rules, such as UN");
    }

    void addValue(const Outcome& outcome, const Kinds& kinds, const Known& known)
    {
        if (!kinds.any()) return;
        const auto certain = facts(outcome.when, presenceFor(kinds));
        const Text value = certain ? Words(*certain, target_, outcome.value).value(outcome) : std::nullopt;
        if (!value || outcome.isTable) return addRow(outcome, kinds, value.value_or(quotedRule()), {});
        const auto [ifAbsent, ifPresent] = heldOf(outcome, known, *value);
        if (kinds.added && ifAbsent != ifPresent)
            addRow(outcome, {.added = true}, ifAbsent.value_or("an empty value"), {});
        const Kinds rest{kinds.added && ifAbsent == ifPresent, kinds.modified};
        const std::string vr = vrNameOf(tagAt(target_));
        if (rest.any()) addRow(outcome, rest, ifPresent.value_or(*value), ifPresent ? "" : "its VR is not " + vr);
    }

    /// What the target then holds, in words, if it has the dictionary's VR; none: it is as it was.
    struct Held {
        Text ifAbsent, ifPresent;
    };

    Held heldOf(const Outcome& outcome, const Known& known, const std::string& value) const
    {
        const DcmTagKey key = tagAt(target_);
        const std::string vr = vrNameOf(key);
        if (!canBeMade(key)) return {value, value};
        const auto source = Facts::pathOf(*outcome.value);
        if (source && !isSeenAsText(tagAt(*source))) {
            if (!outcome.isText && (!isSettledVr(tagAt(*source)) || !isSettledVr(key))) return {value, value};
            const std::string none = "an empty value: rules see no text in " + nameAndTag(*source);
            return inWords(writeElement(key, tagAt(*source), outcome.isText),
                           [&](const std::string& held) { return isEmpty(held) ? none : value; });
        }
        if (known.text) {
            const auto words = [&](const std::string& held) {
                if (holds(held, *known.text) || (isEmpty(held) && known.text->empty())) return value;
                return fmt::format("{}, all that {} takes of {}", quoted(isEmpty(held) ? "" : held), vr, value);
            };
            return inWords(writeText(key, *known.text), words);
        }
        if (holds(writeText(key, "x").ifAbsent, "x")) return {value, value};
        for (const char* sample : {"1", "(0010,0010)"}) {
            const Written written = writeText(key, sample);
            if (!written.ifPresent && (!written.ifAbsent || isEmpty(*written.ifAbsent))) continue;
            const std::string words = known.isNumber ? value : fmt::format("{}, as far as {} takes it", value, vr);
            return {words, words};
        }
        return {fmt::format("an empty value: {} takes no text", vr), std::nullopt};
    }

    template <typename InWords>
    static Held inWords(const Written& written, InWords words)
    {
        const auto one = [&](const Text& held) { return held ? Text(words(*held)) : std::nullopt; };
        return {one(written.ifAbsent), one(written.ifPresent)};
    }

    static bool isEmpty(const std::string& held) { return held.empty() || held == "<0 bytes>" || held == "<0 items>"; }

    /// @return what the row's action says of the target already.
    static Presence presenceFor(const Kinds& kinds)
    {
        if (kinds.added) return kinds.modified || kinds.removed ? Presence::Perhaps : Presence::Never;
        return Presence::Always;
    }

    static bool isQuoted(const std::string& words) { return words.starts_with(kAsTheRule); }

    std::string quotedRule() const
    {
        const std::string rule(line_.right());
        return fmt::format("{}: `{}`", kAsTheRule, shownUtf8(rule));
    }

    void addRow(const Outcome& outcome, const Kinds& kinds, const std::string& value, const std::string& more)
    {
        CoercionRow row = row_;
        row.value = value;
        row.condition = conditionOf(outcome, presenceFor(kinds), isQuoted(value) ? nullptr : outcome.value);
        if (row.condition == value && !value.empty()) row.condition = kAsTheRule;
        const std::string item = target_.size() > 2 ? itemText(target_) + " is present" : "";
        std::string condition = item;
        for (const std::string& part : {row.condition, more}) {
            if (!part.empty()) condition += (condition.empty() ? "" : " and ") + part;
        }
        row.condition = condition;
        for (auto& [other, otherKinds] : found_) {
            if (other.value != value || otherKinds.text() != kinds.text()) continue;
            const std::string who = other.condition.substr(0, other.condition.rfind(" is "));
            const std::string absent = who + " is absent";
            const std::string empty = who + " is empty";
            if (std::minmax(other.condition, condition) != std::minmax(absent, empty)) continue;
            other.condition = who + " is absent or empty";
            return;
        }
        const auto same = std::ranges::find_if(found_, [&row](const auto& other) {
            return other.first.value == row.value && other.first.condition == row.condition;
        });
        if (same == found_.end()) return found_.emplace_back(row, kinds), void();
        same->second = {same->second.added || kinds.added, same->second.modified || kinds.modified,
                        same->second.removed || kinds.removed};
    }

    /// @param shownValue what the row has as its value; null for none.
    std::string conditionOf(const Outcome& outcome, Presence target, const Expression* shownValue) const
    {
        const Facts none = facts({}, target).value();
        std::vector<Condition> conditions = outcome.when;
        if (outcome.isTable && facts({}, target)->isTarget(argument(*outcome.value, 0), outcome.moment))
            conditions.pop_back(); // the value says it
        conditions = shortened(conditions, none);
        return Words(none, target_, shownValue).all(conditions).value_or(quotedRule());
    }

    /// The engine reserves the server's block with the first element of it.
    CoercionRow creatorRow() const
    {
        ElementPath creator = target_;
        creator.back() = KXItem::kCreatorElement;
        return {
            nameText(creator), tagText(creator), "added", quoted(KXItem::kCreator), nameAndTag(target_) + " is added",
            row_.source};
    }

    const History& history_;
    const ElementPath& target_;
    std::size_t now_;
    const RuleLine& line_;
    CoercionRow row_;
    std::vector<std::pair<CoercionRow, Kinds>> found_;
};

ElementPath pathOf(const LVDicomTag& target)
{
    const auto* inItem = dynamic_cast<const LVSeqDicomTag*>(&target);
    if (inItem == nullptr) return {target.tag.getGroup(), target.tag.getElement()};
    ElementPath path(inItem->path.begin(), inItem->path.end());
    for (std::size_t i = 2; i < path.size(); i += 3) path[i] = std::max(path[i], 0);
    return path;
}

class TableMaker {
public:
    explicit TableMaker(const std::filesystem::path& folder) : folder_(folder) {}

    void addFile(const RuleFile& file)
    {
        history_.beginFile(moment_);
        for (const RuleLine& line : file.lines) {
            if (line.kind == RuleLine::Kind::Rule) addRule(file, line);
        }
    }

    std::vector<CoercionRow> take() { return std::move(rows_); }

private:
    void addRule(const RuleFile& file, const RuleLine& line)
    {
        const std::string name = shownUtf8(file.path.lexically_relative(folder_).native());
        const Known known = Facts(history_, ElementPath{}).of(*line.expression, moment_);
        const History::Source source{moment_, fmt::format("{}:{}", name, line.line), line.expression.get(), known};
        const LVObject* target = line.target.get();
        if (const auto* variable = dynamic_cast<const LVTempVar*>(target)) history_.addVariable(variable->name, source);
        else if (const auto* field = dynamic_cast<const LVCustomField*>(target)) history_.addField(field->name, source);
        else if (const auto* element = dynamic_cast<const LVDicomTag*>(target)) {
            const ElementPath path = pathOf(*element);
            const CoercionRow row{nameText(path), tagText(path), {}, {}, {}, source.place};
            std::ranges::move(RuleRows(history_, path, moment_, line, row).take(), std::back_inserter(rows_));
            history_.addElement(path, source);
        }
        ++moment_;
    }

    std::filesystem::path folder_;
    History history_;
    std::size_t moment_ = 0;
    std::vector<CoercionRow> rows_;
};

} // namespace

std::vector<CoercionRow> coercionTable(const std::vector<const RuleFile*>& files, const std::filesystem::path& folder)
{
    TableMaker maker(folder);
    for (const RuleFile* file : files) maker.addFile(*file);
    return maker.take();
}

} // namespace kxtool
