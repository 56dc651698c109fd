// SPDX-License-Identifier: BSD-3-Clause
// The way through sequence items to the item that a path names.
#include "kxmap.h"

#include <dcmtk/dcmdata/dcsequen.h>

namespace {

int takeFront(std::list<int>& path)
{
    const int entry = path.front();
    path.pop_front();
    return entry;
}

/// @param number from 0; a negative one is 0.
/// @return the sequence's item of that number; null beyond its end. The sequence is none of pixel items.
DcmItem* itemAt(DcmSequenceOfItems& sequence, int number)
{
    DcmObject* item = sequence.nextInContainer(nullptr);
    for (int i = 0; i < number && item != nullptr; ++i) item = sequence.nextInContainer(item);
    return static_cast<DcmItem*>(item); // a sequence holds nothing but items
}

} // namespace

DcmItem* getParentItem(std::list<int>& path, DcmItem* item)
{
    while (item != nullptr && path.size() > 2) {
        const auto group = static_cast<Uint16>(takeFront(path));
        const auto element = static_cast<Uint16>(takeFront(path));
        DcmSequenceOfItems* sequence = nullptr;
        if (item->findAndGetSequence(DcmTagKey(group, element), sequence, OFFalse, OFFalse).bad()) return nullptr;
        const int number = takeFront(path);
        // Compressed pixel data are a sequence to DCMTK as well, of items that hold bytes and no elements.
        item = sequence->ident() == EVR_SQ ? itemAt(*sequence, number) : nullptr;
    }
    return item;
}
