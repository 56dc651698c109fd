// SPDX-License-Identifier: BSD-3-Clause
// Left sides: what the parser accepts is compared with a plain reading by `sscanf`, and written to with a text, with
// NULL and with elements of the dataset.
#include "support/harness.h"

#include <dcmtk/dcmdata/dcsequen.h>
#include <dcmtk/dcmdata/dcstack.h>

#include <cstdio>
#include <vector>

using kxfuzz::require;

namespace {

constexpr std::string_view kNameBytes = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

/// "@" or not, letters and digits, and the terminator at the very end.
bool isName(std::string_view text, std::size_t start, char terminator)
{
    if (start >= text.size() || text.back() != terminator) return false;
    std::string_view name = text.substr(start, text.size() - start - 1);
    if (name.starts_with('@')) name.remove_prefix(1);
    if (name.empty() || name.find_first_not_of(kNameBytes) != std::string_view::npos) return false;
    return name.find(terminator) == std::string_view::npos;
}

/// Reads what stands between the brackets of "SEQ(...)". @return its numbers; none for a path that must be refused.
std::vector<int> readPath(const std::string& text)
{
    std::string inner = text.substr(4);
    if (!inner.empty()) inner.pop_back();
    inner += ',';
    std::vector<int> path;
    for (std::size_t start = 0; start < inner.size();) {
        const std::size_t comma = inner.find(',', start);
        const std::string piece = inner.substr(start, comma - start);
        start = comma + 1;
        int number = 0;
        if (path.size() % 3 == 2) {
            if (std::sscanf(piece.c_str(), "%d", &number) != 1) return {};
        } else if (unsigned int component = 0; std::sscanf(piece.c_str(), "%4X", &component) == 1) {
            number = static_cast<int>(component);
        } else {
            return {};
        }
        path.push_back(number);
    }
    if (path.size() % 3 != 2 || path[path.size() - 2] == -1 || path.back() == -1) return {};
    return path;
}

void checkTag(const std::string& text, const LVObject* target)
{
    unsigned int group = 0;
    unsigned int element = 0;
    const bool isTag = text.size() == 11 && std::sscanf(text.c_str(), "(%4X,%4X)", &group, &element) == 2;
    const auto* tag = dynamic_cast<const LVDicomTag*>(target);
    require(isTag == (tag != nullptr), "a tag is accepted as sscanf reads it");
    if (tag == nullptr) return;
    require(dynamic_cast<const LVSeqDicomTag*>(target) == nullptr, "a tag is no path");
    const DcmTagKey key(static_cast<Uint16>(group), static_cast<Uint16>(element));
    require(static_cast<const DcmTagKey&>(tag->tag) == key, "a tag has the numbers that sscanf reads");
}

void checkPath(const std::string& text, const LVObject* target)
{
    const std::vector<int> path = readPath(text);
    const auto* tag = dynamic_cast<const LVSeqDicomTag*>(target);
    require(path.empty() == (tag == nullptr), "a path is accepted as sscanf reads it");
    if (tag == nullptr) return;
    require(std::vector<int>(tag->path.begin(), tag->path.end()) == path, "a path has the numbers that sscanf reads");
    const DcmTagKey key(static_cast<Uint16>(path[path.size() - 2]), static_cast<Uint16>(path.back()));
    require(static_cast<const DcmTagKey&>(tag->tag) == key, "a path ends in its tag");
}

template <typename Target>
void checkNamed(const std::string& text, std::size_t prefixBytes, const LVObject* target)
{
    const auto* named = dynamic_cast<const Target*>(target);
    require(isName(text, prefixBytes, ')') == (named != nullptr), "a name is letters and digits");
    if (named == nullptr) return;
    require(named->name == text.substr(prefixBytes, text.size() - prefixBytes - 1), "a name is kept as it stands");
}

void checkForm(const std::string& text, const LVObject* target)
{
    const bool isReported = text.empty() || text.starts_with('(') || text.starts_with("SEQ(");
    require(errorlogs.empty() != (target == nullptr && isReported), "only the known forms are reported, and all are");
    if (text.starts_with('(')) return checkTag(text, target);
    if (text.starts_with("SEQ(")) return checkPath(text, target);
    if (text.starts_with("USER(")) return checkNamed<LVCustomField>(text, 5, target);
    if (text.starts_with("$(")) return checkNamed<LVTempVar>(text, 2, target);
    require(target == nullptr, "other forms are refused");
}

/// @return the dataset's own element.
DcmElement* elementOf(DcmDataset& dataset, Uint16 group, Uint16 element)
{
    DcmStack stack;
    const bool isThere = dataset.search(DcmTagKey(group, element), stack, ESM_fromHere, OFFalse).good();
    return isThere ? static_cast<DcmElement*>(stack.top()) : nullptr;
}

/// @return the element that a target stands for; null while there is none.
DcmElement* elementOf(const LVObject& target, DcmDataset& dataset)
{
    const auto* tag = dynamic_cast<const LVDicomTag*>(&target);
    if (tag == nullptr) return nullptr;
    DcmItem* item = &dataset;
    if (const auto* path = dynamic_cast<const LVSeqDicomTag*>(tag)) {
        std::list<int> way = path->path;
        item = getParentItem(way, item);
    }
    DcmStack stack;
    const bool isThere = item != nullptr && item->search(tag->tag, stack, ESM_fromHere, OFFalse).good();
    return isThere ? static_cast<DcmElement*>(stack.top()) : nullptr;
}

/// An element's value in words, binary ones too.
std::string valueOf(DcmElement& element)
{
    if (!element.isLeaf()) return std::to_string(static_cast<DcmSequenceOfItems&>(element).card()) + " items";
    OFString text;
    return element.getOFStringArray(text).good() ? text.c_str() : "";
}

/// Gives an element to a target; where the VRs are the same, it must have the same value then.
void assignElement(LVObject& target, MappingSession& session, DcmElement& source)
{
    const std::string expected = valueOf(source);
    const DcmEVR vr = source.getTag().getEVR();
    const kxfuzz::ValueOwner value(new TagValue(&source));
    target.assignValue(session, value.value);
    require(value.value->refCount == 1, "a target keeps no reference");
    DcmElement* now = elementOf(target, *session.dataset);
    require(now == nullptr || now->getTag().getEVR() != vr || valueOf(*now) == expected, "the same VR is copied");
}

/// What is left of a dataset without that which a target may have changed.
std::optional<std::string> untouched(const DcmDataset& dataset, const LVObject& target)
{
    DcmDataset rest(dataset);
    kxfuzz::removeTarget(rest, target);
    return kxfuzz::written(rest, EXS_LittleEndianExplicit);
}

void checkWriting(LVObject& target)
{
    const std::unique_ptr<DcmDataset> dataset = kxfuzz::sampleCopy();
    MappingSession session = kxfuzz::sampleSession(dataset.get());
    const kxfuzz::ValueOwner text(new StringValue("17\\42"));
    target.assignValue(session, text.value);
    // OB, US, LO, UN and SQ, onto whatever stands there: the same VR is copied, others are put as texts.
    for (const DcmTagKey& key : {DcmTagKey(0x0042, 0x0011), DcmTagKey(0x0028, 0x0010), DcmTagKey(0x0009, 0x1001),
                                 DcmTagKey(0x0009, 0x1002), DcmTagKey(0x0040, 0x0275)}) {
        DcmElement* source = elementOf(*dataset, key.getGroup(), key.getElement());
        if (source == nullptr) continue; // was the target, and made way
        assignElement(target, session, *source);
    }
    kxfuzz::requireReadsBack(*dataset, EXS_LittleEndianExplicit);

    target.assignValue(session, nullptr);
    require(elementOf(target, *dataset) == nullptr, "NULL deletes");
    require(untouched(*dataset, target) == untouched(*kxfuzz::sampleCopy(), target), "all else stays to the byte");
    if (const auto* variable = dynamic_cast<const LVTempVar*>(&target)) {
        require(session.getVariable(variable->name.c_str()) == nullptr, "NULL clears a variable");
        target.assignValue(session, text.value);
        const char* now = session.getVariable(variable->name.c_str());
        require(now != nullptr && now == std::string_view("17\\42"), "a cleared variable takes the next text");
    }
    if (const auto* field = dynamic_cast<const LVCustomField*>(&target)) {
        require(session.customFields.getFieldValue(field->name.c_str()) == nullptr, "NULL clears a field");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kxfuzz::begin(size);
    const std::string given(reinterpret_cast<const char*>(data), size);
    if (size > 0) {
        const unsigned long start = data[0] % 8U;
        const char terminator = size > 1 ? given[size / 2] : ')';
        require(checkName(given, start, terminator) == isName(given, start, terminator), "names are as checkName says");
    }
    std::string text(given);
    const std::unique_ptr<LVObject> target(parseLV(text));
    require(text == given, "parsing leaves the text");
    checkForm(given, target.get());
    if (target) checkWriting(*target);
    return 0;
}
