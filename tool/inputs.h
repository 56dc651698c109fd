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

/// Told of a name that cannot be read, and why.
using InputFailure = std::function<void(const std::filesystem::path& name, const FileError&)>;

/// Expands files and folders in the order given; what a folder holds follows in the order of the names' bytes, folders
/// below it included. Links to files are followed, links to folders only where they are named themselves, so no loop
/// and nothing outside the folder is walked into. What is neither file nor folder is passed over inside a folder.
/// @param except a folder that is not walked into when it lies below another; empty for none.
/// @param onFailure then, the others go on.
std::vector<Input> collectInputs(const std::vector<std::string>& names, const std::filesystem::path& except,
                                 const InputFailure& onFailure);

/// The same for the names of a list: a file that is named keeps the path that the list has for it, less what leads up or
/// to the root.
std::vector<Input> collectListed(const std::vector<std::string>& names, const std::filesystem::path& except,
                                 const InputFailure& onFailure);

/// Reads a list of names: ended by NUL bytes when there is one, else by line feeds. Empty names are none.
/// @param file "-" for standard input. @throws FileError
std::vector<std::string> readNames(const std::string& file);

/// Decides where results go, and that none of them overwrites another's source or result.
class OutputPlan {
public:
    /// @param output a file for the one input, or a folder, which need not be there yet; empty for each input's own
    ///        place.
    /// @param needsFolder whether `output` may not be a file. It is taken for a folder, too, when it is one or ends in "/".
    /// @param inputs stay as they are while this object lives.
    /// @throws FileError when a folder is needed and `output` is something else.
    OutputPlan(const std::filesystem::path& output, bool needsFolder, const std::vector<Input>& inputs);

    /// @param index among the inputs; each is asked for once.
    /// @return the input's own place; none when this very file has been given before and goes to the same place.
    /// @throws FileError when the place is another input, or taken by another input's result.
    std::optional<std::filesystem::path> placeOf(std::size_t index);

    /// @return whether an input is there, or a result goes there that placeOf() has spoken of.
    bool isTaken(const std::filesystem::path& place);

    /// Makes the folders on the way to a place.
    /// @return those whose names are new in their parents, from the top.
    /// @throws FileError
    std::vector<std::filesystem::path> makeFolders(const std::filesystem::path& place);

private:
    std::string canonicalName(const std::filesystem::path& path, bool isLink);

    std::filesystem::path output_;
    bool isFolder_;
    const std::vector<Input>& inputs_;
    std::vector<std::string> canonical_; // of the inputs
    // By canonical path: the input that may write there, and whether it has.
    struct Owner {
        std::size_t input;
        bool hasWritten;
    };
    std::unordered_map<std::string, Owner> owners_;
    std::unordered_map<std::string, std::string> folders_; // canonical names; asking the system is slow
    std::filesystem::path lastMade_;
};

} // namespace kxtool
