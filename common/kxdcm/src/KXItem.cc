// SPDX-License-Identifier: BSD-3-Clause
// The private block's dictionary, and its reservation in an item.
#include "KXItem.h"

#include "kxmap/core/elements.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dcelem.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <memory>
#include <string_view>

namespace {

// clang-format off
constexpr KXItem::Dictionary kDictionary = {{
    {0x1001, EVR_LO, "OriginalPatientID"},
    {0x1002, EVR_LO, "OriginalIssuerOfPatientID"},
    {0x1003, EVR_SH, "OriginalAccessionNumber"},
    {0x1004, EVR_UI, "OriginalStudyInstanceUID"},
    {0x1005, EVR_DT, "CoercionDateTime"},
    {0x1006, EVR_AE, "CallingAETitle"},
    {0x1007, EVR_LO, "MappingFileName"},
    {0x1008, EVR_SH, "InstitutionCode"},
    {0x1009, EVR_AS, "PatientAgeAtStudy"},
    {0x100a, EVR_DS, "PatientMatchConfidence"},
    {0x100b, EVR_US, "NumberOfCoercions"},
    {0x100c, EVR_LT, "CoercionRemarks"},
    {0x100d, EVR_SQ, "CoercedAttributesSequence"},
}};
// clang-format on

// Functions, since rules may be applied before the static objects of this file would be made.

DcmTagKey creatorKey()
{
    return {KXItem::kGroup, KXItem::kCreatorElement};
}

OFCondition blockNotOurs()
{
    constexpr unsigned short kModule = 1024; // the first that DCMTK leaves to its users
    return makeOFCondition(kModule, 1, OF_error, "Private block reserved by another creator");
}

/// @return whether an element of the VR UN has our text as its bytes, blanks around it being padding. A creator comes so,
///         in explicit VR, from somebody who did not know the block (DICOM PS3.5 section 6.2.2).
bool hasOurBytes(DcmElement& creator)
{
    Uint8* bytes = nullptr;
    if (creator.getUint8Array(bytes).bad() || bytes == nullptr) return false;
    std::string_view text(reinterpret_cast<const char*>(bytes), creator.getLength());
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ') || text.ends_with('\0')) text.remove_suffix(1);
    return text == KXItem::kCreator;
}

bool isOurCreator(DcmElement& creator)
{
    if (creator.getTag().getEVR() == EVR_UN) return hasOurBytes(creator);
    OFString text;
    return creator.getVM() == 1 && creator.getOFString(text, 0).good() && text == KXItem::kCreator;
}

std::unique_ptr<DcmElement> newElement(const DcmTagKey& key, DcmEVR vr)
{
    DcmTag tag(key, DcmVR(vr));
    if (key != creatorKey()) tag.setPrivateCreator(KXItem::kCreator);
    DcmElement* element = nullptr;
    if (DcmItem::newDicomElementWithVR(element, tag).good()) return std::unique_ptr<DcmElement>(element);
    return nullptr;
}

struct DictionaryWriteLock {
    DcmDataDictionary& dictionary = dcmDataDict.wrlock();
    DictionaryWriteLock() = default;
    DictionaryWriteLock(const DictionaryWriteLock&) = delete;
    DictionaryWriteLock& operator=(const DictionaryWriteLock&) = delete;
    ~DictionaryWriteLock() { dcmDataDict.wrunlock(); }
};

} // namespace

const KXItem::Dictionary& KXItem::dictionary()
{
    return kDictionary;
}

void KXItem::registerDictionary()
{
    const DictionaryWriteLock lock;
    for (const PrivateTag& known : kDictionary) { // addEntry takes the entry, and destroys the one it replaces
        lock.dictionary.addEntry(
            new DcmDictEntry(kGroup, known.element, DcmVR(known.vr), known.name, 1, 1, "KXDCM", OFFalse, kCreator));
    }
}

bool KXItem::isOurPrivateTagKey(const DcmTagKey& key)
{
    return key.getGroup() == kGroup && (key.getElement() >> 8) == kCreatorElement;
}

DcmElement* KXItem::createNewDicomElement(const DcmTagKey& key)
{
    if (key.getGroup() != kGroup) return nullptr;
    const auto known = std::ranges::find(kDictionary, key.getElement(), &PrivateTag::element);
    return known == std::ranges::end(kDictionary) ? nullptr : newElement(key, known->vr).release();
}

OFCondition KXItem::insertKX(DcmElement* element, bool replaceOld, bool checkInsertOrder)
{
    if (element == nullptr) return EC_IllegalCall;
    if (!isOurPrivateTagKey(element->getTag())) return EC_InvalidTag;

    DcmElement* creator = nullptr;
    if (item_.findAndGetElement(creatorKey(), creator).good()) {
        if (!isOurCreator(*creator)) return blockNotOurs();
        return item_.insert(element, replaceOld, checkInsertOrder);
    }
    std::unique_ptr<DcmElement> reservation = newElement(creatorKey(), EVR_LO);
    if (!reservation) return EC_MemoryExhausted;
    creator = reservation.get();
    if (creator->putString(kCreator).bad()) return EC_MemoryExhausted; // nothing else keeps an LO from taking it

    const auto removeUnused = [&] { // the reservation, when the item does not hold the element that it is for
        if (!kxmap::holds(item_, element)) reservation.reset(item_.remove(creator));
    };
    const auto insertReservation = [&](DcmElement* given) { return item_.insert(given, OFFalse, checkInsertOrder); };
    OFCondition result;
    try {
        result = kxmap::giveTo(item_, reservation, insertReservation);
        if (result.good()) result = item_.insert(element, replaceOld, checkInsertOrder);
    } catch (...) {
        removeUnused();
        throw;
    }
    if (result.bad()) removeUnused();
    return result;
}
