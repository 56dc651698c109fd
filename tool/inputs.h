// SPDX-License-Identifier: BSD-3-Clause
// From the files and folders of a command line to a list of files, and from each of these to where its result goes.
#pragma once

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
};

/// Expands files and folders in the order given; what a folder holds follows in the order of the names' bytes, folders
/// below it included. Links to files are followed, links to folders only where they are named themselves, so no loop
/// and nothing outside the folder is walked into. What is neither file nor folder is passed over inside a folder.
/// @param except a folder that is not walked into when it lies below another; empty for none.
/// @param onFailure is told of each name that cannot be read; the others go on.
std::vector<Input> collectInputs(const std::vector<std::string>& names, const std::filesystem::path& except,
                                 const std::function<void(const FileError&)>& onFailure);

/// Decides where results go, and that none of them overwrites another's source or result.
class OutputPlan {
public:
    /// @param output as the user gave it: a file when `names` is one file and `output` is no folder and does not end in
    ///        "/"; else a folder, which need not be there yet.
    /// @throws FileError when a folder is needed and `output` is something else.
    OutputPlan(const std::filesystem::path& output, const std::vector<std::string>& names,
               const std::vector<Input>& inputs);

    /// Makes the folders on the way.
    /// @return the input's own place; none when this very file has been given before and goes to the same place.
    /// @throws FileError when the place is another input, or taken by another input's result.
    std::optional<std::filesystem::path> placeOf(const Input& input);

private:
    std::filesystem::path output_;
    bool isFolder_;
    // By canonical path: the input that may write there, and whether it has.
    struct Owner {
        std::string input;
        bool hasWritten;
    };
    std::unordered_map<std::string, Owner> owners_;
};

} // namespace kxtool
