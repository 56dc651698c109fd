// SPDX-License-Identifier: BSD-3-Clause
// The rules by which mapping files are named.
#include "tool/rules/mappingsfolder.h"

#include "tool/console/output.h"
#include "tool/console/text.h"
#include "tool/rules/lintnames.h" // editDistance

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostTitleBytes = 16; // DICOM PS3.5 section 6.2, VR AE

// A set opens regular files alone. It passes over one that it cannot reach; here that is no answer: rules that nobody
// could read are not the same as none.
bool isFile(const fs::path& path)
{
    if (path.native().size() > kxmap::kMaxPathBytes) return false;
    std::error_code failure;
    const fs::file_status status = fs::status(path, failure);
    if (status.type() == fs::file_type::none) throw FileError(path, failure.message());
    if (status.type() == fs::file_type::not_found && fs::is_symlink(path, failure))
        throw FileError(path, "a link that leads nowhere");
    return fs::is_regular_file(status);
}

} // namespace

fs::path findMappingsFolder(const std::string& given)
{
    fs::path folder = given;
    if (given.empty()) {
        const char* root = std::getenv("DICOM_VAR");
        if (root == nullptr || *root == '\0') throw FileError("DICOM_VAR", "not set, and --mappings names no folder");
        folder = fs::path(root) / "mappings";
    }
    std::error_code failure;
    const fs::file_status status = fs::status(folder, failure);
    if (!fs::is_directory(status)) throw FileError(folder, fs::exists(status) ? "not a folder" : systemReason(ENOENT));
    if (access(folder.c_str(), R_OK | X_OK) != 0) throw FileError(folder, systemReason(errno));
    return folder;
}

std::vector<MappingSlot> slotsFor(const fs::path& folder, Direction direction, const std::string& aeTitle)
{
    using Role = MappingSlot::Role;
    std::vector<MappingSlot> slots;
    slots.push_back({Role::Pre, kxmap::globalFile(direction, "pre"), false});
    if (!aeTitle.empty()) slots.push_back({Role::Title, kxmap::titleFile(direction, aeTitle), false});
    slots.push_back({Role::Post, kxmap::globalFile(direction, "post"), false});
    // The engine cuts longer names: such titles have no file either.
    const bool hasFile = kxmap::canNameFile(aeTitle) && aeTitle.size() < kxmap::kMappingNameBytes;
    for (MappingSlot& slot : slots) slot.isThere = (hasFile || slot.role != Role::Title) && isFile(folder / slot.name);
    return slots;
}

std::string titleMeantBy(const fs::path& folder, Direction direction, const std::string& aeTitle)
{
    constexpr std::size_t kShort = 4; // a title of so many bytes is another one with two changes
    const std::size_t most = aeTitle.size() <= kShort ? 1 : 2;
    std::string meant;
    std::size_t least = most + 1;
    for (std::string& title : titlesIn(folder, direction)) {
        const std::size_t distance = editDistance(lowered(aeTitle), lowered(title));
        if (distance >= least) continue;
        least = distance;
        meant = std::move(title);
    }
    return meant;
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

std::vector<std::string> titlesIn(const fs::path& folder, Direction direction)
{
    std::vector<std::string> titles;
    for (const fs::path& entry : entriesOf(folder)) {
        const fs::path name = entry.filename();
        const FileMeaning meaning = meaningOf(name);
        if (meaning.title.empty() || meaning.direction != direction || !isFile(entry)) continue;
        titles.emplace_back(meaning.title);
    }
    std::ranges::sort(titles);
    return titles;
}

FileMeaning meaningOf(const fs::path& name)
{
    const std::string_view whole = name.native();
    const std::string_view::size_type slash = whole.rfind('/');
    if (slash == std::string_view::npos) return kxmap::meaningOf(kxmap::Place::Mappings, whole);
    return kxmap::meaningOf(kxmap::Place::Global, whole.substr(slash + 1));
}

std::string whyUnread(const fs::path& folder, const fs::path& name)
{
    const fs::path path = folder / name;
    std::error_code failure;
    const fs::file_status status = fs::status(path, failure);
    if (fs::is_directory(status)) return "it is a folder";
    if (!fs::is_regular_file(status)) return "it is no regular file";
    if (path.native().size() > kxmap::kMaxPathBytes)
        return fmt::format("its path is longer than {} bytes", kxmap::kMaxPathBytes);
    const char* why = meaningOf(name).whyUnread;
    return why == nullptr ? "" : why;
}

std::string whyNoTitle(std::string_view title)
{
    if (title.empty()) return "no AE title is empty";
    if (title.size() > kMostTitleBytes) return fmt::format("no AE title is longer than {} characters", kMostTitleBytes);
    if (title.starts_with(' ') || title.ends_with(' ')) return "no AE title begins or ends with a blank";
    const bool hasOdd = std::ranges::any_of(title, [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < ' ' || byte >= 0x7F || c == '\\';
    });
    return hasOdd ? "no AE title has a backslash, a control character or a letter beyond ASCII" : "";
}

} // namespace kxtool
