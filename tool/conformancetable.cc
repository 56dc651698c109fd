// SPDX-License-Identifier: BSD-3-Clause
// From rules to the rows of a table.
#include "tool/conformancetable.h"

#include "tool/conformancewords.h"
#include "tool/table.h"

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
        for (const RuleOutcome& outcome : outcomes) addRow(row, outcome, target, words.targetIsPresent());
    }

    /// What comes to the same, whichever way, is one.
    static std::vector<RuleOutcome> merged(const std::vector<RuleOutcome>& outcomes)
    {
        std::vector<RuleOutcome> different;
        for (const RuleOutcome& outcome : outcomes) {
            const auto same = std::ranges::find_if(different, [&outcome](const RuleOutcome& other) {
                return other.value == outcome.value && other.isTarget == outcome.isTarget && other.told == outcome.told;
            });
            if (same == different.end()) different.push_back(outcome);
            else same->when = Condition::any({same->when, outcome.when});
        }
        return different;
    }

    void addRow(CoercionRow row, const RuleOutcome& outcome, const ElementRef& target, const Condition& isPresent)
    {
        Condition when = outcome.when;
        if (outcome.isTarget) return;
        // What is not there is not removed, and what the dictionary does not know is not made.
        if (!outcome.value || !target.isKnown()) when = Condition::all({when, isPresent});
        if (when.isNever()) return;

        row.value = outcome.value.value_or("");
        if (!outcome.value) row.action = "removed";
        else if (isPresent.given(when).isAlways()) row.action = "modified";
        else row.action = isPresent.given(when).isNever() ? "added" : "added or modified";
        const std::string item = target.itemWords();
        row.condition = when.text({isPresent.asFact()->yes, outcome.told});
        if (!item.empty())
            row.condition = item + " is present" + (row.condition.empty() ? "" : " and ") + row.condition;
        rows_.push_back(std::move(row));
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
