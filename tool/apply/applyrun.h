// SPDX-License-Identifier: BSD-3-Clause
// One run of "kxmap apply".
#pragma once

#include "tool/apply/applyworker.h"
#include "tool/rules/rules.h"

#include <optional>
#include <string>
#include <vector>

namespace kxtool {

/// The command line.
struct ApplyOptions {
    RuleChoice rules;
    FileOptions files;
    std::string output;
    bool isInPlace = false;
    bool cleans = false;       // what killed runs have left
    bool skipsForeign = false; // what lies in folders and is no DICOM file
    std::vector<std::string> inputs;
    std::string list;   // of more inputs
    std::string report; // a file
    unsigned workers = 1;
    std::optional<bool> showsProgress; // none: on a terminal, and with --verbose
};

/// Applies the rules, and says what became of the files.
/// @param options those that were not given are filled in.
/// @return the exit code. A run that is interrupted ends this process by the signal.
int runApply(ApplyOptions& options);

} // namespace kxtool
