// SPDX-License-Identifier: BSD-3-Clause
// Rule after rule, with what the ones before have made: within a file, and across those that are applied one after another.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unordered_map>

namespace kxtool {
namespace {

using Writes = std::map<TagPath, const RuleLine*>;

/// Writes that the rules behind them have not read yet.
class Unread {
public:
    void read(const Expression& node)
    {
        if (node.func != nullptr && (wayOf(node) == Way::Tag || wayOf(node) == Way::Path)) {
            const auto path = pathOf(node);
            if (path) forgetRead(*path);
            else writes_.clear();
            if (!path) isAllRead_ = true;
        } else if (node.func != nullptr && wayOf(node) == Way::Field) {
            if (isLiteral(*node.params.front())) fields_.erase(std::string(literalOf(*node.params.front())));
            else fields_.clear();
        }
        for (const Expression* argument : node.params) read(*argument);
    }

    /// @return the lines whose writes come to nothing by another one.
    std::vector<const RuleLine*> write(const RuleLine& line, const TagPath& path, bool isCleared)
    {
        std::vector<const RuleLine*> before;
        for (auto inner = writes_.lower_bound(path); inner != writes_.end() && isWithin(inner->first, path); ++inner)
            before.push_back(inner->second);
        forget(path);
        if (!isCleared) writes_[path] = &line;
        if (!isAllRead_ && !read_.contains(path)) fresh_.emplace(path, &line);
        return before;
    }

    /// @return the same for a custom field.
    const RuleLine* writeField(const RuleLine& line, const std::string& name, bool isCleared)
    {
        const auto found = fields_.find(name);
        const RuleLine* before = found == fields_.end() ? nullptr : found->second;
        if (isCleared) fields_.erase(name);
        else fields_[name] = &line;
        return before;
    }

    /// @return what no rule has read to the end.
    const Writes& left() const { return writes_; }
    /// @return what was written, and not read before that.
    const Writes& fresh() const { return fresh_; }

private:
    void forgetRead(const TagPath& path)
    {
        read_.insert(path);
        forget(path);
    }

    void forget(const TagPath& path)
    {
        for (std::size_t size = 2; size < path.size(); size += 3)
            writes_.erase(TagPath(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size)));
        auto inner = writes_.lower_bound(path);
        while (inner != writes_.end() && isWithin(inner->first, path)) inner = writes_.erase(inner);
    }

    Writes writes_;
    Writes fresh_;
    std::set<TagPath> read_;
    std::unordered_map<std::string, const RuleLine*> fields_;
    bool isAllRead_ = false; ///< by a path that is computed
};

void lintOverwritten(const Site& site, Unread& unread, const TagPath& path, const Known& value)
{
    unread.read(*site.line.expression);
    const bool isCleared = value.isNever() || (value.text && value.text->empty());
    std::vector<const RuleLine*> overwritten;
    if (!path.empty()) {
        overwritten = unread.write(site.line, path, isCleared);
    } else if (const auto* field = dynamic_cast<const LVCustomField*>(site.line.target.get())) {
        if (const RuleLine* before = unread.writeField(site.line, field->name, isCleared)) overwritten = {before};
    }
    for (const RuleLine* before : overwritten)
        site.findings.add(
            {Check::Overwritten,
             &site.file,
             before,
             {0, before->equals},
             fmt::format("this has no effect: line {} writes {}, and nothing reads it before", site.line.line,
                         pathOf(*before->target) == path ? "the same" : "what it lies in"),
             ""});
}

/// Rules that have nothing left to do, since an earlier one has done the same.
class Repeated {
public:
    void look(const RuleView& view)
    {
        if (view.target.empty()) return;
        const Expression& root = unwrapped(view.root());
        if (const auto source = pathOf(root); source && isCopyOf(view, *source)) {
            view.site.report(Check::NoEffect, {0, view.site.line.equals},
                             "an earlier rule has copied this very element there: nothing changes",
                             "keep one of them in a variable to let both change places");
        } else if (isSameAgain(view)) {
            view.site.report(
                Check::NoEffect, {0, view.site.line.equals},
                fmt::format("line {} does the same already: nothing changes", last_.at(view.target).line->line));
        }
        last_[view.target] = {&view.site.line, view.state.writes() + 1};
    }

private:
    struct Write {
        const RuleLine* line;
        std::size_t number;
    };

    /// @return whether an element holds what was read from the target, and neither has changed.
    bool isCopyOf(const RuleView& view, const TagPath& source) const
    {
        const auto found = last_.find(source);
        return found != last_.end() && source != view.target &&
               pathOf(unwrapped(*found->second.line->expression)) == view.target &&
               !view.state.isWrittenSince(source, found->second.number) &&
               !view.state.isWrittenSince(view.target, found->second.number) &&
               vrOf(tagOf(source)) == vrOf(tagOf(view.target));
    }

    bool isSameAgain(const RuleView& view) const
    {
        const auto found = last_.find(view.target);
        return found != last_.end() && isSame(view.root(), *found->second.line->expression) &&
               readsItself(view.root(), view.target) && isDone(view.root(), view.target) &&
               isUnchanged(view, view.root(), found->second.number);
    }

    static bool readsItself(const Expression& node, const TagPath& target)
    {
        return pathOf(node) == target ||
               std::ranges::any_of(node.params, [&](const auto* one) { return readsItself(*one, target); });
    }

    /// @return whether a value that has gone through once comes out of the second time as it is.
    static bool isDone(const Expression& node, const TagPath& target)
    {
        const Expression& inner = unwrapped(node);
        if (isLiteral(inner) || pathOf(inner) == target) return true;
        const Way way = wayOf(inner);
        if (way == Way::Recased) return pathOf(unwrapped(*inner.params.front())) == target;
        if (way == Way::Choice) return isDone(argumentOf(inner, 1), target) && isDone(argumentOf(inner, 2), target);
        return way == Way::FirstPresent &&
               std::ranges::all_of(inner.params, [&](const auto* one) { return isDone(*one, target); });
    }

    static bool isUnchanged(const RuleView& view, const Expression& node, std::size_t since)
    {
        if (isLiteral(node)) return true;
        if (const auto path = pathOf(node)) return !view.state.isWrittenSince(*path, since);
        const Way way = wayOf(node);
        if (way == Way::Tag || way == Way::Path || way == Way::Variable || way == Way::Field || way == Way::Drawn)
            return false;
        return std::ranges::all_of(node.params, [&](const auto* one) { return isUnchanged(view, *one, since); });
    }

    std::map<TagPath, Write> last_;
};

/// What a file of a title leaves to "post".
struct Left {
    const RuleFile* file;
    Writes writes;
};

void lintLeft(const Left& left, const RuleFile& post, const Writes& fresh, Findings& findings)
{
    for (const auto& [path, line] : left.writes) {
        const auto found = fresh.find(path);
        if (found == fresh.end()) continue;
        findings.add({Check::Overwritten,
                      left.file,
                      line,
                      {0, line->equals},
                      fmt::format("this has no effect: {}:{} writes the same, and nothing reads it before",
                                  post.path.native(), found->second->line),
                      ""});
    }
}

/// Looks at the rules of a file. @param state what is known before it; afterwards, after it.
Unread lintRules(const RuleFile& file, RuleState& state, Findings& findings)
{
    const WrittenPaths written(file);
    Unread unread;
    Repeated repeated;
    for (const RuleLine& line : file.lines) {
        if (line.kind != RuleLine::Kind::Rule || line.text.starts_with('#')) continue;
        const Site site{file, line, findings};
        const Knowledge knowledge(*line.expression, state);
        const RuleView view{site, knowledge, state, written, pathOf(*line.target)};
        lintWrite(view, lintMeaning(view));
        repeated.look(view);
        lintOverwritten(site, unread, view.target, knowledge.of(*line.expression));
        state.apply(line, view.target, knowledge.of(*line.expression));
    }
    state.endMapping();
    return unread;
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
    std::vector<Left> left;
    std::vector<Left> outboundLeft;
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
            const Unread unread = lintRules(files[i], state, findings);
            if (stage == Stage::Title) left.push_back({&files[i], unread.left()});
            if (stage == Stage::OutboundTitle) outboundLeft.push_back({&files[i], unread.left()});
            if (stage != Stage::Post && stage != Stage::OutboundPost) continue;
            for (const Left& one : stage == Stage::Post ? left : outboundLeft)
                lintLeft(one, files[i], unread.fresh(), findings);
        }
        for (std::size_t i = 0; i < files.size(); ++i) {
            if (stages[i] != stage) continue;
            if (stage == Stage::Title) inbound.forget(files[i]);
            if (stage == Stage::OutboundTitle) outbound.forget(files[i]);
        }
    }
}

} // namespace kxtool
