// SPDX-License-Identifier: BSD-3-Clause
// Writing an element: replaced, created, deleted, or skipped as unknown.
#include "kxmap.h"

#include "KXItem.h"
#include "kxmap/core/elements.h"

#include <memory>
#include <new>

namespace {

// The VR of a new element whose tag the data dictionary lacks.
static_assert(EVR_UNKNOWN == 47, "this release of DCMTK numbers its VRs otherwise: servers compare this code");

/// @return an empty element of the VR that the dictionary, or the server's private block, gives the tag; null for a tag
///         that neither knows, and for the tags of items and delimiters.
std::unique_ptr<DcmElement> createElement(const DcmTagKey& key, bool isOurs)
{
    std::unique_ptr<DcmElement> element(isOurs ? KXItem::createNewDicomElement(key)
                                               : DcmItem::newDicomElement(key, nullptr));
    if (element && element->getTag().getEVR() == EVR_UNKNOWN) element.reset();
    return element;
}

/// Inserts the element; the item's when it was taken, else still the caller's.
void insertNew(DcmItem& item, std::unique_ptr<DcmElement>& element, bool isOurs)
{
    if (!isOurs) {
        kxmap::insertElement(item, element);
        return;
    }
    const auto insert = [&item](DcmElement* given) { return KXItem(item).insertKX(given, false, false); };
    if (kxmap::giveTo(item, element, insert) == EC_MemoryExhausted) throw std::bad_alloc();
}

} // namespace

LVDicomTag::LVDicomTag(const DcmTag& target) : tag(target) {}

void LVDicomTag::assignValue(MappingSession& session, Value* value)
{
    if (session.dataset != nullptr) assignValueInner(*session.dataset, value);
}

void LVDicomTag::assignValueInner(DcmItem& item, Value* value)
{
    const DcmTagKey& key = tag;
    DcmElement* target = kxmap::findElement(item, key);
    if (value == nullptr) {
        OFLOG_DEBUG(logger, (target == nullptr ? "Delete - did not exist: " : "Deleting: ") << key);
        if (target != nullptr) std::unique_ptr<DcmElement>(item.remove(target)).reset();
        return;
    }
    std::unique_ptr<DcmElement> created;
    if (target == nullptr) {
        const bool isOurs = KXItem::isOurPrivateTagKey(key);
        created = createElement(key, isOurs);
        if (!created) {
            OFLOG_DEBUG(logger, "Skipping unrecognized: " << key);
            return;
        }
        target = created.get();
        insertNew(item, created, isOurs); // when the item refuses it, it is written all the same, and destroyed here
    }
    OFLOG_DEBUG(logger, "Applying: " << key);
    value->assignTo(&item, target);
}
