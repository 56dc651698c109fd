// SPDX-License-Identifier: BSD-3-Clause
// From the files and folders of a command line to a list of files, and from each of these to where its result goes.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace kxtool {

class FileError;

/// One file to deal with.
struct Input {
    std::filesystem::path file;
    std::filesystem::path relative; ///< below the folder that was named; the file's name when the file itself was
    bool isLink = false;
};

/// What is left out of folders.
struct Selection {
    std::filesystem::path except{}; ///< a folder below another; empty for none
    bool skipsForeign = false;      ///< what is no DICOM file, and DICOMDIRs; how many is said
};

/// The help of the option --skip-foreign.
inline constexpr const char* kSkipForeignHelp =
    "Leave out what lies in folders and is no DICOM file, or a DICOMDIR; damaged files still fail";

/// Called for a name that cannot be read, with the reason.
using InputFailure = std::function<void(const std::filesystem::path& name, const FileError&)>;

/// Expands files and folders in the order given. The content of a folder, with all folders below it, is in the order of
/// the names' bytes. Links to files are followed, links to folders only where they are named themselves, so no loop
/// and nothing outside the folder is walked into. What is neither file nor folder is passed over inside a folder.
/// @param onFailure called for names that cannot be read; the others are still listed.
std::vector<Input> collectInputs(const std::vector<std::string>& names, const Selection& selection,
                                 const InputFailure& onFailure);

/// The same for the names of a list: the relative path of a file is the one in the list, without "/" at its beginning and
/// without "..".
std::vector<Input> collectListed(const std::vector<std::string>& names, const Selection& selection,
                                 const InputFailure& onFailure);

/// Reads a list of names: ended by NUL bytes when there is one, else by line feeds, or by carriage return and line feed
/// where all are. Empty names are left out.
/// @param file "-" for standard input. @throws FileError
std::vector<std::string> readNames(const std::string& file);

/// Decides where results go: every place gets one result, and no result replaces another input. Names are compared by the
/// file that they lead to, so links, mounts and folders that are named twice are recognised. Hard links count as separate
/// files, since a result replaces one name and the others keep the old content; each is read, and replaced, once.
class OutputPlan {
public:
    /// @param output a file for the one input, or a folder, which need not be there yet; empty for each input's own
    ///        place.
    /// @param needsFolder whether `output` may not be a file. It is taken for a folder, too, when it is one or ends in "/".
    /// @param inputs stay as they are while this object lives.
    /// @throws FileError when a folder is needed and `output` is something else, and when an input is to be replaced and
    ///         is also the source of another result, which would depend on their order.
    OutputPlan(const std::filesystem::path& output, bool needsFolder, const std::vector<Input>& inputs);

    /// @param index among the inputs.
    /// @return the input's own place; none when this very file has been given before and goes to the same place.
    /// @throws FileError when the place is another input, or taken by another input's result.
    std::optional<std::filesystem::path> placeOf(std::size_t index) const;

    /// @return whether an input is there, or a result goes there.
    bool isTaken(const std::filesystem::path& place);

    /// Makes the folders on the way to a place.
    /// @return those whose names are new in their parents, from the top.
    /// @throws FileError
    std::vector<std::filesystem::path> makeFolders(const std::filesystem::path& place);

private:
    struct Placement {
        std::filesystem::path place;
        std::string key;
        std::string error; // why the result cannot go there
        bool isRepeated;
    };

    Placement placementOf(std::size_t index);
    void refuseReadersOfResults() const;
    std::string keyOf(const std::filesystem::path& path);
    std::string entryOf(const std::filesystem::path& path);

    std::filesystem::path output_;
    bool isFolder_;
    const std::vector<Input>& inputs_;
    std::vector<std::string> keys_; // of the inputs
    std::vector<Placement> placements_;
    std::unordered_map<std::string, std::size_t> sources_; // by key: the first input
    std::unordered_map<std::string, std::size_t> claims_;  // by key: the input whose result goes to this place
    std::unordered_map<std::string, std::string> folders_; // their keys, kept because system calls are slow
    std::filesystem::path lastMade_;
};

} // namespace kxtool
