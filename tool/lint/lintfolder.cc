// SPDX-License-Identifier: BSD-3-Clause
// A mappings folder: which of its entries the engine reads, and whom they serve.
#include "tool/console/output.h"
#include "tool/lint/lint.h"
#include "tool/rules/mappingsfolder.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>

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

std::vector<fs::path> entriesOf(const fs::path& folder)
{
    std::error_code failure;
    std::vector<fs::path> entries;
    fs::directory_iterator entry(folder, failure);
    for (; !failure && entry != fs::directory_iterator(); entry.increment(failure)) entries.push_back(entry->path());
    if (failure) throw FileError(folder, failure.message());
    std::ranges::sort(entries, {}, &fs::path::native);
    return entries;
}

bool isFolder(const fs::path& path)
{
    std::error_code failure;
    return fs::is_directory(path, failure);
}

std::string lowered(std::string text)
{
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

// An entry that somebody may think is in force.
void lintUnread(const fs::path& folder, const fs::path& entry, Findings& findings)
{
    if (!lowered(entry.filename().native()).ends_with(".map")) return;
    const std::string why = whyUnread(folder, entry.lexically_relative(folder));
    if (why.empty()) return;
    Finding finding{Check::FileNotRead, nullptr, nullptr, {}, "the engine passes over it: " + why, ""};
    finding.entry = entry;
    findings.add(std::move(finding));
}

void lintName(const RuleFile& file, const FileMeaning& meaning, Findings& findings)
{
    if (const std::string why = whyNoTitle(meaning.title); !why.empty())
        findings.add({Check::TitleTooLong, &file, nullptr, {}, "the file serves nobody: " + why, ""});
    if (meaning.direction == Direction::Outbound)
        findings.add(
            {Check::OutboundInbound,
             &file,
             nullptr,
             {},
             fmt::format("the file is applied to datasets from the AE title \"{}\" as well", meaning.inboundTitle),
             ""});
}

} // namespace

std::vector<fs::path> mappingFilesOf(const fs::path& folder)
{
    std::vector<fs::path> files;
    const auto add = [&](const fs::path& name) {
        if (whyUnread(folder, name).empty()) files.push_back(folder / name);
    };
    const auto addGlobal = [&add](const char* name) {
        for (const Direction direction : {Direction::Inbound, Direction::Outbound})
            add(kxmap::globalFile(direction, name));
    };
    addGlobal("pre");
    for (const fs::path& entry : entriesOf(folder)) add(entry.filename());
    addGlobal("post");
    return files;
}

std::vector<Stage> lintFolder(const fs::path& folder, std::span<const RuleFile> files, Findings& findings)
{
    const fs::path global = folder / kxmap::kGlobalDirectory;
    for (const fs::path& entry : entriesOf(folder)) lintUnread(folder, entry, findings);
    if (isFolder(global)) {
        for (const fs::path& entry : entriesOf(global)) lintUnread(folder, entry, findings);
    }
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
