// SPDX-License-Identifier: BSD-3-Clause
// From rules to the rows of a table.
#include "tool/conformance/conformancetable.h"

#include "KXItem.h"
#include "tool/conformance/conformanceprobe.h"
#include "tool/conformance/conformancewords.h"
#include "tool/console/table.h"

#include <algorithm>
#include <fmt/format.h>

namespace kxtool {
namespace {

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
        const History::Source source{moment_, fmt::format("{}:{}", name, line.line), line.expression.get()};
        const LVObject* target = line.target.get();
        if (const auto* variable = dynamic_cast<const LVTempVar*>(target)) history_.addVariable(variable->name, source);
        else if (const auto* field = dynamic_cast<const LVCustomField*>(target)) history_.addField(field->name, source);
        else if (const auto* element = dynamic_cast<const LVDicomTag*>(target)) {
            const ElementRef written = refOf(*element);
            addRows(written, line, source);
            history_.addWrite(written, source);
        }
        ++moment_;
    }

    static ElementRef refOf(const LVDicomTag& target)
    {
        ElementRef element;
        if (const auto* inItem = dynamic_cast<const LVSeqDicomTag*>(&target)) {
            element.path.assign(inItem->path.begin(), inItem->path.end());
            for (std::size_t i = 2; i < element.path.size(); i += 3) element.path[i] = std::max(element.path[i], 0);
        } else {
            element.path = {target.tag.getGroup(), target.tag.getElement()};
        }
        return element;
    }

    void addRows(const ElementRef& target, const RuleLine& line, const History::Source& source)
    {
        Words words(history_, target, moment_);
        const std::vector<RuleOutcome> outcomes = merged(words.outcomes(*line.expression));
        CoercionRow row{target.name(), target.tagText(), "", "", "", source.place};
        if (words.hasGivenUp()) {
            row.action = "added, modified or removed";
            row.value = "as the rule says"; // it is too long for words
            rows_.push_back(row);
            return;
        }
        for (const RuleOutcome& outcome : outcomes) addRows(row, outcome, target, words.targetIsPresent());
    }

    /// What comes to the same, whichever way, is one.
    static std::vector<RuleOutcome> merged(const std::vector<RuleOutcome>& outcomes)
    {
        std::vector<RuleOutcome> different;
        for (const RuleOutcome& outcome : outcomes) {
            const auto same = std::ranges::find_if(different, [&outcome](const RuleOutcome& other) {
                return other.value == outcome.value && other.isTarget == outcome.isTarget &&
                       other.told == outcome.told && other.isText == outcome.isText;
            });
            if (same == different.end()) different.push_back(outcome);
            else same->when = Condition::any({same->when, outcome.when});
        }
        return different;
    }

    void addRows(const CoercionRow& row, const RuleOutcome& outcome, const ElementRef& target,
                 const Condition& isPresent)
    {
        if (outcome.isTarget) return;
        const Condition whenPresent = Condition::all({outcome.when, isPresent});
        // What is not there is not removed, and what the dictionary does not know is not made.
        if (!outcome.value || !target.isKnown())
            return addRow(row, outcome.value, whenPresent, outcome, target, isPresent);
        const Held held = heldOf(outcome, target);
        if (held.ifAbsent == held.ifPresent)
            return addRow(row, held.ifPresent, outcome.when, outcome, target, isPresent);
        if (held.ifPresent) addRow(row, held.ifPresent, whenPresent, outcome, target, isPresent);
        if (held.ifAbsent)
            addRow(row, held.ifAbsent, Condition::all({outcome.when, !isPresent}), outcome, target, isPresent);
    }

    /// What the target holds afterwards, in words; none: it is as it was.
    struct Held {
        std::optional<std::string> ifAbsent, ifPresent;
    };

    static Held heldOf(const RuleOutcome& outcome, const ElementRef& target)
    {
        const DcmTagKey key = target.tag();
        const std::string& value = *outcome.value;
        if (outcome.literal) {
            const Written written = writeText(key, *outcome.literal);
            const auto words = [&](const std::optional<std::string>& held) -> std::optional<std::string> {
                if (!held) return std::nullopt;
                if (holds(held, *outcome.literal) || (isEmpty(*held) && outcome.literal->empty())) return value;
                const std::string shown = isEmpty(*held) ? "an empty value" : quotedText(held->c_str());
                return fmt::format("{}, all that {} takes of {}", shown, vrOf(key), value);
            };
            return {words(written.ifAbsent), words(written.ifPresent)};
        }
        if (outcome.source && !isSeenAsText(outcome.source->tag())) {
            if (hasOpenVr(outcome.source->tag()) && !outcome.isText) return {value, value};
            const Written written = writeElement(key, outcome.source->tag(), outcome.isText);
            const auto words = [&](const std::optional<std::string>& held) -> std::optional<std::string> {
                if (!held) return std::nullopt;
                if (!isEmpty(*held)) return value;
                return fmt::format("an empty value: rules see no text in {}", outcome.source->words());
            };
            const bool mayBeSame = hasOpenVr(key) && !outcome.isText;
            return {words(written.ifAbsent), mayBeSame ? value : words(written.ifPresent)};
        }
        return heldOfText(key, value, outcome.isNumber);
    }

    /// Of a text that only a dataset tells.
    static Held heldOfText(const DcmTagKey& key, const std::string& value, bool isNumber)
    {
        const std::string vr = vrOf(key);
        if (holds(writeText(key, "x").ifAbsent, "x")) return {value, value};
        for (const char* sample : {"1", "(0010,0010)"}) {
            const Written written = writeText(key, sample);
            if (!written.ifPresent && (!written.ifAbsent || isEmpty(*written.ifAbsent))) continue;
            const std::string words = isNumber ? value : fmt::format("{}, as far as {} takes it", value, vr);
            return {words, words};
        }
        return {fmt::format("an empty value: {} takes no text", vr), std::nullopt};
    }

    static bool isEmpty(const std::string& held) { return held.empty() || held == "<0 bytes>" || held == "<0 items>"; }

    void addRow(CoercionRow row, const std::optional<std::string>& value, const Condition& when,
                const RuleOutcome& outcome, const ElementRef& target, const Condition& isPresent)
    {
        if (when.isNever()) return;
        row.value = value.value_or("");
        if (!outcome.value) row.action = "removed";
        else if (isPresent.given(when).isAlways()) row.action = "modified";
        else row.action = isPresent.given(when).isNever() ? "added" : "added or modified";
        const std::string item = target.itemWords();
        row.condition = when.text({isPresent.asFact()->yes, outcome.told});
        if (!item.empty())
            row.condition = item + " is present" + (row.condition.empty() ? "" : " and ") + row.condition;
        const bool mayAdd = row.action.starts_with("added");
        rows_.push_back(std::move(row));
        if (mayAdd && KXItem::isOurPrivateTagKey(target.tag())) addCreatorRow(target);
    }

    /// The engine reserves the server's block with the first element of it.
    void addCreatorRow(const ElementRef& target)
    {
        ElementRef creator = target;
        creator.path.back() = KXItem::kCreatorElement;
        rows_.push_back({creator.name(), creator.tagText(), "added", quotedText(KXItem::kCreator),
                         target.words() + " is added", rows_.back().source});
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
