// SPDX-License-Identifier: BSD-3-Clause
// The checks: single values (DICOM PS3.5 section 6.2), and the attributes that identify an object (PS3.3 C.7, C.12.1).
#include "tool/record/consequences.h"

#include "tool/console/switches.h"
#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/console/utf8.h"
#include "tool/dicom/valuefaults.h"
#include "tool/record/runcharactersets.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <utility>

namespace kxtool {
namespace {

constexpr const char* kRelabelled = "relabelled";
constexpr const char* kNotTaken = "not-taken";
constexpr const char* kNoText = "no-text";
constexpr const char* kIdentity = "identity";
constexpr const char* kPixels = "pixels";
constexpr const char* kHeaderGroup = "header-group";
constexpr const char* kLetterCase = "letter-case";

constexpr std::pair<const char*, const char*> kHelp[] = {
    {fault::kLength, "a value is longer than its VR allows"},
    {fault::kForm, "a value has not the form or the characters of its VR"},
    {fault::kCharset, "bytes that are not, or do not seem to be, in the Specific Character Set"},
    {kRelabelled, "the Specific Character Set was changed, and texts that no rule wrote now read differently"},
    {fault::kMultiplicity, "more or fewer values than the attribute takes"},
    {kNotTaken, "what was written is not the rule's value: the VR could not take it"},
    {kNoText, "the rule's value is an element in which rules see no text: an empty one was written"},
    {kIdentity, "what tells the object, its series, study or patient was changed or is gone"},
    {kPixels, "what says how to read the pixel data was changed or is gone"},
    {kHeaderGroup, "an element of group 0000 or 0002, which is no part of a dataset, was written into it"},
    {kLetterCase, "toUpper or toLower changed bytes that are no letters in the Specific Character Set"},
};
static_assert(std::size(kHelp) == kConsequenceCount);

enum class Harm { WhenChanged, WhenLost };

struct Kept {
    DcmTagKey key;
    const char* name;
    Harm harm;
    const char* text;
};

constexpr const char* kUnreadable = "pixel data may not be read as they were written";

// Few on purpose: rules exist to change attributes, and many are meant to replace the patient ID.
const Kept kKept[] = {
    {DCM_SOPClassUID, kIdentity, Harm::WhenChanged, "the object's kind is told by it"},
    {DCM_SOPInstanceUID, kIdentity, Harm::WhenChanged,
     "it counts as another object, and references to it lead nowhere"},
    {DCM_StudyInstanceUID, kIdentity, Harm::WhenChanged, "the object leaves its study"},
    {DCM_SeriesInstanceUID, kIdentity, Harm::WhenChanged, "the object leaves its series"},
    {DCM_FrameOfReferenceUID, kIdentity, Harm::WhenChanged, "its position no longer relates to that of other series"},
    {DCM_PatientID, kIdentity, Harm::WhenLost, "nothing tells whose object it is"},
    {DCM_Modality, kIdentity, Harm::WhenLost, "every series must have one"},
    {DCM_SamplesPerPixel, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_PhotometricInterpretation, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_PlanarConfiguration, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_NumberOfFrames, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_Rows, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_Columns, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_BitsAllocated, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_BitsStored, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_HighBit, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_PixelRepresentation, kPixels, Harm::WhenChanged, kUnreadable},
    {DCM_PixelData, kPixels, Harm::WhenChanged, "the image itself"},
};

bool isTopLevel(const Place& place)
{
    return place.name.find('[') == std::string::npos;
}

std::optional<Fault> keptFault(const Change& change)
{
    const auto* kept = std::ranges::find(kKept, change.place.tag, &Kept::key);
    if (kept == std::end(kKept) || !isTopLevel(change.place) || change.before.value_or("").empty()) return std::nullopt;
    const char* what = !change.after ? "deleted" : change.after->empty() ? "emptied" : "changed";
    if (kept->harm == Harm::WhenLost && change.after && !change.after->empty()) return std::nullopt;
    return Fault{kept->name, fmt::format("{}: {}", what, kept->text)};
}

bool isSameNumber(std::string_view a, std::string_view b, bool isFloat)
{
    if (trimmed(a) == trimmed(b)) return true;
    const std::string left(trimmed(a));
    const std::string right(trimmed(b));
    char* leftEnd = nullptr;
    char* rightEnd = nullptr;
    const double x = std::strtod(left.c_str(), &leftEnd);
    const double y = std::strtod(right.c_str(), &rightEnd);
    if (left.empty() || right.empty() || *leftEnd != '\0' || *rightEnd != '\0') return false;
    return isFloat ? std::abs(x - y) <= 1e-5 * std::abs(x) : x == y;
}

bool isNumber(DcmEVR vr)
{
    constexpr DcmEVR kNumbers[] = {EVR_US, EVR_SS, EVR_UL, EVR_SL, EVR_UV, EVR_SV, EVR_FL, EVR_FD};
    return std::ranges::find(kNumbers, vr) != std::end(kNumbers);
}

std::optional<Fault> headerFault(const Step& step)
{
    const unsigned group = step.place.tag.getGroup();
    const bool isThere = step.effect == Effect::Set || step.effect == Effect::Created;
    if (step.place.kind != Place::Kind::Element || !isThere || (group != 0x0000 && group != 0x0002))
        return std::nullopt;
    const char* what = isTopLevel(step.place) ? "it is left out of the file" : "the file is not valid";
    return Fault{kHeaderGroup, fmt::format("group {:04x} is no part of a dataset: {}", group, what)};
}

// Numbers that do not fit are cut to their low bits, or not written at all.
bool isSameNumbers(const std::string& wanted, const std::string& written, DcmEVR vr)
{
    return std::ranges::equal(split(wanted, '\\'), split(written, '\\'), [vr](std::string_view a, std::string_view b) {
        return isSameNumber(a, b, vr == EVR_FL || vr == EVR_FD);
    });
}

std::optional<Fault> writingFault(const Step& step, const RunCharacterSets& sets)
{
    const bool wasWritten =
        step.effect == Effect::Set || step.effect == Effect::Created || step.effect == Effect::NoChange;
    if (!wasWritten || !step.value || !step.after || !step.failure.empty()) return std::nullopt;
    if (!step.unseen.empty() && step.after->empty())
        return Fault{kNoText, fmt::format("{} is an element in which rules see no text: an empty one was written",
                                          shownQuoted(step.unseen))};
    if (step.place.kind != Place::Kind::Element) return std::nullopt;
    if (step.place.tag.getElement() == 0x0000 && !headerFault(step))
        return Fault{kNotTaken, "a group length is counted when the file is written"};
    const DcmEVR vr = DcmVR(step.vr.c_str()).getEVR();
    const std::string value = shownQuoted(sets.after(step).readable(*step.value));
    if (isNumber(vr) && !isSameNumbers(*step.value, *step.after, vr))
        return Fault{kNotTaken,
                     fmt::format("{} cannot be taken by {}: it holds {}", value, step.vr, shownQuoted(*step.after))};
    if (vr == EVR_SQ && step.value != step.after)
        return Fault{kNotTaken, fmt::format("{} cannot be taken by a sequence", value)};
    return std::nullopt;
}

std::optional<Fault> letterCaseFault(const Step& step, const RunCharacterSets& sets)
{
    const bool wasWritten = step.effect == Effect::Set || step.effect == Effect::Created;
    if (!wasWritten || step.recased.empty() || !step.value) return std::nullopt;
    const CharacterSet set = sets.after(step);
    const auto harmed =
        std::ranges::find_if(step.recased, [&](const Recased& text) { return isHarmed(text, set, *step.value); });
    if (harmed == step.recased.end()) return std::nullopt;
    return Fault{kLetterCase, fmt::format("{} became {}: bytes were changed that are no letters in {}",
                                          shownQuoted(set.readable(harmed->before)),
                                          shownQuoted(set.readable(harmed->after)), set.name())};
}

/// Adds the parts of a rule's literals that are not ASCII.
void addHighStretches(const Expression& node, std::set<std::string>& stretches)
{
    std::string stretch;
    for (const char* at = node.func == nullptr && node.text != nullptr ? node.text : ""; *at != '\0'; ++at) {
        if (!isPlainAscii({at, 1}) && *at != '\x1B') stretch += *at;
        else if (!stretch.empty()) stretches.insert(std::exchange(stretch, {}));
    }
    if (!stretch.empty()) stretches.insert(stretch);
    for (const Expression* argument : node.params) addHighStretches(*argument, stretches);
}

/// The parts that are not ASCII, of the literals of mapping files in UTF-8.
std::set<std::string> utf8StretchesOf(const Recording& recording)
{
    std::set<std::string> stretches;
    std::map<const RuleFile*, bool> isUtf8File;
    for (const Step& step : recording.steps()) {
        if (isPlainAscii(step.rule->text)) continue;
        const auto known = isUtf8File.find(step.file);
        const bool isGood = known != isUtf8File.end()
                                ? known->second
                                : isUtf8File.emplace(step.file, isUtf8(step.file->bytes)).first->second;
        if (isGood && isUtf8(step.rule->text)) addHighStretches(*step.rule->expression, stretches);
    }
    return stretches;
}

/// Collects consequences. A fault of a value counts when the value before did not have it.
class Search {
public:
    Search(const Recording& recording, DcmDataset& dataset, const ConsequenceSwitches& wanted)
        : recording_(recording), dataset_(dataset), wanted_(wanted), sets_(recording, dataset),
          utf8Stretches_(utf8StretchesOf(recording))
    {
    }

    std::vector<Consequence> run(std::size_t begin)
    {
        for (const Change& change : recording_.changes(begin)) {
            if (change.place.kind == Place::Kind::Element) lookAt(change);
        }
        for (std::size_t number = begin; number < recording_.steps().size(); ++number) {
            const Step& step = recording_.steps()[number];
            for (auto& fault : {writingFault(step, sets_), headerFault(step), letterCaseFault(step, sets_)}) {
                if (fault) add(*fault, step.place, step);
            }
        }
        std::ranges::stable_sort(found_, {}, [](const Consequence& one) { return one.step->number; });
        return std::move(found_);
    }

private:
    void add(Fault fault, const Place& place, const Step& step)
    {
        if (wanted_.isOn(fault.name)) found_.push_back({fault.name, place, &step, std::move(fault.text)});
    }

    void lookAt(const Change& change)
    {
        const Step& step = *change.steps.back();
        if (auto fault = keptFault(change)) add(std::move(*fault), change.place, step);
        if (change.place.name == "(0008,0005)") lookForRelabelled(change);
        if (!change.after) return;
        const DcmEVR vr = DcmVR(change.vr.c_str()).getEVR();
        const Sample before{change.before.value_or(""), change.place.tag, vr, sets_.before(step)};
        const Sample after{*change.after, change.place.tag, vr, sets_.after(step)};
        const std::vector<Fault> known = faultsOf(before);
        std::vector<Fault> now = faultsOf(after);
        const auto isCharsetFault = [](const Fault& fault) { return std::string_view(fault.name) == fault::kCharset; };
        if (std::ranges::none_of(now, isCharsetFault) && isUtf8Elsewhere(before, after))
            now.push_back(utf8Fault(after));
        for (Fault& fault : now) {
            const bool isTheSenders = std::ranges::any_of(
                known, [&fault](const Fault& one) { return std::string_view(one.name) == fault.name; });
            if (!isTheSenders) add(std::move(fault), change.place, step);
        }
    }

    // In some character sets any bytes are valid: text in UTF-8 is recognised because the mapping file has it.
    bool isUtf8Elsewhere(const Sample& before, const Sample& after) const
    {
        if (!hasCharacterSet(after.vr) || after.set.terms() == "ISO_IR 192") return false;
        return std::ranges::any_of(utf8Stretches_, [&](const std::string& stretch) {
            return after.text.find(stretch) != std::string::npos && before.text.find(stretch) == std::string::npos;
        });
    }

    // Texts that no rule wrote keep their bytes, which mean other characters in another character set.
    void lookForRelabelled(const Change& change)
    {
        std::set<DcmTagKey> written;
        for (const Change& other : recording_.changes()) written.insert(other.place.topLevel);
        unsigned count = 0;
        DcmTagKey first;
        DcmStack stack;
        while (dataset_.nextObject(stack, OFTrue).good()) {
            auto* object = stack.top();
            if (!hasCharacterSet(object->ident()) || written.contains(object->getTag())) continue;
            char* text = nullptr;
            if (static_cast<DcmElement*>(object)->getString(text).bad() || text == nullptr || isPlainAscii(text))
                continue;
            DcmItem* item = object->getParentItem();
            if (item == nullptr || CharacterSet::of(*item).terms() != sets_.after().terms()) continue;
            if (sets_.before().toUtf8(text) == sets_.after().toUtf8(text)) continue;
            if (count++ == 0) first = object->getTag();
        }
        if (count == 0) return;
        const std::string others = count == 1 ? "1 text" : fmt::format("{} texts", count);
        add({kRelabelled,
             fmt::format("changed from {} to {}, and {} of the sender, the first in {}, now read{} otherwise",
                         shownUtf8(sets_.before().name()), shownUtf8(sets_.after().name()), others,
                         first.toString().c_str(), count == 1 ? "s" : "")},
            change.place, *change.steps.back());
    }

    const Recording& recording_;
    DcmDataset& dataset_;
    const ConsequenceSwitches& wanted_;
    RunCharacterSets sets_;
    std::set<std::string> utf8Stretches_;
    std::vector<Consequence> found_;
};

} // namespace

bool ConsequenceSwitches::set(std::string_view text)
{
    return readSwitch(
        text, kHelp, [](const auto& row) { return row.first; },
        [this](std::size_t index, bool isOn) { isOn_[index] = isOn; });
}

bool ConsequenceSwitches::isOn(std::string_view name) const
{
    const auto* row = std::ranges::find(kHelp, name, [](const auto& one) { return std::string_view(one.first); });
    return isOn_[static_cast<std::size_t>(row - kHelp)];
}

std::vector<Consequence> findConsequences(const Recording& recording, DcmDataset& dataset,
                                          const ConsequenceSwitches& wanted, std::size_t begin)
{
    return Search(recording, dataset, wanted).run(begin);
}

void listConsequences()
{
    for (const auto& [name, text] : kHelp) printSwitch(name, "warning", text);
}

std::string consequencesHelp()
{
    std::string help;
    for (const auto& [name, text] : kHelp) help += fmt::format("  {:<13} {}\n", name, text);
    return help;
}

} // namespace kxtool
