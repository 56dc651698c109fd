// SPDX-License-Identifier: BSD-3-Clause
// How an element is found: on one level by its tag, and through sequence items by a path.
#include "kxmap/core/itempath.h"

#include <dcmtk/dcmdata/dclist.h>
#include <dcmtk/dcmdata/dcsequen.h>

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

/// Opens what DcmItem shares with classes that are derived from it: DCMTK's own searches all begin at the first element
/// and end at the last, and make a stack for what they find.
struct ItemList : DcmItem {
    static DcmList& of(DcmItem& item) { return *(item.*&ItemList::elementList); }
};

} // namespace

// An item's elements are in the order of their tags, each tag once (`DcmItem::insert`), and its list remembers where it
// was used last. Rules mostly write what they have just read, or what stands near it: so the way begins there, and ends
// where the tag would have to be. A server that gives an element of the dataset another tag in its place breaks that order.
DcmElement* kxmap::findElement(DcmItem& item, const DcmTagKey& key)
{
    DcmList& list = ItemList::of(item);
    DcmObject* object = list.get(ELP_atpos);
    if (object == nullptr) object = list.seek(ELP_first);
    if (object == nullptr) return nullptr;

    const bool isBefore = object->getTag() < key;
    while (object != nullptr && object->getTag() != key) {
        if ((object->getTag() < key) != isBefore) return nullptr;
        object = list.seek(isBefore ? ELP_next : ELP_prev);
    }
    return static_cast<DcmElement*>(object); // an item holds nothing but elements
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
