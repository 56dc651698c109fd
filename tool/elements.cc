// SPDX-License-Identifier: BSD-3-Clause
// DCMTK's elements, as the tool looks at them.
#include "tool/elements.h"

#include <dcmtk/dcmdata/dcsequen.h>

#include <fmt/format.h>
#include <optional>
#include <string_view>

namespace kxtool {
namespace {

bool isBinary(DcmEVR vr)
{
    switch (vr) {
    case EVR_OB:
    case EVR_OD:
    case EVR_OF:
    case EVR_OL:
    case EVR_OV:
    case EVR_OW:
    case EVR_ox:
    case EVR_px:
    case EVR_UN:
    case EVR_UNKNOWN:
    case EVR_UNKNOWN2B:
    case EVR_PixelData:
    case EVR_OverlayData:
        return true;
    default:
        return false;
    }
}

bool isSameItem(DcmItem& a, DcmItem& b)
{
    if (a.card() != b.card()) return false;
    for (unsigned long i = 0; i < a.card(); ++i) {
        if (a.getElement(i)->getTag() != b.getElement(i)->getTag()) return false;
        if (!isSameElement(a.getElement(i), b.getElement(i))) return false;
    }
    return true;
}

bool isSameSequence(DcmSequenceOfItems& a, DcmSequenceOfItems& b)
{
    if (a.card() != b.card()) return false;
    for (unsigned long i = 0; i < a.card(); ++i) {
        if (!isSameItem(*a.getItem(i), *b.getItem(i))) return false;
    }
    return true;
}

/// @return the bytes of a text, those behind a NUL too; none for what is no text.
std::optional<std::string_view> bytesOf(DcmElement& element)
{
    char* text = nullptr;
    Uint32 length = 0;
    if (element.getString(text, length).bad()) return std::nullopt;
    return text == nullptr ? std::string_view() : std::string_view(text, length);
}

} // namespace

DcmElement* elementOf(DcmItem* item, const DcmTagKey& key)
{
    DcmElement* element = nullptr;
    if (item == nullptr || item->findAndGetElement(key, element).bad()) return nullptr;
    return element;
}

std::unique_ptr<DcmElement> copyOf(DcmElement* element)
{
    return std::unique_ptr<DcmElement>(element == nullptr ? nullptr : static_cast<DcmElement*>(element->clone()));
}

std::string shownText(DcmElement& element)
{
    if (element.ident() == EVR_SQ) {
        const unsigned long count = static_cast<DcmSequenceOfItems&>(element).card();
        return fmt::format("<{} item{}>", count, count == 1 ? "" : "s");
    }
    if (isBinary(element.ident())) return fmt::format("<{} bytes>", element.getLengthField());
    if (char* text = nullptr; element.getString(text).good()) return text == nullptr ? "" : text;
    OFString numbers;
    return element.getOFStringArray(numbers).good() ? numbers.c_str() : "";
}

bool hasText(DcmElement& element)
{
    char* text = nullptr;
    return element.getString(text).good();
}

std::string vrOf(const DcmElement& element)
{
    return DcmVR(element.getTag().getEVR()).getValidVRName();
}

bool isSameElement(DcmElement* a, DcmElement* b)
{
    if (a == nullptr || b == nullptr) return a == b;
    if (a->ident() != b->ident()) return false;
    if (a->ident() == EVR_SQ)
        return isSameSequence(static_cast<DcmSequenceOfItems&>(*a), static_cast<DcmSequenceOfItems&>(*b));
    if (!a->isaString()) return a->compare(*b) == 0;
    const auto textA = bytesOf(*a);
    const auto textB = bytesOf(*b);
    return textA && textB ? textA == textB : a->compare(*b) == 0;
}

} // namespace kxtool
