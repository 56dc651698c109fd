// SPDX-License-Identifier: BSD-3-Clause
// DCMTK's elements, as the tool looks at them.
#include "tool/dicom/elements.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dcpixel.h>
#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <fmt/format.h>
#include <optional>
#include <string_view>
#include <tuple>

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

// Where an item of the offset table comes before the fragments.
std::optional<unsigned long> fragmentCount(DcmElement& element)
{
    auto* pixels = dynamic_cast<DcmPixelData*>(&element);
    if (pixels == nullptr) return std::nullopt;
    E_TransferSyntax syntax = EXS_Unknown;
    const DcmRepresentationParameter* parameter = nullptr;
    pixels->getOriginalRepresentationKey(syntax, parameter);
    DcmPixelSequence* fragments = nullptr;
    if (!DcmXfer(syntax).isEncapsulated() ||
        pixels->getEncapsulatedRepresentation(syntax, parameter, fragments).bad() || fragments == nullptr)
        return std::nullopt;
    return fragments->card() == 0 ? 0 : fragments->card() - 1;
}

std::string shownBytes(DcmElement& element)
{
    if (const auto count = fragmentCount(element))
        return fmt::format("<{} fragment{}>", *count, *count == 1 ? "" : "s");
    return fmt::format("<{} bytes>", element.getLengthField());
}

// What single elements are written in: that of the file, or the one of the dataset around encapsulated pixel data.
E_TransferSyntax syntaxOfElements(E_TransferSyntax syntax)
{
    const DcmXfer transfer(syntax);
    const bool isPlain =
        syntax != EXS_Unknown && !transfer.isEncapsulated() && transfer.getStreamCompression() == ESC_none;
    return isPlain ? syntax : EXS_LittleEndianExplicit;
}

/// Copies a dataset by writing and reading it.
OFCondition writeAndRead(DcmDataset& from, DcmDataset& to, E_TransferSyntax syntax)
{
    const std::size_t size =
        from.calcElementLength(syntax, EET_ExplicitLength); // and an item's head, which is not written
    const auto buffer = std::make_unique_for_overwrite<char[]>(size);
    DcmOutputBufferStream output(buffer.get(), static_cast<offile_off_t>(size));
    DcmWriteCache cache;
    from.transferInit();
    OFCondition result = from.write(output, syntax, EET_ExplicitLength, &cache, EGL_noChange, EPD_noChange);
    from.transferEnd();
    if (result.bad()) return result;
    void* bytes = nullptr;
    offile_off_t count = 0;
    output.flushBuffer(bytes, count);
    DcmInputBufferStream input;
    input.setBuffer(bytes, count);
    input.setEos();
    to.transferInit();
    result = to.read(input, syntax, EGL_noChange, DCM_MaxReadLength);
    to.transferEnd();
    return result;
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
    if (isBinary(element.ident())) return shownBytes(element);
    if (char* text = nullptr; element.getString(text).good()) return text == nullptr ? "" : text;
    OFString numbers;
    return element.getOFStringArray(numbers).good() ? numbers.c_str() : "";
}

std::unique_ptr<DcmElement> readBack(DcmElement* element, E_TransferSyntax syntax)
{
    std::unique_ptr<DcmElement> copy = copyOf(element);
    if (!copy || isBinary(copy->ident())) return copy;
    DcmDataset written;
    DcmDataset read;
    if (written.insert(copy.get()).bad()) return copy;
    std::ignore = copy.release(); // the dataset owns it now
    if (writeAndRead(written, read, syntaxOfElements(syntax)).bad() || read.card() != 1) return copyOf(element);
    return std::unique_ptr<DcmElement>(read.remove(0UL));
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
