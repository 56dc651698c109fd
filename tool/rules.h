// SPDX-License-Identifier: BSD-3-Clause
// The rules of one run: which mapping files it uses, how they are loaded, and in which order they are applied.
#pragma once

#include "kxmap.h"

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kxtool {

/// Which rules a command line asks for.
struct RuleChoice {
    std::string aeTitle;
    std::string mappingsFolder; ///< empty: "mappings" below the environment variable DICOM_VAR
    bool isOutbound = false;
    std::string singleFile; ///< not empty: this mapping file alone
};

/// @return the mapping files that Rules::apply() goes through, in that order; those that are there.
/// @throws FileError when the folder is not.
std::vector<std::filesystem::path> filesOf(const RuleChoice& choice);

/// Loaded once, applied to any number of datasets.
class Rules {
public:
    /// @throws FileError when the folder or the single file is not there; the library would pass over that in silence.
    explicit Rules(const RuleChoice& choice);

    /// The pre mapping, the AE title's and the post mapping, or the single file's rules.
    /// @throws std::logic_error as the built-ins "toUpper" and "toLower" do.
    void apply(MappingSession& session) const;

private:
    void loadSingle(const std::string& file);
    void loadSet(const RuleChoice& choice);

    std::string aeTitle_;
    std::unique_ptr<MappingSet> set_;
    std::unique_ptr<Mapping> single_;
};

} // namespace kxtool
