// SPDX-License-Identifier: BSD-3-Clause
// Loading and applying rules through the library's public interface.
#include "tool/rules.h"

#include "tool/output.h"

#include "kxmap/core/inspect.h"

#include <cerrno>
#include <cstdlib>
#include <fmt/format.h>
#include <optional>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kRootVariable = "DICOM_VAR";
constexpr const char* kFolderName = "mappings";

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

Stream openMapping(const fs::path& file)
{
    Stream stream(std::fopen(file.c_str(), "rt"), &std::fclose);
    if (!stream) throw FileError(file, systemReason(errno));
    std::error_code failure;
    if (!fs::is_regular_file(file, failure)) throw FileError(file, "not a regular file"); // a folder opens, too
    return stream;
}

// The library looks below DICOM_VAR alone. While this lives, that is a folder of our own in which "mappings" leads to
// the folder that the user named, whatever its name.
class MappingsRoot {
public:
    explicit MappingsRoot(const fs::path& mappings)
    {
        std::string pattern = (fs::temp_directory_path() / "kxmap-XXXXXX").native();
        if (mkdtemp(pattern.data()) == nullptr) throw FileError(pattern, systemReason(errno));
        root_ = pattern;
        if (const char* value = std::getenv(kRootVariable)) before_ = value;
        setenv(kRootVariable, root_.c_str(), 1);
        std::error_code failure;
        fs::create_directory_symlink(fs::canonical(mappings, failure), root_ / kFolderName, failure);
        if (failure) {
            leave();
            throw FileError(mappings, failure.message());
        }
    }
    ~MappingsRoot() { leave(); }
    MappingsRoot(const MappingsRoot&) = delete;
    MappingsRoot& operator=(const MappingsRoot&) = delete;

private:
    void leave()
    {
        unlink((root_ / kFolderName).c_str());
        rmdir(root_.c_str());
        if (before_) setenv(kRootVariable, before_->c_str(), 1);
        else unsetenv(kRootVariable);
    }

    fs::path root_;
    std::optional<std::string> before_;
};

fs::path mappingsFolder(const RuleChoice& choice)
{
    if (!choice.mappingsFolder.empty()) return choice.mappingsFolder;
    const char* root = std::getenv(kRootVariable);
    if (root == nullptr) throw FileError(kRootVariable, "not set, and --mappings names no folder");
    return fs::path(root) / kFolderName;
}

// The files that a set takes its pre, AE title's and post mapping from.
std::vector<fs::path> filesOf(const fs::path& folder, const RuleChoice& choice)
{
    const std::string direction = choice.isOutbound ? "out" : "";
    const std::string suffix = choice.isOutbound ? ".out.map" : ".map";
    // The engine cuts longer names, and opens no title that is a path: such titles have no file.
    const bool hasFile =
        choice.aeTitle.find('/') == std::string::npos && choice.aeTitle.size() < kxmap::kMappingNameBytes;
    std::vector<fs::path> present;
    for (const fs::path& file :
         {folder / "global" / (direction + "pre.map"), hasFile ? folder / (choice.aeTitle + suffix) : fs::path(),
          folder / "global" / (direction + "post.map")}) {
        std::error_code failure;
        if (fs::is_regular_file(file, failure)) present.push_back(file);
    }
    return present;
}

} // namespace

Rules::Rules(const RuleChoice& choice) : aeTitle_(choice.aeTitle)
{
    if (choice.singleFile.empty()) loadSet(choice);
    else loadSingle(choice.singleFile);
}

void Rules::loadSingle(const std::string& file)
{
    const Stream stream = openMapping(file);
    single_ = std::make_unique<Mapping>(stream.get(), fs::path(file).stem().c_str());
    files_.emplace_back(file);
}

void Rules::loadSet(const RuleChoice& choice)
{
    const fs::path folder = mappingsFolder(choice);
    std::error_code failure;
    const fs::file_status status = fs::status(folder, failure);
    if (!fs::is_directory(status)) throw FileError(folder, fs::exists(status) ? "not a folder" : systemReason(ENOENT));
    if (access(folder.c_str(), R_OK | X_OK) != 0) throw FileError(folder, systemReason(errno));

    std::optional<MappingsRoot> root;
    if (!choice.mappingsFolder.empty()) root.emplace(folder);
    set_ = choice.isOutbound ? std::make_unique<MappingSet>(true, choice.aeTitle.c_str(), true)
                             : std::make_unique<MappingSet>();
    files_ = filesOf(folder, choice);
}

void Rules::apply(MappingSession& session) const
{
    if (single_) {
        std::ignore = single_->apply(session); // always 0
        return;
    }
    std::ignore = set_->applyGlobal(GlobalPre, session);
    std::ignore = set_->apply(aeTitle_.c_str(), session);
    std::ignore = set_->applyGlobal(GlobalPost, session);
}

} // namespace kxtool
