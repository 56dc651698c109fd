// SPDX-License-Identifier: BSD-3-Clause
// Findings for people, as compilers print them, and for programs.
#pragma once

#include "tool/lint/lint.h"

#include <filesystem>
#include <string>
#include <vector>

namespace kxtool {

/// Files that were looked at together, and what was found in them.
struct CheckedFiles {
    std::vector<RuleFile> files;
    std::vector<Finding> findings; ///< they refer to `files`
};

/// A whole run.
struct CheckRun {
    std::vector<CheckedFiles> parts;
    std::vector<std::string> unreadable; ///< why, a line each
    bool warningsAreErrors = false;

    Severity severityOf(const Finding& finding) const
    {
        return warningsAreErrors ? Severity::Error : infoOf(finding.check).severity;
    }
    std::size_t fileCount() const;
    std::size_t countOf(Severity severity) const;
};

/// Writes to standard output: each finding with its line and a caret below it, and a line that sums up.
/// @param width the columns there are; longer lines are shown in a window of that size.
void printFindings(const CheckRun& run, bool isColored, std::size_t width);

/// @return the run as one JSON object; bytes that are no UTF-8 are replaced.
std::string findingsAsJson(const CheckRun& run);

/// @return the run as a SARIF 2.1.0 log.
std::string findingsAsSarif(const CheckRun& run);

} // namespace kxtool
