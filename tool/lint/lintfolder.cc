// SPDX-License-Identifier: BSD-3-Clause
// A mappings folder: which of its entries the engine reads, and whom they serve.
#include "tool/console/output.h"
#include "tool/console/text.h"
#include "tool/lint/filenames.h"
#include "tool/lint/lint.h"
#include "tool/rules/mappingsfolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <map>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

Stage stageOf(const FileMeaning& meaning)
{
    const bool isOutbound = meaning.direction == Direction::Outbound;
    switch (meaning.role) {
    case FileMeaning::Role::Pre:
        return isOutbound ? Stage::OutboundPre : Stage::Pre;
    case FileMeaning::Role::Title:
        return isOutbound ? Stage::OutboundTitle : Stage::Title;
    case FileMeaning::Role::Post:
        return isOutbound ? Stage::OutboundPost : Stage::Post;
    case FileMeaning::Role::Unread:
        break;
    }
    return Stage::Alone;
}

bool isFolder(const fs::path& path)
{
    std::error_code failure;
    return fs::is_directory(path, failure);
}

void reportUnread(const fs::path& entry, std::string message, std::string hint, Findings& findings)
{
    Finding finding{Check::FileNotRead, nullptr, nullptr, {}, std::move(message), std::move(hint)};
    finding.entry = entry;
    findings.add(std::move(finding));
}

bool holdsMaps(const fs::path& folder)
{
    const std::vector<fs::path> entries = entriesOf(folder);
    return std::ranges::any_of(entries, [](const fs::path& entry) { return entry.native().ends_with(".map"); });
}

/// @return whether a file of another suffix is a mapping file by its content: rules, and nothing that is lost.
bool holdsRules(const fs::path& file)
{
    constexpr std::array kSuffixes = {"", ".txt", ".cfg", ".conf", ".rules"};
    constexpr std::uintmax_t kMostBytes = 1 << 20;
    std::error_code failure;
    if (std::ranges::find(kSuffixes, file.extension().native()) == kSuffixes.end() ||
        !fs::is_regular_file(file, failure) || fs::file_size(file, failure) > kMostBytes || failure)
        return false;
    const RuleFile rules = readRuleFile(file);
    return rules.ruleCount() > 0 && rules.badCount() == 0;
}

// An entry that somebody may think is in force.
void lintUnread(const fs::path& folder, const fs::path& entry, Findings& findings)
{
    const std::string name = entry.filename().native();
    const std::string why = whyUnread(folder, entry.lexically_relative(folder));
    if (why.empty()) return;
    if (isFolder(entry) && !name.ends_with(".map")) {
        if (entry == folder / kxmap::kGlobalDirectory || !holdsMaps(entry)) return;
        const NameSlip slip = slipInFolder(name);
        reportUnread(entry, slip.message, slip.hint, findings);
    } else if (lowered(name).ends_with(".map")) {
        reportUnread(entry, "the engine passes over it: " + why, "", findings);
    } else if (const auto slip = slipInSuffix(name)) {
        reportUnread(entry, slip->message, slip->hint, findings);
    } else if (holdsRules(entry)) {
        reportUnread(entry, "the engine passes over it, though it holds rules: " + why, "", findings);
    }
}

void lintName(const RuleFile& file, const FileMeaning& meaning, Findings& findings)
{
    if (const std::string why = whyNoTitle(meaning.title); !why.empty())
        findings.add({Check::TitleTooLong, &file, nullptr, {}, "the file serves nobody: " + why, ""});
    if (const auto slip = slipInTitle(meaning.title))
        findings.add({Check::OddFileName, &file, nullptr, {}, slip->message, slip->hint});
    if (meaning.direction == Direction::Outbound)
        findings.add(
            {Check::OutboundInbound,
             &file,
             nullptr,
             {},
             fmt::format("the file is applied to datasets from the AE title \"{}\" as well", meaning.inboundTitle),
             ""});
}

// Two files whose titles differ in the case of letters alone: one of them is for nobody.
void lintTwins(const fs::path& folder, std::span<const RuleFile> files, Findings& findings)
{
    std::map<std::string, fs::path> seen;
    for (const RuleFile& file : files) {
        const fs::path name = file.path.lexically_relative(folder);
        const auto [at, isFirst] = seen.emplace(lowered(name.native()), name);
        if (!isFirst)
            findings.add({Check::OddFileName,
                          &file,
                          nullptr,
                          {},
                          fmt::format("{} is named so, too, but for the case of letters: AE titles match to the byte",
                                      at->second.native()),
                          ""});
    }
}

} // namespace

std::vector<Stage> lintFolder(const fs::path& folder, std::span<const RuleFile> files, Findings& findings)
{
    const fs::path global = folder / kxmap::kGlobalDirectory;
    for (const fs::path& entry : entriesOf(folder)) lintUnread(folder, entry, findings);
    if (isFolder(global)) {
        for (const fs::path& entry : entriesOf(global)) lintUnread(folder, entry, findings);
    }
    lintTwins(folder, files, findings);
    std::vector<Stage> stages;
    for (const RuleFile& file : files) {
        const fs::path name = file.path.lexically_relative(folder);
        const FileMeaning meaning = meaningOf(name);
        stages.push_back(stageOf(meaning));
        if (meaning.role == FileMeaning::Role::Title) lintName(file, meaning, findings);
    }
    return stages;
}

} // namespace kxtool
