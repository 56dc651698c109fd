// SPDX-License-Identifier: BSD-3-Clause
// Rules, applied one by one in the engine's order by the engine's own parts, with a look at the target before and after.
#include "tool/recorder.h"

#include "KXItem.h"
#include "tool/messagetap.h"

#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcvrobow.h>

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <string_view>

namespace kxtool {
namespace {

std::string keyText(const DcmTagKey& key)
{
    return fmt::format("({:04x},{:04x})", key.getGroup(), key.getElement());
}

bool isBinary(DcmEVR vr)
{
    switch (vr) {
    case EVR_OB:
    case EVR_OD:
    case EVR_OF:
    case EVR_OL:
    case EVR_OV:
    case EVR_OW:
    case EVR_ox:
    case EVR_px:
    case EVR_UN:
    case EVR_UNKNOWN:
    case EVR_UNKNOWN2B:
    case EVR_PixelData:
    case EVR_OverlayData:
        return true;
    default:
        return false;
    }
}

/// @return the element's text, numbers included; what is neither, in words.
std::string shownText(DcmElement& element)
{
    if (element.ident() == EVR_SQ) {
        const unsigned long count = static_cast<DcmSequenceOfItems&>(element).card();
        return fmt::format("<{} item{}>", count, count == 1 ? "" : "s");
    }
    if (isBinary(element.ident())) return fmt::format("<{} bytes>", element.getLengthField());
    if (char* text = nullptr; element.getString(text).good()) return text == nullptr ? "" : text;
    OFString numbers;
    return element.getOFStringArray(numbers).good() ? numbers.c_str() : "";
}

DcmElement* elementOf(DcmItem* item, const DcmTagKey& key)
{
    DcmElement* element = nullptr;
    if (item == nullptr || item->findAndGetElement(key, element).bad()) return nullptr;
    return element;
}

/// @return the standard's name of the element's VR.
std::string vrOf(const DcmElement& element)
{
    return DcmVR(element.getTag().getEVR()).getValidVRName();
}

std::unique_ptr<DcmElement> copyOf(DcmElement* element)
{
    return std::unique_ptr<DcmElement>(element == nullptr ? nullptr : static_cast<DcmElement*>(element->clone()));
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

namespace {

bool isSameItem(DcmItem& a, DcmItem& b)
{
    if (a.card() != b.card()) return false;
    for (unsigned long i = 0; i < a.card(); ++i) {
        if (a.getElement(i)->getTag() != b.getElement(i)->getTag()) return false;
        if (!isSameElement(a.getElement(i), b.getElement(i))) return false;
    }
    return true;
}

bool isSameSequence(DcmSequenceOfItems& a, DcmSequenceOfItems& b)
{
    if (a.card() != b.card()) return false;
    for (unsigned long i = 0; i < a.card(); ++i) {
        if (!isSameItem(*a.getItem(i), *b.getItem(i))) return false;
    }
    return true;
}

} // namespace

bool isSameElement(DcmElement* a, DcmElement* b)
{
    if (a == nullptr || b == nullptr) return a == b;
    if (a->ident() != b->ident()) return false;
    if (a->ident() == EVR_SQ)
        return isSameSequence(static_cast<DcmSequenceOfItems&>(*a), static_cast<DcmSequenceOfItems&>(*b));
    if (!a->isaString()) return a->compare(*b) == 0;
    char* textA = nullptr;
    char* textB = nullptr;
    if (a->getString(textA).bad() || b->getString(textB).bad()) return a->compare(*b) == 0;
    return std::string_view(textA == nullptr ? "" : textA) == std::string_view(textB == nullptr ? "" : textB);
}

const char* effectName(Effect effect)
{
    constexpr const char* kNames[] = {"set",          "created",  "deleted", "was absent", "skipped as unknown",
                                      "no such item", "no change"};
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

/// A place that a rule has written, as it was before the first of them.
struct Recording::Tracked {
    Target target;
    std::unique_ptr<DcmElement> element;
    std::optional<std::string> text;
    std::string vr;
    std::vector<std::size_t> steps;
};

Recording::Recording() = default;
Recording::~Recording() = default;
Recording::Recording(Recording&&) noexcept = default;
Recording& Recording::operator=(Recording&&) noexcept = default;

void Recording::run(const RulesInOrder& files, MappingSession& session, bool keepsOriginals)
{
    session_ = &session;
    keepsOriginals_ = keepsOriginals;
    MessageTap tap;
    for (const RuleFile* file : files) {
        session.variables.clear(); // as the engine does when a mapping begins
        for (const RuleLine& rule : file->lines) {
            if (rule.kind == RuleLine::Kind::Rule && failure_.empty()) apply(*file, rule, tap);
        }
    }
    collectChanges();
}

void Recording::apply(const RuleFile& file, const RuleLine& rule, MessageTap& tap)
{
    Step step;
    step.file = &file;
    step.rule = &rule;
    const Target target(*rule.target, *session_);
    step.place = target.place;
    const std::optional<Target> creator = target.creator();
    Before before = lookAt(target);
    Before creatorBefore = creator ? lookAt(*creator) : Before{};
    step.before = before.text;
    try {
        evaluateAndAssign(rule, step);
    } catch (const std::logic_error& error) {
        step.failure = failure_ = error.what();
    }
    step.messages = tap.take();
    step.after = target.text();
    DcmElement* after = target.isElement() ? target.element() : nullptr;
    const DcmElement* shown = after != nullptr ? after : before.element.get();
    if (shown != nullptr) step.vr = vrOf(*shown);
    step.effect = effectOf(target, step, isSameElement(before.element.get(), after));
    steps_.push_back(std::move(step));

    const bool isChanged = steps_.back().effect <= Effect::Deleted;
    if (isChanged) keep(target, std::move(before));
    if (isChanged && creator && !isSameElement(creatorBefore.element.get(), creator->element()))
        keep(*creator, std::move(creatorBefore));
}

void Recording::evaluateAndAssign(const RuleLine& rule, Step& step)
{
    Value* value = rule.expression->getValue(*session_);
    const struct Reference { // the engine's counting, for a value that an exception may pass
        Value* value;
        ~Reference()
        {
            if (value != nullptr && --value->refCount == 0) delete value;
        }
    } reference{value};
    if (value != nullptr) {
        DcmElement* element = *value;
        const char* text = element == nullptr ? value->getString() : nullptr;
        step.value = element != nullptr ? shownText(*element) : std::string(text == nullptr ? "" : text);
    }
    rule.target->assignValue(*session_, value);
}

Recording::Before Recording::lookAt(const Target& target) const
{
    Before before;
    before.text = target.text();
    if (!target.isElement()) return before;
    before.element = copyOf(target.element());
    const DcmTagKey& top = target.place.topLevel;
    if (keepsOriginals_ && !originals_.contains(top)) before.original = copyOf(elementOf(session_->dataset, top));
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
    if (!step.before) return step.after ? Effect::Created : Effect::Unknown;
    const bool isUnchanged = target.isElement() ? isUntouched : step.before == step.after;
    return isUnchanged ? Effect::NoChange : Effect::Set;
}

void Recording::keep(const Target& target, Before before)
{
    const Place& place = target.place;
    if (keepsOriginals_ && target.isElement()) originals_.try_emplace(place.topLevel, std::move(before.original));
    auto found = tracked_.find(place);
    if (found == tracked_.end()) {
        const std::string vr = before.element ? vrOf(*before.element) : "";
        Tracked tracked{target, std::move(before.element), std::move(before.text), vr, {}};
        if (wasMadeByARule(place)) {
            tracked.element.reset();
            tracked.text.reset();
        }
        found = tracked_.emplace(place, std::move(tracked)).first;
    }
    found->second.steps.push_back(steps_.size() - 1);
}

// What lies in a sequence that a rule created was not there before, whatever that rule copied into it.
bool Recording::wasMadeByARule(const Place& place) const
{
    if (place.kind != Place::Kind::Element || place.tag == place.topLevel) return false;
    const auto top = std::ranges::find_if(tracked_, [&place](const auto& entry) {
        return entry.first.kind == Place::Kind::Element && entry.first.name == keyText(place.topLevel);
    });
    return top != tracked_.end() && !top->second.element;
}

void Recording::collectChanges()
{
    for (const auto& [place, tracked] : tracked_) {
        DcmElement* now = tracked.target.isElement() ? tracked.target.element() : nullptr;
        std::optional<std::string> text = tracked.target.text();
        const bool isUnchanged =
            tracked.target.isElement() ? isSameElement(tracked.element.get(), now) : tracked.text == text;
        if (isUnchanged) continue;
        Change change{place, now == nullptr ? tracked.vr : vrOf(*now), tracked.text, std::move(text), {}};
        for (const std::size_t step : tracked.steps) change.steps.push_back(&steps_[step]);
        changes_.push_back(std::move(change));
    }
}

} // namespace kxtool
