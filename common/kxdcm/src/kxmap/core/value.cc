// SPDX-License-Identifier: BSD-3-Clause
// Values: their texts, and how each kind fills an element.
#include "kxmap.h"

#include "kxmap/core/elements.h"
#include "kxmap/core/guards.h"

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

/// For log lines, which print it when their level is on: `"text"`, or (NULL).
struct Quoted {
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const Quoted& quoted)
{
    return quoted.text == nullptr ? out << "(NULL)" : out << '"' << quoted.text << '"';
}

/// Puts a text; null clears. What the VR refuses leaves the element as DCMTK leaves it, since a rule never fails. When
/// memory is exhausted DCMTK leaves a length without bytes, and throws only if it cannot log that, either: so the
/// element is emptied and the exception thrown here.
void putText(DcmElement& target, const char* text)
{
    try {
        const OFCondition result = target.putString(text);
        if (result != EC_MemoryExhausted && result != EC_InvalidStream) return; // numbers say the one, texts the other
    } catch (const std::bad_alloc&) {
        // handled below, as the conditions are
    }
    if (!target.valueLoaded()) std::ignore = target.putString(nullptr);
    throw std::bad_alloc();
}

/// @return whether the copy has all that its source has. DCMTK's copy of a value that found no memory has its length,
///         but no bytes, and nothing was thrown.
bool isWhole(DcmObject& copy, DcmObject& source)
{
    if (source.isLeaf())
        return static_cast<DcmElement&>(copy).valueLoaded() || !static_cast<DcmElement&>(source).valueLoaded();
    DcmObject* copied = copy.nextInContainer(nullptr);
    for (DcmObject* part = source.nextInContainer(nullptr); part != nullptr; part = source.nextInContainer(part)) {
        if (copied == nullptr || !isWhole(*copied, *part)) return false;
        copied = copy.nextInContainer(copied);
    }
    return true;
}

/// Lets a copy be inserted where DCMTK's insertion would put it if the old element were gone. That one must stay until
/// the item has the copy, since an insertion may find no memory. So it has the greatest tag meanwhile: DCMTK looks for
/// the place from the item's end, down to the first smaller tag, and passes over it. It is removed, without asking for
/// memory, once the item owns the copy; else it stays as it was. (An exchange in its place in the list would leave the
/// copy out of order where a server has re-tagged the old one.)
class Replacement {
public:
    Replacement(DcmItem& item, DcmElement& old, const std::unique_ptr<DcmElement>& copy)
        : item_(item), old_(old), copy_(copy), inserted_(copy.get()), tag_(const_cast<DcmTag&>(old.getTag())),
          key_(tag_)
    {
        tag_.set(DCM_UndefinedTagKey); // (ffff,ffff); DcmObject has no setter for the element number
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;
    ~Replacement()
    {
        tag_.set(key_);
        if (copy_) return;
        std::unique_ptr<DcmElement> gone(item_.remove(&old_));
        if (!gone) gone.reset(item_.remove(inserted_)); // not in this item: nothing was taken out, so nothing goes in
    }

private:
    DcmItem& item_;
    DcmElement& old_;
    const std::unique_ptr<DcmElement>& copy_;
    DcmElement* inserted_;
    DcmTag& tag_;
    DcmTagKey key_;
};

/// Puts a copy of `source` in the place of `target`, which is destroyed. Both have the same VR, so the copy can carry
/// the target's tag as it is. The copy is whole before anything is taken out: the source may lie inside the target, and
/// when memory is exhausted the item keeps what it had.
void replaceByCopy(DcmItem& item, DcmElement& target, DcmElement& source)
{
    std::unique_ptr<DcmElement> copy(static_cast<DcmElement*>(source.clone()));
    if (!isWhole(*copy, source)) throw std::bad_alloc();
    const_cast<DcmTag&>(copy->getTag()) = target.getTag(); // the copy is ours and not const
    const Replacement replacement(item, target, copy);
    kxmap::insertElement(item, copy);
}

} // namespace

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
    str = newdup(s == nullptr ? "" : s);
}

void StringValue::assignTo(DcmItem* /*item*/, DcmElement* target) const
{
    OFLOG_DEBUG(logger, "Applying " << Quoted{str});
    putText(*target, str);
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
    putText(*target, kxmap::elementText(*element));
}

TagValue::operator DcmElement*() const
{
    return element;
}
