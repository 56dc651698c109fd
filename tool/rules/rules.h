// SPDX-License-Identifier: BSD-3-Clause
// The rules of one run: which mapping files it uses, and in which order they are applied.
#pragma once

#include "tool/rules/rulefile.h"

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// Which rules a command line asks for.
struct RuleChoice {
    std::string aeTitle;
    std::string mappingsFolder; ///< empty: "mappings" below the environment variable DICOM_VAR
    bool isOutbound = false;
    std::string singleFile; ///< not empty: this mapping file alone
};

/// @return the mapping files of a run in the order in which they are applied: pre, the AE title's and post, those that are
///         there; or the single one.
/// @throws FileError when the folder is not there, or the single file is no regular file.
std::vector<std::filesystem::path> filesOf(const RuleChoice& choice);

/// The library's own mappings, made once from the bytes that were read, and applied to any number of datasets.
class Rules {
public:
    /// @param files of a run, in its order. They are not needed afterwards.
    explicit Rules(const std::vector<RuleFile>& files);

    /// Applies one mapping after the other, as a server does.
    /// @throws std::logic_error as the built-ins "toUpper" and "toLower" do.
    void apply(MappingSession& session) const;

private:
    std::vector<std::unique_ptr<Mapping>> mappings_;
};

/// @return the mapping that the library reads from a file of these bytes: in its pieces, and each up to its first NUL byte.
/// @param title its name; cut where the library cuts it.
std::unique_ptr<Mapping> mappingOf(std::string_view bytes, const char* title);

} // namespace kxtool
