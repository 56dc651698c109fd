// SPDX-License-Identifier: BSD-3-Clause
// The rules by which mapping files are named.
#include "tool/rules/mappingsfolder.h"

#include "tool/console/output.h"
#include "tool/rules/lintnames.h" // editDistance

#include "kxmap/core/inspect.h"

#include <dcmtk/ofstd/ofstd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".map";
constexpr std::string_view kOutboundSuffix = ".out.map";

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

std::string inLowerCase(const std::string& title)
{
    OFString lower;
    OFStandard::toLower(lower, OFString(title.data(), title.size()));
    return {lower.data(), lower.size()};
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
    const bool isOutbound = direction == Direction::Outbound;
    const fs::path global = "global";
    std::vector<MappingSlot> slots;
    slots.push_back({Role::Pre, global / (isOutbound ? "outpre.map" : "pre.map"), false});
    if (!aeTitle.empty())
        slots.push_back({Role::Title, aeTitle + std::string(isOutbound ? kOutboundSuffix : kSuffix), false});
    slots.push_back({Role::Post, global / (isOutbound ? "outpost.map" : "post.map"), false});
    // The engine cuts longer names, and opens no title that is a path: such titles have no file.
    const bool hasFile = aeTitle.find('/') == std::string::npos && aeTitle.size() < kxmap::kMappingNameBytes;
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
        const std::size_t distance = editDistance(inLowerCase(aeTitle), inLowerCase(title));
        if (distance >= least) continue;
        least = distance;
        meant = std::move(title);
    }
    return meant;
}

std::vector<std::string> titlesIn(const fs::path& folder, Direction direction, bool withOutboundNames)
{
    const std::string_view suffix = direction == Direction::Outbound ? kOutboundSuffix : kSuffix;
    std::vector<std::string> titles;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename();
        if (!name.ends_with(suffix) || name.size() == suffix.size() || !isFile(entry.path())) continue;
        const bool isOutboundName = name.ends_with(kOutboundSuffix);
        if (direction == Direction::Inbound && isOutboundName && !withOutboundNames) continue;
        titles.push_back(name.substr(0, name.size() - suffix.size()));
    }
    std::ranges::sort(titles);
    return titles;
}

} // namespace kxtool
