// SPDX-License-Identifier: BSD-3-Clause
// Rules, applied one by one in the engine's order by the engine's own parts, and compares the target before and after.
#include "tool/record/recorder.h"

#include "KXItem.h"
#include "tool/console/text.h"
#include "tool/rules/heldvalue.h"
#include "tool/rules/messagetap.h"

#include <dcmtk/dcmdata/dcsequen.h>

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <set>
#include <stdexcept>

namespace kxtool {
namespace {

/// @return what an element shows in which rules see no text; empty for other values.
std::string unseenIn(const HeldValue& value)
{
    DcmElement* element = value.element();
    return element == nullptr || hasText(*element) ? "" : shownText(*element);
}

/// @return the name of a path through items, and in `topLevel` where it begins.
std::string pathName(const std::list<int>& path, DcmTagKey& topLevel)
{
    std::string name;
    auto entry = path.begin();
    const auto nextKey = [&entry] {
        const auto group = static_cast<Uint16>(*entry++);
        return DcmTagKey(group, static_cast<Uint16>(*entry++));
    };
    for (std::size_t left = path.size(); left > 2; left -= 3) {
        const DcmTagKey key = nextKey();
        if (name.empty()) topLevel = key;
        name += fmt::format("{}[{}].", keyText(key), std::max(*entry++, 0));
    }
    const DcmTagKey key = nextKey();
    if (name.empty()) topLevel = key;
    return name + keyText(key);
}

} // namespace

const char* effectName(Effect effect)
{
    constexpr const char* kNames[] = {"set",     "created",      "deleted",  "was absent", "skipped as unknown",
                                      "refused", "no such item", "no change"};
    return kNames[static_cast<std::size_t>(effect)];
}

/// A target in one session: how to find what stands there.
class Recording::Target {
public:
    Target(LVObject& target, MappingSession& session) : session_(session)
    {
        if (const auto* field = dynamic_cast<LVCustomField*>(&target)) {
            place.kind = Place::Kind::CustomField;
            name_ = field->name;
            place.name = "USER(" + name_ + ")";
        } else if (const auto* variable = dynamic_cast<LVTempVar*>(&target)) {
            place.kind = Place::Kind::Variable;
            name_ = variable->name;
            place.name = "$(" + name_ + ")";
        } else if (const auto* tag = dynamic_cast<LVDicomTag*>(&target)) {
            if (const auto* nested = dynamic_cast<LVSeqDicomTag*>(&target)) path_ = nested->path;
            else path_ = {tag->tag.getGroup(), tag->tag.getElement()};
            place.tag = tag->tag;
            place.name = pathName(path_, place.topLevel);
        }
    }

    bool isElement() const { return place.kind == Place::Kind::Element; }

    DcmItem* item() const
    {
        std::list<int> rest(path_);
        return getParentItem(rest, session_.dataset);
    }

    DcmElement* element() const { return elementOf(item(), place.tag); }

    /// @param topLevel the dataset's element that holds it, or the element itself; null where there is none.
    /// @return what stands at this place in it; null for nothing.
    DcmElement* elementIn(DcmElement* topLevel) const
    {
        if (topLevel == nullptr || path_.size() == 2) return topLevel;
        if (topLevel->ident() != EVR_SQ) return nullptr;
        auto& sequence = static_cast<DcmSequenceOfItems&>(*topLevel);
        std::list<int> rest(std::next(path_.begin(), 2), path_.end());
        const auto index = static_cast<unsigned long>(std::max(rest.front(), 0));
        rest.pop_front();
        return index < sequence.card() ? elementOf(getParentItem(rest, sequence.getItem(index)), place.tag) : nullptr;
    }

    /// @return whether the tag is one that the engine can make: of the dictionary, or of the server's block.
    bool isOfOurBlock() const
    {
        if (!isElement() || !KXItem::isOurPrivateTagKey(place.tag)) return false;
        const std::unique_ptr<DcmElement> made(KXItem::createNewDicomElement(place.tag));
        return made && made->getTag().getEVR() != EVR_UNKNOWN;
    }

    /// @return the text of what stands there; none when nothing does.
    std::optional<std::string> text() const
    {
        if (isElement()) {
            DcmElement* found = element();
            return found == nullptr ? std::nullopt : std::optional(shownText(*found));
        }
        const char* found = place.kind == Place::Kind::CustomField ? session_.customFields.getFieldValue(name_.c_str())
                                                                   : session_.getVariable(name_.c_str());
        return found == nullptr ? std::nullopt : std::optional<std::string>(found);
    }

    /// @return the private creator that the engine puts beside an element of the server's block; none for other targets.
    std::optional<Target> creator() const
    {
        if (!isElement() || !KXItem::isOurPrivateTagKey(place.tag)) return std::nullopt;
        Target other(*this);
        other.path_.back() = KXItem::kCreatorElement;
        other.place.tag.setElement(KXItem::kCreatorElement);
        other.place.name = pathName(other.path_, other.place.topLevel);
        return other;
    }

    Place place;

private:
    MappingSession& session_;
    std::list<int> path_;
    std::string name_;
};

/// A place that a rule has written, as it was before the first rule of all.
struct Recording::Tracked {
    Target target;
    DcmElement* element; // one of originals_, or in one
    std::optional<std::string> text;
    std::string vr;
    std::vector<std::size_t> steps;
};

Recording::Recording() = default;
Recording::~Recording() = default;
Recording::Recording(Recording&&) noexcept = default;
Recording& Recording::operator=(Recording&&) noexcept = default;

void Recording::begin(MappingSession& session)
{
    *this = {};
    session_ = &session;
}

void Recording::run(const RulesInOrder& files, MappingSession& session)
{
    begin(session);
    MessageTap tap;
    for (const RuleFile* file : files) {
        session.variables.clear(); // as the engine does when a mapping begins
        for (const RuleLine& rule : file->lines) {
            if (rule.kind == RuleLine::Kind::Rule) apply(*file, rule, tap);
        }
    }
}

void Recording::apply(const RuleFile& file, const RuleLine& rule)
{
    MessageTap tap;
    apply(file, rule, tap);
}

void Recording::apply(const RuleFile& file, const RuleLine& rule, MessageTap& tap)
{
    if (!failure_.empty()) return;
    const Target target(*rule.target, *session_);
    const std::optional<Target> creator = target.creator();
    Before before = lookAt(target);
    Before creatorBefore = creator ? lookAt(*creator) : Before{};
    Step step;
    step.file = &file;
    step.rule = &rule;
    step.number = steps_.size();
    step.place = target.place;
    step.before = before.text;
    execute(step, tap);
    lookAfter(step, target, before.element.get());
    const bool isChanged = step.effect <= Effect::Deleted;
    steps_.push_back(std::move(step));
    if (isChanged) keep(target, std::move(before));
    if (isChanged && creator && !isSameElement(creatorBefore.element.get(), creator->element()))
        keep(*creator, std::move(creatorBefore));
}

void Recording::execute(Step& step, MessageTap& tap)
{
    const RuleLine& rule = *step.rule;
    if (hasCaseFunction(*rule.expression)) {
        step.recased = recasedTexts(*rule.expression, *session_);
        std::ignore = tap.take(); // applying the rule reports it again
    }
    try {
        evaluateAndAssign(rule, step);
    } catch (const std::logic_error& error) {
        step.failure = failure_ = error.what();
    }
    step.messages = tap.take();
}

void Recording::lookAfter(Step& step, const Target& target, DcmElement* before)
{
    step.after = target.text();
    DcmElement* after = target.isElement() ? target.element() : nullptr;
    if (const DcmElement* shown = after != nullptr ? after : before) step.vr = vrOf(*shown);
    step.effect = effectOf(target, step, isSameElement(before, after));
}

void Recording::evaluateAndAssign(const RuleLine& rule, Step& step)
{
    const HeldValue value(rule.expression->getValue(*session_));
    const bool isCopy = step.place.kind == Place::Kind::Element && value.element() != nullptr;
    step.value = isCopy ? shownText(*value.element()) : value.text();
    step.unseen = unseenIn(value);
    rule.target->assignValue(*session_, value.get());
}

Evaluation evaluate(Expression& expression, MappingSession& session)
{
    Evaluation evaluation;
    MessageTap tap;
    try {
        const HeldValue value(expression.getValue(session));
        evaluation.value = value.text();
        evaluation.unseen = unseenIn(value);
    } catch (const std::logic_error& error) {
        evaluation.failure = error.what();
    }
    evaluation.messages = tap.take();
    return evaluation;
}

Recording::Before Recording::lookAt(const Target& target) const
{
    Before before;
    before.text = target.text();
    if (!target.isElement()) return before;
    before.element = copyOf(target.element());
    const DcmTagKey& top = target.place.topLevel;
    if (!originals_.contains(top)) before.original = copyOf(elementOf(session_->dataset, top));
    return before;
}

Effect Recording::effectOf(const Target& target, const Step& step, bool isUntouched)
{
    if (!step.failure.empty()) return Effect::NoChange;
    if (target.isElement() && target.item() == nullptr) return Effect::NoItem;
    if (!step.value) {
        if (!step.before) return Effect::WasAbsent;
        return step.after ? Effect::NoChange : Effect::Deleted;
    }
    if (!step.before && !step.after) return target.isOfOurBlock() ? Effect::Refused : Effect::Unknown;
    if (!step.before) return Effect::Created;
    const bool isUnchanged = target.isElement() ? isUntouched : step.before == step.after;
    return isUnchanged ? Effect::NoChange : Effect::Set;
}

void Recording::keep(const Target& target, Before before)
{
    const Place& place = target.place;
    if (target.isElement()) originals_.try_emplace(place.topLevel, std::move(before.original));
    auto found = tracked_.find(place);
    if (found == tracked_.end()) {
        Tracked tracked{target, nullptr, std::move(before.text), {}, {}};
        if (target.isElement()) {
            // An earlier rule may have put another sequence around it: what that holds was not there before.
            tracked.element = target.elementIn(originals_.at(place.topLevel).get());
            tracked.text = tracked.element ? std::optional(shownText(*tracked.element)) : std::nullopt;
            tracked.vr = tracked.element ? vrOf(*tracked.element) : "";
        }
        found = tracked_.emplace(place, std::move(tracked)).first;
    }
    found->second.steps.push_back(steps_.size() - 1);
    touched_.emplace_back(steps_.size() - 1, place);
}

// Those that wrote it, and later ones that wrote a sequence around it.
std::vector<std::size_t> Recording::stepsOf(const Place& place, const Tracked& tracked) const
{
    std::vector<std::size_t> steps = tracked.steps;
    for (std::size_t at = place.name.find('['); at != std::string::npos; at = place.name.find('[', at + 1)) {
        const auto around = tracked_.find({place.kind, place.name.substr(0, at), {}, {}});
        if (around == tracked_.end()) continue;
        std::ranges::copy_if(around->second.steps, std::back_inserter(steps),
                             [&tracked](std::size_t step) { return step > tracked.steps.front(); });
    }
    std::ranges::sort(steps);
    return steps;
}

std::optional<Change> Recording::changeAt(const Place& place) const
{
    const Tracked& tracked = tracked_.at(place);
    Change change{place, tracked.vr, tracked.text, {}, {}};
    if (tracked.target.isElement()) {
        const auto now = readBack(tracked.target.element(), session_->dataset->getOriginalXfer());
        if (isSameElement(tracked.element, now.get())) return std::nullopt;
        if (now) change.vr = vrOf(*now);
        if (now) change.after = shownText(*now);
    } else {
        change.after = tracked.target.text();
        if (change.before == change.after) return std::nullopt;
    }
    for (const std::size_t step : stepsOf(place, tracked)) change.steps.push_back(&steps_[step]);
    return change;
}

std::vector<Change> Recording::changes(std::size_t begin) const
{
    std::set<Place> places;
    const auto first = std::ranges::lower_bound(touched_, begin, {}, &std::pair<std::size_t, Place>::first);
    for (auto touch = first; touch != touched_.end(); ++touch) places.insert(touch->second);
    std::vector<Change> changes;
    for (const Place& place : places) {
        if (auto change = changeAt(place)) changes.push_back(std::move(*change));
    }
    return changes;
}

} // namespace kxtool
