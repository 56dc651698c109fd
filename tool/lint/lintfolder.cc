// SPDX-License-Identifier: BSD-3-Clause
// A mappings folder: which of its entries the engine reads, and whom they serve.
#include "tool/console/output.h"
#include "tool/lint/lint.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".map";
constexpr std::string_view kOutboundSuffix = ".out.map";
constexpr std::size_t kTitleBytes = 16; // of an AE title: DICOM PS3.5, AE
constexpr std::size_t kNameBytes = 127; // of a mapping's name

struct Global {
    const char* name;
    Stage stage;
};
constexpr Global kGlobals[] = {{"pre.map", Stage::Pre},
                               {"outpre.map", Stage::OutboundPre},
                               {"post.map", Stage::Post},
                               {"outpost.map", Stage::OutboundPost}};

bool isMap(const fs::path& name)
{
    return name.native().ends_with(kSuffix);
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

bool isRegular(const fs::path& path)
{
    std::error_code failure;
    return fs::is_regular_file(path, failure);
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
void lintUnread(const fs::path& entry, bool isGlobal, Findings& findings)
{
    const std::string name = entry.filename().native();
    std::string message;
    if (isMap(entry) && !isRegular(entry)) message = "the engine passes over it: it is no regular file";
    else if (isMap(entry) && entry.native().size() > kxmap::kMaxPathBytes)
        message = "the engine passes over it: the path is longer than 1023 bytes";
    else if (isGlobal && isMap(entry) &&
             std::ranges::none_of(kGlobals, [&](const Global& global) { return name == global.name; }))
        message = "the engine reads pre.map, post.map, outpre.map and outpost.map of this folder";
    else if (!isMap(entry) && lowered(name).ends_with(kSuffix))
        message = "the engine passes over it: names end in \".map\", in lower case";
    if (message.empty()) return;
    Finding finding{Check::FileNotRead, nullptr, nullptr, {}, std::move(message), ""};
    finding.entry = entry;
    findings.add(std::move(finding));
}

void lintName(const RuleFile& file, bool isOutbound, Findings& findings)
{
    const std::string name = file.path.filename().native();
    const std::string title = name.substr(0, name.size() - (isOutbound ? kOutboundSuffix : kSuffix).size());
    if (title.size() > kNameBytes || title.size() > kTitleBytes || title.empty()) {
        const std::string message =
            title.empty() ? "the file serves an empty AE title, which no sender has"
            : title.size() > kNameBytes
                ? fmt::format("the name is cut after {} bytes, and an AE title has {} at most", kNameBytes, kTitleBytes)
                : fmt::format("no AE title matches the name: it has {} bytes, an AE title {} at most", title.size(),
                              kTitleBytes);
        findings.add({Check::TitleTooLong, &file, nullptr, {}, message, ""});
    }
    if (isOutbound)
        findings.add({Check::OutboundInbound,
                      &file,
                      nullptr,
                      {},
                      fmt::format("the file is applied to datasets from the AE title \"{}.out\" as well", title),
                      ""});
}

} // namespace

std::vector<fs::path> mappingFilesOf(const fs::path& folder)
{
    std::vector<fs::path> files;
    const auto add = [&files](fs::path path) {
        if (isRegular(path) && path.native().size() <= kxmap::kMaxPathBytes) files.push_back(std::move(path));
    };
    add(folder / "global" / "pre.map");
    add(folder / "global" / "outpre.map");
    for (const fs::path& entry : entriesOf(folder)) {
        if (isMap(entry)) add(entry);
    }
    add(folder / "global" / "post.map");
    add(folder / "global" / "outpost.map");
    return files;
}

std::vector<Stage> lintFolder(const fs::path& folder, std::span<const RuleFile> files, Findings& findings)
{
    for (const fs::path& entry : entriesOf(folder)) lintUnread(entry, false, findings);
    if (isFolder(folder / "global")) {
        for (const fs::path& entry : entriesOf(folder / "global")) lintUnread(entry, true, findings);
    }
    std::vector<Stage> stages;
    for (const RuleFile& file : files) {
        const std::string name = file.path.filename().native();
        if (file.path.parent_path() == folder / "global") {
            const auto* global =
                std::ranges::find_if(kGlobals, [&](const Global& known) { return name == known.name; });
            stages.push_back(global == std::end(kGlobals) ? Stage::Alone : global->stage);
            continue;
        }
        const bool isOutbound = name.ends_with(kOutboundSuffix);
        stages.push_back(isOutbound ? Stage::OutboundTitle : Stage::Title);
        lintName(file, isOutbound, findings);
    }
    return stages;
}

} // namespace kxtool
