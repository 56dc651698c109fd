// SPDX-License-Identifier: BSD-3-Clause
// Finding an element on one level and putting one there, which every reader and writer of the dataset shares. The walk
// through sequence items is getParentItem() of kxmap.h.
#pragma once

#include "kxmap.h"

#include <memory>

namespace kxmap {

/// Finds an element among the item's own (`DcmItem::search`, ESM_fromHere, not into sequences).
/// @return the item's element; null when it has none of that tag.
DcmElement* findElement(DcmItem& item, const DcmTagKey& key);

/// Inserts an element that the item does not have yet (`DcmItem::insert`, nothing replaced, order not checked).
/// @param element the item's when it was taken, else still the caller's.
/// @return whether it was taken.
bool insertElement(DcmItem& item, std::unique_ptr<DcmElement>& element);

} // namespace kxmap
