// SPDX-License-Identifier: BSD-3-Clause
// Rule after rule, with what the ones before have made: within a file, and across those that are applied one after another.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace kxtool {
namespace {

/// Writes that the rules behind them have not read yet.
class Unread {
public:
    void read(const Expression& node)
    {
        if (writes_.empty()) return;
        if (node.func != nullptr && (wayOf(node) == Way::Tag || wayOf(node) == Way::Path)) {
            const auto path = pathOf(node);
            if (path) forget(*path);
            else writes_.clear();
        }
        for (const Expression* argument : node.params) read(*argument);
    }

    /// @return the line whose write comes to nothing by another one; null for none.
    const RuleLine* write(const RuleLine& line, const TagPath& path, bool isCleared)
    {
        const auto found = writes_.find(path);
        const RuleLine* before = found == writes_.end() ? nullptr : found->second;
        forget(path);
        if (!isCleared) writes_[path] = &line;
        return before;
    }

private:
    void forget(const TagPath& path)
    {
        for (std::size_t size = 2; size < path.size(); size += 3)
            writes_.erase(TagPath(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size)));
        auto inner = writes_.lower_bound(path);
        while (inner != writes_.end() && isWithin(inner->first, path)) inner = writes_.erase(inner);
    }

    std::map<TagPath, const RuleLine*> writes_;
};

void lintOverwritten(const Site& site, Unread& unread, const TagPath& path, const Known& value)
{
    unread.read(*site.line.expression);
    if (path.empty()) return;
    const bool isCleared = value.isNever() || (value.text && value.text->empty());
    const RuleLine* before = unread.write(site.line, path, isCleared);
    if (before == nullptr) return;
    const Site there{site.file, *before, site.findings};
    there.report(
        Check::Overwritten, {0, before->equals},
        fmt::format("this has no effect: line {} writes the same, and nothing reads it before", site.line.line));
}

/// Looks at the rules of a file. @param state what is known before it; afterwards, after it.
void lintRules(const RuleFile& file, RuleState& state, Findings& findings)
{
    const WrittenPaths written(file);
    Unread unread;
    for (const RuleLine& line : file.lines) {
        if (line.kind != RuleLine::Kind::Rule || line.text.starts_with('#')) continue;
        const Site site{file, line, findings};
        const Knowledge knowledge(*line.expression, state);
        const RuleView view{site, knowledge, state, written, pathOf(*line.target)};
        lintWrite(view, lintMeaning(view));
        lintOverwritten(site, unread, view.target, knowledge.of(*line.expression));
        state.apply(line, view.target, knowledge.of(*line.expression));
    }
    state.endMapping();
}

} // namespace

bool WrittenPaths::contains(const TagPath& path) const
{
    if (!paths_) {
        paths_.emplace();
        for (const RuleLine& line : file_.lines) {
            if (line.kind == RuleLine::Kind::Rule) paths_->insert(pathOf(*line.target));
        }
    }
    return paths_->contains(path);
}

void lintRightSide(const Site& site)
{
    lintLiterals(site);
    const RuleState nothing;
    const WrittenPaths none(site.file);
    const Knowledge knowledge(*site.line.expression, nothing);
    const RuleView view{site, knowledge, nothing, none, {}};
    for (const kxmap::NodeSpan& node : site.line.trace.nodes) {
        if (node.kind == kxmap::NodeSpan::Kind::Call) lintLiteralArguments(view, *node.node);
    }
    lintLiteralArguments(view, *site.line.expression);
}

void lintFlow(std::span<const RuleFile> files, std::span<const Stage> stages, Findings& findings)
{
    RuleState inbound;
    RuleState outbound;
    const auto stateBefore = [&](Stage stage) -> RuleState* {
        if (stage == Stage::Title || stage == Stage::Post) return &inbound;
        return stage == Stage::OutboundTitle || stage == Stage::OutboundPost ? &outbound : nullptr;
    };
    // Each mapping of a title follows "pre", and is followed by "post", which may follow any of them.
    constexpr Stage kOrder[] = {Stage::Alone,         Stage::Pre,  Stage::OutboundPre, Stage::Title,
                                Stage::OutboundTitle, Stage::Post, Stage::OutboundPost};
    for (const Stage stage : kOrder) {
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (stages[i] != stage) continue;
            if (stage == Stage::Pre || stage == Stage::OutboundPre) {
                lintRules(files[i], stage == Stage::Pre ? inbound : outbound, findings);
                continue;
            }
            RuleState* before = stateBefore(stage);
            RuleState state = before == nullptr ? RuleState() : *before;
            lintRules(files[i], state, findings);
        }
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (stages[i] != stage) continue;
            if (stage == Stage::Title) inbound.forget(files[i]);
            if (stage == Stage::OutboundTitle) outbound.forget(files[i]);
        }
    }
}

} // namespace kxtool
