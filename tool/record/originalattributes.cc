// SPDX-License-Identifier: BSD-3-Clause
// The item is built beside the dataset and goes in when it is complete, so that a failure leaves the dataset as it is.
#include "tool/record/originalattributes.h"

#include "tool/dicom/elements.h"
#include "tool/dicom/valuefaults.h"
#include "tool/record/runcharactersets.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcvrdt.h>

#include <algorithm>
#include <array>
#include <climits>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::size_t kLongStringCharacters = 64; // VR LO
constexpr Uint16 kFirstDataGroup = 0x0008;
constexpr Uint16 kFirstBlock = 0x10; // of private elements, and so the first creator's element number

const DcmTagKey kPatient[] = {DCM_PatientName,
                              DCM_PatientID,
                              DCM_OtherPatientNames,
                              DCM_PatientBirthName,
                              DCM_PatientMotherBirthName,
                              DCM_PatientBirthDate,
                              DCM_PatientAddress,
                              DCM_PatientTelephoneNumbers};

using Elements = std::map<DcmTagKey, std::unique_ptr<DcmElement>>;

bool isPrivate(const DcmTagKey& key)
{
    return key.getGroup() % 2 == 1;
}

bool isCreator(const DcmTagKey& key)
{
    return isPrivate(key) && key.getElement() >= kFirstBlock && key.getElement() <= 0xff;
}

DcmTagKey creatorOf(const DcmTagKey& key)
{
    return {key.getGroup(), static_cast<Uint16>(key.getElement() >> 8)};
}

std::unique_ptr<DcmElement> withoutValue(const DcmElement& element)
{
    const DcmTag tag(element.getTag(), DcmVR(element.getVR())); // the dictionary may know the private tag otherwise
    return std::unique_ptr<DcmElement>(DcmItem::newDicomElement(tag));
}

bool isConforming(DcmElement& element, const CharacterSet& set)
{
    const DcmEVR vr = element.getVR();
    if (!isText(vr)) return true;
    OFString text;
    if (element.getOFStringArray(text, OFFalse).bad()) return false;
    const std::string bytes(text.c_str(), text.length());
    return std::ranges::all_of(faultsOf({bytes, element.getTag(), vr, set}), [&](const Fault& fault) {
        return fault.name == fault::kCharset &&
               set.toUtf8(bytes).has_value(); // not as it should be, but readable in that character set
    });
}

/// What to list of an element: its value before; or none, when it is added or did not conform.
std::unique_ptr<DcmElement> listed(DcmElement* before, DcmElement* now, const CharacterSet& set)
{
    if (before == nullptr) return withoutValue(*now);
    return isConforming(*before, set) ? copyOf(before) : withoutValue(*before);
}

Elements changedElements(DcmDataset& dataset, const Recording& recording)
{
    const CharacterSet set = RunCharacterSets(recording, dataset).before();
    Elements changed;
    for (const auto& [key, before] : recording.originals()) {
        const auto now = readBack(elementOf(&dataset, key), dataset.getOriginalXfer());
        if (!isSameElement(now.get(), before.get()) && key.getGroup() >= kFirstDataGroup)
            changed[key] = listed(before.get(), now.get(), set);
    }
    return changed;
}

/// Beside private elements stands their creator with its value: the one before, else the one now.
void addCreators(Elements& elements, DcmDataset& dataset, const Recording& recording)
{
    Elements creators;
    for (const auto& [key, element] : elements) {
        if (!isPrivate(key) || isCreator(key)) continue;
        const DcmTagKey creator = creatorOf(key);
        const auto kept = recording.originals().find(creator);
        DcmElement* before = kept == recording.originals().end() ? nullptr : kept->second.get();
        DcmElement* value = before != nullptr ? before : elementOf(&dataset, creator);
        if (value != nullptr) creators[creator] = copyOf(value);
    }
    for (auto& [key, creator] : creators) elements[key] = std::move(creator);
}

OFCondition insert(DcmItem& item, std::unique_ptr<DcmElement> element)
{
    if (!element) return EC_MemoryExhausted;
    const OFCondition inserted = item.insert(element.get(), OFTrue);
    if (inserted.good()) std::ignore = element.release(); // the item owns it now
    return inserted;
}

OFCondition fill(DcmItem& item, Elements&& elements, const ModificationNotes& notes, const OFString& now)
{
    OFCondition result = item.putAndInsertString(DCM_SourceOfPreviousValues, notes.source.c_str());
    if (result.good()) result = item.putAndInsertOFStringArray(DCM_AttributeModificationDateTime, now);
    if (result.good()) result = item.putAndInsertString(DCM_ModifyingSystem, notes.system.c_str());
    if (result.good()) result = item.putAndInsertString(DCM_ReasonForTheAttributeModification, notes.reason.c_str());
    DcmItem* modified = nullptr;
    if (result.good()) result = item.findOrCreateSequenceItem(DCM_ModifiedAttributesSequence, modified, -2);
    for (auto& [key, element] : elements) {
        if (result.good()) result = insert(*modified, std::move(element));
    }
    return result;
}

/// Puts the item behind those already there.
OFCondition append(DcmDataset& dataset, std::unique_ptr<DcmItem> item)
{
    DcmSequenceOfItems* sequence = nullptr;
    OFCondition result = dataset.findAndGetSequence(DCM_OriginalAttributesSequence, sequence);
    if (result == EC_TagNotFound) { // an element that is not a sequence stays, and is an error
        result = dataset.insertEmptyElement(DCM_OriginalAttributesSequence);
        if (result.good()) result = dataset.findAndGetSequence(DCM_OriginalAttributesSequence, sequence);
    }
    if (result.good()) result = sequence->append(item.get());
    if (result.good()) std::ignore = item.release(); // the sequence owns it now
    return result;
}

} // namespace

std::vector<std::string> patientAttributesIn(const RulesInOrder& files)
{
    std::set<std::string> names;
    for (const RuleFile* file : files) {
        for (const RuleLine& line : file->lines) {
            const auto* target = dynamic_cast<const LVDicomTag*>(line.target.get());
            if (line.kind != RuleLine::Kind::Rule || target == nullptr) continue;
            if (std::ranges::find(kPatient, target->tag) != std::end(kPatient))
                names.insert(DcmTag(target->tag).getTagName());
        }
    }
    return {names.begin(), names.end()};
}

std::string whyNoLongString(const std::string& text)
{
    if (text.size() > kLongStringCharacters) return fmt::format("longer than {} characters", kLongStringCharacters);
    const bool isPrintable = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~' && c != '\\'; });
    return isPrintable ? "" : "has other than printable ASCII characters, or a backslash";
}

std::string thisSystem()
{
    std::array<char, HOST_NAME_MAX + 1> host = {};
    std::ignore = gethostname(host.data(), HOST_NAME_MAX); // empty when there is none
    const std::string system = fmt::format("kxmap@{}", host.data()).substr(0, kLongStringCharacters);
    return whyNoLongString(system).empty() ? system : "kxmap";
}

std::string addOriginalAttributes(DcmDataset& dataset, const Recording& recording, const ModificationNotes& notes)
{
    Elements elements = changedElements(dataset, recording);
    if (elements.empty()) return {};
    // It is set below: like any other, listed with its earlier value, or without one when this run adds it.
    DcmDateTime added(DcmTag(DCM_InstanceCoercionDateTime));
    elements.try_emplace(DCM_InstanceCoercionDateTime, listed(elementOf(&dataset, DCM_InstanceCoercionDateTime), &added,
                                                              RunCharacterSets(recording, dataset).before()));
    addCreators(elements, dataset, recording);
    OFString now;
    OFCondition result = DcmDateTime::getCurrentDateTime(now, OFTrue, OFFalse, OFTrue);
    auto item = std::make_unique<DcmItem>();
    if (result.good()) result = fill(*item, std::move(elements), notes, now);
    if (result.good()) result = append(dataset, std::move(item));
    if (result.good()) result = dataset.putAndInsertOFStringArray(DCM_InstanceCoercionDateTime, now);
    return result.good() ? "" : fmt::format("Original Attributes Sequence: {}", result.text());
}

} // namespace kxtool
