// SPDX-License-Identifier: BSD-3-Clause
// The elements of one item: found, read and put.
#include "kxmap/core/elements.h"

#include <dcmtk/dcmdata/dclist.h>

namespace {

/// Opens what DcmItem shares with classes that are derived from it.
struct ItemList : DcmItem {
    static DcmList& of(DcmItem& item) { return *(item.*&ItemList::elementList); }
};

// The nodes of a DcmList, which are private to it: only an explicit instantiation may name such members. DCMTK's own
// steps, DcmList::seek, are a call into its library and a switch each, three times the price of a step along the nodes,
// and steps are most of what a search costs. A release of DCMTK that names them otherwise does not compile: then a loop
// over seek() does the same.
DcmListNode* firstNode(const DcmList& list);
DcmListNode* nextNode(const DcmListNode& node);

template <DcmListNode* DcmList::*first, DcmListNode* DcmListNode::*next>
struct Nodes {
    friend DcmListNode* firstNode(const DcmList& list) { return list.*first; }
    friend DcmListNode* nextNode(const DcmListNode& node) { return node.*next; }
};
template struct Nodes<&DcmList::firstNode, &DcmListNode::nextNode>;

} // namespace

// DcmItem::search with ESM_fromHere walks from the first element to the first of the tag, or to the end, and so does
// this: the answer is the same whatever order the elements are in, re-tagged in place or twice of one tag. A way that
// begins elsewhere, or ends where the order of tags would have the element, is right only where the order was never
// broken.
DcmElement* kxmap::findElement(DcmItem& item, const DcmTagKey& key)
{
    DcmListNode* node = firstNode(ItemList::of(item));
    while (node != nullptr && node->value()->getTag() != key) node = nextNode(*node);
    return node == nullptr ? nullptr : static_cast<DcmElement*>(node->value()); // an item holds nothing but elements
}

const char* kxmap::elementText(DcmElement& element)
{
    char* text = nullptr;
    std::ignore = element.getString(text); // a VR without text leaves null, which is the answer
    return text;
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
