// SPDX-License-Identifier: BSD-3-Clause
// Whole mapping texts: both readers, and rules applied to a dataset with sequences, private and binary elements.
#include "support/harness.h"

#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

using kxfuzz::require;

namespace {

constexpr std::size_t kMaxPieceBytes = 2039; // of a line in a file, its line feed included

bool hasShortLines(std::string_view text)
{
    std::size_t start = 0;
    for (std::size_t end = 0; end != std::string_view::npos; start = end + 1) {
        end = text.find('\n', start);
        if ((end == std::string_view::npos ? text.size() : end) - start >= kMaxPieceBytes) return false;
    }
    return true;
}

bool sameTarget(const LVObject& a, const LVObject& b)
{
    if (const auto* path = dynamic_cast<const LVSeqDicomTag*>(&a)) {
        const auto* other = dynamic_cast<const LVSeqDicomTag*>(&b);
        return other != nullptr && path->path == other->path;
    }
    if (const auto* tag = dynamic_cast<const LVDicomTag*>(&a)) {
        const auto* other = dynamic_cast<const LVDicomTag*>(&b);
        return other != nullptr && tag->tag == other->tag;
    }
    if (const auto* field = dynamic_cast<const LVCustomField*>(&a)) {
        const auto* other = dynamic_cast<const LVCustomField*>(&b);
        return other != nullptr && field->name == other->name;
    }
    const auto* variable = dynamic_cast<const LVTempVar*>(&a);
    const auto* other = dynamic_cast<const LVTempVar*>(&b);
    return variable != nullptr && other != nullptr && variable->name == other->name;
}

std::string printed(const Expression& tree)
{
    std::ostringstream out;
    out << tree;
    return out.str();
}

/// A text whose lines fit the file reader's buffer is read to the same rules from memory and from a file.
void checkFileReader(std::string& text, const Mapping& fromText, const std::string& errorsFromText)
{
    std::FILE* file = fmemopen(text.data(), text.size(), "r");
    require(file != nullptr, "a file in memory can be opened");
    errorlogs.clear();
    const Mapping fromFile(file, "AE");
    std::fclose(file);
    if (text.find('\0') != std::string::npos || !hasShortLines(text)) return;

    require(errorlogs == errorsFromText, "both readers report the same");
    const bool same =
        std::equal(fromText.assignments.begin(), fromText.assignments.end(), fromFile.assignments.begin(),
                   fromFile.assignments.end(), [](const Assignment* a, const Assignment* b) {
                       return sameTarget(*a->lvalue, *b->lvalue) && printed(*a->expression) == printed(*b->expression);
                   });
    require(same, "both readers read the same rules");
}

/// Whether a second run must change nothing: every right side is a constant, and no rule touches the reservation of the
/// server's private block, on which it depends whether the block's elements are made.
bool mustSettle(const Mapping& mapping)
{
    return std::all_of(mapping.assignments.begin(), mapping.assignments.end(), [](const Assignment* assignment) {
        const auto* tag = dynamic_cast<const LVDicomTag*>(assignment->lvalue);
        return kxfuzz::isConstant(*assignment->expression) &&
               (tag == nullptr || !(tag->tag == DcmTagKey(0x0075, 0x0010)));
    });
}

/// What a run leaves behind.
struct Outcome {
    std::optional<std::string> bytes;
    std::map<std::string, std::string> variables;
    std::map<std::string, std::string> atVariables;
    KXCustomFields::Fields fields;
    bool operator==(const Outcome&) const = default;
};

Outcome outcomeOf(const MappingSession& session)
{
    return {kxfuzz::written(*session.dataset, EXS_LittleEndianExplicit), session.variables, session.atVariables,
            session.customFields.fields()};
}

void checkApplying(Mapping& mapping)
{
    const std::unique_ptr<DcmDataset> dataset = kxfuzz::sampleCopy();
    MappingSession session = kxfuzz::sampleSession(dataset.get());
    if (!kxfuzz::applyStepwise(mapping, session)) return;
    const Outcome stepwise = outcomeOf(session);
    // DCMTK makes this length right once it has read the pixel data, not when a rule has made them.
    std::unique_ptr<DcmElement>(dataset->remove(DcmTagKey(0x7FE0, 0x0000))).reset();
    kxfuzz::requireReadsBack(*dataset, EXS_LittleEndianExplicit);

    const std::unique_ptr<DcmDataset> other = kxfuzz::sampleCopy();
    MappingSession whole = kxfuzz::sampleSession(other.get());
    gseed = 0;
    require(mapping.apply(whole) == 0, "a mapping says 0");
    require(outcomeOf(whole) == stepwise, "a mapping is its rules, one after the other");
    if (!mustSettle(mapping)) return;
    mapping.apply(whole);
    require(outcomeOf(whole) == stepwise, "constants applied twice are constants applied once");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0; // no file in memory to open
    kxfuzz::begin(size);
    std::string text(reinterpret_cast<const char*>(data), size);
    Mapping mapping(text.c_str(), "AE");
    checkFileReader(text, mapping, std::string(errorlogs));
    if (!mapping.assignments.empty()) checkApplying(mapping);
    return 0;
}
