// SPDX-License-Identifier: BSD-3-Clause
// Walking folders, and keeping results from overwriting each other.
#include "tool/dicom/inputs.h"

#include "tool/console/output.h"
#include "tool/dicom/foreignfile.h"
#include "tool/system/replacement.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sys/stat.h>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

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

// "../a/./b" and "/a/b" are "a/b" below another folder.
fs::path below(const fs::path& path)
{
    fs::path kept;
    for (const fs::path& part : path.lexically_normal().relative_path()) {
        if (part != ".." && part != ".") kept /= part;
    }
    return kept;
}

class Walk {
public:
    Walk(const Selection& selection, bool keepsPaths, const InputFailure& onFailure)
        : selection_(selection), keepsPaths_(keepsPaths), onFailure_(onFailure)
    {
    }

    std::vector<Input> take(const std::vector<std::string>& names)
    {
        for (const std::string& name : names) addNamed(name);
        if (skipped_ > 0)
            reportError(fmt::format("{} skipped: no DICOM {}, or a DICOMDIR",
                                    skipped_ == 1 ? "1 file is" : fmt::format("{} files are", skipped_),
                                    skipped_ == 1 ? "file" : "files"));
        return std::move(found_);
    }

private:
    static constexpr const char* kNoStandardInput = "standard input is no file to work on; a file of this name is ./-";

    void addNamed(const fs::path& name)
    {
        if (name == "-" && !keepsPaths_) return onFailure_(name, FileError(name, kNoStandardInput));
        std::error_code failure;
        const fs::file_status status = fs::status(name, failure);
        if (fs::is_directory(status)) {
            addFolder(name, keepsPaths_ ? below(name) : fs::path());
        } else if (fs::is_regular_file(status)) {
            found_.push_back({name, keepsPaths_ ? below(name) : name.filename(), fs::is_symlink(name, failure)});
        } else {
            onFailure_(name, FileError(name, failure              ? failure.message()
                                             : fs::exists(status) ? "neither a file nor a folder"
                                                                  : systemReason(ENOENT)));
        }
    }

    // The system bounds the depth: a path longer than PATH_MAX cannot be opened.
    void addFolder(const fs::path& folder, const fs::path& relative)
    {
        try {
            for (const fs::directory_entry& entry : sortedEntries(folder)) addEntry(entry, relative);
        } catch (const FileError& error) {
            onFailure_(folder, error);
        }
    }

    void addEntry(const fs::directory_entry& entry, const fs::path& relative)
    {
        std::error_code failure;
        const fs::path name = entry.path().filename();
        if (name.native().starts_with(kTemporaryPrefix)) return;
        const fs::file_status status = entry.status(failure);
        if (status.type() == fs::file_type::none) {
            onFailure_(entry.path(), FileError(entry.path(), failure.message())); // it may be one of the inputs
        } else if (fs::is_directory(status) && !entry.is_symlink(failure)) {
            if (selection_.except.empty() || !fs::equivalent(entry.path(), selection_.except, failure))
                addFolder(entry.path(), relative / name);
        } else if (!fs::is_regular_file(status)) {
            reportNote(fmt::format("{}: passed over, a link to a folder or no file", printable(entry.path().native())));
        } else if (selection_.skipsForeign && isForeignFile(entry.path())) {
            ++skipped_;
            reportNote(fmt::format("{}: skipped", printable(entry.path().native())));
        } else {
            found_.push_back({entry.path(), relative / name, entry.is_symlink(failure)});
        }
    }

    const Selection& selection_;
    bool keepsPaths_;
    const InputFailure& onFailure_;
    std::vector<Input> found_;
    std::size_t skipped_ = 0;
};

// Editors of other systems end all lines so; in the output of "find" the byte belongs to a name.
bool hasDosLines(std::string_view content)
{
    std::size_t feed = content.find('\n');
    if (feed == std::string_view::npos) return false;
    for (; feed != std::string_view::npos; feed = content.find('\n', feed + 1)) {
        if (feed == 0 || content[feed - 1] != '\r') return false;
    }
    return true;
}

bool endsInSlash(const fs::path& path)
{
    return path.native().ends_with('/');
}

} // namespace

std::vector<Input> collectInputs(const std::vector<std::string>& names, const Selection& selection,
                                 const InputFailure& onFailure)
{
    return Walk(selection, false, onFailure).take(names);
}

std::vector<Input> collectListed(const std::vector<std::string>& names, const Selection& selection,
                                 const InputFailure& onFailure)
{
    return Walk(selection, true, onFailure).take(names);
}

std::vector<std::string> readNames(const std::string& file)
{
    std::ifstream stream;
    if (file != "-") {
        errno = 0;
        stream.open(file, std::ios::binary);
        if (!stream) throw FileError(file, systemReason(errno));
    }
    std::istream& source = file == "-" ? std::cin : stream;
    const std::string content{std::istreambuf_iterator<char>(source), {}};
    if (source.bad()) throw FileError(file, systemReason(errno));
    const bool hasLines = content.find('\0') == std::string::npos;
    const std::string_view end = !hasLines ? std::string_view("\0", 1) : hasDosLines(content) ? "\r\n" : "\n";
    std::vector<std::string> names;
    for (std::size_t begin = 0; begin < content.size();) {
        const std::size_t stop = std::min(content.find(end, begin), content.size());
        if (stop > begin) names.push_back(content.substr(begin, stop - begin));
        begin = stop + end.size();
    }
    return names;
}

OutputPlan::OutputPlan(const std::filesystem::path& output, bool needsFolder, const std::vector<Input>& inputs)
    : output_(output), inputs_(inputs)
{
    std::error_code failure;
    isFolder_ = !output.empty() && (needsFolder || endsInSlash(output) || fs::is_directory(output, failure));
    if (isFolder_ && fs::exists(output, failure) && !fs::is_directory(output, failure))
        throw FileError(output, "not a folder, which several results need");
    keys_.reserve(inputs.size());
    for (const Input& input : inputs) {
        keys_.push_back(keyOf(input.file));
        sources_.emplace(keys_.back(), keys_.size() - 1);
    }
    placements_.reserve(inputs.size());
    for (std::size_t index = 0; index < inputs.size(); ++index) placements_.push_back(placementOf(index));
    refuseReadersOfResults();
}

OutputPlan::Placement OutputPlan::placementOf(std::size_t index)
{
    const Input& input = inputs_[index];
    Placement placement{output_.empty() ? input.file : isFolder_ ? output_ / input.relative : output_, {}, {}, false};
    placement.key = output_.empty() ? keys_[index] : keyOf(placement.place);
    const auto overwrites = [&](const char* whose, std::size_t other) {
        placement.error =
            fmt::format("its result would overwrite {}{}", whose, printable(inputs_[other].file.native()));
    };
    if (const auto source = sources_.find(placement.key); source != sources_.end() && keys_[index] != placement.key) {
        overwrites("", source->second);
        return placement;
    }
    const auto [claim, isNew] = claims_.emplace(placement.key, index);
    placement.isRepeated = !isNew && keys_[claim->second] == keys_[index];
    if (!isNew && !placement.isRepeated) overwrites("that of ", claim->second);
    return placement;
}

void OutputPlan::refuseReadersOfResults() const
{
    for (std::size_t index = 0; index < inputs_.size(); ++index) {
        const Placement& placement = placements_[index];
        if (!placement.error.empty() || placement.key == keys_[index] || !claims_.contains(keys_[index])) continue;
        throw FileError(inputs_[index].file,
                        fmt::format("named for its own place and for {}: nothing is written, since the rules might be "
                                    "applied to it twice",
                                    printable(placement.place.native())));
    }
}

std::optional<std::filesystem::path> OutputPlan::placeOf(std::size_t index) const
{
    const Placement& placement = placements_[index];
    if (!placement.error.empty()) throw FileError(inputs_[index].file, placement.error);
    if (placement.isRepeated) return std::nullopt;
    return placement.place;
}

bool OutputPlan::isTaken(const std::filesystem::path& place)
{
    const std::string key = keyOf(place);
    return sources_.contains(key) || claims_.contains(key);
}

std::vector<std::filesystem::path> OutputPlan::makeFolders(const std::filesystem::path& place)
{
    const fs::path folder = place.parent_path();
    if (!isFolder_ || folder == lastMade_) return {};
    std::error_code failure;
    std::vector<fs::path> made;
    for (fs::path above = folder; !above.empty() && !fs::exists(above, failure); above = above.parent_path())
        made.insert(made.begin(), above);
    fs::create_directories(folder, failure);
    if (failure) throw FileError(folder, failure.message());
    lastMade_ = folder;
    return made;
}

// The key of a name: the device and number of its file where this has one name only, else the name's entry in its folder.
std::string OutputPlan::keyOf(const std::filesystem::path& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1)
        return fmt::format("{}:{}", status.st_dev, status.st_ino);
    return entryOf(path);
}

// The key of an entry: the key of its folder and its name. A folder that does not exist yet is itself an entry.
std::string OutputPlan::entryOf(const std::filesystem::path& path)
{
    std::error_code failure;
    const fs::path name = path.filename();
    if (fs::is_symlink(path, failure) || name.empty() || name == "." || name == "..") {
        const fs::path canonical = fs::weakly_canonical(path, failure);
        return failure || canonical == path ? path.native() : entryOf(canonical);
    }
    const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
    const auto known = folders_.find(parent.native());
    if (known != folders_.end()) return known->second + '/' + name.native();
    struct stat status = {};
    std::string folder =
        stat(parent.c_str(), &status) == 0 ? fmt::format("{}:{}", status.st_dev, status.st_ino) : entryOf(parent);
    return folders_.emplace(parent.native(), std::move(folder)).first->second + '/' + name.native();
}

} // namespace kxtool
