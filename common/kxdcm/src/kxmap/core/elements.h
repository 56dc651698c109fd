// SPDX-License-Identifier: BSD-3-Clause
// The elements of one item: finding one, reading its text and putting one there. The way through sequence items to
// another item is getParentItem() of kxmap.h.
#pragma once

#include "kxmap.h"

#include <memory>
#include <tuple>

namespace kxmap {

/// Finds an element among the item's own, not into sequences, as `DcmItem::search` does with ESM_fromHere.
/// @return the item's element; null when it has none of that tag.
DcmElement* findElement(DcmItem& item, const DcmTagKey& key);

/// @return the element's own text (`DcmElement::getString`); null where its VR has none, or it is empty.
const char* elementText(DcmElement& element);

/// Says whether an element stands in the item, on its own level. Allocates nothing.
bool holds(DcmItem& item, const DcmElement* element);

/// Gives an element to an item by `insert`, which returns DCMTK's condition. The element is the item's when it was
/// taken, else still the caller's. When memory is exhausted, DCMTK may throw before the item holds the element or
/// after: so the item is searched for it then.
template <typename Insert>
OFCondition giveTo(DcmItem& item, std::unique_ptr<DcmElement>& element, Insert insert)
{
    try {
        const OFCondition result = insert(element.get());
        if (result.good()) std::ignore = element.release();
        return result;
    } catch (...) {
        if (holds(item, element.get())) std::ignore = element.release();
        throw;
    }
}

/// Inserts an element that the item does not have yet (`DcmItem::insert`, nothing replaced, order not checked).
/// @param element the item's when it was taken, else still the caller's.
/// @return whether it was taken.
bool insertElement(DcmItem& item, std::unique_ptr<DcmElement>& element);

} // namespace kxmap
