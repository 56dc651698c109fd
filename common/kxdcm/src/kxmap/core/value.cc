// SPDX-License-Identifier: BSD-3-Clause
// Values: their texts, and how each kind fills an element.
#include "kxmap.h"

#include "kxmap/core/guards.h"
#include "kxmap/core/itempath.h"

#include <cstring>
#include <new>
#include <tuple>

char* newdup(const char* text)
{
    if (text == nullptr) return nullptr;
    const std::size_t length = std::strlen(text);
    char* copy = new char[length + 2]; // deliberate: one byte more than the text needs
    std::memcpy(copy, text, length + 1);
    return copy;
}

namespace {

/// Written when the level is on: `"text"`, or (NULL).
struct Quoted {
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Quoted& quoted)
{
    return quoted.text == nullptr ? out << "(NULL)" : out << '"' << quoted.text << '"';
}

/// Puts a copy of `source` in the place of `target`, which is destroyed. Both have the same VR, so the copy can carry
/// the target's tag as it is. The copy is whole before anything is taken out: the source may lie inside the target, and
/// when memory is exhausted the item keeps, or is given back, what it had.
void replaceByCopy(DcmItem& item, DcmElement& target, DcmElement& source)
{
    std::unique_ptr<DcmElement> copy(static_cast<DcmElement*>(source.clone()));
    // DCMTK's copy of a value that found no memory has its length, but no bytes, and nothing was thrown.
    if (source.valueLoaded() && !copy->valueLoaded()) throw std::bad_alloc();
    // DcmObject has no setter for the element number; the copy is ours and not const.
    const_cast<DcmTag&>(copy->getTag()) = target.getTag();

    std::unique_ptr<DcmElement> old(item.remove(&target));
    if (!old) return; // not in this item: nothing was taken out, so nothing goes in
    try {
        if (kxmap::insertElement(item, copy)) return;
    } catch (...) {
        kxmap::insertElement(item, old);
        throw;
    }
    kxmap::insertElement(item, old);
}

} // namespace

const char* kxmap::elementText(DcmElement& element)
{
    char* text = nullptr;
    std::ignore = element.getString(text); // a VR without text leaves null, which is the answer
    return text;
}

Value::Value() : made(false), refCount(1), str(nullptr) {}

Value::~Value()
{
    delete[] str;
}

void Value::makeString() {}

char* Value::getString()
{
    if (!made) {
        makeString();
        made = true;
    }
    return str;
}

Value::operator DcmElement*() const
{
    return nullptr;
}

StringValue::StringValue(const char* s)
{
    if (s == nullptr) s = "";
    const std::size_t bytes = std::strlen(s) + 1;
    str = bytes <= sizeof short_ ? static_cast<char*>(std::memcpy(short_, s, bytes)) : newdup(s);
}

StringValue::~StringValue()
{
    if (str == short_) str = nullptr; // no array, which the base would release
}

void StringValue::assignTo(DcmItem* /*item*/, DcmElement* target) const
{
    OFLOG_DEBUG(logger, "Applying " << Quoted{str});
    std::ignore = target->putString(str); // a rule never fails: the element is as DCMTK left it
}

TagValue::TagValue(DcmElement* source) : element(source) {}

void TagValue::makeString()
{
    if (element == nullptr) return;
    const char* text = kxmap::elementText(*element);
    const kxmap::CharArray old(std::exchange(str, nullptr));
    str = newdup(text == nullptr ? "" : text);
}

void TagValue::assignTo(DcmItem* item, DcmElement* target) const
{
    if (element == nullptr) return;
    if (logger.isEnabledFor(OFLogger::DEBUG_LOG_LEVEL)) {
        // Read before the event is begun: DCMTK may log while it reads, and both would share one stream.
        const Quoted text{kxmap::elementText(*element)};
        OFLOG_DEBUG(logger, "Applying " << text);
    }
    if (element == target) return;
    if (element->getTag().getEVR() == target->getTag().getEVR()) return replaceByCopy(*item, *target, *element);
    std::ignore = target->putString(kxmap::elementText(*element)); // null clears; refusals leave the element as it is
}

TagValue::operator DcmElement*() const
{
    return element;
}
