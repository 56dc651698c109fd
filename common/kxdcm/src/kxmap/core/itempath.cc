// SPDX-License-Identifier: BSD-3-Clause
// How an element is found: on one level by its tag, and through sequence items by a path.
#include "kxmap/core/itempath.h"

#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcstack.h>

namespace {

int takeFront(std::list<int>& path)
{
    const int entry = path.front();
    path.pop_front();
    return entry;
}

/// @param number from 0; a negative one is 0.
/// @return the sequence's item of that number; null beyond its end.
DcmItem* itemAt(DcmSequenceOfItems& sequence, int number)
{
    DcmObject* item = sequence.nextInContainer(nullptr);
    for (int i = 0; i < number && item != nullptr; ++i) item = sequence.nextInContainer(item);
    return static_cast<DcmItem*>(item); // a sequence holds nothing but items
}

} // namespace

DcmElement* kxmap::findElement(DcmItem& item, const DcmTagKey& key)
{
    DcmStack stack;
    if (item.search(key, stack, ESM_fromHere, OFFalse).bad()) return nullptr;
    return static_cast<DcmElement*>(stack.top()); // an item holds nothing but elements
}

bool kxmap::holds(DcmItem& item, const DcmElement* element)
{
    const DcmObject* object = item.nextInContainer(nullptr);
    while (object != nullptr && object != element) object = item.nextInContainer(object);
    return object != nullptr;
}

bool kxmap::insertElement(DcmItem& item, std::unique_ptr<DcmElement>& element)
{
    const auto insert = [&item](DcmElement* given) { return item.insert(given, OFFalse, OFFalse); };
    return giveTo(item, element, insert).good();
}

DcmItem* getParentItem(std::list<int>& path, DcmItem* item)
{
    while (item != nullptr && path.size() > 2) {
        const auto group = static_cast<Uint16>(takeFront(path));
        const auto element = static_cast<Uint16>(takeFront(path));
        DcmSequenceOfItems* sequence = nullptr;
        if (item->findAndGetSequence(DcmTagKey(group, element), sequence, OFFalse, OFFalse).bad()) return nullptr;
        item = itemAt(*sequence, takeFront(path));
    }
    return item;
}
