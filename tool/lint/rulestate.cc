// SPDX-License-Identifier: BSD-3-Clause
#include "tool/lint/rulestate.h"

#include "tool/lint/vrtext.h"
#include "tool/rules/builtins.h"

#include <algorithm>

namespace kxtool {
namespace {

using Presence = Known::Presence;

constexpr int kMostSteps = 8; // of variables that were set to variables

/// What a reader finds in an element that a value was written to.
Known asElement(const DcmTagKey& key, const Known& value, const Known& untouched)
{
    if (value.isNever()) return value;
    const DcmEVR vr = vrOf(key);
    Known known = untouched.with(value.presence);
    if (vr == EVR_UNKNOWN) return known.with(Presence::Perhaps); // it is made by nobody
    const auto isPadded = [](const std::string& text) { return text.ends_with(' '); };
    if (isTextless(vr) || std::ranges::any_of(textsOf(value), isPadded)) return known;
    if (textsOf(value).empty() && value.may.test(' ')) { // padding is no part of a text
        known.may = value.may;
        known.usual.may = value.usual.may & untouched.usual.may;
        known.isNot = value.isNot;
        return known;
    }
    known = value;
    known.usual.vr = vr;
    return known;
}

bool isPlain(const std::string& name)
{
    return !name.starts_with('@');
}

} // namespace

TagPath pathOf(const LVObject& target)
{
    const auto* tag = dynamic_cast<const LVDicomTag*>(&target);
    if (tag == nullptr) return {};
    const auto* path = dynamic_cast<const LVSeqDicomTag*>(tag);
    if (path != nullptr) return {path->path.begin(), path->path.end()};
    return {tag->tag.getGroup(), tag->tag.getElement()};
}

bool isWithin(const TagPath& inner, const TagPath& outer)
{
    return inner.size() >= outer.size() && std::equal(outer.begin(), outer.end(), inner.begin());
}

Known RuleState::element(const std::vector<int>& path) const
{
    if (path.size() < 2) return {};
    if (const auto found = written_.find(path); found != written_.end()) return found->second.first;
    if (path.size() > 2 && isDeleted(path)) return Known::never();
    return untouched(tagOf(path));
}

const Known& RuleState::untouched(const DcmTagKey& key) const
{
    const std::uint32_t number = (std::uint32_t{key.getGroup()} << 16U) | key.getElement();
    const auto [entry, isNew] = untouched_.try_emplace(number);
    if (isNew) entry->second = knownElement(key);
    return entry->second;
}

bool RuleState::isDeleted(const TagPath& path) const
{
    for (std::size_t size = 2; size <= path.size(); size += 3) {
        const auto found = written_.find(TagPath(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size)));
        if (found != written_.end()) return found->second.first.isNever();
    }
    return false;
}

Known RuleState::variable(const std::string& name) const
{
    const auto found = variables_.find(name);
    return found == variables_.end() ? Known() : found->second.known;
}

Known RuleState::field(const std::string& name) const
{
    const auto found = fields_.find(name);
    return found == fields_.end() ? Known() : found->second;
}

const Expression* RuleState::definition(const std::string& name) const
{
    const auto found = variables_.find(name);
    if (found == variables_.end() || found->second.definition == nullptr) return nullptr;
    return isAsItWas(*found->second.definition, found->second.since, 0) ? found->second.definition : nullptr;
}

bool RuleState::isWrittenSince(const TagPath& path, std::size_t since) const
{
    for (std::size_t size = 2; size < path.size(); size += 3) {
        const auto outer = written_.find(TagPath(path.begin(), path.begin() + static_cast<std::ptrdiff_t>(size)));
        if (outer != written_.end() && outer->second.second > since) return true;
    }
    for (auto inner = written_.lower_bound(path); inner != written_.end() && isWithin(inner->first, path); ++inner) {
        if (inner->second.second > since) return true;
    }
    return false;
}

bool RuleState::isAsItWas(const Expression& node, std::size_t since, int depth) const
{
    const Way way = wayOf(node);
    if (node.func != nullptr && (way == Way::Tag || way == Way::Path)) {
        const auto path = pathOf(node);
        return path && !isWrittenSince(*path, since);
    }
    if (way == Way::Variable || way == Way::Field || way == Way::Drawn || depth > kMostSteps) return false;
    return std::ranges::all_of(node.params, [&](const Expression* one) { return isAsItWas(*one, since, depth); });
}

void RuleState::apply(const RuleLine& rule, const TagPath& path, const Known& value)
{
    ++writes_;
    if (path.size() >= 2) {
        const DcmTagKey key = tagOf(path);
        Known known = asElement(key, value, untouched(key));
        if (path.size() > 2 && !known.isNever()) known.presence = Presence::Perhaps; // where the item is there
        write(path, std::move(known));
    } else if (const auto* variable = dynamic_cast<const LVTempVar*>(rule.target.get())) {
        set(variable->name, *rule.expression, value);
    } else if (const auto* field = dynamic_cast<const LVCustomField*>(rule.target.get())) {
        fields_[field->name] = value;
    }
}

void RuleState::write(const TagPath& path, Known value)
{
    hasPaths_ = hasPaths_ || path.size() > 2;
    if (hasPaths_) { // what lies in it went with it
        auto inner = written_.upper_bound(path);
        while (inner != written_.end() && isWithin(inner->first, path)) inner = written_.erase(inner);
    }
    written_[path] = {std::move(value), writes_};
}

// The first write wins, and NULL clears.
void RuleState::set(const std::string& name, const Expression& expression, const Known& value)
{
    const auto found = variables_.find(name);
    if (value.isNever()) {
        if (found != variables_.end()) variables_.erase(found);
        if (!isPlain(name)) variables_.insert_or_assign(name, Variable{value, nullptr, writes_});
        return;
    }
    const bool isUnset = found == variables_.end() ? isPlain(name) : found->second.known.isNever();
    if (isUnset) {
        variables_.insert_or_assign(name, Variable{value, &expression, writes_});
        return;
    }
    const Known before = found == variables_.end() ? Known() : found->second.known;
    if (before.isAlways() && value.isAlways()) return;
    Known known = either(before, value);
    known.presence = value.isAlways() ? Presence::Always : Presence::Perhaps;
    variables_.insert_or_assign(name, Variable{std::move(known), nullptr, writes_});
}

void RuleState::endMapping()
{
    std::erase_if(variables_, [](const auto& entry) { return isPlain(entry.first); });
}

void RuleState::forget(const RuleFile& file)
{
    for (const RuleLine& line : file.lines) {
        if (line.kind != RuleLine::Kind::Rule) continue;
        ++writes_;
        if (const auto* variable = dynamic_cast<const LVTempVar*>(line.target.get())) {
            variables_.insert_or_assign(variable->name, Variable{{}, nullptr, writes_});
        } else if (const auto* field = dynamic_cast<const LVCustomField*>(line.target.get())) {
            fields_.insert_or_assign(field->name, Known());
        } else if (const TagPath path = pathOf(*line.target); path.size() >= 2) {
            write(path, knownElement(tagOf(path)));
        }
    }
}

} // namespace kxtool
