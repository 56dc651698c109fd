// SPDX-License-Identifier: BSD-3-Clause
// A mappings folder as the engine sees it: which file serves whom, and in which order.
#pragma once

#include "kxmap/core/filenames.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

using kxmap::Direction;
using kxmap::FileMeaning;

/// One place in the order of a run.
struct MappingSlot {
    enum class Role { Pre, Title, Post };
    Role role = Role::Title;
    std::filesystem::path name; ///< below the folder: "global/pre.map"
    bool isThere = false;       ///< as a file that the engine opens
};

/// @return what lies in a folder, in the order of its bytes.
/// @throws FileError when the folder cannot be read.
std::vector<std::filesystem::path> entriesOf(const std::filesystem::path& folder);

/// @return the files that the engine may read of a mappings folder: "*.map" in it, and its own four in "global" below
///         it, in the order pre, AE titles by their bytes, post.
/// @throws FileError when the folder cannot be read.
std::vector<std::filesystem::path> mappingFilesOf(const std::filesystem::path& folder);

/// @param given what --mappings names; empty for "mappings" below the environment variable DICOM_VAR.
/// @throws FileError when neither is given, or there is no such folder.
std::filesystem::path findMappingsFolder(const std::string& given);

/// @return pre, the AE title's and post, in this order, whether they are there or not. Without an AE title ("") the
///         file in the middle is left out: what everybody else gets.
std::vector<MappingSlot> slotsFor(const std::filesystem::path& folder, Direction direction, const std::string& aeTitle);

/// @return the AE title with a mapping of its own that somebody probably meant who wrote this one; empty without a guess.
std::string titleMeantBy(const std::filesystem::path& folder, Direction direction, const std::string& aeTitle);

/// @return the AE titles that have a mapping of their own, in the order of their bytes; "X.out" inbound, which a file
///         "X.out.map" serves as well, is not among them.
std::vector<std::string> titlesIn(const std::filesystem::path& folder, Direction direction);

/// @param name below the folder: "CT1.map", "global/pre.map".
/// @return what the engine takes an entry of that name for, if it opens it; the titles in it are parts of `name`.
FileMeaning meaningOf(const std::filesystem::path& name);

/// @return why the engine passes over an entry of the folder, as a sentence on it; empty when it reads it.
std::string whyUnread(const std::filesystem::path& folder, const std::filesystem::path& name);

/// @return why no remote system has this AE title, as a sentence; empty when one may.
std::string whyNoTitle(std::string_view title);

} // namespace kxtool
