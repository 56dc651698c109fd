// SPDX-License-Identifier: BSD-3-Clause
// Loading and applying rules through the library's public interface.
#include "tool/rules.h"

#include "tool/mappingsfolder.h"
#include "tool/output.h"

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

} // namespace

std::vector<fs::path> filesOf(const RuleChoice& choice)
{
    if (!choice.singleFile.empty()) {
        std::ignore = openMapping(choice.singleFile);
        return {choice.singleFile};
    }
    const fs::path folder = findMappingsFolder(choice.mappingsFolder);
    std::vector<fs::path> files;
    for (const MappingSlot& slot :
         slotsFor(folder, choice.isOutbound ? Direction::Outbound : Direction::Inbound, choice.aeTitle)) {
        if (slot.isThere) files.push_back(folder / slot.name);
    }
    return files;
}

Rules::Rules(const RuleChoice& choice) : aeTitle_(choice.aeTitle)
{
    if (choice.singleFile.empty()) loadSet(choice);
    else loadSingle(choice.singleFile);
}

void Rules::loadSingle(const std::string& file)
{
    const Stream stream = openMapping(file);
    single_ = std::make_unique<Mapping>(stream.get(), fs::path(file).stem().c_str());
}

void Rules::loadSet(const RuleChoice& choice)
{
    const fs::path folder = findMappingsFolder(choice.mappingsFolder);
    std::optional<MappingsRoot> root;
    if (!choice.mappingsFolder.empty()) root.emplace(folder);
    set_ = choice.isOutbound ? std::make_unique<MappingSet>(true, choice.aeTitle.c_str(), true)
                             : std::make_unique<MappingSet>();
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
