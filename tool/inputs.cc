// SPDX-License-Identifier: BSD-3-Clause
// Walking folders, and keeping results from overwriting each other.
#include "tool/inputs.h"

#include "tool/output.h"
#include "tool/replacement.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

// The one name of a file, whichever way it was reached. What does not exist yet is taken as it is written.
std::string canonicalName(const fs::path& path)
{
    std::error_code failure;
    const fs::path canonical = fs::weakly_canonical(path, failure);
    return failure ? path.native() : canonical.native();
}

std::vector<fs::directory_entry> sortedEntries(const fs::path& folder)
{
    std::error_code failure;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator at(folder, failure), end; !failure && at != end; at.increment(failure))
        entries.push_back(*at);
    if (failure) throw FileError(folder, failure.message());
    std::sort(entries.begin(), entries.end());
    return entries;
}

class Walk {
public:
    Walk(fs::path except, const std::function<void(const FileError&)>& onFailure)
        : except_(std::move(except)), onFailure_(onFailure)
    {
    }

    void addNamed(const fs::path& name)
    {
        std::error_code failure;
        const fs::file_status status = fs::status(name, failure);
        if (fs::is_directory(status)) {
            addFolder(name, {});
        } else if (fs::is_regular_file(status)) {
            found.push_back({name, name.filename()});
        } else {
            onFailure_(FileError(name, failure              ? failure.message()
                                       : fs::exists(status) ? "neither a file nor a folder"
                                                            : systemReason(ENOENT)));
        }
    }

    std::vector<Input> found;

private:
    // The system bounds the depth: a path longer than PATH_MAX cannot be opened.
    void addFolder(const fs::path& folder, const fs::path& relative)
    {
        try {
            for (const fs::directory_entry& entry : sortedEntries(folder)) addEntry(entry, relative);
        } catch (const FileError& error) {
            onFailure_(error);
        }
    }

    void addEntry(const fs::directory_entry& entry, const fs::path& relative)
    {
        std::error_code failure;
        const fs::path name = entry.path().filename();
        if (name.native().starts_with(kTemporaryPrefix)) return;
        const fs::file_status status = entry.status(failure);
        if (fs::is_directory(status) && !entry.is_symlink(failure)) {
            if (except_.empty() || !fs::equivalent(entry.path(), except_, failure))
                addFolder(entry.path(), relative / name);
        } else if (fs::is_regular_file(status)) {
            found.push_back({entry.path(), relative / name});
        } else {
            reportNote(fmt::format("{}: passed over, a link to a folder or no file", entry.path().native()));
        }
    }

    fs::path except_;
    const std::function<void(const FileError&)>& onFailure_;
};

bool endsInSlash(const fs::path& path)
{
    return path.native().ends_with('/');
}

} // namespace

std::vector<Input> collectInputs(const std::vector<std::string>& names, const std::filesystem::path& except,
                                 const std::function<void(const FileError&)>& onFailure)
{
    Walk walk(except, onFailure);
    for (const std::string& name : names) walk.addNamed(name);
    return std::move(walk.found);
}

OutputPlan::OutputPlan(const std::filesystem::path& output, const std::vector<std::string>& names,
                       const std::vector<Input>& inputs)
    : output_(output)
{
    std::error_code failure;
    const bool needsFolder = names.size() > 1 || (!names.empty() && fs::is_directory(names.front(), failure));
    isFolder_ = needsFolder || endsInSlash(output) || fs::is_directory(output, failure);
    if (isFolder_ && fs::exists(output, failure) && !fs::is_directory(output, failure))
        throw FileError(output, "not a folder, which several results need");
    for (const Input& input : inputs) owners_.emplace(canonicalName(input.file), Owner{input.file.native(), false});
}

std::optional<std::filesystem::path> OutputPlan::placeOf(const Input& input)
{
    const fs::path place = isFolder_ ? output_ / input.relative : output_;
    const std::string source = canonicalName(input.file);
    const auto [owner, isNew] = owners_.emplace(canonicalName(place), Owner{input.file.native(), true});
    if (!isNew) {
        const bool isSame = canonicalName(owner->second.input) == source;
        if (isSame && owner->second.hasWritten) return std::nullopt;
        if (!isSame && owner->second.hasWritten)
            throw FileError(input.file, fmt::format("its result would overwrite that of {}", owner->second.input));
        if (!isSame) throw FileError(input.file, fmt::format("its result would overwrite {}", owner->second.input));
        owner->second.hasWritten = true;
    }
    std::error_code failure;
    if (isFolder_) fs::create_directories(place.parent_path(), failure);
    if (failure) throw FileError(place.parent_path(), failure.message());
    return place;
}

} // namespace kxtool
