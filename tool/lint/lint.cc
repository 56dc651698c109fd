// SPDX-License-Identifier: BSD-3-Clause
// Which checks are on, what looks at which line, and the order of what is found.
#include "tool/lint/lint.h"

#include "tool/console/switches.h"

#include <algorithm>
#include <functional>
#include <tuple>

namespace kxtool {
namespace {

// A text file has next to no NUL bytes; in UTF-16 every second byte is one, and in a DICOM file most lines have some.
bool isBinary(const RuleFile& file)
{
    const auto nuls = static_cast<std::size_t>(std::ranges::count(file.lines, true, &RuleLine::hasNul));
    return nuls > 0 && nuls * 4 >= file.lines.size() && file.ruleCount() == 0;
}

bool isUtf16(const RuleLine& line)
{
    return line.text.starts_with("\xFF\xFE") || line.text.starts_with("\xFE\xFF");
}

void lintBinary(const RuleFile& file, Findings& findings)
{
    const RuleLine& first = file.lines.front();
    const bool looksWide = isUtf16(first) || (first.text.size() == 1 && first.hasNul);
    findings.add({Check::BinaryFile,
                  &file,
                  nullptr,
                  {},
                  "this is no text file: it holds NUL bytes",
                  looksWide ? "it looks like UTF-16; save it as UTF-8 without a byte order mark" : ""});
}

bool isComment(const RuleLine& line)
{
    return line.text.starts_with('#');
}

/// @param inComment whether the line that this is a piece of begins with "#".
void lintLine(const Site& site, bool inComment)
{
    if (site.line.kind != RuleLine::Kind::WithoutEquals || site.line.column == 0 || !inComment) lintText(site);
    if (isComment(site.line)) return; // whatever follows, the engine makes no rule of it
    if (site.line.kind == RuleLine::Kind::Bad) lintError(site);
    if (site.line.kind != RuleLine::Kind::Rule) return;
    lintLiterals(site);
    lintTarget(site);
}

void lintFile(const RuleFile& file, Findings& findings)
{
    if (isBinary(file)) {
        lintBinary(file, findings);
        return;
    }
    const auto mayBeRule = [](const RuleLine& line) {
        return line.kind != RuleLine::Kind::WithoutEquals && !isComment(line);
    };
    if (std::ranges::none_of(file.lines, mayBeRule)) {
        const char* message = file.lines.empty() ? "the file is empty" : "the file holds no rule";
        findings.add({Check::EmptyFile, &file, nullptr, {}, message, ""});
    }
    bool inComment = false;
    for (const RuleLine& line : file.lines) {
        if (line.column == 0) inComment = isComment(line);
        lintLine({file, line, findings}, inComment);
    }
}

} // namespace

CheckSwitches::CheckSwitches()
{
    for (std::size_t i = 0; i < kCheckCount; ++i) isOn_[i] = kChecks[i].isDefault;
}

bool CheckSwitches::set(std::string_view text)
{
    return readSwitch(
        text, kChecks, [](const CheckInfo& info) { return info.severity == Severity::Error ? nullptr : info.name; },
        [this](std::size_t index, bool isOn) { isOn_[index] = isOn; });
}

std::vector<Finding> Findings::take()
{
    struct Place {
        const RuleFile* file;
        std::size_t line; ///< 0 for the whole file
        std::size_t offset;
        std::size_t index; ///< in what was found
    };
    std::vector<Place> places;
    places.reserve(found_.size());
    for (const Finding& one : found_) {
        const std::size_t line = one.line == nullptr ? 0 : one.line->line;
        const std::size_t offset = one.line == nullptr ? 0 : one.line->column + one.span.begin;
        places.push_back({one.file, line, offset, places.size()});
    }
    std::ranges::sort(places, [](const Place& a, const Place& b) {
        if (a.file != b.file) return std::less<>()(a.file, b.file);
        return std::tie(a.line, a.offset, a.index) < std::tie(b.line, b.offset, b.index);
    });
    std::vector<Finding> all;
    all.reserve(places.size());
    for (const Place& place : places) all.push_back(std::move(found_[place.index]));
    found_.clear();
    return all;
}

kxmap::Span Site::spanOf(const Expression& node) const
{
    const auto found = std::ranges::find(line.trace.nodes, &node, &kxmap::NodeSpan::node);
    return found == line.trace.nodes.end() ? kxmap::Span{} : found->text;
}

std::vector<Finding> lintAlone(std::span<const RuleFile> files, const CheckSwitches& switches)
{
    Findings findings(switches);
    for (const RuleFile& file : files) lintFile(file, findings);
    const std::vector<Stage> stages(files.size(), Stage::Alone);
    lintVariables(files, stages, findings);
    lintFlow(files, stages, findings);
    return findings.take();
}

std::vector<Finding> lintTogether(const std::filesystem::path& folder, std::span<const RuleFile> files,
                                  const CheckSwitches& switches)
{
    Findings findings(switches);
    for (const RuleFile& file : files) lintFile(file, findings);
    const std::vector<Stage> stages = lintFolder(folder, files, findings);
    lintVariables(files, stages, findings);
    lintFlow(files, stages, findings);
    return findings.take();
}

} // namespace kxtool
