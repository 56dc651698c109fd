// SPDX-License-Identifier: BSD-3-Clause
#include "tool/record/reach.h"

#include "tool/console/text.h"

#include <algorithm>
#include <string_view>

namespace kxtool {
namespace {

bool isBeforePixelData(long group)
{
    return group >= 0 && group < kPixelDataGroup;
}

// Stricter than the engine, which also reads signs, blanks and fewer digits: other spellings may mean any group.
bool isSpelledBeforePixelData(const char* group)
{
    const std::string_view text = group == nullptr ? "" : group;
    const auto value = readHex(text);
    return text.size() == 4 && value && isBeforePixelData(*value);
}

bool isTagReference(const Expression& node)
{
    return node.func == &f_seq || (node.func == &f_empty && node.params.size() != 1);
}

// Parsed trees are not deeper than the engine's limit of nesting.
bool staysBefore(const Expression& node)
{
    if (isTagReference(node) && (node.params.empty() || !isSpelledBeforePixelData(node.params.front()->text)))
        return false;
    return std::ranges::all_of(node.params, [](const Expression* argument) { return staysBefore(*argument); });
}

bool staysBefore(const LVObject& target)
{
    if (const auto* inSequence = dynamic_cast<const LVSeqDicomTag*>(&target); inSequence && !inSequence->path.empty())
        return isBeforePixelData(inSequence->path.front());
    const auto* element = dynamic_cast<const LVDicomTag*>(&target);
    return element == nullptr || isBeforePixelData(element->tag.getGroup());
}

bool staysBefore(const RuleLine& line)
{
    return line.kind != RuleLine::Kind::Rule || (staysBefore(*line.target) && staysBefore(*line.expression));
}

} // namespace

DicomFile::Extent extentOf(const RulesInOrder& rules)
{
    const bool isHeader = std::ranges::all_of(rules, [](const RuleFile* file) {
        return std::ranges::all_of(file->lines, [](const RuleLine& line) { return staysBefore(line); });
    });
    return isHeader ? DicomFile::Extent::Header : DicomFile::Extent::Whole;
}

} // namespace kxtool
