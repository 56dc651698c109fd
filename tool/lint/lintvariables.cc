// SPDX-License-Identifier: BSD-3-Clause
// Variables: plain ones live within one mapping, those with "@" through all that are applied one after another.
#include "tool/lint/ruleview.h"
#include "tool/rules/lintnames.h"

#include "kxmap.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unordered_map>

namespace kxtool {
namespace {

struct Use {
    const RuleFile* file;
    const RuleLine* line;
    Stage stage;
};

struct Variable {
    std::vector<Use> writes; // with a value; in the order of files and lines, few of each file
    bool isRead = false;
};

using Variables = std::map<std::string, Variable, std::less<>>;

bool outlives(std::string_view name)
{
    return name.starts_with('@');
}

/// @return whether rules of stage `a` have run on the dataset when those of `b` begin.
bool comesBefore(Stage a, Stage b)
{
    switch (b) {
    case Stage::Title:
        return a == Stage::Pre;
    case Stage::Post:
        return a == Stage::Pre || a == Stage::Title || a == Stage::OutboundTitle;
    case Stage::OutboundTitle:
        return a == Stage::OutboundPre;
    case Stage::OutboundPost:
        return a == Stage::OutboundPre || a == Stage::OutboundTitle;
    case Stage::Pre:
    case Stage::OutboundPre:
    case Stage::Alone:
        break;
    }
    return false;
}

std::string placeOf(const Use& use)
{
    return fmt::format("{}:{}", use.file->path.native(), use.line->line);
}

/// @return whether a rule shows that its value may be NULL: it names NULL(), or its value is a condition.
bool showsNull(const Expression& node)
{
    constexpr Way kShowing[] = {Way::Null, Way::Equal, Way::Not, Way::AllPresent, Way::Found, Way::Within};
    if (isLiteral(node)) return false;
    if (std::ranges::find(kShowing, wayOf(node)) != std::end(kShowing)) return true;
    for (std::size_t i = 0; i < node.params.size(); ++i) {
        if (isPassedOn(node, i) && showsNull(argumentOf(node, i))) return true;
    }
    return false;
}

bool isNeverNull(const Expression& root)
{
    return isLiteral(unwrapped(root));
}

bool isNull(const Expression& root)
{
    return wayOf(unwrapped(root)) == Way::Null;
}

class VariableCheck {
public:
    VariableCheck(std::span<const RuleFile> files, std::span<const Stage> stages, Findings& findings)
        : files_(files), stages_(stages), findings_(findings)
    {
    }

    void run()
    {
        for (std::size_t i = 0; i < files_.size(); ++i) collectWrites(files_[i], stages_[i]);
        for (std::size_t i = 0; i < files_.size(); ++i) lookAt(files_[i], stages_[i]);
        reportUnused();
    }

private:
    void collectWrites(const RuleFile& file, Stage stage)
    {
        for (const RuleLine& line : file.lines) {
            if (line.kind != RuleLine::Kind::Rule) continue;
            const auto* target = dynamic_cast<const LVTempVar*>(line.target.get());
            if (target == nullptr || isNull(*line.expression)) continue;
            std::vector<Use>& writes = all_[target->name].writes;
            const bool isFirst = writes.empty() || writes.back().file != &file;
            // Of each file the first one, and the first that is there to stay: all that is asked for.
            if (isFirst || (showsNull(*writes.back().line->expression) && !showsNull(*line.expression)))
                writes.push_back({&file, &line, stage});
        }
    }

    void lookAt(const RuleFile& file, Stage stage)
    {
        current_.clear();
        hasComputedReads_ = false;
        std::map<std::string, const RuleLine*, std::less<>> set; // what holds a value now, and since when
        for (const RuleLine& line : file.lines) {
            if (line.kind != RuleLine::Kind::Rule) continue;
            const Site site{file, line, findings_};
            for (const kxmap::NodeSpan& node : line.trace.nodes) {
                if (node.kind == kxmap::NodeSpan::Kind::Call && wayOf(*node.node) == Way::Variable)
                    read(site, stage, node, set);
            }
            if (const auto* target = dynamic_cast<const LVTempVar*>(line.target.get()))
                write(site, stage, *target, set);
        }
        if (hasComputedReads_) return;
        for (const auto& [name, first] : current_) reportUnused(file, *first, name);
    }

    using Set = std::map<std::string, const RuleLine*, std::less<>>;

    void read(const Site& site, Stage stage, const kxmap::NodeSpan& node, const Set& set)
    {
        const Expression& argument = *node.node->params.front();
        if (argument.func != nullptr) {
            hasComputedReads_ = hasAnyComputedReads_ = true;
            return;
        }
        const std::string name = argument.text == nullptr ? "" : argument.text;
        current_.erase(name);
        readAnywhere_.insert(name);
        if (set.contains(name)) return;
        const bool isSetElsewhere = stage == Stage::Alone ? !set.contains(name.substr(1)) : isSetBefore(name, stage);
        if (outlives(name) && isSetElsewhere) return;
        reportUnset(site, stage, node.text, name, set);
    }

    bool isSetBefore(const std::string& name, Stage stage) const
    {
        const auto found = all_.find(name);
        return found != all_.end() && std::ranges::any_of(found->second.writes, [stage](const Use& use) {
                   return comesBefore(use.stage, stage);
               });
    }

    void reportUnset(const Site& site, Stage stage, kxmap::Span span, const std::string& name, const Set& set) const
    {
        std::string message = fmt::format("nothing has set $({}) here: it is NULL", name);
        std::string hint;
        const auto found = all_.find(name);
        const Use* elsewhere = nullptr;
        if (found != all_.end()) {
            for (const Use& use : found->second.writes) {
                if (use.file == &site.file) {
                    site.reportRight(Check::UnsetVariable, span, std::move(message),
                                     fmt::format("line {} sets it, which comes later", use.line->line));
                    return;
                }
                if (elsewhere == nullptr || comesBefore(use.stage, stage)) elsewhere = &use;
            }
        }
        const std::string other = outlives(name) ? name.substr(1) : "@" + name;
        if (set.contains(other) || (outlives(other) && isSetBefore(other, stage))) {
            hint = fmt::format("did you mean $({})?", other);
        } else if (elsewhere != nullptr && stage != Stage::Alone && !outlives(name) &&
                   comesBefore(elsewhere->stage, stage)) {
            hint = fmt::format("{} sets it, but a plain variable ends with its mapping: write $(@{}) in both",
                               placeOf(*elsewhere), name);
        } else if (elsewhere != nullptr && stage != Stage::Alone) {
            const bool isInboundGlobal = stage == Stage::OutboundTitle && elsewhere->stage == Stage::Pre;
            hint = fmt::format("{} sets it, and is not applied before this file{}", placeOf(*elsewhere),
                               isInboundGlobal ? ", unless the server asks for the inbound global files" : "");
        } else {
            constexpr std::size_t kMostCompared = 200; // beyond that, guessing takes more time than it is worth
            for (const auto& [known, line] : set) {
                if (set.size() > kMostCompared) break;
                if (known.size() > 2 && editDistance(known, name) <= 1 + known.size() / 6)
                    hint = fmt::format("did you mean $({})?", known);
            }
        }
        site.reportRight(Check::UnsetVariable, span, std::move(message), std::move(hint));
    }

    void write(const Site& site, Stage stage, const LVTempVar& target, Set& set)
    {
        const Expression& root = *site.line.expression;
        if (isNull(root)) {
            set.erase(target.name);
            return;
        }
        current_.try_emplace(target.name, &site.line);
        const auto [held, isFirst] = set.try_emplace(target.name, &site.line);
        if (isFirst) {
            if (outlives(target.name)) reportEarlierMapping(site, stage, target.name);
            return;
        }
        const Expression& earlier = *held->second->expression;
        if (!showsNull(earlier)) {
            reportSecond(site, target.name, fmt::format("line {}", held->second->line), isNeverNull(earlier));
        } else {
            held->second = &site.line;
        }
    }

    void reportEarlierMapping(const Site& site, Stage stage, const std::string& name) const
    {
        for (const Use& use : all_.at(name).writes) {
            if (!comesBefore(use.stage, stage) || showsNull(*use.line->expression)) continue;
            reportSecond(site, name, placeOf(use), isNeverNull(*use.line->expression));
            return;
        }
    }

    void reportSecond(const Site& site, const std::string& name, const std::string& where, bool isCertain) const
    {
        site.report(Check::SecondWrite, {0, site.line.equals},
                    isCertain ? fmt::format("this has no effect: {} sets $({}), and the first write wins", where, name)
                              : fmt::format("this has no effect unless {} comes to NULL: the first write wins", where),
                    fmt::format("put $({})=NULL() in front to set it anew", name));
    }

    void reportUnused(const RuleFile& file, const RuleLine& line, const std::string& name)
    {
        if (outlives(name)) unused_.push_back({&file, &line});
        else
            findings_.add(
                {Check::UnusedVariable, &file, &line, {0, line.equals}, fmt::format("nothing reads $({})", name), ""});
    }

    // Variables that outlive their mapping may be read in another file of the folder.
    void reportUnused()
    {
        if (hasAnyComputedReads_) return;
        for (const auto& [file, line] : unused_) {
            const std::string& name = dynamic_cast<const LVTempVar&>(*line->target).name;
            const bool isAlone = stages_[static_cast<std::size_t>(file - files_.data())] == Stage::Alone;
            if (isAlone || readAnywhere_.contains(name)) continue;
            findings_.add(
                {Check::UnusedVariable, file, line, {0, line->equals}, fmt::format("nothing reads $({})", name), ""});
        }
    }

    std::span<const RuleFile> files_;
    std::span<const Stage> stages_;
    Findings& findings_;
    Variables all_;
    std::map<std::string, const RuleLine*> current_; // of the file at hand: written, and not read yet
    std::vector<std::pair<const RuleFile*, const RuleLine*>> unused_;
    std::set<std::string> readAnywhere_;
    bool hasComputedReads_ = false;
    bool hasAnyComputedReads_ = false;
};

} // namespace

void lintVariables(std::span<const RuleFile> files, std::span<const Stage> stages, Findings& findings)
{
    VariableCheck(files, stages, findings).run();
}

} // namespace kxtool
